// kestro-imagesource: the image source that Kestro captures from. It owns
// a well-known name on the session bus and serves frames from a synthetic
// scene, a list of image files or a video device.

#include "acquisition/imagesourceprotocol.h"
#include "imagesourceservice.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusServiceWatcher>
#include <QSocketNotifier>
#include <QTimer>
#include <csignal>
#include <cstdio>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace kestro::imagesource;

namespace {

const char kUsage[]
        = "usage: kestro-imagesource [--scene chart|edge|flat|auto] [--width N] [--height N]\n"
          "                          [--exposure GAIN] [--noise SIGMA] [--shading PERCENT]\n"
          "                          [--latency MS] [--files IMAGE...] [--device /dev/videoN]\n"
          "                          [--keep-running] [--exit-with-parent] [--replace]\n"
          "\n"
          "Serves frames on the session bus as %s. By default the frames are a\n"
          "synthetic scene (a 24-patch colour chart, a slanted edge or a flat field)\n"
          "with the given exposure gain, temporal noise (standard deviation in 8-bit\n"
          "steps) and corner shading. With --scene auto (the default) the scene is\n"
          "the one the capturing page measures: Kestro's MTF page gets the slanted\n"
          "edge, the uniformity page the flat field, the others the chart.\n"
          "--files cycles through image files, --device takes frames from a video\n"
          "device (or plays a video file in a loop).\n"
          "\n"
          "  --keep-running      answer Quit without ending (stop with Ctrl+C)\n"
          "  --exit-with-parent  end when the program that started this one ends\n"
          "  --replace           take the name over from a running image source\n";

int usage(const char *error)
{
    if (error)
        std::fprintf(stderr, "kestro-imagesource: %s\n", error);
    std::fprintf(error ? stderr : stdout, kUsage, kServiceName);
    return error ? 1 : 0;
}

int fail(const QString &message)
{
    std::fprintf(stderr, "kestro-imagesource: %s\n", message.toLocal8Bit().constData());
    return 1;
}

// Termination signals end the event loop through a socket, so that the
// name is released and the frames unmapped on the way out.
int g_signalSocket[2] = {-1, -1};

void onSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = write(g_signalSocket[0], &byte, 1);
}

} // namespace

int main(int argc, char **argv)
{
    // Read before QCoreApplication sees the arguments.
    const pid_t parent = getppid();
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);

    QStringList files;
    QString device;
    QStringList optionOrder;
    QMap<QString, QString> options;
    bool keepRunning = false, exitWithParent = false, replace = false;
    for (int i = 0; i < args.size(); ++i) {
        const QString &a = args[i];
        if (a == QLatin1String("--help") || a == QLatin1String("-h"))
            return usage(nullptr);
        if (a == QLatin1String("--keep-running")) {
            keepRunning = true;
        } else if (a == QLatin1String("--exit-with-parent")) {
            exitWithParent = true;
        } else if (a == QLatin1String("--replace")) {
            replace = true;
        } else if (a == QLatin1String("--files")) {
            while (i + 1 < args.size() && !args[i + 1].startsWith(QLatin1String("--")))
                files << args[++i];
            if (files.isEmpty())
                return usage("--files needs at least one image file");
        } else if (a == QLatin1String("--device")) {
            if (i + 1 >= args.size())
                return usage("--device needs a device path");
            device = args[++i];
        } else if (a.startsWith(QLatin1String("--")) && a.size() > 2
                   && QStringList{"scene", "width", "height", "exposure", "noise", "shading",
                                  "latency"}
                              .contains(a.mid(2))) {
            if (i + 1 >= args.size())
                return usage(qPrintable(QStringLiteral("%1 needs a value").arg(a)));
            optionOrder << a.mid(2);
            options[a.mid(2)] = args[++i];
        } else {
            return usage(qPrintable(QStringLiteral("unknown argument %1").arg(a)));
        }
    }
    if (!files.isEmpty() && !device.isEmpty())
        return usage("give either --files or --device");

    if (exitWithParent) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent)
            return 0;
    }
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, g_signalSocket) != 0)
        return fail(QStringLiteral("cannot create the signal socket"));
    QSocketNotifier signalNotifier(g_signalSocket[1], QSocketNotifier::Read);
    QObject::connect(&signalNotifier, &QSocketNotifier::activated, &app, &QCoreApplication::quit);
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    for (int s : {SIGTERM, SIGINT, SIGHUP})
        sigaction(s, &action, nullptr);

    std::unique_ptr<FrameSource> source;
    if (!files.isEmpty())
        source = std::make_unique<FileListSource>(files);
    else if (!device.isEmpty())
        source = std::make_unique<DeviceSource>(device);
    QString error;
    if (source && !source->start(&error))
        return fail(error);

    ImageSourceService service(std::make_unique<SceneSource>(), std::move(source),
                               keepRunning ? std::function<void()>()
                                           : std::function<void()>([&app] { app.quit(); }));
    for (const QString &name : optionOrder) {
        // The scene option picks the scene without leaving the files or
        // device that were asked for.
        if (name == QLatin1String("scene") && (!files.isEmpty() || !device.isEmpty()))
            return usage("--scene cannot be combined with --files or --device");
        if (!service.setOption(name, options[name], &error))
            return usage(qPrintable(error));
    }

    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return fail(QStringLiteral("no session bus: %1").arg(bus.lastError().message()));
    if (!(bus.connectionCapabilities() & QDBusConnection::UnixFileDescriptorPassing))
        return fail(QStringLiteral("the session bus cannot pass file descriptors"));
    if (!bus.registerVirtualObject(QLatin1String(kObjectPath), &service))
        return fail(QStringLiteral("cannot register the object %1").arg(kObjectPath));
    const auto reply = bus.interface()->registerService(
            QLatin1String(kServiceName),
            replace ? QDBusConnectionInterface::ReplaceExistingService
                    : QDBusConnectionInterface::DontQueueService,
            QDBusConnectionInterface::AllowReplacement);
    if (!reply.isValid() || reply.value() != QDBusConnectionInterface::ServiceRegistered)
        return fail(QStringLiteral("the name %1 is taken on the session bus (another image "
                                   "source runs; --replace takes it over)")
                            .arg(kServiceName));

    // Losing the name (another source took it over) or the bus ends the
    // service: nobody can reach it any more.
    const QString self = bus.baseService();
    QDBusServiceWatcher watcher(QLatin1String(kServiceName), bus,
                                QDBusServiceWatcher::WatchForOwnerChange);
    QObject::connect(&watcher, &QDBusServiceWatcher::serviceOwnerChanged, &app,
                     [&app, self](const QString &, const QString &oldOwner, const QString &) {
                         if (oldOwner == self)
                             app.quit();
                     });
    QTimer busWatch;
    QObject::connect(&busWatch, &QTimer::timeout, &app, [&app, &bus] {
        if (!bus.isConnected())
            app.quit();
    });
    busWatch.start(500);

    const int status = app.exec();
    bus.unregisterObject(QLatin1String(kObjectPath));
    bus.interface()->unregisterService(QLatin1String(kServiceName));
    return status;
}
