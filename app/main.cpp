// Kestro: image-quality measurement for camera image sensors.
#include <QApplication>
#include <QMainWindow>
#include <QTabWidget>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QMainWindow window;
    window.setWindowTitle(QStringLiteral("Kestro"));
    auto *tabs = new QTabWidget(&window);
    window.setCentralWidget(tabs);
    if (argc > 1)
        return 0;
    window.show();
    app.exec();
    return 0;
}
