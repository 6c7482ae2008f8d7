// tarnlib: sensor data folder, sensor data files and raw sensor files read as
// file-backed cameras.

#include "platform/tarnlib/tarnlib.h"
#include "platform/tarnlib/inifile.h"

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
#include <new>
#include <string>
#include <vector>

namespace {

// Largest raw frame accepted: the grabbed 16-bit buffer must fit an int
// (frames keep their data size in a signed 32-bit field).
constexpr long long kMaxBufferBytes = std::numeric_limits<int>::max();

// Library-private state behind tl_camera_t::priv.
struct CameraState
{
    enum Kind { RawFile, Demo };
    explicit CameraState(Kind k)
        : kind(k)
    { }
    virtual ~CameraState() = default;
    const Kind kind;
};

struct RawSource : CameraState
{
    RawSource()
        : CameraState(RawFile)
    { }
    QString path;
    long long fileBytes = 0; // expected size of the file
};

// The simulated demo camera: a sensor from the sensor data folder looking at
// a 24-patch colour chart.
struct DemoCamera : CameraState
{
    DemoCamera()
        : CameraState(Demo)
    { }
    QString sensorFile;
    tl_sensor_t described; // everything the sensor data file says
    bool streaming = false;
    unsigned int frameCounter = 0;
    std::map<unsigned int, unsigned int> registers;
};

// Register of the demo camera: analogue gain in 1/16 steps (16 = 1x).
constexpr unsigned int kDemoGainRegister = 0x3060;

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

// Reads the [Frame] group into the sensor record and checks every value.
// Width, Height and BitsPerPixel are required; ImageType (default 1, Bayer),
// BayerOrder (default 0) and BlackLevel (default 0) are optional, but when
// present they must be valid numbers.
int readFrameGroup(const tarn::IniFile &ini, tl_sensor_t *s)
{
    const QString g = QStringLiteral("Frame");
    bool ok = false;
    const long long width = ini.integer(g, QStringLiteral("Width"), &ok);
    if (!ok || width < 1 || width > (1 << 20))
        return TL_ERR_BAD_DESCRIPTION;
    const long long height = ini.integer(g, QStringLiteral("Height"), &ok);
    if (!ok || height < 1 || height > (1 << 20))
        return TL_ERR_BAD_DESCRIPTION;
    const long long bits = ini.integer(g, QStringLiteral("BitsPerPixel"), &ok);
    if (!ok || bits < 1 || bits > 16)
        return TL_ERR_BAD_DESCRIPTION;
    long long type = TL_IMAGE_BAYER;
    if (ini.contains(g, QStringLiteral("ImageType"))) {
        type = ini.integer(g, QStringLiteral("ImageType"), &ok);
        if (!ok || type < 0 || type > TL_IMAGE_RGB_PLANAR)
            return TL_ERR_BAD_DESCRIPTION;
    }
    long long order = 0;
    if (ini.contains(g, QStringLiteral("BayerOrder"))) {
        order = ini.integer(g, QStringLiteral("BayerOrder"), &ok);
        // Codes outside 0..3 are kept; the demosaic treats them as 0.
        if (!ok || order < 0 || order > 255)
            return TL_ERR_BAD_DESCRIPTION;
    }
    long long black = 0;
    const long long maxValue = (1LL << bits) - 1;
    if (ini.contains(g, QStringLiteral("BlackLevel"))) {
        black = ini.integer(g, QStringLiteral("BlackLevel"), &ok);
        // The black level must leave a usable range below full scale.
        if (!ok || black < 0 || black >= maxValue)
            return TL_ERR_BAD_DESCRIPTION;
    }
    const long long buffer = width * height * 2;
    if (buffer > kMaxBufferBytes)
        return TL_ERR_BAD_DESCRIPTION;
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

// Linear RGB of the 24 chart patches (reading order), from the usual 8-bit
// sRGB values of the chart.
const unsigned char kChartSrgb[24][3] = {
        {115, 82, 68},   {194, 150, 130}, {98, 122, 157}, {87, 108, 67},   {133, 128, 177},
        {103, 189, 170}, {214, 126, 44},  {80, 91, 166},  {193, 90, 99},   {94, 60, 108},
        {157, 188, 64},  {224, 163, 46},  {56, 61, 150},  {70, 148, 73},   {175, 54, 60},
        {231, 199, 31},  {187, 86, 149},  {8, 133, 161},  {243, 243, 242}, {200, 200, 200},
        {160, 160, 160}, {122, 122, 121}, {85, 85, 85},   {52, 52, 52},
};

double srgbDecode(double v)
{
    return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}

// Position class per colour order: 0 green on a red row, 1 red, 2 blue,
// 3 green on a blue row.
const int kOrderClasses[4][4] = {{0, 1, 2, 3}, {1, 0, 3, 2}, {2, 3, 0, 1}, {3, 2, 1, 0}};

// One frame of the demo camera: the chart filling the middle of the picture
// on a dark gray surround, the sensor's black level, the gain register and
// a little noise that changes from frame to frame.
int grabDemoFrame(tl_camera_t *camera, DemoCamera *demo, unsigned char *out)
{
    if (!demo->streaming)
        return TL_ERR_NOT_STREAMING;
    const tl_sensor_t &s = camera->sensor;
    const double full = std::ldexp(1.0, s.bitsPerPixel) - 1.0;
    const double black = s.blackLevel;
    const double gain = demo->registers[kDemoGainRegister] / 16.0;
    const bool bayer = tl_IsBayerImageType(s.imageType) || s.imageType == TL_IMAGE_BAYER_PLANAR;
    const int order = s.bayerOrder >= 0 && s.bayerOrder <= 3 ? s.bayerOrder : 0;
    double linear[24][3];
    for (int p = 0; p < 24; ++p)
        for (int c = 0; c < 3; ++c)
            linear[p][c] = srgbDecode(kChartSrgb[p][c] / 255.0);
    const int x0 = s.width / 10, y0 = s.height / 10;
    const int chartW = s.width - 2 * x0, chartH = s.height - 2 * y0;
    std::uint32_t seed = 0x9e3779b9u * (++demo->frameCounter);
    for (int y = 0; y < s.height; ++y) {
        const int row = chartH > 0 ? (y - y0) * 4 / chartH : -1;
        const bool rowInChart = y >= y0 && y < y0 + chartH
                                && ((y - y0) * 4 % chartH) < chartH - chartH / 16;
        for (int x = 0; x < s.width; ++x) {
            double rgb[3] = {0.04, 0.04, 0.04};
            if (rowInChart && x >= x0 && x < x0 + chartW
                && ((x - x0) * 6 % chartW) < chartW - chartW / 16) {
                const int patch = row * 6 + (x - x0) * 6 / chartW;
                if (patch >= 0 && patch < 24)
                    for (int c = 0; c < 3; ++c)
                        rgb[c] = linear[patch][c];
            }
            double v;
            if (bayer) {
                const int cls = kOrderClasses[order][(x & 1) + 2 * (y & 1)];
                v = cls == 1 ? rgb[0] : cls == 2 ? rgb[2] : rgb[1];
            } else {
                v = 0.2126 * rgb[0] + 0.7152 * rgb[1] + 0.0722 * rgb[2];
            }
            seed ^= seed << 13;
            seed ^= seed >> 17;
            seed ^= seed << 5;
            const double noise = ((seed & 0xffff) / 65535.0 - 0.5) * 0.004 * (full - black);
            double sample = black + v * gain * 0.9 * (full - black) + noise;
            sample = std::min(full, std::max(0.0, std::floor(sample + 0.5)));
            const unsigned int word = static_cast<unsigned int>(sample);
            const size_t i = 2 * (static_cast<size_t>(y) * s.width + x);
            out[i] = static_cast<unsigned char>(word & 0xff);
            out[i + 1] = static_cast<unsigned char>(word >> 8);
        }
    }
    return TL_OK;
}

} // namespace

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

int tl_OpenCameras(tl_camera_t ***list, int *count, const char *sensorDataFolder)
{
    if (!list || !count)
        return TL_ERR_ARGUMENT;
    *list = nullptr;
    *count = 0;
    // No camera transport here: only the demo camera, when asked for.
    const QString wanted = QString::fromLocal8Bit(qgetenv("KESTRO_DEMO_CAMERA")).trimmed();
    if (wanted.isEmpty())
        return TL_ERR_NO_CAMERA;
    QString folder = sensorDataFolder && *sensorDataFolder ? QFile::decodeName(sensorDataFolder)
                                                           : QFile::decodeName(tl_SensorData());
    QString chosen;
    tl_sensor_t sensor;
    for (const QString &name : sensorDataFilesSorted(folder)) {
        tl_sensor_t candidate;
        const QString path = QDir(folder).filePath(name);
        if (readSensorFile(path, &candidate) != TL_OK)
            continue;
        const bool named = wanted == QLatin1String(candidate.name)
                           || wanted == QLatin1String(candidate.alternateName);
        if (chosen.isEmpty() || named) {
            chosen = path;
            sensor = candidate;
            if (named)
                break;
        }
    }
    if (chosen.isEmpty())
        return TL_ERR_NO_CAMERA;

    auto *demo = new (std::nothrow) DemoCamera;
    auto *camera = new (std::nothrow) tl_camera_t;
    auto **cameras = new (std::nothrow) tl_camera_t *[1];
    if (!demo || !camera || !cameras) {
        delete demo;
        delete camera;
        delete[] cameras;
        return TL_ERR_NO_MEMORY;
    }
    demo->sensorFile = chosen;
    demo->described = sensor;
    demo->registers[kDemoGainRegister] = 16;
    // The frame layout is known at once; the identification only after
    // tl_DetectPartNumber.
    camera->sensor = sensor;
    std::memset(camera->sensor.name, 0, TL_NAME_SIZE);
    std::memset(camera->sensor.alternateName, 0, TL_NAME_SIZE);
    camera->sensor.partId = 0;
    camera->sensor.revision = 0;
    camera->priv = demo;
    cameras[0] = camera;
    *list = cameras;
    *count = 1;
    return TL_OK;
}

int tl_startTransport(tl_camera_t *camera)
{
    if (!camera || !camera->priv)
        return TL_ERR_ARGUMENT;
    auto *state = static_cast<CameraState *>(camera->priv);
    if (state->kind == CameraState::Demo)
        static_cast<DemoCamera *>(state)->streaming = true;
    return TL_OK;
}

void tl_stopTransport(tl_camera_t *camera)
{
    if (!camera || !camera->priv)
        return;
    auto *state = static_cast<CameraState *>(camera->priv);
    if (state->kind == CameraState::Demo)
        static_cast<DemoCamera *>(state)->streaming = false;
}

int tl_DetectPartNumber(tl_camera_t *camera)
{
    if (!camera || !camera->priv)
        return TL_ERR_ARGUMENT;
    auto *state = static_cast<CameraState *>(camera->priv);
    if (state->kind != CameraState::Demo)
        return TL_ERR_NO_CAMERA;
    const tl_sensor_t &d = static_cast<DemoCamera *>(state)->described;
    std::memcpy(camera->sensor.name, d.name, TL_NAME_SIZE);
    std::memcpy(camera->sensor.alternateName, d.alternateName, TL_NAME_SIZE);
    camera->sensor.partId = d.partId;
    camera->sensor.revision = d.revision;
    return TL_OK;
}

int tl_DefaultIniFile(tl_camera_t *camera, char *buffer, int bufferSize)
{
    if (!camera || !camera->priv || !buffer || bufferSize < 1)
        return TL_ERR_ARGUMENT;
    auto *state = static_cast<CameraState *>(camera->priv);
    if (state->kind != CameraState::Demo)
        return TL_ERR_NO_CAMERA;
    const QByteArray path = QFile::encodeName(static_cast<DemoCamera *>(state)->sensorFile);
    if (path.size() >= bufferSize) {
        buffer[0] = '\0';
        return TL_ERR_BUFFER;
    }
    std::memcpy(buffer, path.constData(), static_cast<size_t>(path.size()) + 1);
    return TL_OK;
}

int tl_LoadINIPreset(tl_camera_t *camera, const char *iniFile, const char *presetName)
{
    if (!camera || !camera->priv || !iniFile || !presetName)
        return TL_ERR_ARGUMENT;
    auto *state = static_cast<CameraState *>(camera->priv);
    if (state->kind != CameraState::Demo)
        return TL_ERR_NO_CAMERA;
    bool ok = false;
    const tarn::IniFile ini = tarn::IniFile::read(QFile::decodeName(iniFile), &ok);
    if (!ok)
        return TL_ERR_NO_FILE;
    const QString group = QString::fromLatin1(presetName);
    if (!ini.hasGroup(group))
        return TL_ERR_NO_PRESET;
    // Check every line first, so a bad preset changes no register.
    std::map<unsigned int, unsigned int> writes;
    for (const QString &key : ini.keys(group)) {
        bool addressOk = false;
        const unsigned int address = key.startsWith(QLatin1String("0x"))
                                             ? key.mid(2).toUInt(&addressOk, 16)
                                             : key.toUInt(&addressOk, 10);
        const long long value = ini.integer(group, key, &ok);
        if (!addressOk || !ok || value < 0 || value > 0xffffffffLL)
            return TL_ERR_BAD_DESCRIPTION;
        writes[address] = static_cast<unsigned int>(value);
    }
    auto *demo = static_cast<DemoCamera *>(state);
    for (const auto &w : writes)
        demo->registers[w.first] = w.second;
    return TL_OK;
}

int tl_ReadRegister(tl_camera_t *camera, unsigned int address, unsigned int *value)
{
    if (!camera || !camera->priv || !value)
        return TL_ERR_ARGUMENT;
    auto *state = static_cast<CameraState *>(camera->priv);
    if (state->kind != CameraState::Demo)
        return TL_ERR_NO_CAMERA;
    const auto &registers = static_cast<DemoCamera *>(state)->registers;
    const auto it = registers.find(address);
    *value = it == registers.end() ? 0 : it->second;
    return TL_OK;
}

int tl_WriteRegister(tl_camera_t *camera, unsigned int address, unsigned int value)
{
    if (!camera || !camera->priv)
        return TL_ERR_ARGUMENT;
    auto *state = static_cast<CameraState *>(camera->priv);
    if (state->kind != CameraState::Demo)
        return TL_ERR_NO_CAMERA;
    static_cast<DemoCamera *>(state)->registers[address] = value;
    return TL_OK;
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
    const QString path = QFile::decodeName(source);
    const QFileInfo info(path);
    if (!info.isFile() || !info.isReadable())
        return TL_ERR_NO_FILE;
    const long long fileBytes = info.size();

    tl_sensor_t sensor;
    std::memset(&sensor, 0, sizeof sensor);
    const QString sidecar = sidecarPath(path);
    if (QFileInfo(sidecar).isFile()) {
        bool ok = false;
        const tarn::IniFile ini = tarn::IniFile::read(sidecar, &ok);
        if (!ok)
            return TL_ERR_BAD_DESCRIPTION;
        const int status = readFrameGroup(ini, &sensor);
        if (status != TL_OK)
            return status;
        copyName(sensor.name, info.completeBaseName());
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
        if (!found)
            return TL_ERR_NO_DESCRIPTION;
    }
    if (fileBytesOf(sensor) != fileBytes)
        return TL_ERR_SIZE_MISMATCH;

    auto *camera = new (std::nothrow) tl_camera_t;
    auto *raw = new (std::nothrow) RawSource;
    auto **cameras = new (std::nothrow) tl_camera_t *[1];
    if (!camera || !raw || !cameras) {
        delete camera;
        delete raw;
        delete[] cameras;
        return TL_ERR_NO_MEMORY;
    }
    raw->path = path;
    raw->fileBytes = fileBytes;
    camera->sensor = sensor;
    camera->priv = raw;
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
    const auto *raw = static_cast<const RawSource *>(state);
    QFile file(raw->path);
    if (!file.open(QIODevice::ReadOnly))
        return TL_ERR_NO_FILE;
    // The file may have changed since it was opened: read no more than the
    // described frame and refuse a short read.
    if (file.size() != raw->fileBytes)
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
    default:
        return "unknown status";
    }
}

} // extern "C"
