// kestro-measure ccm, run as a process: on a chart picture rendered through a
// known camera, on a shared photograph with detected regions, and refusals.

#include "ccmchart.h"
#include "testsupport.h"

#include "imaging/roifile.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kestro;
using namespace kestro::test;

namespace {

QJsonObject runCcm(const QStringList &args, int expectedExit = 0)
{
    const ProcessResult r = runProcess(measureToolPath(), QStringList{"ccm"} + args);
    EXPECT_EQ(r.exitCode, expectedExit) << r.err.constData();
    return expectedExit == 1 ? QJsonObject() : parseJsonOutput(r);
}

double maxNoiseGain(const QJsonObject &o)
{
    double m = 0.0;
    for (const QJsonValue &v : o["noiseGain"].toArray())
        m = std::max(m, v.toDouble());
    return m;
}

} // namespace

TEST(CcmCommand, FitsAChartSeenThroughAKnownCamera)
{
    QTemporaryDir dir;
    QVector<QRect> rects;
    // The colour model brings the chart's own (slightly tinted) grays.
    const ccm::Chart chart = renderChart(sampleMixing(), sampleGains(), 0.8, 0.0, 1, false);
    const QString image = saveImage(dir, QString::fromUtf8("карта %1.png"),
                                    renderChartImage(chart, 48, &rects));
    const QString roi = dir.filePath("chart.roi");
    ASSERT_TRUE(writeRoiFile(roi, QVector<QRectF>(rects.begin(), rects.end())));

    const QJsonObject plain = runCcm({image, roi});
    EXPECT_EQ(plain["matrix"].toArray().size(), 3);
    // The camera's own white balance: 1 / gain relative to green.
    const QJsonArray gains = plain["gains"].toArray();
    EXPECT_EQ(gains[1].toDouble(), 1.0);
    EXPECT_NEAR(gains[0].toDouble(), 1.0 / 0.55, 0.05);
    EXPECT_NEAR(gains[2].toDouble(), 1.0 / 0.75, 0.05);
    const QJsonObject de = plain["deltaE00"].toObject();
    EXPECT_GT(de["before"].toObject()["mean"].toDouble(), 10.0);
    EXPECT_LT(de["after"].toObject()["mean"].toDouble(), 0.8);
    EXPECT_TRUE(plain["excluded"].toArray().isEmpty());

    const QJsonObject ridged = runCcm({image, roi, "--fit", "de00", "--ridge", "0.01"});
    EXPECT_LT(maxNoiseGain(ridged), maxNoiseGain(plain));
}

TEST(CcmCommand, FitsAPhotographWithDetectedRegions)
{
    const QString photo = sharedDataPath("charts/jtvd_classic_10.jpg");
    if (!QFileInfo::exists(photo))
        GTEST_SKIP() << "no shared photographs";
    const QJsonObject detected = parseJsonOutput(runProcess(measureToolPath(), {"detect", photo}));
    ASSERT_EQ(detected["found"].toInt(), 24);
    QVector<QRectF> regions;
    for (const QJsonValue &v : detected["regions"].toArray()) {
        const QJsonArray r = v.toArray();
        regions << QRectF(r[0].toDouble(), r[1].toDouble(), r[2].toDouble(), r[3].toDouble());
    }
    QTemporaryDir dir;
    const QString roi = dir.filePath("photo.roi");
    ASSERT_TRUE(writeRoiFile(roi, regions));
    const QJsonObject ls = runCcm({photo, roi});
    const QJsonObject de = runCcm({photo, roi, "--fit", "de00"});
    auto mean = [](const QJsonObject &o, const char *when) {
        return o["deltaE00"].toObject()[when].toObject()["mean"].toDouble();
    };
    EXPECT_EQ(mean(ls, "before"), mean(de, "before"));
    EXPECT_LT(mean(de, "after"), mean(ls, "after"));
    EXPECT_LT(mean(de, "after"), mean(de, "before"));
}

TEST(CcmCommand, RefusesWhatItCannotFit)
{
    QTemporaryDir dir;
    QVector<QRect> rects;
    ccm::Chart flat = renderChart(sampleMixing(), sampleGains(), 0.8);
    for (ccm::Vec3 &m : flat.measured)
        m = {0.45, 0.5, 0.4};
    const QString image = saveImage(dir, "flat.png", renderChartImage(flat, 16, &rects));
    const QString roi = dir.filePath("flat.roi");
    ASSERT_TRUE(writeRoiFile(roi, QVector<QRectF>(rects.begin(), rects.end())));
    EXPECT_TRUE(runCcm({image, roi}, 2)["error"].toString().contains("do not span the colors"));

    const QString outside = dir.filePath("outside.roi");
    QVector<QRectF> shifted(rects.begin(), rects.end());
    shifted[3].translate(5000, 0);
    ASSERT_TRUE(writeRoiFile(outside, shifted));
    EXPECT_TRUE(runCcm({image, outside}, 2)["error"].toString().contains("Invalid region"));
    runCcm({image, roi, "--fit", "cubic"}, 1);
}
