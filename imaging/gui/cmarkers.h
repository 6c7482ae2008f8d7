#pragma once
// CMarkers: the patch locator of the chart frame view. It keeps the six
// control points of the corner-assisted layout with the transforms derived
// from them, turns them into the 24 patch rectangles, and runs the chart
// detection library on its own thread.
//
// Control points: 0 top-left, 1 top-middle, 2 top-right, 3 bottom-right,
// 4 bottom-middle, 5 bottom-left of the chart. The chart transform maps the
// reference rectangle (points 0, 2, 3, 5 when the layout was initialised)
// onto the current corners; the two middle points split the chart into a
// left and a right half, each with a projective transform of its own, so a
// bent or unevenly tilted chart can still be followed.

#include "platform/chartdetect/chartdetect.h"

#include <QImage>
#include <QPointF>
#include <QPolygonF>
#include <QReadWriteLock>
#include <QRectF>
#include <QThread>
#include <QTransform>
#include <QVector>

#include <atomic>
#include <mutex>

class CMarkers : public QThread
{
    Q_OBJECT
public:
    enum { PointCount = 6, MaxPatchRects = 140 };
    // Detection modes: 0 detects; 1 disables detection.
    enum { ModeDetect = 0, ModeNoDetection = 1 };

    explicit CMarkers(QObject *parent = nullptr);
    // Asks a running detection to stop and waits for it.
    ~CMarkers() override;

    // The picture to work on (a copy). The control points are kept when the
    // new picture has the size of the old one; otherwise they are cleared so
    // that the next use initialises them again. Takes the lock for writing,
    // so a running detection is asked to stop first.
    void setImage(const QImage &image);
    QImage image() const;

    // --- Corner layout -------------------------------------------------
    // The default layout for the current picture (unless pointsFromDetection
    // is set, which keeps the points), then the derived sizes and handle
    // squares. Clears middleMoved.
    void initControlPoints();
    // After a successful detection: the default layout's reference with its
    // corners moved onto the detected chart (points 0, 2, 3, 5 at the outer
    // corners of patches 1, 6, 24 and 19, the middle points between them),
    // so that corner-assisted placement starts from the chart found. False
    // (layout unchanged) without a valid detection.
    bool placeCornersOnDetection();
    // Initialises the layout when the points were cleared.
    void ensureControlPoints();
    bool hasControlPoints() const;
    QVector<QPointF> controlPoints() const;
    QPointF controlPoint(int index) const;
    // Sets one point, as a drag does: a point at (0, 0) is ignored; moving
    // point 1 or 4 sets middleMoved. Recomputes the geometry and the handle
    // squares. False when nothing changed.
    bool moveControlPoint(int index, const QPointF &point);
    // Recomputes the transforms after point `movedIndex` changed (-1: none).
    void computeCornerGeometry(int movedIndex);

    bool middleMoved() const { return m_middleMoved; }
    void setMiddleMoved(bool moved) { m_middleMoved = moved; }
    bool pointsFromDetection() const { return m_pointsFromDetection; }
    void setPointsFromDetection(bool set) { m_pointsFromDetection = set; }

    QTransform chartTransform() const { return m_chartTransform; }
    QTransform leftHalfTransform() const { return m_leftTransform; }
    QTransform rightHalfTransform() const { return m_rightTransform; }
    QPolygonF referenceRect() const { return m_reference; }
    double chartWidth() const { return m_chartWidth; }
    double chartHeight() const { return m_chartHeight; }
    double pitchX() const { return m_pitchX; }
    double pitchY() const { return m_pitchY; }
    double patchWidth() const { return m_patchWidth; }
    double patchHeight() const { return m_patchHeight; }
    int columns() const { return m_columns; }
    int rows() const { return m_rows; }
    int handleRadius() const { return m_handleRadius; }
    // One square of side 2 x handleRadius + 1 around each control point.
    QVector<QRectF> handleSquares() const { return m_handleSquares; }

    // The 24 patch rectangles of the corner layout in reading order: the
    // central 40 % of each cell, mapped through the half transforms. Empty
    // (and the flag cleared) while pointsFromDetection is set.
    QVector<QRectF> cornerPatchRects();

    // --- Detection -----------------------------------------------------
    int detectionMode() const { return m_mode; }
    void setDetectionMode(int mode) { m_mode = mode; }
    bool detectionValid() const;
    void discardDetection();
    // The number of patches the last detection found.
    int detectedCount() const;
    // The detected rectangles (top-left origin), empty unless the detection
    // is valid and enabled.
    QVector<QRectF> detectedPatchRects() const;
    // The rectangles the view adds: detected ones when valid, else the
    // corner layout.
    QVector<QRectF> patchRects();

    // Starts a detection of the current picture on this thread. A detection
    // still running is asked to stop and waited for first. Returns the id
    // that detectionCompleted will carry.
    int startDetection(Priority priority = InheritPriority);
    // Asks a running detection to stop; the library returns soon with
    // fewer than 24 patches.
    void requestStop();
    bool keepRunning() const;
    // Id of the latest detection started.
    int currentRunId() const { return m_runId.load(); }

signals:
    // The detection `runId` ended with `found` patches (24 is success).
    void detectionCompleted(int runId, int found);

protected:
    void run() override;

private:
    void initLocked();
    void rebuildHandleSquares();
    void stopAndWait();

    QPointF m_points[PointCount];
    bool m_hasPoints = false;
    QTransform m_chartTransform;
    QTransform m_leftTransform;
    QTransform m_rightTransform;
    QPolygonF m_leftHalf;
    QPolygonF m_rightHalf;
    bool m_middleMoved = false;
    int m_columns = 6;
    int m_rows = 4;
    int m_mode = ModeDetect;
    bool m_pointsFromDetection = false;

    mutable std::mutex m_resultMutex;
    ColorCheckerROI m_detected[kestro::chartdetect::kPatchCount] = {};
    bool m_detectionValid = false;
    int m_detectedCount = 0;

    QImage m_image;
    QPolygonF m_reference; // top-left, top-right, bottom-right, bottom-left
    QVector<QRectF> m_handleSquares;
    int m_handleRadius = 50;
    double m_chartWidth = 0.0, m_chartHeight = 0.0;
    double m_patchWidth = 0.0, m_patchHeight = 0.0;
    double m_pitchX = 0.0, m_pitchY = 0.0;

    // Read by the detection library while it works; 0 asks it to stop.
    unsigned char m_keepRunning = 0;
    std::atomic<int> m_runId{0};
    int m_threadRunId = 0;
    mutable QReadWriteLock m_lock{QReadWriteLock::Recursive};
};
