// The main window in-process: start-up in both modes and the parsing rules of
// the batch runner that do not show on stdout.
#include "app/kestro.h"
#include "app/messages.h"

#include "testsupport.h"

#include <QComboBox>
#include <QDir>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTest>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

// Runs the runner on an argument list, returning what it printed.
std::string run(Kestro &window, const std::vector<std::string> &args)
{
    std::vector<std::string> storage = args;
    std::vector<char *> argv;
    for (std::string &s : storage)
        argv.push_back(s.data());
    argv.push_back(nullptr);
    testing::internal::CaptureStdout();
    window.runCommandLine(static_cast<int>(storage.size()), argv.data());
    return testing::internal::GetCapturedStdout();
}

std::unique_ptr<Kestro> batchWindow(const char *test)
{
    auto window = std::make_unique<Kestro>();
    window->setCommandLineMode(true);
    window->setCommandLineType(QString::fromLatin1(test));
    window->initialize();
    return window;
}

} // namespace

TEST(KestroWindow, FormAndSensorListFromTheSensorData)
{
    Kestro window;
    ASSERT_FALSE(window.noSensorData());
    QTabWidget *tabs = window.workflow();
    EXPECT_EQ(tabs->objectName(), "Workflow");
    ASSERT_EQ(tabs->count(), 4);
    const QStringList titles = {"Initialization", "Macbeth Chart Image Tests", "MTF",
                                "Color Uniformity"};
    const QStringList names = {"initTab", "tabColorEval", "tabMTF", "tabIUni"};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(tabs->tabText(i), titles[i]);
        EXPECT_EQ(tabs->widget(i)->objectName(), names[i]);
    }
    EXPECT_EQ(tabs->currentIndex(), 3); // the form's default, before start-up
    for (const char *inner : {"colorDifferenceTabs", "noiseTabs"}) {
        auto *t = window.findChild<QTabWidget *>(inner);
        ASSERT_TRUE(t);
        EXPECT_EQ(t->tabText(0), "Color Patch");
        EXPECT_EQ(t->tabText(1), "Gray Patch");
        EXPECT_EQ(t->currentIndex(), 0);
    }
    // The demo sensor data of the repository.
    EXPECT_GE(window.sensorTypeBox()->count(), 1);
    EXPECT_GE(window.sensorTypeBox()->findText("KSD644"), 0);
}

TEST(KestroWindow, WindowedStartUpInitialisesTheLibraryOnAThread)
{
    Kestro window;
    window.setCommandLineMode(false);
    window.initialize();
    EXPECT_FALSE(window.startupFailed());
    EXPECT_TRUE(window.matlabRuntimeInstalled());
    // The library becomes ready when the initialisation thread ends.
    QTRY_VERIFY_WITH_TIMEOUT(window.colorCalibrationReady(), 10000);
    EXPECT_EQ(window.workflow()->currentIndex(), 0);
    EXPECT_EQ(window.commandLineType(), "Initialization");
    EXPECT_EQ(window.lastOpenDirectory(), QDir::homePath());
    EXPECT_EQ(window.lastSaveDirectory(), QDir::homePath());
    EXPECT_GE(window.sensorRevisionBox()->count(), 1);
    EXPECT_TRUE(window.sensorRevisionBox()->itemText(0).startsWith("Revision "));
    // Changing tabs updates the current test name.
    window.workflow()->setCurrentIndex(2);
    EXPECT_EQ(window.commandLineType(), "MTF");
}

TEST(KestroWindow, BatchStartUpInitialisesSynchronously)
{
    auto window = batchWindow("mtf");
    EXPECT_TRUE(window->colorCalibrationReady());
    EXPECT_TRUE(window->workflow()->widget(2)->isEnabled());
    // Start-up overwrote the test name; the runner sets it again.
    EXPECT_EQ(window->commandLineType(), "Initialization");
    run(*window, {"KestroLoader", "mtf", "in.png", "out.html"});
    EXPECT_EQ(window->commandLineType(), "mtf");
}

TEST(KestroWindow, MissingRuntimeLeavesTheLibraryUninitialised)
{
    qputenv("KESTRO_COLORCAL_RUNTIME", "libkestro-no-such-runtime.so.3");
    EXPECT_FALSE(isMatlabRuntimeInstalled());
    auto window = batchWindow("MTF");
    qunsetenv("KESTRO_COLORCAL_RUNTIME");
    EXPECT_FALSE(window->matlabRuntimeInstalled());
    EXPECT_FALSE(window->colorCalibrationReady());
    EXPECT_FALSE(window->workflow()->widget(2)->isEnabled());
    EXPECT_TRUE(isMatlabRuntimeInstalled());
}

TEST(KestroWindow, MtfKeysAndTheInlineRegion)
{
    auto window = batchWindow("MTF");
    run(*window, {"KestroLoader", "MTF", "in.png", "out.html", "X1=10", "Y1=20", "X2=5", "Y2=60"});
    EXPECT_EQ(window->mtfInlineRegion(), QRect(5, 20, 5, 40));
    EXPECT_EQ(window->mtfImagePath(), "in.png");
    EXPECT_EQ(window->mtfReportPath(), "out.html");
    EXPECT_EQ(window->exitCode(), 0);

    // Keys are case-insensitive prefixes; the first matching prefix wins,
    // so X10= sets x1; a recognised key without "=" is ignored; values are
    // everything after the first "=".
    window = batchWindow("MTF");
    run(*window,
        {"KestroLoader", "MTF", "a", "b", "x10=3", "y1=4", "X2", "x2=8=9", "Y2=12", "gAmMa=0.45"});
    EXPECT_EQ(window->mtfInlineRegion(), QRect(0, 4, 3, 8)); // x2 = "8=9" does not convert: 0
    EXPECT_DOUBLE_EQ(window->mtfGamma(), 0.45);

    window = batchWindow("MTF");
    run(*window,
        {"KestroLoader", "MTF", "a", "b", "x10=3", "y1=4", "X2", "x2=8", "Y2=12", "Gamma=abc"});
    EXPECT_EQ(window->mtfInlineRegion(), QRect(3, 4, 5, 8));
    EXPECT_DOUBLE_EQ(window->mtfGamma(), 0.0);

    // ROI= switches the inline region off.
    window = batchWindow("MTF");
    run(*window, {"KestroLoader", "MTF", "a", "b", "ROI=r.roi", "X1=1", "Y1=1", "X2=5", "Y2=5"});
    EXPECT_TRUE(window->roiFileGiven());
    EXPECT_EQ(window->roiFilePath(), "r.roi");
    EXPECT_TRUE(window->mtfInlineRegion().isNull());

    // Extreme corners do not overflow.
    window = batchWindow("MTF");
    run(*window,
        {"KestroLoader", "MTF", "a", "b", "X1=-2147483648", "Y1=0", "X2=2147483647", "Y2=1"});
    EXPECT_EQ(window->mtfInlineRegion().left(), -2147483647 - 1);
    EXPECT_EQ(window->mtfInlineRegion().width(), 2147483647);
}

TEST(KestroWindow, ColorDifferenceAndNoiseFields)
{
    auto window = batchWindow("ColorDifference");
    run(*window, {"KestroLoader", "Color Difference", "in.png", "out.html", "roi=a=b.roi",
                  "Threshold=2.5e1"});
    EXPECT_EQ(window->colorDiffImagePath(), "in.png");
    EXPECT_EQ(window->colorDiffReportPath(), "out.html");
    EXPECT_EQ(window->roiFilePath(), "a=b.roi");
    EXPECT_TRUE(window->roiFileGiven());
    EXPECT_DOUBLE_EQ(window->colorDiffThreshold(), 25.0);
    EXPECT_TRUE(window->colorDiffThresholdGiven());
    EXPECT_EQ(window->exitCode(), -1); // in.png does not exist

    // Only argv[4] is examined by the noise test.
    window = batchWindow("Noise");
    run(*window, {"KestroLoader", "Noise", "in.raw", "out.html", "extra", "ROI=r.txt"});
    EXPECT_FALSE(window->roiFileGiven());
    EXPECT_EQ(window->noiseReportPath(), "out.html");
    window = batchWindow("Noise");
    run(*window, {"KestroLoader", "Noise", "in.raw", "out.html", "ROI=r.txt", "ROI=s.txt"});
    EXPECT_TRUE(window->roiFileGiven());
    EXPECT_EQ(window->roiFilePath(), "r.txt");
}

TEST(KestroWindow, UniformityKeys)
{
    auto window = batchWindow("Uniformity");
    run(*window, {"KestroLoader", "uniformity", "flat.png", "u.html", "colormap=Jet",
                  "CenterPercent=12", "cornerpercent=7", "ShowContour=TRUE", "ContourLow=10",
                  "ContourSS=5", "ContourHigh=90", "ChartSize=550", "SubSampleSize=x", "Unknown=1"});
    EXPECT_EQ(window->uniImagePath(), "flat.png");
    EXPECT_EQ(window->uniReportPath(), "u.html");
    EXPECT_EQ(window->uniColorMapName(), "Jet");
    EXPECT_EQ(window->uniCenterPercent(), 12);
    EXPECT_EQ(window->uniCornerPercent(), 7);
    EXPECT_TRUE(window->uniShowContour());
    EXPECT_EQ(window->uniContourLow(), 10);
    EXPECT_EQ(window->uniContourStepSize(), 5);
    EXPECT_EQ(window->uniContourHigh(), 90);
    EXPECT_EQ(window->uniChartSize(), 550);
    EXPECT_EQ(window->uniSubSampleSize(), 0);

    window = batchWindow("Uniformity");
    run(*window, {"KestroLoader", "Uniformity", "flat.png"});
    EXPECT_EQ(window->uniImagePath(), "flat.png");
    EXPECT_EQ(window->uniReportPath(), "");
    window = batchWindow("Uniformity");
    run(*window,
        {"KestroLoader", "Uniformity", "flat.png", "u.html", "ShowContour=yes", "ShowContour"});
    EXPECT_FALSE(window->uniShowContour());
}

TEST(KestroMessages, RichTextIsPrintedPlain)
{
    EXPECT_EQ(kestro::plainMessageText(
                      "a<br>b <a href=\"http://x/y\">link</a>.<br/><b>bold</b> &amp; &lt;"),
              "a\nb link (http://x/y).\nbold & <");
}
