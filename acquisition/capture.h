#pragma once
// What the measurement pages need to capture a picture from the running
// sensor. The window gives each page a capture function; the page runs its
// capture slot over it (saving the picture into the temporary folder and
// showing it).

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

} // namespace kestro
