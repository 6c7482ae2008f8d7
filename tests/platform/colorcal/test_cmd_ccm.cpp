// kestro-measure ccm run as a process: a chart picture rendered through a
// known camera is fitted; a chart it cannot fit is refused (status 2); a bad
// option is a usage error (status 1).

#include "ccmchart.h"
#include "testsupport.h"

#include "imaging/roifile.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kestro;
using namespace kestro::test;

TEST(CcmCommand, FitsRefusesAndRejects)
{
    QTemporaryDir dir;
    auto chartFiles = [&](const ccm::Chart &chart, const QString &name) {
        QVector<QRect> rects;
        const QString image = saveImage(dir, name + ".png", renderChartImage(chart, 48, &rects));
        EXPECT_TRUE(writeRoiFile(dir.filePath(name + ".roi"),
                                 QVector<QRectF>(rects.begin(), rects.end())));
        return QStringList{"ccm", image, dir.filePath(name + ".roi")};
    };
    // The colour model brings the chart's own (slightly tinted) grays.
    const ccm::Chart chart = renderChart(sampleMixing(), sampleGains(), 0.8, 0.0, 1, false);
    ProcessResult r = runProcess(measureToolPath(),
                                 chartFiles(chart, QString::fromUtf8("карта %1")));
    ASSERT_EQ(r.exitCode, 0) << r.err.constData();
    const QJsonObject fit = parseJsonOutput(r);
    EXPECT_EQ(fit["matrix"].toArray().size(), 3);
    // The camera's own white balance: 1 / gain relative to green.
    const QJsonArray gains = fit["gains"].toArray();
    EXPECT_EQ(gains[1].toDouble(), 1.0);
    EXPECT_NEAR(gains[0].toDouble(), 1.0 / 0.55, 0.05);
    EXPECT_NEAR(gains[2].toDouble(), 1.0 / 0.75, 0.05);
    const QJsonObject de = fit["deltaE00"].toObject();
    EXPECT_GT(de["before"].toObject()["mean"].toDouble(), 10.0);
    EXPECT_LT(de["after"].toObject()["mean"].toDouble(), 0.8);

    ccm::Chart flat = chart;
    for (ccm::Vec3 &m : flat.measured)
        m = {0.45, 0.5, 0.4};
    r = runProcess(measureToolPath(), chartFiles(flat, "flat"));
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_TRUE(parseJsonOutput(r)["error"].toString().contains("do not span the colors"));

    r = runProcess(measureToolPath(), chartFiles(chart, "chart") + QStringList{"--fit", "cubic"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.out.isEmpty());
}
