// Raw sensor files loaded into frames through the camera library.
#include "imaging/demosaic.h"
#include "imaging/frame.h"
#include "imaging/frameset.h"
#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstring>
#include <gtest/gtest.h>

namespace {

// Little-endian 16-bit samples with a ramp pattern below 2^bits.
QByteArray mosaic16(int w, int h, int bits)
{
    QByteArray data;
    data.reserve(w * h * 2);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int v = ((x * 37 + y * 101) * 13) & ((1 << bits) - 1);
            data.append(char(v & 0xff)).append(char(v >> 8));
        }
    return data;
}

QByteArray frameIni(int w, int h, int bits, int type, int order, int black)
{
    return QString::asprintf("[Frame]\nWidth=%d\nHeight=%d\nBitsPerPixel=%d\nImageType=%d\n"
                             "BayerOrder=%d\nBlackLevel=%d\n",
                             w, h, bits, type, order, black)
            .toLatin1();
}

class FrameRaw : public ::testing::Test
{
protected:
    QTemporaryDir dir;
    QString path(const char *name) const { return dir.filePath(name); }
    QString write(const QString &name, const QByteArray &bytes)
    {
        return kestro::test::writeFile(dir, name, bytes);
    }
};

} // namespace

TEST_F(FrameRaw, SidecarDescribesTheFrame)
{
    // A name in any script, a sidecar with a byte order mark.
    ASSERT_TRUE(QDir(dir.path()).mkpath(QStringLiteral("Снимки 图像")));
    const QByteArray data = mosaic16(20, 14, 12);
    const QString raw = write(QStringLiteral("Снимки 图像/кадр %1.raw"), data);
    write(QStringLiteral("Снимки 图像/кадр %1.ini"),
          "\xEF\xBB\xBF" + frameIni(20, 14, 12, 1, 3, 168));
    CFrame frame;
    ASSERT_TRUE(frame.load(raw)) << frame.errorText().toStdString();
    EXPECT_EQ(frame.kind(), 1u);
    EXPECT_EQ(frame.bytesPerLine(), 40);
    EXPECT_EQ(frame.bayerOrder(), 3);
    EXPECT_EQ(frame.blackLevel(), 168.0);
    ASSERT_EQ(frame.dataSize(), data.size());
    EXPECT_EQ(0, std::memcmp(frame.data(), data.constData(), data.size()));
    // The picture is the demosaic of these samples with the sidecar's order
    // and black level.
    EXPECT_EQ(frame.image(),
              kestro::demosaicToImage(reinterpret_cast<const std::uint16_t *>(data.constData()), 20,
                                      14, 12, 168, 3));

    // Reloading a broken file clears the frame and says why; a copy keeps
    // its pixels.
    CFrame copy(frame);
    write(QStringLiteral("Снимки 图像/кадр %1.raw"), data.left(100));
    EXPECT_FALSE(frame.load(raw));
    EXPECT_FALSE(frame.isValid());
    EXPECT_TRUE(frame.errorText().endsWith(
            "the file holds 100 bytes; a 20 x 14 frame of 12 bits per pixel needs 560"));
    EXPECT_EQ(copy.data()[7], static_cast<std::uint8_t>(data[7]));
}

TEST_F(FrameRaw, SixteenBitSamplesAreUnsignedAndNarrowerOnesClamped)
{
    // A true 16-bit sensor: all 0xFFFF is white, not black.
    write("w.ini", frameIni(10, 8, 16, 1, 0, 0));
    CFrame frame;
    ASSERT_TRUE(frame.load(write("w.raw", QByteArray(10 * 8 * 2, '\xff'))));
    EXPECT_EQ(frame.image().pixel(2, 2), qRgb(255, 255, 255));

    // 12-bit samples with stray high bits count as full scale in the data
    // every engine reads, also where the picture does not read them (the
    // last column of an odd width, the last row of an odd height).
    QByteArray data = mosaic16(11, 9, 12);
    const int stray[3] = {2 * 11 + 5, 11 - 1, 11 * 9 - 2};
    for (const int i : stray)
        data[2 * i] = data[2 * i + 1] = '\xff';
    write("c.ini", frameIni(11, 9, 12, 1, 0, 0));
    ASSERT_TRUE(frame.load(write("c.raw", data)));
    for (const int i : stray) {
        EXPECT_EQ(frame.data()[2 * i], 0xff);
        EXPECT_EQ(frame.data()[2 * i + 1], 0x0f) << i;
    }
}

TEST_F(FrameRaw, DescribedBySensorDataOrImageTypeOrTooSmallToDemosaic)
{
    // 644 x 484 10-bit: the shipped demo sensor of that size describes it.
    CFrame frame;
    ASSERT_TRUE(frame.load(write("board.raw", mosaic16(644, 484, 10))));
    EXPECT_EQ(frame.bitsPerPixel(), 10);
    EXPECT_EQ(frame.image().size(), QSize(640, 480));

    // Demosaiced whatever the image type, which gives the kind.
    write("t.ini", frameIni(10, 8, 10, 11, 1, 0));
    ASSERT_TRUE(frame.load(write("t.raw", mosaic16(10, 8, 10))));
    EXPECT_EQ(frame.kind(), 3u);
    EXPECT_EQ(frame.image().size(), QSize(6, 4));

    // Too small to demosaic: the frame loads with its data and a null picture.
    write("tiny.ini", frameIni(4, 4, 10, 1, 0, 0));
    ASSERT_TRUE(frame.load(write("tiny.raw", mosaic16(4, 4, 10))));
    EXPECT_TRUE(frame.image().isNull());
    EXPECT_NE(frame.data(), nullptr);
}

TEST_F(FrameRaw, BadFilesNeverLoadAndSayWhy)
{
    const QByteArray data = mosaic16(8, 6, 10);
    const struct
    {
        QByteArray raw, ini;
        FrameError error;
        const char *reason;
    } cases[] = {
            {data.left(95), frameIni(8, 6, 10, 1, 0, 64), FrameError::RawSizeMismatch, "needs 96"},
            {data, frameIni(8, 6, 10, 1, 0, 1023), FrameError::RawBadDescription, "BlackLevel=1023"},
            {data, "[Frame]\nWidth=8px\nHeight=6\nBitsPerPixel=10\n", FrameError::RawBadDescription,
             "Width=8px: the width must be 1 to 1048576 pixels"},
            {data, QByteArray(), FrameError::RawNoDescription, "describes a frame of 96 bytes"},
    };
    kestro::test::ScopedEnvironment env;
    env.set("KESTRO_SENSOR_DATA", QFile::encodeName(path("none")));
    for (const auto &c : cases) {
        QFile::remove(path("b.ini"));
        if (!c.ini.isEmpty())
            write("b.ini", c.ini);
        CFrame frame;
        EXPECT_FALSE(frame.load(write("b.raw", c.raw))) << c.reason;
        EXPECT_EQ(frame.data(), nullptr) << c.reason;
        EXPECT_EQ(frame.error(), c.error) << c.reason;
        EXPECT_TRUE(frame.errorText().contains(QLatin1String(c.reason)))
                << frame.errorText().toStdString();
    }
    // A sidecar that is a named pipe is unreadable, not waited on.
    QFile::remove(path("b.ini"));
    kestro::test::makeFifo(dir, "b.ini");
    CFrame frame;
    EXPECT_FALSE(frame.load(path("b.raw")));
    EXPECT_TRUE(frame.errorText().endsWith("b.ini cannot be read"));
}

TEST_F(FrameRaw, FrameSetKeepsValidFramesInOrder)
{
    write("a.raw", mosaic16(10, 8, 10));
    write("a.ini", frameIni(10, 8, 10, 1, 0, 0));
    write("b.ini", frameIni(12, 8, 10, 1, 0, 0));
    write("broken.png", "not a picture");
    kestro::CFrameSet set;
    QList<int> counts;
    QObject::connect(&set, &kestro::CFrameSet::countChanged, [&](int n) { counts << n; });
    EXPECT_EQ(set.loadFiles({path("a.raw"), path("broken.png"), path("a.raw")}), 2);
    EXPECT_EQ(counts, QList<int>({0, 1, 2}));
    EXPECT_TRUE(set.isCompatible());
    CFrame other;
    ASSERT_TRUE(other.load(write("b.raw", mosaic16(12, 8, 10))));
    EXPECT_TRUE(set.addFrame(other));
    EXPECT_FALSE(set.isCompatible()); // different size
    EXPECT_FALSE(set.addFrame(CFrame()));
    EXPECT_EQ(set.count(), 3);
}
