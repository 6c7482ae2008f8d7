#include "imaging/imageload.h"
#include "testsupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QtEndian>
#include <gtest/gtest.h>

#include <sys/stat.h>

using kestro::ImageLoadError;
using kestro::readImageFile;

namespace {

quint32 crc32(const QByteArray &bytes)
{
    quint32 crc = 0xffffffffu;
    for (const char c : bytes) {
        crc ^= static_cast<quint8>(c);
        for (int k = 0; k < 8; ++k)
            crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

QByteArray pngChunk(const char *type, const QByteArray &data)
{
    QByteArray body = QByteArray(type) + data;
    QByteArray out(4, '\0');
    qToBigEndian<quint32>(data.size(), out.data());
    out += body;
    QByteArray crc(4, '\0');
    qToBigEndian<quint32>(crc32(body), crc.data());
    return out + crc;
}

// A PNG that declares a width x height 8-bit RGB picture and holds a few
// bytes of pixel data: what a decompression bomb looks like to a reader that
// checks the header first.
QByteArray pngDeclaring(quint32 width, quint32 height)
{
    QByteArray ihdr(13, '\0');
    qToBigEndian<quint32>(width, ihdr.data());
    qToBigEndian<quint32>(height, ihdr.data() + 4);
    ihdr[8] = 8; // bit depth
    ihdr[9] = 2; // RGB
    return QByteArray("\x89PNG\r\n\x1a\n", 8) + pngChunk("IHDR", ihdr)
           + pngChunk("IDAT", QByteArray("\x78\x9c\x01\x00", 4)) + pngChunk("IEND", {});
}

} // namespace

TEST(ImageLoad, NamesInAnyScriptAndWithPercentSigns)
{
    QTemporaryDir dir;
    ASSERT_TRUE(QDir(dir.path()).mkpath(QStringLiteral("图像 Снимки")));
    QImage picture(7, 5, QImage::Format_RGB32);
    picture.fill(qRgb(10, 200, 30));
    const QString path = kestro::test::saveImage(dir,
                                                 QStringLiteral("图像 Снимки/chart%2Bcopy %1.png"),
                                                 picture);
    const kestro::ImageLoadResult r = readImageFile(path);
    ASSERT_TRUE(r.ok()) << kestro::imageLoadErrorText(r, path).toStdString();
    EXPECT_EQ(r.image.size(), QSize(7, 5));
    EXPECT_EQ(r.image.pixel(3, 3), qRgb(10, 200, 30));

    // The name stays intact inside every text built from it.
    const QString missing = dir.filePath(QStringLiteral("Снимок %1 %2.png"));
    QString error;
    EXPECT_TRUE(kestro::loadImage(missing, &error).isNull());
    EXPECT_EQ(error, QStringLiteral("cannot read ") + missing + QStringLiteral(": no such file"));
}

TEST(ImageLoad, RefusesWhatIsNotARegularFileWithoutBlocking)
{
    QTemporaryDir dir;
    const QString fifo = dir.filePath(QStringLiteral("pipe.png"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(readImageFile(fifo).error, ImageLoadError::NotRegularFile);
    EXPECT_EQ(readImageFile(QStringLiteral("/dev/zero")).error, ImageLoadError::NotRegularFile);
    EXPECT_EQ(readImageFile(dir.path()).error, ImageLoadError::NotRegularFile);
    EXPECT_LT(timer.elapsed(), 5000);
    EXPECT_EQ(readImageFile(QString()).error, ImageLoadError::Missing);

    QFile file;
    EXPECT_EQ(kestro::openRegularFile(file, fifo), ImageLoadError::NotRegularFile);
    EXPECT_FALSE(file.isOpen());
}

TEST(ImageLoad, RefusesDeclaredSizeAboveTheLimitBeforeDecoding)
{
    QTemporaryDir dir;
    const QString bomb = kestro::test::writeFile(dir, "bomb.png", pngDeclaring(20000, 20000));
    const kestro::ImageLoadResult r = readImageFile(bomb);
    EXPECT_EQ(r.error, ImageLoadError::TooLarge);
    EXPECT_TRUE(r.image.isNull());
    EXPECT_EQ(kestro::imageLoadErrorText(r, bomb),
              QStringLiteral("cannot read ") + bomb
                      + QStringLiteral(": the picture is 20000 x 20000 pixels; at most 250 "
                                       "megapixels are accepted"));

    // Just under the limit the header passes, and the missing pixel data is
    // then the decoder's complaint, not the size.
    const QString near = kestro::test::writeFile(dir, "near.png", pngDeclaring(15000, 16000));
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

    // The format comes from the content: a JPEG named .png loads.
    QImage picture(16, 16, QImage::Format_RGB32);
    picture.fill(Qt::white);
    const QString jpeg = dir.filePath("really-a-jpeg.png");
    ASSERT_TRUE(picture.save(jpeg, "JPEG"));
    EXPECT_TRUE(readImageFile(jpeg).ok());
}
