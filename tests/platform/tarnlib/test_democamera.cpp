#include "platform/tarnlib/tarnlib.h"
#include "testsupport.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <vector>

using kestro::test::writeFile;

namespace {

struct DemoSession
{
    tl_camera_t **list = nullptr;
    int count = 0;
    int status = -1;
    explicit DemoSession(const char *wanted, const char *folder = nullptr)
    {
        if (wanted)
            qputenv("KESTRO_DEMO_CAMERA", wanted);
        else
            qunsetenv("KESTRO_DEMO_CAMERA");
        status = tl_OpenCameras(&list, &count, folder);
        if (status == TL_OK)
            tl_DetectPartNumber(list[0]);
    }
    ~DemoSession()
    {
        tl_CloseCameras2(list, count);
        qunsetenv("KESTRO_DEMO_CAMERA");
    }
    tl_camera_t *camera() const { return list[0]; }
};

QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

unsigned reg(tl_camera_t *camera, unsigned address)
{
    unsigned value = 0xdeadbeef;
    EXPECT_EQ(tl_ReadRegister(camera, address, &value), TL_OK);
    return value;
}

// Mean of the mosaic samples of one position class inside a window.
double meanOf(const std::vector<quint16> &frame, int width, int x0, int y0, int x1, int y1, int px,
              int py)
{
    double sum = 0;
    int n = 0;
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x)
            if ((x & 1) == px && (y & 1) == py) {
                sum += frame[static_cast<size_t>(y) * width + x];
                ++n;
            }
    return sum / n;
}

std::vector<quint16> grab(tl_camera_t *camera)
{
    std::vector<quint16> words(camera->sensor.bufferSize / 2);
    EXPECT_EQ(tl_grabFrame(camera, words.data(), camera->sensor.bufferSize), TL_OK);
    return words;
}

} // namespace

TEST(DemoCamera, BoardsArePluggedInByName)
{
    EXPECT_EQ(DemoSession("1", "/no/such/folder").status, TL_ERR_NO_CAMERA);
    // The first board in name order, and a board by its file name.
    for (const auto &c : {std::pair{"1", 0x1301u}, std::pair{"KSD644-REV2-DEV3", 0x6442u}}) {
        DemoSession demo(c.first);
        ASSERT_EQ(demo.status, TL_OK);
        EXPECT_EQ(demo.camera()->sensor.partId, c.second);
    }
}

TEST(DemoCamera, RegistersFollowTheSensorDataAndPresetsApplyAllOrNothing)
{
    QTemporaryDir dir;
    const QString ini = writeFile(dir, "presets.ini",
                                  "[Other]\nANALOG_GAIN=99\n"
                                  "[Good]\n; by name and by address, decimal and hexadecimal\n"
                                  "ANALOG_GAIN = 32\n0x3012=0x123\n\n13328=5\n"
                                  "[Unknown register]\nANALOG_GAIN=40\nNO_SUCH_REG=1\n"
                                  "[Too wide]\nANALOG_GAIN=40\nMODE_SELECT=2\n"
                                  "[Negative]\nANALOG_GAIN=-1\n"
                                  "[Malformed]\nANALOG_GAIN=40\njust some words\n");
    DemoSession demo("KSD644");
    ASSERT_EQ(demo.status, TL_OK);
    tl_camera_t *cam = demo.camera();
    EXPECT_EQ(reg(cam, 0x3408), 0x100u); // defaults from [Registers]
    unsigned value = 0;
    EXPECT_EQ(tl_ReadRegister(cam, 0x3061, &value), TL_ERR_NO_REGISTER);
    EXPECT_EQ(tl_WriteRegister(cam, 0x3061, 1), TL_ERR_NO_REGISTER);
    EXPECT_EQ(tl_WriteRegister(cam, 0x3060, 256), TL_ERR_RANGE); // 8 bits
    EXPECT_EQ(tl_WriteRegister(cam, 0x0100, 2), TL_ERR_RANGE);   // 1 bit
    EXPECT_EQ(reg(cam, 0x3060), 16u);

    // A preset is applied whole or, with a bad line anywhere, not at all.
    const QByteArray path = QFile::encodeName(ini);
    ASSERT_EQ(tl_LoadINIPreset(cam, path, "Good"), TL_OK);
    EXPECT_EQ(reg(cam, 0x3060), 32u);
    EXPECT_EQ(reg(cam, 0x3012), 0x123u);
    EXPECT_EQ(reg(cam, 0x3410), 5u); // 13328 = 0x3410

    const std::pair<const char *, int> bad[] = {{"Unknown register", TL_ERR_NO_REGISTER},
                                                {"Too wide", TL_ERR_RANGE},
                                                {"Negative", TL_ERR_SYNTAX},
                                                {"Malformed", TL_ERR_SYNTAX},
                                                {"No such preset", TL_ERR_NO_PRESET}};
    for (const auto &[preset, status] : bad) {
        EXPECT_EQ(tl_LoadINIPreset(cam, path, preset), status) << preset;
        EXPECT_EQ(reg(cam, 0x3060), 32u) << preset; // the first line was not written either
    }
    EXPECT_EQ(tl_LoadINIPreset(cam, QFile::encodeName(dir.path()), "Good"), TL_ERR_NO_FILE);
}

TEST(DemoCamera, DefaultIniFileIsTheUsersCopyOfTheTemplate)
{
    QTemporaryDir home;
    kestro::test::ScopedEnvironment env;
    env.set("XDG_DATA_HOME", QFile::encodeName(home.path()));
    DemoSession demo("KSD644-REV2-DEV3");
    ASSERT_EQ(demo.status, TL_OK);
    char path[256];
    ASSERT_EQ(tl_DefaultIniFile(demo.camera(), path, sizeof path), TL_OK);
    const QString file = QFile::decodeName(path);
    const QByteArray text = readAll(file);
    EXPECT_TRUE(text.contains("[Strobix Initialization]\nMODE_SELECT=1\n")) << text.data();
    EXPECT_FALSE(text.contains("[Registers]"));
    // Once made, the file is the user's: never written over.
    QFile user(file);
    ASSERT_TRUE(user.open(QIODevice::WriteOnly));
    user.write("ANALOG_GAIN=48\n");
    user.close();
    ASSERT_EQ(tl_DefaultIniFile(demo.camera(), path, sizeof path), TL_OK);
    EXPECT_EQ(readAll(file), "ANALOG_GAIN=48\n");
    char tiny[8] = "xxxxxxx";
    EXPECT_EQ(tl_DefaultIniFile(demo.camera(), tiny, sizeof tiny), TL_ERR_BUFFER);
}

TEST(DemoCamera, MalformedSensorDataIsNotABoard)
{
    QTemporaryDir dir;
    auto sensor = [&](const QString &name, const QByteArray &rest) {
        writeFile(dir, name + "-REV1.sdat",
                  "[Sensor]\nName=" + name.toLatin1()
                          + "\nPartId=1\nRevision=1\n[Frame]\nWidth=8\nHeight=8\nBitsPerPixel=8\n"
                          + rest);
    };
    sensor("A", "[Registers]\nGAIN=0x10,8\n");
    sensor("B", "[Registers]\nX=1,33,0\n");
    sensor("C", "[Registers]\nX=1,8,0\nY=1,8,0\n");
    sensor("D", "");
    const QByteArray folder = QFile::encodeName(dir.path());
    // A to C are skipped; D has no [Registers] and gets the standard map.
    DemoSession first("1", folder);
    ASSERT_EQ(first.status, TL_OK);
    EXPECT_STREQ(first.camera()->sensor.name, "D");
    EXPECT_EQ(reg(first.camera(), 0x3060), 16u);
    EXPECT_EQ(reg(first.camera(), 0x3058), 256u);
    EXPECT_EQ(DemoSession("A", folder).status, TL_ERR_NO_CAMERA);
}

TEST(DemoCamera, GrabsAChartThroughTheTransport)
{
    DemoSession demo("KSD644");
    ASSERT_EQ(demo.status, TL_OK);
    tl_camera_t *cam = demo.list[0];
    const int w = cam->sensor.width, h = cam->sensor.height;
    std::vector<quint16> words(cam->sensor.bufferSize / 2);
    EXPECT_EQ(tl_grabFrame(cam, words.data(), cam->sensor.bufferSize), TL_ERR_NOT_STREAMING);
    ASSERT_EQ(tl_startTransport(cam), TL_OK);
    const std::vector<quint16> a = grab(cam);
    EXPECT_NE(a, grab(cam)); // noise changes from frame to frame

    // Order 0 (G R / B G): red samples at odd x of even rows. The chart spans
    // the middle 80 %; patch 19 (white) is bottom left, 24 (black) bottom right.
    const int x0 = w / 10, y0 = h / 10, cw = w - 2 * x0, ch = h - 2 * y0;
    auto patch = [&](const std::vector<quint16> &f, int index, int px, int py) {
        const int col = index % 6, row = index / 6;
        const int left = x0 + col * cw / 6 + cw / 30, top = y0 + row * ch / 4 + ch / 20;
        return meanOf(f, w, left, top, left + cw / 15, top + ch / 10, px, py);
    };
    EXPECT_GT(patch(a, 18, 1, 0), 700);
    EXPECT_GT(patch(a, 23, 1, 0), 64); // above the black level
    EXPECT_LT(patch(a, 23, 1, 0), 120);
    // Red patch (15): red samples well above blue samples.
    EXPECT_GT(patch(a, 14, 1, 0), 2 * patch(a, 14, 0, 1));

    // Doubling the analogue gain brightens a mid gray patch; the red digital
    // gain brightens only the red samples.
    const double gray = patch(a, 21, 0, 0);
    const double grayRed = patch(a, 21, 1, 0);
    ASSERT_EQ(tl_WriteRegister(cam, 0x3060, 32), TL_OK);
    const std::vector<quint16> bright = grab(cam);
    EXPECT_NEAR(patch(bright, 21, 0, 0) - 64, 2 * (gray - 64), 10);
    ASSERT_EQ(tl_WriteRegister(cam, 0x3060, 16), TL_OK);
    ASSERT_EQ(tl_WriteRegister(cam, 0x3058, 384), TL_OK);
    const std::vector<quint16> redder = grab(cam);
    EXPECT_NEAR(patch(redder, 21, 1, 0) - 64, 1.5 * (grayRed - 64), 10);
    EXPECT_NEAR(patch(redder, 21, 0, 0), gray, 5);
}
