#include "measure/uniformity/gui/uniformityrasterdata.h"

#include <QReadLocker>
#include <QWriteLocker>

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
    return valueAt(x, y);
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
