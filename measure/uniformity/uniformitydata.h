#pragma once
// UniformityData: the subsampled grid of a flat-field image with its
// statistics and the centre and corner windows. The chart reads it while it
// draws, so everything is guarded by one read/write lock; a raster adaptor for
// the chart can derive from this class and guard its own state with lock().
//
// The grid is column-major: index = column * rows + row.

#include <QPair>
#include <QReadWriteLock>
#include <QRect>
#include <QRectF>
#include <QString>
#include <array>
#include <vector>

namespace kestro {

enum UniformityCorner { TopLeft = 0, TopRight = 1, BottomLeft = 2, BottomRight = 3 };

class UniformityData
{
public:
    UniformityData() = default;
    virtual ~UniformityData() = default;
    UniformityData(const UniformityData &) = delete;
    UniformityData &operator=(const UniformityData &) = delete;

    void setSubsampleSize(int size);
    int subsampleSize() const;

    // Replaces the grid and computes minimum, maximum, sum and mean. The
    // values must hold cols * rows numbers (column-major); anything else
    // leaves an empty grid.
    void setGrid(std::vector<double> values, int cols, int rows);
    // As setGrid, and hands the previous grid back in `values`, so that a
    // caller that recomputes can reuse its memory for the next grid.
    void swapGrid(std::vector<double> &values, int cols, int rows);
    // Removes the grid (leaving an empty one) and returns it.
    std::vector<double> takeGrid();
    std::vector<double> grid() const;
    int cols() const;
    int rows() const;

    // Minimum and maximum start at the first value (NaN for an empty grid);
    // sum is exact, rounded once; mean = sum / cols / rows.
    double minimum() const;
    double maximum() const;
    double sum() const;
    double mean() const;
    // Colour range of the chart: [minimum, maximum], or [minimum, minimum + 1]
    // when the two are equal.
    QPair<double, double> colourRange() const;

    // Grid value of one cell; NaN outside the grid.
    double value(int col, int row) const;
    // Value at a point of the chart's coordinate plane: the cell containing
    // (x, y), the index clamped to the grid. NaN for an empty grid.
    double valueAt(double x, double y) const;

    // Mean of the values at columns x0 <= x < x1 and rows y0 <= y < y1. NaN
    // when the window is empty or does not lie inside the grid.
    double average(int x0, int y0, int x1, int y1) const;

    // Centre window for centre percent c (fraction c / 100): the rectangle
    // (cols/2 - hw, rows/2 - hh, 2 hw, 2 hh) with hw = cols f / 2 and
    // hh = rows f / 2. centerValue() stores it and averages over it with its
    // corners truncated to integers.
    QRectF centerWindow(double fraction) const;
    double centerValue(double fraction);

    // The four corner averages for corner percent k (fraction k / 100), in
    // the order of UniformityCorner. The right and bottom windows start one
    // column or row further in and stop before the last column or row.
    // Stores the windows and their drawing rectangles. A fraction whose
    // windows leave the grid gives NaN averages (and windows clamped to just
    // outside the grid).
    std::array<double, 4> cornerValues(double fraction);
    static std::array<QRect, 4> cornerWindows(int cols, int rows, double fraction);

    // Windows stored by the last centerValue() / cornerValues() calls, in grid
    // coordinates (the chart scales them by the subsample size).
    QRectF centerRect() const;
    std::array<QRect, 4> cornerRects() const;
    std::array<QRectF, 4> cornerDrawRects() const;

protected:
    QReadWriteLock &lock() const { return m_lock; }

private:
    double averageLocked(int x0, int y0, int x1, int y1) const;

    mutable QReadWriteLock m_lock;
    std::vector<double> m_grid;
    int m_cols = 0;
    int m_rows = 0;
    int m_subsample = 0;
    double m_minimum = 0.0;
    double m_maximum = 0.0;
    double m_sum = 0.0;
    QRectF m_centerRect;
    std::array<QRect, 4> m_cornerRects{};
    std::array<QRectF, 4> m_cornerDrawRects{};
};

// A corner's label: the corner value ('g', 6 significant digits),
// ", Dropoff: ", centre - corner (3 digits), ", ", the drop-off in percent of
// the centre (3 digits) and "%".
QString uniformityCornerLabel(double corner, double center);

} // namespace kestro
