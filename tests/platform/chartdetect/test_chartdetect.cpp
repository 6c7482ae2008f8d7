// The chart-patch detection library: its geometry helpers, refusal of
// unusable input, cancellation, the shared photographs (placement checked by
// the colours inside the rectangles) and rendered scenes with known patch
// positions, where a misplaced grid must never be reported.
#include "platform/chartdetect/chartdetect.h"
#include "platform/chartdetect/chartgeometry.h"
#include "platform/chartdetect/chartrefine.h"
#include "platform/chartdetect/qimagebuffer.h"
#include "tests/platform/chartdetect/chartscene.h"

#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QTextStream>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>
#include <vector>

using namespace kestro::chartdetect;
using kestro::test::Scene;
using kestro::test::SceneSetup;

namespace {

int detect(const QImage &image, ColorCheckerROI *regions, unsigned char *keep = nullptr)
{
    const auto bgr = packedBgrBuffer(image.convertToFormat(QImage::Format_RGB32));
    unsigned char running = 1;
    return FindColorCheckerROIsFromMemory(bgr.get(), image.width(), image.height(), regions,
                                          keep ? keep : &running);
}

} // namespace

TEST(ChartGeometry, GridTransformAndPatchRectangles)
{
    // A chart turned a quarter turn: patch 1 lies top right, patch 19 top left.
    const Point2 corners[4] = {{500, 100}, {500, 700}, {100, 700}, {100, 100}};
    Homography h;
    ASSERT_TRUE(gridHomography(corners, h));
    Point2 p;
    ASSERT_TRUE(mapPoint(h, 0.5, 0.5, p));
    EXPECT_NEAR(p.x, 450, 1e-6);
    EXPECT_NEAR(p.y, 150, 1e-6);

    Detection d;
    ASSERT_TRUE(fillDetection(h, 600, 800, 0.5, d));
    EXPECT_EQ(d.found, 24);
    // Patch 1: centre (450, 150), a 50 x 50 square; y is the lower edge.
    EXPECT_EQ(d.regions[0].x, 425);
    EXPECT_EQ(d.regions[0].width, 50);
    EXPECT_EQ(d.regions[0].y - d.regions[0].height, 125);
    EXPECT_EQ(d.regions[0].y, 175);
    // Patch 24 sits at the opposite corner.
    EXPECT_NEAR(d.centres[46], 150, 1e-6);
    EXPECT_NEAR(d.centres[47], 650, 1e-6);
    // A picture too small for the grid: no rectangles.
    Detection none;
    EXPECT_FALSE(fillDetection(h, 400, 800, 0.5, none));
    EXPECT_EQ(none.found, 0);

    // A diamond of half-diagonal 10 holds an upright square of half side 5.
    const Point2 diamond[4] = {{0, -10}, {10, 0}, {0, 10}, {-10, 0}};
    EXPECT_NEAR(insetSquareHalfSide(diamond, {0, 0}), 5.0, 1e-9);

    // Degenerate and non-finite corners give no transform.
    const Point2 line[4] = {{0, 0}, {1, 1}, {2, 2}, {3, 3}};
    EXPECT_FALSE(gridHomography(line, h));
    const Point2 bad[4] = {{NAN, 0}, {10, 0}, {10, 10}, {0, 10}};
    EXPECT_FALSE(gridHomography(bad, h));
}

TEST(ChartRefine, GridWithOneCornerOffSettlesOnThePatches)
{
    // An upright chart, pitch 100: the patch grid spans (500, 400) to
    // (1100, 800). The candidate's first corner lies most of a pitch off,
    // beyond the card.
    SceneSetup setup;
    const Scene scene = kestro::test::renderScene(setup);
    const auto bgr = packedBgrBuffer(scene.image);
    const cv::Mat picture(setup.height, setup.width, CV_8UC3, bgr.get());
    const Point2 corners[4] = {{410, 370}, {1100, 400}, {1100, 800}, {500, 800}};
    Homography h;
    ASSERT_TRUE(gridHomography(corners, h));
    const Refinement refined = refineGrid(picture, h);
    ASSERT_TRUE(refined.refined);
    Detection d;
    ASSERT_TRUE(fillDetection(refined.h, setup.width, setup.height, 0.5, d));
    EXPECT_TRUE(kestro::test::placedCorrectly(scene, d.regions));
}

TEST(ChartDetect, NoisyChartIsFound)
{
    // Pixel noise of 10 levels makes no patch less flat.
    SceneSetup setup;
    setup.noise = 10;
    const Scene scene = kestro::test::renderScene(setup);
    ColorCheckerROI regions[24] = {};
    ASSERT_EQ(detect(scene.image, regions), 24);
    EXPECT_TRUE(kestro::test::placedCorrectly(scene, regions));
}

TEST(ChartDetect, UnusableInputFindsNothing)
{
    ColorCheckerROI regions[24];
    for (auto &r : regions)
        r = {7, 7, 7, 7};
    unsigned char running = 1;
    EXPECT_EQ(FindColorCheckerROIsFromMemory(nullptr, 100, 100, regions, &running), 0);
    const std::vector<unsigned char> pixel(27, 128);
    EXPECT_EQ(FindColorCheckerROIsFromMemory(pixel.data(), -3, 3, regions, &running), 0);
    EXPECT_EQ(FindColorCheckerROIsFromMemory(pixel.data(), 3, 3, regions, nullptr), 0);
    // Regions stay untouched when nothing is found.
    EXPECT_EQ(regions[0].x, 7);

    QImage noise(1200, 900, QImage::Format_RGB32);
    std::mt19937 rng(5);
    for (int y = 0; y < noise.height(); ++y)
        for (int x = 0; x < noise.width(); ++x)
            noise.setPixel(x, y, qRgb(rng() & 255, rng() & 255, rng() & 255));
    EXPECT_EQ(detect(noise, regions), 0);

    // A 16000 x 12000 picture is read once, reduced, and searched in
    // bounded memory.
    std::vector<unsigned char> huge(size_t(16000) * 12000 * 3, 90);
    EXPECT_EQ(FindColorCheckerROIsFromMemory(huge.data(), 16000, 12000, regions, &running), 0);
}

TEST(ChartDetect, StopsSoonWhenAskedTo)
{
    ColorCheckerROI regions[24];
    SceneSetup setup;
    setup.width = 3000;
    setup.height = 2250;
    setup.chartLong = 160; // small: the search goes deep
    setup.clutter = 12;
    setup.decoyGrids = true;
    const Scene scene = kestro::test::renderScene(setup);
    const auto bgr = packedBgrBuffer(scene.image);

    unsigned char stopped = 0;
    EXPECT_EQ(FindColorCheckerROIsFromMemory(bgr.get(), setup.width, setup.height, regions,
                                             &stopped),
              0);

    for (int delayMs : {5, 60, 250}) {
        unsigned char running = 1;
        std::atomic<long long> clearedAt{0};
        std::thread stopper([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
            clearedAt = std::chrono::steady_clock::now().time_since_epoch().count();
            __atomic_store_n(&running, 0, __ATOMIC_RELAXED);
        });
        const int found = FindColorCheckerROIsFromMemory(bgr.get(), setup.width, setup.height,
                                                         regions, &running);
        const auto returned = std::chrono::steady_clock::now().time_since_epoch().count();
        stopper.join();
        if (found == 24)
            continue; // finished before the request
        const double lateMs = (returned - clearedAt.load()) / 1e6;
        // The library polls within tens of milliseconds; the margin is for a
        // loaded machine.
        EXPECT_LT(lateMs, 400.0) << "after " << delayMs << " ms";
    }
}

TEST(ChartDetect, SharedPhotographs)
{
    const QString folder = kestro::test::sharedDataPath("charts");
    QFile table(folder + "/charts.csv");
    if (!table.open(QIODevice::ReadOnly))
        GTEST_SKIP() << "no shared chart photographs at " << folder.toStdString();
    QTextStream in(&table);
    in.readLine();
    int whole = 0, placed = 0;
    while (!in.atEnd()) {
        const QStringList fields = kestro::test::csvFields(in.readLine());
        const QString file = fields.value(0);
        const QImage image(folder + "/" + file);
        ASSERT_FALSE(image.isNull()) << file.toStdString();
        // full_chart_visible: "no (...)" when patches are hidden or cut off.
        const bool allVisible = !fields.value(6).startsWith("no");
        ColorCheckerROI regions[24] = {};
        const int found = detect(image, regions);
        if (!allVisible) {
            // Hidden or cut-off patches: nothing, or the visible ones right.
            if (found == 24) {
                EXPECT_TRUE(kestro::test::checkPlacement(image, regions).ok())
                        << file.toStdString();
            }
            continue;
        }
        ++whole;
        const kestro::test::PlacementCheck check = kestro::test::checkPlacement(image, regions);
        EXPECT_EQ(found, 24) << file.toStdString();
        EXPECT_TRUE(found != 24 || check.ok())
                << file.toStdString() << " spread " << check.worstSpread << " residual "
                << check.residual << " gray ordered " << check.grayOrdered;
        placed += found == 24 && check.ok();
    }
    EXPECT_EQ(whole, 19);
    EXPECT_EQ(placed, whole);
}

TEST(ChartDetect, RenderedScenesPlacedOrMissedNeverMisplaced)
{
    // A reduced sweep; the benchmark program runs the full one.
    int correct = 0;
    const int count = 24;
    for (int i = 0; i < count; ++i) {
        const SceneSetup setup = kestro::test::sweepSceneSetup(i, 1600, 1200, 150, 11);
        const Scene scene = kestro::test::renderScene(setup);
        ColorCheckerROI regions[24] = {};
        if (detect(scene.image, regions) != 24)
            continue;
        const bool placed = kestro::test::placedCorrectly(scene, regions);
        EXPECT_TRUE(placed) << "scene " << i << " rotation " << setup.rotation << " size "
                            << setup.chartLong;
        correct += placed;
    }
    EXPECT_GE(correct, count * 9 / 10);
}
