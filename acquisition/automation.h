#pragma once
// Capture of one frame from the streaming sensor through the image-source
// service on the session bus (acquisition/imagesourceprotocol.h). The camera
// object keeps the connection to the service as its automation object: it is
// made when first needed, starts the service when its name is not on the
// bus, and asks the service to quit when the camera object goes.
//
// Every bus call is bounded: a capture that cannot get its frame (no bus, no
// service, a service that dies or does not answer) fails within
// kCaptureTimeoutMs, not counting the time the user takes to answer the
// set-up prompt.

#include "acquisition/camera.h"

#include <QImage>
#include <QString>
#include <cstdint>
#include <functional>
#include <memory>

class QProcess;

namespace kestro {

constexpr int kCaptureTimeoutMs = 4500;

// The prompt shown before the first capture (an information box).
inline QString setupSensorTitle()
{
    return QStringLiteral("Setup Sensor");
}

inline QString setupSensorText()
{
    return QStringLiteral("Before capturing the image make sure that your sensor is streaming,\nand "
                          "the gains have been adjusted.\n\nPress OK when the sensor is ready.");
}

// A captured frame: width x height pixels of three bytes (red, green, blue),
// rows top to bottom without padding.
struct CapturedImage
{
    int width = 0;
    int height = 0;
    std::unique_ptr<std::uint8_t[]> pixels;
};

// The connection to the image-source service.
class ImageSourceAutomation : public CameraAutomation
{
public:
    ImageSourceAutomation();
    // Asks the service to quit, and waits (bounded) for a service that this
    // object started to end.
    ~ImageSourceAutomation() override;

    // True when the service is on the bus, starting it first when it is
    // not (through the bus's activation when the bus knows the name, else by
    // starting the program) and waiting for it until the deadline.
    bool ensure(std::int64_t deadlineMs);

    // The service's methods; false (with lastError()) when the call fails
    // or does not answer before the deadline.
    bool command(int nCommand, int lParam, std::int64_t deadlineMs);
    // Takes the frame and copies the first three bytes of every pixel. A
    // frame narrower or lower than 3 pixels is refused.
    bool getRgbImage(CapturedImage &image, std::int64_t deadlineMs);
    bool setOption(const QString &name, const QString &value, std::int64_t deadlineMs);
    bool quit(int timeoutMs);

    // Why the last call failed (for the debug log and tools).
    QString lastError() const { return m_lastError; }
    // The process of the service this object started; 0 when it started
    // none or the process has ended.
    qint64 startedProcessId() const;

private:
    bool fail(const QString &reason);
    bool startService(std::int64_t deadlineMs);
    void endStartedService(int timeoutMs);

    QString m_lastError;
    std::unique_ptr<QProcess> m_process;
};

// Deadline in milliseconds since the epoch of a monotonic clock, `fromNow`
// ahead.
std::int64_t deadlineIn(int fromNowMs);

// The camera's automation object, made on first use.
ImageSourceAutomation *automationOf(CCamera &camera);

// One capture: fails at once when the camera library found no camera; asks
// the service to ready the sensor and shows `setupPrompt` (waiting for it to
// return) when `firstCapture` is set; then takes the frame. `sceneHint`
// ("chart", "edge", "flat") tells a synthetic source what the capturing page
// measures; other sources ignore it.
bool captureImage(CCamera &camera, CapturedImage &image, bool firstCapture,
                  const std::function<void()> &setupPrompt, const QString &sceneHint = QString());

// The captured frame as a 24-bit RGB picture, sharing its pixels; null for
// an empty record.
QImage toImage(CapturedImage &&image);

} // namespace kestro
