#include "app/kestro.h"

#include "acquisition/sensordata.h"
#include "app/batchpages.h"
#include "app/matlabinitialization.h"
#include "app/messages.h"
#include "imaging/frame.h"
#include "imaging/gui/filedialogs.h"
#include "platform/colorcal/colorcal.h"
#include "resources/initresources.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QImage>
#include <QLabel>
#include <QLibrary>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QSplashScreen>
#include <QTabWidget>
#include <QTextBrowser>
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

} // namespace

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
    // The settings file name is appended to the application directory path
    // as it stands, without a separator.
    m_settings = std::make_unique<QSettings>(QCoreApplication::applicationDirPath()
                                                     + QStringLiteral("Kestro.ini"),
                                             QSettings::IniFormat);
    buildForm();
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
    m_workflow = new QTabWidget(this);
    m_workflow->setObjectName(QStringLiteral("Workflow"));
    setCentralWidget(m_workflow);

    auto *initTab = new QWidget;
    initTab->setObjectName(QStringLiteral("initTab"));
    auto *initLayout = new QVBoxLayout(initTab);
    auto *sensorForm = new QFormLayout;
    m_sensorType = new QComboBox(initTab);
    m_sensorType->setObjectName(QStringLiteral("sensorType"));
    m_sensorRevision = new QComboBox(initTab);
    m_sensorRevision->setObjectName(QStringLiteral("sensorRevision"));
    sensorForm->addRow(QStringLiteral("Sensor type:"), m_sensorType);
    sensorForm->addRow(QStringLiteral("Revision:"), m_sensorRevision);
    initLayout->addLayout(sensorForm);
    auto *configRow = new QHBoxLayout;
    configRow->addWidget(new QLabel(QStringLiteral("Configuration Settings File:"), initTab));
    m_configFile = new QLineEdit(initTab);
    m_configFile->setObjectName(QStringLiteral("configFile"));
    configRow->addWidget(m_configFile, 1);
    m_loadConfig = new QPushButton(QStringLiteral("Load"), initTab);
    m_loadConfig->setObjectName(QStringLiteral("loadConfig"));
    configRow->addWidget(m_loadConfig);
    initLayout->addLayout(configRow);
    // Colour-correction matrix panel; enabled once a calibration exists.
    m_matrixPanel = new QWidget(initTab);
    m_matrixPanel->setObjectName(QStringLiteral("matrixPanel"));
    initLayout->addWidget(m_matrixPanel);
    initLayout->addStretch(1);

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

    m_workflow->addTab(initTab, QStringLiteral("Initialization"));
    m_workflow->addTab(colorTab, QStringLiteral("Macbeth Chart Image Tests"));
    m_workflow->addTab(mtfTab, QStringLiteral("MTF"));
    m_workflow->addTab(uniTab, QStringLiteral("Color Uniformity"));
    m_workflow->setCurrentIndex(3);

    m_quickStart = new QTextBrowser(this);
    m_quickStart->setObjectName(QStringLiteral("quickStart"));
    m_quickStart->setSearchPaths({QStringLiteral(":/Kestro/Resources")});
    m_quickStart->hide();
}

void Kestro::fillSensorTypes()
{
    m_sensorType->blockSignals(true);
    m_sensorType->clear();
    const QList<kestro::SensorDataInfo> sensors = kestro::availableSensors();
    for (const kestro::SensorDataInfo &sensor : sensors) {
        const QString alternate = sensor.alternateName.isNull() ? QStringLiteral("")
                                                                : sensor.alternateName;
        if (kestro::sensorDataExists(sensor.name, alternate, sensor.revisionMask))
            m_sensorType->addItem(sensor.name, QVariant::fromValue(sensor.revisionMask));
    }
    m_sensorType->blockSignals(false);
}

void Kestro::fillSensorRevisions()
{
    m_sensorRevision->blockSignals(true);
    m_sensorRevision->clear();
    const std::uint32_t mask = m_sensorType->currentData().value<std::uint32_t>();
    for (int revision = 1; revision <= 32; ++revision) {
        if (mask & (1u << (revision - 1)))
            m_sensorRevision->addItem(QStringLiteral("Revision %1").arg(revision), revision);
    }
    m_sensorRevision->blockSignals(false);
}

bool Kestro::isCameraOpen() const
{
    // The camera object arrives with camera support; until then no camera
    // is ever open.
    return false;
}

void Kestro::initialize()
{
    // 1. Splash screen; it is not shown, only finished at the end.
    m_splash = new QSplashScreen(QPixmap(QStringLiteral(":/Kestro/Resources/wizardlogo.PNG")));

    // 2. Camera object and sensor types.
    fillSensorTypes();

    // 3. Initial camera state and the revision list.
    if (!m_alreadyInitialized)
        fillSensorRevisions();

    // 4. Runtime probe.
    m_matrixPanel->setEnabled(false);
    m_matlabRuntimeInstalled = isMatlabRuntimeInstalled();

    // 5. The calibration library on the camera handle (none is open yet).
    m_colorCal = std::make_unique<CColorCalibrate>(nullptr);

    // 6. Initialise it: synchronously in batch mode, on a thread otherwise,
    //    not at all without the runtime.
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

    // 7. Windowed mode: revision list again and the library's state.
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

    // 8. Signals.
    connect(m_workflow, &QTabWidget::currentChanged, this, &Kestro::currentTabChanged);
    connect(m_sensorType, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &Kestro::setSensorType);
    connect(m_sensorRevision, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &Kestro::setSensorRev);
    connect(m_loadConfig, &QPushButton::pressed, this, &Kestro::loadUserConfig);

    // 9. Pages, in this order.
    wireColorDifferencePage();
    wireNoisePage();
    wireMtfPage();
    wireUniformityPage();

    // 10. Start tab, help and directories.
    if (!m_alreadyInitialized) {
        selectQuickStartPage(0);
        if (m_currentTab != 0) {
            m_currentTab = 0;
            m_commandLineType = m_workflow->tabText(m_workflow->currentIndex());
        }
    }
    m_workflow->setCurrentIndex(m_currentTab);
    m_alreadyInitialized = false;
    quickStart(false);
    m_splash->close(); // never shown; finish(this) would wait for the window
    m_commandLineType = m_workflow->tabText(m_workflow->currentIndex());
    kestro::setLastOpenDirectory(QDir::homePath());
    kestro::setLastSaveDirectory(QDir::homePath());
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
    m_quickStart->setVisible(show);
}

void Kestro::currentTabChanged(int index)
{
    if (m_alreadyInitialized)
        return;
    selectQuickStartPage(index);
    if (index != m_currentTab) {
        m_currentTab = index;
        m_commandLineType = m_workflow->tabText(index);
    }
}

void Kestro::setSensorType(int index)
{
    Q_UNUSED(index);
    fillSensorRevisions();
}

void Kestro::setSensorRev(int index)
{
    Q_UNUSED(index);
}

void Kestro::loadUserConfig()
{
    const QString path
            = kestro::chooseOpenFile(this, QStringLiteral("Open Configuration File"),
                                     QStringLiteral("Sensor Tuning Configuration Files (*.cfg)"));
    if (!path.isEmpty() && m_configFile) {
        m_configFile->clear();
        m_configFile->insert(path);
    }
    m_userConfigPath = path;
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
