#pragma once
// Helpers shared by the test programs.

#include <QImage>
#include <QJsonObject>
#include <QList>
#include <QPair>
#include <QString>
#include <QTemporaryDir>
#include <cmath>
#include <functional>
#include <ostream>

// Lets GoogleTest print texts in failure messages.
inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}

namespace kestro::test {

// Small data kept in the repository (tests/data).
QString dataPath(const QString &relative = QString());
// Photographs and tables beside the project (../shared/testdata).
QString sharedDataPath(const QString &relative = QString());
// The build tree, for running the built programs as processes.
QString buildPath(const QString &relative = QString());

// Runs a program and collects its output; exitCode is -1000 on a crash or
// when it could not start, -1001 when it timed out.
struct ProcessResult
{
    int exitCode = 0;
    QByteArray out;
    QByteArray err;
};
ProcessResult runProcess(const QString &program, const QStringList &args, int timeoutMs = 120000,
                         const QStringList &extraEnvironment = {});

// The built kestro-measure program.
QString measureToolPath();

// The JSON object a kestro-measure run printed on stdout; a test failure is
// recorded when the output is not one JSON document.
QJsonObject parseJsonOutput(const ProcessResult &result);

// Writes bytes to a file in `dir` and returns its path.
QString writeFile(const QTemporaryDir &dir, const QString &name, const QByteArray &bytes);

// Writes an image to a file in `dir` and returns its path.
QString saveImage(const QTemporaryDir &dir, const QString &name, const QImage &image);

// A small PNG file whose header declares a width x height RGB picture but
// which holds almost no pixel data: a decompression bomb as a reader that
// checks sizes first sees it.
QByteArray pngDeclaringSize(quint32 width, quint32 height);

// A flat field with lens shading: `centre` in the middle, every channel
// falling off by `falloff` times the squared distance from the middle (1 at
// the middle of each side, 2 at the corners).
QImage shadedFlatField(int width, int height, QRgb centre = qRgb(225, 235, 215),
                       double falloff = 0.3);

// Makes a named pipe in `dir` and returns its path (empty on failure).
QString makeFifo(const QTemporaryDir &dir, const QString &name);

// Linear light of a stored 8-bit sRGB channel, written out from the
// standard's formula so that tests never take expected values from the
// decoding they check.
inline double srgbByteDecodeReference(int byte)
{
    const double v = byte / 255.0;
    return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}

// Sets environment variables for its lifetime and then restores what they
// were, so that one test's per-user folders or devices never reach the next.
class ScopedEnvironment
{
public:
    ScopedEnvironment() = default;
    ScopedEnvironment(const ScopedEnvironment &) = delete;
    ScopedEnvironment &operator=(const ScopedEnvironment &) = delete;
    ~ScopedEnvironment();
    // An empty value unsets the variable.
    void set(const char *name, const QByteArray &value);

private:
    QList<QPair<QByteArray, QByteArray>> m_saved; // name, previous value ("" when unset)
};

// The message boxes a call printed: on a non-interactive display they go to
// stderr as "Title: text".
QString boxesOf(const std::function<void()> &call);

} // namespace kestro::test
