#pragma once
// What the measurement pages need to capture a picture from the running
// sensor. The window gives each page a capture function; the page runs its
// capture slot over it (saving the picture into the temporary folder and
// showing it).

#include <QDir>
#include <QImage>
#include <QString>
#include <functional>

namespace kestro {

// Takes one frame through the capture service. False when the capture
// failed; true with a null image when the frame could not be converted.
using CaptureFunction = std::function<bool(QImage &picture)>;

// Box texts of the capture slots (title "Error").
inline QString captureFailureText()
{
    return QStringLiteral("Unable to capture an image from Strobix.\n\nMake sure Strobix is running "
                          "and the Demo camera is setup and streaming images.");
}

inline QString captureConversionFailureText()
{
    return QStringLiteral("Unable to convert the specified file.");
}

// What a page's file-name field shows, on a green ground, once its picture
// was captured instead of opened.
inline QString capturedFileText()
{
    return QStringLiteral("<<Captured from Strobix>>");
}

inline QString capturedFileStyle()
{
    return QStringLiteral("background-color: rgb(170, 255, 127);");
}

// Where a capture is saved, so that reports can name and link it: the
// temporary folder, with native separators. Frame `number` of a series of
// captures (1, 2, ...) gets its number in the name; 0 gives the one file of
// a single capture.
inline QString capturedPicturePath(int number = 0)
{
    const QString name = number > 0 ? QStringLiteral("from_strobix_to_kestro%1.png").arg(number)
                                    : QStringLiteral("from_strobix_to_kestro.png");
    return QDir::toNativeSeparators(QDir(QDir::tempPath()).filePath(name));
}

} // namespace kestro
