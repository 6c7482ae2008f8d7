// The PNG writer: every pixel format read back exactly, compressed or not, large pictures compressed in stripes on the worker pool give the
// same file for any number of threads, and failures leave no file.

#include "imaging/pngwriter.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QImage>
#include <QTemporaryDir>
#include <cstdint>
#include <opencv2/core/utility.hpp>

using namespace kestro;

namespace {

// Noise on a few flat areas, like a captured frame.
QImage noisyPicture(int width, int height, QImage::Format format)
{
    QImage picture(width, height, QImage::Format_ARGB32);
    std::uint32_t s = 99;
    for (int y = 0; y < height; ++y) {
        auto *row = reinterpret_cast<QRgb *>(picture.scanLine(y));
        for (int x = 0; x < width; ++x) {
            s ^= s << 13;
            s ^= s >> 17;
            s ^= s << 5;
            const int base = (x / 64 + y / 48) % 2 ? 200 : 40;
            row[x] = qRgba(base + int(s & 15), base / 2 + int((s >> 4) & 15), (x * 3 + y) % 256,
                           int(s >> 24));
        }
    }
    return picture.convertToFormat(format);
}

QImage readBack(const QByteArray &png)
{
    QImage image;
    image.loadFromData(png, "PNG");
    return image;
}

} // namespace

TEST(PngWriter, EveryFormatReadsBackExactly)
{
    const QImage argb = noisyPicture(37, 23, QImage::Format_ARGB32);
    // Alpha is dropped: the colour as stored, unpremultiplied.
    const QImage opaque = argb.convertToFormat(QImage::Format_RGB32);
    const QImage gray = argb.convertToFormat(QImage::Format_Grayscale8);
    const struct
    {
        QImage picture;
        QImage expected;
    } cases[] = {
            {argb, opaque},
            {opaque, opaque},
            {argb.convertToFormat(QImage::Format_RGB888), opaque},
            {argb.convertToFormat(QImage::Format_ARGB32_Premultiplied),
             argb.convertToFormat(QImage::Format_ARGB32_Premultiplied)
                     .convertToFormat(QImage::Format_RGB32)},
            {gray, gray},
    };
    for (PngCompression compression : {PngCompression::Fast, PngCompression::None}) {
        for (const auto &c : cases) {
            const QImage read = readBack(encodePng(c.picture, compression));
            ASSERT_FALSE(read.isNull()) << c.picture.format();
            EXPECT_EQ(read.convertToFormat(c.expected.format()), c.expected)
                    << c.picture.format() << " " << int(compression);
        }
    }
    QImage withResolution = opaque;
    withResolution.setDotsPerMeterX(3346);
    withResolution.setDotsPerMeterY(3346);
    EXPECT_EQ(readBack(encodePng(withResolution)).dotsPerMeterX(), 3346);
}

TEST(PngWriter, StripesGiveOneFileForAnyThreadCount)
{
    // About 3.6 MB of rows: several stripes, the last one shorter.
    const QImage picture = noisyPicture(1201, 1003, QImage::Format_RGB888);
    const int threads = cv::getNumThreads();
    cv::setNumThreads(1);
    const QByteArray serial = encodePng(picture);
    cv::setNumThreads(4);
    const QByteArray parallel = encodePng(picture);
    cv::setNumThreads(threads);
    EXPECT_EQ(serial, parallel);
    EXPECT_EQ(readBack(parallel).convertToFormat(QImage::Format_RGB888), picture);
    // A flat picture shrinks; stored rows take their size and a little.
    QImage flat(1201, 1003, QImage::Format_RGB888);
    flat.fill(QColor(90, 120, 150));
    EXPECT_LT(encodePng(flat).size(), flat.sizeInBytes() / 50);
    EXPECT_LT(encodePng(flat, PngCompression::None).size(), flat.sizeInBytes() * 101 / 100);
}

TEST(PngWriter, SavesInPlaceOrNotAtAll)
{
    QTemporaryDir dir;
    const QImage picture = noisyPicture(40, 30, QImage::Format_RGB888);
    const QString path = dir.filePath("picture.png");
    ASSERT_TRUE(savePng(picture, path, PngCompression::None));
    EXPECT_EQ(QImage(path).convertToFormat(QImage::Format_RGB888), picture);

    EXPECT_FALSE(savePng(QImage(), dir.filePath("null.png")));
    EXPECT_FALSE(savePng(picture, dir.filePath("no/such/folder/p.png")));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"picture.png"});
}
