// kestro-measure frame, demosaic and regions run as processes, on names in
// any script and on inputs that must be refused promptly.
#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kestro::test;

TEST(FrameTool, FrameDemosaicAndRegionsUnderNamesInAnyScript)
{
    QTemporaryDir dir;
    ASSERT_TRUE(QDir(dir.path()).mkpath(QStringLiteral("Снимки 图像")));
    const QString name = QStringLiteral("Снимки 图像/кадр%2B %1");
    const QString base = dir.filePath(name);
    QByteArray data;
    for (int i = 0; i < 30 * 20; ++i)
        data.append(char((i * 7) & 0xff)).append(char((i >> 4) & 0x03));
    writeFile(dir, name + ".raw", data);
    writeFile(dir, name + ".ini",
              "[Frame]\nWidth=30\nHeight=20\nBitsPerPixel=10\nImageType=1\nBayerOrder=1\n"
              "BlackLevel=16\n");

    ProcessResult r = runProcess(measureToolPath(), {"frame", base + ".raw"});
    ASSERT_EQ(r.exitCode, 0) << r.err.constData();
    const QJsonObject o = parseJsonOutput(r);
    EXPECT_EQ(o.value("bayerOrder").toInt(), 1);
    EXPECT_EQ(o.value("imageWidth").toInt(), 26);

    r = runProcess(measureToolPath(), {"demosaic", base + ".raw", base + ".png"});
    ASSERT_EQ(r.exitCode, 0) << r.err.constData();
    EXPECT_EQ(QImage(base + ".png").size(), QSize(26, 16));

    // Rectangles as read, before any rounding; missing values read 0.
    writeFile(dir, name + ".roi",
              "[patches]\nsize=2\n1\\left=2.5\n1\\top=0.1\n1\\width=-3\n1\\height=5\n");
    r = runProcess(measureToolPath(), {"regions", base + ".roi"});
    ASSERT_EQ(r.exitCode, 0) << r.err.constData();
    EXPECT_EQ(r.out, "{\"regions\": [[2.5, 0.10000000000000001, -3, 5], [0, 0, 0, 0]]}\n");
}

TEST(FrameTool, BadInputsEndPromptlyWithTheReason)
{
    QTemporaryDir dir;
    const QString fifo = makeFifo(dir, "pipe.png");
    const QString bomb = writeFile(dir, "bomb%1.png", pngDeclaringSize(20000, 20000));
    const QString cut = writeFile(dir, "cut.raw", QByteArray(99, '\x01'));
    writeFile(dir, "cut.ini", "[Frame]\nWidth=30\nHeight=20\nBitsPerPixel=10\n");
    struct Case
    {
        QStringList args;
        QString reason;
    };
    // One refusal per command; the reasons themselves are the loaders' tests.
    const Case cases[] = {
            {{"frame", bomb}, "the picture is 20000 x 20000 pixels; at most 250 megapixels"},
            {{"demosaic", cut, dir.filePath("out.png")},
             "the file holds 99 bytes; a 30 x 20 frame of 10 bits per pixel needs 1200"},
            {{"regions", fifo}, "cannot read ROI file " + fifo},
            {{"uniformity", fifo}, "cannot read " + fifo + ": not a regular file"},
    };
    for (const Case &c : cases) {
        const ProcessResult r = runProcess(measureToolPath(), c.args, 20000);
        EXPECT_EQ(r.exitCode, 1) << c.args.join(' ').toStdString();
        EXPECT_TRUE(QString::fromLocal8Bit(r.err).contains(c.reason))
                << c.args.join(' ').toStdString() << ": " << r.err.constData();
    }
    EXPECT_FALSE(QFile::exists(dir.filePath("out.png")));
}

TEST(FrameTool, OutputThatCannotBeWrittenFails)
{
    QTemporaryDir dir;
    QImage picture(16, 16, QImage::Format_RGB32);
    picture.fill(Qt::gray);
    const QString path = saveImage(dir, "p.png", picture);
    QProcess process;
    process.setStandardOutputFile(QStringLiteral("/dev/full"));
    process.start(measureToolPath(), {"frame", path});
    ASSERT_TRUE(process.waitForFinished(20000));
    EXPECT_EQ(process.exitCode(), 1);
    EXPECT_TRUE(process.readAllStandardError().contains("cannot write the output"));
}
