// The chart frame view: the corner layout and its geometry, dragging the
// handles with the mouse, patch scaling, frame-set browsing, region files,
// and detection through the locator thread (success, failure, cancel, and a
// detection started while another runs).
#include "imaging/frame.h"
#include "imaging/gui/macbethframeview.h"
#include "tests/platform/chartdetect/chartscene.h"

#include "testsupport.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QMouseEvent>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>
#include <gtest/gtest.h>

namespace {

QImage plain(int w, int h, QRgb colour = qRgb(90, 90, 90))
{
    QImage image(w, h, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

void expectNear(const QPointF &a, const QPointF &b, double tolerance = 0.01)
{
    EXPECT_NEAR(a.x(), b.x(), tolerance);
    EXPECT_NEAR(a.y(), b.y(), tolerance);
}

void mouse(QWidget *viewport, QEvent::Type type, const QPoint &pos, Qt::MouseButtons buttons)
{
    const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent event(type, QPointF(pos), QPointF(viewport->mapToGlobal(pos)), button, buttons,
                      Qt::NoModifier);
    QApplication::sendEvent(viewport, &event);
}

kestro::test::Scene chartScene(int width, int height, int chartLong, double rotation)
{
    kestro::test::SceneSetup setup;
    setup.width = width;
    setup.height = height;
    setup.chartLong = chartLong;
    setup.rotation = rotation;
    return kestro::test::renderScene(setup);
}

bool waitForDetection(QSignalSpy &spy)
{
    return !spy.isEmpty() || spy.wait(20000);
}

} // namespace

TEST(MacbethFrameView, DefaultCornerLayoutPatchSizeAndRegionFiles)
{
    QTemporaryDir dir;
    macbethFrameView view;
    view.loadBackGroundImage(plain(600, 400));
    view.useCornerInfo();
    const double third = 400.0 / 3, twoThirds = 800.0 / 3;
    const QPointF expected[6] = {{200, third},     {300, third},     {400, third},
                                 {400, twoThirds}, {300, twoThirds}, {200, twoThirds}};
    ASSERT_EQ(view.view()->handles().size(), 6);
    for (QGraphicsCornerEllipseItem *h : view.view()->handles())
        expectNear(h->rect().center(), expected[h->cornerNumber()] + QPointF(0.5, 0.5));
    // Row-major patches: 7 starts the second row, 24 is bottom right.
    const QVector<QRectF> rects = view.regionRects();
    ASSERT_EQ(rects.size(), 24);
    expectNear(rects[0].topLeft(), QPointF(210, 143.333));
    EXPECT_NEAR(rects[0].width(), 13.333, 0.001);
    EXPECT_NEAR(rects[6].top() - rects[0].top(), 400.0 / 12, 1e-6);
    EXPECT_NEAR(rects[23].right(), 400 - 10, 1e-6);

    // Two steps down and two up scale by 0.9^2 1.1^2 about the centre.
    macbethImageGraphicsView *graphics = view.view();
    graphics->decreasePatchSize();
    graphics->decreasePatchSize();
    graphics->increasePatchSize();
    graphics->increasePatchSize();
    const QRectF after = view.regionRects().at(5);
    EXPECT_NEAR(after.width(), rects[5].width() * 0.9801, 1e-9);
    expectNear(after.center(), rects[5].center(), 1e-9);

    // Saved regions come back as outward-rounded whole pixels.
    const QString roi = dir.filePath("chart.roi");
    ASSERT_TRUE(view.saveRegionsTo(roi));
    view.view()->removeAllRegions();
    ASSERT_TRUE(view.loadRegionsFrom(roi));
    ASSERT_EQ(view.regionRects().size(), 24);
    EXPECT_EQ(view.regionRects().at(0), QRectF(210, 143, 14, 14));
    EXPECT_TRUE(view.saveFrameView(dir.filePath("view.png")));
    EXPECT_FALSE(view.saveFrameView(dir.filePath("missing/folder/view.png")));
}

TEST(MacbethFrameView, MiddlePointsFollowCornersUntilMovedThemselves)
{
    CMarkers markers;
    markers.setImage(plain(600, 400));
    markers.initControlPoints();

    // Point 0 moves: the top middle follows as the chart transform's image
    // of the reference top midpoint; the bottom middle follows only the
    // bottom corners.
    ASSERT_TRUE(markers.moveControlPoint(0, QPointF(150, 100)));
    expectNear(markers.controlPoint(1), markers.chartTransform().map(QPointF(300, 400.0 / 3)));
    expectNear(markers.controlPoint(4), QPointF(300, 800.0 / 3));
    ASSERT_TRUE(markers.moveControlPoint(5, QPointF(180, 300)));
    expectNear(markers.controlPoint(4), markers.chartTransform().map(QPointF(300, 800.0 / 3)));

    // Once point 1 was dragged it stays where it was put, and bends the
    // chart: both half transforms take the reference top middle there.
    ASSERT_TRUE(markers.moveControlPoint(1, QPointF(320, 90)));
    ASSERT_TRUE(markers.moveControlPoint(0, QPointF(120, 80)));
    expectNear(markers.controlPoint(1), QPointF(320, 90));
    expectNear(markers.leftHalfTransform().map(QPointF(300, 400.0 / 3)), QPointF(320, 90));
    expectNear(markers.rightHalfTransform().map(QPointF(300, 400.0 / 3)), QPointF(320, 90));
    EXPECT_FALSE(markers.moveControlPoint(2, QPointF(0, 0))); // never taken

    // Another picture size clears the points; the default layout forgets
    // the moved middle.
    markers.setImage(plain(640, 480));
    EXPECT_FALSE(markers.hasControlPoints());
    markers.initControlPoints();
    EXPECT_FALSE(markers.middleMoved());
}

TEST(MacbethFrameView, DraggingAHandleMovesItsPointAndTheRegions)
{
    macbethFrameView view;
    view.resize(900, 700);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    view.loadBackGroundImage(plain(600, 400, qRgb(40, 90, 160)));
    view.useCornerInfo();
    macbethImageGraphicsView *graphics = view.view();
    QWidget *viewport = graphics->viewport();
    const QRectF firstBefore = view.regionRects().at(0);
    // Corner 0 dragged up and left: its point and the regions follow.
    const QPoint start = graphics->mapFromScene(QPointF(200, 133.3));
    const QPoint end = start + QPoint(-30, -20);
    mouse(viewport, QEvent::MouseButtonPress, start, Qt::LeftButton);
    mouse(viewport, QEvent::MouseMove, start + QPoint(-15, -10), Qt::LeftButton);
    mouse(viewport, QEvent::MouseMove, end, Qt::LeftButton);
    mouse(viewport, QEvent::MouseButtonRelease, end, Qt::NoButton);
    expectNear(view.markers()->controlPoint(0), graphics->mapToScene(end));
    EXPECT_LT(view.regionRects().at(0).left(), firstBefore.left());
    EXPECT_LT(view.regionRects().at(0).top(), firstBefore.top());
}

TEST(MacbethFrameView, FrameSetBrowsingAndNames)
{
    macbethFrameView view;
    view.resize(320, 400);
    view.show();
    QSignalSpy counts(&view, &macbethFrameView::frameCountChanged);
    auto *spin = view.findChild<QSpinBox *>("spinBoxCurrentCount");
    ASSERT_TRUE(spin);
    const QRgb colours[3] = {qRgb(255, 0, 0), qRgb(0, 255, 0), qRgb(0, 0, 255)};
    for (const QRgb colour : colours) {
        CFrame frame;
        ASSERT_TRUE(frame.setFromImage(plain(40, 30, colour)));
        EXPECT_TRUE(view.addFrame(frame));
    }
    EXPECT_FALSE(view.addFrame(CFrame()));
    EXPECT_EQ(counts.last().at(0).toInt(), 3);
    EXPECT_EQ(spin->value(), 3); // the last frame added is shown
    EXPECT_EQ(view.view()->picture().pixel(5, 5), colours[2]);
    view.showPrevious();
    EXPECT_EQ(view.currentImage().pixel(5, 5), colours[1]);
    view.showNext();
    view.showNext(); // stays on the last frame
    EXPECT_EQ(spin->value(), 3);

    // A long file name is cut to the label, never widening the panel.
    ASSERT_TRUE(view.replaceFrames(
            {plain(40, 30)}, {"/tmp/a_capture_with_a_name_much_longer_than_the_panel_is_wide.png"}));
    QApplication::processEvents();
    EXPECT_LE(view.width(), 320);
    EXPECT_FALSE(view.replaceFrames({plain(40, 30), QImage()}, {}));
}

TEST(MacbethFrameView, DetectionPlacesTheChartOrLeavesTheCornerLayout)
{
    const kestro::test::Scene scene = chartScene(1000, 750, 500, 180 + 8);

    macbethFrameView view;
    QSignalSpy finished(&view, &macbethFrameView::detectionFinished);
    auto *autoButton = view.findChild<QToolButton *>("toolButtonAutoDetect");
    ASSERT_TRUE(autoButton);

    // Nothing to detect on an empty picture.
    autoButton->setChecked(true);
    view.startAutoDetect();
    EXPECT_FALSE(autoButton->isChecked());

    view.loadBackGroundImage(scene.image);
    view.startAutoDetect();
    EXPECT_FALSE(autoButton->isEnabled());
    ASSERT_TRUE(waitForDetection(finished));
    EXPECT_EQ(finished.last().at(0).toInt(), 24);
    // The regions lie on the patches, and so do those of the corner-assisted
    // placement, which starts from the chart found.
    for (bool corners : {false, true}) {
        if (corners)
            view.useCornerInfo();
        const QVector<QRectF> rects = view.regionRects();
        ASSERT_EQ(rects.size(), 24);
        for (int i = 0; i < 24; ++i)
            EXPECT_TRUE(scene.patches[i].containsPoint(rects[i].center(), Qt::OddEvenFill))
                    << "patch " << i + 1 << (corners ? " from corners" : "");
    }

    // A result of 23 leaves the default corner layout.
    view.markers()->discardDetection();
    view.markers()->setImage(plain(600, 400));
    view.loadBackGroundImage(plain(600, 400));
    view.completeAutoDetect();
    ASSERT_EQ(view.regionRects().size(), 24);
    expectNear(view.regionRects().at(0).topLeft(), QPointF(210, 143.333));
}

TEST(MacbethFrameView, DetectionRestartedOrCancelled)
{
    const kestro::test::Scene scene = chartScene(2400, 1800, 900, 90);

    macbethFrameView view;
    QSignalSpy finished(&view, &macbethFrameView::detectionFinished);
    view.loadBackGroundImage(scene.image);
    // A second start while the first runs replaces it: one report only.
    view.startAutoDetect();
    view.startAutoDetect();
    ASSERT_TRUE(waitForDetection(finished));
    QTest::qWait(200);
    EXPECT_EQ(finished.size(), 1);
    EXPECT_EQ(finished.last().at(0).toInt(), 24);

    // Cancelling ends the detection early with the corner layout.
    finished.clear();
    QElapsedTimer clock;
    view.startAutoDetect();
    clock.start();
    view.cancelAutoDetection();
    ASSERT_TRUE(waitForDetection(finished));
    EXPECT_LT(clock.elapsed(), 1000);
    EXPECT_LT(finished.last().at(0).toInt(), 24);
    ASSERT_EQ(view.regionRects().size(), 24);
    expectNear(view.regionRects().at(0).topLeft(),
               view.markers()->cornerPatchRects().at(0).topLeft());
}
