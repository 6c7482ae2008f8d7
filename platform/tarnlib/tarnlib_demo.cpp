// tarnlib: the simulated demo boards, their registers and INI presets.

#include "platform/tarnlib/tarnlib_p.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <map>
#include <new>
#include <vector>

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
// 3 green on a blue row.
const int kOrderClasses[4][4] = {{0, 1, 2, 3}, {1, 0, 3, 2}, {2, 3, 0, 1}, {3, 2, 1, 0}};

// Digital gain registers of the standard map, 1/256 steps (256 = 1x).
constexpr unsigned int kDigitalGainGreen = 0x3056;
constexpr unsigned int kDigitalGainRed = 0x3058;
constexpr unsigned int kDigitalGainBlue = 0x305A;

// Largest INI file a preset is read from.
constexpr qint64 kMaxIniBytes = 1 << 20;

struct RegisterDef
{
    QString name;
    unsigned int address = 0;
    int bits = 0;
    unsigned int initial = 0;
};

// A demo board: the demo camera with the register map of its sensor data
// file. Only the registers of the map exist.
struct DemoBoard : DemoCamera
{
    QString boardName; // the sensor data file's base name
    std::vector<RegisterDef> map;

    const RegisterDef *find(unsigned int address) const
    {
        for (const RegisterDef &r : map)
            if (r.address == address)
                return &r;
        return nullptr;
    }
    const RegisterDef *find(const QString &name) const
    {
        for (const RegisterDef &r : map)
            if (r.name == name)
                return &r;
        return nullptr;
    }
};

bool fits(unsigned long long value, int bits)
{
    return bits >= 32 || value < (1ULL << bits);
}

// A number as the INI files write it: decimal or 0x hexadecimal.
bool parseNumber(const QString &text, unsigned long long *value)
{
    bool ok = false;
    const QString t = text.trimmed();
    if (t.startsWith(QLatin1String("0x")) || t.startsWith(QLatin1String("0X")))
        *value = t.mid(2).toULongLong(&ok, 16);
    else
        *value = t.toULongLong(&ok, 10);
    return ok && !t.startsWith(QLatin1Char('-')) && !t.startsWith(QLatin1Char('+'));
}

std::vector<RegisterDef> standardMap()
{
    return {{QStringLiteral("MODE_SELECT"), 0x0100, 1, 0},
            {QStringLiteral("ANALOG_GAIN"), kDemoGainRegister, 8, 16},
            {QStringLiteral("DIGITAL_GAIN_GREEN"), kDigitalGainGreen, 12, 256},
            {QStringLiteral("DIGITAL_GAIN_RED"), kDigitalGainRed, 12, 256},
            {QStringLiteral("DIGITAL_GAIN_BLUE"), kDigitalGainBlue, 12, 256}};
}

// The [Registers] group of a sensor data file ("NAME=ADDRESS,BITS,DEFAULT"
// per line); false with a reason when a line is malformed, a value out of
// range, or a name or address repeated.
bool readRegisterMap(const IniFile &ini, std::vector<RegisterDef> *map, QString *why)
{
    const QString group = QStringLiteral("Registers");
    if (!ini.hasGroup(group)) {
        *map = standardMap();
        return true;
    }
    map->clear();
    for (const QString &name : ini.keys(group)) {
        const QStringList parts = ini.value(group, name).split(QLatin1Char(','));
        unsigned long long address = 0, bits = 0, initial = 0;
        if (parts.size() != 3 || !parseNumber(parts[0], &address) || address > 0xffffffffULL
            || !parseNumber(parts[1], &bits) || bits < 1 || bits > 32
            || !parseNumber(parts[2], &initial) || !fits(initial, static_cast<int>(bits))) {
            *why = QStringLiteral("register %1 is not ADDRESS,BITS,DEFAULT").arg(name);
            return false;
        }
        for (const RegisterDef &r : *map) {
            if (r.name == name || r.address == address) {
                *why = QStringLiteral("register %1 is described twice").arg(name);
                return false;
            }
        }
        map->push_back({name, static_cast<unsigned int>(address), static_cast<int>(bits),
                        static_cast<unsigned int>(initial)});
    }
    return true;
}

// One board of the folder: its sensor data file, sensor and register map.
struct BoardSpec
{
    QString path;
    QString boardName;
    tl_sensor_t sensor;
    std::vector<RegisterDef> map;
};

// The boards of a sensor data folder in name order; files that do not
// describe a board are skipped with a debug line.
std::vector<BoardSpec> boardsOf(const QString &folder)
{
    std::vector<BoardSpec> boards;
    for (const QString &name : sensorDataFilesSorted(folder)) {
        BoardSpec board;
        board.path = QDir(folder).filePath(name);
        board.boardName = QFileInfo(name).completeBaseName();
        const int status = readSensorFile(board.path, &board.sensor);
        bool ok = false;
        const IniFile ini = IniFile::read(board.path, &ok);
        QString why = QString::fromLatin1(tl_StatusText(status));
        if (status != TL_OK || !ok || !readRegisterMap(ini, &board.map, &why)) {
            qDebug().noquote() << "tarnlib: demo board" << board.boardName << "skipped:" << why;
            continue;
        }
        boards.push_back(board);
    }
    return boards;
}

// The board KESTRO_DEMO_CAMERA asks for; null when it names none.
const BoardSpec *chooseBoard(const std::vector<BoardSpec> &boards, const QString &wanted)
{
    if (boards.empty())
        return nullptr;
    const QString lower = wanted.toLower();
    if (lower == QLatin1String("1") || lower == QLatin1String("yes") || lower == QLatin1String("on")
        || lower == QLatin1String("true"))
        return &boards.front();
    for (const BoardSpec &b : boards)
        if (b.boardName == wanted)
            return &b;
    for (const BoardSpec &b : boards)
        if (wanted == QLatin1String(b.sensor.name)
            || wanted == QLatin1String(b.sensor.alternateName))
            return &b;
    return nullptr;
}

DemoBoard *boardOf(tl_camera_t *camera)
{
    if (!camera || !camera->priv)
        return nullptr;
    auto *state = static_cast<CameraState *>(camera->priv);
    return state->kind == CameraState::Demo ? static_cast<DemoBoard *>(state) : nullptr;
}

// Status for calls that need a board: argument errors first.
int boardStatus(tl_camera_t *camera)
{
    if (!camera || !camera->priv)
        return TL_ERR_ARGUMENT;
    return boardOf(camera) ? TL_OK : TL_ERR_NO_CAMERA;
}

// The lines of the [preset] group of an INI text, each with its line text;
// false when there is no such group.
bool presetLines(const QByteArray &text, const QString &preset, QStringList *lines)
{
    bool inside = false, found = false;
    for (const QByteArray &raw : text.split('\n')) {
        const QString line = QString::fromUtf8(raw).trimmed();
        if (line.startsWith(QLatin1Char('['))) {
            if (found)
                break;
            const int end = line.indexOf(QLatin1Char(']'));
            inside = end > 0 && line.mid(1, end - 1).trimmed() == preset;
            found = inside;
            continue;
        }
        if (inside && !line.isEmpty() && !line.startsWith(QLatin1Char(';'))
            && !line.startsWith(QLatin1Char('#')))
            *lines << line;
    }
    return found;
}

// Reads a regular file of at most kMaxIniBytes; never blocks on a pipe.
bool readSmallFile(const QString &path, QByteArray *text)
{
    const QFileInfo info(path);
    if (!info.isFile() || info.size() > kMaxIniBytes)
        return false;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    *text = file.read(kMaxIniBytes + 1);
    return text->size() <= kMaxIniBytes;
}

// The text of a new default INI file: the preset groups of the sensor data
// file, line for line.
QByteArray defaultIniTemplate(const QString &sensorFile, const QString &boardName)
{
    QByteArray text;
    readSmallFile(sensorFile, &text);
    QByteArray out = "; Default settings of " + boardName.toUtf8()
                     + ", made from its sensor data file; presets are applied to the sensor\n"
                       "; by name, one register write per line (REGISTER=VALUE).\n";
    bool keep = false;
    for (const QByteArray &raw : text.split('\n')) {
        const QByteArray line = raw.trimmed();
        if (line.startsWith('[')) {
            const QByteArray group = line.mid(1, line.indexOf(']') - 1).trimmed();
            keep = group != "Sensor" && group != "Frame" && group != "Registers"
                   && group != "ColorCorrection";
            if (keep)
                out += '\n';
        }
        if (keep && !line.isEmpty())
            out += line + '\n';
    }
    return out;
}

} // namespace

// One frame of the demo camera: the chart filling the middle of the picture
// on a dark gray surround, the sensor's black level, the analogue and digital
// gain registers and a little noise that changes from frame to frame.
int grabDemoFrame(tl_camera_t *camera, DemoCamera *demo, unsigned char *out)
{
    if (!demo->streaming)
        return TL_ERR_NOT_STREAMING;
    const tl_sensor_t &s = camera->sensor;
    const double full = std::ldexp(1.0, s.bitsPerPixel) - 1.0;
    const double black = s.blackLevel;
    auto reg = [demo](unsigned int address, unsigned int fallback) {
        const auto it = demo->registers.find(address);
        return it == demo->registers.end() ? fallback : it->second;
    };
    const double gain = reg(kDemoGainRegister, 16) / 16.0;
    // Per colour: red, green, blue.
    const double digital[3] = {reg(kDigitalGainRed, 256) / 256.0,
                               reg(kDigitalGainGreen, 256) / 256.0,
                               reg(kDigitalGainBlue, 256) / 256.0};
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
                const int c = cls == 1 ? 0 : cls == 2 ? 2 : 1;
                v = rgb[c] * digital[c];
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
    // No camera transport here: only a demo board, when one is plugged in.
    const QString wanted = QString::fromLocal8Bit(qgetenv("KESTRO_DEMO_CAMERA")).trimmed();
    if (wanted.isEmpty())
        return TL_ERR_NO_CAMERA;
    const QString folder = sensorDataFolder && *sensorDataFolder
                                   ? QFile::decodeName(sensorDataFolder)
                                   : QFile::decodeName(tl_SensorData());
    const std::vector<BoardSpec> boards = boardsOf(folder);
    const BoardSpec *chosen = chooseBoard(boards, wanted);
    if (!chosen) {
        if (!boards.empty()) {
            QStringList names;
            for (const BoardSpec &b : boards)
                names << b.boardName;
            qWarning().noquote() << "tarnlib: KESTRO_DEMO_CAMERA names no demo board:" << wanted
                                 << "(boards:" << names.join(QLatin1String(", ")) + ")";
        }
        return TL_ERR_NO_CAMERA;
    }

    auto *board = new (std::nothrow) DemoBoard;
    auto *camera = new (std::nothrow) tl_camera_t;
    auto **cameras = new (std::nothrow) tl_camera_t *[1];
    if (!board || !camera || !cameras) {
        delete board;
        delete camera;
        delete[] cameras;
        return TL_ERR_NO_MEMORY;
    }
    board->sensorFile = chosen->path;
    board->boardName = chosen->boardName;
    board->described = chosen->sensor;
    board->map = chosen->map;
    for (const RegisterDef &r : board->map)
        board->registers[r.address] = r.initial;
    // The frame layout is known at once; the identification only after
    // tl_DetectPartNumber.
    camera->sensor = chosen->sensor;
    std::memset(camera->sensor.name, 0, TL_NAME_SIZE);
    std::memset(camera->sensor.alternateName, 0, TL_NAME_SIZE);
    camera->sensor.partId = 0;
    camera->sensor.revision = 0;
    camera->priv = static_cast<CameraState *>(board);
    cameras[0] = camera;
    *list = cameras;
    *count = 1;
    return TL_OK;
}

int tl_startTransport(tl_camera_t *camera)
{
    if (!camera || !camera->priv)
        return TL_ERR_ARGUMENT;
    if (DemoBoard *board = boardOf(camera))
        board->streaming = true;
    return TL_OK;
}

void tl_stopTransport(tl_camera_t *camera)
{
    if (DemoBoard *board = boardOf(camera))
        board->streaming = false;
}

int tl_DetectPartNumber(tl_camera_t *camera)
{
    if (const int status = boardStatus(camera))
        return status;
    const tl_sensor_t &d = boardOf(camera)->described;
    std::memcpy(camera->sensor.name, d.name, TL_NAME_SIZE);
    std::memcpy(camera->sensor.alternateName, d.alternateName, TL_NAME_SIZE);
    camera->sensor.partId = d.partId;
    camera->sensor.revision = d.revision;
    return TL_OK;
}

int tl_DefaultIniFile(tl_camera_t *camera, char *buffer, int bufferSize)
{
    if (!buffer || bufferSize < 1)
        return TL_ERR_ARGUMENT;
    buffer[0] = '\0';
    if (const int status = boardStatus(camera))
        return status;
    const DemoBoard *board = boardOf(camera);
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
                           + QStringLiteral("/Kestro/ini");
    const QString path = QDir(folder).filePath(board->boardName + QStringLiteral(".ini"));
    const QByteArray encoded = QFile::encodeName(QDir::toNativeSeparators(path));
    if (encoded.size() >= bufferSize)
        return TL_ERR_BUFFER;
    if (!QFileInfo::exists(path)) {
        QSaveFile file(path);
        if (!QDir().mkpath(folder) || !file.open(QIODevice::WriteOnly)
            || file.write(defaultIniTemplate(board->sensorFile, board->boardName)) < 0
            || !file.commit())
            return TL_ERR_IO;
    }
    std::memcpy(buffer, encoded.constData(), static_cast<size_t>(encoded.size()) + 1);
    return TL_OK;
}

int tl_LoadINIPreset(tl_camera_t *camera, const char *iniFile, const char *presetName)
{
    if (!iniFile || !presetName)
        return TL_ERR_ARGUMENT;
    if (const int status = boardStatus(camera))
        return status;
    DemoBoard *board = boardOf(camera);
    QByteArray text;
    if (!readSmallFile(QFile::decodeName(iniFile), &text))
        return TL_ERR_NO_FILE;
    QStringList lines;
    if (!presetLines(text, QString::fromLatin1(presetName), &lines))
        return TL_ERR_NO_PRESET;
    // Check every line first, so that a bad preset changes no register.
    std::vector<std::pair<unsigned int, unsigned int>> writes;
    for (const QString &line : lines) {
        const int eq = line.indexOf(QLatin1Char('='));
        if (eq <= 0)
            return TL_ERR_SYNTAX;
        const QString key = line.left(eq).trimmed();
        unsigned long long address = 0, value = 0;
        const RegisterDef *reg = parseNumber(key, &address)
                                         ? (address <= 0xffffffffULL
                                                    ? board->find(static_cast<unsigned int>(address))
                                                    : nullptr)
                                         : board->find(key);
        if (!parseNumber(line.mid(eq + 1), &value))
            return TL_ERR_SYNTAX;
        if (!reg)
            return TL_ERR_NO_REGISTER;
        if (!fits(value, reg->bits))
            return TL_ERR_RANGE;
        writes.emplace_back(reg->address, static_cast<unsigned int>(value));
    }
    for (const auto &w : writes)
        board->registers[w.first] = w.second;
    return TL_OK;
}

int tl_ReadRegister(tl_camera_t *camera, unsigned int address, unsigned int *value)
{
    if (!value)
        return TL_ERR_ARGUMENT;
    if (const int status = boardStatus(camera))
        return status;
    const DemoBoard *board = boardOf(camera);
    if (!board->find(address))
        return TL_ERR_NO_REGISTER;
    *value = board->registers.at(address);
    return TL_OK;
}

int tl_WriteRegister(tl_camera_t *camera, unsigned int address, unsigned int value)
{
    if (const int status = boardStatus(camera))
        return status;
    DemoBoard *board = boardOf(camera);
    const RegisterDef *reg = board->find(address);
    if (!reg)
        return TL_ERR_NO_REGISTER;
    if (!fits(value, reg->bits))
        return TL_ERR_RANGE;
    board->registers[address] = value;
    return TL_OK;
}

int tl_RegisterCount(tl_camera_t *camera, int *count)
{
    if (!count)
        return TL_ERR_ARGUMENT;
    *count = 0;
    if (const int status = boardStatus(camera))
        return status;
    *count = static_cast<int>(boardOf(camera)->map.size());
    return TL_OK;
}

int tl_RegisterInfo(tl_camera_t *camera, int index, char *name, int nameSize, unsigned int *address,
                    int *bits)
{
    if (!name || nameSize < 1 || !address || !bits)
        return TL_ERR_ARGUMENT;
    name[0] = '\0';
    if (const int status = boardStatus(camera))
        return status;
    const DemoBoard *board = boardOf(camera);
    if (index < 0 || index >= static_cast<int>(board->map.size()))
        return TL_ERR_ARGUMENT;
    const RegisterDef &r = board->map[static_cast<size_t>(index)];
    const QByteArray bytes = r.name.toLatin1();
    if (bytes.size() >= nameSize)
        return TL_ERR_BUFFER;
    std::memcpy(name, bytes.constData(), static_cast<size_t>(bytes.size()) + 1);
    *address = r.address;
    *bits = r.bits;
    return TL_OK;
}

} // extern "C"
