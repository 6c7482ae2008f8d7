// Capture through the image-source service on a private session bus: the
// scenes' known content in the captured picture, the capture steps, the
// file-list and video sources, bounded failures and clean ends (no service
// left running, no zombie processes).
#include "privatebus.h"

#include "acquisition/automation.h"
#include "acquisition/camera.h"
#include "acquisition/imagesourceprotocol.h"
#include "measure/color/cielab.h"
#include "measure/color/macbethcolordifference.h"
#include "scene.h"

#include "testsupport.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <cmath>
#include <csignal>
#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>
#include <thread>

using namespace kestro;
using kestro::test::PrivateBus;

namespace {

bool serviceOnBus()
{
    return QDBusConnection::sessionBus().interface()->isServiceRegistered(
            QLatin1String(imagesource::kServiceName));
}

bool waitForService(bool present, int timeoutMs = 5000)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (serviceOnBus() != present && !deadline.hasExpired())
        QThread::msleep(10);
    return serviceOnBus() == present;
}

QDBusMessage callService(const QString &method, const QVariantList &args)
{
    QDBusMessage message = QDBusMessage::createMethodCall(QLatin1String(imagesource::kServiceName),
                                                          QLatin1String(imagesource::kObjectPath),
                                                          QLatin1String(imagesource::kInterfaceName),
                                                          method);
    message.setArguments(args);
    return QDBusConnection::sessionBus().call(message, QDBus::Block, 5000);
}

// Linear light of a pixel's channel.
double linear(const QImage &image, int x, int y, int channel)
{
    const QRgb p = image.pixel(x, y);
    const int v = channel == 0 ? qRed(p) : channel == 1 ? qGreen(p) : qBlue(p);
    return test::srgbByteDecodeReference(v);
}

// The pixels of a captured (RGB888) picture, shared.
cv::Mat pixels(const QImage &image)
{
    return cv::Mat(image.height(), image.width(), CV_8UC3, const_cast<uchar *>(image.constBits()),
                   image.bytesPerLine());
}

class CaptureTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_NE(PrivateBus::instance(), nullptr);
        // The demo board's default INI file goes to a private data folder.
        qputenv("XDG_DATA_HOME", QFile::encodeName(m_home.path()));
        qputenv("KESTRO_DEMO_CAMERA", "1");
        qputenv(imagesource::kProgramVariable, QFile::encodeName(test::imageSourceProgram()));
    }

    // The camera object's end quits the service it started and reaps it.
    void TearDown() override
    {
        const qint64 pid = m_camera && m_camera->automation()
                                   ? automationOf(*m_camera)->startedProcessId()
                                   : 0;
        m_camera.reset();
        EXPECT_FALSE(pid > 0 && test::processExists(pid));
        EXPECT_TRUE(waitForService(false)) << "the image source outlived the camera object";
        EXPECT_TRUE(test::zombieChildren().empty());
    }

    CCamera &camera()
    {
        if (!m_camera) {
            m_camera = std::make_unique<CCamera>();
            EXPECT_EQ(m_camera->open(), 0);
        }
        return *m_camera;
    }

    ImageSourceAutomation &service()
    {
        ImageSourceAutomation *automation = automationOf(camera());
        EXPECT_TRUE(automation->ensure(deadlineIn(kCaptureTimeoutMs)))
                << qPrintable(automation->lastError());
        return *automation;
    }

    void setOptions(const QList<QPair<QString, QString>> &options)
    {
        for (const auto &o : options)
            ASSERT_TRUE(service().setOption(o.first, o.second, deadlineIn(5000)))
                    << qPrintable(service().lastError());
    }

    QImage capture(bool firstCapture = true)
    {
        CapturedImage frame;
        if (!captureImage(camera(), frame, firstCapture, [this] { ++m_prompts; }))
            return QImage();
        return toImage(std::move(frame));
    }

    QTemporaryDir m_home;
    std::unique_ptr<CCamera> m_camera;
    int m_prompts = 0;
};

TEST_F(CaptureTest, ChartPatchesHaveTheReferenceColours)
{
    setOptions({{"scene", "chart"}, {"width", "640"}, {"height", "480"}, {"noise", "0"}});
    const QImage picture = capture();
    ASSERT_EQ(picture.size(), QSize(640, 480));
    const QVector<QRect> patches = imagesource::chartPatchRects(640, 480);
    for (int i = 0; i < 24; ++i) {
        const QRect r = patches[i].adjusted(3, 3, -3, -3);
        const cv::Scalar mean = cv::mean(
                pixels(picture)(cv::Rect(r.x(), r.y(), r.width(), r.height())));
        const LabColor measured = srgbToLab(mean[0] / 255, mean[1] / 255, mean[2] / 255);
        LabColor reference;
        QStdMacbethChartColorDifference::referenceLab(i, reference.L, reference.a, reference.b);
        // 8-bit rounding alone (most in the dark grays); patch 18 (cyan)
        // lies outside the sRGB gamut and is clipped.
        EXPECT_LT(deltaE00(reference, measured), i == 17 ? 3.0 : 1.0) << "patch " << i + 1;
    }
    // The chart's black frame surrounds the patches, the mid-gray the chart.
    EXPECT_NEAR(linear(picture, 2, 2, 1), imagesource::kChartBackground, 0.005);
}

TEST_F(CaptureTest, SlantedEdgeIsStraightAtItsAngleWithItsLevels)
{
    setOptions({{"scene", "edge"}, {"width", "800"}, {"height", "600"}, {"noise", "0"}});
    const QImage picture = capture();
    ASSERT_EQ(picture.size(), QSize(800, 600));
    EXPECT_NEAR(linear(picture, 10, 10, 0), imagesource::kEdgeLight, 0.004);
    EXPECT_NEAR(linear(picture, 400, 300, 2), imagesource::kEdgeDark, 0.002);
    // The square's left side: per row, where light turns to dark (half-way
    // in linear light, interpolated between pixels). The crossings lie on a
    // line turned by the edge angle from the vertical.
    const double mid = (imagesource::kEdgeLight + imagesource::kEdgeDark) / 2;
    std::vector<cv::Point2f> points; // (row, crossing)
    for (int y = 220; y <= 380; ++y) {
        for (int x = 200; x < 400; ++x) {
            const double a = linear(picture, x, y, 1), b = linear(picture, x + 1, y, 1);
            if (a >= mid && b < mid) {
                points.emplace_back(y + 0.5, x + 0.5 + (a - mid) / (a - b));
                break;
            }
        }
    }
    ASSERT_GT(points.size(), 150u);
    cv::Vec4f line; // direction, then a point on the line
    cv::fitLine(points, line, cv::DIST_L2, 0, 0.001, 0.001);
    EXPECT_NEAR(std::atan(line[1] / line[0]) * 180 / M_PI, imagesource::kEdgeAngleDegrees, 0.05);
    double worst = 0;
    for (const cv::Point2f &p : points)
        worst = std::max(worst,
                         std::abs(double((p.x - line[2]) * line[1] - (p.y - line[3]) * line[0])));
    EXPECT_LT(worst, 0.1) << "the edge is not drawn straight to a tenth of a pixel";
}

TEST_F(CaptureTest, FlatFieldFollowsExposureShadingAndNoise)
{
    setOptions({{"scene", "flat"},
                {"width", "400"},
                {"height", "300"},
                {"noise", "0"},
                {"exposure", "0.5"},
                {"shading", "40"}});
    const QImage flat = capture();
    ASSERT_FALSE(flat.isNull());
    EXPECT_NEAR(linear(flat, 200, 150, 1), imagesource::kFlatLevel * 0.5, 0.002);
    EXPECT_NEAR(linear(flat, 399, 299, 0) / linear(flat, 199, 149, 0), 0.6, 0.01);

    // Temporal noise: each frame its own, with the asked-for spread (the
    // difference of two frames spreads by sqrt(2) sigma).
    setOptions({{"shading", "0"}, {"noise", "2"}});
    const QImage a = capture(false), b = capture(false);
    ASSERT_FALSE(a.isNull() || b.isNull());
    cv::Mat difference;
    cv::subtract(pixels(a), pixels(b), difference, cv::noArray(), CV_32F);
    cv::Scalar mean, spread;
    cv::meanStdDev(difference(cv::Rect(150, 100, 100, 100)), mean, spread);
    EXPECT_NEAR(spread[1], 2.0 * std::sqrt(2.0), 0.25);
}

TEST_F(CaptureTest, FirstCaptureReadiesTheStreamBeforePromptAndFrame)
{
    setOptions({{"width", "64"}, {"height", "48"}});
    // A stopped stream gives no frame until command 160 readies it again.
    ASSERT_EQ(callService(QStringLiteral("Stop"), {true}).type(), QDBusMessage::ReplyMessage);
    EXPECT_TRUE(capture(false).isNull());
    EXPECT_EQ(m_prompts, 0);
    EXPECT_FALSE(capture(true).isNull());
    EXPECT_FALSE(capture(false).isNull());
    EXPECT_EQ(m_prompts, 1);

    // Without a camera the capture fails at once and starts nothing.
    qunsetenv("KESTRO_DEMO_CAMERA");
    CCamera none;
    EXPECT_NE(none.open(), 0);
    QElapsedTimer timer;
    timer.start();
    CapturedImage frame;
    EXPECT_FALSE(captureImage(none, frame, true, [this] { ++m_prompts; }));
    EXPECT_LT(timer.elapsed(), 1000);
    EXPECT_EQ(m_prompts, 1);
    EXPECT_EQ(none.automation(), nullptr);
}

TEST_F(CaptureTest, FileListAndVideoSourcesStartedByTheUser)
{
    QTemporaryDir dir;
    QImage a(5, 4, QImage::Format_RGB32);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 5; ++x)
            a.setPixel(x, y, qRgb(x * 50, y * 60, 7 * (x + y)));
    QImage narrow(2, 6, QImage::Format_RGB32);
    narrow.fill(Qt::red);
    const QStringList files = {test::saveImage(dir, "a.png", a),
                               test::saveImage(dir, "narrow.png", narrow)};
    // A service the user started is used as it is; the camera object's end
    // asks it to quit.
    QProcess user;
    user.start(test::imageSourceProgram(), QStringList{"--files"} + files);
    ASSERT_TRUE(waitForService(true));
    EXPECT_EQ(capture(), a.convertToFormat(QImage::Format_RGB888));
    EXPECT_TRUE(capture(false).isNull()) << "a 2 x 6 frame must be refused";
    EXPECT_EQ(capture(false).pixel(4, 3), a.pixel(4, 3)); // the list starts again
    m_camera.reset();
    EXPECT_TRUE(user.waitForFinished(5000));
    EXPECT_EQ(user.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(user.exitCode(), 0);

    // A video file serves as a device: its frames in order, then again.
    const QString clip = dir.filePath(QStringLiteral("clip.avi"));
    {
        cv::VideoWriter writer(QFile::encodeName(clip).toStdString(), cv::CAP_OPENCV_MJPEG,
                               cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 10, cv::Size(64, 48));
        ASSERT_TRUE(writer.isOpened());
        for (int i = 0; i < 2; ++i)
            writer.write(cv::Mat(48, 64, CV_8UC3, cv::Scalar(200, 100, i ? 250 : 20))); // BGR
    }
    user.start(test::imageSourceProgram(), {"--device", clip});
    ASSERT_TRUE(waitForService(true));
    for (int red : {20, 250, 20}) {
        const QImage frame = capture(red == 20);
        ASSERT_EQ(frame.size(), QSize(64, 48));
        EXPECT_NEAR(qRed(frame.pixel(32, 24)), red, 8);
        EXPECT_NEAR(qBlue(frame.pixel(32, 24)), 200, 8);
    }
    m_camera.reset();
    EXPECT_TRUE(user.waitForFinished(5000));
}

TEST_F(CaptureTest, ServiceThatHangsDiesOrNeverStartsFailsWithinTheBound)
{
    setOptions({{"width", "64"}, {"height", "48"}, {"latency", "20000"}});
    QElapsedTimer timer;
    timer.start();
    EXPECT_TRUE(capture().isNull());
    EXPECT_LT(timer.elapsed(), 5000);

    // Killed in the middle of a call: the call ends when the bus sees the
    // service go, and the next capture starts a new one.
    setOptions({{"latency", "3000"}});
    const qint64 pid = service().startedProcessId();
    ASSERT_GT(pid, 0);
    std::thread killer([pid] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        ::kill(pid_t(pid), SIGKILL);
    });
    timer.restart();
    EXPECT_TRUE(capture().isNull());
    killer.join();
    EXPECT_LT(timer.elapsed(), 2500);
    EXPECT_TRUE(waitForService(false));
    EXPECT_FALSE(capture().isNull());
    EXPECT_NE(service().startedProcessId(), pid);
    m_camera.reset();
    ASSERT_TRUE(waitForService(false));

    // A program that does not exist, and one that starts but never takes
    // the name (given up and ended).
    QTemporaryDir dir;
    const QString stuck = test::writeFile(dir, "stuck.sh", "#!/bin/sh\nexec sleep 60\n");
    QFile::setPermissions(stuck, QFile::ReadOwner | QFile::ExeOwner);
    for (const QString &program : {QStringLiteral("/nonexistent/kestro-imagesource"), stuck}) {
        qputenv(imagesource::kProgramVariable, QFile::encodeName(program));
        timer.restart();
        EXPECT_TRUE(capture().isNull());
        EXPECT_LT(timer.elapsed(), 5000);
        EXPECT_EQ(automationOf(camera())->startedProcessId(), 0);
    }
    EXPECT_TRUE(test::zombieChildren().empty());
}

TEST_F(CaptureTest, PresetsApplyWholeAndPauseRepeatsTheFrame)
{
    QTemporaryDir dir;
    const QString ini = test::writeFile(dir, "presets.ini",
                                        "[small flat]\nscene=flat\nwidth=40\nheight=30\nnoise=3\n"
                                        "[broken]\nwidth=64\nexposure=-1\n");
    service();
    EXPECT_EQ(callService("LoadPreset2", {ini, "broken", 0}).type(), QDBusMessage::ErrorMessage);
    EXPECT_EQ(callService("GetOption", {"width"}).arguments().value(0).toInt(), 2048);
    ASSERT_EQ(callService("SetPresetsFile", {ini}).type(), QDBusMessage::ReplyMessage);
    ASSERT_EQ(callService("LoadPreset", {"small flat"}).type(), QDBusMessage::ReplyMessage);
    const QImage a = capture();
    EXPECT_EQ(a.size(), QSize(40, 30));
    EXPECT_NEAR(linear(a, 20, 15, 1), imagesource::kFlatLevel, 0.05);

    // While paused the same frame comes again, noise and all.
    ASSERT_EQ(callService("Pause", {true}).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(capture(false), capture(false));
    ASSERT_EQ(callService("Pause", {false}).type(), QDBusMessage::ReplyMessage);
    EXPECT_NE(capture(false), capture(false));
}

// kestro-measure capture as scripts call it.
TEST_F(CaptureTest, CaptureCommandSavesOneFrameOrFailsWithThePageText)
{
    QTemporaryDir dir;
    const QString out = dir.filePath(QStringLiteral("flat.png"));
    const QStringList env = {QStringLiteral("KESTRO_DEMO_CAMERA=1"),
                             QStringLiteral("XDG_DATA_HOME=") + m_home.path()};
    test::ProcessResult r = test::runProcess(test::measureToolPath(),
                                             {"capture", "--scene", "flat", out}, 60000, env);
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_EQ(test::parseJsonOutput(r).value("file").toString(), out);
    const QImage saved(out);
    EXPECT_NEAR(linear(saved, saved.width() / 2, saved.height() / 2, 1), imagesource::kFlatLevel,
                0.02);
    EXPECT_FALSE(serviceOnBus()) << "the tool's camera object ends the service";

    // No session bus: the page's text, promptly, and no file.
    const QString missing = dir.filePath(QStringLiteral("none.png"));
    QElapsedTimer timer;
    timer.start();
    r = test::runProcess(test::measureToolPath(), {"capture", missing}, 60000,
                         env + QStringList{"DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent/bus"});
    EXPECT_LT(timer.elapsed(), 5000);
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(QString::fromLocal8Bit(r.err).contains(
            QStringLiteral("Unable to capture an image from Strobix.\n\nMake sure Strobix is "
                           "running and the Demo camera is setup and streaming images.")))
            << r.err.toStdString();
    EXPECT_FALSE(QFile::exists(missing));
}

} // namespace
