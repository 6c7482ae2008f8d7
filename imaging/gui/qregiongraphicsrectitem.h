#pragma once
// One region on an imageGraphicsView: a movable, selectable rectangle in image
// pixel coordinates with a 1-based number, an outline colour that contrasts
// with the picture under it, and the calculation bound to it (owned).

#include <QColor>
#include <QGraphicsRectItem>
#include <QMetaType>
#include <QRectF>
#include <memory>

class regionBasedCalculation;

class qRegionGraphicsRectItem : public QGraphicsRectItem
{
public:
    enum { Type = UserType + 0x4b52 };

    // Edge or corner under the pointer; NoHandle when none.
    enum Handle {
        NoHandle = 0,
        TopEdge = 1,
        RightEdge = 2,
        BottomEdge = 3,
        LeftEdge = 4,
        TopLeftCorner = 5,
        TopRightCorner = 6,
        BottomLeftCorner = 7,
        BottomRightCorner = 8,
        Inside = 9,
    };

    explicit qRegionGraphicsRectItem(QGraphicsItem *parent = nullptr);
    explicit qRegionGraphicsRectItem(const QRectF &rect, QGraphicsItem *parent = nullptr);
    ~qRegionGraphicsRectItem() override;

    int type() const override { return Type; }

    int handle() const { return m_handle; }
    void setHandle(int handle) { m_handle = handle; }

    // The rectangle as it was when the region was grabbed.
    QRectF savedRect() const { return m_savedRect; }
    void setSavedRect(const QRectF &rect) { m_savedRect = rect; }

    // 1-based number on the view; 10 until the region is added to a view.
    int index() const { return m_index; }
    void setIndex(int index);

    // Outline colour; also sets the pen colour.
    QColor color() const { return m_color; }
    void setColor(const QColor &color);

    bool showNumber() const { return m_showNumber; }
    void setShowNumber(bool show);

    // The calculation bound to this region; the item owns it and deletes the
    // previous one when another is set.
    regionBasedCalculation *calculation() const { return m_calculation.get(); }
    void setCalculation(regionBasedCalculation *calculation);

    // Edge or corner code (Handle) for a position in view coordinates, given
    // the region's four corners already mapped to the view: 2-pixel bands
    // along the inside of the edges, corners where two bands meet.
    static int hitTest(const QPoint &topLeft, const QPoint &topRight, const QPoint &bottomLeft,
                       const QPoint &bottomRight, const QPoint &position);

    // Bounds of the normalised rectangle, so that a region dragged to a
    // negative width or height still paints and hit-tests correctly.
    QRectF boundingRect() const override;
    QPainterPath shape() const override;
    void paint(QPainter *painter, const QStyleOptionGraphicsItem *option, QWidget *widget) override;

protected:
    // Selecting lifts the region just above the regions it overlaps.
    QVariant itemChange(GraphicsItemChange change, const QVariant &value) override;

private:
    void updateLabel();

    int m_handle = NoHandle;
    QRectF m_savedRect;
    std::unique_ptr<QString> m_label;
    int m_index = 10;
    QColor m_color = QColor(Qt::red);
    bool m_showNumber = false;
    std::unique_ptr<regionBasedCalculation> m_calculation;
};

// Signals carry region pointers; this lets queued connections and signal
// spies hold them.
Q_DECLARE_METATYPE(qRegionGraphicsRectItem *)
