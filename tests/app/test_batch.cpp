// The batch runner end to end: the built KestroLoader run as a process, its
// stdout compared byte for byte and its exit status checked. An exit code of
// -1 reaches the parent as 255.
#include "testsupport.h"

#include <QDir>
#include <QImage>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using kestro::test::buildPath;
using kestro::test::ProcessResult;
using kestro::test::runProcess;

namespace {

const QByteArray kNoCamera
        = "No Camera Detected: Before starting to calibrate your sensor you need to\nselect a sensor type.\n\n"
          "Select a sensor type and revision before you proceed,\nor connect a Demo camera and press the Probe "
          "button\non the toolbar.\n";

const QByteArray kCannotLoad = "\tCannot load the input file";

const QByteArray kColorDifferenceUsage
        = "Incorrect number of parameters, please follow the format for Color Difference Test\n"
          "With marker location files:\n"
          "\tKestroLoader.exe ColorDifference <path to image file> <path to html output> ROI=<path to location file>"
          "With marker location files and color error upper threshold (%ERROR_LEVEL%=2 indiciates that maximum "
          "delta E2000 is above the threshold:\n"
          "\tKestroLoader.exe ColorDifference <path to image file> <path to html output> ROI=<path to location file> "
          "Threshold=<color error threshold>"
          "\n\nWithout marker location files:\n"
          "\tKestroLoader.exe ColorDifference <path to image file> <path to html output>";

const QByteArray kNoiseUsage
        = "Incorrect number of parameters, please follow the format for Noise Measurement Test"
          "With marker location files:\n"
          "\tKestroLoader.exe Noise <path to image file> <path to html output> ROI=<path to location file>"
          "\n\nWithout marker location files:\n"
          "\tKestroLoader.exe Noise <path to image file> <path to html output>";

const QByteArray kMtfUsage
        = "Incorrect number of parameters, please follow the format for MTF Test\n\n"
          "With ROI regions defined in file:\n"
          "\tMTF <Path to input image file> <Path to html output file> Gamma=<Gamma value int float> ROI=<Path to "
          "ROI region file>\n\n"
          "With ROI regions defined in line:\n"
          "\tMTF <Path to input image file> <Path to html output file> Gamma=<Gamma value int float> X1=<top-left X> "
          "Y1=<top-left Y> X2=<bottom-right X> Y2=<bottom-right Y>\n\n";

const QByteArray kUniformityUsage
        = "Incorrect number of parameters, please fellow the format for Uniformity Test";

ProcessResult kestroLoader(const QStringList &args, const QStringList &env = {})
{
    return runProcess(buildPath("app/KestroLoader"), args, 120000, env);
}

class Batch : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        QImage img(64, 48, QImage::Format_RGB32);
        img.fill(qRgb(120, 130, 140));
        image = kestro::test::saveImage(dir, "chart.png", img);
        report = dir.filePath("report.html");
        missing = dir.filePath("missing.png");
    }
    QTemporaryDir dir;
    QString image, report, missing;
};

} // namespace

TEST_F(Batch, UsageTextsAndRunsThatDoNothing)
{
    for (const QStringList &args :
         {QStringList{"Foo", "a", "b"}, QStringList{"mtf", image, report},
          QStringList{"MTF", image, report, "X1=3", "Y1=4", "X2=3", "Y2=9"}}) {
        const ProcessResult r = kestroLoader(args);
        EXPECT_EQ(r.exitCode, 0) << args.join(' ').toStdString();
        EXPECT_EQ(r.out, QByteArray()) << args.join(' ').toStdString();
        // The sensor check runs in batch mode too, and its box goes to stderr.
        EXPECT_TRUE(r.err.endsWith(kNoCamera)) << r.err.constData();
    }

    ProcessResult r = kestroLoader({"MTF"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, kMtfUsage);

    // Colour difference and noise go on to the load of an empty path.
    r = kestroLoader({"Color Difference", image}); // the input is not taken
    EXPECT_EQ(r.exitCode, 255);
    EXPECT_EQ(r.out, kColorDifferenceUsage + kCannotLoad);
    r = kestroLoader({"NOISE", image});
    EXPECT_EQ(r.exitCode, 255);
    EXPECT_EQ(r.out, kNoiseUsage + kCannotLoad);

    // Uniformity still runs its calculation and export with empty paths.
    r = kestroLoader({"Uniformity"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, kUniformityUsage);
}

TEST_F(Batch, ColorDifferenceExitCodesFollowTheThreshold)
{
    struct Case
    {
        QStringList extra;
        int code;
    };
    const Case cases[] = {
            {{}, 1},
            {{"threshold=abc"}, 0},            // a value that does not convert is 0, still given
            {{"Threshold=2", "Threshold"}, 1}, // without "="
            {{"Threshold", "ROI=r.roi", "THRESHOLD=2"}, 0},
    };
    for (const Case &c : cases) {
        const ProcessResult r = kestroLoader(QStringList{"ColorDifference", image, report}
                                             + c.extra);
        EXPECT_EQ(r.exitCode, c.code) << c.extra.join(' ').toStdString();
        EXPECT_EQ(r.out, QByteArray()) << c.extra.join(' ').toStdString();
    }
    // An input that does not load wins over the threshold: -1.
    const ProcessResult r = kestroLoader({"colordifference", missing, report, "Threshold=3.5"});
    EXPECT_EQ(r.exitCode, 255);
    EXPECT_EQ(r.out, kCannotLoad);
    // No report is written in batch mode.
    EXPECT_FALSE(QFile::exists(report));
}

// Whatever is wrong with the input, the run ends promptly with the exit code
// and stdout of the batch rules, and the reason on stderr.
TEST_F(Batch, InputsThatDoNotLoadSayWhy)
{
    const QString fifo = kestro::test::makeFifo(dir, "pipe.png");
    const QString bomb = kestro::test::writeFile(dir, "bomb.png",
                                                 kestro::test::pngDeclaringSize(20000, 20000));
    const QString text = kestro::test::writeFile(dir, "notes.png", "not a picture");
    struct Case
    {
        QStringList args;
        int code;
        QByteArray out;
        QString reason;
    };
    const Case cases[] = {
            {{"ColorDifference", fifo, report, "Threshold=1"},
             255,
             kCannotLoad,
             "cannot read " + fifo + ": not a regular file"},
            {{"ColorDifference", bomb, report},
             255,
             kCannotLoad,
             "the picture is 20000 x 20000 pixels; at most 250 megapixels are accepted"},
            {{"Noise", missing, report},
             255,
             kCannotLoad,
             "cannot load " + missing + " as an image or raw sensor file: no such file"},
            {{"Noise", text, report}, 255, kCannotLoad, "cannot load " + text},
            {{"Noise", fifo, report}, 255, kCannotLoad, "not a regular file"},
            {{"MTF", fifo, report, "X1=1", "Y1=1", "X2=9", "Y2=9"},
             0,
             {},
             "cannot read " + fifo + ": not a regular file"},
            {{"MTF", bomb, report, "ROI=r.roi"}, 0, {}, "at most 250 megapixels"},
    };
    for (const Case &c : cases) {
        const ProcessResult r = runProcess(buildPath("app/KestroLoader"), c.args, 20000);
        EXPECT_EQ(r.exitCode, c.code) << c.args.join(' ').toStdString();
        EXPECT_EQ(r.out, c.out) << c.args.join(' ').toStdString();
        EXPECT_TRUE(QString::fromLocal8Bit(r.err).contains(c.reason))
                << c.args.join(' ').toStdString() << "\n"
                << r.err.constData();
    }
    EXPECT_FALSE(QFile::exists(report));
}

TEST_F(Batch, NamesInAnyScriptAndWithPercentSigns)
{
    ASSERT_TRUE(QDir(dir.path()).mkpath(QStringLiteral("图像 Снимки")));
    QImage img(8, 8, QImage::Format_RGB32);
    img.fill(Qt::white);
    const QString unicode = kestro::test::saveImage(dir, QStringLiteral("图像 Снимки/ключ %1.png"),
                                                    img);
    const QString percent = kestro::test::saveImage(dir, QStringLiteral("chart%2Bcopy.png"), img);
    for (const QString &path : {unicode, percent}) {
        ProcessResult r = kestroLoader({"ColorDifference", path, report, "Threshold=2"});
        EXPECT_EQ(r.exitCode, 0) << r.err.constData();
        EXPECT_EQ(r.out, QByteArray());
        r = kestroLoader({"Noise", path, report});
        EXPECT_EQ(r.exitCode, 0) << r.err.constData();
        r = kestroLoader({"MTF", path, report, "Gamma=0.45", "X1=1", "Y1=1", "X2=6", "Y2=6"});
        EXPECT_EQ(r.exitCode, 0);
        EXPECT_FALSE(r.err.contains("cannot read")) << r.err.constData();
        r = kestroLoader({"Uniformity", path, report, "SubSampleSize=1"});
        EXPECT_EQ(r.exitCode, 0);
        EXPECT_FALSE(r.err.contains("cannot read") || r.err.contains("Failed to load"))
                << r.err.constData();
    }

    // A very long path that cannot exist, and a number too long for an int.
    const QString longPath = dir.filePath(QString(20000, QLatin1Char('x')) + ".png");
    ProcessResult r = kestroLoader(
            {"ColorDifference", longPath, report, "Threshold=" + QString(5000, '9')});
    EXPECT_EQ(r.exitCode, 255);
    EXPECT_EQ(r.out, kCannotLoad);
    r = kestroLoader({"MTF", image, report, "X1=" + QString(3000, '7'), "Y1=1", "X2=2", "Y2=5"});
    EXPECT_EQ(r.exitCode, 0);
}

TEST_F(Batch, MissingRuntimeWarnsAndDisablesTheMtf)
{
    const ProcessResult r = kestroLoader({"MTF", image, report, "X1=1", "Y1=1", "X2=9", "Y2=9"},
                                         {"KESTRO_COLORCAL_RUNTIME=libkestro-no-such-runtime.so.9"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, QByteArray());
    EXPECT_TRUE(r.err.contains(
            "Matlab runtime is not installed: Matlab runtime is missing. Some "
            "functionalities will be disabled.\nInstall Matlab runtime by downloading "
            "Matlab runtime installer (https://"))
            << r.err.constData();
    EXPECT_TRUE(r.err.contains(
            ".\nRelaunch the application so that installation changes can take effect.\n"));
    EXPECT_TRUE(r.err.contains("MTF measurement is disabled"));

    // A runtime that loads gives no warning.
    const ProcessResult ok = kestroLoader({"Foo"}, {"KESTRO_COLORCAL_RUNTIME=libz.so.1"});
    EXPECT_EQ(ok.exitCode, 0);
    EXPECT_FALSE(ok.err.contains("Matlab"));
}

TEST_F(Batch, NoSensorDataEndsTheProgramInBothModes)
{
    QTemporaryDir empty;
    const QByteArray message
            = "Error: Kestro has not detected any valid sensor data (.sdat or .xsdat) files.\nRun the installer for "
              "your specific sensor before using Kestro.\n\nThe application will now exit.\n";
    for (const QStringList &args :
         {QStringList{"ColorDifference", image, report, "Threshold=1"}, QStringList{}}) {
        const ProcessResult r = kestroLoader(args, {"KESTRO_SENSOR_DATA=" + empty.path()});
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(r.out, QByteArray());
        EXPECT_TRUE(r.err.contains(message)) << r.err.constData();
        EXPECT_FALSE(r.err.contains("No Camera Detected"));
    }
}
