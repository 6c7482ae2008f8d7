// The batch runner as a test station runs it: the built KestroLoader as a
// process, for what only the whole program shows (the exit code reaching the
// caller, stdout complete at exit, the sensor check and start-up warnings
// after the run, names passed through argv). How the runner reads its
// arguments and refuses inputs is tested in-process in test_kestro.cpp. An
// exit code of -1 reaches the parent as 255.
#include "testsupport.h"

#include <QDir>
#include <QImage>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using kestro::test::ProcessResult;

namespace {

ProcessResult kestroLoader(const QStringList &args, const QStringList &env = {})
{
    return kestro::test::runProcess(kestro::test::buildPath("app/KestroLoader"), args, 120000, env);
}

class Batch : public ::testing::Test
{
protected:
    void SetUp() override
    {
        // A name in two scripts and with percent signs, as argv carries it.
        ASSERT_TRUE(QDir(dir.path()).mkpath(QStringLiteral("图像 Снимки")));
        QImage img(64, 48, QImage::Format_RGB32);
        img.fill(qRgb(120, 130, 140));
        image = kestro::test::saveImage(dir, QStringLiteral("图像 Снимки/ключ %1%2B.png"), img);
        report = dir.filePath("report.html");
    }
    QTemporaryDir dir;
    QString image, report;
};

} // namespace

TEST_F(Batch, ExitCodesStdoutAndTheBoxesAfterTheRun)
{
    // The picture loads (exit 1: no threshold given) and no colour-difference
    // report is written in batch mode; the sensor check runs after the test
    // and its box goes to stderr. A runtime that loads gives no warning. The
    // run has no screen and no platform chosen, as on a server.
    ProcessResult r = kestroLoader({"ColorDifference", image, report},
                                   {"KESTRO_COLORCAL_RUNTIME=libz.so.1",
                                    "QT_QPA_PLATFORM=", "DISPLAY=", "WAYLAND_DISPLAY="});
    EXPECT_EQ(r.exitCode, 1) << r.err.constData();
    EXPECT_EQ(r.out, QByteArray());
    EXPECT_FALSE(QFile::exists(report));
    EXPECT_TRUE(r.err.endsWith("No Camera Detected: Before starting to calibrate your sensor you "
                               "need to\nselect a sensor type.\n\nSelect a sensor type and revision "
                               "before you proceed,\nor connect a Demo camera and press the Probe "
                               "button\non the toolbar.\n"))
            << r.err.constData();
    EXPECT_FALSE(r.err.contains("Matlab"));

    // Too few arguments: the usage, then the load of an empty path fails
    // (-1); stdout is whole when the program ends.
    r = kestroLoader({"Color Difference", image});
    EXPECT_EQ(r.exitCode, 255);
    EXPECT_TRUE(r.out.startsWith("Incorrect number of parameters"));
    EXPECT_TRUE(r.out.endsWith("\tCannot load the input file"));
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
}

TEST_F(Batch, NoSensorDataEndsTheProgramInBothModes)
{
    QTemporaryDir empty;
    const QByteArray message
            = "Error: Kestro has not detected any valid sensor data (.sdat or .xsdat) files.\nRun "
              "the installer for your specific sensor before using Kestro.\n\nThe application "
              "will now exit.\n";
    for (const QStringList &args :
         {QStringList{"ColorDifference", image, report, "Threshold=1"}, QStringList{}}) {
        const ProcessResult r = kestroLoader(args, {"KESTRO_SENSOR_DATA=" + empty.path()});
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(r.out, QByteArray());
        EXPECT_TRUE(r.err.contains(message)) << r.err.constData();
        EXPECT_FALSE(r.err.contains("No Camera Detected"));
    }
}
