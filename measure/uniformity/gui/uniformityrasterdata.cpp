#include "measure/uniformity/gui/uniformityrasterdata.h"

#include <QReadLocker>
#include <QWriteLocker>
#include <cmath>

namespace kestro {

void UniformityRasterData::setGridData(std::vector<double> values, int cols, int rows, int subsample)
{
    setSubsampleSize(subsample);
    setGrid(std::move(values), cols, rows);
    const int c = this->cols();
    const int r = this->rows();
    const QPair<double, double> range = colourRange();
    setInterval(Qt::XAxis, QwtInterval(0.0, c > 0 ? c - 1 : 0.0));
    setInterval(Qt::YAxis, QwtInterval(0.0, r > 0 ? r - 1 : 0.0));
    if (c > 0)
        setInterval(Qt::ZAxis, QwtInterval(range.first, range.second));
    else
        setInterval(Qt::ZAxis, QwtInterval(0.0, 1.0));
}

void UniformityRasterData::copyGrid(const UniformityData &source)
{
    setGridData(source.grid(), source.cols(), source.rows(), source.subsampleSize());
}

double UniformityRasterData::value(double x, double y) const
{
    if (!m_renderingActive || m_rendering.empty() || std::isnan(x) || std::isnan(y))
        return valueAt(x, y);
    auto clampIndex = [](double v, int count) {
        if (!(v >= 0.0))
            return 0;
        return v >= count ? count - 1 : static_cast<int>(v);
    };
    const int col = clampIndex(x, m_renderingCols);
    const int row = clampIndex(y, m_renderingRows);
    return m_rendering[static_cast<std::size_t>(col) * m_renderingRows + row];
}

void UniformityRasterData::initRaster(const QRectF &area, const QSize &raster)
{
    QwtRasterData::initRaster(area, raster);
    // The grid changes only on the thread that renders, never between these
    // three reads.
    m_rendering = grid();
    m_renderingCols = cols();
    m_renderingRows = rows();
    m_renderingActive = m_rendering.size()
                        == static_cast<std::size_t>(m_renderingCols) * m_renderingRows;
}

void UniformityRasterData::discardRaster()
{
    m_renderingActive = false;
    std::vector<double>().swap(m_rendering);
    QwtRasterData::discardRaster();
}

QRectF UniformityRasterData::pixelHint(const QRectF &) const
{
    return QRectF(0.0, 0.0, 1.0, 1.0);
}

void UniformityRasterData::setInterval(Qt::Axis axis, const QwtInterval &interval)
{
    QWriteLocker locker(&lock());
    QwtRasterData::setInterval(axis, interval);
}

void UniformityRasterData::setColorMap(UniformityColorMap map)
{
    QWriteLocker locker(&lock());
    m_colorMap = map;
}

UniformityColorMap UniformityRasterData::colorMap() const
{
    QReadLocker locker(&lock());
    return m_colorMap;
}

void UniformityRasterData::setContour(const UniformityContour &contour)
{
    QWriteLocker locker(&lock());
    m_contour = contour;
}

UniformityContour UniformityRasterData::contour() const
{
    QReadLocker locker(&lock());
    return m_contour;
}

} // namespace kestro
