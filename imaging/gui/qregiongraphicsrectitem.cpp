#include "imaging/gui/qregiongraphicsrectitem.h"

#include "imaging/gui/viewlog.h"
#include "imaging/regionbasedcalculation.h"

#include <QFont>
#include <QGraphicsScene>
#include <QPainter>
#include <QPainterPath>
#include <QPen>
#include <QRect>
#include <QStyleOptionGraphicsItem>

qRegionGraphicsRectItem::qRegionGraphicsRectItem(QGraphicsItem *parent)
    : qRegionGraphicsRectItem(QRectF(), parent)
{ }

qRegionGraphicsRectItem::qRegionGraphicsRectItem(const QRectF &rect, QGraphicsItem *parent)
    : QGraphicsRectItem(rect, parent)
    , m_label(std::make_unique<QString>())
{
    setFlag(QGraphicsItem::ItemIsMovable, true);
    setFlag(QGraphicsItem::ItemIsSelectable, true);
    setPen(QPen(m_color));
    updateLabel();
}

qRegionGraphicsRectItem::~qRegionGraphicsRectItem() = default;

void qRegionGraphicsRectItem::setIndex(int index)
{
    m_index = index;
    updateLabel();
    update();
}

void qRegionGraphicsRectItem::setColor(const QColor &color)
{
    if (color == m_color && pen().color() == color)
        return;
    m_color = color;
    QPen p = pen();
    p.setColor(color);
    setPen(p);
}

void qRegionGraphicsRectItem::setShowNumber(bool show)
{
    if (show == m_showNumber)
        return;
    m_showNumber = show;
    update();
}

void qRegionGraphicsRectItem::setCalculation(regionBasedCalculation *calculation)
{
    if (calculation == m_calculation.get())
        return;
    m_calculation.reset(calculation);
}

void qRegionGraphicsRectItem::updateLabel()
{
    *m_label = QStringLiteral("%1").arg(m_index);
}

int qRegionGraphicsRectItem::hitTest(const QPoint &topLeft, const QPoint &topRight,
                                     const QPoint &bottomLeft, const QPoint &bottomRight,
                                     const QPoint &position)
{
    // Each band is 2 view pixels thick on the inside of its edge and
    // includes its border.
    auto inBand = [&](int x0, int y0, int x1, int y1) {
        const int left = qMin(x0, x1), right = qMax(x0, x1);
        const int top = qMin(y0, y1), bottom = qMax(y0, y1);
        return position.x() >= left && position.x() <= right && position.y() >= top
               && position.y() <= bottom;
    };
    const bool top = inBand(topLeft.x(), topLeft.y(), topRight.x(), topRight.y() + 2);
    const bool bottom = inBand(bottomLeft.x(), bottomLeft.y() - 2, bottomRight.x(), bottomRight.y());
    const bool left = inBand(topLeft.x(), topLeft.y(), bottomLeft.x() + 2, bottomLeft.y());
    const bool right = inBand(topRight.x() - 2, topRight.y(), bottomRight.x(), bottomRight.y());
    if (top && left)
        return TopLeftCorner;
    if (top && right)
        return TopRightCorner;
    if (bottom && right)
        return BottomRightCorner;
    if (bottom && left)
        return BottomLeftCorner;
    if (top)
        return TopEdge;
    if (right)
        return RightEdge;
    if (bottom)
        return BottomEdge;
    if (left)
        return LeftEdge;
    return Inside;
}

QRectF qRegionGraphicsRectItem::boundingRect() const
{
    const qreal halfPen = pen().style() == Qt::NoPen ? 0.0 : pen().widthF() / 2;
    // A cosmetic pen (width 0) still covers one device pixel; half a scene
    // unit of margin keeps it inside the bounds at the usual zoom levels.
    const qreal margin = qMax<qreal>(halfPen, 0.5);
    return rect().normalized().adjusted(-margin, -margin, margin, margin);
}

QPainterPath qRegionGraphicsRectItem::shape() const
{
    QPainterPath path;
    path.addRect(rect().normalized());
    return path;
}

void qRegionGraphicsRectItem::paint(QPainter *painter, const QStyleOptionGraphicsItem *option,
                                    QWidget *widget)
{
    const QBrush brush(m_color, Qt::SolidPattern);
    painter->setPen(m_color);
    painter->setBrush(brush);
    if (m_showNumber) {
        const QRectF r = rect();
        const int pointSize = static_cast<int>(r.height()) / 2;
        if (pointSize > 0) {
            QFont font(QStringLiteral("Times"));
            font.setPointSize(pointSize);
            QPainterPath text;
            text.addText(QPointF(r.left() + 2, r.top() + r.height() - 2), font, *m_label);
            painter->fillPath(text, brush);
        }
    }
    // Outline and selection marker the standard way, with the item's pen and
    // without a fill.
    QGraphicsRectItem::paint(painter, option, widget);
}

QVariant qRegionGraphicsRectItem::itemChange(GraphicsItemChange change, const QVariant &value)
{
    if (change == ItemSelectedChange && value.toBool() && scene()) {
        const QRectF mine = sceneBoundingRect();
        qreal highest = 0.0;
        bool any = false;
        const QList<QGraphicsItem *> all = scene()->items(mine, Qt::IntersectsItemBoundingRect);
        for (QGraphicsItem *item : all) {
            if (item == this || item->type() != Type)
                continue;
            if (!item->sceneBoundingRect().intersects(mine))
                continue;
            if (!any || item->zValue() > highest)
                highest = item->zValue();
            any = true;
        }
        const qreal newZ = any ? highest + 0.0001 : 0.0;
        qCDebug(kestroViewLog) << "old Z : " << zValue();
        setZValue(newZ);
        qCDebug(kestroViewLog) << "new Z : " << zValue();
    }
    return QGraphicsRectItem::itemChange(change, value);
}
