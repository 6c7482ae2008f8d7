#pragma once
// Kestro: the main window. It holds the four measurement pages as tabs, the
// menus and tool bar, the settings file, window layouts, the quick-start
// help, the camera with the sensor type and revision lists, the
// colour-calibration library object and the fields that batch mode runs
// from.

#include <QDockWidget>
#include <QMainWindow>
#include <QPointer>
#include <QRect>
#include <QString>
#include <QVector>
#include <memory>

class CCamera;
class CColorCalibrate;
class KestroMtfBatch;
class KestroReportExport;
class KestroUniformityBatch;
class MatlabInitialization;
class QAction;
class QComboBox;
class QImage;
class QLabel;
class QLineEdit;
class QPushButton;
class QSettings;
class QSplashScreen;
class QTabWidget;
class QTextBrowser;
class QToolBar;

// The MATLAB runtime probe: loads the numerical runtime that the colour
// calibration library names (nothing to load when it names none). When it
// does not load, a warning with the installer link is shown and false is
// returned.
bool isMatlabRuntimeInstalled();

namespace kestro {
// The settings file: "Kestro.ini" appended to the application directory path
// with no separator (so it lands beside that directory, named after it) when
// that file can be written, else "Kestro.ini" in `userConfigDir` (a program
// installed under /usr cannot write beside its own folder).
QString settingsFileLocation(const QString &applicationDir, const QString &userConfigDir);
} // namespace kestro

class Kestro : public QMainWindow
{
    Q_OBJECT
public:
    explicit Kestro(QWidget *parent = nullptr, Qt::WindowFlags flags = Qt::WindowFlags());
    ~Kestro() override;

    // Start-up initialisation, once after construction, in both modes.
    void initialize();
    // Parses and runs one batch test; the outcome is exitCode() and what
    // was printed on stdout.
    void runCommandLine(int argc, char **argv);
    // Tells the user to choose a sensor when no camera is open.
    void checkSensorSelected();

    // True when the constructor found no sensor data; the program then ends.
    bool noSensorData() const { return m_noSensorData; }
    // True when start-up must end the process at once (status in exitCode()).
    bool startupFailed() const { return m_startupFailed; }
    bool isCameraOpen() const;
    CCamera *camera() const { return m_camera.get(); }

    // Batch fields.
    bool commandLineMode() const { return m_commandLineMode; }
    QString commandLineType() const { return m_commandLineType; }
    int exitCode() const { return m_exitCode; }
    double colorDiffThreshold() const { return m_colorDiffThreshold; }
    bool colorDiffThresholdGiven() const { return m_colorDiffThresholdGiven; }
    QString roiFilePath() const { return m_roiFilePath; }
    bool roiFileGiven() const { return m_roiFileGiven; }
    QString colorDiffImagePath() const { return m_colorDiffImagePath; }
    QString colorDiffReportPath() const { return m_colorDiffReportPath; }
    QString noiseReportPath() const { return m_noiseReportPath; }
    QString mtfImagePath() const { return m_mtfImagePath; }
    QString mtfReportPath() const { return m_mtfReportPath; }
    double mtfGamma() const { return m_mtfGamma; }
    QRect mtfInlineRegion() const { return m_mtfInlineRegion; }
    QString uniImagePath() const { return m_uniImagePath; }
    QString uniReportPath() const { return m_uniReportPath; }
    int uniCenterPercent() const { return m_uniCenterPercent; }
    int uniCornerPercent() const { return m_uniCornerPercent; }
    bool uniShowContour() const { return m_uniShowContour; }
    int uniContourLow() const { return m_uniContourLow; }
    int uniContourStepSize() const { return m_uniContourStepSize; }
    int uniContourHigh() const { return m_uniContourHigh; }
    int uniChartSize() const { return m_uniChartSize; }
    int uniSubSampleSize() const { return m_uniSubSampleSize; }
    QString uniColorMapName() const { return m_uniColorMapName; }
    QString lastOpenDirectory() const;
    QString lastSaveDirectory() const;
    // The report paths that the export writes to; the save dialogs set them
    // in the window.
    void setColorDiffReportPath(const QString &path) { m_colorDiffReportPath = path; }
    void setNoiseReportPath(const QString &path) { m_noiseReportPath = path; }
    void setMtfReportPath(const QString &path) { m_mtfReportPath = path; }
    void setUniReportPath(const QString &path) { m_uniReportPath = path; }

    // Takes one picture through the window's camera for a page's capture
    // button (see acquisition/capture.h): false when the capture failed.
    bool captureImage(QImage &picture);

    // The runtime probe's result and whether the calibration library is
    // ready; the functions that need the library check these.
    bool matlabRuntimeInstalled() const { return m_matlabRuntimeInstalled; }
    bool colorCalibrationReady() const { return m_colorCalibrationReady; }
    CColorCalibrate *colorCalibration() const { return m_colorCal.get(); }

    QTabWidget *workflow() const { return m_workflow; }
    QComboBox *sensorTypeBox() const { return m_sensorType; }
    QComboBox *sensorRevisionBox() const { return m_sensorRevision; }
    QSettings *settings() const { return m_settings.get(); }
    QToolBar *toolBar() const { return m_toolBar; }
    QDockWidget *quickStartDock() const { return m_quickStartDock; }
    QTextBrowser *quickStartBrowser() const { return m_quickStart; }
    // The loaded sensor tuning configuration file (native separators), as
    // chosen in loadUserConfig(); an empty path (a cancelled dialog) clears
    // it but leaves the field as it was.
    QString userConfigPath() const { return m_userConfigPath; }
    void setUserConfigPath(const QString &path);

    // The pages that the batch runner drives (set by their wiring).
    void setMtfBatch(KestroMtfBatch *page) { m_mtfBatch = page; }
    void setUniformityBatch(KestroUniformityBatch *page) { m_uniformityBatch = page; }
    void setReportExport(KestroReportExport *exporter) { m_reportExport = exporter; }

    // A report view or other dock of a page: added in `area`, where
    // dockWindows() puts it back. Give it an object name, so that layouts
    // keep its place.
    void addDockView(QDockWidget *dock, Qt::DockWidgetArea area);

    // The quick-start page a tab shows: the colour difference page for the
    // Initialization and Macbeth tabs, the MTF and uniformity pages for
    // theirs.
    static int quickStartPageForTab(int tab);
    // The user manual installed beside the program; empty when not found.
    static QString manualPath();

    // Layout files: one byte with the length of the geometry block, the
    // geometry, then the window state. Loading checks the whole file before
    // anything changes. False (after its warning) on failure.
    bool saveLayoutTo(const QString &path);
    bool loadLayoutFrom(const QString &path);

    // Writes the colour-correction result into an INI file (registers and
    // white-balance gains); with `showMessages` it reports the outcome in
    // a box.
    bool writeColorCorrection(const QString &path, bool showMessages);
    // Loads every preset group of an INI file into the open sensor, in
    // file order; false at the first that fails.
    bool loadPresetsIntoSensor(const QString &iniPath);

public slots:
    void setSensorType(int index);
    void setSensorRev(int index);
    // Enables the colour-correction panel when `state` is non-zero.
    void matrixPanel(int state);
    void loadUserConfig();
    void currentTabChanged(int index);
    void loadLayout();
    void saveLayout();
    void showAbout();
    void showHelp();
    void quickStart(bool show);
    void saveToDefaultIni();
    void saveToNewIni();
    void saveToHTMLFile();
    void saveToCSVFile();
    void applySettingsToSensor();
    void showToolbar(bool checked);
    void dockWindows();
    void probeCameras();
    void matlabLoaded();
    void setCommandLineMode(bool mode);
    void setCommandLineType(QString command);

private:
    void buildForm();
    QWidget *buildInitializationPage();
    void buildActions();
    void fillSensorTypes();
    void fillSensorRevisions();
    void updateCameraStatus();
    // Shows the data file of the chosen sensor type and revision.
    void updateSensorFile();
    void updateTabActions(int tab);
    // True when a camera is open; otherwise says "No Sensor Selected.".
    bool requireSensor();
    void wireColorDifferencePage();
    void wireNoisePage();
    void wireMtfPage();
    void wireUniformityPage();
    void selectQuickStartPage(int page);

    void runColorDifference(int argc, char **argv);
    void runNoise(int argc, char **argv);
    void runMtf(int argc, char **argv);
    void runUniformity(int argc, char **argv);
    void newSlantedEdgeImage(QImage &image);
    bool calcMTF(bool interactive);
    bool runUniformityCalculation();

    std::unique_ptr<QSettings> m_settings;
    std::unique_ptr<CCamera> m_camera;
    std::unique_ptr<CColorCalibrate> m_colorCal;
    MatlabInitialization *m_matlabInit = nullptr;
    QSplashScreen *m_splash = nullptr;

    QTabWidget *m_workflow = nullptr;
    QComboBox *m_sensorType = nullptr;
    QComboBox *m_sensorRevision = nullptr;
    QLabel *m_cameraStatus = nullptr;
    QLabel *m_sensorFile = nullptr;
    QLineEdit *m_configFile = nullptr;
    QPushButton *m_loadConfig = nullptr;
    QWidget *m_matrixPanel = nullptr;
    QTextBrowser *m_quickStart = nullptr;
    QDockWidget *m_quickStartDock = nullptr;
    QToolBar *m_toolBar = nullptr;
    QAction *m_saveHtmlAction = nullptr;
    QAction *m_saveCsvAction = nullptr;
    QAction *m_quickStartAction = nullptr;
    QAction *m_probeAction = nullptr;
    QAction *m_showToolBarAction = nullptr;
    struct DockPlace
    {
        QPointer<QDockWidget> dock;
        Qt::DockWidgetArea area;
    };
    QVector<DockPlace> m_docks;

    KestroMtfBatch *m_mtfBatch = nullptr;
    KestroUniformityBatch *m_uniformityBatch = nullptr;
    KestroReportExport *m_reportExport = nullptr;

    bool m_noSensorData = false;
    bool m_startupFailed = false;
    bool m_alreadyInitialized = false;
    int m_currentTab = 0;
    bool m_matlabRuntimeInstalled = false;
    bool m_colorCalibrationReady = false;
    // Set until the first successful capture (captureImage readies the sensor
    // and asks the user to set it up until then).
    bool m_firstCapture = true;
    QString m_userConfigPath;

    bool m_commandLineMode = false;
    QString m_commandLineType;
    int m_exitCode = 0;
    double m_colorDiffThreshold = 0.0;
    bool m_colorDiffThresholdGiven = false;
    QString m_roiFilePath;
    bool m_roiFileGiven = false;
    QString m_colorDiffImagePath;
    QString m_colorDiffReportPath;
    QString m_noiseReportPath;
    QString m_mtfImagePath;
    QString m_mtfReportPath;
    double m_mtfGamma = 1.0;
    QRect m_mtfInlineRegion;
    QString m_uniImagePath;
    QString m_uniReportPath;
    int m_uniCenterPercent = 0;
    int m_uniCornerPercent = 0;
    bool m_uniShowContour = false;
    int m_uniContourLow = 0;
    int m_uniContourStepSize = 0;
    int m_uniContourHigh = 0;
    int m_uniChartSize = 0;
    int m_uniSubSampleSize = 0;
    QString m_uniColorMapName;
};
