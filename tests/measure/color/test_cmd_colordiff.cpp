// kestro-measure colordiff run as a process on generated charts and on a real
// chart photograph.

#include "chartimage.h"
#include "measure/color/macbethcolordifference.h"
#include "testsupport.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <cmath>

using namespace kestro;
using kestro::test::makeChart;

namespace {

const std::array<QRgb, 24> kColours
        = {qRgb(115, 82, 68),   qRgb(194, 150, 130), qRgb(98, 122, 157),  qRgb(87, 108, 67),
           qRgb(133, 128, 177), qRgb(103, 189, 170), qRgb(214, 126, 44),  qRgb(80, 91, 166),
           qRgb(193, 90, 99),   qRgb(94, 60, 108),   qRgb(157, 188, 64),  qRgb(224, 163, 46),
           qRgb(56, 61, 150),   qRgb(70, 148, 73),   qRgb(175, 54, 60),   qRgb(231, 199, 31),
           qRgb(187, 86, 149),  qRgb(8, 133, 161),   qRgb(243, 243, 242), qRgb(200, 200, 200),
           qRgb(160, 160, 160), qRgb(122, 122, 121), qRgb(85, 85, 85),    qRgb(52, 52, 52)};

QString writeRoi(const QTemporaryDir &dir, const QString &name, const QVector<QRectF> &rects)
{
    const QString path = dir.filePath(name);
    QSettings s(path, QSettings::IniFormat);
    s.beginWriteArray("patches");
    for (int i = 0; i < rects.size(); ++i) {
        s.setArrayIndex(i);
        s.setValue("left", rects[i].left());
        s.setValue("top", rects[i].top());
        s.setValue("width", rects[i].width());
        s.setValue("height", rects[i].height());
    }
    s.endArray();
    s.sync();
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

TEST(ColordiffCommand, GeneratedChartMatchesTheModel)
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

    chart.rects[1] = QRect(int(rects[1].left()), int(rects[1].top()), 11, 10);
    QStdMacbethChartColorDifference model;
    ASSERT_TRUE(model.setMeasuredRegions(chart.image, chart.rects));
    model.calculateStatistics();

    const QJsonArray patches = run.json["patches"].toArray();
    ASSERT_EQ(patches.size(), 24);
    for (int i = 0; i < 24; ++i) {
        const QJsonObject p = patches[i].toObject();
        const MacbethPatch &m = model.patch(i);
        EXPECT_EQ(p["patch"].toInt(), i + 1);
        // %.17g round-trips: the numbers are the model's to the last bit.
        EXPECT_EQ(p["R"].toDouble(), m.R);
        EXPECT_EQ(p["L"].toDouble(), m.L);
        EXPECT_EQ(p["b"].toDouble(), m.b);
        EXPECT_EQ(p["refA"].toDouble(), m.refA);
        EXPECT_EQ(p["dE00"].toDouble(), m.dE00);
        EXPECT_EQ(p["dC00"].toDouble(), m.dC00);
        EXPECT_EQ(p["dH00"].toDouble(), m.dH00);
        EXPECT_EQ(p["saturation"].toDouble(), m.saturation);
        EXPECT_EQ(p["chroma"].toDouble(), m.chroma);
        EXPECT_EQ(p["rOverG"].toDouble(), m.rOverG);
        EXPECT_EQ(p["bOverG"].toDouble(), m.bOverG);
        EXPECT_EQ(p["pixels"].toInt(), i == 1 ? 110 : 144);
    }
    const QJsonObject s = run.json["summary"].toObject();
    const ColorDifferenceSummary &ms = model.summary();
    EXPECT_EQ(s["dE00"]["average"].toDouble(), double(ms.dE00Average));
    EXPECT_EQ(s["dE00"]["percentile95"].toDouble(), double(ms.dE00Percentile95));
    EXPECT_EQ(s["dE00"]["maximumIndex"].toInt(), ms.dE00MaximumIndex);
    EXPECT_EQ(s["dH00"]["minimumIndex"].toInt(), ms.dH00MinimumIndex);
    EXPECT_EQ(s["saturation"]["maximumIndex"].toInt(), -1);
    EXPECT_EQ(s["saturation"]["minimumIndex"].toInt(), ms.saturationMinimumIndex);
    EXPECT_EQ(s["grayBOverGAverage"].toDouble(), double(ms.grayBOverGAverage));
}

TEST(ColordiffCommand, RefusalsPrintJsonAndExitTwo)
{
    QTemporaryDir dir;
    const auto chart = makeChart(kColours);
    const QString image = test::saveImage(dir, "chart.png", chart.image);
    QVector<QRectF> rects = toF(chart.rects);

    for (int n : {23, 25, 0}) {
        QVector<QRectF> some = rects;
        some.resize(n);
        if (n == 25)
            some[24] = QRectF(1, 1, 2, 2);
        const CommandRun run = colordiff(image, writeRoi(dir, QString("n%1.roi").arg(n), some));
        EXPECT_EQ(run.process.exitCode, 2) << n;
        EXPECT_FALSE(run.json["ok"].toBool());
        EXPECT_EQ(run.json["error"].toString(),
                  "Color difference process error : not enough regions to do Macbeth chart processing.");
        EXPECT_FALSE(run.json.contains("summary"));
        EXPECT_TRUE(run.process.err.contains(QByteArray::number(n)));
    }

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

TEST(ColordiffCommand, DegenerateImagesAndBadArguments)
{
    QTemporaryDir dir;
    // All black: zero green gives 0/0 ratios, printed as "nan".
    std::array<QRgb, 24> black;
    black.fill(qRgb(0, 0, 0));
    auto chart = makeChart(black);
    const QString roi = writeRoi(dir, "chart.roi", toF(chart.rects));
    CommandRun run = colordiff(test::saveImage(dir, "black.png", chart.image), roi);
    ASSERT_EQ(run.process.exitCode, 0) << run.process.err.constData();
    EXPECT_EQ(run.json["patches"].toArray()[20].toObject()["rOverG"].toString(), "nan");
    EXPECT_EQ(run.json["summary"].toObject()["grayROverGAverage"].toString(), "nan");

    // A gray patch with zero green only: infinite ratios.
    auto colours = kColours;
    colours[19] = qRgb(90, 0, 30);
    run = colordiff(test::saveImage(dir, "nogreen.png", makeChart(colours).image), roi);
    ASSERT_EQ(run.process.exitCode, 0);
    EXPECT_EQ(run.json["patches"].toArray()[19].toObject()["bOverG"].toString(), "inf");
    EXPECT_EQ(run.json["summary"].toObject()["grayROverGAverage"].toString(), "inf");

    // A palette image gives the same numbers as the RGB one.
    const auto indexed = makeChart(kColours, 12, 4, QImage::Format_Indexed8);
    const CommandRun a = colordiff(test::saveImage(dir, "rgb.png", makeChart(kColours).image), roi);
    const CommandRun b = colordiff(test::saveImage(dir, "indexed.png", indexed.image), roi);
    ASSERT_EQ(b.process.exitCode, 0) << b.process.err.constData();
    EXPECT_EQ(a.json["summary"], b.json["summary"]);
    EXPECT_EQ(a.json["patches"], b.json["patches"]);

    // Unreadable input and usage errors: stderr, exit 1, nothing on stdout.
    QFile truncated(dir.filePath("truncated.png"));
    ASSERT_TRUE(truncated.open(QIODevice::WriteOnly));
    truncated.write("\x89PNG\r\n\x1a\n\0\0", 10);
    truncated.close();
    const QString image = dir.filePath("rgb.png");
    for (const QStringList &args :
         {QStringList{"colordiff", truncated.fileName(), roi},
          QStringList{"colordiff", image, dir.filePath("none.roi")},
          QStringList{"colordiff", dir.filePath("none.png"), roi}, QStringList{"colordiff", image},
          QStringList{"colordiff", image, roi, roi}}) {
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
