// kestro-measure mtf, run as a process.

#include "../../platform/colorcal/slantededge.h"
#include "testsupport.h"

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
    QImage picture(260, 160, QImage::Format_Grayscale8);
    picture.fill(70);
    const QImage edge = makeEdgeImage(s);
    for (int y = 0; y < edge.height(); ++y)
        for (int x = 0; x < edge.width(); ++x)
            picture.scanLine(20 + y)[30 + x] = edge.constScanLine(y)[x];
    return saveImage(dir, name, picture);
}

QByteArray roiFile(int count, int left, int top, int width, int height)
{
    QByteArray text = "[patches]\n";
    for (int i = 1; i <= count; ++i)
        text += QByteArray::number(i) + "\\left=" + QByteArray::number(left) + "\n"
                + QByteArray::number(i) + "\\top=" + QByteArray::number(top) + "\n"
                + QByteArray::number(i) + "\\width=" + QByteArray::number(width) + "\n"
                + QByteArray::number(i) + "\\height=" + QByteArray::number(height) + "\n";
    return text + "size=" + QByteArray::number(count) + "\n";
}

} // namespace

// Names in Cyrillic and Chinese, with a space and a %1, for the picture and
// the ROI file alike.
TEST(MtfCommand, PrintsEveryRegionInOrderWithItsQuality)
{
    QTemporaryDir dir;
    const QString image = edgeFile(dir,
                                   QString::fromUtf8(
                                           "\xd0\xba\xd1\x80\xd0\xb0\xd0\xb9 %1 \xe8\xbe\xb9.png"));
    const QString roi = writeFile(dir, QString::fromUtf8("\xd0\xbe\xd0\xb1 %2.roi"),
                                  roiFile(1, 200, 0, 50, 50));
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
}

// Regions are written as they are computed: a ROI file of 12,000 refused
// regions runs in a few tens of megabytes, where keeping every region's
// calculation (48 KB each) would take 600.
TEST(MtfCommand, ManyRegionsStayWithinBoundedMemory)
{
    QTemporaryDir dir;
    const QString image = edgeFile(dir, "edge.png");
    const QString roi = writeFile(dir, "many.roi", roiFile(12000, 200, 0, 50, 50));
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

TEST(MtfCommand, UsageAndInputErrorsGoToStderr)
{
    QTemporaryDir dir;
    const QString image = edgeFile(dir, "edge.png");
    // A gamma the engine would refuse is refused as an argument; a missing
    // picture is an input error.
    for (const QStringList &args :
         {QStringList{"mtf", image, "--roi", "30,20,100,120", "--gamma", "0"},
          QStringList{"mtf", dir.filePath("none.png"), "--roi", "0,0,10,10"}}) {
        const ProcessResult r = runProcess(measureToolPath(), args);
        EXPECT_EQ(r.exitCode, 1) << args.join(' ').toStdString();
        EXPECT_TRUE(r.out.isEmpty());
        EXPECT_FALSE(r.err.isEmpty());
    }
}
