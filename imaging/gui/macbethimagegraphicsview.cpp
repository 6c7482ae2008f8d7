#include "imaging/gui/macbethimagegraphicsview.h"

#include "imaging/gui/viewlog.h"

#include <QGraphicsScene>
#include <QMouseEvent>

macbethImageGraphicsView::macbethImageGraphicsView(QWidget *parent)
    : imageGraphicsView(parent)
{ }

void macbethImageGraphicsView::setCornerMode(bool on)
{
    m_cornerMode = on;
    for (QGraphicsCornerEllipseItem *item : qAsConst(m_handles))
        item->setVisible(on);
    if (!on)
        m_grabbedHandle = nullptr;
}

void macbethImageGraphicsView::recolour(QGraphicsCornerEllipseItem *item)
{
    item->setColor(overlayColorFor(item->rect()));
}

void macbethImageGraphicsView::setHandles(const QVector<QRectF> &squares)
{
    removeHandles();
    double z = stackingCounter();
    for (int i = 0; i < squares.size(); ++i) {
        auto *item = new QGraphicsCornerEllipseItem(squares.at(i), i);
        recolour(item);
        z += 0.01;
        item->setZValue(z);
        item->setVisible(m_cornerMode);
        scene()->addItem(item);
        m_handles.append(item);
    }
}

void macbethImageGraphicsView::updateHandles(const QVector<QRectF> &squares)
{
    for (QGraphicsCornerEllipseItem *item : qAsConst(m_handles)) {
        const int n = item->cornerNumber();
        if (item == m_grabbedHandle || n < 0 || n >= squares.size())
            continue;
        if (item->rect() != squares.at(n)) {
            item->setRect(squares.at(n));
            recolour(item);
        }
    }
}

void macbethImageGraphicsView::removeHandles()
{
    for (QGraphicsCornerEllipseItem *item : qAsConst(m_handles)) {
        scene()->removeItem(item);
        delete item;
    }
    m_handles.clear();
    m_grabbedHandle = nullptr;
}

void macbethImageGraphicsView::storeDisplayScaleFactor()
{
    const int pictureWidth = picture().width();
    const int viewWidth = width();
    m_displayScaleFactor = (viewWidth > pictureWidth && viewWidth > 0)
                                   ? pictureWidth * 10 / viewWidth
                                   : 10;
}

void macbethImageGraphicsView::enablePointing()
{
    setCornerMode(false);
    imageGraphicsView::enablePointing();
}

void macbethImageGraphicsView::increasePatchSize()
{
    scalePatchSize(1.1);
}

void macbethImageGraphicsView::decreasePatchSize()
{
    scalePatchSize(0.9);
}

void macbethImageGraphicsView::scalePatchSize(double scale)
{
    for (qRegionGraphicsRectItem *item : regions()) {
        const QRectF r = item->rect();
        const double w = r.width() * scale, h = r.height() * scale;
        item->setRect(QRectF(r.x() + (r.width() - w) / 2.0, r.y() + (r.height() - h) / 2.0, w, h));
        emit overlayColorChanged(item);
    }
}

QGraphicsCornerEllipseItem *macbethImageGraphicsView::handleAt(const QPoint &position) const
{
    const QList<QGraphicsItem *> under = items(position);
    for (QGraphicsItem *item : under) {
        if (item->type() == QGraphicsCornerEllipseItem::Type && item->isSelected())
            return static_cast<QGraphicsCornerEllipseItem *>(item);
    }
    // The topmost handle at the pointer, looking through the regions that a
    // handle may sit under.
    for (QGraphicsItem *item : under) {
        if (item->type() == QGraphicsCornerEllipseItem::Type)
            return static_cast<QGraphicsCornerEllipseItem *>(item);
    }
    return nullptr;
}

void macbethImageGraphicsView::mousePressEvent(QMouseEvent *event)
{
    if (!m_cornerMode) {
        imageGraphicsView::mousePressEvent(event);
        return;
    }
    if (event->button() != Qt::LeftButton) {
        event->accept();
        return;
    }
    m_cornerPressPoint = event->localPos();
    QGraphicsCornerEllipseItem *item = handleAt(event->pos());
    if (!item) {
        event->accept();
        return;
    }
    if (item != m_grabbedHandle) {
        m_grabbedHandle = item;
        item->setSelected(true);
        const QList<QGraphicsItem *> selected = scene()->selectedItems();
        for (QGraphicsItem *other : selected) {
            if (other != item)
                other->setSelected(false);
        }
        qCDebug(kestroViewLog) << "Corner selected";
    }
    // Every press starts a new drag from the handle's present place.
    item->setGrabRect(item->rect());
    event->accept();
}

void macbethImageGraphicsView::mouseMoveEvent(QMouseEvent *event)
{
    if (!m_cornerMode) {
        imageGraphicsView::mouseMoveEvent(event);
        return;
    }
    QGraphicsCornerEllipseItem *item = m_grabbedHandle;
    if (!item || !(event->buttons() & Qt::LeftButton)) {
        event->accept();
        return;
    }
    m_cornerPoint = mapToScene(event->pos());
    emit cornerMoved(item, m_cornerPoint);
    // The slot may have removed the handles.
    if (m_grabbedHandle != item)
        return;
    // Move by the pointer's offset in view pixels, applied to the rectangle
    // the handle had when it was grabbed.
    const QPoint offset = (event->localPos() - m_cornerPressPoint).toPoint();
    const QRectF saved = item->grabRect();
    const QPoint topLeft = mapFromScene(saved.topLeft()) + offset;
    const QPoint bottomRight = mapFromScene(saved.bottomRight()) + offset;
    item->setRect(QRectF(mapToScene(topLeft), mapToScene(bottomRight)));
    recolour(item);
    event->accept();
}

void macbethImageGraphicsView::mouseReleaseEvent(QMouseEvent *event)
{
    if (!m_cornerMode) {
        imageGraphicsView::mouseReleaseEvent(event);
        return;
    }
    viewport()->setCursor(Qt::ArrowCursor);
    m_grabbedHandle = nullptr;
    event->accept();
}
