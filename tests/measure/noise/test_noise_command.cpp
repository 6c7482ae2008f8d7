// kestro-measure noise, run as a process.
#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTextStream>
#include <cmath>
#include <gtest/gtest.h>

using namespace kestro::test;

namespace {

QImage rgbFrame(int w, int h, int red)
{
    QImage img(w, h, QImage::Format_ARGB32);
    img.fill(qRgba(red, 128, 40, 255));
    return img;
}

} // namespace

TEST(NoiseCommand, MeasuresPatchesOfAFrameSet)
{
    QTemporaryDir dir;
    const QString a = saveImage(dir, "a.png", rgbFrame(40, 30, 100));
    const QString b = saveImage(dir, "b.png", rgbFrame(40, 30, 200));
    // The second rectangle has fractional edges and is rounded outwards.
    const QString roi = writeFile(dir, "chart.roi",
                                  "[patches]\n1\\left=0\n1\\top=0\n1\\width=10\n1\\height=10\n"
                                  "2\\left=30.5\n2\\top=20.2\n2\\width=9.5\n2\\height=9.3\nsize=2\n");
    const ProcessResult r = runProcess(measureToolPath(), {"noise", roi, a, b});
    ASSERT_EQ(r.exitCode, 0) << r.err.constData();
    const QJsonObject o = parseJsonOutput(r);
    EXPECT_TRUE(o["ok"].toBool());
    EXPECT_EQ(o["error"].toString(), QString());
    EXPECT_EQ(o["frames"].toInt(), 2);
    const QJsonArray patches = o["patches"].toArray();
    ASSERT_EQ(patches.size(), 2);
    EXPECT_EQ(patches[1].toObject()["patch"].toInt(), 2);
    const QJsonArray channels = patches[0].toObject()["channels"].toArray();
    ASSERT_EQ(channels.size(), 3);
    const QJsonObject red = channels[0].toObject();
    EXPECT_EQ(red["name"].toString(), "R");
    // sRGB 100 and 200 decode to 32.4966085111 and 147.283012310 on the
    // 0..255 linear scale.
    EXPECT_NEAR(red["signal"].toDouble(), 89.8898104103, 1e-9);
    EXPECT_NEAR(red["temporal"].toDouble(), 57.3932018992, 1e-9);
    EXPECT_NEAR(red["fpn"].toDouble(), 0.0, 1e-9);
    EXPECT_NEAR(red["snrDb"].toDouble(), 3.89700020484, 1e-9);
    // Zero noise: the ratio is infinite and prints as a string.
    EXPECT_EQ(channels[1].toObject()["snr"].toString(), "inf");
}

TEST(NoiseCommand, RefusalsAndBadInput)
{
    QTemporaryDir dir;
    const QString a = saveImage(dir, "a.png", rgbFrame(40, 30, 100));
    const QString wide = saveImage(dir, "wide.png", rgbFrame(41, 30, 100));
    const QString roi
            = writeFile(dir, "one.roi",
                        "[patches]\n1\\left=35\n1\\top=0\n1\\width=10\n1\\height=10\nsize=1\n");
    const QString good
            = writeFile(dir, "good.roi",
                        "[patches]\n1\\left=0\n1\\top=0\n1\\width=4\n1\\height=4\nsize=1\n");

    ProcessResult r = runProcess(measureToolPath(), {"noise", roi, a});
    EXPECT_EQ(r.exitCode, 2);
    QJsonObject o = parseJsonOutput(r);
    EXPECT_FALSE(o["ok"].toBool());
    EXPECT_EQ(o["error"].toString(), "Invalid region:((35, 0), (44, 9))");
    EXPECT_TRUE(o["patches"].toArray().isEmpty());

    r = runProcess(measureToolPath(), {"noise", good, a, wide});
    EXPECT_EQ(r.exitCode, 2);
    o = parseJsonOutput(r);
    EXPECT_EQ(o["error"].toString(),
              "Frames in the frameset do not have the same format. Calculation cannot be performed.");
    EXPECT_EQ(o["frames"].toInt(), 2);

    // Unreadable inputs and usage errors: stderr and status 1, no JSON.
    const QString truncated = dir.filePath("cut.png");
    {
        QFile src(a), dst(truncated);
        src.open(QIODevice::ReadOnly);
        dst.open(QIODevice::WriteOnly);
        dst.write(src.readAll().left(40));
    }
    for (const QStringList &args :
         {QStringList{"noise", good, a, truncated},
          QStringList{"noise", writeFile(dir, "empty.roi", "[other]\nx=1\n"), a}}) {
        r = runProcess(measureToolPath(), args);
        EXPECT_EQ(r.exitCode, 1) << args.join(' ').toStdString();
        EXPECT_TRUE(r.out.isEmpty());
        EXPECT_FALSE(r.err.isEmpty());
    }
}

TEST(NoiseCommand, ReportAndCsv)
{
    QTemporaryDir dir;
    // Two flat gray frames, 90 and 110: every figure is exact.
    auto grayFrame = [&](const char *name, int level) {
        QImage gray(16, 12, QImage::Format_Grayscale8);
        gray.fill(QColor(level, level, level));
        return saveImage(dir, name, gray.convertToFormat(QImage::Format_Indexed8));
    };
    const QString a = grayFrame("a.bmp", 90);
    const QString b = grayFrame("b.bmp", 110);
    const QString roi = writeFile(dir, "chart.roi",
                                  "[patches]\n1\\left=0\n1\\top=0\n1\\width=10\n1\\height=10\n"
                                  "size=1\n");
    const QString report = dir.filePath("noise.run.html");
    const QString csv = dir.filePath("noise.csv");
    ProcessResult r = runProcess(measureToolPath(),
                                 {"noise", roi, a, b, "--report", report, "--csv", csv});
    ASSERT_EQ(r.exitCode, 0) << r.err.constData();
    QFile html(report);
    ASSERT_TRUE(html.open(QIODevice::ReadOnly));
    const QByteArray text = html.readAll();
    EXPECT_TRUE(text.startsWith("<center><H1>Noise Measurement Results</H1></center>"));
    EXPECT_TRUE(text.contains("<img src=\".\\noise_files\\noise_GrayChart.png\">"));
    EXPECT_GT(QFileInfo(dir.filePath("noise_files/noise.png")).size(), 0);
    QFile table(csv);
    ASSERT_TRUE(table.open(QIODevice::ReadOnly));
    EXPECT_EQ(table.readAll().toStdString(),
              ("The file list:\n1, " + QDir::toNativeSeparators(a).toUtf8() + "\n2, "
               + QDir::toNativeSeparators(b).toUtf8()
               + "\n\n\nPatch , Channel , Signal, SNR , Overall, FPN, Column FPN, Row FPN, "
                 "Temporal, Row Temporal, Column temporal\n"
                 "1, Mono, 100, 10, 10, 0, 0, 0, 10, 10, 10, \n")
                      .toStdString());

    // Refused or unwritable: no files, the usual statuses.
    r = runProcess(measureToolPath(), {"noise", roi, a, saveImage(dir, "w.png", rgbFrame(41, 30, 1)),
                                       "--csv", dir.filePath("refused.csv")});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("refused.csv")));
    r = runProcess(measureToolPath(), {"noise", roi, a, "--csv", dir.filePath("no/x.csv")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.out.isEmpty());
}
