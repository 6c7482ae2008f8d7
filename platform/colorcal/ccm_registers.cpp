#include "ccm_registers.h"

#include "platform/tarnlib/inifile.h"
#include "platform/tarnlib/tarnlib.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>

#include <cerrno>
#include <cmath>
#include <cstring>

namespace kestro::ccm {

namespace {

// Largest INI file edited: far beyond any preset file.
constexpr qint64 kMaxIniBytes = 16 * 1024 * 1024;

const char kGroup[] = "ColorCorrection";

QString coefficientText(double value)
{
    return QString::number(value, 'g', 6);
}

bool isKeyLine(const QByteArray &line)
{
    const QByteArray t = line.trimmed();
    return !t.isEmpty() && !t.startsWith(';') && !t.startsWith('#');
}

// The section name of a header line, or a null array for any other line.
QByteArray headerName(const QByteArray &line)
{
    const QByteArray t = line.trimmed();
    if (!t.startsWith('['))
        return QByteArray();
    const int end = t.indexOf(']');
    if (end < 1)
        return QByteArray();
    const QByteArray name = t.mid(1, end - 1).trimmed();
    return name.isNull() ? QByteArray("") : name;
}

// The register of the camera's map with that name.
bool findRegister(tl_camera_t *camera, const QString &name, RegisterField *field)
{
    int count = 0;
    if (tl_RegisterCount(camera, &count) != TL_OK)
        return false;
    for (int i = 0; i < count; ++i) {
        char text[128];
        unsigned int address = 0;
        int bits = 0;
        if (tl_RegisterInfo(camera, i, text, sizeof text, &address, &bits) == TL_OK
            && name == QLatin1String(text)) {
            *field = {name, address, bits};
            return true;
        }
    }
    return false;
}

template<size_t N>
bool readRegisterList(tl_camera_t *camera, const tarn::IniFile &ini, const QString &file,
                      const char *listKey, const char *formatKey,
                      std::array<RegisterField, N> *regs, FixedFormat *format, QString *why)
{
    const QString group = QLatin1String(kGroup);
    const QStringList names = ini.value(group, QLatin1String(listKey)).split(QLatin1Char(','));
    if (!ini.contains(group, QLatin1String(listKey)) || names.size() != static_cast<int>(N)) {
        *why = QStringLiteral("The sensor data file %1 does not list the %2 registers of %3 in "
                              "[%4].")
                       .arg(file)
                       .arg(N)
                       .arg(QLatin1String(listKey))
                       .arg(group);
        return false;
    }
    const QString formatText = ini.value(group, QLatin1String(formatKey));
    if (!FixedFormat::parse(formatText, format)) {
        *why = QStringLiteral("The sensor data file %1 gives no valid %2 (such as S7.8): \"%3\".")
                       .arg(file, QLatin1String(formatKey), formatText);
        return false;
    }
    for (size_t i = 0; i < N; ++i) {
        const QString name = names[static_cast<int>(i)].trimmed();
        if (!findRegister(camera, name, &(*regs)[i])) {
            *why = QStringLiteral("The color-correction register %1 of %2 is not a register of "
                                  "the sensor.")
                           .arg(name, file);
            return false;
        }
        if ((*regs)[i].bits < format->bits()) {
            *why = QStringLiteral("The register %1 is %2 bits wide; its format %3 needs %4.")
                           .arg(name)
                           .arg((*regs)[i].bits)
                           .arg(format->text())
                           .arg(format->bits());
            return false;
        }
    }
    return true;
}

} // namespace

bool FixedFormat::parse(const QString &text, FixedFormat *format)
{
    static const QRegularExpression pattern(QStringLiteral("^(SM|S|U)(\\d{1,2})\\.(\\d{1,2})$"));
    const QRegularExpressionMatch m = pattern.match(text.trimmed());
    if (!m.hasMatch())
        return false;
    FixedFormat f;
    const QString kind = m.captured(1);
    f.kind = kind == QLatin1String("U")   ? Unsigned
             : kind == QLatin1String("S") ? TwosComplement
                                          : SignMagnitude;
    f.integerBits = m.captured(2).toInt();
    f.fractionBits = m.captured(3).toInt();
    if (f.bits() < 1 || f.bits() > 32 || f.integerBits + f.fractionBits < 1)
        return false;
    *format = f;
    return true;
}

QString FixedFormat::text() const
{
    const char *prefix = kind == Unsigned ? "U" : kind == TwosComplement ? "S" : "SM";
    return QStringLiteral("%1%2.%3").arg(QLatin1String(prefix)).arg(integerBits).arg(fractionBits);
}

unsigned int FixedFormat::encode(long long code) const
{
    const unsigned long long mask = bits() >= 32 ? 0xffffffffULL : (1ULL << bits()) - 1;
    if (kind == SignMagnitude && code < 0)
        return static_cast<unsigned int>((1ULL << (bits() - 1))
                                         | static_cast<unsigned long long>(-code));
    return static_cast<unsigned int>(static_cast<unsigned long long>(code) & mask);
}

long long FixedFormat::decode(unsigned int value) const
{
    const int magnitudeBits = integerBits + fractionBits;
    const unsigned long long v = value;
    const unsigned long long magnitude = v & ((1ULL << magnitudeBits) - 1);
    if (kind == Unsigned || !((v >> magnitudeBits) & 1ULL))
        return static_cast<long long>(magnitude);
    if (kind == SignMagnitude)
        return -static_cast<long long>(magnitude);
    return static_cast<long long>(magnitude) - (1LL << magnitudeBits);
}

bool quantizeMatrix(const Mat3 &matrix, const FixedFormat &format, std::array<CodeRow, 3> *codes,
                    QString *why)
{
    const double one = static_cast<double>(format.one());
    for (int r = 0; r < 3; ++r) {
        double scaled[3];
        CodeRow &q = (*codes)[r];
        double sum = 0.0;
        for (int c = 0; c < 3; ++c) {
            scaled[c] = matrix[r][c] * one;
            sum += matrix[r][c];
            if (!std::isfinite(scaled[c]) || std::fabs(scaled[c]) > 1e15) {
                *why = QStringLiteral("The coefficient %1 cannot be written in the format %2.")
                               .arg(coefficientText(matrix[r][c]), format.text());
                return false;
            }
            q[c] = std::llround(scaled[c]);
        }
        if (std::fabs(sum - 1.0) > 1e-6) {
            *why = QStringLiteral("Row %1 of the matrix sums to %2, not 1.")
                           .arg(r + 1)
                           .arg(coefficientText(sum));
            return false;
        }
        // The row sum of the nearest codes is off by at most one step per
        // coefficient; move the codes whose rounding was closest to a tie.
        long long diff = format.one() - (q[0] + q[1] + q[2]);
        while (diff != 0) {
            const int step = diff > 0 ? 1 : -1;
            int best = 0;
            double bestResidual = -1e300;
            for (int c = 0; c < 3; ++c) {
                const double residual = step * (scaled[c] - static_cast<double>(q[c]));
                if (residual > bestResidual) {
                    bestResidual = residual;
                    best = c;
                }
            }
            q[best] += step;
            diff -= step;
        }
        for (int c = 0; c < 3; ++c) {
            if (q[c] < format.minCode() || q[c] > format.maxCode()) {
                *why = QStringLiteral("The coefficient %1 does not fit the register format %2 "
                                      "(%3 to %4).")
                               .arg(coefficientText(matrix[r][c]), format.text(),
                                    coefficientText(format.minCode() / one),
                                    coefficientText(format.maxCode() / one));
                return false;
            }
        }
    }
    return true;
}

bool describeSensorCorrection(tl_camera_t *camera, SensorCorrectionRegisters *out, QString *why)
{
    if (!camera || !camera->priv) {
        *why = QStringLiteral("No sensor is open: the color-correction registers are those of the "
                              "sensor's data file.");
        return false;
    }
    const tl_sensor_t &sensor = camera->sensor;
    const QString folder = QFile::decodeName(tl_SensorData());
    const QStringList files = QDir(folder).entryList({QStringLiteral("*.sdat"),
                                                      QStringLiteral("*.xsdat")},
                                                     QDir::Files, QDir::Name);
    QString path;
    for (const QString &name : files) {
        tl_sensor_t described;
        const QString candidate = QDir(folder).filePath(name);
        if (tl_ReadSensorDataFile(QFile::encodeName(candidate).constData(), &described) == TL_OK
            && std::strncmp(described.name, sensor.name, TL_NAME_SIZE) == 0
            && described.revision == sensor.revision && described.partId == sensor.partId) {
            path = candidate;
            break;
        }
    }
    const QString sensorName = QString::fromLatin1(sensor.name);
    if (path.isEmpty()) {
        *why = QStringLiteral("No sensor data file describes the sensor %1 revision %2.")
                       .arg(sensorName.isEmpty() ? QStringLiteral("on the camera") : sensorName)
                       .arg(sensor.revision);
        return false;
    }
    const QString file = QFileInfo(path).fileName();
    bool ok = false;
    const tarn::IniFile ini = tarn::IniFile::read(path, &ok);
    if (!ok) {
        *why = QStringLiteral("The sensor data file %1 cannot be read.").arg(file);
        return false;
    }
    if (!ini.hasGroup(QLatin1String(kGroup))) {
        *why = QStringLiteral("The sensor data file %1 describes no color-correction registers.")
                       .arg(file);
        return false;
    }
    out->sensorDataFile = file;
    return readRegisterList(camera, ini, file, "Matrix", "MatrixFormat", &out->matrix,
                            &out->matrixFormat, why)
           && readRegisterList(camera, ini, file, "Gains", "GainFormat", &out->gains,
                               &out->gainFormat, why);
}

QByteArray replaceIniSection(const QByteArray &text, const QByteArray &name,
                             const QList<QByteArray> &lines)
{
    const QByteArray eol = text.contains("\r\n") ? QByteArray("\r\n") : QByteArray("\n");
    QByteArray block = '[' + name + ']' + eol;
    for (const QByteArray &line : lines)
        block += line + eol;

    // Lines with their endings, so that kept lines keep every byte.
    QList<QByteArray> all;
    for (int start = 0; start < text.size();) {
        const int end = text.indexOf('\n', start);
        const int next = end < 0 ? text.size() : end + 1;
        all << text.mid(start, next - start);
        start = next;
    }
    QByteArray out;
    bool replaced = false;
    for (int i = 0; i < all.size();) {
        if (headerName(all[i]) != name) {
            out += all[i++];
            continue;
        }
        int next = i + 1;
        while (next < all.size() && headerName(all[next]).isNull())
            ++next;
        int lastKey = i;
        for (int j = i + 1; j < next; ++j)
            if (isKeyLine(all[j]))
                lastKey = j;
        if (!replaced) {
            // A header without a line end ends the text: the block brings one.
            out += block;
            replaced = true;
        }
        i = lastKey + 1;
    }
    if (!replaced) {
        if (!out.isEmpty() && !out.endsWith('\n'))
            out += eol;
        if (!out.isEmpty() && !all.isEmpty() && !all.last().trimmed().isEmpty())
            out += eol;
        out += block;
    }
    return out;
}

bool readIniForEdit(const QString &path, QByteArray *text, QString *why)
{
    text->clear();
    const QFileInfo info(path);
    if (path.isEmpty() || info.fileName().isEmpty()) {
        *why = QStringLiteral("No file name was given.");
        return false;
    }
    if (!info.exists() && !info.isSymLink())
        return true;
    QFile file;
    const int status = tarn::openRegularFile(file, path);
    if (status == tarn::kNotRegularFile) {
        *why = QStringLiteral("It is not a regular file.");
        return false;
    }
    if (status != 0) {
        *why = QStringLiteral("It cannot be read: %1.")
                       .arg(QString::fromLocal8Bit(std::strerror(status)));
        return false;
    }
    if (file.size() > kMaxIniBytes) {
        *why = QStringLiteral("It is larger than 16 MiB: not a settings file.");
        return false;
    }
    // No write permission bit at all marks a read-only file, also for users
    // (such as the superuser) whom the system would let write it.
    const QFile::Permissions writeBits = QFileDevice::WriteOwner | QFileDevice::WriteGroup
                                         | QFileDevice::WriteOther;
    if (!info.isWritable() || !(info.permissions() & writeBits)) {
        *why = QStringLiteral("The file is read-only.");
        return false;
    }
    *text = file.read(kMaxIniBytes + 1);
    if (text->size() > kMaxIniBytes || file.error() != QFileDevice::NoError) {
        *why = QStringLiteral("It cannot be read: %1.").arg(file.errorString());
        text->clear();
        return false;
    }
    return true;
}

bool writeIniAtomically(const QString &path, const QByteArray &text, QString *why)
{
    QSaveFile file(path);
    file.setDirectWriteFallback(false);
    if (!file.open(QIODevice::WriteOnly)) {
        *why = QStringLiteral("It cannot be written: %1.").arg(file.errorString());
        return false;
    }
    if (file.write(text) != text.size() || !file.commit()) {
        *why = QStringLiteral("It cannot be written: %1.").arg(file.errorString());
        file.cancelWriting();
        return false;
    }
    return true;
}

} // namespace kestro::ccm
