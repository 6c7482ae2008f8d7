#pragma once
// MacbethChartPage: the "Macbeth Chart Image Tests" page. The user loads or
// captures pictures of a 24-patch chart into the chart frame view, places or
// detects the patch regions, and measures on them:
//   - colour difference on the current picture (per-patch CIEDE2000 and
//     friends, white balance of the gray row): the bar chart, the gray patch
//     plot of the selected metric and the report;
//   - noise over the whole frame set (signal and noise components per patch
//     and channel): the SNR bar chart, the gray patch SNR plot and the noise
//     report, for all patches or one.
// The page also writes its reports (HTML with a companion picture folder,
// CSV) for the window's export and for the command-line tool.

#include "acquisition/capture.h"
#include "measure/color/macbethcolordifference.h"
#include "measure/color/macbethexport.h"
#include "measure/noise/noiseengine.h"

#include <QMessageBox>
#include <QStringList>
#include <QVector>
#include <QWidget>
#include <functional>

class ChartGraph;
class GrayChartPlot;
class QCheckBox;
class QComboBox;
class QPushButton;
class QSpinBox;
class QTabWidget;
class QTextBrowser;
class QTimer;
class macbethFrameView;
namespace kestro {
class ReportDock;
}

class MacbethChartPage : public QWidget, public kestro::ChartReportSource
{
    Q_OBJECT
public:
    explicit MacbethChartPage(QWidget *parent = nullptr);
    ~MacbethChartPage() override;

    // Message boxes go through this function; without one they print
    // "Title: text" on stderr (a page without a window never waits).
    using MessageFunction
            = std::function<void(QMessageBox::Icon icon, const QString &title, const QString &text)>;
    void setMessageFunction(MessageFunction show) { m_message = std::move(show); }
    // The capture button's source of pictures; without one a capture fails.
    void setCaptureFunction(kestro::CaptureFunction capture) { m_capture = std::move(capture); }
    // Batch runs keep the report views as they are.
    void setBatchMode(bool batch) { m_batchMode = batch; }
    bool batchMode() const { return m_batchMode; }
    // Shows the noise report in a browser engine view instead of the
    // built-in rich-text view (started on first use). Only for a display a
    // user looks at.
    void setUseWebView(bool use) { m_useWebView = use; }

    // Clears the noise results and sets up the noise charts (once).
    void initNoiseCharts();
    // Takes noise results measured elsewhere over `frameFiles`: charts and
    // report as after calculateNoise.
    void showNoiseResults(const QVector<kestro::NoisePatchResult> &results,
                          const QStringList &frameFiles);

    macbethFrameView *frameView() const { return m_frameView; }
    QStdMacbethChartColorDifference &colorDifference() { return m_model; }
    const QVector<kestro::NoisePatchResult> &noiseResults() const { return m_noiseResults; }
    ChartGraph *colorChart() const { return m_colorChart; }
    GrayChartPlot *colorGrayPlot() const { return m_colorGrayPlot; }
    ChartGraph *noiseChart() const { return m_noiseChart; }
    GrayChartPlot *noiseGrayPlot() const { return m_noiseGrayPlot; }
    QComboBox *metricSelector() const { return m_metric; }
    QComboBox *noisePatchSelector() const { return m_noisePatch; }
    QTextBrowser *colorReportView() const { return m_colorReportView; }
    // The dock of the report views, below the charts until a window takes
    // it.
    kestro::ReportDock *reportDock() const { return m_reportDock; }
    // The file of the picture the colour difference was last measured on.
    QString chartImageFileName() const { return m_chartImageFile; }
    // The frames the noise was last measured over.
    QStringList noiseFrameFiles() const { return m_noiseFrameFiles; }
    bool autoRun() const { return m_autoRun; }

    // kestro::ChartReportSource
    QString colorDifferenceHtml() const override { return m_colorHtml; }
    QString noiseHtml() const override { return m_noiseHtml; }
    bool writeColorDifferenceReport(const QString &path, bool withNoise, QString *error) override;
    bool writeNoiseReport(const QString &path, QString *error) override;
    kestro::MeasurementCsvData csvData() const override;

signals:
    // A chart was processed: the model holds its measured patch colours.
    void chartProcessed();

public slots:
    // Open dialog for one or more chart pictures (raw files too); they
    // become the frame set.
    void loadChartImage();
    // Replaces the frame set by captured frames (the count of the frames
    // spin box), each saved as a PNG file in the temporary folder.
    void captureChartImage();
    // Measures the colour difference on the current picture. False when
    // there are not 24 regions or no picture; true otherwise, also when a
    // region is unusable (the error is shown, the usable ones measured).
    bool processMacbethChart();
    // Shows metric `index` of the selector on the bar chart and gray plot.
    void changeColordifferenceMetic(int index);
    // Measures the noise over the frame set and its regions. False when the
    // calculation is refused (the reason is shown).
    bool calculateNoise();
    // 0: the noise report of all patches; k: that of patch k only.
    void noiseGraphSelChanged(int curSel);
    // When on, moving or resizing a region measures colour and noise again.
    void updateNoiseColorDiffAutoRun(bool bAutoRun);

protected:
    void showEvent(QShowEvent *event) override;

private:
    void buildUi();
    void message(QMessageBox::Icon icon, const QString &title, const QString &text);
    void showNoiseReport();
    void rerunAfterRegionChange();
    // The bar chart pictures are painted at the gray plot's size less one
    // pixel each way, so the two pictures of a report line up.
    bool saveChartPictures(const kestro::ReportLocation &location, ChartGraph *chart,
                           GrayChartPlot *plot, const QString &chartSuffix,
                           const QString &plotSuffix) const;

    macbethFrameView *m_frameView = nullptr;
    QPushButton *m_loadButton = nullptr;
    QPushButton *m_captureButton = nullptr;
    QSpinBox *m_captureCount = nullptr;
    QPushButton *m_processButton = nullptr;
    QComboBox *m_metric = nullptr;
    QPushButton *m_noiseButton = nullptr;
    QComboBox *m_noisePatch = nullptr;
    QCheckBox *m_autoRunBox = nullptr;
    QTabWidget *m_colorTabs = nullptr;
    QTabWidget *m_noiseTabs = nullptr;
    ChartGraph *m_colorChart = nullptr;
    QWidget *m_colorPlotArea = nullptr;
    GrayChartPlot *m_colorGrayPlot = nullptr;
    ChartGraph *m_noiseChart = nullptr;
    QWidget *m_noisePlotArea = nullptr;
    GrayChartPlot *m_noiseGrayPlot = nullptr;
    QTabWidget *m_reportTabs = nullptr;
    kestro::ReportDock *m_reportDock = nullptr;
    QTextBrowser *m_colorReportView = nullptr;
    QWidget *m_noiseReportArea = nullptr;
    QWidget *m_noiseReportView = nullptr; // made on first use
    QTimer *m_rerunTimer = nullptr;

    QStdMacbethChartColorDifference m_model;
    QVector<kestro::NoisePatchResult> m_noiseResults;
    QString m_colorHtml;
    QString m_noiseHtml;
    QString m_chartImageFile;
    QStringList m_noiseFrameFiles;
    MessageFunction m_message;
    kestro::CaptureFunction m_capture;
    bool m_batchMode = false;
    bool m_useWebView = false;
    bool m_autoRun = false;
    bool m_noiseChartsReady = false;
    bool m_shownOnce = false;
};
