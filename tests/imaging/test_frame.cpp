#include "imaging/frame.h"
#include "testsupport.h"

#include <QTemporaryDir>
#include <atomic>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

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

TEST(Frame, ColourFormatsBecomeArgb32AndOneBitIsRefused)
{
    CFrame frame;
    const QImage source = gradient(21, 13, QImage::Format_RGBA64);
    ASSERT_TRUE(frame.setFromImage(source));
    EXPECT_EQ(frame.image(), source.convertToFormat(QImage::Format_ARGB32));

    EXPECT_FALSE(frame.setFromImage(gradient(16, 8, QImage::Format_Mono)));
    EXPECT_EQ(frame.error(), FrameError::UnsupportedFormat);
    EXPECT_EQ(frame.data(), nullptr);
}

TEST(Frame, GrayAndSixteenBitFilesLoadWithTheRightValues)
{
    QTemporaryDir dir;
    CFrame frame;
    // An indexed gray BMP keeps its format; gray PNG (8 and 16 bits) becomes
    // 8-bit indexed gray, 16-bit samples rounded (v / 257, half up).
    const QImage gray8 = gradient(10, 6, QImage::Format_Grayscale8);
    for (const char *name : {"g.bmp", "g.png"}) {
        const bool bmp = name[2] == 'b';
        ASSERT_TRUE(frame.load(
                saveImage(dir, name, bmp ? gray8.convertToFormat(QImage::Format_Indexed8) : gray8)));
        EXPECT_EQ(frame.image().format(), QImage::Format_Indexed8) << name;
        EXPECT_EQ(frame.kind(), 1u) << name;
        EXPECT_EQ(frame.linearData(), nullptr);
        for (int i = 0; i < 60; ++i)
            ASSERT_EQ(qGray(frame.image().pixel(i % 10, i / 10)), qGray(gray8.pixel(i % 10, i / 10)))
                    << name;
    }
    const quint16 samples[] = {0, 128, 129, 385, 386, 32767, 65406, 65535};
    const int wideExpected[] = {0, 0, 1, 1, 2, 127, 254, 255};
    QImage wide(8, 1, QImage::Format_Grayscale16);
    std::memcpy(wide.scanLine(0), samples, sizeof samples);
    ASSERT_TRUE(frame.load(saveImage(dir, "w.png", wide)));
    EXPECT_EQ(frame.image().format(), QImage::Format_Indexed8);
    for (int x = 0; x < 8; ++x)
        EXPECT_EQ(qGray(frame.image().pixel(x, 0)), wideExpected[x]) << "x=" << x;
}

TEST(Frame, FailuresSayWhy)
{
    QTemporaryDir dir;
    CFrame frame;
    EXPECT_FALSE(frame.load(dir.filePath("missing.png")));
    EXPECT_EQ(frame.error(), FrameError::Missing);

    // An upper-case RAW suffix is not a raw file: the picture decoders refuse it.
    EXPECT_FALSE(frame.load(
            kestro::test::writeFile(dir, "frame.RAW", QByteArray(644 * 484 * 2, '\x10'))));
    EXPECT_EQ(frame.error(), FrameError::Undecodable);

    // A truncated PNG keeps the decoder's reason.
    QFile whole(saveImage(dir, "whole.png", gradient(64, 64, QImage::Format_ARGB32)));
    ASSERT_TRUE(whole.open(QIODevice::ReadOnly));
    const QString cut = kestro::test::writeFile(dir, "cut.png", whole.read(40));
    EXPECT_FALSE(frame.load(cut));
    EXPECT_NE(frame.errorText(), frameErrorText(FrameError::Undecodable, cut));
    EXPECT_TRUE(frame.errorText().startsWith(QStringLiteral("cannot load ") + cut));

    // A named pipe is refused as a raw file too, without waiting.
    EXPECT_FALSE(frame.load(kestro::test::makeFifo(dir, "pipe.raw")));
    EXPECT_EQ(frame.error(), FrameError::NotRegularFile);
}

TEST(Frame, LinearCopyDecodesEveryColourByte)
{
    QTemporaryDir dir;
    const QImage picture = gradient(33, 7, QImage::Format_ARGB32);
    CFrame frame;
    ASSERT_TRUE(frame.load(saveImage(dir, "p.png", picture)));
    const std::uint8_t *lin = frame.linearData();
    ASSERT_NE(lin, nullptr);
    EXPECT_EQ(frame.linearData(), lin); // cached

    const std::uint8_t *src = frame.data();
    for (int y = 0; y < frame.height(); ++y) {
        for (int x = 0; x < frame.width(); ++x) {
            const int o = y * frame.bytesPerLine() + 4 * x;
            for (int k = 0; k < 3; ++k) {
                const double linear = kestro::test::srgbByteDecodeReference(src[o + k]);
                ASSERT_EQ(lin[o + k], static_cast<int>(std::floor(linear * 255.0 + 0.5)))
                        << x << "," << y;
            }
            ASSERT_EQ(lin[o + 3], 0);
        }
    }
    // A copy shares the immutable pixels, linear copy included, and keeps
    // them when the original is reloaded.
    CFrame copy(frame), tagged;
    EXPECT_TRUE(copy.isCompatible(frame));
    ASSERT_TRUE(tagged.setFromImage(picture, 7));
    EXPECT_FALSE(tagged.isCompatible(frame)); // same pixels, another tag
    EXPECT_FALSE(CFrame().isCompatible(CFrame()));
    ASSERT_TRUE(frame.load(saveImage(dir, "q.png", gradient(5, 5, QImage::Format_ARGB32))));
    EXPECT_EQ(copy.width(), 33);
    EXPECT_EQ(copy.linearData(), lin);
    EXPECT_EQ(copy.data(), src);
}

// Readers take the pixels, check that everything they see belongs to one
// load, and build the linear copy, while another thread reloads the same
// frame between two pictures of different sizes. Run under ThreadSanitizer
// this also proves the absence of data races.
TEST(Frame, ThreadsReadWhileAnotherReloads)
{
    QTemporaryDir dir;
    const QImage small = gradient(24, 16, QImage::Format_ARGB32);
    const QImage large = gradient(40, 30, QImage::Format_RGB32);
    const QString paths[2] = {saveImage(dir, "small.png", small),
                              saveImage(dir, "large.bmp", large)};
    CFrame frame;
    ASSERT_TRUE(frame.load(paths[0]));
    CFrame other;
    ASSERT_TRUE(other.load(paths[0]));

    std::atomic<bool> done{false};
    std::atomic<int> mismatches{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 3; ++t) {
        readers.emplace_back([&] {
            while (!done.load()) {
                const auto block = frame.pixels();
                const bool isSmall = block->width == 24;
                const QImage &expected = isSmall ? small : large;
                const std::uint8_t *lin = block->linearData();
                if (!block->valid || block->height != expected.height()
                    || block->dataSize != block->bytesPerLine * block->height
                    || block->image.size() != expected.size()
                    || std::memcmp(block->data() + 4 * 7, expected.constBits() + 4 * 7, 4) != 0
                    || !lin || lin[3] != 0)
                    ++mismatches;
                CFrame copy(frame);
                (void) copy.isCompatible(other);
                (void) frame.isCompatible(other);
                (void) frame.image().pixel(3, 3);
            }
        });
    }
    for (int i = 0; i < 200; ++i)
        ASSERT_TRUE(frame.load(paths[i % 2]));
    done = true;
    for (std::thread &t : readers)
        t.join();
    EXPECT_EQ(mismatches.load(), 0);
}
