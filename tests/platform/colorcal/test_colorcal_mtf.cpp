// CColorCalibrate::CalculateMTF on image files: argument order, quality
// figures, file names in any script, error texts, the decoded-image cache.

#include "slantededge.h"
#include "testsupport.h"

#include "platform/colorcal/colorcal.h"
#include "platform/colorcal/imagecache.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <QFile>
#include <QTemporaryDir>
#include <cmath>
#include <cstring>
#include <thread>
#include <vector>

using kestro::test::EdgeParams;
using kestro::test::makeEdgeImage;
using kestro::test::trueCrossing;

namespace {

struct Call
{
    unsigned count = 12345;
    std::vector<double> freq = std::vector<double>(1000, -1);
    std::vector<double> gray = std::vector<double>(1000, -1), red = gray, green = gray, blue = gray;
    double m50[5] = {}, m50p[5] = {}, m10[5] = {}, m10p[5] = {}, slope[5] = {}, contrast[5] = {};
    char error[1024];
    CColorCalibrate::MtfQuality quality = {{-1, -1, -1, -1}, {-1, -1, -1, -1}};
    bool ok = false;

    Call() { std::memset(error, 'x', sizeof error); }

    bool run(CColorCalibrate &cal, const QString &file, double gamma, QRect r)
    {
        const QByteArray name = QFile::encodeName(file);
        ok = cal.CalculateMTF(count, freq.data(), gray.data(), red.data(), green.data(),
                              blue.data(), m50, m50p, m10, m10p, slope, contrast, error, 1024,
                              name.constData(), gamma, r.left(), r.top(), r.width(), r.height(), 3,
                              &quality);
        return ok;
    }
    std::string text() const { return std::string(error); }
};

} // namespace

TEST(ColorcalMtf, ColourFileGivesCurvesInTheLibraryOrder)
{
    QTemporaryDir dir;
    // A name outside Latin-1 and with a space reaches the library intact.
    EdgeParams s;
    s.colour = true;
    s.sigma[0] = 0.6;
    s.sigma[1] = 1.0;
    s.sigma[2] = 1.6;
    s.width = 120;
    s.height = 160;
    s.angleDegrees = 6;
    const QImage picture = kestro::test::edgeInPicture(s, {240, 240}, {40, 30}, 90);
    const QString path = dir.filePath(QString::fromUtf8("\xd0\xba\xd1\x80\xd0\xb0\xd0\xb9 "
                                                        "\xe8\xbe\xb9\xe7\xbc\x98.png"));
    ASSERT_TRUE(picture.save(path, "PNG"));

    CColorCalibrate cal(nullptr);
    Call c;
    ASSERT_TRUE(c.run(cal, path, 1.0, QRect(40, 30, 120, 160)));
    EXPECT_EQ(c.text(), "");
    ASSERT_GT(c.count, 20u);
    ASSERT_LE(c.count, 1000u);
    EXPECT_EQ(c.freq[c.count], -1.0); // nothing written past the points
    for (int ch = 0; ch < 3; ++ch)
        EXPECT_NEAR(c.m50[ch] / trueCrossing(s.sigma[ch], 6, 0.5), 1.0, 0.01) << ch;
    // The red curve is the sharpest, blue the softest; gray comes first.
    const int i = static_cast<int>(c.count / 4);
    EXPECT_GT(c.red[i], c.green[i]);
    EXPECT_GT(c.green[i], c.blue[i]);
    EXPECT_LT(c.gray[i], c.red[i]);
    EXPECT_GT(c.gray[i], c.blue[i]);
    EXPECT_NEAR(c.slope[3], 6.0, 0.05);
    // Noise-free: no noise to compare the contrast with.
    EXPECT_TRUE(std::isinf(c.quality.cnr[3]));
    EXPECT_NEAR(c.quality.samplesPerBin[0], 160 * 0.25, 2);
}

TEST(ColorcalMtf, FailuresComeBackAsTexts)
{
    QTemporaryDir dir;
    CColorCalibrate cal(nullptr);
    // A truncated PNG.
    QByteArray png;
    QBuffer buffer(&png);
    ASSERT_TRUE(buffer.open(QIODevice::WriteOnly));
    ASSERT_TRUE(makeEdgeImage(EdgeParams()).save(&buffer, "PNG"));
    Call c;
    ASSERT_TRUE(c.run(cal, kestro::test::writeFile(dir, "cut.png", png.left(png.size() / 3)), 1.0,
                      QRect(0, 0, 50, 50)));
    EXPECT_NE(c.text(), "");
    EXPECT_EQ(c.count, 0u);
    EXPECT_EQ(c.quality.cnr[3], -1.0); // untouched on failure

    // A short error buffer still gets a terminated text.
    unsigned n = 0;
    double a[1000], m[5];
    char small[16];
    ASSERT_TRUE(cal.CalculateMTF(n, a, a, a, a, a, m, m, m, m, m, m, small, 16, "/nonexistent.png",
                                 1.0, 0, 0, 10, 10, 3));
    EXPECT_EQ(std::strlen(small), 15u);

    // Missing buffers are an internal fault.
    EXPECT_FALSE(cal.CalculateMTF(n, nullptr, a, a, a, a, m, m, m, m, m, m, small, 16, "x.png", 1.0,
                                  0, 0, 10, 10, 3));
}

TEST(ColorcalMtf, CacheFollowsTheFileOnDisk)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("edge.png");
    EdgeParams s;
    s.sigma[0] = 0.6;
    ASSERT_TRUE(makeEdgeImage(s).save(path));
    kestro::colorcal::clearImageCache();
    CColorCalibrate cal(nullptr);
    Call a;
    ASSERT_TRUE(a.run(cal, path, 1.0, QRect(0, 0, s.width, s.height)));
    ASSERT_EQ(a.text(), "");
    EXPECT_EQ(kestro::colorcal::imageCacheSize(), 1);

    // Replace the file with a blurrier edge: the next call sees the new one.
    s.sigma[0] = 1.5;
    s.noise = 0.5; // a different size on disk as well
    ASSERT_TRUE(makeEdgeImage(s).save(path));
    Call b;
    ASSERT_TRUE(b.run(cal, path, 1.0, QRect(0, 0, s.width, s.height)));
    ASSERT_EQ(b.text(), "");
    EXPECT_LT(b.m50[3], 0.7 * a.m50[3]);

    // The cache stays bounded.
    for (int i = 0; i < 8; ++i) {
        const QString other = dir.filePath(QString("e%1.png").arg(i));
        ASSERT_TRUE(makeEdgeImage(s).save(other));
        EXPECT_FALSE(kestro::colorcal::loadImageCached(other).isNull());
    }
    EXPECT_LE(kestro::colorcal::imageCacheSize(), 4);
}

TEST(ColorcalMtf, ConcurrentCallsOnOneFileAgree)
{
    QTemporaryDir dir;
    EdgeParams s;
    s.noise = 1;
    const QString path = dir.filePath("edge.png");
    ASSERT_TRUE(makeEdgeImage(s).save(path));
    kestro::colorcal::clearImageCache();
    CColorCalibrate cal(nullptr);
    Call calls[4];
    std::vector<std::thread> threads;
    for (Call &c : calls)
        threads.emplace_back([&] { c.run(cal, path, 1.0, QRect(0, 0, s.width, s.height)); });
    for (std::thread &t : threads)
        t.join();
    for (const Call &c : calls) {
        EXPECT_TRUE(c.ok);
        EXPECT_EQ(c.text(), "");
        EXPECT_EQ(c.m50[3], calls[0].m50[3]);
        EXPECT_EQ(c.quality.cnr[3], calls[0].quality.cnr[3]);
    }
    EXPECT_NEAR(calls[0].quality.cnr[3] / ((0.8 - 0.05) * 255), 1.0, 0.1);
}
