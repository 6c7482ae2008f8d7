#include "acquisition/camera.h"

#include "acquisition/sensordata.h"
#include "platform/tarnlib/tarnlib.h"

#include <QByteArray>
#include <QDebug>
#include <QFile>

// The demo sensors, one record per part id (the revisions of KSD644 have
// part ids of their own).
const CCamera::SupportedRecord CCamera::kSupportedSensors[] = {
        {0x6441, 0x1, 0, 0, 0, 0, 0, 0, 0, 0}, // KSD644 revision 1
        {0x6442, 0x2, 0, 0, 0, 0, 0, 0, 0, 0}, // KSD644 revision 2
        {0x1301, 0x1, 0, 0, 0, 0, 0, 0, 0, 0}, // KSD1300 revision 1
        {0x1024, 0x4, 0, 0, 0, 0, 0, 0, 0, 0}, // KSM1024 revision 3
        {0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
};

CCamera::CCamera() = default;

CCamera::~CCamera()
{
    // The capture service ends before the camera closes.
    m_automation.reset();
    close();
}

int CCamera::open(const char *sensorDataSubfolder)
{
    QByteArray folder = tl_SensorData();
    if (sensorDataSubfolder)
        folder = folder + '/' + sensorDataSubfolder;
    close();
    int status = tl_OpenCameras(&m_list, &m_count, folder.constData());
    if (status != TL_OK || m_count < 1 || !m_list) {
        tl_CloseCameras2(m_list, m_count);
        m_list = nullptr;
        m_count = 0;
        return status != TL_OK ? status : TL_ERR_NO_CAMERA;
    }
    m_camera = m_list[0];
    m_support = std::make_unique<kestro::SensorSupport>(m_camera);
    tl_stopTransport(m_camera);
    if ((status = tl_startTransport(m_camera)) != TL_OK)
        qDebug() << "CCamera: transport did not start:" << tl_StatusText(status);
    if ((status = tl_DetectPartNumber(m_camera)) != TL_OK)
        qDebug() << "CCamera: sensor not identified:" << tl_StatusText(status);
    char ini[256] = {};
    if ((status = tl_DefaultIniFile(m_camera, ini, sizeof ini)) != TL_OK)
        qDebug() << "CCamera: no default INI file:" << tl_StatusText(status);
    else if ((status = tl_LoadINIPreset(m_camera, ini, "Strobix Initialization")) != TL_OK)
        qDebug() << "CCamera: start-up preset not loaded:" << tl_StatusText(status);
    if ((status = m_support->initialize()) != TL_OK)
        qDebug() << "CCamera: sensor support not initialised:" << tl_StatusText(status);
    status = tl_startTransport(m_camera);
    if (status != TL_OK)
        close();
    return status;
}

void CCamera::close()
{
    if (m_camera)
        tl_stopTransport(m_camera);
    m_support.reset();
    if (m_list)
        tl_CloseCameras2(m_list, m_count);
    m_list = nullptr;
    m_camera = nullptr;
    m_count = 0;
}

std::uint32_t CCamera::partId() const
{
    return m_camera ? m_camera->sensor.partId : 0;
}

QString CCamera::sensorName() const
{
    return m_camera ? QString::fromLatin1(m_camera->sensor.name) : QString();
}

QString CCamera::sensorAlternateName() const
{
    return m_camera ? QString::fromLatin1(m_camera->sensor.alternateName) : QString();
}

int CCamera::revision() const
{
    return m_camera ? m_camera->sensor.revision : 0;
}

QString CCamera::defaultIniFile() const
{
    if (!m_camera)
        return QString();
    char buffer[256] = {};
    if (tl_DefaultIniFile(m_camera, buffer, sizeof buffer) != TL_OK || !buffer[0])
        return QString();
    return QFile::decodeName(buffer);
}

QStringList CCamera::sensorDataFiles(const QString &name, const QString &alternateName, int revision)
{
    return kestro::sensorDataFiles(name, alternateName, revision);
}

bool CCamera::sensorDataExists(const QString &name, const QString &alternateName,
                               std::uint32_t revisionMask)
{
    return kestro::sensorDataExists(name, alternateName, revisionMask);
}

int CCamera::supportedIndex(std::uint32_t partId)
{
    for (int i = 0; kSupportedSensors[i][0] != 0; ++i) {
        if (kSupportedSensors[i][0] == partId)
            return i;
    }
    return -1;
}

void CCamera::setAutomation(std::unique_ptr<CameraAutomation> automation)
{
    m_automation = std::move(automation);
}
