#include "browsercheck.h"

#ifdef KESTRO_TEST_WEBENGINE
#include <QEventLoop>
#include <QTimer>
#include <QUrl>
#include <QtWebEngineWidgets/QWebEnginePage>
#include <QtWebEngineWidgets/QWebEngineView>
#include <unistd.h>
#endif

namespace kestro::test {

QList<int> pictureWidths(const QString &path)
{
    QList<int> widths;
#ifdef KESTRO_TEST_WEBENGINE
    // The engine does not start as root with its sandbox on.
    if (::geteuid() == 0)
        qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    QWebEngineView view;
    view.resize(1000, 800);
    QEventLoop loop;
    bool loaded = false;
    QObject::connect(&view, &QWebEngineView::loadFinished, [&](bool ok) {
        loaded = ok;
        loop.quit();
    });
    QTimer::singleShot(60000, &loop, &QEventLoop::quit);
    view.load(QUrl::fromLocalFile(path));
    loop.exec();
    if (!loaded)
        return widths;
    view.page()->runJavaScript(
            "Array.from(document.images).map(function (i) { return i.naturalWidth; })",
            [&](const QVariant &result) {
                for (const QVariant &w : result.toList())
                    widths << w.toInt();
                loop.quit();
            });
    loop.exec();
#else
    (void) path;
#endif
    return widths;
}

} // namespace kestro::test
