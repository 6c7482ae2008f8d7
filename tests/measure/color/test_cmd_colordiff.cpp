// kestro-measure colordiff run as a process: a generated chart's figures
// against independently computed values, the threshold's exit status, the
// report with its pictures, a refusal and an unreadable input.

#include "chartimage.h"
#include "imaging/roifile.h"
#include "testsupport.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <array>

using namespace kestro;

TEST(ColordiffCommand, FiguresThresholdReportAndRefusal)
{
    QTemporaryDir dir;
    const auto chart = test::makeChart(test::kSrgbChartColours, 24, 8);
    const QString image = test::saveImage(dir, "chart.png", chart.image);
    QVector<QRectF> rects(chart.rects.begin(), chart.rects.end());
    const QString roi = dir.filePath("chart.roi");
    ASSERT_TRUE(writeRoiFile(roi, rects));
    auto run = [&](const QString &regions, const QStringList &extra) {
        return test::runProcess(test::measureToolPath(),
                                QStringList{"colordiff", image, regions} + extra);
    };

    // The largest dE00 of this chart is 2.964 (patch 13).
    test::ProcessResult r = run(roi, {"--threshold", "3"});
    ASSERT_EQ(r.exitCode, 0) << r.err.constData();
    QJsonObject json = test::parseJsonOutput(r);
    EXPECT_TRUE(json["ok"].toBool());
    EXPECT_FALSE(json["thresholdExceeded"].toBool());
    // Reference values from an independent implementation of the sRGB
    // decoding, the L*a*b* conversion (white 95.0, 100, 108.9) and CIEDE2000
    // (dC00 with S_L x 1000, dH00 with S_L and S_C x 1000).
    const char *const fields[] = {"L",    "a",          "b",      "dE00",  "dC00",
                                  "dH00", "saturation", "rOverG", "bOverG"};
    const std::pair<int, std::array<double, 9>> references[] = {
            {13,
             {30.3522176432, 26.4790211831, -49.6680457412, 2.96404719111, 2.90944654623,
              3.22352119472, 0.870334819016, 0.847448025516, 6.53566376944}},
            {22,
             {51.1947408047, -0.149082633094, 0.545965235462, 0.863414878494, 0.800474603456,
              0.734531545567, 0.0175531075084, 1.0, 0.982446892492}},
    };
    const QJsonArray patches = json["patches"].toArray();
    ASSERT_EQ(patches.size(), 24);
    for (const auto &[patch, values] : references) {
        const QJsonObject p = patches[patch - 1].toObject();
        EXPECT_EQ(p["patch"].toInt(), patch);
        for (int k = 0; k < 9; ++k)
            EXPECT_NEAR(p[fields[k]].toDouble(), values[k], 1e-9) << patch << " " << fields[k];
    }
    const QJsonObject s = json["summary"].toObject();
    EXPECT_NEAR(s["dE00"]["maximum"].toDouble(), 2.96404719111, 1e-6);
    EXPECT_EQ(s["dE00"]["maximumIndex"].toInt(), 12);
    EXPECT_NEAR(s["dE00"]["average"].toDouble(), 1.41652598396, 1e-6);

    // Over the threshold: status 3, and the report with its pictures as the
    // chart page writes them.
    const QString report = dir.filePath("run 1.a.html");
    r = run(roi, {"--report", report, "--threshold", "2.9"});
    ASSERT_EQ(r.exitCode, 3) << r.err.constData();
    EXPECT_TRUE(test::parseJsonOutput(r)["thresholdExceeded"].toBool());
    QFile html(report);
    ASSERT_TRUE(html.open(QIODevice::ReadOnly));
    EXPECT_TRUE(html.readAll().contains("<img src=\".\\run 1_files\\run 1_macbethRegions.png\">"));
    for (const char *picture : {"run 1_macbethRegions.png", "run 1.png", "run 1_GrayChart.png"})
        EXPECT_GT(QFileInfo(dir.filePath(QString("run 1_files/") + picture)).size(), 0) << picture;

    // A refused chart: its JSON, status 2, and no report.
    const QString few = dir.filePath("few.roi");
    ASSERT_TRUE(writeRoiFile(few, rects.mid(0, 23)));
    r = run(few, {"--report", dir.filePath("off.html")});
    EXPECT_EQ(r.exitCode, 2);
    json = test::parseJsonOutput(r);
    EXPECT_FALSE(json["ok"].toBool());
    EXPECT_EQ(json["error"].toString(),
              "Color difference process error : not enough regions to do Macbeth chart processing.");
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("off.html")));
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("off_files")));

    // An unreadable picture: stderr, status 1, nothing on stdout.
    const QString truncated = test::writeFile(dir, "cut.png",
                                              QByteArray("\x89PNG\r\n\x1a\n\0\0", 10));
    r = test::runProcess(test::measureToolPath(), {"colordiff", truncated, roi});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.out.isEmpty());
    EXPECT_FALSE(r.err.isEmpty());
}
