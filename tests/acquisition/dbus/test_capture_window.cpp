// The window's capture as the pages' Capture buttons use it: the set-up
// prompt until the first successful capture, the pictures each page saves in
// the temporary folder, and the service ended with the window.
#include "privatebus.h"

#include "acquisition/automation.h"
#include "acquisition/imagesourceprotocol.h"
#include "app/kestro.h"
#include "scene.h"

#include "testsupport.h"

#include <QAbstractButton>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QSpinBox>
#include <QTabWidget>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kestro;

namespace {

using kestro::test::boxesOf;

// Linear light of the green channel in the middle of a picture.
double middleLevel(const QImage &picture)
{
    if (picture.isNull())
        return -1;
    return test::srgbByteDecodeReference(
            qGreen(picture.pixel(picture.width() / 2, picture.height() / 2)));
}

TEST(CaptureWindow, PagesCaptureAndTheSetupPromptLastsUntilTheFirstSuccess)
{
    QTemporaryDir home, temp;
    qputenv("XDG_DATA_HOME", QFile::encodeName(home.path()));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.path()));
    qputenv("TMPDIR", QFile::encodeName(temp.path()));
    qputenv("KESTRO_DEMO_CAMERA", "1");

    auto window = std::make_unique<Kestro>();
    window->initialize();
    boxesOf([&] { window->probeCameras(); });
    ASSERT_TRUE(window->isCameraOpen());

    auto *mtfCapture = window->findChild<QAbstractButton *>(QStringLiteral("captureImage"));
    auto *uniCapture = window->findChild<QAbstractButton *>(QStringLiteral("uniCapture"));
    auto *chartCapture = window->findChild<QAbstractButton *>(
            QStringLiteral("pushButtonCaptureChartImage"));
    ASSERT_TRUE(mtfCapture && uniCapture && chartCapture);

    // A first capture that fails (the source gives a 2-pixel-wide frame)
    // keeps the prompt for the next one.
    ImageSourceAutomation *source = automationOf(*window->camera());
    ASSERT_TRUE(source->ensure(deadlineIn(kCaptureTimeoutMs)));
    ASSERT_TRUE(source->setOption("width", "2", deadlineIn(5000)));
    const QString setup = QStringLiteral("Setup Sensor: Before capturing the image make sure");
    const QString failure = QStringLiteral("Error: Unable to capture an image from Strobix.");
    QString boxes = boxesOf([&] { mtfCapture->click(); });
    EXPECT_EQ(boxes.count(setup), 1) << qPrintable(boxes);
    EXPECT_EQ(boxes.count(failure), 1) << qPrintable(boxes);
    const QString mtfFile = QDir(temp.path()).filePath(QStringLiteral("from_strobix_to_kestro.png"));
    EXPECT_FALSE(QFile::exists(mtfFile));

    ASSERT_TRUE(source->setOption("width", "320", deadlineIn(5000)));
    ASSERT_TRUE(source->setOption("height", "240", deadlineIn(5000)));
    window->workflow()->setCurrentIndex(2);
    boxes = boxesOf([&] { mtfCapture->click(); });
    EXPECT_EQ(boxes.count(setup), 1) << qPrintable(boxes);
    EXPECT_EQ(boxes.count(failure), 0) << qPrintable(boxes);
    // A synthetic source shows each page what it measures: the MTF page a
    // slanted edge (dark square in the middle), the uniformity page a flat
    // field.
    EXPECT_NEAR(middleLevel(QImage(mtfFile)), imagesource::kEdgeDark, 0.02);

    // After the first success no page asks again.
    QFile::remove(mtfFile);
    window->workflow()->setCurrentIndex(3);
    boxes = boxesOf([&] { uniCapture->click(); });
    EXPECT_TRUE(boxes.isEmpty()) << qPrintable(boxes);
    EXPECT_NEAR(middleLevel(QImage(mtfFile)), imagesource::kFlatLevel, 0.02);

    auto *count = window->findChild<QSpinBox *>(QStringLiteral("spinBoxCaptureCount"));
    ASSERT_TRUE(count);
    count->setValue(2);
    window->workflow()->setCurrentIndex(1);
    boxes = boxesOf([&] { chartCapture->click(); });
    EXPECT_TRUE(boxes.isEmpty()) << qPrintable(boxes);
    for (int i = 1; i <= 2; ++i)
        EXPECT_TRUE(QFile::exists(
                QDir(temp.path()).filePath(QStringLiteral("from_strobix_to_kestro%1.png").arg(i))));

    // The service ends with the window.
    window.reset();
    EXPECT_FALSE(QDBusConnection::sessionBus().interface()->isServiceRegistered(
            QLatin1String(imagesource::kServiceName)));
    EXPECT_TRUE(test::zombieChildren().empty());
    qunsetenv("TMPDIR");
}

} // namespace
