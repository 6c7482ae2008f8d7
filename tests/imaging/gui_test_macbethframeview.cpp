// The chart frame view: the corner layout and its geometry, dragging the
// handles with the mouse, patch scaling, frame-set browsing, region files,
// and detection through the locator thread (success, failure, cancel, and a
// detection started while another runs).
#include "imaging/frame.h"
#include "imaging/gui/macbethframeview.h"
#include "tests/platform/chartdetect/chartscene.h"

#include "testsupport.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QLabel>
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

// Waits for the view's detection to report; false on timeout.
bool waitForDetection(QSignalSpy &spy, int timeoutMs = 20000)
{
    return !spy.isEmpty() || spy.wait(timeoutMs);
}

} // namespace

TEST(MacbethFrameView, DefaultCornerLayoutOf600x400Picture)
{
    macbethFrameView view;
    view.loadBackGroundImage(plain(600, 400));
    view.useCornerInfo();

    const QVector<QPointF> points = view.markers()->controlPoints();
    ASSERT_EQ(points.size(), 6);
    const double third = 400.0 / 3, twoThirds = 800.0 / 3;
    const QPointF expected[6] = {{200, third},     {300, third},     {400, third},
                                 {400, twoThirds}, {300, twoThirds}, {200, twoThirds}};
    for (int i = 0; i < 6; ++i)
        expectNear(points[i], expected[i]);

    const QVector<QRectF> rects = view.regionRects();
    ASSERT_EQ(rects.size(), 24);
    expectNear(rects[0].topLeft(), QPointF(210, 143.333));
    EXPECT_NEAR(rects[0].width(), 13.333, 0.001);
    EXPECT_NEAR(rects[0].height(), 13.333, 0.001);
    // Row-major: patch 7 starts the second row, patch 24 is bottom right.
    EXPECT_NEAR(rects[6].left(), rects[0].left(), 1e-9);
    EXPECT_NEAR(rects[6].top() - rects[0].top(), 400.0 / 12, 1e-6);
    EXPECT_NEAR(rects[23].right(), 400 - 10, 1e-6);
    EXPECT_EQ(view.regions().at(23)->index(), 24);

    // Six handles around the points.
    ASSERT_EQ(view.view()->handles().size(), 6);
    for (QGraphicsCornerEllipseItem *h : view.view()->handles())
        expectNear(h->rect().center(), expected[h->cornerNumber()] + QPointF(0.5, 0.5));
}

TEST(MacbethFrameView, MiddlePointsFollowCornersUntilMovedThemselves)
{
    CMarkers markers;
    markers.setImage(plain(600, 400));
    markers.initControlPoints();

    // Point 0 moves: the top middle follows as the chart transform's image
    // of the reference top midpoint.
    ASSERT_TRUE(markers.moveControlPoint(0, QPointF(150, 100)));
    const QPointF topMid = markers.chartTransform().map(QPointF(300, 400.0 / 3));
    expectNear(markers.controlPoint(1), topMid);
    EXPECT_NE(markers.controlPoint(1), QPointF(300, 400.0 / 3));
    // The bottom middle follows only the bottom corners.
    expectNear(markers.controlPoint(4), QPointF(300, 800.0 / 3));
    ASSERT_TRUE(markers.moveControlPoint(5, QPointF(180, 300)));
    expectNear(markers.controlPoint(4), markers.chartTransform().map(QPointF(300, 800.0 / 3)));

    // Once point 1 was dragged it stays where it was put.
    ASSERT_TRUE(markers.moveControlPoint(1, QPointF(320, 90)));
    EXPECT_TRUE(markers.middleMoved());
    ASSERT_TRUE(markers.moveControlPoint(0, QPointF(120, 80)));
    expectNear(markers.controlPoint(1), QPointF(320, 90));
    // A point at (0, 0) is never taken.
    EXPECT_FALSE(markers.moveControlPoint(2, QPointF(0, 0)));

    // Patches of the left half follow the left half transform: the first
    // patch's corners are the left transform's images of its reference
    // corners, so the middle point bends the chart.
    const QVector<QRectF> rects = markers.cornerPatchRects();
    ASSERT_EQ(rects.size(), 24);
    const QTransform left = markers.leftHalfTransform();
    const QRectF reference(210, 143.3333, 13.3333, 13.3333);
    EXPECT_NEAR(rects[0].left(),
                std::min(left.map(reference.topLeft()).x(), left.map(reference.bottomLeft()).x()),
                1e-3);
    expectNear(left.map(QPointF(300, 400.0 / 3)), QPointF(320, 90));
    expectNear(markers.rightHalfTransform().map(QPointF(300, 400.0 / 3)), QPointF(320, 90));

    // A new picture of the same size keeps the points, another size clears
    // them, and the default layout forgets the moved middle.
    markers.setImage(plain(600, 400, qRgb(10, 10, 10)));
    EXPECT_TRUE(markers.hasControlPoints());
    markers.setImage(plain(640, 480));
    EXPECT_FALSE(markers.hasControlPoints());
    markers.initControlPoints();
    EXPECT_FALSE(markers.middleMoved());
    expectNear(markers.controlPoint(0), QPointF(640.0 / 3, 160));
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

    const QPoint start = graphics->mapFromScene(QPointF(200, 133.3));
    const QPoint end = start + QPoint(-30, -20);
    mouse(viewport, QEvent::MouseButtonPress, start, Qt::LeftButton);
    ASSERT_NE(graphics->grabbedHandle(), nullptr);
    EXPECT_EQ(graphics->grabbedHandle()->cornerNumber(), 0);
    mouse(viewport, QEvent::MouseMove, start + QPoint(-15, -10), Qt::LeftButton);
    mouse(viewport, QEvent::MouseMove, end, Qt::LeftButton);
    mouse(viewport, QEvent::MouseButtonRelease, end, Qt::NoButton);
    EXPECT_EQ(graphics->grabbedHandle(), nullptr);

    const QPointF moved = graphics->mapToScene(end);
    expectNear(view.markers()->controlPoint(0), moved);
    // The regions followed: still 24, the first one moved up and left.
    ASSERT_EQ(view.regionRects().size(), 24);
    EXPECT_LT(view.regionRects().at(0).left(), firstBefore.left());
    EXPECT_LT(view.regionRects().at(0).top(), firstBefore.top());
    // The top middle handle followed its point.
    for (QGraphicsCornerEllipseItem *h : graphics->handles()) {
        if (h->cornerNumber() == 1)
            expectNear(h->rect().center(), view.markers()->controlPoint(1) + QPointF(0.5, 0.5));
    }

    // Leaving corner mode hides the handles.
    graphics->enablePointing();
    EXPECT_FALSE(graphics->cornerMode());
    for (QGraphicsCornerEllipseItem *h : graphics->handles())
        EXPECT_FALSE(h->isVisible());
}

TEST(MacbethFrameView, PatchSizeStepsScaleAboutTheCentre)
{
    macbethFrameView view;
    view.loadBackGroundImage(plain(600, 400));
    view.useCornerInfo();
    const QRectF before = view.regionRects().at(5);
    macbethImageGraphicsView *graphics = view.view();
    graphics->decreasePatchSize();
    graphics->decreasePatchSize();
    graphics->increasePatchSize();
    graphics->increasePatchSize();
    const QRectF after = view.regionRects().at(5);
    EXPECT_NEAR(after.width(), before.width() * 0.9801, 1e-9);
    EXPECT_NEAR(after.height(), before.height() * 0.9801, 1e-9);
    expectNear(after.center(), before.center(), 1e-9);
}

TEST(MacbethFrameView, FrameSetBrowsingAndCounts)
{
    QTemporaryDir dir;
    macbethFrameView view;
    QSignalSpy counts(&view, &macbethFrameView::frameCountChanged);
    auto *spin = view.findChild<QSpinBox *>("spinBoxCurrentCount");
    auto *previous = view.findChild<QToolButton *>("toolButtonPrevious");
    ASSERT_TRUE(spin && previous);

    const QRgb colours[3] = {qRgb(255, 0, 0), qRgb(0, 255, 0), qRgb(0, 0, 255)};
    for (int i = 0; i < 3; ++i) {
        CFrame frame;
        ASSERT_TRUE(frame.load(kestro::test::saveImage(dir, QString("f%1.png").arg(i),
                                                       plain(40, 30, colours[i]))));
        EXPECT_TRUE(view.addFrame(frame));
    }
    EXPECT_FALSE(view.addFrame(CFrame())); // invalid frames are not added
    EXPECT_EQ(view.frameCount(), 3);
    EXPECT_EQ(counts.last().at(0).toInt(), 3);
    EXPECT_EQ(spin->maximum(), 3);
    EXPECT_EQ(spin->value(), 3); // the last frame added is shown
    EXPECT_EQ(view.view()->picture().pixel(5, 5), colours[2]);
    EXPECT_TRUE(previous->isEnabled());

    view.showPrevious();
    EXPECT_EQ(spin->value(), 2);
    EXPECT_EQ(view.currentImage().pixel(5, 5), colours[1]);
    view.showNext();
    view.showNext(); // stays on the last frame
    EXPECT_EQ(spin->value(), 3);

    // A picture given directly wins until the frames are browsed again.
    view.loadBackGroundImage(plain(50, 50, qRgb(1, 2, 3)));
    EXPECT_EQ(view.currentImage().pixel(0, 0), qRgb(1, 2, 3));
    view.showPrevious();
    EXPECT_EQ(view.currentImage().pixel(5, 5), colours[1]);

    view.clearFrames();
    EXPECT_EQ(counts.last().at(0).toInt(), 0);
    EXPECT_EQ(spin->maximum(), 0);
    EXPECT_FALSE(previous->isEnabled());
    EXPECT_TRUE(view.currentImage().isNull());
}

TEST(MacbethFrameView, FramesFromPicturesKeepTheNamesOfTheirFiles)
{
    QTemporaryDir dir;
    macbethFrameView view;
    view.resize(320, 400);
    view.show();
    QSignalSpy counts(&view, &macbethFrameView::frameCountChanged);
    const QString saved = QDir::toNativeSeparators(
            dir.filePath("a_capture_with_a_name_much_longer_than_the_panel_is_wide_0001.png"));
    ASSERT_TRUE(view.replaceFrames({plain(40, 30, qRgb(200, 0, 0)), plain(40, 30, qRgb(0, 90, 0))},
                                   {QString(), saved}));
    EXPECT_EQ(counts.count(), 1); // the set changed once
    ASSERT_EQ(view.frameCount(), 2);
    EXPECT_EQ(view.view()->picture().pixel(5, 5), qRgb(0, 90, 0));
    EXPECT_EQ(view.frameFileName(view.frameSet().at(0)), QString());
    EXPECT_EQ(view.frameFileName(view.frameSet().at(1)), saved);

    // The name is cut to the label's width, never widening the panel; the
    // tool tip has it whole.
    QApplication::processEvents();
    auto *label = view.findChild<QLabel *>("labelFileName");
    ASSERT_TRUE(label);
    EXPECT_TRUE(label->text().contains(QChar(0x2026))) << label->text().toStdString();
    EXPECT_LE(label->fontMetrics().horizontalAdvance(label->text()), label->width());
    EXPECT_LE(view.width(), 320);
    EXPECT_EQ(label->toolTip(), saved);

    // A frame loaded again from a file goes by that file's name.
    const QString other = kestro::test::saveImage(dir, "other.png", plain(40, 30));
    ASSERT_TRUE(view.frameSet().at(1)->load(other));
    EXPECT_EQ(view.frameFileName(view.frameSet().at(1)), other);

    EXPECT_FALSE(view.replaceFrames({plain(40, 30), QImage()}, {}));
    EXPECT_EQ(view.frameCount(), 2);
}

TEST(MacbethFrameView, RegionFilesAndSavedView)
{
    QTemporaryDir dir;
    macbethFrameView view;
    view.loadBackGroundImage(plain(600, 400));
    view.useCornerInfo();
    const QString roi = dir.filePath("chart.roi");
    ASSERT_TRUE(view.saveRegionsTo(roi));
    view.view()->removeAllRegions();
    ASSERT_TRUE(view.loadRegionsFrom(roi));
    ASSERT_EQ(view.regionRects().size(), 24);
    EXPECT_EQ(view.regionRects().at(0), QRectF(210, 143, 14, 14));
    EXPECT_TRUE(view.view()->handles().isEmpty());

    const QString png = dir.filePath("view.png");
    ASSERT_TRUE(view.saveFrameView(png));
    const QImage saved(png);
    EXPECT_EQ(saved.size(), QSize(600, 400));
    EXPECT_FALSE(view.saveFrameView(dir.filePath("missing/folder/view.png")));
    macbethFrameView empty;
    EXPECT_FALSE(empty.saveFrameView(dir.filePath("empty.png")));
}

TEST(MacbethFrameView, DetectionPlacesTheChartOrLeavesTheCornerLayout)
{
    kestro::test::SceneSpec spec;
    spec.width = 1000;
    spec.height = 750;
    spec.chartLong = 500;
    spec.rotation = 180 + 8;
    const kestro::test::Scene scene = kestro::test::renderScene(spec);

    macbethFrameView view;
    QSignalSpy finished(&view, &macbethFrameView::detectionFinished);
    auto *autoButton = view.findChild<QToolButton *>("toolButtonAutoDetect");
    ASSERT_TRUE(autoButton);

    // Nothing to detect on an empty picture.
    autoButton->setChecked(true);
    view.startAutoDetect();
    EXPECT_FALSE(autoButton->isChecked());
    EXPECT_FALSE(view.isDetectionRunning());

    view.loadBackGroundImage(scene.image);
    view.startAutoDetect();
    EXPECT_FALSE(autoButton->isEnabled());
    ASSERT_TRUE(waitForDetection(finished));
    EXPECT_EQ(finished.last().at(0).toInt(), 24);
    EXPECT_TRUE(autoButton->isEnabled());
    const QVector<QRectF> rects = view.regionRects();
    ASSERT_EQ(rects.size(), 24);
    for (int i = 0; i < 24; ++i)
        EXPECT_TRUE(scene.patches[i].containsPoint(rects[i].center(), Qt::OddEvenFill))
                << "patch " << i + 1;

    // Corner-assisted placement then starts from the chart found.
    view.useCornerInfo();
    const QVector<QRectF> fromCorners = view.regionRects();
    ASSERT_EQ(fromCorners.size(), 24);
    for (int i = 0; i < 24; ++i)
        EXPECT_TRUE(scene.patches[i].containsPoint(fromCorners[i].center(), Qt::OddEvenFill))
                << "corner layout patch " << i + 1;

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
    kestro::test::SceneSpec spec;
    spec.width = 2400;
    spec.height = 1800;
    spec.chartLong = 900;
    spec.rotation = 90;
    const kestro::test::Scene scene = kestro::test::renderScene(spec);

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
    EXPECT_EQ(view.regionRects().size(), 24);

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
