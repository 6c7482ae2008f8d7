#pragma once
// macbethImageGraphicsView: the region view of the chart frame view. On top
// of the region drawing and editing of imageGraphicsView it shows six chart
// handles in corner mode; dragging one announces the new position
// (cornerMoved) so that the frame view can lay out the patches again.

#include "imaging/gui/imagegraphicsview.h"
#include "imaging/gui/qgraphicscornerellipseitem.h"

#include <QList>
#include <QPointF>
#include <QVector>

class macbethImageGraphicsView : public imageGraphicsView
{
    Q_OBJECT
public:
    explicit macbethImageGraphicsView(QWidget *parent = nullptr);

    // Corner mode shows the handles and lets the pointer drag them. Leaving
    // it hides the handles and forgets the grabbed one.
    bool cornerMode() const { return m_cornerMode; }
    void setCornerMode(bool on);

    const QList<QGraphicsCornerEllipseItem *> &handles() const { return m_handles; }
    // Replaces the handles by one per square, numbered in square order,
    // stacked above the regions and coloured like a region outline on the
    // same square, so that each stands out from the patch beneath it.
    void setHandles(const QVector<QRectF> &squares);
    // Moves the existing handles onto new squares, except the one being
    // dragged (it follows the pointer itself).
    void updateHandles(const QVector<QRectF> &squares);
    void removeHandles();
    QGraphicsCornerEllipseItem *grabbedHandle() const { return m_grabbedHandle; }
    // The scene position last announced by cornerMoved.
    QPointF cornerPoint() const { return m_cornerPoint; }

    // (picture width x 10) / view width when the view is wider than the
    // picture, else 10; stored before detection, reset and corner placement.
    int displayScaleFactor() const { return m_displayScaleFactor; }
    void storeDisplayScaleFactor();

signals:
    void cornerMoved(QGraphicsCornerEllipseItem *item, QPointF point);

public slots:
    // Pointing mode for the regions; corner mode ends.
    void enablePointing();
    void increasePatchSize();
    void decreasePatchSize();
    // Scales every region about its centre.
    void scalePatchSize(double scale);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    QGraphicsCornerEllipseItem *handleAt(const QPoint &position) const;
    void recolour(QGraphicsCornerEllipseItem *item);

    QList<QGraphicsCornerEllipseItem *> m_handles;
    bool m_cornerMode = false;
    QGraphicsCornerEllipseItem *m_grabbedHandle = nullptr;
    QPointF m_cornerPressPoint;
    QPointF m_cornerPoint;
    int m_displayScaleFactor = 10;
};
