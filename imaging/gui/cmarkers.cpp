#include "imaging/gui/cmarkers.h"

#include "platform/chartdetect/qimagebuffer.h"

#include <QReadLocker>
#include <QWriteLocker>

#include <cstring>
#include <memory>

namespace {

void storeFlag(unsigned char *flag, unsigned char value)
{
    __atomic_store_n(flag, value, __ATOMIC_RELAXED);
}

} // namespace

CMarkers::CMarkers(QObject *parent)
    : QThread(parent)
{ }

CMarkers::~CMarkers()
{
    stopAndWait();
}

void CMarkers::stopAndWait()
{
    requestStop();
    if (isRunning())
        wait();
}

void CMarkers::requestStop()
{
    storeFlag(&m_keepRunning, 0);
}

bool CMarkers::keepRunning() const
{
    return __atomic_load_n(&m_keepRunning, __ATOMIC_RELAXED) != 0;
}

void CMarkers::setImage(const QImage &image)
{
    // A running detection holds the lock for reading; ask it to stop so that
    // the picture can change without a long wait.
    requestStop();
    QWriteLocker locker(&m_lock);
    if (image.size() != m_image.size())
        m_hasPoints = false;
    m_image = image;
}

QImage CMarkers::image() const
{
    QReadLocker locker(&m_lock);
    return m_image;
}

void CMarkers::initControlPoints()
{
    QReadLocker locker(&m_lock);
    initLocked();
}

void CMarkers::ensureControlPoints()
{
    QReadLocker locker(&m_lock);
    if (!m_hasPoints)
        initLocked();
}

void CMarkers::initLocked()
{
    if (!m_pointsFromDetection) {
        const double w = m_image.width(), h = m_image.height();
        m_points[0] = QPointF(w / 3, h / 3);
        m_points[1] = QPointF(w / 2, h / 3);
        m_points[2] = QPointF(2 * w / 3, h / 3);
        m_points[3] = QPointF(2 * w / 3, 2 * h / 3);
        m_points[4] = QPointF(w / 2, 2 * h / 3);
        m_points[5] = QPointF(w / 3, 2 * h / 3);
        m_chartTransform.reset();
        m_middleMoved = false;
    }
    m_hasPoints = true;
    m_reference = QPolygonF({m_points[0], m_points[2], m_points[3], m_points[5]});
    m_chartWidth = m_reference[1].x() - m_reference[0].x();
    m_chartHeight = m_reference[3].y() - m_reference[0].y();
    m_pitchX = m_chartWidth / m_columns;
    m_pitchY = m_chartHeight / m_rows;
    m_patchWidth = 0.4 * m_pitchX;
    m_patchHeight = 0.4 * m_pitchY;
    computeCornerGeometry(-1);
    rebuildHandleSquares();
}

void CMarkers::rebuildHandleSquares()
{
    m_handleSquares.clear();
    const double side = 2.0 * m_handleRadius + 1.0;
    for (const QPointF &p : m_points)
        m_handleSquares.append(QRectF(p.x() - m_handleRadius, p.y() - m_handleRadius, side, side));
}

bool CMarkers::placeCornersOnDetection()
{
    const QVector<QRectF> rects = detectedPatchRects();
    if (rects.size() != kestro::chartdetect::kPatchCount)
        return false;
    // The grid's outer corner next to patch `corner`, one half pitch beyond
    // its centre along the row and the column (the pitches measured towards
    // the neighbours `alongRow` and `alongColumn`).
    auto outer = [&](int corner, int alongRow, int alongColumn) {
        const QPointF c = rects[corner].center();
        return c - 0.5 * (rects[alongRow].center() - c) - 0.5 * (rects[alongColumn].center() - c);
    };
    QReadLocker locker(&m_lock);
    const bool keep = m_pointsFromDetection;
    m_pointsFromDetection = false;
    initLocked();
    m_pointsFromDetection = keep;
    m_points[0] = outer(0, 1, 6);
    m_points[2] = outer(5, 4, 11);
    m_points[3] = outer(23, 22, 17);
    m_points[5] = outer(18, 19, 12);
    m_middleMoved = false;
    // Moving point 0 and point 3 brings both middle points along.
    computeCornerGeometry(0);
    computeCornerGeometry(3);
    rebuildHandleSquares();
    return true;
}

bool CMarkers::hasControlPoints() const
{
    QReadLocker locker(&m_lock);
    return m_hasPoints;
}

QVector<QPointF> CMarkers::controlPoints() const
{
    QReadLocker locker(&m_lock);
    QVector<QPointF> points;
    if (m_hasPoints) {
        for (const QPointF &p : m_points)
            points.append(p);
    }
    return points;
}

QPointF CMarkers::controlPoint(int index) const
{
    QReadLocker locker(&m_lock);
    if (index < 0 || index >= PointCount)
        return QPointF();
    return m_points[index];
}

bool CMarkers::moveControlPoint(int index, const QPointF &point)
{
    QReadLocker locker(&m_lock);
    if (index < 0 || index >= PointCount || point == QPointF(0, 0) || !m_hasPoints)
        return false;
    m_points[index] = point;
    if (index == 1 || index == 4)
        m_middleMoved = true;
    computeCornerGeometry(index);
    rebuildHandleSquares();
    return true;
}

void CMarkers::computeCornerGeometry(int movedIndex)
{
    QReadLocker locker(&m_lock);
    if (m_reference.size() != 4)
        return;
    QTransform chart;
    const QPolygonF corners({m_points[0], m_points[2], m_points[3], m_points[5]});
    if (!QTransform::quadToQuad(m_reference, corners, chart))
        return;
    m_chartTransform = chart;

    const QPointF topLeft = m_reference[0], topRight = m_reference[1];
    const QPointF bottomRight = m_reference[2], bottomLeft = m_reference[3];
    const QPointF topMid = (topLeft + topRight) / 2.0;
    const QPointF bottomMid = (bottomLeft + bottomRight) / 2.0;
    m_leftHalf = QPolygonF({topLeft, topMid, bottomMid, bottomLeft});
    m_rightHalf = QPolygonF({topMid, topRight, bottomRight, bottomMid});

    if (!m_middleMoved) {
        if (movedIndex == 0 || movedIndex == 2)
            m_points[1] = chart.map(topMid);
        if (movedIndex == 3 || movedIndex == 5)
            m_points[4] = chart.map(bottomMid);
    }
    QTransform left, right;
    if (QTransform::quadToQuad(m_leftHalf,
                               QPolygonF({m_points[0], m_points[1], m_points[4], m_points[5]}),
                               left))
        m_leftTransform = left;
    if (QTransform::quadToQuad(m_rightHalf,
                               QPolygonF({m_points[1], m_points[2], m_points[3], m_points[4]}),
                               right))
        m_rightTransform = right;
}

QVector<QRectF> CMarkers::cornerPatchRects()
{
    QReadLocker locker(&m_lock);
    QVector<QRectF> rects;
    if (m_pointsFromDetection) {
        m_pointsFromDetection = false;
        return rects;
    }
    if (!m_hasPoints || m_reference.size() != 4)
        return rects;
    const double offX = (m_chartWidth - (5 * m_pitchX + m_patchWidth)) / 2.0;
    const double offY = (m_chartHeight - (3 * m_pitchY + m_patchHeight)) / 2.0;
    const QPointF origin = m_reference[0];
    rects.reserve(m_rows * m_columns);
    for (int r = 0; r < m_rows; ++r) {
        for (int c = 0; c < m_columns; ++c) {
            const double x0 = origin.x() + offX + c * m_pitchX;
            const double y0 = origin.y() + offY + r * m_pitchY;
            const QPointF reference[4] = {QPointF(x0, y0), QPointF(x0 + m_patchWidth, y0),
                                          QPointF(x0 + m_patchWidth, y0 + m_patchHeight),
                                          QPointF(x0, y0 + m_patchHeight)};
            QPolygonF mapped;
            for (const QPointF &p : reference) {
                const bool inLeft = m_leftHalf.containsPoint(p, Qt::OddEvenFill);
                mapped.append(inLeft ? m_leftTransform.map(p) : m_rightTransform.map(p));
            }
            rects.append(mapped.boundingRect());
        }
    }
    return rects;
}

bool CMarkers::detectionValid() const
{
    std::lock_guard<std::mutex> guard(m_resultMutex);
    return m_detectionValid;
}

void CMarkers::discardDetection()
{
    std::lock_guard<std::mutex> guard(m_resultMutex);
    m_detectionValid = false;
}

int CMarkers::detectedCount() const
{
    std::lock_guard<std::mutex> guard(m_resultMutex);
    return m_detectedCount;
}

QVector<QRectF> CMarkers::detectedPatchRects() const
{
    QVector<QRectF> rects;
    std::lock_guard<std::mutex> guard(m_resultMutex);
    if (!m_detectionValid || m_mode == ModeNoDetection)
        return rects;
    for (const ColorCheckerROI &r : m_detected)
        rects.append(QRectF(r.x, r.y - r.height, r.width, r.height));
    return rects;
}

QVector<QRectF> CMarkers::patchRects()
{
    const QVector<QRectF> detected = detectedPatchRects();
    if (!detected.isEmpty())
        return detected;
    ensureControlPoints();
    return cornerPatchRects();
}

int CMarkers::startDetection(Priority priority)
{
    stopAndWait();
    discardDetection();
    const int id = ++m_runId;
    m_threadRunId = id;
    storeFlag(&m_keepRunning, 1);
    start(priority);
    return id;
}

void CMarkers::run()
{
    const int id = m_threadRunId;
    int found = 0;
    {
        QReadLocker locker(&m_lock);
        if (m_mode != ModeNoDetection) {
            const std::unique_ptr<unsigned char[]> buffer = kestro::chartdetect::packedBgrBuffer(
                    m_image);
            if (buffer) {
                ColorCheckerROI regions[kestro::chartdetect::kPatchCount] = {};
                found = FindColorCheckerROIsFromMemory(buffer.get(), m_image.width(),
                                                       m_image.height(), regions, &m_keepRunning);
                std::lock_guard<std::mutex> guard(m_resultMutex);
                m_detectedCount = found;
                m_detectionValid = found == kestro::chartdetect::kPatchCount;
                if (m_detectionValid)
                    std::memcpy(m_detected, regions, sizeof(regions));
            }
        }
    }
    if (found == 0) {
        std::lock_guard<std::mutex> guard(m_resultMutex);
        m_detectedCount = 0;
        m_detectionValid = false;
    }
    emit detectionCompleted(id, found);
}
