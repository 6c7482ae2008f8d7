// tarnlib: sensor data folder, sensor data files and raw sensor files read as
// file-backed cameras. The demo camera is in tarnlib_demo.cpp.

#include "platform/tarnlib/tarnlib_p.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace tarn {

void copyName(char (&dst)[TL_NAME_SIZE], const QString &text)
{
    const QByteArray bytes = text.toLatin1();
    const int n = qMin(bytes.size(), TL_NAME_SIZE - 1);
    std::memcpy(dst, bytes.constData(), static_cast<size_t>(n));
    dst[n] = '\0';
}

int sampleBytes(int bits)
{
    return bits <= 8 ? 1 : 2;
}

namespace {
thread_local QString t_lastErrorDetail;
}

QString lastErrorDetail()
{
    return t_lastErrorDetail;
}

void setLastErrorDetail(const QString &text)
{
    t_lastErrorDetail = text;
}

// Reads the [Frame] group into the sensor record and checks every value.
// Width, Height and BitsPerPixel are required; ImageType (default 1, Bayer),
// BayerOrder (default 0) and BlackLevel (default 0) are optional, but when
// present they must be valid numbers.
int readFrameGroup(const tarn::IniFile &ini, tl_sensor_t *s)
{
    const QString g = QStringLiteral("Frame");
    // Refuses one value, naming it as the file has it.
    auto refuse = [&](const char *key, const char *rule) {
        const QString k = QLatin1String(key);
        setLastErrorDetail(ini.contains(g, k) ? k + QLatin1Char('=') + ini.value(g, k)
                                                        + QStringLiteral(": ") + QLatin1String(rule)
                                              : k + QStringLiteral(" is missing"));
        return TL_ERR_BAD_DESCRIPTION;
    };
    bool ok = false;
    const long long width = ini.integer(g, QStringLiteral("Width"), &ok);
    if (!ok || width < 1 || width > (1 << 20))
        return refuse("Width", "the width must be 1 to 1048576 pixels");
    const long long height = ini.integer(g, QStringLiteral("Height"), &ok);
    if (!ok || height < 1 || height > (1 << 20))
        return refuse("Height", "the height must be 1 to 1048576 pixels");
    const long long bits = ini.integer(g, QStringLiteral("BitsPerPixel"), &ok);
    if (!ok || bits < 1 || bits > 16)
        return refuse("BitsPerPixel", "the bits per pixel must be 1 to 16");
    long long type = TL_IMAGE_BAYER;
    if (ini.contains(g, QStringLiteral("ImageType"))) {
        type = ini.integer(g, QStringLiteral("ImageType"), &ok);
        if (!ok || type < 0 || type > TL_IMAGE_RGB_PLANAR)
            return refuse("ImageType", "unknown image type (0 to 11)");
    }
    long long order = 0;
    if (ini.contains(g, QStringLiteral("BayerOrder"))) {
        order = ini.integer(g, QStringLiteral("BayerOrder"), &ok);
        // Codes outside 0..3 are kept; the demosaic treats them as 0.
        if (!ok || order < 0 || order > 255)
            return refuse("BayerOrder", "unknown colour order (0 to 255)");
    }
    long long black = 0;
    const long long maxValue = (1LL << bits) - 1;
    if (ini.contains(g, QStringLiteral("BlackLevel"))) {
        black = ini.integer(g, QStringLiteral("BlackLevel"), &ok);
        // The black level must leave a usable range below full scale.
        if (!ok || black < 0 || black >= maxValue)
            return refuse("BlackLevel", "the black level must be at least 0 and below full scale");
    }
    const long long buffer = width * height * 2;
    if (buffer > kMaxBufferBytes) {
        setLastErrorDetail(QStringLiteral("a frame of ") + QString::number(width)
                           + QStringLiteral(" x ") + QString::number(height)
                           + QStringLiteral(" pixels is too large"));
        return TL_ERR_BAD_DESCRIPTION;
    }
    s->width = static_cast<int>(width);
    s->height = static_cast<int>(height);
    s->bitsPerPixel = static_cast<int>(bits);
    s->bytesPerPixel = 2;
    s->bufferSize = static_cast<unsigned int>(buffer);
    s->imageType = static_cast<int>(type);
    s->bayerOrder = static_cast<int>(order);
    s->blackLevel = static_cast<unsigned int>(black);
    return TL_OK;
}

int readSensorFile(const QString &path, tl_sensor_t *s)
{
    bool ok = false;
    const tarn::IniFile ini = tarn::IniFile::read(path, &ok);
    if (!ok)
        return TL_ERR_NO_FILE;
    std::memset(s, 0, sizeof *s);
    const QString g = QStringLiteral("Sensor");
    QString name = ini.value(g, QStringLiteral("Name"));
    if (name.isEmpty()) {
        // Without a name, the file name up to "-REV" names the sensor.
        name = QFileInfo(path).completeBaseName();
        const int rev = name.indexOf(QLatin1String("-REV"));
        if (rev > 0)
            name.truncate(rev);
    }
    copyName(s->name, name);
    copyName(s->alternateName, ini.value(g, QStringLiteral("AlternateName")));
    const long long partId = ini.integer(g, QStringLiteral("PartId"), &ok);
    s->partId = ok && partId >= 0 && partId <= 0xffffffffLL ? static_cast<unsigned int>(partId) : 0;
    const long long revision = ini.integer(g, QStringLiteral("Revision"), &ok);
    s->revision = ok && revision >= 0 && revision <= 1000000 ? static_cast<int>(revision) : 0;
    return readFrameGroup(ini, s);
}

long long fileBytesOf(const tl_sensor_t &s)
{
    return static_cast<long long>(s.width) * s.height * sampleBytes(s.bitsPerPixel);
}

QStringList sensorDataFilesSorted(const QString &folder)
{
    QDir dir(folder);
    if (folder.isEmpty() || !dir.exists())
        return {};
    return dir.entryList({QStringLiteral("*.sdat"), QStringLiteral("*.xsdat")}, QDir::Files,
                         QDir::Name);
}

QString sidecarPath(const QString &rawPath)
{
    if (rawPath.endsWith(QLatin1String(".raw")))
        return rawPath.left(rawPath.size() - 4) + QStringLiteral(".ini");
    return rawPath + QStringLiteral(".ini");
}

QString executableDir()
{
    const QString self = QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget();
    if (!self.isEmpty())
        return QFileInfo(self).absolutePath();
    if (QCoreApplication::instance())
        return QCoreApplication::applicationDirPath();
    return QDir::currentPath();
}

QString findBundledSensorData()
{
    // Build tree: the sensor data is copied to <build>/share/kestro/sensors;
    // installed: <prefix>/bin/../share/kestro/sensors. Executables sit up to
    // three folders below the build root (tests/platform/tarnlib/...), and a
    // build folder inside the source tree also finds resources/sensors.
    QDir dir(executableDir());
    const QString first = QDir::cleanPath(dir.filePath(QStringLiteral("../share/kestro/sensors")));
    for (int level = 0; level < 5; ++level) {
        for (const char *relative : {"share/kestro/sensors", "resources/sensors"}) {
            const QString candidate = dir.filePath(QLatin1String(relative));
            if (QFileInfo(candidate).isDir())
                return QDir::cleanPath(candidate);
        }
        if (!dir.cdUp())
            break;
    }
    return first;
}

} // namespace tarn

using namespace tarn;

extern "C" {

const char *tl_SensorData(void)
{
    thread_local std::string folder;
    const QByteArray env = qgetenv("KESTRO_SENSOR_DATA");
    if (!env.isEmpty()) {
        folder = env.toStdString();
    } else {
        static const QByteArray bundled = QFile::encodeName(findBundledSensorData());
        folder = bundled.toStdString();
    }
    return folder.c_str();
}

int tl_OpenCameras2(tl_camera_t ***list, int *count, const char *source, int maxCameras,
                    unsigned int flags)
{
    if (!list || !count)
        return TL_ERR_ARGUMENT;
    *list = nullptr;
    *count = 0;
    if (!source || maxCameras < 1 || flags != 0)
        return TL_ERR_ARGUMENT;
    setLastErrorDetail(QString());
    const QString path = QFile::decodeName(source);
    // Opened once, here, as a regular file only: a named pipe or device
    // would block or never end.
    std::unique_ptr<RawSource> raw(new (std::nothrow) RawSource);
    if (!raw)
        return TL_ERR_NO_MEMORY;
    if (openRegularFile(raw->file, path) != 0)
        return TL_ERR_NO_FILE;
    const long long fileBytes = raw->file.size();

    tl_sensor_t sensor;
    std::memset(&sensor, 0, sizeof sensor);
    const QString sidecar = sidecarPath(path);
    if (QFileInfo::exists(sidecar)) {
        bool ok = false;
        const tarn::IniFile ini = tarn::IniFile::read(sidecar, &ok);
        if (!ok) {
            setLastErrorDetail(QStringLiteral("the sidecar file ") + sidecar
                               + QStringLiteral(" cannot be read"));
            return TL_ERR_BAD_DESCRIPTION;
        }
        const int status = readFrameGroup(ini, &sensor);
        if (status != TL_OK) {
            setLastErrorDetail(lastErrorDetail() + QStringLiteral(" (in ") + sidecar
                               + QLatin1Char(')'));
            return status;
        }
        copyName(sensor.name, QFileInfo(path).completeBaseName());
    } else {
        bool found = false;
        const QString folder = QFile::decodeName(tl_SensorData());
        for (const QString &name : sensorDataFilesSorted(folder)) {
            tl_sensor_t candidate;
            if (readSensorFile(QDir(folder).filePath(name), &candidate) != TL_OK)
                continue;
            if (fileBytesOf(candidate) == fileBytes) {
                sensor = candidate;
                found = true;
                break;
            }
        }
        if (!found) {
            setLastErrorDetail(QStringLiteral("no sidecar file ") + sidecar
                               + QStringLiteral(" and no sensor data file describes a frame of ")
                               + QString::number(fileBytes) + QStringLiteral(" bytes"));
            return TL_ERR_NO_DESCRIPTION;
        }
    }
    if (fileBytesOf(sensor) != fileBytes) {
        setLastErrorDetail(QStringLiteral("the file holds ") + QString::number(fileBytes)
                           + QStringLiteral(" bytes; a ") + QString::number(sensor.width)
                           + QStringLiteral(" x ") + QString::number(sensor.height)
                           + QStringLiteral(" frame of ") + QString::number(sensor.bitsPerPixel)
                           + QStringLiteral(" bits per pixel needs ")
                           + QString::number(fileBytesOf(sensor)));
        return TL_ERR_SIZE_MISMATCH;
    }

    auto *camera = new (std::nothrow) tl_camera_t;
    auto **cameras = new (std::nothrow) tl_camera_t *[1];
    if (!camera || !cameras) {
        delete camera;
        delete[] cameras;
        return TL_ERR_NO_MEMORY;
    }
    raw->path = path;
    raw->fileBytes = fileBytes;
    camera->sensor = sensor;
    camera->priv = raw.release();
    cameras[0] = camera;
    *list = cameras;
    *count = 1;
    return TL_OK;
}

void tl_CloseCameras2(tl_camera_t **list, int count)
{
    if (!list)
        return;
    for (int i = 0; i < count; ++i) {
        if (!list[i])
            continue;
        delete static_cast<CameraState *>(list[i]->priv);
        delete list[i];
    }
    delete[] list;
}

int tl_grabFrame(tl_camera_t *camera, void *buffer, unsigned int bufferSize)
{
    if (!camera || !buffer || !camera->priv)
        return TL_ERR_ARGUMENT;
    const tl_sensor_t &s = camera->sensor;
    if (bufferSize < s.bufferSize)
        return TL_ERR_BUFFER;
    auto *state = static_cast<CameraState *>(camera->priv);
    if (state->kind == CameraState::Demo)
        return grabDemoFrame(camera, static_cast<DemoCamera *>(state),
                             static_cast<unsigned char *>(buffer));
    auto *raw = static_cast<RawSource *>(state);
    QFile &file = raw->file;
    // The file may have changed since it was opened: read no more than the
    // described frame and refuse a short read. Every grab reads from the
    // start.
    if (!file.isOpen() || file.size() != raw->fileBytes || !file.seek(0))
        return TL_ERR_IO;
    const long long pixels = static_cast<long long>(s.width) * s.height;
    auto *out = static_cast<unsigned char *>(buffer);
    if (sampleBytes(s.bitsPerPixel) == 2) {
        const qint64 want = pixels * 2;
        if (file.read(reinterpret_cast<char *>(out), want) != want)
            return TL_ERR_IO;
    } else {
        // 8-bit samples become little-endian 16-bit words: read into the
        // upper half of the buffer, widen from the front.
        const qint64 want = pixels;
        unsigned char *staging = out + pixels;
        if (file.read(reinterpret_cast<char *>(staging), want) != want)
            return TL_ERR_IO;
        for (long long i = 0; i < pixels; ++i) {
            const unsigned char v = staging[i];
            out[2 * i] = v;
            out[2 * i + 1] = 0;
        }
    }
    return TL_OK;
}

int tl_getSensorParameter(tl_camera_t *camera, int code, unsigned int *value)
{
    if (!camera || !value)
        return TL_ERR_ARGUMENT;
    switch (code) {
    case TL_PARAM_BLACK_LEVEL:
        *value = camera->sensor.blackLevel;
        return TL_OK;
    case TL_PARAM_BAYER_ORDER:
        *value = static_cast<unsigned int>(camera->sensor.bayerOrder);
        return TL_OK;
    default:
        return TL_ERR_PARAMETER;
    }
}

int tl_IsBayerImageType(int imageType)
{
    return imageType == 1 || imageType == 7 || imageType == 8 || imageType == 10;
}

int tl_ReadSensorDataFile(const char *path, tl_sensor_t *sensor)
{
    if (!path || !sensor)
        return TL_ERR_ARGUMENT;
    return readSensorFile(QFile::decodeName(path), sensor);
}

const char *tl_StatusText(int status)
{
    switch (status) {
    case TL_OK:
        return "success";
    case TL_ERR_ARGUMENT:
        return "invalid argument";
    case TL_ERR_NO_CAMERA:
        return "no camera found";
    case TL_ERR_NO_FILE:
        return "file not found or not readable";
    case TL_ERR_NO_DESCRIPTION:
        return "no frame description (no sidecar file and no sensor data of this size)";
    case TL_ERR_BAD_DESCRIPTION:
        return "invalid frame description";
    case TL_ERR_SIZE_MISMATCH:
        return "file size does not match the frame description";
    case TL_ERR_BUFFER:
        return "buffer too small";
    case TL_ERR_IO:
        return "read error";
    case TL_ERR_NO_MEMORY:
        return "out of memory";
    case TL_ERR_PARAMETER:
        return "unknown parameter";
    case TL_ERR_NOT_STREAMING:
        return "transport not started";
    case TL_ERR_NO_PRESET:
        return "no such preset";
    case TL_ERR_NO_REGISTER:
        return "no such register";
    case TL_ERR_RANGE:
        return "value out of range for the register";
    case TL_ERR_SYNTAX:
        return "malformed line in the INI preset";
    default:
        return "unknown status";
    }
}

const char *tl_LastErrorText(void)
{
    thread_local QByteArray text;
    text = tarn::lastErrorDetail().toLocal8Bit();
    return text.constData();
}

} // extern "C"
