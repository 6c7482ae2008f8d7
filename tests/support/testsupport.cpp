#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QProcess>
#include <QProcessEnvironment>
#include <QtEndian>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace kestro::test {

static QString fromEnv(const char *name, const QString &relative)
{
    const QString base = qEnvironmentVariable(name);
    return relative.isEmpty() ? base : QDir(base).filePath(relative);
}

QString dataPath(const QString &relative)
{
    return fromEnv("KESTRO_TEST_DATA", relative);
}

QString sharedDataPath(const QString &relative)
{
    return fromEnv("KESTRO_SHARED_TESTDATA", relative);
}

QString buildPath(const QString &relative)
{
    return fromEnv("KESTRO_BUILD_DIR", relative);
}

ProcessResult runProcess(const QString &program, const QStringList &args, int timeoutMs,
                         const QStringList &extraEnvironment)
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const QString &entry : extraEnvironment) {
        const int eq = entry.indexOf(QLatin1Char('='));
        env.insert(entry.left(eq), entry.mid(eq + 1));
    }
    process.setProcessEnvironment(env);
    process.start(program, args);
    ProcessResult result;
    if (!process.waitForStarted(30000)) {
        result.exitCode = -1000;
        return result;
    }
    process.closeWriteChannel();
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished();
        result.exitCode = -1001;
    } else if (process.exitStatus() == QProcess::CrashExit) {
        result.exitCode = -1000;
    } else {
        result.exitCode = process.exitCode();
    }
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    return result;
}

QString measureToolPath()
{
    return buildPath(QStringLiteral("tools/kestro-measure/kestro-measure"));
}

QJsonObject parseJsonOutput(const ProcessResult &result)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(result.out, &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << result.out.toStdString();
    return doc.object();
}

QString writeFile(const QTemporaryDir &dir, const QString &name, const QByteArray &bytes)
{
    const QString path = dir.filePath(name);
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    file.write(bytes);
    return path;
}

QString saveImage(const QTemporaryDir &dir, const QString &name, const QImage &image)
{
    const QString path = dir.filePath(name);
    image.save(path);
    return path;
}

static quint32 crc32(const QByteArray &bytes)
{
    quint32 crc = 0xffffffffu;
    for (const char c : bytes) {
        crc ^= static_cast<quint8>(c);
        for (int k = 0; k < 8; ++k)
            crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

static QByteArray pngChunk(const char *type, const QByteArray &data)
{
    const QByteArray body = QByteArray(type) + data;
    QByteArray out(4, '\0');
    qToBigEndian<quint32>(data.size(), out.data());
    QByteArray crc(4, '\0');
    qToBigEndian<quint32>(crc32(body), crc.data());
    return out + body + crc;
}

QByteArray pngDeclaringSize(quint32 width, quint32 height)
{
    QByteArray ihdr(13, '\0');
    qToBigEndian<quint32>(width, ihdr.data());
    qToBigEndian<quint32>(height, ihdr.data() + 4);
    ihdr[8] = 8; // bit depth
    ihdr[9] = 2; // RGB
    return QByteArray("\x89PNG\r\n\x1a\n", 8) + pngChunk("IHDR", ihdr)
           + pngChunk("IDAT", QByteArray("\x78\x9c\x01\x00", 4)) + pngChunk("IEND", {});
}

QImage shadedFlatField(int width, int height, QRgb centre, double falloff)
{
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y) {
        auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        const double dy = (2.0 * y - height) / height;
        for (int x = 0; x < width; ++x) {
            const double dx = (2.0 * x - width) / width;
            const double gain = 1.0 - falloff * (dx * dx + dy * dy);
            line[x] = qRgb(int(qRed(centre) * gain), int(qGreen(centre) * gain),
                           int(qBlue(centre) * gain));
        }
    }
    return image;
}

QString makeFifo(const QTemporaryDir &dir, const QString &name)
{
    const QString path = dir.filePath(name);
    return ::mkfifo(QFile::encodeName(path).constData(), 0600) == 0 ? path : QString();
}

ScopedEnvironment::~ScopedEnvironment()
{
    for (auto it = m_saved.crbegin(); it != m_saved.crend(); ++it) {
        if (it->second.isEmpty())
            qunsetenv(it->first.constData());
        else
            qputenv(it->first.constData(), it->second);
    }
}

void ScopedEnvironment::set(const char *name, const QByteArray &value)
{
    m_saved.append({name, qgetenv(name)});
    if (value.isEmpty())
        qunsetenv(name);
    else
        qputenv(name, value);
}

QString boxesOf(const std::function<void()> &call)
{
    testing::internal::CaptureStderr();
    call();
    return QString::fromLocal8Bit(testing::internal::GetCapturedStderr().c_str());
}

} // namespace kestro::test
