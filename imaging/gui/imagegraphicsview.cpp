#include "imaging/gui/imagegraphicsview.h"

#include "imaging/gui/viewlog.h"
#include "imaging/region.h"
#include "imaging/roifile.h"

#include <QEvent>
#include <QGraphicsPixmapItem>
#include <QGraphicsScene>
#include <QMouseEvent>
#include <QPixmap>
#include <QWheelEvent>
#include <cstdint>

namespace {

// Mean colour of an integer rectangle read straight from the scan lines of a
// 32-bit picture. Same sums and divisions as kestro::regionMeanColor, so the
// result is identical; it keeps the outline colour cheap to follow while a
// large region is dragged over a large picture.
QColor meanColor32(const QImage &image, const QRect &rect)
{
    std::uint64_t sumR = 0, sumG = 0, sumB = 0;
    const int right = rect.left() + rect.width() - 1;
    const int bottom = rect.top() + rect.height() - 1;
    for (int y = rect.top(); y <= bottom; ++y) {
        const QRgb *line = reinterpret_cast<const QRgb *>(image.constScanLine(y));
        for (int x = rect.left(); x <= right; ++x) {
            const QRgb px = line[x];
            sumR += qRed(px);
            sumG += qGreen(px);
            sumB += qBlue(px);
        }
    }
    const double n = static_cast<double>(rect.width()) * rect.height() * 255.0;
    QColor c;
    c.setRgbF(static_cast<double>(sumR) / n, static_cast<double>(sumG) / n,
              static_cast<double>(sumB) / n);
    return c;
}

} // namespace

imageGraphicsView::imageGraphicsView(QWidget *parent)
    : QGraphicsView(parent)
    , m_scene(new QGraphicsScene(this))
{
    setObjectName(QStringLiteral("imageGraphicsView"));
    setWindowTitle(QStringLiteral("imageGraphicsView"));
    resize(400, 300);
    setScene(m_scene);
    // Regions move and resize all the time; an unindexed scene avoids
    // rebuilding a spatial index on every step and is fast enough for a few
    // hundred items.
    m_scene->setItemIndexMethod(QGraphicsScene::NoIndex);
    viewport()->installEventFilter(this);
    connect(this, &imageGraphicsView::overlayColorChanged, this,
            &imageGraphicsView::changeOverlayColor);
}

imageGraphicsView::~imageGraphicsView()
{
    // The scene (a child object) deletes the items.
    m_regions.clear();
}

void imageGraphicsView::setPicture(const QImage &image)
{
    m_picture = image;
    const QPixmap pixmap = QPixmap::fromImage(image);
    if (!m_pictureItem) {
        m_pictureItem = m_scene->addPixmap(pixmap);
        m_pictureItem->setPos(0, 0);
    } else {
        m_pictureItem->setPixmap(pixmap);
    }
    m_pictureItem->setZValue(0);
    m_scene->setSceneRect(m_pictureItem->boundingRect());
    m_stackingCounter = 0.0;
}

qRegionGraphicsRectItem *imageGraphicsView::region(int position) const
{
    if (position < 0 || position >= m_regions.size())
        return nullptr;
    return m_regions.at(position);
}

QVector<QRectF> imageGraphicsView::regionRects() const
{
    QVector<QRectF> rects;
    rects.reserve(m_regions.size());
    for (const qRegionGraphicsRectItem *item : m_regions)
        rects.append(item->rect());
    return rects;
}

QColor imageGraphicsView::overlayColorFor(const QRectF &rect) const
{
    const QColor red(Qt::red);
    if (m_picture.isNull())
        return red;
    const QImage::Format format = m_picture.format();
    if (format != QImage::Format_RGB32 && format != QImage::Format_ARGB32)
        return kestro::regionOverlayColor(m_picture, rect);
    const QRect r = kestro::roiStoredRect(rect);
    if (!kestro::isRegionValid(m_picture, r))
        return red;
    const QColor mean = meanColor32(m_picture, r);
    if (kestro::isNearNeutral(mean.redF(), mean.greenF(), mean.blueF()))
        return red;
    QColor complement;
    complement.setRgbF(1.0 - mean.redF(), 1.0 - mean.greenF(), 1.0 - mean.blueF());
    return complement;
}

void imageGraphicsView::changeOverlayColor(qRegionGraphicsRectItem *item)
{
    if (!item)
        return;
    item->setColor(overlayColorFor(item->rect()));
}

qRegionGraphicsRectItem *imageGraphicsView::addRegion(const QRectF &rect)
{
    auto *item = new qRegionGraphicsRectItem(rect);
    changeOverlayColor(item);
    m_scene->addItem(item);
    m_regions.append(item);
    item->setIndex(m_regions.size());
    if (m_showNumbers)
        item->setShowNumber(true);
    m_stackingCounter += 0.01;
    item->setZValue(m_stackingCounter);
    item->show();
    return item;
}

void imageGraphicsView::selectRegion(qRegionGraphicsRectItem *item)
{
    const QList<QGraphicsItem *> selected = m_scene->selectedItems();
    for (QGraphicsItem *other : selected) {
        if (other != item)
            other->setSelected(false);
    }
    if (item)
        item->setSelected(true);
    m_currentRegion = item;
    emit regionSelectionChanged(m_currentRegion);
}

bool imageGraphicsView::readRegions(const QString &path)
{
    const kestro::RoiReadResult result = kestro::readRoiFile(path);
    if (!result.ok || result.rects.isEmpty())
        return false;
    qRegionGraphicsRectItem *last = nullptr;
    for (const QRectF &rect : result.rects)
        last = addRegion(rect);
    selectRegion(last);
    return true;
}

bool imageGraphicsView::writeRegions(const QString &path)
{
    return kestro::writeRoiFile(path, regionRects());
}

void imageGraphicsView::enablePointing()
{
    m_pointingMode = true;
    setMouseTracking(true);
    viewport()->setMouseTracking(true);
    viewport()->setCursor(Qt::ArrowCursor);
}

void imageGraphicsView::enableSelection()
{
    m_pointingMode = false;
    m_drawingEnabled = true;
    setMouseTracking(false);
    viewport()->setMouseTracking(false);
    viewport()->setCursor(Qt::CrossCursor);
}

void imageGraphicsView::disablePointing()
{
    // drawingEnabled is deliberately left as it is.
    m_pointingMode = false;
    setMouseTracking(false);
    viewport()->setMouseTracking(false);
    viewport()->setCursor(Qt::ArrowCursor);
}

void imageGraphicsView::fitView()
{
    if (!m_pictureItem)
        return;
    fitInView(m_pictureItem->boundingRect(), Qt::KeepAspectRatio);
}

void imageGraphicsView::zoomIn()
{
    scaleBy(2.0);
}

void imageGraphicsView::zoomOut()
{
    scaleBy(0.5);
}

void imageGraphicsView::forget(qRegionGraphicsRectItem *item)
{
    if (m_drawingRegion == item)
        m_drawingRegion = nullptr;
    if (m_grabbedRegion == item)
        m_grabbedRegion = nullptr;
    if (m_currentRegion == item)
        m_currentRegion = nullptr;
}

void imageGraphicsView::removeSelectedRegion()
{
    int position = -1;
    for (int i = 0; i < m_regions.size(); ++i) {
        if (m_regions.at(i)->isSelected()) {
            position = i;
            break;
        }
    }
    if (position < 0) {
        emit regionDeleted();
        return;
    }
    qRegionGraphicsRectItem *item = m_regions.takeAt(position);
    forget(item);
    m_scene->removeItem(item);
    delete item;
    // The region that took its place, or the one before it when it was last.
    qRegionGraphicsRectItem *neighbour = nullptr;
    if (!m_regions.isEmpty())
        neighbour = m_regions.at(qMin(position, m_regions.size() - 1));
    if (neighbour)
        neighbour->setSelected(true);
    m_currentRegion = neighbour;
    emit regionSelectionChanged(m_currentRegion);
    emit regionDeleted();
}

void imageGraphicsView::removeAllRegions()
{
    for (qRegionGraphicsRectItem *item : qAsConst(m_regions)) {
        m_scene->removeItem(item);
        delete item;
    }
    // A region still being drawn is not in the list yet.
    if (m_drawingRegion && !m_regions.contains(m_drawingRegion)) {
        m_scene->removeItem(m_drawingRegion);
        delete m_drawingRegion;
    }
    m_drawingRegion = nullptr;
    m_grabbedRegion = nullptr;
    m_stackingCounter = 0.0;
    m_scene->update();
    viewport()->update();
    m_regions.clear();
    m_currentRegion = nullptr;
    emit regionSelectionChanged(nullptr);
    emit regionDeleted();
}

qRegionGraphicsRectItem *imageGraphicsView::regionAt(const QPoint &position) const
{
    const QList<QGraphicsItem *> under = items(position);
    for (QGraphicsItem *item : under) {
        if (item->type() == qRegionGraphicsRectItem::Type && item->isSelected())
            return static_cast<qRegionGraphicsRectItem *>(item);
    }
    QGraphicsItem *top = itemAt(position);
    if (top && top->type() == qRegionGraphicsRectItem::Type)
        return static_cast<qRegionGraphicsRectItem *>(top);
    return nullptr;
}

int imageGraphicsView::handleAt(qRegionGraphicsRectItem *item, const QPoint &position) const
{
    const QRectF r = item->rect();
    auto toView = [&](const QPointF &p) { return mapFromScene(item->mapToScene(p)); };
    return qRegionGraphicsRectItem::hitTest(toView(r.topLeft()), toView(r.topRight()),
                                            toView(r.bottomLeft()), toView(r.bottomRight()),
                                            position);
}

qRegionGraphicsRectItem *imageGraphicsView::startRegion(const QPointF &viewPosition)
{
    auto *item = new qRegionGraphicsRectItem(
            QRectF(mapToScene(viewPosition.toPoint()), QSizeF(0, 0)));
    emit overlayColorChanged(item);
    m_scene->addItem(item);
    item->show();
    return item;
}

void imageGraphicsView::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QGraphicsView::mousePressEvent(event);
        return;
    }
    m_pressPoint = event->localPos();
    if (!m_pointingMode) {
        if (!m_pictureItem)
            return;
        if (!m_drawingEnabled) {
            m_drawingRegion = nullptr;
            return;
        }
        m_drawingRegion = startRegion(m_pressPoint);
        m_stackingCounter += 0.01;
        m_drawingRegion->setZValue(m_stackingCounter);
        return;
    }
    qRegionGraphicsRectItem *item = regionAt(event->pos());
    if (!item)
        return;
    // The handle normally comes from hovering; take it again at the press
    // so that a press without a preceding move grabs the right part.
    item->setHandle(handleAt(item, event->pos()));
    if (item == m_grabbedRegion) {
        m_currentRegion = item;
        emit regionSelectionChanged(m_currentRegion);
        return;
    }
    m_grabbedRegion = item;
    item->setSelected(true);
    item->setSavedRect(item->rect());
    const QList<QGraphicsItem *> selected = m_scene->selectedItems();
    for (QGraphicsItem *other : selected) {
        if (other != item)
            other->setSelected(false);
    }
    m_currentRegion = item;
    emit regionSelectionChanged(m_currentRegion);
}

void imageGraphicsView::mouseMoveEvent(QMouseEvent *event)
{
    qCDebug(kestroViewLog) << "Mouse move   " << m_pointingMode;
    const QPoint pos = event->pos();
    if (!m_pointingMode) {
        if (!(event->buttons() & Qt::LeftButton)) {
            QGraphicsView::mouseMoveEvent(event);
            return;
        }
        if (m_drawingRegion) {
            const QRectF span = QRectF(m_pressPoint, event->localPos()).normalized();
            const QPointF topLeft = mapToScene(span.topLeft().toPoint());
            const QPointF bottomRight = mapToScene(span.bottomRight().toPoint());
            m_drawingRegion->setRect(QRectF(topLeft, bottomRight));
            emit overlayColorChanged(m_drawingRegion);
        } else if (m_drawingEnabled && m_pictureItem) {
            m_drawingRegion = startRegion(event->localPos());
        }
        return;
    }

    if (!m_grabbedRegion) {
        qRegionGraphicsRectItem *item = regionAt(pos);
        if (!item) {
            viewport()->setCursor(Qt::ArrowCursor);
            return;
        }
        const int handle = handleAt(item, pos);
        item->setHandle(handle);
        switch (handle) {
        case qRegionGraphicsRectItem::TopEdge:
        case qRegionGraphicsRectItem::BottomEdge:
            viewport()->setCursor(Qt::SizeVerCursor);
            break;
        case qRegionGraphicsRectItem::RightEdge:
        case qRegionGraphicsRectItem::LeftEdge:
            viewport()->setCursor(Qt::SizeHorCursor);
            break;
        case qRegionGraphicsRectItem::TopLeftCorner:
        case qRegionGraphicsRectItem::BottomRightCorner:
            viewport()->setCursor(Qt::SizeFDiagCursor);
            break;
        case qRegionGraphicsRectItem::TopRightCorner:
        case qRegionGraphicsRectItem::BottomLeftCorner:
            viewport()->setCursor(Qt::SizeBDiagCursor);
            break;
        default:
            viewport()->setCursor(Qt::SizeAllCursor);
            break;
        }
        return;
    }

    qRegionGraphicsRectItem *item = m_grabbedRegion;
    const int handle = item->handle();
    if (handle < qRegionGraphicsRectItem::TopEdge || handle > qRegionGraphicsRectItem::Inside) {
        QGraphicsView::mouseMoveEvent(event);
        return;
    }
    item->resetTransform();
    const QPointF scenePos = item->mapFromScene(mapToScene(pos));
    QRectF r = item->rect();
    switch (handle) {
    case qRegionGraphicsRectItem::TopEdge:
        r.setTop(scenePos.y());
        break;
    case qRegionGraphicsRectItem::BottomEdge:
        r.setBottom(scenePos.y());
        break;
    case qRegionGraphicsRectItem::RightEdge:
        r.setRight(scenePos.x());
        break;
    case qRegionGraphicsRectItem::LeftEdge:
        r.setLeft(scenePos.x());
        break;
    case qRegionGraphicsRectItem::TopLeftCorner:
        r.setTopLeft(scenePos);
        break;
    case qRegionGraphicsRectItem::TopRightCorner:
        r.setTopRight(scenePos);
        break;
    case qRegionGraphicsRectItem::BottomLeftCorner:
        r.setBottomLeft(scenePos);
        break;
    case qRegionGraphicsRectItem::BottomRightCorner:
        r.setBottomRight(scenePos);
        break;
    case qRegionGraphicsRectItem::Inside: {
        // Move by the pointer's offset in view pixels, applied to the saved
        // rectangle on the view's pixel grid.
        const QPoint offset = (event->localPos() - m_pressPoint).toPoint();
        const QRectF saved = item->savedRect();
        const QPoint viewTopLeft = mapFromScene(item->mapToScene(saved.topLeft())) + offset;
        const QPoint viewBottomRight = mapFromScene(item->mapToScene(saved.bottomRight())) + offset;
        r = QRectF(item->mapFromScene(mapToScene(viewTopLeft)),
                   item->mapFromScene(mapToScene(viewBottomRight)));
        break;
    }
    default:
        break;
    }
    item->setRect(r);
    emit overlayColorChanged(item);
}

void imageGraphicsView::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QGraphicsView::mouseReleaseEvent(event);
        return;
    }
    if (!m_pointingMode) {
        qCDebug(kestroViewLog) << "Done with region drawing";
        if (!m_pictureItem || !m_drawingRegion || !m_drawingEnabled)
            return;
        qRegionGraphicsRectItem *item = m_drawingRegion;
        m_drawingRegion = nullptr;
        m_regions.append(item);
        item->setIndex(m_regions.size());
        if (m_showNumbers)
            item->setShowNumber(true);
        qCDebug(kestroViewLog) << "Total regions count " << m_regions.size()
                               << " : current region view  " << item->rect() << " visible  "
                               << item->isVisible() << " : z Height " << item->zValue();
        m_currentRegion = item;
        emit regionCreated();
        return;
    }
    viewport()->setCursor(Qt::ArrowCursor);
    if (m_grabbedRegion) {
        m_grabbedRegion->setHandle(qRegionGraphicsRectItem::NoHandle);
        m_grabbedRegion = nullptr;
    }
    emit regionResized(m_currentRegion);
    emit regionSelectionChanged(m_currentRegion);
}

void imageGraphicsView::wheelEvent(QWheelEvent *event)
{
    // Angle deltas add up until they make whole notches (120 each, as a
    // mouse wheel sends them); only whole notches zoom, the rest waits for
    // the next event. One notch away from the user halves the scale, one
    // towards doubles it; n notches at once scale by 1 / (2n) or 2n.
    m_wheelRemainder += event->angleDelta().y();
    const int steps = m_wheelRemainder / 120;
    m_wheelRemainder -= steps * 120;
    if (steps != 0)
        scaleBy(steps > 0 ? 1.0 / (2.0 * steps) : -2.0 * steps);
    event->accept();
}

void imageGraphicsView::scaleBy(double factor)
{
    constexpr double kMinScale = 1.0 / 4096;
    constexpr double kMaxScale = 4096;
    const double current = transform().m11();
    if (!(factor > 0) || !qIsFinite(factor) || !(current > 0))
        return;
    const double wanted = qBound(kMinScale, current * factor, kMaxScale);
    scale(wanted / current, wanted / current);
}

bool imageGraphicsView::eventFilter(QObject *watched, QEvent *event)
{
    qCDebug(kestroViewLog) << " QEvent == " << static_cast<int>(event->type());
    return QGraphicsView::eventFilter(watched, event);
}
