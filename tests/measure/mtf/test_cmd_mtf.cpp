// kestro-measure mtf, run as a process.

#include "../../platform/colorcal/slantededge.h"
#include "testsupport.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kestro::test;

namespace {

QString edgeFile(const QTemporaryDir &dir)
{
    EdgeParams s;
    s.width = 100;
    s.height = 120;
    s.angleDegrees = 5;
    s.sigma[0] = 0.8;
    QImage picture(260, 160, QImage::Format_Grayscale8);
    picture.fill(70);
    const QImage edge = makeEdgeImage(s);
    for (int y = 0; y < edge.height(); ++y)
        for (int x = 0; x < edge.width(); ++x)
            picture.scanLine(20 + y)[30 + x] = edge.constScanLine(y)[x];
    const QString path = dir.filePath("edge.png");
    EXPECT_TRUE(picture.save(path));
    return path;
}

} // namespace

TEST(MtfCommand, PrintsEveryRegionInOrder)
{
    QTemporaryDir dir;
    const QString image = edgeFile(dir);
    const QString roi = dir.filePath("regions.roi");
    QFile f(roi);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write("[patches]\n1\\left=200\n1\\top=0\n1\\width=50\n1\\height=50\nsize=1\n");
    f.close();
    const ProcessResult r = runProcess(measureToolPath(), {"mtf", image, "--roi", "30,20,100,120",
                                                           "--gamma", "1", "--roi-file", roi});
    EXPECT_EQ(r.exitCode, 2) << r.err.toStdString();
    const QJsonObject o = parseJsonOutput(r);
    EXPECT_FALSE(o["ok"].toBool());
    const QJsonArray regions = o["regions"].toArray();
    ASSERT_EQ(regions.size(), 2);

    const QJsonObject good = regions[0].toObject();
    EXPECT_EQ(good["rect"].toArray(), QJsonArray({30, 20, 100, 120}));
    EXPECT_TRUE(good["valid"].toBool());
    EXPECT_EQ(good["error"].toString(), "");
    const int n = good["pointCount"].toInt();
    EXPECT_GT(n, 20);
    EXPECT_EQ(good["frequencies"].toArray().size(), n);
    for (const char *c : {"red", "green", "blue", "gray"}) {
        EXPECT_EQ(good["curves"].toObject()[c].toArray().size(), n) << c;
        EXPECT_NEAR(good["mtf50"].toObject()[c].toDouble() / trueCrossing(0.8, 5, 0.5), 1.0, 0.005)
                << c;
        EXPECT_NEAR(good["slopeDegrees"].toObject()[c].toDouble(), 5.0, 0.05) << c;
    }
    EXPECT_NEAR(good["overshoot"].toObject()["gray"].toDouble(), 1.0, 1e-9);
    // Region centre (79, 79), picture centre (129, 79).
    EXPECT_DOUBLE_EQ(good["roiDistance"].toDouble(), 50.0);

    const QJsonObject flat = regions[1].toObject();
    EXPECT_FALSE(flat["valid"].toBool());
    EXPECT_NE(flat["error"].toString(), "");
    EXPECT_EQ(flat["frequencies"].toArray().size(), 0);
    EXPECT_TRUE(o["error"].toString().startsWith("region 2: "));
}

TEST(MtfCommand, UsageAndInputErrors)
{
    QTemporaryDir dir;
    const QString image = edgeFile(dir);
    EXPECT_EQ(runProcess(measureToolPath(), {"mtf"}).exitCode, 1);
    EXPECT_EQ(runProcess(measureToolPath(), {"mtf", image}).exitCode, 1); // no regions
    EXPECT_EQ(runProcess(measureToolPath(), {"mtf", image, "--roi", "1,2,3"}).exitCode, 1);
    EXPECT_EQ(runProcess(measureToolPath(), {"mtf", image, "--roi", "1,2,0,5"}).exitCode, 1);
    EXPECT_EQ(runProcess(measureToolPath(),
                         {"mtf", image, "--roi", "30,20,100,120", "--gamma", "-1"})
                      .exitCode,
              1);
    EXPECT_EQ(runProcess(measureToolPath(), {"mtf", image, "--roi", "30,20,100,120", "--bogus"})
                      .exitCode,
              1);
    const ProcessResult missing = runProcess(measureToolPath(), {"mtf", dir.filePath("none.png"),
                                                                 "--roi", "0,0,10,10"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_TRUE(missing.out.isEmpty());
    EXPECT_FALSE(missing.err.isEmpty());
    const ProcessResult ok = runProcess(measureToolPath(), {"mtf", image, "--roi", "30,20,100,120"});
    EXPECT_EQ(ok.exitCode, 0) << ok.err.toStdString();
    EXPECT_TRUE(parseJsonOutput(ok)["ok"].toBool());
}
