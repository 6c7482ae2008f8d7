#pragma once
// The uniformity grid as the chart's raster: a QwtRasterData over
// UniformityData. The chart draws it while the page may replace the grid or
// change the colour map and contours, so the chart state kept here is guarded
// by the grid's read/write lock, like the grid itself.

#include "measure/uniformity/gui/uniformitychartsettings.h"
#include "measure/uniformity/uniformitydata.h"

#include <qwt_raster_data.h>

#include <vector>

namespace kestro {

class UniformityRasterData : public QwtRasterData, public UniformityData
{
public:
    UniformityRasterData() = default;

    // Takes a grid (column-major, cols * rows values) and sets the bounding
    // intervals: x 0..cols - 1, y 0..rows - 1, z the grid's colour range.
    void setGridData(std::vector<double> values, int cols, int rows, int subsample);
    // Copies the grid of another store.
    void copyGrid(const UniformityData &source);

    // The value of the cell containing (x, y), the index clamped to the grid.
    double value(double x, double y) const override;
    // While the chart renders (between these two calls) values are read
    // from a copy of the grid taken under the lock, so that the many
    // lookups of one rendering do not each take the lock.
    void initRaster(const QRectF &area, const QSize &raster) override;
    void discardRaster() override;
    // One grid cell: the chart renders the grid at its own resolution and
    // scales it, instead of asking for a value per screen pixel.
    QRectF pixelHint(const QRectF &area) const override;
    void setInterval(Qt::Axis axis, const QwtInterval &interval) override;

    void setColorMap(UniformityColorMap map);
    UniformityColorMap colorMap() const;
    void setContour(const UniformityContour &contour);
    UniformityContour contour() const;

private:
    std::vector<double> m_rendering; // the copy read while rendering
    int m_renderingCols = 0;
    int m_renderingRows = 0;
    bool m_renderingActive = false;
    UniformityColorMap m_colorMap = UniformityColorMap::Standard;
    UniformityContour m_contour;
};

} // namespace kestro
