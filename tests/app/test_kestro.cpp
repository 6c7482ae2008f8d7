// The main window in-process: start-up in both modes, the window's actions,
// settings and layouts, the camera probe, and the batch runner: what it reads
// from its arguments, what it prints and the exit code it leaves, on inputs
// good and bad. test_batch.cpp runs the built program for what only a
// process shows.
#include "acquisition/camera.h"
#include "app/kestro.h"
#include "app/messages.h"

#include "testsupport.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QDockWidget>
#include <QLabel>
#include <QSettings>
#include <QTabWidget>
#include <QTest>
#include <QTextBrowser>
#include <QToolBar>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using kestro::test::boxesOf;

struct Printed
{
    QByteArray out;
    QString err;
};

// Runs the runner on "KestroLoader" and `args` (passed as the platform
// encodes file names in argv), returning what it printed.
Printed run(Kestro &window, const QStringList &args)
{
    QList<QByteArray> storage{"KestroLoader"};
    for (const QString &arg : args)
        storage << QFile::encodeName(arg);
    std::vector<char *> argv;
    for (QByteArray &s : storage)
        argv.push_back(s.data());
    argv.push_back(nullptr);
    Printed printed;
    printed.err = boxesOf([&] {
        testing::internal::CaptureStdout();
        window.runCommandLine(static_cast<int>(storage.size()), argv.data());
        printed.out = QByteArray::fromStdString(testing::internal::GetCapturedStdout());
    });
    return printed;
}

std::unique_ptr<Kestro> batchWindow(const QString &test)
{
    auto window = std::make_unique<Kestro>();
    window->setCommandLineMode(true);
    window->setCommandLineType(test);
    window->initialize();
    return window;
}

QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// Per-user files (settings fallback, default INI files) go to a temporary
// home; the window's own settings file starts empty; no board is plugged in.
class WindowTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        for (const char *name : {"XDG_DATA_HOME", "XDG_CONFIG_HOME"})
            m_env.set(name, QFile::encodeName(m_home.filePath(name)));
        m_env.set("KESTRO_DEMO_CAMERA", {});
        QFile::remove(kestro::settingsFileLocation(QCoreApplication::applicationDirPath(),
                                                   m_home.filePath("config")));
    }
    std::unique_ptr<Kestro> windowed()
    {
        auto window = std::make_unique<Kestro>();
        window->setCommandLineMode(false);
        window->initialize();
        return window;
    }

    QTemporaryDir m_home;
    kestro::test::ScopedEnvironment m_env;
};

} // namespace

TEST_F(WindowTest, WindowedStartUp)
{
    auto window = windowed();
    // The library becomes ready when the initialisation thread ends.
    QTRY_VERIFY_WITH_TIMEOUT(window->colorCalibrationReady(), 10000);

    // Only supported sensors with data files are offered: not KSV800.
    QComboBox *types = window->sensorTypeBox();
    EXPECT_EQ(types->findText("KSV800"), -1);
    types->setCurrentIndex(types->findText("KSD644"));
    QComboBox *revisions = window->sensorRevisionBox();
    ASSERT_EQ(revisions->count(), 2);
    revisions->setCurrentIndex(1);
    EXPECT_EQ(window->findChild<QLabel *>("sensorDataFile")->text(),
              "KSD644-REV2-DEV3.xsdat (644 x 484, 10-bit Bayer)");
    EXPECT_TRUE(boxesOf([&] {
                    window->checkSensorSelected();
                }).startsWith("No Camera Detected: Before starting"));

    // The choice is remembered by the next start; a corrupt settings file
    // gives the defaults.
    window.reset();
    window = windowed();
    EXPECT_EQ(window->sensorRevisionBox()->currentText(), "Revision 2");
    const QString settingsFile = window->settings()->fileName();
    window.reset();
    QFile corrupt(settingsFile);
    ASSERT_TRUE(corrupt.open(QIODevice::WriteOnly));
    corrupt.write("\xff\xfe[Kestro\x00\x01=\n\n[[[]]=\xc3", 16);
    corrupt.close();
    window = windowed();
    EXPECT_EQ(window->sensorTypeBox()->currentIndex(), 0);
}

TEST_F(WindowTest, SettingsFileBesideTheProgramOrPerUser)
{
    QTemporaryDir dir;
    QDir(dir.path()).mkdir("bin");
    // The file name is joined to the program's folder without a separator,
    // where earlier releases kept it, so existing installations keep their
    // settings: "bin" gives "binKestro.ini" beside bin.
    EXPECT_EQ(kestro::settingsFileLocation(dir.filePath("bin"), "/u/cfg"),
              dir.filePath("binKestro.ini"));
    // The folder that would hold it does not exist (or cannot be written).
    EXPECT_EQ(kestro::settingsFileLocation("/no/such/dir/bin", "/u/cfg"), "/u/cfg/Kestro.ini");
    QDir(dir.path()).mkdir("binKestro.ini"); // a folder in the way
    EXPECT_EQ(kestro::settingsFileLocation(dir.filePath("bin"), "/u/cfg"), "/u/cfg/Kestro.ini");
}

TEST_F(WindowTest, ShortcutsHelpPagesAndTheCsvAction)
{
    auto window = windowed();
    window->show();
    // The shortcuts work from the window, also with the tool bar hidden.
    QApplication::setActiveWindow(window.get());
    QTest::keyClick(window.get(), Qt::Key_B, Qt::ControlModifier);
    EXPECT_TRUE(window->toolBar()->isHidden());
    QTest::keyClick(window.get(), Qt::Key_H, Qt::ControlModifier);
    EXPECT_TRUE(window->quickStartDock()->isVisible());
    QTest::keyClick(window.get(), Qt::Key_H, Qt::ControlModifier);
    EXPECT_TRUE(window->quickStartDock()->isHidden());

    // Each tab names the batch test, shows a help page and offers CSV only
    // where there is a table to save.
    QAction *csv = window->toolBar()->actions()[1];
    const QStringList names = {"Initialization", "Macbeth Chart Image Tests", "MTF",
                               "Color Uniformity"};
    const bool hasCsv[] = {false, true, false, true};
    for (int tab : {1, 2, 3, 0}) {
        window->workflow()->setCurrentIndex(tab);
        EXPECT_EQ(window->commandLineType(), names[tab]);
        EXPECT_FALSE(window->quickStartBrowser()->toPlainText().isEmpty());
        EXPECT_EQ(csv->isEnabled(), hasCsv[tab]) << tab;
    }
}

TEST_F(WindowTest, LayoutRoundTripAndBadLayouts)
{
    auto window = windowed();
    window->show();
    QDockWidget *help = window->quickStartDock();
    window->quickStart(true);
    QTemporaryDir dir;
    const QString good = dir.filePath("layout.ini");
    ASSERT_TRUE(window->saveLayoutTo(good));
    const QByteArray bytes = readAll(good);
    ASSERT_GT(bytes.size(), 2);

    window->quickStart(false);
    ASSERT_TRUE(window->loadLayoutFrom(good));
    EXPECT_FALSE(help->isHidden());

    // Bad files leave the window as it was.
    const QByteArray geometryOnly = bytes.left(1 + static_cast<unsigned char>(bytes[0]));
    const QList<QPair<QString, QByteArray>> bad = {
            {"empty.ini", QByteArray()},
            {"cut in the geometry.ini", bytes.left(10)},
            {"no state.ini", geometryOnly},
            {"cut in the state.ini", bytes.left(geometryOnly.size() + 5)},
            {"bad state.ini", geometryOnly + QByteArray(40, '\x5a')},
    };
    window->showToolbar(false);
    const QByteArray state = window->saveState();
    const QByteArray geometry = window->saveGeometry();
    for (const auto &file : bad) {
        const QString path = kestro::test::writeFile(dir, file.first, file.second);
        EXPECT_EQ(boxesOf([&] { EXPECT_FALSE(window->loadLayoutFrom(path)); }),
                  "Error: Error reading " + path + "\n");
        EXPECT_EQ(window->saveState(), state) << file.first.toStdString();
        EXPECT_EQ(window->saveGeometry(), geometry) << file.first.toStdString();
    }

    // Docks float and come back to their places.
    help->setFloating(true);
    window->dockWindows();
    EXPECT_FALSE(help->isFloating());
    EXPECT_EQ(window->dockWidgetArea(help), Qt::RightDockWidgetArea);
}

TEST_F(WindowTest, ColorCorrectionActionsNeedASensor)
{
    auto window = windowed();
    for (auto action :
         {&Kestro::applySettingsToSensor, &Kestro::saveToDefaultIni, &Kestro::saveToNewIni})
        EXPECT_EQ(boxesOf([&] { (window.get()->*action)(); }), "Error: No Sensor Selected.\n");

    // With a sensor, the library refuses until a chart has been processed.
    qputenv("KESTRO_DEMO_CAMERA", "KSD644");
    boxesOf([&] { window->probeCameras(); });
    ASSERT_TRUE(window->isCameraOpen());
    const QString boxes = boxesOf([&] { window->applySettingsToSensor(); });
    EXPECT_TRUE(boxes.startsWith("Error: Internal Error - unable to apply settings to sensor.\n"
                                 "Error: No color chart has been processed"))
            << boxes.toStdString();
    const QString defaultIni = window->camera()->defaultIniFile();
    const QByteArray before = readAll(defaultIni);
    EXPECT_TRUE(boxesOf([&] { window->saveToDefaultIni(); })
                        .startsWith("Error: Unable to write into " + defaultIni
                                    + ".\n\nNo color chart has been processed"));
    EXPECT_EQ(readAll(defaultIni), before);
}

TEST_F(WindowTest, ProbeIdentifiesBoards)
{
    auto window = windowed();
    EXPECT_EQ(boxesOf([&] { window->probeCameras(); }),
              "Camera Not Found: Unable to detect a camera.\n\nSelect a camera on the "
              "Initialization page if desired.\n");

    qputenv("KESTRO_DEMO_CAMERA", "KSD644-REV2-DEV3");
    EXPECT_EQ(boxesOf([&] { window->probeCameras(); }),
              "Camera Found: Detected KSD644 - KSD644C Rev 2\n");
    EXPECT_EQ(window->sensorRevisionBox()->currentText(), "Revision 2");
    EXPECT_TRUE(boxesOf([&] { window->checkSensorSelected(); }).isEmpty());

    qputenv("KESTRO_DEMO_CAMERA", "KSV800");
    EXPECT_EQ(boxesOf([&] { window->probeCameras(); }),
              "Camera Found: Detected KSV800 - KSV800C Rev 1\n\nThis sensor is currently not "
              "supported by Kestro.\n");
    EXPECT_FALSE(window->isCameraOpen());

    // A part number of the previous generation is shown under the current
    // prefix.
    QTemporaryDir dir;
    kestro::test::writeFile(dir, "TSQ100-REV1.sdat",
                            "[Sensor]\nName=TSQ100\nAlternateName=TSQ100C\nPartId=0x99\n"
                            "Revision=1\n[Frame]\nWidth=16\nHeight=8\nBitsPerPixel=10\n");
    m_env.set("KESTRO_SENSOR_DATA", QFile::encodeName(dir.path()));
    qputenv("KESTRO_DEMO_CAMERA", "1");
    const QString text = boxesOf([&] { window->probeCameras(); });
    EXPECT_TRUE(text.contains("Camera Found: Detected KSQ100 - KSQ100C Rev 1\n\nThis sensor"))
            << text.toStdString();
}

TEST(KestroBatch, UsageTexts)
{
    // The texts as test stations have always matched them, misspellings and
    // percent signs included; colour difference and noise go on to load an
    // empty path (-1).
    const struct
    {
        const char *test;
        QByteArray out;
        int exitCode;
    } cases[] = {
            {"Color Difference",
             "Incorrect number of parameters, please follow the format for Color Difference Test\n"
             "With marker location files:\n\tKestroLoader.exe ColorDifference <path to image "
             "file> <path to html output> ROI=<path to location file>With marker location files "
             "and color error upper threshold (%ERROR_LEVEL%=2 indiciates that maximum delta "
             "E2000 is above the threshold:\n\tKestroLoader.exe ColorDifference <path to image "
             "file> <path to html output> ROI=<path to location file> Threshold=<color error "
             "threshold>\n\nWithout marker location files:\n\tKestroLoader.exe ColorDifference "
             "<path to image file> <path to html output>\tCannot load the input file",
             -1},
            {"Uniformity",
             "Incorrect number of parameters, please fellow the format for Uniformity Test", 0},
            {"NOISE", {}, -1},
            {"MTF", {}, 0},
    };
    for (const auto &c : cases) {
        auto window = batchWindow(c.test);
        const QByteArray out = run(*window, {c.test}).out;
        EXPECT_TRUE(out.startsWith("Incorrect number of parameters")) << c.test;
        EXPECT_EQ(out, c.out.isEmpty() ? out : c.out);
        EXPECT_EQ(window->exitCode(), c.exitCode) << c.test;
    }
}

TEST(KestroBatch, MtfKeysAndTheInlineRegion)
{
    // The runner sets the region only for a picture that loads.
    QTemporaryDir dir;
    const QString in = kestro::test::saveImage(dir, "in.png", QImage(8, 8, QImage::Format_RGB32));
    std::unique_ptr<Kestro> window;

    // Keys are case-insensitive prefixes; the first matching prefix wins,
    // so X10= sets x1; a recognised key without "=" is ignored; values are
    // everything after the first "=", 0 when they do not convert.
    const struct
    {
        QStringList keys;
        QRect region;
        double gamma;
    } cases[] = {
            {{"x10=3", "y1=4", "X2", "x2=8=9", "Y2=12", "gAmMa=0.45"}, QRect(0, 4, 3, 8), 0.45},
            // Corners that would overflow a difference in int.
            {{"X1=-2147483648", "Y1=0", "X2=2147483647", "Y2=1", "Gamma=abc"},
             QRect(-2147483647 - 1, 0, 2147483647, 1),
             0.0},
    };
    for (const auto &c : cases) {
        window = batchWindow("MTF");
        run(*window, QStringList{"MTF", in, "b"} + c.keys);
        EXPECT_EQ(window->mtfInlineRegion(), c.region) << c.keys.join(' ').toStdString();
        EXPECT_DOUBLE_EQ(window->mtfGamma(), c.gamma);
        EXPECT_EQ(window->mtfReportPath(), "b");
    }

    // ROI= switches the inline region off.
    window = batchWindow("MTF");
    run(*window, {"MTF", in, "b", "ROI=r.roi", "X1=1", "Y1=1", "X2=5", "Y2=5"});
    EXPECT_TRUE(window->roiFileGiven());
    EXPECT_EQ(window->roiFilePath(), "r.roi");
    EXPECT_TRUE(window->mtfInlineRegion().isNull());
}

TEST(KestroBatch, ColorDifferenceAndNoiseArguments)
{
    QTemporaryDir dir;
    QImage picture(16, 12, QImage::Format_RGB32);
    picture.fill(qRgb(120, 130, 140));
    const QString image = kestro::test::saveImage(dir, "chart.png", picture);
    auto window = batchWindow("ColorDifference");
    run(*window, {"Color Difference", image, "out.html", "roi=a=b.roi", "Threshold=2.5e1"});
    EXPECT_EQ(window->colorDiffReportPath(), "out.html");
    EXPECT_EQ(window->roiFilePath(), "a=b.roi");
    EXPECT_DOUBLE_EQ(window->colorDiffThreshold(), 25.0);

    // The exit code says whether a threshold was given; the last threshold
    // argument decides.
    const struct
    {
        QStringList extra;
        int code;
    } cases[] = {
            {{}, 1},
            {{"threshold=abc"}, 0}, // a value that does not convert is 0, still given
            {{"Threshold=2", "Threshold"}, 1},
    };
    for (const auto &c : cases) {
        window = batchWindow("ColorDifference");
        EXPECT_EQ(run(*window, QStringList{"ColorDifference", image, "r.html"} + c.extra).out,
                  QByteArray());
        EXPECT_EQ(window->exitCode(), c.code) << c.extra.join(' ').toStdString();
    }

    // Only argv[4] is examined by the noise test.
    window = batchWindow("Noise");
    run(*window, {"Noise", "in.raw", "out.html", "extra", "ROI=r.txt"});
    EXPECT_FALSE(window->roiFileGiven());
    window = batchWindow("Noise");
    run(*window, {"Noise", "in.raw", "out.html", "ROI=r.txt", "ROI=s.txt"});
    EXPECT_TRUE(window->roiFileGiven());
    EXPECT_EQ(window->roiFilePath(), "r.txt");
}

TEST(KestroBatch, InputsThatDoNotLoadSayWhy)
{
    // Whatever is wrong with the input, the run ends at once: -1 and the
    // line on stdout for colour difference and noise, nothing for MTF (no
    // report); the reason goes to stderr. Names in any script and with
    // percent signs stay whole in the texts.
    QTemporaryDir dir;
    const QString fifo = kestro::test::makeFifo(dir, "pipe.png");
    const QString bomb = kestro::test::writeFile(dir, "bomb.png",
                                                 kestro::test::pngDeclaringSize(20000, 20000));
    ASSERT_TRUE(QDir(dir.path()).mkpath(QStringLiteral("图像 Снимки")));
    const QString missing = dir.filePath(QStringLiteral("图像 Снимки/ключ %1%2B.png"));
    const QByteArray cannotLoad = "\tCannot load the input file";
    const struct
    {
        QStringList args;
        int code;
        QByteArray out;
        QString reason;
    } cases[] = {
            {{"ColorDifference", fifo, "r.html", "Threshold=1"},
             -1,
             cannotLoad,
             "cannot read " + fifo + ": not a regular file"},
            {{"Noise", missing, "r.html"},
             -1,
             cannotLoad,
             "cannot load " + missing + " as an image or raw sensor file: no such file"},
            {{"MTF", bomb, "r.html", "ROI=r.roi"}, 0, {}, "at most 250 megapixels"},
    };
    for (const auto &c : cases) {
        auto window = batchWindow(c.args[0]);
        const Printed printed = run(*window, c.args);
        EXPECT_EQ(window->exitCode(), c.code) << c.args.join(' ').left(200).toStdString();
        EXPECT_EQ(printed.out, c.out) << c.args.join(' ').left(200).toStdString();
        EXPECT_TRUE(printed.err.contains(c.reason))
                << c.args.join(' ').left(200).toStdString() << "\n"
                << printed.err.toStdString();
    }
}

TEST(KestroBatch, UniformityKeys)
{
    auto window = batchWindow("Uniformity");
    run(*window, {"uniformity", "flat.png", "u.html", "colormap=Jet", "CenterPercent=12",
                  "cornerpercent=7", "ShowContour=TRUE", "ContourLow=10", "ContourSS=5",
                  "ContourHigh=90", "ChartSize=550", "SubSampleSize=x", "Unknown=1"});
    EXPECT_EQ(window->uniColorMapName(), "Jet");
    EXPECT_EQ(window->uniCenterPercent(), 12);
    EXPECT_EQ(window->uniCornerPercent(), 7);
    EXPECT_TRUE(window->uniShowContour());
    EXPECT_EQ(window->uniContourLow(), 10);
    EXPECT_EQ(window->uniContourStepSize(), 5);
    EXPECT_EQ(window->uniContourHigh(), 90);
    EXPECT_EQ(window->uniChartSize(), 550);
    EXPECT_EQ(window->uniSubSampleSize(), 0);
}

TEST(KestroMessages, RichTextIsPrintedPlain)
{
    EXPECT_EQ(kestro::plainMessageText(
                      "a<br>b <a href=\"http://x/y\">link</a>.<br/><b>bold</b> &amp; &lt;"),
              "a\nb link (http://x/y).\nbold & <");
}
