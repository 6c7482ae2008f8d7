#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QProcess>
#include <QProcessEnvironment>
#include <gtest/gtest.h>

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

} // namespace kestro::test
