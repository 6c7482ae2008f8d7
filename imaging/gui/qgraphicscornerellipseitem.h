#pragma once
// A chart handle of the chart frame view: a round, draggable marker over one
// of the six control points of the patch layout (0 top-left, 1 top-middle,
// 2 top-right, 3 bottom-right, 4 bottom-middle, 5 bottom-left).

#include <QColor>
#include <QGraphicsEllipseItem>
#include <QMetaType>
#include <QRectF>

class QGraphicsCornerEllipseItem : public QGraphicsEllipseItem
{
public:
    enum { Type = UserType + 0x4b53 };
    // Number of a handle that belongs to no control point.
    enum { NoCorner = 6 };

    explicit QGraphicsCornerEllipseItem(const QRectF &rect = QRectF(), int cornerNumber = NoCorner,
                                        QGraphicsItem *parent = nullptr);

    int type() const override { return Type; }

    int cornerNumber() const { return m_cornerNumber; }
    void setCornerNumber(int number) { m_cornerNumber = number; }

    // The rectangle as it was when the handle was grabbed.
    QRectF grabRect() const { return m_grabRect; }
    void setGrabRect(const QRectF &rect) { m_grabRect = rect; }

    // Outline colour (contrasting with the picture under the handle).
    void setColor(const QColor &color);
    QColor color() const { return m_color; }

    void paint(QPainter *painter, const QStyleOptionGraphicsItem *option, QWidget *widget) override;

private:
    int m_cornerNumber = NoCorner;
    QRectF m_grabRect;
    QColor m_color = QColor(Qt::red);
};

Q_DECLARE_METATYPE(QGraphicsCornerEllipseItem *)
