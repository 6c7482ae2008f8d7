// tarnlib: the simulated demo camera, its registers and INI presets.

#include "platform/tarnlib/tarnlib_p.h"

#include <QDir>
#include <QFile>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <map>
#include <new>

namespace tarn {

namespace {

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
} // namespace

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

} // namespace tarn

using namespace tarn;

extern "C" {

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

} // extern "C"
