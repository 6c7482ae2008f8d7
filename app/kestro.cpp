#include "app/kestro.h"

#include "acquisition/camera.h"
#include "acquisition/sensordata.h"
#include "app/batchpages.h"
#include "app/matlabinitialization.h"
#include "app/matrixpanel.h"
#include "app/messages.h"
#include "imaging/gui/filedialogs.h"
#include "platform/colorcal/colorcal.h"
#include "platform/tarnlib/tarnlib.h"
#include "resources/initresources.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDebug>
#include <QDesktopServices>
#include <QDir>
#include <QDockWidget>
#include <QFile>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QIcon>
#include <QImage>
#include <QLabel>
#include <QLibrary>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QSaveFile>
#include <QScreen>
#include <QScrollArea>
#include <QSettings>
#include <QSignalBlocker>
#include <QSplashScreen>
#include <QStandardPaths>
#include <QTabWidget>
#include <QTextBrowser>
#include <QToolBar>
#include <QUrl>
#include <QVBoxLayout>
#include <cstdio>
#include <cstring>

namespace {

const char kMatlabInstallerUrl[]
        = "https://ssd.mathworks.com/supportfiles/downloads/R2019a/Release/9/deployment_files/installer/"
          "complete/win64/MATLAB_Runtime_R2019a_Update_9_win64.zip";

const char *const kQuickStartPages[] = {
        "ColorDifference_QuickStart.html",
        "MTF_QuickStart.html",
        "ColorUniformity_QuickStart.html",
};

// Settings keys.
const char kGeometryKey[] = "Kestro/Geometry";
const char kStateKey[] = "Kestro/State";
const char kSensorTypeKey[] = "Kestro/SensorType";
const char kSensorRevisionKey[] = "Kestro/SensorRevision";

// Sensor part numbers of the previous generation carried another prefix;
// the probe shows them under the current one.
const char kOldPartPrefix[] = "TS";
const char kNewPartPrefix[] = "KS";

QString resourcePath(const char *name)
{
    return QStringLiteral(":/Kestro/Resources/") + QLatin1String(name);
}

// The sensor-type list keeps each sensor's alternate name here.
constexpr int kAlternateNameRole = Qt::UserRole + 1;

// Tabs whose report has a CSV form (see the report export).
bool tabHasCsv(int tab)
{
    return tab == 1 || tab == 3;
}

} // namespace

namespace kestro {

QString settingsFileLocation(const QString &applicationDir, const QString &userConfigDir)
{
    // The name is appended to the directory path without a separator: the
    // path has no trailing slash, so "/opt/kestro/bin" gives
    // "/opt/kestro/binKestro.ini", beside the program's folder. That is where
    // the program has always kept its settings, so an existing settings file
    // goes on being found.
    const QString beside = applicationDir + QStringLiteral("Kestro.ini");
    const QFileInfo info(beside);
    const bool writable = info.exists() ? info.isFile() && info.isWritable()
                                        : QFileInfo(info.absolutePath()).isDir()
                                                  && QFileInfo(info.absolutePath()).isWritable();
    if (writable)
        return beside;
    return QDir(userConfigDir).filePath(QStringLiteral("Kestro.ini"));
}

} // namespace kestro

bool isMatlabRuntimeInstalled()
{
    const char *runtime = CColorCalibrate::RequiredRuntime();
    if (!runtime)
        return true; // the library needs no separate runtime
    QLibrary library(QString::fromLocal8Bit(runtime));
    if (library.load()) {
        library.unload();
        return true;
    }
    const QString text
            = QStringLiteral(
                      "Matlab runtime is missing. Some functionalities will be disabled.<br>Install "
                      "Matlab runtime by downloading ")
              + QStringLiteral("<a href=\"%1\">Matlab runtime installer</a>")
                        .arg(QLatin1String(kMatlabInstallerUrl))
              + QStringLiteral(
                      ".<br><b>Relaunch the application so that installation changes can take effect</b>.");
    kestro::showMessage(nullptr, QMessageBox::Warning,
                        QStringLiteral("Matlab runtime is not installed"), text, Qt::RichText);
    return false;
}

Kestro::Kestro(QWidget *parent, Qt::WindowFlags flags)
    : QMainWindow(parent, flags)
{
    kestro_initResources();
    const QString userConfig = QStandardPaths::writableLocation(
                                       QStandardPaths::GenericConfigLocation)
                               + QStringLiteral("/Kestro");
    m_settings = std::make_unique<QSettings>(
            kestro::settingsFileLocation(QCoreApplication::applicationDirPath(), userConfig),
            QSettings::IniFormat);
    if (m_settings->status() != QSettings::NoError)
        qDebug().noquote() << "Settings file" << m_settings->fileName()
                           << "could not be read; defaults are used.";
    buildForm();
    buildActions();
    m_currentTab = m_workflow->currentIndex();
    fillSensorTypes();
    if (m_sensorType->count() == 0) {
        kestro::showMessage(this, QMessageBox::Critical, QStringLiteral("Error"),
                            QStringLiteral(
                                    "Kestro has not detected any valid sensor data (.sdat or .xsdat) "
                                    "files.\nRun the installer for your specific sensor before using "
                                    "Kestro.\n\nThe application will now exit."));
        m_noSensorData = true;
        m_exitCode = 1;
    }
}

Kestro::~Kestro()
{
    if (m_matlabInit) {
        m_matlabInit->wait();
        delete m_matlabInit;
        m_matlabInit = nullptr;
    }
    delete m_splash;
}

void Kestro::buildForm()
{
    setWindowTitle(QStringLiteral("Kestro"));
    QIcon icon(resourcePath("kestro.png"));
    icon.addFile(resourcePath("kestro256.png"));
    setWindowIcon(icon);
    m_workflow = new QTabWidget(this);
    m_workflow->setObjectName(QStringLiteral("Workflow"));
    // A page wider or taller than a small screen (or than what the help dock
    // leaves) scrolls instead of pushing the window off the screen.
    auto *scroll = new QScrollArea(this);
    scroll->setObjectName(QStringLiteral("workflowScroll"));
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setWidget(m_workflow);
    setCentralWidget(scroll);

    auto *colorTab = new QWidget;
    colorTab->setObjectName(QStringLiteral("tabColorEval"));
    auto *colorLayout = new QHBoxLayout(colorTab);
    for (const char *name : {"colorDifferenceTabs", "noiseTabs"}) {
        auto *inner = new QTabWidget(colorTab);
        inner->setObjectName(QLatin1String(name));
        inner->addTab(new QWidget, QStringLiteral("Color Patch"));
        inner->addTab(new QWidget, QStringLiteral("Gray Patch"));
        inner->setCurrentIndex(0);
        colorLayout->addWidget(inner);
    }

    auto *mtfTab = new QWidget;
    mtfTab->setObjectName(QStringLiteral("tabMTF"));
    auto *uniTab = new QWidget;
    uniTab->setObjectName(QStringLiteral("tabIUni"));

    m_workflow->addTab(buildInitializationPage(), QStringLiteral("Initialization"));
    m_workflow->addTab(colorTab, QStringLiteral("Macbeth Chart Image Tests"));
    m_workflow->addTab(mtfTab, QStringLiteral("MTF"));
    m_workflow->addTab(uniTab, QStringLiteral("Color Uniformity"));
    m_workflow->setCurrentIndex(3);

    // The quick-start help: a dock beside the pages, hidden until asked for.
    m_quickStartDock = new QDockWidget(QStringLiteral("Quick Start"), this);
    m_quickStartDock->setObjectName(QStringLiteral("quickStartDock"));
    m_quickStart = new QTextBrowser(m_quickStartDock);
    m_quickStart->setObjectName(QStringLiteral("quickStart"));
    m_quickStart->setSearchPaths({QStringLiteral(":/Kestro/Resources")});
    m_quickStart->setOpenExternalLinks(true);
    m_quickStart->setMinimumWidth(320);
    m_quickStartDock->setWidget(m_quickStart);
    addDockView(m_quickStartDock, Qt::RightDockWidgetArea);
    m_quickStartDock->hide();

    // A first size: the whole of a laptop screen (main shows the window
    // maximized there), most of a large one.
    if (const QScreen *screen = QGuiApplication::primaryScreen()) {
        const QSize available = screen->availableGeometry().size();
        if (available.width() < 1500 || available.height() < 950)
            resize(available);
        else
            resize(available * 85 / 100);
    }
}

QWidget *Kestro::buildInitializationPage()
{
    auto *initTab = new QWidget;
    initTab->setObjectName(QStringLiteral("initTab"));
    auto *initLayout = new QVBoxLayout(initTab);

    auto *hint = new QLabel(
            QStringLiteral("Choose the sensor type and revision of your board, or plug in a "
                           "camera and press Probe on the tool bar. Quick Start (Ctrl+H) shows "
                           "the steps of each test."),
            initTab);
    hint->setWordWrap(true);
    initLayout->addWidget(hint);

    auto *sensorBox = new QGroupBox(QStringLiteral("Sensor"), initTab);
    auto *sensorForm = new QFormLayout(sensorBox);
    sensorForm->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    auto addList = [&](const char *label, const char *name) {
        auto *box = new QComboBox(sensorBox);
        box->setObjectName(QLatin1String(name));
        box->setSizeAdjustPolicy(QComboBox::AdjustToContents);
        box->setMinimumWidth(160);
        sensorForm->addRow(QLatin1String(label), box);
        return box;
    };
    auto addInfo = [&](const char *label, const char *name) {
        auto *info = new QLabel(sensorBox);
        info->setObjectName(QLatin1String(name));
        info->setTextInteractionFlags(Qt::TextSelectableByMouse);
        sensorForm->addRow(QLatin1String(label), info);
        return info;
    };
    m_sensorType = addList("Sensor &type:", "sensorType");
    m_sensorRevision = addList("&Revision:", "sensorRevision");
    m_sensorFile = addInfo("Sensor data:", "sensorDataFile");
    m_cameraStatus = addInfo("Camera:", "cameraStatus");
    initLayout->addWidget(sensorBox);

    auto *configBox = new QGroupBox(QStringLiteral("Sensor Tuning"), initTab);
    auto *configRow = new QHBoxLayout(configBox);
    auto *configLabel = new QLabel(QStringLiteral("Configuration Settings File:"), configBox);
    configRow->addWidget(configLabel);
    m_configFile = new QLineEdit(configBox);
    m_configFile->setObjectName(QStringLiteral("configFile"));
    m_configFile->setReadOnly(true);
    m_configFile->setPlaceholderText(QStringLiteral("no configuration file loaded"));
    configLabel->setBuddy(m_configFile);
    configRow->addWidget(m_configFile, 1);
    m_loadConfig = new QPushButton(QStringLiteral("Load"), configBox);
    m_loadConfig->setObjectName(QStringLiteral("loadConfig"));
    configRow->addWidget(m_loadConfig);
    initLayout->addWidget(configBox);

    // Colour-correction panel: enabled once a calibration exists.
    auto *matrix = new QGroupBox(QStringLiteral("Color Correction"), initTab);
    matrix->setObjectName(QStringLiteral("matrixPanel"));
    auto *matrixLayout = new QVBoxLayout(matrix);
    auto *matrixText = new QLabel(
            QStringLiteral("The color correction is computed from a chart processed on the "
                           "Macbeth Chart Image Tests page; it can then be applied to the sensor "
                           "or saved into its INI files."),
            matrix);
    matrixText->setWordWrap(true);
    matrixLayout->addWidget(matrixText);
    auto *matrixButtons = new QHBoxLayout;
    auto *apply = new QPushButton(QStringLiteral("&Apply to Sensor"), matrix);
    apply->setObjectName(QStringLiteral("applyToSensor"));
    auto *saveDefault = new QPushButton(QStringLiteral("Save to &Default INI"), matrix);
    saveDefault->setObjectName(QStringLiteral("saveToDefaultIni"));
    auto *saveNew = new QPushButton(QStringLiteral("Save to &New INI..."), matrix);
    saveNew->setObjectName(QStringLiteral("saveToNewIni"));
    matrixButtons->addWidget(apply);
    matrixButtons->addWidget(saveDefault);
    matrixButtons->addWidget(saveNew);
    matrixButtons->addStretch(1);
    matrixLayout->addLayout(matrixButtons);
    connect(apply, &QPushButton::clicked, this, &Kestro::applySettingsToSensor);
    connect(saveDefault, &QPushButton::clicked, this, &Kestro::saveToDefaultIni);
    connect(saveNew, &QPushButton::clicked, this, &Kestro::saveToNewIni);
    m_matrixPanel = matrix;
    initLayout->addWidget(matrix);
    initLayout->addStretch(1);

    setTabOrder(m_sensorType, m_sensorRevision);
    setTabOrder(m_sensorRevision, m_configFile);
    setTabOrder(m_configFile, m_loadConfig);
    setTabOrder(m_loadConfig, apply);
    setTabOrder(apply, saveDefault);
    setTabOrder(saveDefault, saveNew);
    updateCameraStatus();

    // The page scrolls when the window is lower than it: the tabs share the
    // height of the tallest page, and the report docks below the other
    // pages would be left little room.
    auto *scroll = new QScrollArea;
    scroll->setObjectName(QStringLiteral("initScroll"));
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setWidget(initTab);
    return scroll;
}

void Kestro::buildActions()
{
    auto makeAction = [this](const QString &text, const char *icon, const QKeySequence &key,
                             const QString &tip) {
        auto *action = new QAction(text, this);
        if (icon)
            action->setIcon(QIcon(resourcePath(icon)));
        action->setShortcut(key);
        action->setToolTip(tip);
        action->setStatusTip(tip);
        // Shortcuts work with the tool bar hidden too.
        addAction(action);
        return action;
    };
    // save_as.png is the program's one save icon, shared with the chart
    // view's tool bar (resources/chartview.qrc).
    m_saveHtmlAction = makeAction(QStringLiteral("Save to HTML report (Ctrl+S)"), "save_as.png",
                                  QKeySequence(Qt::CTRL + Qt::Key_S),
                                  QStringLiteral("Save current report into an HTML file"));
    // The shortcut is the Alt key by itself, whatever the text says.
    m_saveCsvAction = makeAction(QStringLiteral("Save to CSV (ALT+S)"), nullptr,
                                 QKeySequence(Qt::ALT),
                                 QStringLiteral("Save current report to a comma separated file"));
    m_quickStartAction = makeAction(QStringLiteral("Quick Start (Ctrl+H)"), "Help-File.png",
                                    QKeySequence(Qt::CTRL + Qt::Key_H),
                                    QStringLiteral("Open a step-by-step help window"));
    m_quickStartAction->setCheckable(true);
    m_probeAction = makeAction(QStringLiteral("Probe"), "probe.png", QKeySequence(),
                               QStringLiteral(
                                       "Look for a connected camera and identify its sensor"));
    connect(m_saveHtmlAction, &QAction::triggered, this, &Kestro::saveToHTMLFile);
    connect(m_saveCsvAction, &QAction::triggered, this, &Kestro::saveToCSVFile);
    connect(m_quickStartAction, &QAction::toggled, this, &Kestro::quickStart);
    connect(m_probeAction, &QAction::triggered, this, &Kestro::probeCameras);

    m_toolBar = new QToolBar(QStringLiteral("Tool Bar"), this);
    m_toolBar->setObjectName(QStringLiteral("toolBar"));
    m_toolBar->setIconSize(QSize(20, 20));
    m_toolBar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_toolBar->addAction(m_saveHtmlAction);
    m_toolBar->addAction(m_saveCsvAction);
    m_toolBar->addSeparator();
    m_toolBar->addAction(m_quickStartAction);
    m_toolBar->addSeparator();
    m_toolBar->addAction(m_probeAction);
    auto *spacer = new QWidget(m_toolBar);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    m_toolBar->addWidget(spacer);
    auto *logo = new QLabel(m_toolBar);
    logo->setObjectName(QStringLiteral("logo"));
    logo->setPixmap(QIcon(resourcePath("toolbar_logo.png")).pixmap(QSize(78, 20)));
    logo->setContentsMargins(0, 0, 6, 0);
    m_toolBar->addWidget(logo);
    addToolBar(Qt::TopToolBarArea, m_toolBar);

    QMenu *file = menuBar()->addMenu(QStringLiteral("&File"));
    connect(file->addAction(QStringLiteral("Save layout...")), &QAction::triggered, this,
            &Kestro::saveLayout);
    connect(file->addAction(QStringLiteral("Load layout...")), &QAction::triggered, this,
            &Kestro::loadLayout);
    file->addSeparator();
    QAction *quit = file->addAction(QStringLiteral("&Quit"));
    quit->setShortcut(QKeySequence());
    connect(quit, &QAction::triggered, this, &QWidget::close);

    QMenu *view = menuBar()->addMenu(QStringLiteral("&View"));
    m_showToolBarAction = view->addAction(QStringLiteral("Show Tool &Bar"));
    m_showToolBarAction->setCheckable(true);
    m_showToolBarAction->setChecked(true);
    m_showToolBarAction->setShortcut(QKeySequence(Qt::CTRL + Qt::Key_B));
    connect(m_showToolBarAction, &QAction::toggled, this, &Kestro::showToolbar);
    connect(view->addAction(QStringLiteral("&Dock Windows")), &QAction::triggered, this,
            &Kestro::dockWindows);

    QMenu *help = menuBar()->addMenu(QStringLiteral("&Help"));
    QAction *showHelpAction = help->addAction(QStringLiteral("&Show Help..."));
    showHelpAction->setShortcut(QKeySequence(Qt::Key_F1));
    connect(showHelpAction, &QAction::triggered, this, &Kestro::showHelp);
    connect(help->addAction(QStringLiteral("&About")), &QAction::triggered, this,
            &Kestro::showAbout);

    // Closing the help dock or hiding the tool bar by other means (its
    // close button, the context menu) keeps the check marks true.
    connect(m_quickStartDock, &QDockWidget::visibilityChanged, this, [this] {
        const QSignalBlocker block(m_quickStartAction);
        m_quickStartAction->setChecked(!m_quickStartDock->isHidden());
    });
    connect(m_toolBar, &QToolBar::visibilityChanged, this, [this] {
        const QSignalBlocker block(m_showToolBarAction);
        m_showToolBarAction->setChecked(!m_toolBar->isHidden());
    });
}

void Kestro::addDockView(QDockWidget *dock, Qt::DockWidgetArea area)
{
    dock->setFeatures(QDockWidget::DockWidgetClosable | QDockWidget::DockWidgetMovable
                      | QDockWidget::DockWidgetFloatable);
    addDockWidget(area, dock);
    for (DockPlace &place : m_docks) {
        if (place.dock == dock) {
            place.area = area;
            return;
        }
    }
    m_docks.append({dock, area});
}

void Kestro::dockWindows()
{
    for (const DockPlace &place : m_docks) {
        if (!place.dock)
            continue; // deleted by its page
        place.dock->setFloating(false);
        addDockWidget(place.area, place.dock); // moves it back into its area
    }
}

void Kestro::fillSensorTypes()
{
    const QString stored = m_settings->value(QLatin1String(kSensorTypeKey)).toString();
    m_sensorType->blockSignals(true);
    m_sensorType->clear();
    const QList<kestro::SensorDataInfo> sensors = kestro::availableSensors();
    for (const kestro::SensorDataInfo &sensor : sensors) {
        // Only revisions of supported sensors are offered.
        std::uint32_t mask = 0;
        for (int revision : sensor.revisions) {
            if (revision <= 32 && CCamera::supportedIndex(sensor.partIds.value(revision)) >= 0)
                mask |= 1u << (revision - 1);
        }
        const QString alternate = sensor.alternateName.isNull() ? QStringLiteral("")
                                                                : sensor.alternateName;
        if (CCamera::sensorDataExists(sensor.name, alternate, mask)) {
            m_sensorType->addItem(sensor.name, QVariant::fromValue(mask));
            m_sensorType->setItemData(m_sensorType->count() - 1, alternate, kAlternateNameRole);
        }
    }
    const int index = m_sensorType->findText(stored);
    if (index >= 0)
        m_sensorType->setCurrentIndex(index);
    m_sensorType->blockSignals(false);
}

void Kestro::fillSensorRevisions()
{
    const int stored = m_settings->value(QLatin1String(kSensorRevisionKey)).toInt();
    m_sensorRevision->blockSignals(true);
    m_sensorRevision->clear();
    // The mask holds the supported revisions whose data files exist.
    const std::uint32_t mask = m_sensorType->currentData().value<std::uint32_t>();
    for (int revision = 1; revision <= 32; ++revision) {
        if (mask & (1u << (revision - 1)))
            m_sensorRevision->addItem(QStringLiteral("Revision %1").arg(revision), revision);
    }
    const int index = m_sensorRevision->findData(stored);
    if (index >= 0)
        m_sensorRevision->setCurrentIndex(index);
    m_sensorRevision->blockSignals(false);
    updateSensorFile();
}

bool Kestro::isCameraOpen() const
{
    return m_camera && m_camera->isOpen();
}

void Kestro::updateCameraStatus()
{
    if (!m_cameraStatus)
        return;
    if (!isCameraOpen()) {
        m_cameraStatus->setText(QStringLiteral("none open (press Probe on the tool bar)"));
        return;
    }
    m_cameraStatus->setText(QStringLiteral("%1 (%2), revision %3, part id 0x%4")
                                    .arg(m_camera->sensorName(), m_camera->sensorAlternateName(),
                                         QString::number(m_camera->revision()),
                                         QString::number(m_camera->partId(), 16)));
}

void Kestro::initialize()
{
    // Start-up makes each part after the parts it uses: the calibration
    // library is built on the camera's handle and initialised only when the
    // probe found its runtime; a window whose library failed exits before any
    // page is built; the chart page is wired before the noise charts, which
    // are part of it, and before the colour-correction panel, which listens
    // to it; the start tab is chosen last, when the tab-change handler is
    // connected and every page exists.

    // Made but never shown; closed when start-up ends.
    m_splash = new QSplashScreen(QPixmap(QStringLiteral(":/Kestro/Resources/wizardlogo.PNG")));

    // The camera object and the sensor types it can open.
    if (!m_camera)
        m_camera = std::make_unique<CCamera>();
    fillSensorTypes();

    // A first start begins with the camera closed and the revisions of the
    // stored sensor type.
    if (!m_alreadyInitialized) {
        m_camera->close();
        fillSensorRevisions();
    }
    updateCameraStatus();

    // The colour-correction panel waits for a chart to be taken for it; the
    // probe tells whether the library's runtime can be loaded at all.
    m_matrixPanel->setEnabled(false);
    m_matlabRuntimeInstalled = isMatlabRuntimeInstalled();

    // The calibration library on the camera handle.
    m_colorCal = std::make_unique<CColorCalibrate>(m_camera->handle());
    // The camera opens and closes after start-up (Probe): the library's
    // writers ask for the one open when they run.
    m_colorCal->SetCameraSource([this] { return m_camera ? m_camera->handle() : nullptr; });

    // A batch run measures as soon as start-up ends, so it initialises the
    // library here; a window initialises it on a thread so that it appears at
    // once. Without the runtime there is nothing to initialise.
    if (m_commandLineMode || !m_matlabRuntimeInstalled) {
        if (m_matlabRuntimeInstalled) {
            const bool isMtf = m_commandLineType.compare(QLatin1String("MTF"), Qt::CaseInsensitive)
                               == 0;
            m_colorCal->InitializeCalibration(false, isMtf);
            m_colorCalibrationReady = m_colorCal->LastErrorState() == 0;
        }
    } else {
        m_matlabInit = new MatlabInitialization(this, m_colorCal.get(), false, true);
        connect(m_matlabInit, &QThread::finished, this, &Kestro::matlabLoaded);
        m_matlabInit->start(QThread::InheritPriority);
    }
    if (!m_matlabRuntimeInstalled) {
        // Functions that need the library stay disabled.
        m_workflow->widget(2)->setEnabled(false);
    }

    // A window refreshes the revision list and gives up at once when the
    // library already reports a failure: its colour and MTF measurements
    // would not work.
    if (!m_commandLineMode) {
        fillSensorRevisions();
        if (m_colorCal->LastErrorState() != 0) {
            m_splash->close(); // never shown; finish(this) would wait for the window
            kestro::showMessage(this, QMessageBox::Critical, QStringLiteral("Error"),
                                QStringLiteral(
                                        "ColorCal library initialization failed.\n\nYou may need to "
                                        "reinstall the software.\n\nThe application will now exit."));
            QCoreApplication::exit(1);
            m_exitCode = 1;
            m_startupFailed = true;
            return;
        }
    }

    // From here on the tab widget, the sensor lists and the configuration
    // button report to the window.
    connect(m_workflow, &QTabWidget::currentChanged, this, &Kestro::currentTabChanged);
    connect(m_sensorType, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &Kestro::setSensorType);
    connect(m_sensorRevision, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &Kestro::setSensorRev);
    connect(m_loadConfig, &QPushButton::pressed, this, &Kestro::loadUserConfig);

    // The pages inside their tabs: the chart page first, since the noise
    // charts are part of it and the colour-correction panel listens to it.
    wireColorDifferencePage();
    wireNoisePage();
    wireMtfPage();
    wireUniformityPage();
    kestro::installMatrixPanel(this);

    // Start tab, help page and the file dialogs' starting folders.
    if (!m_alreadyInitialized) {
        selectQuickStartPage(0);
        if (m_currentTab != 0) {
            m_currentTab = 0;
            m_commandLineType = m_workflow->tabText(m_workflow->currentIndex());
        }
        updateTabActions(0);
    }
    m_workflow->setCurrentIndex(m_currentTab);
    m_alreadyInitialized = false;
    quickStart(false);
    m_splash->close(); // never shown; finish(this) would wait for the window
    m_commandLineType = m_workflow->tabText(m_workflow->currentIndex());
    kestro::setLastOpenDirectory(QDir::homePath());
    kestro::setLastSaveDirectory(QDir::homePath());
}

int Kestro::quickStartPageForTab(int tab)
{
    switch (tab) {
    case 2:
        return 1;
    case 3:
        return 2;
    default:
        return 0;
    }
}

void Kestro::selectQuickStartPage(int page)
{
    if (page < 0 || page > 2)
        return;
    const QString name = QLatin1String(kQuickStartPages[page]);
    if (QFile::exists(QStringLiteral(":/Kestro/Resources/") + name))
        m_quickStart->setSource(QUrl(name));
}

void Kestro::quickStart(bool show)
{
    m_quickStartDock->setVisible(show);
    const QSignalBlocker block(m_quickStartAction);
    m_quickStartAction->setChecked(show);
}

void Kestro::updateTabActions(int tab)
{
    m_saveCsvAction->setEnabled(tabHasCsv(tab));
}

void Kestro::currentTabChanged(int index)
{
    if (m_alreadyInitialized)
        return;
    selectQuickStartPage(quickStartPageForTab(index));
    if (index != m_currentTab) {
        m_currentTab = index;
        updateTabActions(index);
        m_commandLineType = m_workflow->tabText(index);
    }
}

void Kestro::setSensorType(int index)
{
    if (index >= 0)
        m_settings->setValue(QLatin1String(kSensorTypeKey), m_sensorType->itemText(index));
    fillSensorRevisions();
    setSensorRev(m_sensorRevision->currentIndex());
}

void Kestro::setSensorRev(int index)
{
    if (index >= 0)
        m_settings->setValue(QLatin1String(kSensorRevisionKey),
                             m_sensorRevision->itemData(index).toInt());
    updateSensorFile();
}

void Kestro::updateSensorFile()
{
    const QString name = m_sensorType->currentText();
    const QString alternate = m_sensorType->currentData(kAlternateNameRole).toString();
    const int revision = m_sensorRevision->currentData().toInt();
    const QStringList files = CCamera::sensorDataFiles(name, alternate, revision);
    tl_sensor_t sensor;
    if (files.isEmpty()
        || tl_ReadSensorDataFile(QFile::encodeName(
                                         QDir(kestro::sensorDataFolder()).filePath(files.first()))
                                         .constData(),
                                 &sensor)
                   != TL_OK) {
        m_sensorFile->setText(QStringLiteral("none"));
        return;
    }
    const bool mosaic = tl_IsBayerImageType(sensor.imageType);
    m_sensorFile->setText(
            QStringLiteral("%1 (%2 x %3, %4-bit %5)")
                    .arg(files.first(), QString::number(sensor.width),
                         QString::number(sensor.height), QString::number(sensor.bitsPerPixel),
                         mosaic ? QStringLiteral("Bayer") : QStringLiteral("monochrome")));
}

void Kestro::matrixPanel(int state)
{
    m_matrixPanel->setEnabled(state != 0);
}

void Kestro::loadUserConfig()
{
    setUserConfigPath(
            kestro::chooseOpenFile(this, QStringLiteral("Open Configuration File"),
                                   QStringLiteral("Sensor Tuning Configuration Files (*.cfg)")));
}

void Kestro::setUserConfigPath(const QString &path)
{
    const QString native = QDir::toNativeSeparators(path);
    if (!native.isEmpty() && m_configFile) {
        m_configFile->clear();
        m_configFile->insert(native);
    }
    m_userConfigPath = native;
}

void Kestro::saveLayout()
{
    m_settings->setValue(QLatin1String(kGeometryKey), saveGeometry());
    m_settings->setValue(QLatin1String(kStateKey), saveState(0));
    const QString path = kestro::chooseSaveFile(this, QStringLiteral("Save layout"),
                                                QStringLiteral("Layout settings (*.ini)"));
    if (!path.isEmpty())
        saveLayoutTo(path);
}

bool Kestro::saveLayoutTo(const QString &path)
{
    const QByteArray geometry = saveGeometry();
    const QByteArray state = saveState(0);
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        kestro::showMessage(this, QMessageBox::Warning, QStringLiteral("Error"),
                            QStringLiteral("Failed to open %1\n%2").arg(path, file.errorString()));
        return false;
    }
    // The length of the geometry block must fit its one byte.
    const char length = static_cast<char>(geometry.size());
    const bool written = geometry.size() <= 255 && file.write(&length, 1) == 1
                         && file.write(geometry) == geometry.size()
                         && file.write(state) == state.size() && file.commit();
    if (!written) {
        kestro::showMessage(this, QMessageBox::Warning, QStringLiteral("Error"),
                            QStringLiteral("Error writing to %1\n%2").arg(path, file.errorString()));
        return false;
    }
    return true;
}

void Kestro::loadLayout()
{
    const QString path = kestro::chooseOpenFile(this, QStringLiteral("Load layout"),
                                                QStringLiteral("Layout settings (*.ini)"));
    if (!path.isEmpty())
        loadLayoutFrom(path);
}

bool Kestro::loadLayoutFrom(const QString &path)
{
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly)) {
        const QString why = QFileInfo(path).isDir() || QFileInfo(path).exists()
                                    ? QStringLiteral("Not a regular file")
                                    : file.errorString();
        kestro::showMessage(this, QMessageBox::Warning, QStringLiteral("Error"),
                            QStringLiteral("Failed to open %1\n%2").arg(path, why));
        return false;
    }
    // A layout is a few hundred bytes; anything much larger is not one.
    const QByteArray bytes = file.read(1 << 20);
    const int length = bytes.isEmpty() ? -1 : static_cast<unsigned char>(bytes[0]);
    const QByteArray geometry = bytes.mid(1, length);
    const QByteArray state = length >= 0 ? bytes.mid(1 + length) : QByteArray();
    bool ok = length >= 0 && geometry.size() == length && !state.isEmpty();
    if (ok) {
        // A refused state puts the old one back by itself, and a geometry is
        // checked whole before it is applied; so the state goes first, and
        // only a refused geometry needs the old state back.
        const QByteArray oldState = saveState(0);
        ok = restoreState(state, 0);
        if (ok && !restoreGeometry(geometry)) {
            restoreState(oldState, 0);
            ok = false;
        }
    }
    if (!ok)
        kestro::showMessage(this, QMessageBox::Warning, QStringLiteral("Error"),
                            QStringLiteral("Error reading %1").arg(path));
    return ok;
}

void Kestro::showAbout()
{
    const QString text = QStringLiteral(
            "<h3>Kestro</h3><p>Build: 6.1.58_Release</p>"
            "<p>Kestro is free software, distributed under the MIT License.</p>");
    if (kestro::messagesGoToStderr()) {
        kestro::showMessage(this, QMessageBox::Information, QStringLiteral("About Kestro"), text,
                            Qt::RichText);
        return;
    }
    QMessageBox box(this);
    box.setWindowTitle(QStringLiteral("About Kestro"));
    box.setTextFormat(Qt::RichText);
    box.setText(text);
    box.setIconPixmap(QIcon(resourcePath("kestro.png")).pixmap(64, 64));
    box.setStandardButtons(QMessageBox::Ok);
    box.exec();
}

QString Kestro::manualPath()
{
    // Installed: <prefix>/bin/../share/kestro/manual. Build tree: the same
    // folder under the build root, which executables reach a few folders up.
    QDir dir(QCoreApplication::applicationDirPath());
    for (int level = 0; level < 5; ++level) {
        const QString candidate = dir.filePath(QStringLiteral("share/kestro/manual/index.html"));
        if (QFileInfo(candidate).isFile())
            return QDir::toNativeSeparators(QDir::cleanPath(candidate));
        if (!dir.cdUp())
            break;
    }
    return QString();
}

void Kestro::showHelp()
{
    const QString manual = manualPath();
    if (!manual.isEmpty() && QDesktopServices::openUrl(QUrl::fromLocalFile(manual)))
        return;
    kestro::showMessage(
            this, QMessageBox::Warning, QStringLiteral("Help File Failure"),
            manual.isEmpty()
                    ? QStringLiteral("The user manual cannot be found: it is installed with Kestro "
                                     "in share/kestro/manual.\n\nReinstall Kestro to restore it.")
                    : QStringLiteral("The user manual %1 cannot be opened: no web browser could "
                                     "be started.\n\nOpen the file with a web browser yourself.")
                              .arg(manual));
}

bool Kestro::writeColorCorrection(const QString &path, bool showMessages)
{
    const QByteArray encoded = QFile::encodeName(path);
    bool ok = m_colorCal->SaveMatricesAsRegisters(encoded.constData(), -1, 1, 1)
              && m_colorCal->SaveMatricesForStrobixAwb(encoded.constData(), -1);
    if (!ok) {
        if (showMessages) {
            char text[256] = {};
            m_colorCal->LastErrorState(text, sizeof text);
            kestro::showMessage(this, QMessageBox::Warning, QStringLiteral("Error"),
                                QStringLiteral("Unable to write into %1.\n\n%2")
                                        .arg(path, QString::fromLocal8Bit(text)));
        }
        return false;
    }
    if (showMessages)
        kestro::showMessage(this, QMessageBox::Information, QStringLiteral("OK"),
                            QStringLiteral("CCM registers written to the file %1.").arg(path));
    return true;
}

bool Kestro::requireSensor()
{
    if (isCameraOpen())
        return true;
    kestro::showMessage(this, QMessageBox::Warning, QStringLiteral("Error"),
                        QStringLiteral("No Sensor Selected."));
    return false;
}

void Kestro::saveToDefaultIni()
{
    if (!requireSensor())
        return;
    const QString path = m_camera->defaultIniFile();
    if (path.isEmpty()) {
        kestro::showMessage(this, QMessageBox::Critical, QStringLiteral("Error"),
                            QStringLiteral(
                                    "Unable to find the default INI file for the current sensor."));
        return;
    }
    if (writeColorCorrection(path, true))
        m_colorCal->SetCalibResSavedFlag();
}

void Kestro::saveToNewIni()
{
    if (!requireSensor())
        return;
    const QString path = kestro::chooseSaveFile(this, QStringLiteral("Save Calibration Settings"),
                                                QStringLiteral("INI (*.ini)"));
    if (!path.isEmpty() && writeColorCorrection(path, true))
        m_colorCal->SetCalibResSavedFlag();
}

bool Kestro::loadPresetsIntoSensor(const QString &iniPath)
{
    if (!isCameraOpen())
        return false;
    QFile file(iniPath);
    if (!QFileInfo(iniPath).isFile() || !file.open(QIODevice::ReadOnly | QIODevice::Text))
        return false;
    const QByteArray encoded = QFile::encodeName(iniPath);
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine());
        const int open = line.indexOf(QLatin1Char('['));
        const int close = line.indexOf(QLatin1Char(']'), open + 1);
        if (open < 0 || close < 0)
            continue;
        const QByteArray preset = line.mid(open + 1, close - open - 1).toLatin1();
        const int status = tl_LoadINIPreset(m_camera->handle(), encoded.constData(),
                                            preset.constData());
        if (status != TL_OK) {
            qDebug().noquote() << "Preset" << preset << "of" << iniPath
                               << "not applied:" << tl_StatusText(status);
            return false;
        }
    }
    return true;
}

void Kestro::applySettingsToSensor()
{
    if (!requireSensor())
        return;
    // A settings file of our own in the temporary folder; an old one must
    // not bring its presets along.
    const QString path = QDir::toNativeSeparators(
            QDir(QDir::tempPath()).filePath(".mirelon_tmp.ini"));
    QFile::remove(path);
    const bool written = writeColorCorrection(path, false);
    const bool applied = written && loadPresetsIntoSensor(path);
    QFile::remove(path);
    if (applied)
        return;
    kestro::showMessage(this, QMessageBox::Warning, QStringLiteral("Error"),
                        QStringLiteral("Internal Error - unable to apply settings to sensor."));
    char text[256] = {};
    if (!written && m_colorCal->LastErrorState(text, sizeof text) != 0 && text[0])
        kestro::showMessage(this, QMessageBox::Warning, QStringLiteral("Error"),
                            QString::fromLocal8Bit(text));
}

void Kestro::showToolbar(bool checked)
{
    m_toolBar->setVisible(checked);
    const QSignalBlocker block(m_showToolBarAction);
    m_showToolBarAction->setChecked(checked);
}

void Kestro::probeCameras()
{
    m_camera->open();
    if (!isCameraOpen()) {
        updateCameraStatus();
        kestro::showMessage(this, QMessageBox::Warning, QStringLiteral("Camera Not Found"),
                            QStringLiteral("Unable to detect a camera.\n\nSelect a camera on the "
                                           "Initialization page if desired."));
        return;
    }
    const bool supported = CCamera::supportedIndex(m_camera->partId()) >= 0;
    QString text = QStringLiteral("Detected ") + m_camera->sensorName() + QStringLiteral(" - ")
                   + m_camera->sensorAlternateName();
    text.replace(QLatin1String(kOldPartPrefix), QLatin1String(kNewPartPrefix), Qt::CaseSensitive);
    text += QStringLiteral(" Rev ") + QString::number(m_camera->revision());
    if (!supported)
        text += QStringLiteral("\n\nThis sensor is currently not supported by Kestro.");
    kestro::showMessage(this, QMessageBox::Information, QStringLiteral("Camera Found"), text);
    if (supported) {
        // The lists follow the sensor on the camera.
        const int type = m_sensorType->findText(m_camera->sensorName());
        if (type >= 0 && type != m_sensorType->currentIndex())
            m_sensorType->setCurrentIndex(type); // fills the revisions
        else
            fillSensorRevisions();
        const int revision = m_sensorRevision->findData(m_camera->revision());
        if (revision >= 0)
            m_sensorRevision->setCurrentIndex(revision);
    } else {
        m_camera->close();
    }
    updateCameraStatus();
}

void Kestro::matlabLoaded()
{
    m_colorCalibrationReady = m_colorCal && m_colorCal->LastErrorState() == 0;
}

void Kestro::setCommandLineMode(bool mode)
{
    m_commandLineMode = mode;
    kestro::setBatchRun(mode);
}

void Kestro::setCommandLineType(QString command)
{
    m_commandLineType = command;
}

void Kestro::checkSensorSelected()
{
    if (isCameraOpen())
        return;
    kestro::showMessage(
            this, QMessageBox::Information, QStringLiteral("No Camera Detected"),
            QStringLiteral("Before starting to calibrate your sensor you need to\nselect a sensor "
                           "type.\n\nSelect a sensor type and revision before you proceed,\nor "
                           "connect a Demo camera and press the Probe button\non the toolbar."));
}

QString Kestro::lastOpenDirectory() const
{
    return kestro::lastOpenDirectory();
}

QString Kestro::lastSaveDirectory() const
{
    return kestro::lastSaveDirectory();
}

void Kestro::saveToHTMLFile()
{
    if (!m_reportExport) {
        std::fprintf(stderr, "Kestro: the HTML report export is not available yet.\n");
        return;
    }
    m_reportExport->saveToHTMLFile();
}

void Kestro::saveToCSVFile()
{
    if (!m_reportExport) {
        std::fprintf(stderr, "Kestro: the CSV report export is not available yet.\n");
        return;
    }
    m_reportExport->saveToCSVFile();
}
