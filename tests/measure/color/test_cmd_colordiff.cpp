// kestro-measure colordiff run as a process on generated charts and on a real
// chart photograph.

#include "chartimage.h"
#include "imaging/roifile.h"
#include "testsupport.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <cmath>

using namespace kestro;
using kestro::test::makeChart;

namespace {

const std::array<QRgb, 24> &kColours = test::kSrgbChartColours;

QString writeRoi(const QTemporaryDir &dir, const QString &name, const QVector<QRectF> &rects)
{
    const QString path = dir.filePath(name);
    EXPECT_TRUE(writeRoiFile(path, rects));
    return path;
}

QVector<QRectF> toF(const std::array<QRect, 24> &rects)
{
    QVector<QRectF> out;
    for (const QRect &r : rects)
        out.append(QRectF(r));
    return out;
}

struct CommandRun
{
    test::ProcessResult process;
    QJsonObject json;
};

CommandRun colordiff(const QString &image, const QString &roi)
{
    CommandRun r;
    r.process = test::runProcess(test::measureToolPath(), {"colordiff", image, roi});
    r.json = QJsonDocument::fromJson(r.process.out).object();
    return r;
}

} // namespace

TEST(ColordiffCommand, GeneratedChartAgainstReferenceValues)
{
    QTemporaryDir dir;
    auto chart = makeChart(kColours);
    const QString image = test::saveImage(dir, "chart.png", chart.image);
    QVector<QRectF> rects = toF(chart.rects);
    rects[0] = QRectF(chart.rects[0])
                       .adjusted(0.5, 0.5, -0.2, 0); // rounded outwards to the same pixels
    rects[1] = QRectF(rects[1].left() + 1.5, rects[1].top(), 10.0, 10.0); // covers 11 x 10 pixels
    const QString roi = writeRoi(dir, "chart.roi", rects);
    const CommandRun run = colordiff(image, roi);
    ASSERT_EQ(run.process.exitCode, 0) << run.process.err.constData();
    EXPECT_TRUE(run.json["ok"].toBool());
    EXPECT_EQ(run.json["error"].toString(), "");

    // Reference values from an independent implementation of the sRGB
    // decoding, the L*a*b* conversion (white 95.0, 100, 108.9) and CIEDE2000
    // (dC00 with S_L x 1000, dH00 with S_L and S_C x 1000).
    struct Reference
    {
        int patch;
        double L, a, b, dE00, dC00, dH00, saturation, rOverG, bOverG;
    };
    const Reference references[] = {
            {1, 38.0155681905, 11.8395810763, 13.6639463641, 0.527510430627, 0.33713769585,
             0.336825617798, 0.662826300438, 2.03186535156, 0.685091557599},
            {13, 30.3522176432, 26.4790211831, -49.6680457412, 2.96404719111, 2.90944654623,
             3.22352119472, 0.870334819016, 0.847448025516, 6.53566376944},
            {16, 80.7024727263, -3.59601309636, 77.555404608, 1.60690142961, 1.59558499396,
             1.5059358971, 0.982853164687, 1.39917352002, 0.0239913979228},
            {22, 51.1947408047, -0.149082633094, 0.545965235462, 0.863414878494, 0.800474603456,
             0.734531545567, 0.0175531075084, 1.0, 0.982446892492},
    };
    const QJsonArray patches = run.json["patches"].toArray();
    ASSERT_EQ(patches.size(), 24);
    for (const Reference &r : references) {
        const QJsonObject p = patches[r.patch - 1].toObject();
        EXPECT_EQ(p["patch"].toInt(), r.patch);
        const QPair<const char *, double> fields[] = {{"L", r.L},
                                                      {"a", r.a},
                                                      {"b", r.b},
                                                      {"dE00", r.dE00},
                                                      {"dC00", r.dC00},
                                                      {"dH00", r.dH00},
                                                      {"saturation", r.saturation},
                                                      {"rOverG", r.rOverG},
                                                      {"bOverG", r.bOverG}};
        for (const auto &f : fields)
            EXPECT_NEAR(p[f.first].toDouble(), f.second, 1e-9) << r.patch << " " << f.first;
    }
    EXPECT_EQ(patches[0].toObject()["pixels"].toInt(), 144);
    EXPECT_EQ(patches[1].toObject()["pixels"].toInt(), 110);
    const QJsonObject s = run.json["summary"].toObject();
    EXPECT_NEAR(s["dE00"]["maximum"].toDouble(), 2.96404719111, 1e-6);
    EXPECT_EQ(s["dE00"]["maximumIndex"].toInt(), 12);
    EXPECT_NEAR(s["dE00"]["average"].toDouble(), 1.41652598396, 1e-6);
    EXPECT_EQ(s["saturation"]["maximumIndex"].toInt(), -1);
}

TEST(ColordiffCommand, RefusalsPrintJsonAndExitTwo)
{
    QTemporaryDir dir;
    const auto chart = makeChart(kColours);
    const QString image = test::saveImage(dir, "chart.png", chart.image);
    QVector<QRectF> rects = toF(chart.rects);

    const CommandRun few = colordiff(image, writeRoi(dir, "few.roi", rects.mid(0, 23)));
    EXPECT_EQ(few.process.exitCode, 2);
    EXPECT_FALSE(few.json["ok"].toBool());
    EXPECT_EQ(few.json["error"].toString(),
              "Color difference process error : not enough regions to do Macbeth chart processing.");
    EXPECT_FALSE(few.json.contains("summary"));

    // Two regions off the image: both texts run together, the other patches
    // are still listed, the summary is left out.
    rects[2] = QRectF(chart.image.width() - 4, 10, 5, 5);
    rects[9] = QRectF(-0.5, 3, 4, 4);
    const CommandRun run = colordiff(image, writeRoi(dir, "off.roi", rects));
    EXPECT_EQ(run.process.exitCode, 2);
    EXPECT_FALSE(run.json["ok"].toBool());
    EXPECT_EQ(run.json["error"].toString(),
              QString("Invalid region:((%1, 10), (%2, 14))Invalid region:((-1, 3), (3, 6))")
                      .arg(chart.image.width() - 4)
                      .arg(chart.image.width()));
    const QJsonArray patches = run.json["patches"].toArray();
    ASSERT_EQ(patches.size(), 22);
    EXPECT_EQ(patches[2].toObject()["patch"].toInt(), 4);
    EXPECT_FALSE(run.json.contains("summary"));
}

TEST(ColordiffCommand, NonFiniteRatiosAndBadInput)
{
    QTemporaryDir dir;
    // All black: zero green gives 0/0 ratios, printed as "nan".
    std::array<QRgb, 24> black;
    black.fill(qRgb(0, 0, 0));
    const auto chart = makeChart(black);
    const QString roi = writeRoi(dir, "chart.roi", toF(chart.rects));
    const CommandRun run = colordiff(test::saveImage(dir, "black.png", chart.image), roi);
    ASSERT_EQ(run.process.exitCode, 0) << run.process.err.constData();
    EXPECT_EQ(run.json["patches"].toArray()[20].toObject()["rOverG"].toString(), "nan");
    EXPECT_EQ(run.json["summary"].toObject()["grayROverGAverage"].toString(), "nan");

    // Unreadable input and a usage error: stderr, exit 1, nothing on stdout.
    QFile truncated(dir.filePath("truncated.png"));
    ASSERT_TRUE(truncated.open(QIODevice::WriteOnly));
    truncated.write("\x89PNG\r\n\x1a\n\0\0", 10);
    truncated.close();
    for (const QStringList &args : {QStringList{"colordiff", truncated.fileName(), roi},
                                    QStringList{"colordiff", dir.filePath("black.png")}}) {
        const auto p = test::runProcess(test::measureToolPath(), args);
        EXPECT_EQ(p.exitCode, 1) << args.join(' ').toStdString();
        EXPECT_TRUE(p.out.isEmpty());
        EXPECT_FALSE(p.err.isEmpty());
    }
}

TEST(ColordiffCommand, RealChartPhotograph)
{
    // A full-size chart photographed rotated by 90 degrees clockwise: the
    // gray row runs down the left column (white at the top), patches 1-6 down
    // the right column. Regions are placed by hand inside the patches.
    const QString image = test::sharedDataPath("charts/plantcv_source1_img.png");
    if (!QFile::exists(image))
        GTEST_SKIP() << "no shared chart photographs";
    const int colX[4] = {164, 185, 206, 227};
    const int rowY[6] = {160, 181, 202, 224, 245, 266};
    QVector<QRectF> rects;
    for (int p = 0; p < 24; ++p)
        rects.append(QRectF(colX[3 - p / 6], rowY[p % 6], 12, 12));
    QTemporaryDir dir;
    const CommandRun run = colordiff(image, writeRoi(dir, "photo.roi", rects));
    ASSERT_EQ(run.process.exitCode, 0) << run.process.err.constData();
    const QJsonArray patches = run.json["patches"].toArray();
    ASSERT_EQ(patches.size(), 24);
    auto value = [&](int patch, const char *key) {
        return patches[patch - 1].toObject()[key].toDouble();
    };
    for (int p = 19; p < 24; ++p)
        EXPECT_GT(value(p, "L"), value(p + 1, "L")) << "gray row runs white to black";
    for (int p = 19; p <= 24; ++p)
        EXPECT_LT(value(p, "chroma"), 12.0) << p;
    EXPECT_GT(value(16, "b"), 40.0);  // yellow
    EXPECT_LT(value(13, "b"), -20.0); // blue
    EXPECT_GT(value(15, "a"), 30.0);  // red
    EXPECT_GT(value(14, "a"), -60.0);
    EXPECT_LT(value(14, "a"), -15.0); // green
    const QJsonObject s = run.json["summary"].toObject();
    EXPECT_LT(s["dE00"]["average"].toDouble(), 15.0);
    EXPECT_LT(s["dH00"]["average"].toDouble(), 6.0); // hues agree when the patch order is right
    EXPECT_GT(s["dE00"]["maximum"].toDouble(), s["dE00"]["percentile95"].toDouble() - 1e-6);
}

TEST(ColordiffCommand, ThresholdAndReport)
{
    QTemporaryDir dir;
    const auto chart = makeChart(kColours, 24, 8);
    const QString image = test::saveImage(dir, "chart.png", chart.image);
    QVector<QRectF> rects = toF(chart.rects);
    const QString roi = writeRoi(dir, "chart.roi", rects);
    auto run = [&](const QStringList &extra) {
        return test::runProcess(test::measureToolPath(),
                                QStringList{"colordiff", image, roi} + extra);
    };
    // The largest dE00 of this chart is 2.964 (patch 13).
    test::ProcessResult r = run({"--threshold", "3"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_FALSE(test::parseJsonOutput(r)["thresholdExceeded"].toBool());
    r = run({"--threshold", "2.9"});
    EXPECT_EQ(r.exitCode, 3);
    EXPECT_TRUE(test::parseJsonOutput(r)["thresholdExceeded"].toBool());
    r = run({"--threshold", "abc"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.out.isEmpty());

    // The report and its pictures, as the chart page writes them.
    const QString report = dir.filePath("run 1.a.html");
    r = run({"--report", report, "--threshold", "2.9"});
    ASSERT_EQ(r.exitCode, 3) << r.err.constData();
    QFile html(report);
    ASSERT_TRUE(html.open(QIODevice::ReadOnly));
    const QByteArray text = html.readAll();
    EXPECT_TRUE(text.contains("<title>Macbeth Color Chart Results</title>"));
    EXPECT_TRUE(text.contains("<img src=\".\\run 1_files\\run 1_macbethRegions.png\">"));
    for (const char *picture : {"run 1_macbethRegions.png", "run 1.png", "run 1_GrayChart.png"})
        EXPECT_GT(QFileInfo(dir.filePath(QString("run 1_files/") + picture)).size(), 0) << picture;

    // Nothing is written where it cannot be, nor when the chart is refused.
    r = run({"--report", dir.filePath("missing/r.html")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.err.contains("cannot write the report"));
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("missing")));
    rects[4] = QRectF(-5, 0, 4, 4);
    r = test::runProcess(test::measureToolPath(),
                         {"colordiff", image, writeRoi(dir, "off.roi", rects), "--report",
                          dir.filePath("off.html")});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("off.html")));
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("off_files")));
}
