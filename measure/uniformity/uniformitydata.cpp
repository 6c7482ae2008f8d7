#include "measure/uniformity/uniformitydata.h"

#include "measure/uniformity/exactsum.h"

#include <QReadLocker>
#include <QWriteLocker>
#include <algorithm>
#include <cmath>
#include <limits>

namespace kestro {

static constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

void UniformityData::setSubsampleSize(int size)
{
    QWriteLocker locker(&m_lock);
    m_subsample = size;
}

int UniformityData::subsampleSize() const
{
    QReadLocker locker(&m_lock);
    return m_subsample;
}

void UniformityData::setGrid(std::vector<double> values, int cols, int rows)
{
    swapGrid(values, cols, rows);
}

std::vector<double> UniformityData::takeGrid()
{
    std::vector<double> values;
    swapGrid(values, 0, 0);
    return values;
}

void UniformityData::swapGrid(std::vector<double> &values, int cols, int rows)
{
    QWriteLocker locker(&m_lock);
    if (cols < 1 || rows < 1
        || values.size() != static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows)) {
        values.clear();
        cols = 0;
        rows = 0;
    }
    m_grid.swap(values);
    m_cols = cols;
    m_rows = rows;
    if (m_grid.empty()) {
        m_minimum = kNaN;
        m_maximum = kNaN;
        m_sum = 0.0;
        return;
    }
    double minimum = m_grid.front();
    double maximum = m_grid.front();
    for (double v : m_grid) {
        if (v < minimum)
            minimum = v;
        if (v > maximum)
            maximum = v;
    }
    GridSum sum;
    sum.add(m_grid.data(), m_grid.size());
    m_minimum = minimum;
    m_maximum = maximum;
    m_sum = sum.value();
}

std::vector<double> UniformityData::grid() const
{
    QReadLocker locker(&m_lock);
    return m_grid;
}

int UniformityData::cols() const
{
    QReadLocker locker(&m_lock);
    return m_cols;
}

int UniformityData::rows() const
{
    QReadLocker locker(&m_lock);
    return m_rows;
}

double UniformityData::minimum() const
{
    QReadLocker locker(&m_lock);
    return m_minimum;
}

double UniformityData::maximum() const
{
    QReadLocker locker(&m_lock);
    return m_maximum;
}

double UniformityData::sum() const
{
    QReadLocker locker(&m_lock);
    return m_sum;
}

double UniformityData::mean() const
{
    QReadLocker locker(&m_lock);
    if (m_grid.empty())
        return kNaN;
    return m_sum / m_cols / m_rows;
}

QPair<double, double> UniformityData::colourRange() const
{
    QReadLocker locker(&m_lock);
    if (m_minimum == m_maximum)
        return {m_minimum, m_minimum + 1.0};
    return {m_minimum, m_maximum};
}

double UniformityData::value(int col, int row) const
{
    QReadLocker locker(&m_lock);
    if (col < 0 || row < 0 || col >= m_cols || row >= m_rows)
        return kNaN;
    return m_grid[static_cast<std::size_t>(col) * m_rows + row];
}

double UniformityData::valueAt(double x, double y) const
{
    QReadLocker locker(&m_lock);
    if (m_grid.empty() || std::isnan(x) || std::isnan(y))
        return kNaN;
    auto clampIndex = [](double v, int count) {
        if (!(v >= 0.0))
            return 0;
        if (v >= count)
            return count - 1;
        return static_cast<int>(v);
    };
    const int col = clampIndex(x, m_cols);
    const int row = clampIndex(y, m_rows);
    return m_grid[static_cast<std::size_t>(col) * m_rows + row];
}

double UniformityData::averageLocked(int x0, int y0, int x1, int y1) const
{
    if (x0 < 0 || y0 < 0 || x1 > m_cols || y1 > m_rows || x0 >= x1 || y0 >= y1)
        return kNaN;
    GridSum sum;
    for (int x = x0; x < x1; ++x)
        sum.add(m_grid.data() + static_cast<std::size_t>(x) * m_rows + y0,
                static_cast<std::size_t>(y1 - y0));
    const double count = static_cast<double>(x1 - x0) * static_cast<double>(y1 - y0);
    return sum.value() / count;
}

double UniformityData::average(int x0, int y0, int x1, int y1) const
{
    QReadLocker locker(&m_lock);
    return averageLocked(x0, y0, x1, y1);
}

static QRectF centerWindowFor(int cols, int rows, double fraction)
{
    const double hw = cols * fraction * 0.5;
    const double hh = rows * fraction * 0.5;
    return QRectF(cols * 0.5 - hw, rows * 0.5 - hh, 2 * hw, 2 * hh);
}

QRectF UniformityData::centerWindow(double fraction) const
{
    QReadLocker locker(&m_lock);
    return centerWindowFor(m_cols, m_rows, fraction);
}

// Truncation towards zero as an int; values beyond the int range are clamped
// so that absurd percentages give an out-of-grid window rather than overflow.
static int truncToInt(double v)
{
    if (std::isnan(v))
        return 0;
    if (v >= 2147483647.0)
        return 2147483647;
    if (v <= -2147483648.0)
        return -2147483647 - 1;
    return static_cast<int>(v);
}

double UniformityData::centerValue(double fraction)
{
    QWriteLocker locker(&m_lock);
    m_centerRect = centerWindowFor(m_cols, m_rows, fraction);
    return averageLocked(truncToInt(m_centerRect.left()), truncToInt(m_centerRect.top()),
                         truncToInt(m_centerRect.right()), truncToInt(m_centerRect.bottom()));
}

std::array<QRect, 4> UniformityData::cornerWindows(int cols, int rows, double fraction)
{
    // Every size below 0 or above the grid gives windows that leave it (their
    // averages are NaN) in the same way, so the sizes are kept within
    // [-1, side + 1]: the window arithmetic below cannot overflow, whatever
    // the fraction.
    auto windowSize = [fraction](int side) {
        const double size = std::trunc(side * fraction);
        if (std::isnan(size))
            return 0;
        return static_cast<int>(std::clamp(size, -1.0, side + 1.0));
    };
    const int cw = windowSize(cols);
    const int ch = windowSize(rows);
    // QRect from (x0, y0) to (x1, y1) exclusive: width x1 - x0, height y1 - y0.
    auto window = [](int x0, int y0, int x1, int y1) { return QRect(x0, y0, x1 - x0, y1 - y0); };
    return {window(0, 0, cw, ch), window(cols - cw - 1, 0, cols - 1, ch),
            window(0, rows - ch - 1, cw, rows - 1),
            window(cols - cw - 1, rows - ch - 1, cols - 1, rows - 1)};
}

std::array<double, 4> UniformityData::cornerValues(double fraction)
{
    QWriteLocker locker(&m_lock);
    m_cornerRects = cornerWindows(m_cols, m_rows, fraction);
    std::array<double, 4> values{};
    const double gw = m_cols * fraction;
    const double gh = m_rows * fraction;
    for (int i = 0; i < 4; ++i) {
        const QRect &w = m_cornerRects[i];
        values[i] = averageLocked(w.x(), w.y(), w.x() + w.width(), w.y() + w.height());
        m_cornerDrawRects[i] = i == TopLeft ? QRectF(0, 0, gw, gh)
                                            : QRectF(w.x(), w.y(), gw + 1, gh + 1);
    }
    return values;
}

QRectF UniformityData::centerRect() const
{
    QReadLocker locker(&m_lock);
    return m_centerRect;
}

std::array<QRect, 4> UniformityData::cornerRects() const
{
    QReadLocker locker(&m_lock);
    return m_cornerRects;
}

std::array<QRectF, 4> UniformityData::cornerDrawRects() const
{
    QReadLocker locker(&m_lock);
    return m_cornerDrawRects;
}

QString uniformityCornerLabel(double corner, double center)
{
    const double drop = center - corner;
    return QString::number(corner, 'g', 6) + QLatin1String(", Dropoff: ")
           + QString::number(drop, 'g', 3) + QLatin1String(", ")
           + QString::number(drop / center * 100, 'g', 3) + QLatin1String("%");
}

} // namespace kestro
