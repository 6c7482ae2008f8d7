#pragma once
// imageGraphicsView: a picture with rectangular regions drawn over it. The
// picture is one pixmap item at the scene origin (one scene unit per image
// pixel, z 0); regions are qRegionGraphicsRectItem items above it, kept in a
// list in the order of creation or loading.
//
// Drawing mode (pointingMode clear): a left-button drag draws a new region
// when drawingEnabled is set. Pointing mode: the pointer selects, moves and
// resizes existing regions by their edges and corners.

#include "imaging/gui/qregiongraphicsrectitem.h"

#include <QGraphicsView>
#include <QImage>
#include <QList>
#include <QPointF>
#include <QVector>

class QGraphicsPixmapItem;
class QGraphicsScene;

class imageGraphicsView : public QGraphicsView
{
    Q_OBJECT
public:
    explicit imageGraphicsView(QWidget *parent = nullptr);
    ~imageGraphicsView() override;

    // Shows a picture: creates the pixmap item on first use, otherwise
    // replaces its pixmap. Resets the stacking counter; regions stay.
    void setPicture(const QImage &image);
    QImage picture() const { return m_picture; }
    QGraphicsPixmapItem *pictureItem() const { return m_pictureItem; }

    // Region at a list position; null when out of range.
    qRegionGraphicsRectItem *region(int position) const;
    const QList<qRegionGraphicsRectItem *> &regions() const { return m_regions; }
    int regionCount() const { return m_regions.size(); }
    // The rectangles of the regions, in list order.
    QVector<QRectF> regionRects() const;

    qRegionGraphicsRectItem *currentRegion() const { return m_currentRegion; }
    qRegionGraphicsRectItem *grabbedRegion() const { return m_grabbedRegion; }
    qRegionGraphicsRectItem *drawingRegion() const { return m_drawingRegion; }

    bool pointingMode() const { return m_pointingMode; }
    bool drawingEnabled() const { return m_drawingEnabled; }
    double stackingCounter() const { return m_stackingCounter; }

    // Regions added while this is set show their number.
    bool showNumbers() const { return m_showNumbers; }
    void setShowNumbers(bool show) { m_showNumbers = show; }

    // Adds a region as loading does: outline colour from the picture, next
    // number and stacking value, number shown when showNumbers is set. It is
    // not selected and no signal is emitted.
    qRegionGraphicsRectItem *addRegion(const QRectF &rect);

    // Makes `item` the only selected region and the current one, and
    // announces it (regionSelectionChanged).
    void selectRegion(qRegionGraphicsRectItem *item);

    // Adds the regions of an ROI file to those on the view; the last one read
    // becomes selected and current. False (view unchanged) when the file
    // holds no regions.
    bool readRegions(const QString &path);
    // Writes the regions, rounded outwards, in list order. False when the
    // file cannot be written.
    bool writeRegions(const QString &path);

    // Outline colour that a rectangle would get on the current picture.
    QColor overlayColorFor(const QRectF &rect) const;

signals:
    void regionSelectionChanged(qRegionGraphicsRectItem *currentSelectedRect);
    void regionResized(qRegionGraphicsRectItem *item);
    void regionCreated();
    void regionDeleted();
    void overlayColorChanged(qRegionGraphicsRectItem *item);

public slots:
    void enablePointing();
    void enableSelection();
    void disablePointing();
    void fitView();
    void zoomIn();
    void zoomOut();
    void removeSelectedRegion();
    void removeAllRegions();
    void changeOverlayColor(qRegionGraphicsRectItem *item);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    // The region under a view position: the first selected region among the
    // items there (topmost first), else the topmost item if it is a region.
    qRegionGraphicsRectItem *regionAt(const QPoint &position) const;
    int handleAt(qRegionGraphicsRectItem *item, const QPoint &position) const;
    qRegionGraphicsRectItem *startRegion(const QPointF &viewPosition);
    void forget(qRegionGraphicsRectItem *item);
    // Scales the view by `factor`, keeping the total scale within
    // [kMinScale, kMaxScale] so that it stays finite and positive.
    void scaleBy(double factor);

    QGraphicsScene *m_scene = nullptr;
    QGraphicsPixmapItem *m_pictureItem = nullptr;
    QImage m_picture;
    bool m_pointingMode = false;
    bool m_drawingEnabled = false;
    QPointF m_pressPoint;
    qRegionGraphicsRectItem *m_drawingRegion = nullptr;
    qRegionGraphicsRectItem *m_grabbedRegion = nullptr;
    qRegionGraphicsRectItem *m_currentRegion = nullptr;
    QList<qRegionGraphicsRectItem *> m_regions;
    double m_stackingCounter = 0.0;
    bool m_showNumbers = false;
    // Wheel angle not yet applied: touchpads send fractions of a notch.
    int m_wheelRemainder = 0;
};

// The region file operations of a view, as free functions.
inline bool readRegions(imageGraphicsView *view, const QString &path)
{
    return view && view->readRegions(path);
}
inline bool writeRegions(imageGraphicsView *view, const QString &path)
{
    return view && view->writeRegions(path);
}
