#pragma once
// The "Color Uniformity" page: a flat-field picture is loaded or captured,
// one channel is reduced to the subsampled grid, the picture shows the
// centre and corner windows with their values, the chart shows the grid as
// a colour map with contours, and the report (HTML with the four channel
// charts, CSV, CPIQ text) is built from the page's settings. The batch
// uniformity test runs through the same page (KestroUniformityBatch).

#include "acquisition/capture.h"
#include "app/batchpages.h"
#include "measure/uniformity/gui/uniformityreport.h"
#include "measure/uniformity/uniformity.h"

#include <QImage>
#include <QString>
#include <QWidget>
#include <functional>

class QButtonGroup;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;
class QSpectrogramPlot;
class QTextBrowser;

namespace kestro {

class ReportDock;
class UniformityPictureView;

// The batch parameters of the uniformity test (the window's fields).
struct UniformityBatchSettings
{
    QString imagePath;
    QString reportPath;
    int centerPercent = 10;
    int cornerPercent = 10;
    bool showContour = false;
    int contourLow = 0;
    int contourStepSize = 25;
    int contourHigh = 255;
    int chartSize = 550;
    int subSampleSize = 10;
    QString colorMapName = QStringLiteral("Standard");
};

class UniformityPage : public QWidget, public KestroUniformityBatch
{
    Q_OBJECT
public:
    explicit UniformityPage(QWidget *parent = nullptr);
    ~UniformityPage() override;

    // The capture button takes its picture through `capture`.
    void setCaptureFunction(CaptureFunction capture);
    // runUniformity() reads its parameters from `provider`.
    void setBatchSettingsProvider(std::function<UniformityBatchSettings()> provider);
    // The parameters as the page holds them (the batch defaults).
    UniformityBatchSettings currentSettings() const;

    // KestroUniformityBatch.
    bool runUniformity() override;
    QString uniformityHtml() const override { return m_html; }
    QString uniformityImagePath() const override { return m_htmlImagePath; }
    QString uniformityImageFolder() const override { return m_htmlImageFolder; }
    bool saveUniformityCsv(const QString &path) override;

    // The CPIQ shading-balance text file of the current picture; false
    // without a picture or when the file cannot be written.
    bool saveCpiqFile(const QString &path);

    // Loads a picture file as the open dialog does with the chosen file
    // (shown in the file field); false, after the message, when it does not
    // load.
    bool loadPictureFile(const QString &path);

    // Hands a picture to the page as if loaded from `path`; false (with the
    // message shown) when its format is refused.
    bool setPicture(const QImage &image, const QString &path);

    const UniformityCalculation &calculation() const { return m_calc; }
    QSpectrogramPlot *chart() const { return m_chart; }
    QSpectrogramPlot *reportChart() const { return m_reportChart; }
    UniformityPictureView *pictureView() const { return m_picture; }
    // The report view's dock, below the picture and the chart until a
    // window takes it.
    ReportDock *reportDock() const { return m_reportDock; }
    UniformityReportSettings reportSettings() const;

public slots:
    void loadUniImage();
    void captureUniChartImage();
    void newUniImage(QImage &image);
    void valueChangedUniSubSampSize();
    void valueChangedUniCenterPercent(int percent);
    void valueChangedUniCornerPercent(int percent);
    void updateUniAutoRun(bool autoRun);
    void enableCPIQ(bool enable);
    void indexChangedUniColorMap(const QString &name);
    void clickedUniShowContour(bool show);
    void valueChangedUniMin(int low);
    void valueChangedUniMax(int high);
    void valueChangedUniStepSize(int step);
    void clickedUniData();
    void printUniHTML();
    void saveUniCpiq();

private:
    void buildWidgets();
    void connectWidgets();
    bool loadPicture(const QString &path);
    // Shows the picture the calculation has just taken and measures it.
    void showNewPicture(const QString &path);
    // Grid, statistics, centre and corners of the shown channel; the
    // subsampling message is shown when `announce` is set.
    void recompute(bool announce);
    void showResults();
    // Builds the report from the page's settings; false (message shown
    // when `announce`) for an invalid subsample size or without a picture.
    bool buildReport(bool announce);
    void reportIfAutoRun();
    void applyBatchSettings(const UniformityBatchSettings &settings);
    UniformityChannel shownChannel() const;
    unsigned chartChannelMask() const;
    void warn(const QString &title, const QString &text);

    UniformityCalculation m_calc;
    // What the chart shows: the picture (counted on each load), channel and
    // subsample size of its grid.
    struct ChartSource
    {
        quint64 picture = 0;
        int channel = -1;
        int subsample = 0;
        bool operator==(const ChartSource &o) const
        {
            return picture == o.picture && channel == o.channel && subsample == o.subsample;
        }
    };
    quint64 m_pictureNumber = 0;
    ChartSource m_chartSource;
    UniformityPass m_reportPass;
    CaptureFunction m_capture;
    std::function<UniformityBatchSettings()> m_settingsProvider;

    // Page state; the widgets set it, a batch run sets it directly.
    QString m_imagePath;
    int m_subsample = 10;
    int m_centerPercent = 10;
    int m_cornerPercent = 10;
    int m_chartSize = 550;
    QString m_colorMapName = QStringLiteral("Standard");
    UniformityContour m_contour{false, 0, 255, 25};
    bool m_autoRun = false;
    bool m_building = false;

    QString m_html;
    QString m_htmlImagePath;
    QString m_htmlImageFolder;

    QLineEdit *m_fileName = nullptr;
    QPushButton *m_load = nullptr;
    QPushButton *m_capturePicture = nullptr;
    QLineEdit *m_subsampleLine = nullptr;
    QSpinBox *m_centerSpin = nullptr;
    QSpinBox *m_cornerSpin = nullptr;
    QComboBox *m_channel = nullptr;
    QLabel *m_minimum = nullptr;
    QLabel *m_maximum = nullptr;
    QLabel *m_mean = nullptr;
    QLabel *m_center = nullptr;
    QLabel *m_cpiqMetric = nullptr;
    QComboBox *m_colorMap = nullptr;
    QCheckBox *m_showContour = nullptr;
    QSpinBox *m_contourLow = nullptr;
    QSpinBox *m_contourHigh = nullptr;
    QSpinBox *m_contourStep = nullptr;
    QButtonGroup *m_chartSizeGroup = nullptr;
    QCheckBox *m_reportChannel[4] = {};
    QCheckBox *m_cpiq = nullptr;
    QSpinBox *m_cpiqRows = nullptr;
    QSpinBox *m_cpiqCols = nullptr;
    QCheckBox *m_autoRunBox = nullptr;
    QPushButton *m_report = nullptr;
    QPushButton *m_data = nullptr;
    QPushButton *m_saveCpiq = nullptr;
    UniformityPictureView *m_picture = nullptr;
    QSpectrogramPlot *m_chart = nullptr;
    QSpectrogramPlot *m_reportChart = nullptr; // renders the report's charts, never shown
    QTextBrowser *m_reportView = nullptr;
    ReportDock *m_reportDock = nullptr;
};

} // namespace kestro
