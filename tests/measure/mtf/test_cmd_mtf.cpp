// kestro-measure mtf, run as a process.

#include "../../platform/colorcal/slantededge.h"
#include "testsupport.h"

#include "imaging/roifile.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kestro::test;

namespace {

// A 260 x 160 picture with one edge (sigma 0.8, leaning 5 degrees) at
// (30, 20), 100 x 120 pixels.
QString edgeFile(const QTemporaryDir &dir, const QString &name)
{
    EdgeParams s;
    s.width = 100;
    s.height = 120;
    s.angleDegrees = 5;
    s.sigma[0] = 0.8;
    s.noise = 1;
    return saveImage(dir, name, edgeInPicture(s, {260, 160}, {30, 20}, 70));
}

// A ROI file of `count` copies of one 50 x 50 region on the flat part.
QString roiFile(const QTemporaryDir &dir, const QString &name, int count)
{
    const QString path = dir.filePath(name);
    EXPECT_TRUE(kestro::writeRoiFile(path, QVector<QRectF>(count, QRectF(200, 0, 50, 50))));
    return path;
}

} // namespace

// Names in Cyrillic and Chinese, with a space and a %1, for the picture and
// the ROI file alike; usage and input errors.
TEST(MtfCommand, PrintsEveryRegionInOrderWithItsQuality)
{
    QTemporaryDir dir;
    const QString image = edgeFile(dir,
                                   QString::fromUtf8(
                                           "\xd0\xba\xd1\x80\xd0\xb0\xd0\xb9 %1 \xe8\xbe\xb9.png"));
    const QString roi = roiFile(dir, QString::fromUtf8("\xd0\xbe\xd0\xb1 %2.roi"), 1);
    const ProcessResult r = runProcess(measureToolPath(), {"mtf", image, "--roi", "30,20,100,120",
                                                           "--gamma", "1", "--roi-file", roi});
    EXPECT_EQ(r.exitCode, 2) << r.err.toStdString();
    const QJsonObject o = parseJsonOutput(r);
    EXPECT_FALSE(o["ok"].toBool());
    EXPECT_TRUE(o["error"].toString().startsWith("region 2: "));
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
        EXPECT_NEAR(good["mtf50"].toObject()[c].toDouble() / trueCrossing(0.8, 5, 0.5), 1.0, 0.01)
                << c;
        EXPECT_NEAR(good["slopeDegrees"].toObject()[c].toDouble(), 5.0, 0.1) << c;
    }
    // The gray curve's peak itself; the colours' peaks less one.
    EXPECT_NEAR(good["overshoot"].toObject()["gray"].toDouble(), 1.0, 0.05);
    EXPECT_NEAR(good["overshoot"].toObject()["red"].toDouble(), 0.0, 0.05);
    // Region centre (79, 79), picture centre (129, 79).
    EXPECT_DOUBLE_EQ(good["roiDistance"].toDouble(), 50.0);
    // Light minus dark (0.75 of full scale) over 1 DN of noise and rounding.
    const QJsonObject quality = good["quality"].toObject();
    EXPECT_NEAR(quality["cnr"].toDouble() / (0.75 * 255 / 1.04), 1.0, 0.1);
    EXPECT_NEAR(quality["samplesPerBin"].toDouble(), 120 * 0.25, 3);

    const QJsonObject flat = regions[1].toObject();
    EXPECT_FALSE(flat["valid"].toBool());
    EXPECT_NE(flat["error"].toString(), "");
    EXPECT_EQ(flat["frequencies"].toArray().size(), 0);
    EXPECT_EQ(flat["quality"].toObject()["cnr"].toString(), "nan");

    // A gamma the engine would refuse is refused as an argument; a missing
    // picture is an input error.
    for (const QStringList &args :
         {QStringList{"mtf", image, "--roi", "30,20,100,120", "--gamma", "0"},
          QStringList{"mtf", dir.filePath("none.png"), "--roi", "0,0,10,10"}}) {
        const ProcessResult e = runProcess(measureToolPath(), args);
        EXPECT_EQ(e.exitCode, 1) << args.join(' ').toStdString();
        EXPECT_TRUE(e.out.isEmpty());
        EXPECT_FALSE(e.err.isEmpty());
    }
}

// Regions are written as they are computed: a ROI file of 12,000 refused
// regions runs in a few tens of megabytes, where keeping every region's
// calculation (48 KB each) would take 600.
TEST(MtfCommand, ManyRegionsStayWithinBoundedMemory)
{
    QTemporaryDir dir;
    const QString image = edgeFile(dir, "edge.png");
    const QString roi = roiFile(dir, "many.roi", 12000);
    QString command = "exec \"$0\" mtf \"$1\" --roi-file \"$2\"";
    // Sanitizer runtimes reserve terabytes of address space up front: the
    // limit only holds for plain builds (GCC and clang name them apart).
    bool sanitized = false;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    sanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
    sanitized = true;
#endif
#endif
    if (!sanitized)
        command.prepend("ulimit -v 300000; "); // kilobytes of address space
    const ProcessResult r = runProcess("/bin/sh", {"-c", command, measureToolPath(), image, roi});
    EXPECT_EQ(r.exitCode, 2) << r.err.toStdString();
    const QJsonObject o = parseJsonOutput(r);
    EXPECT_EQ(o["regions"].toArray().size(), 12000);
    EXPECT_FALSE(o["ok"].toBool());
}
