// The mouse on imageGraphicsView, as a person uses it: drawing, hovering,
// selecting, moving and resizing by every handle, wheel zoom and the signals
// in their order.
#include "imaging/gui/imagegraphicsview.h"

#include "testsupport.h"

#include <QApplication>
#include <QGraphicsPixmapItem>
#include <QLoggingCategory>
#include <QMouseEvent>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>
#include <gtest/gtest.h>

namespace {

QImage grayWithBlueBlock()
{
    QImage img(300, 200, QImage::Format_RGB32);
    img.fill(qRgb(128, 128, 128));
    for (int y = 120; y < 190; ++y)
        for (int x = 200; x < 290; ++x)
            img.setPixel(x, y, qRgb(0, 0, 255));
    return img;
}

// A left-button event; moves carry the buttons held.
void send(imageGraphicsView &view, QEvent::Type type, const QPoint &pos, Qt::MouseButtons buttons)
{
    const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent event(type, QPointF(pos), QPointF(view.viewport()->mapToGlobal(pos)), button,
                      buttons, Qt::NoModifier);
    QApplication::sendEvent(view.viewport(), &event);
}

void wheel(imageGraphicsView &view, int delta)
{
    const QPoint pos(50, 50);
    QWheelEvent event(QPointF(pos), QPointF(view.viewport()->mapToGlobal(pos)), QPoint(),
                      QPoint(0, delta), Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(view.viewport(), &event);
}

// A shown view at scale 1 with the picture; scene points map to view
// pixels by a whole-pixel offset.
class Mouse : public ::testing::Test
{
protected:
    using V = imageGraphicsView;
    static void press(V &v, QPoint p) { send(v, QEvent::MouseButtonPress, p, Qt::LeftButton); }
    static void drag(V &v, QPoint p) { send(v, QEvent::MouseMove, p, Qt::LeftButton); }
    static void hover(V &v, QPoint p) { send(v, QEvent::MouseMove, p, Qt::NoButton); }
    static void release(V &v, QPoint p) { send(v, QEvent::MouseButtonRelease, p, Qt::NoButton); }
    void SetUp() override
    {
        QLoggingCategory::setFilterRules("kestro.view.debug=false");
        view.resize(400, 300);
        view.setPicture(grayWithBlueBlock());
        view.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    }
    QPoint at(double x, double y) const { return view.mapFromScene(QPointF(x, y)); }

    // Draws a region from scene point a to b with a left-button drag.
    qRegionGraphicsRectItem *draw(QPointF a, QPointF b)
    {
        press(view, at(a.x(), a.y()));
        drag(view, at((a.x() + b.x()) / 2, (a.y() + b.y()) / 2));
        drag(view, at(b.x(), b.y()));
        release(view, at(b.x(), b.y()));
        return view.currentRegion();
    }

    imageGraphicsView view;
};

} // namespace

TEST_F(Mouse, DrawingFollowsThePointerWithAPictureAndDrawingEnabled)
{
    // Pointing switched on and off again: drawing mode, but never enabled.
    view.enablePointing();
    view.disablePointing();
    draw({10, 10}, {50, 50});
    EXPECT_EQ(view.regionCount(), 0);

    view.enableSelection();
    EXPECT_EQ(view.viewport()->cursor().shape(), Qt::CrossCursor);
    QSignalSpy created(&view, &imageGraphicsView::regionCreated);
    // Dragged up and to the left: the rectangle is the normalised span,
    // added on release.
    press(view, at(80, 70));
    drag(view, at(60, 50));
    drag(view, at(20, 30));
    ASSERT_NE(view.drawingRegion(), nullptr);
    EXPECT_EQ(view.drawingRegion()->rect(), QRectF(20, 30, 60, 40));
    EXPECT_EQ(view.regionCount(), 0);
    release(view, at(20, 30));
    ASSERT_EQ(view.regionCount(), 1);
    EXPECT_EQ(view.currentRegion()->rect(), QRectF(20, 30, 60, 40));
    EXPECT_EQ(created.count(), 1);

    // A click without movement keeps a region of empty size.
    press(view, at(150, 100));
    release(view, at(150, 100));
    ASSERT_EQ(view.regionCount(), 2);
    EXPECT_EQ(view.region(1)->rect(), QRectF(150, 100, 0, 0));

    // In pointing mode a drag over empty picture draws nothing; without a
    // picture nothing is drawn at all.
    view.enablePointing();
    draw({100, 150}, {150, 190});
    EXPECT_EQ(view.regionCount(), 2);
    imageGraphicsView bare;
    bare.show();
    bare.enableSelection();
    press(bare, QPoint(20, 20));
    drag(bare, QPoint(60, 60));
    release(bare, QPoint(60, 60));
    EXPECT_EQ(bare.scene()->items().size(), 0);
}

TEST_F(Mouse, HoverShowsTheHandleAndResizingMovesOnlyThatEdgeOrCorner)
{
    view.enableSelection();
    qRegionGraphicsRectItem *item = draw({50, 40}, {150, 100});
    ASSERT_NE(item, nullptr);
    view.enablePointing();
    const QRectF start(50, 40, 100, 60);
    struct Case
    {
        int handle;
        Qt::CursorShape cursor;
        QPoint grab;  // in scene units relative to the region
        QPoint delta; // view pixels
        QRectF expected;
    };
    // Grab points lie inside the 2-pixel bands; the edge jumps to the pointer.
    const Case cases[] = {
            {1, Qt::SizeVerCursor, {50, 1}, {0, -20}, QRectF(QPointF(50, 21), QPointF(150, 100))},
            {2, Qt::SizeHorCursor, {99, 30}, {12, 3}, QRectF(QPointF(50, 40), QPointF(161, 100))},
            {6, Qt::SizeBDiagCursor, {99, 1}, {4, -6}, QRectF(QPointF(50, 35), QPointF(153, 100))},
            {7, Qt::SizeBDiagCursor, {1, 59}, {-4, 6}, QRectF(QPointF(47, 40), QPointF(150, 105))},
            {8, Qt::SizeFDiagCursor, {99, 59}, {4, 6}, QRectF(QPointF(50, 40), QPointF(153, 105))},
            {9, Qt::SizeAllCursor, {50, 30}, {15, 7}, QRectF(65, 47, 100, 60)},
    };
    for (const Case &c : cases) {
        item->setRect(start);
        const QPoint grab = at(start.x() + c.grab.x(), start.y() + c.grab.y());
        hover(view, grab);
        ASSERT_EQ(item->handle(), c.handle);
        EXPECT_EQ(view.viewport()->cursor().shape(), c.cursor) << "handle " << c.handle;
        QSignalSpy resized(&view, &imageGraphicsView::regionResized);
        press(view, grab);
        drag(view, grab + c.delta / 2);
        drag(view, grab + c.delta);
        EXPECT_EQ(item->rect(), c.expected) << "handle " << c.handle;
        release(view, grab + c.delta);
        EXPECT_EQ(view.grabbedRegion(), nullptr);
        EXPECT_EQ(resized.count(), 1);
    }
    // The outline colour follows the content while the region moves: onto
    // the blue block and back to gray.
    item->setRect(QRectF(20, 20, 40, 40));
    const QPoint grab = at(40, 40);
    hover(view, grab);
    press(view, grab);
    drag(view, grab + QPoint(210, 120));
    EXPECT_EQ(item->pen().color(), QColor(Qt::yellow));
    drag(view, grab + QPoint(0, 10));
    EXPECT_EQ(item->pen().color(), QColor(Qt::red));
    release(view, grab + QPoint(0, 10));
}

TEST_F(Mouse, SelectingByPointerAnnouncesAndStacks)
{
    view.enableSelection();
    qRegionGraphicsRectItem *a = draw({20, 20}, {100, 100});
    qRegionGraphicsRectItem *b = draw({60, 60}, {140, 140});
    qRegionGraphicsRectItem *c = draw({200, 20}, {240, 60});
    ASSERT_TRUE(a && b && c);
    view.enablePointing();

    QStringList order;
    QObject::connect(&view, &imageGraphicsView::regionSelectionChanged,
                     [&](qRegionGraphicsRectItem *r) {
                         order << QStringLiteral("selection:%1").arg(r ? r->index() : 0);
                     });
    QObject::connect(&view, &imageGraphicsView::regionResized, [&](qRegionGraphicsRectItem *r) {
        order << QStringLiteral("resized:%1").arg(r ? r->index() : 0);
    });

    // Region 1 is under region 2 where they overlap; pressing on its own
    // part selects it and lifts it above region 2.
    hover(view, at(40, 40));
    press(view, at(40, 40));
    EXPECT_TRUE(a->isSelected());
    EXPECT_GT(a->zValue(), b->zValue());
    release(view, at(40, 40));
    EXPECT_EQ(order, (QStringList{"selection:1", "resized:1", "selection:1"}));

    // In the overlap the selected region wins over the one drawn on top.
    hover(view, at(80, 80));
    press(view, at(80, 80));
    EXPECT_EQ(view.grabbedRegion(), a);
    release(view, at(80, 80));

    // Another region: the first is deselected.
    hover(view, at(220, 40));
    press(view, at(220, 40));
    release(view, at(220, 40));
    EXPECT_TRUE(c->isSelected());
    EXPECT_FALSE(a->isSelected());
    EXPECT_EQ(view.currentRegion(), c);

    // Pressing on empty picture changes nothing.
    order.clear();
    press(view, at(280, 10));
    EXPECT_TRUE(order.isEmpty());
    release(view, at(280, 10));
}

TEST_F(Mouse, WheelZoomInWholeNotchesAlsoFromATouchpad)
{
    const double base = view.transform().m11();
    // n notches at once scale by 1 / (2n) away from the user, 2n towards.
    wheel(view, 240);
    EXPECT_DOUBLE_EQ(view.transform().m11(), base * 0.25);
    wheel(view, -360);
    EXPECT_DOUBLE_EQ(view.transform().m11(), base * 1.5);
    view.resetTransform();

    // Four quarter notches make one notch away from the user: half the scale.
    for (int i = 0; i < 3; ++i) {
        wheel(view, 30);
        EXPECT_DOUBLE_EQ(view.transform().m11(), base);
    }
    wheel(view, 30);
    EXPECT_DOUBLE_EQ(view.transform().m11(), base * 0.5);
    // Back and forth below a notch changes nothing.
    wheel(view, -100);
    wheel(view, -20);
    EXPECT_DOUBLE_EQ(view.transform().m11(), base);

    // However far one scrolls, the scale stays finite and positive, and the
    // view still fits the picture with its aspect kept.
    for (int i = 0; i < 200; ++i)
        wheel(view, i % 2 ? 120 * 50 : 37);
    EXPECT_GT(view.transform().m11(), 0.0);
    for (int i = 0; i < 200; ++i)
        view.zoomIn();
    EXPECT_TRUE(qIsFinite(view.transform().m11()));
    view.fitView();
    const QRectF shown = view.mapFromScene(view.pictureItem()->boundingRect()).boundingRect();
    EXPECT_LE(shown.width(), view.viewport()->width() + 1);
    EXPECT_NEAR(view.transform().m11(), view.transform().m22(), 1e-12);
}
