#include "platform/tarnlib/tarnlib.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <gtest/gtest.h>
#include <vector>

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
    }
    ~DemoSession()
    {
        tl_CloseCameras2(list, count);
        qunsetenv("KESTRO_DEMO_CAMERA");
    }
};

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

TEST(DemoCamera, OnlyWhenAskedFor)
{
    DemoSession none(nullptr);
    EXPECT_EQ(none.status, TL_ERR_NO_CAMERA);
    EXPECT_EQ(none.count, 0);
    DemoSession empty("1", "/no/such/folder");
    EXPECT_EQ(empty.status, TL_ERR_NO_CAMERA);
}

TEST(DemoCamera, IdentificationPresetAndRegisters)
{
    DemoSession demo("KSD1300");
    ASSERT_EQ(demo.status, TL_OK);
    ASSERT_EQ(demo.count, 1);
    tl_camera_t *cam = demo.list[0];
    EXPECT_STREQ(cam->sensor.name, "");
    EXPECT_EQ(cam->sensor.width, 1300);
    ASSERT_EQ(tl_DetectPartNumber(cam), TL_OK);
    EXPECT_STREQ(cam->sensor.name, "KSD1300");
    EXPECT_STREQ(cam->sensor.alternateName, "KSD1300C");
    EXPECT_EQ(cam->sensor.partId, 0x1301u);
    EXPECT_EQ(cam->sensor.revision, 1);

    char path[256];
    ASSERT_EQ(tl_DefaultIniFile(cam, path, sizeof path), TL_OK);
    EXPECT_TRUE(QString::fromLocal8Bit(path).endsWith("KSD1300-REV1.sdat")) << path;
    char tiny[4];
    EXPECT_EQ(tl_DefaultIniFile(cam, tiny, sizeof tiny), TL_ERR_BUFFER);

    ASSERT_EQ(tl_WriteRegister(cam, 0x0100, 0), TL_OK);
    ASSERT_EQ(tl_LoadINIPreset(cam, path, "Strobix Initialization"), TL_OK);
    unsigned value = 0;
    ASSERT_EQ(tl_ReadRegister(cam, 0x0100, &value), TL_OK);
    EXPECT_EQ(value, 1u);
    EXPECT_EQ(tl_LoadINIPreset(cam, path, "No Such Preset"), TL_ERR_NO_PRESET);
    EXPECT_EQ(tl_LoadINIPreset(cam, "/no/such.ini", "Strobix Initialization"), TL_ERR_NO_FILE);

    // The first sensor in name order when the value names none.
    DemoSession first("1");
    ASSERT_EQ(first.status, TL_OK);
    ASSERT_EQ(tl_DetectPartNumber(first.list[0]), TL_OK);
    EXPECT_STREQ(first.list[0]->sensor.name, "KSD1300");
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
    const std::vector<quint16> b = grab(cam);
    EXPECT_NE(a, b); // noise changes from frame to frame
    for (quint16 v : a)
        ASSERT_LE(v, 1023);

    // Order 0 (G R / B G): red samples at odd x of even rows. The chart spans
    // the middle 80 %; patch 19 (white) is bottom left, 24 (black) bottom right.
    const int x0 = w / 10, y0 = h / 10, cw = w - 2 * x0, ch = h - 2 * y0;
    auto patch = [&](const std::vector<quint16> &f, int index, int px, int py) {
        const int col = index % 6, row = index / 6;
        const int left = x0 + col * cw / 6 + cw / 30, top = y0 + row * ch / 4 + ch / 20;
        return meanOf(f, w, left, top, left + cw / 15, top + ch / 10, px, py);
    };
    const double white = patch(a, 18, 1, 0);
    const double black = patch(a, 23, 1, 0);
    EXPECT_GT(white, 700);
    EXPECT_LT(black, 120);
    EXPECT_GT(black, 64); // above the black level
    // Red patch (15): red samples well above blue samples.
    EXPECT_GT(patch(a, 14, 1, 0), 2 * patch(a, 14, 0, 1));

    // Doubling the gain register brightens a mid gray patch.
    const double gray = patch(a, 21, 0, 0);
    ASSERT_EQ(tl_WriteRegister(cam, 0x3060, 32), TL_OK);
    const std::vector<quint16> bright = grab(cam);
    EXPECT_NEAR(patch(bright, 21, 0, 0) - 64, 2 * (gray - 64), 10);

    tl_stopTransport(cam);
    EXPECT_EQ(tl_grabFrame(cam, words.data(), cam->sensor.bufferSize), TL_ERR_NOT_STREAMING);
}
