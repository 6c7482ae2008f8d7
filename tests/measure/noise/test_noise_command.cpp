// kestro-measure noise run as a process: the figures of a two-frame set with
// its report and CSV files, a refusal (status 2, no files) and an unreadable
// frame (status 1).
#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>
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

TEST(NoiseCommand, MeasuresWritesTheFilesAndRefuses)
{
    QTemporaryDir dir;
    const QString a = saveImage(dir, "a.png", rgbFrame(40, 30, 100));
    const QString b = saveImage(dir, "b.png", rgbFrame(40, 30, 200));
    const QString roi = writeFile(dir, "chart.roi",
                                  "[patches]\n1\\left=0\n1\\top=0\n1\\width=10\n1\\height=10\n"
                                  "size=1\n");
    const QString report = dir.filePath("noise.run.html");
    const QString csv = dir.filePath("noise.csv");
    ProcessResult r = runProcess(measureToolPath(),
                                 {"noise", roi, a, b, "--report", report, "--csv", csv});
    ASSERT_EQ(r.exitCode, 0) << r.err.constData();
    const QJsonObject o = parseJsonOutput(r);
    EXPECT_TRUE(o["ok"].toBool());
    EXPECT_EQ(o["frames"].toInt(), 2);
    const QJsonArray channels = o["patches"].toArray()[0].toObject()["channels"].toArray();
    ASSERT_EQ(channels.size(), 3);
    const QJsonObject red = channels[0].toObject();
    EXPECT_EQ(red["name"].toString(), "R");
    // sRGB 100 and 200 decode to 32.4966085111 and 147.283012310 on the
    // 0..255 linear scale, 128 to 55.0444275290: each channel on its own.
    EXPECT_NEAR(red["signal"].toDouble(), 89.8898104103, 1e-9);
    EXPECT_NEAR(channels[1].toObject()["signal"].toDouble(), 55.0444275290, 1e-9);
    EXPECT_NEAR(red["temporal"].toDouble(), 57.3932018992, 1e-9);
    EXPECT_NEAR(red["fpn"].toDouble(), 0.0, 1e-9);
    EXPECT_NEAR(red["snrDb"].toDouble(), 3.89700020484, 1e-9);
    // Zero noise: the ratio is infinite and prints as a string.
    EXPECT_EQ(channels[1].toObject()["snr"].toString(), "inf");

    QFile html(report);
    ASSERT_TRUE(html.open(QIODevice::ReadOnly));
    EXPECT_TRUE(html.readAll().contains("<img src=\".\\noise_files\\noise_GrayChart.png\">"));
    EXPECT_GT(QFileInfo(dir.filePath("noise_files/noise.png")).size(), 0);
    QFile table(csv);
    ASSERT_TRUE(table.open(QIODevice::ReadOnly));
    EXPECT_TRUE(table.readAll().startsWith("The file list:\n1, "
                                           + QDir::toNativeSeparators(a).toUtf8() + "\n2, "
                                           + QDir::toNativeSeparators(b).toUtf8()));

    // Frames of two sizes: the refusal's JSON, status 2, no file.
    const QString wide = saveImage(dir, "wide.png", rgbFrame(41, 30, 100));
    r = runProcess(measureToolPath(), {"noise", roi, a, wide, "--csv", dir.filePath("refused.csv")});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(parseJsonOutput(r)["error"].toString(),
              "Frames in the frameset do not have the same format. Calculation cannot be performed.");
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("refused.csv")));

    // A truncated frame: stderr and status 1, no JSON.
    QFile source(a);
    ASSERT_TRUE(source.open(QIODevice::ReadOnly));
    const QString truncated = writeFile(dir, "cut.png", source.readAll().left(40));
    r = runProcess(measureToolPath(), {"noise", roi, a, truncated});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.out.isEmpty());
    EXPECT_FALSE(r.err.isEmpty());
}
