#include "platform/tarnlib/tarnlib.h"
#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

using kestro::test::writeFile;

namespace {

QByteArray sidecar(const QByteArray &frameBody)
{
    return "; written by the board tool\n[Frame]\n" + frameBody + "Comment=other keys may follow\n";
}

struct Opened
{
    tl_camera_t **list = nullptr;
    int count = 0;
    int status = -1;
    explicit Opened(const QString &path)
    {
        status = tl_OpenCameras2(&list, &count, QFile::encodeName(path).constData(), 16, 0);
    }
    ~Opened() { tl_CloseCameras2(list, count); }
};

} // namespace

TEST(Tarnlib, RawFileWithSidecar)
{
    QTemporaryDir dir;
    QByteArray data;
    for (int i = 0; i < 6 * 4; ++i) {
        const quint16 v = static_cast<quint16>(i * 100 + 3);
        data.append(char(v & 0xff)).append(char(v >> 8));
    }
    writeFile(
            dir, "a.ini",
            sidecar("Width=6\nHeight=4\nBitsPerPixel=12\nImageType=1\nBayerOrder=2\nBlackLevel=168\n"));
    Opened cam(writeFile(dir, "a.raw", data));
    ASSERT_EQ(cam.status, TL_OK);
    ASSERT_EQ(cam.count, 1);
    EXPECT_EQ(cam.list[0]->sensor.bufferSize, 48u);

    std::vector<unsigned char> buffer(48 + 4, 0xee);
    EXPECT_EQ(tl_grabFrame(cam.list[0], buffer.data(), 47), TL_ERR_BUFFER);
    ASSERT_EQ(tl_grabFrame(cam.list[0], buffer.data(), 48), TL_OK);
    EXPECT_EQ(0, std::memcmp(buffer.data(), data.constData(), 48));
    EXPECT_EQ(buffer[48], 0xee); // nothing written past the frame

    // The file is rewritten at another size after opening: its description
    // no longer holds, so the grab refuses, whether it shrank or grew.
    for (const QByteArray &changed : {data.left(20), data + data}) {
        writeFile(dir, "a.raw", changed);
        EXPECT_EQ(tl_grabFrame(cam.list[0], buffer.data(), 48), TL_ERR_IO) << changed.size();
    }
}

TEST(Tarnlib, EightBitFilesAreWidened)
{
    QTemporaryDir dir;
    const QByteArray data("\x00\x01\x7f\x80\xfe\xff", 6);
    writeFile(dir, "m.ini", sidecar("Width=3\nHeight=2\nBitsPerPixel=8\nImageType=0\n"));
    Opened cam(writeFile(dir, "m.raw", data));
    ASSERT_EQ(cam.status, TL_OK);
    EXPECT_EQ(cam.list[0]->sensor.bufferSize, 12u);
    std::vector<unsigned char> buffer(12);
    ASSERT_EQ(tl_grabFrame(cam.list[0], buffer.data(), 12), TL_OK);
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(buffer[2 * i], static_cast<unsigned char>(data[i]));
        EXPECT_EQ(buffer[2 * i + 1], 0);
    }
}

TEST(Tarnlib, DescriptionFromSensorDataBySize)
{
    QTemporaryDir dir;
    QDir(dir.path()).mkdir("sensors");
    writeFile(dir, "sensors/AAA-REV1.sdat",
              "[Sensor]\nName=AAA\nRevision=1\n[Frame]\nWidth=10\nHeight=10\nBitsPerPixel=8\nBayerOrder=3\nBlackLevel=5\n");
    writeFile(dir, "sensors/BBB-REV2.sdat",
              "[Sensor]\nName=BBB\n[Frame]\nWidth=5\nHeight=10\nBitsPerPixel=10\n");
    qputenv("KESTRO_SENSOR_DATA", QFile::encodeName(dir.filePath("sensors")));
    EXPECT_EQ(QString::fromLocal8Bit(tl_SensorData()), dir.filePath("sensors"));

    // 100 bytes: both AAA (10x10, 1 byte) and BBB (5x10, 2 bytes) fit; the
    // first file in name order wins.
    {
        Opened cam(writeFile(dir, "x.raw", QByteArray(100, 7)));
        ASSERT_EQ(cam.status, TL_OK);
        EXPECT_STREQ(cam.list[0]->sensor.name, "AAA");
        unsigned order = 0;
        tl_getSensorParameter(cam.list[0], TL_PARAM_BAYER_ORDER, &order);
        EXPECT_EQ(order, 3u);
    }
    // No sensor of this size.
    EXPECT_EQ(Opened(writeFile(dir, "z.raw", QByteArray(101, 7))).status, TL_ERR_NO_DESCRIPTION);
    qunsetenv("KESTRO_SENSOR_DATA");
}

TEST(Tarnlib, BadFilesAndDescriptionsSayWhy)
{
    QTemporaryDir dir;
    kestro::test::ScopedEnvironment env;
    env.set("KESTRO_SENSOR_DATA", QFile::encodeName(dir.filePath("nowhere")));
    const QString raw = dir.filePath("f.raw");
    writeFile(dir, "f.ini", sidecar("Width=4\nHeight=4\nBitsPerPixel=10\n"));
    // Shorter, longer and empty files than described.
    for (int size : {31, 33, 0})
        EXPECT_EQ(Opened(writeFile(dir, "f.raw", QByteArray(size, 1))).status, TL_ERR_SIZE_MISMATCH)
                << size;
    writeFile(dir, "f.raw", QByteArray(32, 1));

    QByteArray garbage; // binary garbage as a sidecar
    for (int i = 0; i < 4096; ++i)
        garbage.append(char((i * 7919) & 0xff));
    const QByteArray bad[] = {
            garbage,
            sidecar("Width=4\nHeight=4\n"),
            sidecar("Width=4.5\nHeight=0\nBitsPerPixel=10\n"),
            sidecar("Width=4\nHeight=4\nBitsPerPixel=10\nBlackLevel=1023\n"),
            sidecar("Width=4\nHeight=4\nBitsPerPixel=10\nBayerOrder=300\n"),
            sidecar("Width=99999999999999999999\nHeight=4\nBitsPerPixel=10\n"),
            sidecar("Width=1048576\nHeight=1048576\nBitsPerPixel=16\n"),
            sidecar("Width=4\nHeight=4\nBitsPerPixel=17\n"),
    };
    for (const QByteArray &ini : bad) {
        writeFile(dir, "f.ini", ini);
        EXPECT_EQ(Opened(raw).status, TL_ERR_BAD_DESCRIPTION) << ini.left(60).constData();
    }
    // The reason of the last failure is kept per thread and cleared by a
    // success.
    const std::string reason = tl_LastErrorText();
    EXPECT_NE(reason.find("BitsPerPixel=17"), std::string::npos) << reason;
    std::string other = "unset";
    std::thread([&] { other = tl_LastErrorText(); }).join();
    EXPECT_EQ(other, "");
    writeFile(dir, "f.ini", sidecar("Width=4\nHeight=4\nBitsPerPixel=10\n"));
    EXPECT_EQ(Opened(raw).status, TL_OK);
    EXPECT_STREQ(tl_LastErrorText(), "");

    // No sidecar and no sensor data: no description.
    QFile::remove(dir.filePath("f.ini"));
    EXPECT_EQ(Opened(raw).status, TL_ERR_NO_DESCRIPTION);
    EXPECT_EQ(Opened(dir.filePath("missing.raw")).status, TL_ERR_NO_FILE);
    for (int status = TL_OK; status <= TL_ERR_SYNTAX; ++status)
        EXPECT_STRNE(tl_StatusText(status), "unknown status") << status;
}
