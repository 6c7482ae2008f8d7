#include "imaging/frame.h"
#include "imaging/srgb.h"
#include "testsupport.h"

#include <QTemporaryDir>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>

using kestro::test::saveImage;

namespace {

QImage gradient(int w, int h, QImage::Format format)
{
    QImage img(w, h, QImage::Format_ARGB32);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            img.setPixel(x, y, qRgba((x * 37 + y) & 255, (y * 11) & 255, (x * y) & 255, 255));
    return img.convertToFormat(format);
}

} // namespace

TEST(Frame, ImageFormatRules)
{
    QTemporaryDir dir;
    CFrame frame;
    EXPECT_EQ(frame.kind(), 3u);
    EXPECT_FALSE(frame.isValid());

    // A 16-bit RGB picture becomes 32-bit ARGB with kind 3.
    const QImage rgb16 = gradient(21, 13, QImage::Format_RGB16);
    QFile::remove(dir.filePath("x"));
    ASSERT_TRUE(frame.setFromImage(rgb16));
    EXPECT_EQ(frame.image().format(), QImage::Format_ARGB32);
    EXPECT_EQ(frame.kind(), 3u);
    EXPECT_EQ(frame.bitsPerPixel(), 32);
    EXPECT_EQ(frame.bytesPerLine(), 21 * 4);
    EXPECT_EQ(frame.dataSize(), 21 * 4 * 13);

    // A 1-bit picture is refused.
    const QImage mono = gradient(16, 8, QImage::Format_Mono);
    EXPECT_FALSE(frame.setFromImage(mono));
    EXPECT_FALSE(frame.isValid());
    // So is a format above the premultiplied range.
    EXPECT_FALSE(frame.setFromImage(gradient(8, 8, QImage::Format_RGBX8888)));

    // An indexed gray BMP keeps its format with kind 1 and 8 bits.
    const QString grayPath = saveImage(dir, "gray.bmp",
                                       gradient(10, 6, QImage::Format_Grayscale8)
                                               .convertToFormat(QImage::Format_Indexed8));
    ASSERT_TRUE(frame.load(grayPath));
    EXPECT_EQ(frame.image().format(), QImage::Format_Indexed8);
    EXPECT_EQ(frame.kind(), 1u);
    EXPECT_EQ(frame.bitsPerPixel(), 8);
    EXPECT_EQ(frame.bytesPerPixel(), 1);
    EXPECT_EQ(frame.fileName(), grayPath);
    EXPECT_EQ(frame.linearData(), nullptr);

    // A missing file and an upper-case RAW suffix holding no picture fail.
    EXPECT_FALSE(frame.load(dir.filePath("missing.png")));
    QFile raw(dir.filePath("frame.RAW"));
    ASSERT_TRUE(raw.open(QIODevice::WriteOnly));
    raw.write(QByteArray(644 * 484 * 2, '\x10'));
    raw.close();
    EXPECT_FALSE(frame.load(raw.fileName()));
    EXPECT_FALSE(frame.isValid());

    // A corrupt picture (a truncated PNG) fails cleanly.
    QFile truncated(dir.filePath("cut.png"));
    QFile whole(saveImage(dir, "whole.png", gradient(64, 64, QImage::Format_ARGB32)));
    ASSERT_TRUE(whole.open(QIODevice::ReadOnly));
    ASSERT_TRUE(truncated.open(QIODevice::WriteOnly));
    truncated.write(whole.read(40));
    truncated.close();
    EXPECT_FALSE(frame.load(truncated.fileName()));
}

TEST(Frame, BytesPerPixelFromDepth)
{
    EXPECT_EQ(bytesPerPixelForBits(1), 1);
    EXPECT_EQ(bytesPerPixelForBits(8), 1);
    EXPECT_EQ(bytesPerPixelForBits(12), 2);
    EXPECT_EQ(bytesPerPixelForBits(16), 2);
    EXPECT_EQ(bytesPerPixelForBits(24), 3);
    EXPECT_EQ(bytesPerPixelForBits(32), 4);
    EXPECT_EQ(bytesPerPixelForBits(48), 1);
    EXPECT_EQ(bytesPerPixelForBits(64), 1);
}

TEST(Frame, LinearCopyDecodesEveryColourByte)
{
    QTemporaryDir dir;
    const QImage picture = gradient(33, 7, QImage::Format_ARGB32);
    CFrame frame;
    ASSERT_TRUE(frame.load(saveImage(dir, "p.png", picture)));
    const std::uint8_t *lin = frame.linearData();
    ASSERT_NE(lin, nullptr);
    EXPECT_EQ(frame.linearSize(), frame.dataSize());
    EXPECT_EQ(frame.linearStride(), frame.bytesPerLine());
    EXPECT_EQ(frame.linearData(), lin); // cached

    const std::uint8_t *src = frame.data();
    for (int y = 0; y < frame.height(); ++y) {
        for (int x = 0; x < frame.width(); ++x) {
            const int o = y * frame.bytesPerLine() + 4 * x;
            for (int k = 0; k < 3; ++k) {
                const double v = src[o + k] / 255.0;
                const double linear = v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
                ASSERT_EQ(lin[o + k], static_cast<int>(std::floor(linear * 255.0 + 0.5)))
                        << x << "," << y;
            }
            ASSERT_EQ(lin[o + 3], 0);
        }
    }
    // A copy carries the linear buffer byte for byte, in its own memory.
    CFrame copy(frame);
    EXPECT_TRUE(copy.isValid());
    EXPECT_NE(copy.linearData(), lin);
    EXPECT_EQ(0, std::memcmp(copy.linearData(), lin, frame.linearSize()));
    EXPECT_EQ(copy.fileName(), frame.fileName());
    EXPECT_TRUE(copy.isCompatible(frame));
}

TEST(Frame, CompatibilityRule)
{
    QTemporaryDir dir;
    const QString a = saveImage(dir, "a.png", gradient(20, 10, QImage::Format_ARGB32));
    const QString b = saveImage(dir, "b.png", gradient(20, 11, QImage::Format_ARGB32));
    CFrame f1, f2, f3, empty;
    ASSERT_TRUE(f1.load(a));
    ASSERT_TRUE(f2.load(a));
    ASSERT_TRUE(f3.load(b));
    EXPECT_TRUE(f1.isCompatible(f2));
    EXPECT_TRUE(f1.isCompatible(f1));
    EXPECT_FALSE(f1.isCompatible(f3));
    EXPECT_FALSE(empty.isCompatible(empty));
    EXPECT_FALSE(f1.isCompatible(empty));
    ASSERT_TRUE(f2.setFromImage(gradient(20, 10, QImage::Format_ARGB32), 7));
    EXPECT_FALSE(f1.isCompatible(f2)); // tags differ
}

TEST(Frame, ChannelNames)
{
    EXPECT_EQ(channelName(0, 5), "Mono");
    EXPECT_EQ(channelName(4, 0), "Mono");
    EXPECT_EQ(channelName(1, 0), "BayerR");
    EXPECT_EQ(channelName(10, 3), "BayerB");
    EXPECT_EQ(channelName(7, 5), "P2");
    EXPECT_EQ(channelName(8, 6), "---");
    EXPECT_EQ(channelName(2, 2), "Cr");
    EXPECT_EQ(channelName(6, 3), "---");
    EXPECT_EQ(channelName(3, 1), "Green");
    EXPECT_EQ(channelName(9, 4), "IR");
    EXPECT_EQ(channelName(9, -1), "---");
    EXPECT_EQ(channelName(11, 0), "---");
}
