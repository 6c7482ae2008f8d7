#include "imaging/gui/qgraphicscornerellipseitem.h"

#include <QPainter>
#include <QPen>

QGraphicsCornerEllipseItem::QGraphicsCornerEllipseItem(const QRectF &rect, int cornerNumber,
                                                       QGraphicsItem *parent)
    : QGraphicsEllipseItem(rect, parent)
    , m_cornerNumber(cornerNumber)
{
    setFlag(ItemIsSelectable, true);
    setColor(m_color);
}

void QGraphicsCornerEllipseItem::setColor(const QColor &color)
{
    m_color = color;
    // A cosmetic pen keeps the ring readable at any zoom.
    QPen pen(color);
    pen.setCosmetic(true);
    pen.setWidth(2);
    setPen(pen);
    QColor fill = color;
    fill.setAlpha(50);
    setBrush(fill);
    update();
}

void QGraphicsCornerEllipseItem::paint(QPainter *painter, const QStyleOptionGraphicsItem *option,
                                       QWidget *widget)
{
    QGraphicsEllipseItem::paint(painter, option, widget);
    // A cross at the centre shows where the control point sits.
    const QRectF r = rect();
    QPen pen = this->pen();
    pen.setWidth(isSelected() ? 2 : 1);
    painter->setPen(pen);
    const QPointF c = r.center();
    const double arm = r.width() / 4.0;
    painter->drawLine(QPointF(c.x() - arm, c.y()), QPointF(c.x() + arm, c.y()));
    painter->drawLine(QPointF(c.x(), c.y() - arm), QPointF(c.x(), c.y() + arm));
}
