#include "imaging/imageload.h"
#include "testsupport.h"

#include <QElapsedTimer>
#include <QImageWriter>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using kestro::ImageLoadError;
using kestro::readImageFile;

TEST(ImageLoad, RefusesWhatIsNotARegularFileWithoutBlocking)
{
    QTemporaryDir dir;
    // Names stay whole in the texts.
    const QString missing = dir.filePath(QStringLiteral("Снимок %1 %2.png"));
    QString error;
    EXPECT_TRUE(kestro::loadImage(missing, &error).isNull());
    EXPECT_EQ(error, QStringLiteral("cannot read ") + missing + QStringLiteral(": no such file"));

    const QString fifo = kestro::test::makeFifo(dir, QStringLiteral("pipe.png"));
    ASSERT_FALSE(fifo.isEmpty());
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(readImageFile(fifo).error, ImageLoadError::NotRegularFile);
    EXPECT_EQ(readImageFile(QStringLiteral("/dev/zero")).error, ImageLoadError::NotRegularFile);
    EXPECT_EQ(readImageFile(dir.path()).error, ImageLoadError::NotRegularFile);
    EXPECT_LT(timer.elapsed(), 5000);
}

TEST(ImageLoad, RefusesDeclaredSizeAboveTheLimitBeforeDecoding)
{
    QTemporaryDir dir;
    const QString bomb = kestro::test::writeFile(dir, "bomb.png",
                                                 kestro::test::pngDeclaringSize(20000, 20000));
    const kestro::ImageLoadResult r = readImageFile(bomb);
    EXPECT_EQ(r.error, ImageLoadError::TooLarge);
    EXPECT_EQ(kestro::imageLoadErrorText(r, bomb),
              QStringLiteral("cannot read ") + bomb
                      + QStringLiteral(": the picture is 20000 x 20000 pixels; at most 250 "
                                       "megapixels are accepted"));

    // Just under the limit the header passes, and the missing pixel data is
    // then the decoder's complaint, not the size.
    const QString near = kestro::test::writeFile(dir, "near.png",
                                                 kestro::test::pngDeclaringSize(15000, 16000));
    const kestro::ImageLoadResult n = readImageFile(near);
    EXPECT_EQ(n.error, ImageLoadError::Undecodable);
    EXPECT_EQ(n.declaredSize, QSize(15000, 16000));
}

TEST(ImageLoad, KeepsTheDecodersReason)
{
    QTemporaryDir dir;
    const QString junk = kestro::test::writeFile(dir, "junk.png", QByteArray(300, 'x'));
    const kestro::ImageLoadResult r = readImageFile(junk);
    EXPECT_EQ(r.error, ImageLoadError::Undecodable);
    EXPECT_FALSE(r.detail.isEmpty());
    EXPECT_EQ(kestro::imageLoadErrorText(r, junk),
              QStringLiteral("cannot read ") + junk + QStringLiteral(" as an image: ") + r.detail);
}

// The format comes from the content, whether told by a signature or not.
TEST(ImageLoad, EveryWritableFormatLoadsUnderANeutralName)
{
    QTemporaryDir dir;
    QImage picture(9, 6, QImage::Format_RGB32);
    picture.fill(qRgb(40, 120, 200));
    const QList<QByteArray> writable = QImageWriter::supportedImageFormats();
    for (const char *format : {"png", "jpeg", "bmp", "tiff", "webp", "ppm", "gif"}) {
        if (!writable.contains(format))
            continue;
        const QString path = dir.filePath(QStringLiteral("picture-%1.dat").arg(format));
        QImageWriter writer(path, format);
        ASSERT_TRUE(writer.write(picture)) << format;
        const kestro::ImageLoadResult r = readImageFile(path);
        ASSERT_TRUE(r.ok()) << format << ": " << kestro::imageLoadErrorText(r, path).toStdString();
        EXPECT_EQ(r.image.size(), QSize(9, 6)) << format;
    }
}
