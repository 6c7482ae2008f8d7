#pragma once
// The MTF page: a slanted-edge chart picture on a region-drawing view, the
// gamma of the picture, "Calculate MTF" over every region on a worker
// thread, the result pane, the MTF plot and the MTF report. The same page
// runs the batch MTF test (KestroMtfBatch).

#include "acquisition/capture.h"
#include "app/batchpages.h"
#include "measure/mtf/mtfthread.h"

#include <QRect>
#include <QString>
#include <QWidget>
#include <functional>

class MTFPlot;
class QCheckBox;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QRadioButton;
class QTextBrowser;
class QToolButton;
class imageGraphicsView;
namespace kestro {
class ReportDock;
}
class qRegionGraphicsRectItem;
class regionBasedMTF;

// What a batch run hands the page: the command-line mode flag and the MTF
// fields that the batch runner parsed.
struct MtfBatchSettings
{
    bool commandLine = false;
    double gamma = 1.0;
    QString imagePath;
    // One region from the command line (X1, Y1, X2, Y2); null when none.
    QRect inlineRegion;
    // The ROI file of "ROI=", read when given.
    QString roiFile;
    bool roiFileGiven = false;
};

class MtfPage : public QWidget, public KestroMtfBatch
{
    Q_OBJECT
public:
    explicit MtfPage(QWidget *parent = nullptr);
    ~MtfPage() override;

    // Where batch runs read their fields (the window's batch fields).
    void setBatchSettings(std::function<MtfBatchSettings()> settings);
    // The capture of the capture button (the window's camera).
    void setCaptureFunction(kestro::CaptureFunction capture);

    // The gamma of the custom text, or 1.0 when it is not a valid gamma:
    // the default of batch runs that give no "Gamma=".
    double customGamma() const;

    // KestroMtfBatch.
    void newSlantedEdgeImage(QImage &image) override;
    bool calcMTF(bool interactive) override;
    QString mtfReport(const QString &outputPath, bool commandLine, bool saveImages) override;

    // State.
    QString mtfFileName() const { return m_mtfFileName; }
    double gamma() const { return m_gamma; }
    bool isCalculating() const;
    bool autoRerun() const;

    // Parts, for the window and tests.
    imageGraphicsView *view() const { return m_view; }
    MTFPlot *plot() const { return m_plot; }
    QTextBrowser *resultPane() const { return m_result; }
    // The result pane's dock, below the plot until a window takes it.
    kestro::ReportDock *reportDock() const { return m_reportDock; }
    QLineEdit *fileNameLine() const { return m_fileName; }
    QLineEdit *customGammaLine() const { return m_customGamma; }
    QRadioButton *srgbButton() const { return m_srgb; }
    QRadioButton *linearButton() const { return m_linear; }
    QRadioButton *customButton() const { return m_custom; }
    QPushButton *calculateButton() const { return m_calculate; }
    QCheckBox *autoRerunBox() const { return m_autoRerun; }
    QCheckBox *onlySelectedBox() const { return m_onlySelected; }
    QCheckBox *lwphBox() const { return m_lwph; }
    QProgressBar *progressBar() const { return m_progress; }
    QToolButton *loadButton() const { return m_loadButton; }
    QToolButton *captureButton() const { return m_captureButton; }

    // Loads a picture file as the page's image (what the open dialog does
    // with the chosen file); false, after the failure message, when it does
    // not load.
    bool loadImageFile(const QString &path);
    // The region file operations of the page's buttons, for a chosen path.
    bool saveRegionFile(const QString &path);
    bool loadRegionFile(const QString &path);

public slots:
    void loadSlantedEdgeImage();
    void captureMTFChartImage();
    void calcMTF();
    void lineEditingFinished();
    void lineTextEdited(const QString &text);
    void removeSelectedRegion();
    void removeAllRegions();
    void changeToRegionSelection();
    void changeRegionRect(qRegionGraphicsRectItem *item);
    void enableAutoRerun(int state);
    void saveMarkerFileMTF();
    void loadMarkerFileMTF();
    void showOnlySelected(int state);
    void showLWPH(bool on);
    void mtfCalculationFinished();

protected:
    void showEvent(QShowEvent *event) override;

private:
    class RunSource;

    void buildForm();
    MtfBatchSettings batchSettings() const;
    bool prepareBatchRegions(const MtfBatchSettings &batch);
    bool readGamma();
    void setInputsEnabled(bool enabled);
    void endRun();
    // The finished handler; true when the region it shows has a result.
    bool finishRun();
    qRegionGraphicsRectItem *shownRegion() const;
    static regionBasedMTF *mtfOf(const qRegionGraphicsRectItem *item);
    // Gives every region a calculation (not run) so that it can be reported.
    void attachMissingCalculations();
    void plotRegion(const regionBasedMTF &mtf, bool lwph);
    void showResult(const regionBasedMTF *mtf);
    void clearResults();
    void setFileNameStyle(const QString &text);
    QString chooseRoiFile(bool save);
    void reportNoResult(const QString &why) const;

    imageGraphicsView *m_view = nullptr;
    MTFPlot *m_plot = nullptr;
    QTextBrowser *m_result = nullptr;
    kestro::ReportDock *m_reportDock = nullptr;
    QLineEdit *m_fileName = nullptr;
    QRadioButton *m_srgb = nullptr;
    QRadioButton *m_linear = nullptr;
    QRadioButton *m_custom = nullptr;
    QLineEdit *m_customGamma = nullptr;
    QPushButton *m_calculate = nullptr;
    QCheckBox *m_autoRerun = nullptr;
    QCheckBox *m_onlySelected = nullptr;
    QCheckBox *m_lwph = nullptr;
    QProgressBar *m_progress = nullptr;
    QToolButton *m_loadButton = nullptr;
    QToolButton *m_captureButton = nullptr;
    QList<QWidget *> m_runLocked; // inputs that a running calculation reads

    MTFThread *m_thread = nullptr;
    // A threaded run started and its end not yet handled.
    bool m_running = false;
    RunSource *m_runSource = nullptr;
    std::function<MtfBatchSettings()> m_batchSettings;
    kestro::CaptureFunction m_capture;

    QString m_mtfFileName;    // the file the calculations read
    QString m_loadedFileName; // what the file-name line showed at load
    bool m_fileNameEdited = false;
    double m_gamma = 0.45;
    QString m_lastRoiDirectory;
    bool m_batchRegionsAdded = false;
    bool m_fitOnShow = false;
};
