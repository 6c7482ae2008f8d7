#include "acquisition/automation.h"

#include "acquisition/imagesourceprotocol.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <new>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kestro {

namespace {

using namespace kestro::imagesource;

// Largest frame accepted from the service (pixels), as for image files.
constexpr qint64 kMaxFramePixels = 250000000;

std::int64_t nowMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::steady_clock::now().time_since_epoch())
            .count();
}

int remainingMs(std::int64_t deadlineMs)
{
    return static_cast<int>(std::clamp<std::int64_t>(deadlineMs - nowMs(), 0, 1 << 30));
}

QDBusConnection bus()
{
    return QDBusConnection::sessionBus();
}

// A call to the service (or, with `daemon`, to the bus itself) that gives up
// at the deadline.
QDBusMessage callBounded(const QString &method, const QVariantList &args, std::int64_t deadlineMs,
                         bool daemon = false)
{
    QDBusMessage message
            = daemon ? QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"),
                                                      QStringLiteral("/org/freedesktop/DBus"),
                                                      QStringLiteral("org.freedesktop.DBus"),
                                                      method)
                     : QDBusMessage::createMethodCall(QLatin1String(kServiceName),
                                                      QLatin1String(kObjectPath),
                                                      QLatin1String(kInterfaceName), method);
    message.setArguments(args);
    // An expired deadline still allows a moment for a call that answers at
    // once (a timeout of 0 or less would mean the library's default).
    return bus().call(message, QDBus::Block, std::max(1, remainingMs(deadlineMs)));
}

QString errorOf(const QDBusMessage &reply)
{
    return reply.errorName() + QStringLiteral(": ") + reply.errorMessage();
}

bool nameHasOwner(std::int64_t deadlineMs)
{
    const QDBusMessage reply = callBounded(QStringLiteral("NameHasOwner"),
                                           {QLatin1String(kServiceName)}, deadlineMs, true);
    return reply.type() == QDBusMessage::ReplyMessage && reply.arguments().value(0).toBool();
}

bool nameIsActivatable(std::int64_t deadlineMs)
{
    const QDBusMessage reply = callBounded(QStringLiteral("ListActivatableNames"), {}, deadlineMs,
                                           true);
    return reply.type() == QDBusMessage::ReplyMessage
           && reply.arguments().value(0).toStringList().contains(QLatin1String(kServiceName));
}

// The service program: the one the environment names, else the one beside
// this program (installed) or in the build tree, else on the PATH.
QString serviceProgram()
{
    const QString named = qEnvironmentVariable(kProgramVariable);
    if (!named.isEmpty())
        return named;
    const QDir here(QCoreApplication::applicationDirPath());
    const QString name = QLatin1String(kProgramName);
    for (const QString &relative : {name, QStringLiteral("../tools/kestro-imagesource/") + name,
                                    QStringLiteral("../kestro-imagesource/") + name,
                                    QStringLiteral("../../tools/kestro-imagesource/") + name}) {
        const QFileInfo candidate(here.filePath(relative));
        if (candidate.isFile() && candidate.isExecutable())
            return candidate.absoluteFilePath();
    }
    return QStandardPaths::findExecutable(name);
}

// The 32-bit pixels' first three bytes, in their order.
void copyThreeOfFour(const std::uint8_t *src, std::uint8_t *dst, std::size_t pixels)
{
    for (std::size_t i = 0; i < pixels; ++i, src += 4, dst += 3) {
        dst[0] = src[0];
        dst[1] = src[1];
        dst[2] = src[2];
    }
}

} // namespace

std::int64_t deadlineIn(int fromNowMs)
{
    return nowMs() + fromNowMs;
}

ImageSourceAutomation::ImageSourceAutomation() = default;

ImageSourceAutomation::~ImageSourceAutomation()
{
    // The service ends with the program; one this object started is waited
    // for, so that no process is left behind.
    if (QCoreApplication::instance() && bus().isConnected()
        && (startedProcessId() != 0 || nameHasOwner(deadlineIn(500))))
        quit(1000);
    endStartedService(2000);
}

bool ImageSourceAutomation::fail(const QString &reason)
{
    m_lastError = reason;
    return false;
}

qint64 ImageSourceAutomation::startedProcessId() const
{
    return m_process && m_process->state() != QProcess::NotRunning ? m_process->processId() : 0;
}

bool ImageSourceAutomation::ensure(std::int64_t deadlineMs)
{
    if (!QCoreApplication::instance())
        return fail(QStringLiteral("no application object"));
    QDBusConnection connection = bus();
    if (!connection.isConnected())
        return fail(QStringLiteral("no session bus (%1)").arg(connection.lastError().message()));
    if (!(connection.connectionCapabilities() & QDBusConnection::UnixFileDescriptorPassing))
        return fail(QStringLiteral("the session bus cannot pass file descriptors"));
    if (nameHasOwner(deadlineMs))
        return true;
    return startService(deadlineMs);
}

bool ImageSourceAutomation::startService(std::int64_t deadlineMs)
{
    if (nameIsActivatable(deadlineMs)) {
        const QDBusMessage reply = callBounded(QStringLiteral("StartServiceByName"),
                                               {QLatin1String(kServiceName), 0u}, deadlineMs, true);
        if (reply.type() == QDBusMessage::ReplyMessage || nameHasOwner(deadlineMs))
            return true;
        return fail(QStringLiteral("the bus did not start %1: %2")
                            .arg(QLatin1String(kServiceName), errorOf(reply)));
    }

    // A service started earlier that has ended (its exit was collected by
    // QProcess) is started again.
    endStartedService(0);
    const QString program = serviceProgram();
    if (program.isEmpty())
        return fail(QStringLiteral("%1 not found (set %2)")
                            .arg(QLatin1String(kProgramName), QLatin1String(kProgramVariable)));
    m_process = std::make_unique<QProcess>();
    m_process->setProgram(program);
    // The service must not outlive the program if the program dies without
    // asking it to quit.
    m_process->setArguments({QStringLiteral("--exit-with-parent")});
    m_process->setStandardInputFile(QProcess::nullDevice());
    m_process->setStandardOutputFile(QProcess::nullDevice());
    m_process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process->start();
    if (!m_process->waitForStarted(std::max(1, remainingMs(deadlineMs)))) {
        const QString reason = m_process->errorString();
        endStartedService(0);
        return fail(QStringLiteral("cannot start %1: %2").arg(program, reason));
    }
    while (true) {
        if (nameHasOwner(deadlineMs))
            return true;
        if (remainingMs(deadlineMs) <= 0)
            break;
        // Waiting for the name doubles as watching the process: a service
        // that ends at start fails the capture at once.
        if (m_process->waitForFinished(std::min(20, std::max(1, remainingMs(deadlineMs))))) {
            const int code = m_process->exitCode();
            endStartedService(0);
            // Another image source may have taken the name meanwhile.
            if (nameHasOwner(deadlineMs))
                return true;
            return fail(QStringLiteral("%1 ended at start (exit status %2)").arg(program).arg(code));
        }
    }
    endStartedService(0);
    return fail(QStringLiteral("%1 did not appear on the bus in time").arg(program));
}

void ImageSourceAutomation::endStartedService(int timeoutMs)
{
    if (!m_process)
        return;
    if (m_process->state() != QProcess::NotRunning && !m_process->waitForFinished(timeoutMs)) {
        m_process->terminate();
        if (!m_process->waitForFinished(500)) {
            m_process->kill();
            m_process->waitForFinished(500);
        }
    }
    m_process.reset();
}

bool ImageSourceAutomation::command(int nCommand, int lParam, std::int64_t deadlineMs)
{
    const QDBusMessage reply = callBounded(QStringLiteral("Command"), {nCommand, lParam},
                                           deadlineMs);
    if (reply.type() != QDBusMessage::ReplyMessage)
        return fail(QStringLiteral("Command(%1, %2) failed: %3")
                            .arg(nCommand)
                            .arg(lParam)
                            .arg(errorOf(reply)));
    return true;
}

bool ImageSourceAutomation::setOption(const QString &name, const QString &value,
                                      std::int64_t deadlineMs)
{
    const QDBusMessage reply = callBounded(QStringLiteral("SetOptionStr"), {name, value},
                                           deadlineMs);
    if (reply.type() != QDBusMessage::ReplyMessage)
        return fail(QStringLiteral("option %1 not set: %2").arg(name, errorOf(reply)));
    return true;
}

bool ImageSourceAutomation::quit(int timeoutMs)
{
    const QDBusMessage reply = callBounded(QStringLiteral("Quit"), {}, deadlineIn(timeoutMs));
    if (reply.type() != QDBusMessage::ReplyMessage)
        return fail(QStringLiteral("Quit failed: %1").arg(errorOf(reply)));
    return true;
}

bool ImageSourceAutomation::getRgbImage(CapturedImage &image, std::int64_t deadlineMs)
{
    // The size arguments are hints; the frame's size comes with the answer.
    const QDBusMessage reply = callBounded(QStringLiteral("GetRgbImage"), {0, 0, 32}, deadlineMs);
    if (reply.type() != QDBusMessage::ReplyMessage)
        return fail(QStringLiteral("GetRgbImage failed: %1").arg(errorOf(reply)));
    const QVariantList args = reply.arguments();
    if (reply.signature() != QLatin1String("iih") || args.size() != 3)
        return fail(QStringLiteral("GetRgbImage answered (%1)").arg(reply.signature()));
    const int width = args[0].toInt();
    const int height = args[1].toInt();
    const QDBusUnixFileDescriptor descriptor = args[2].value<QDBusUnixFileDescriptor>();
    if (width < 3 || height < 3)
        return fail(QStringLiteral("a frame of %1 x %2 pixels is refused").arg(width).arg(height));
    if (qint64(width) * height > kMaxFramePixels)
        return fail(QStringLiteral("a frame of %1 x %2 pixels is too large").arg(width).arg(height));
    const int fd = descriptor.fileDescriptor();
    const std::size_t pixels = std::size_t(width) * height;
    const std::size_t bytes = pixels * 4;
    struct stat info = {};
    if (fd < 0 || fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)
        || std::size_t(info.st_size) < bytes)
        return fail(QStringLiteral("the frame's memory is missing or smaller than %1 x %2 pixels")
                            .arg(width)
                            .arg(height));

    std::unique_ptr<std::uint8_t[]> rgb(new (std::nothrow) std::uint8_t[pixels * 3]);
    if (!rgb)
        return fail(
                QStringLiteral("out of memory for a frame of %1 x %2 pixels").arg(width).arg(height));
    // A file sealed against shrinking can be mapped without risk; any other
    // is read in slices, so that a file cut short meanwhile is an error and
    // not a crash.
    const int seals = fcntl(fd, F_GET_SEALS);
    if (seals >= 0 && (seals & F_SEAL_SHRINK)) {
        void *mapped = mmap(nullptr, bytes, PROT_READ, MAP_SHARED | MAP_POPULATE, fd, 0);
        if (mapped == MAP_FAILED)
            return fail(QStringLiteral("cannot map the frame: %1").arg(qt_error_string(errno)));
        copyThreeOfFour(static_cast<const std::uint8_t *>(mapped), rgb.get(), pixels);
        munmap(mapped, bytes);
    } else {
        constexpr std::size_t slicePixels = 1 << 16;
        std::unique_ptr<std::uint8_t[]> slice(new std::uint8_t[slicePixels * 4]);
        for (std::size_t done = 0; done < pixels;) {
            const std::size_t n = std::min(slicePixels, pixels - done);
            std::size_t got = 0;
            while (got < n * 4) {
                const ssize_t r = pread(fd, slice.get() + got, n * 4 - got, off_t(done * 4 + got));
                if (r < 0 && errno == EINTR)
                    continue;
                if (r <= 0)
                    return fail(QStringLiteral("the frame's memory ended early"));
                got += std::size_t(r);
            }
            copyThreeOfFour(slice.get(), rgb.get() + done * 3, n);
            done += n;
        }
    }
    image.width = width;
    image.height = height;
    image.pixels = std::move(rgb);
    return true;
}

ImageSourceAutomation *automationOf(CCamera &camera)
{
    auto *automation = dynamic_cast<ImageSourceAutomation *>(camera.automation());
    if (!automation) {
        auto made = std::make_unique<ImageSourceAutomation>();
        automation = made.get();
        camera.setAutomation(std::move(made));
    }
    return automation;
}

bool captureImage(CCamera &camera, CapturedImage &image, bool firstCapture,
                  const std::function<void()> &setupPrompt, const QString &sceneHint)
{
    image = CapturedImage();
    if (camera.cameraCount() < 1)
        return false;
    ImageSourceAutomation *automation = automationOf(camera);
    std::int64_t deadline = deadlineIn(kCaptureTimeoutMs);
    if (!automation->ensure(deadline)) {
        qDebug().noquote() << "Capture: no image source:" << automation->lastError();
        return false;
    }
    // A source that does not know the hint still captures.
    if (!sceneHint.isEmpty()
        && !automation->setOption(QStringLiteral("scenehint"), sceneHint, deadline))
        qDebug().noquote() << "Capture:" << automation->lastError();
    if (firstCapture) {
        if (!automation->command(kCommandPrepareCapture, 0, deadline)) {
            qDebug().noquote() << "Capture:" << automation->lastError();
            return false;
        }
        // The time the user takes to answer does not count.
        const int left = remainingMs(deadline);
        if (setupPrompt)
            setupPrompt();
        deadline = deadlineIn(left);
    }
    CapturedImage frame;
    if (!automation->getRgbImage(frame, deadline)) {
        qDebug().noquote() << "Capture:" << automation->lastError();
        return false;
    }
    image = std::move(frame);
    return true;
}

QImage toImage(CapturedImage &&image)
{
    if (!image.pixels || image.width <= 0 || image.height <= 0)
        return QImage();
    std::uint8_t *data = image.pixels.release();
    QImage picture(
            data, image.width, image.height, image.width * 3, QImage::Format_RGB888,
            [](void *p) { delete[] static_cast<std::uint8_t *>(p); }, data);
    if (picture.isNull())
        delete[] data;
    image = CapturedImage();
    return picture;
}

} // namespace kestro
