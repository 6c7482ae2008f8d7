// Kestro: image-quality measurement for camera image sensors.
//
// Without arguments the main window opens. With arguments the program runs
// one batch test (ColorDifference, Noise, MTF or Uniformity) without entering
// the event loop and ends with the window's exit code.

#include "app/kestro.h"
#include "app/messages.h"

#include <QApplication>
#include <QProxyStyle>
#include <QScreen>
#include <QWidget>
#include <memory>

int main(int argc, char **argv)
{
    // Sharp icons and layouts on high-density screens.
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    // A batch test needs no screen: on a machine without one (a server, a
    // scheduled job) it draws its report pictures offscreen instead of failing
    // to start for want of a display.
    if (argc > 1 && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")
        && qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    auto app = std::make_unique<QApplication>(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Kestro"));
    const bool batch = argc > 1;
    kestro::setBatchRun(batch);
    auto window = std::make_unique<Kestro>();
    if (window->noSensorData()) {
        const int code = window->exitCode();
        window.reset();
        return code;
    }

    std::unique_ptr<QProxyStyle> style;
    if (batch) {
        window->setCommandLineMode(true);
        window->setCommandLineType(QString::fromLatin1(argv[1]));
        window->initialize();
        if (window->startupFailed())
            return window->exitCode();
        window->runCommandLine(argc, argv);
    } else {
        window->setCommandLineMode(false);
        window->initialize();
        if (window->startupFailed())
            return window->exitCode();
        style = std::make_unique<QProxyStyle>();
        window->setStyle(style.get());
        const QList<QWidget *> children = window->findChildren<QWidget *>();
        for (QWidget *child : children)
            child->setStyle(style.get());
        // On a laptop screen the pages need all of it.
        const QScreen *screen = QGuiApplication::primaryScreen();
        if (screen
            && (screen->availableSize().width() < 1500 || screen->availableSize().height() < 950))
            window->showMaximized();
        else
            window->show();
    }

    window->checkSensorSelected();

    const int code = window->exitCode();
    if (batch)
        app->exit(code);
    else
        app->exec();

    window.reset();
    style.reset();
    app.reset();
    return code;
}
