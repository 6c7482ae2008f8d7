// kestro-measure frame and demosaic, run as processes.
#include "testsupport.h"

#include <QFile>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using kestro::test::measureToolPath;
using kestro::test::runProcess;

namespace {

void write(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(bytes);
}

} // namespace

TEST(FrameTool, FrameAndDemosaicOfARawFile)
{
    QTemporaryDir dir;
    QByteArray data;
    for (int i = 0; i < 30 * 20; ++i)
        data.append(char((i * 7) & 0xff)).append(char((i >> 4) & 0x03));
    write(dir.filePath("r.raw"), data);
    write(dir.filePath("r.ini"),
          "[Frame]\nWidth=30\nHeight=20\nBitsPerPixel=10\nImageType=1\nBayerOrder=1\nBlackLevel=16\n");

    auto r = runProcess(measureToolPath(), {"frame", dir.filePath("r.raw")});
    ASSERT_EQ(r.exitCode, 0) << r.err.constData();
    const QJsonObject o = QJsonDocument::fromJson(r.out).object();
    EXPECT_EQ(o.value("valid").toBool(), true);
    EXPECT_EQ(o.value("kind").toInt(), 1);
    EXPECT_EQ(o.value("width").toInt(), 30);
    EXPECT_EQ(o.value("height").toInt(), 20);
    EXPECT_EQ(o.value("bytesPerLine").toInt(), 60);
    EXPECT_EQ(o.value("bitsPerPixel").toInt(), 10);
    EXPECT_EQ(o.value("bytesPerPixel").toInt(), 2);
    EXPECT_EQ(o.value("bayerOrder").toInt(), 1);
    EXPECT_EQ(o.value("dataSize").toInt(), 1200);
    EXPECT_EQ(o.value("imageWidth").toInt(), 26);
    EXPECT_EQ(o.value("imageHeight").toInt(), 16);
    EXPECT_EQ(o.keys().size(), 11);

    r = runProcess(measureToolPath(), {"demosaic", dir.filePath("r.raw"), dir.filePath("out.png")});
    ASSERT_EQ(r.exitCode, 0) << r.err.constData();
    const QImage png(dir.filePath("out.png"));
    ASSERT_EQ(png.size(), QSize(26, 16));

    // Unreadable input and usage errors: stderr, status 1, no output file.
    r = runProcess(measureToolPath(), {"frame", dir.filePath("missing.raw")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_FALSE(r.err.isEmpty());
    write(dir.filePath("cut.raw"), data.left(99));
    r = runProcess(measureToolPath(), {"frame", dir.filePath("cut.raw")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(QJsonDocument::fromJson(r.out).object().value("valid").toBool(true), false);
    r = runProcess(measureToolPath(),
                   {"demosaic", dir.filePath("cut.raw"), dir.filePath("cut.png")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_FALSE(QFile::exists(dir.filePath("cut.png")));
    r = runProcess(measureToolPath(),
                   {"demosaic", dir.filePath("r.raw"), dir.filePath("no/such/folder/x.png")});
    EXPECT_EQ(r.exitCode, 1);
    r = runProcess(measureToolPath(), {"frame"});
    EXPECT_EQ(r.exitCode, 1);
}
