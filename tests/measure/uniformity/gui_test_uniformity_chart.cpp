// The uniformity chart: colour maps, contour levels, the raster over the
// grid, the zoomer's buttons and tracker text, and the chart as a picture.

#include "measure/uniformity/gui/qspectrogramplot.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <QTest>
#include <climits>
#include <cmath>
#include <qwt_scale_div.h>

using kestro::UniformityColorMap;

namespace {

// cols x rows grid whose value is 100 * row / (rows - 1): dark at row 0.
std::vector<double> rowRamp(int cols, int rows)
{
    std::vector<double> values(static_cast<std::size_t>(cols) * rows);
    for (int c = 0; c < cols; ++c)
        for (int r = 0; r < rows; ++r)
            values[static_cast<std::size_t>(c) * rows + r] = 100.0 * r / (rows - 1);
    return values;
}

} // namespace

TEST(UniformityChart, ColourMapNamesAndTrackerText)
{
    // Map names are compared with their letter case; unknown ones give the
    // standard map.
    EXPECT_EQ(QSpectrogramPlot::colorMapForName("Jet"), UniformityColorMap::Jet);
    EXPECT_EQ(QSpectrogramPlot::colorMapForName("jet"), UniformityColorMap::Standard);
    // The tracker gives the cell and the picture pixel it stands for.
    EXPECT_EQ(MyZoomer::trackerString(12.345, 6.789, 123.456789, 10),
              QStringLiteral("x: 12.35\ty: 6.789\tval: 123.457\norig x: 123.45\torig y: 67.89"));
}

TEST(UniformityChart, ContourLevelsFromLowByStepBelowHigh)
{
    EXPECT_EQ(QSpectrogramPlot::contourLevelsFor(0, 25, 100), QList<double>({0, 25, 50, 75}));
    // No level loop for a step that does not advance, nor for low above high.
    EXPECT_TRUE(QSpectrogramPlot::contourLevelsFor(0, 0, 100).isEmpty());
    EXPECT_TRUE(QSpectrogramPlot::contourLevelsFor(0, -5, 100).isEmpty());
    EXPECT_TRUE(QSpectrogramPlot::contourLevelsFor(200, 10, 100).isEmpty());
    // Steps near the int range do not wrap round; very fine ones are cut.
    EXPECT_EQ(QSpectrogramPlot::contourLevelsFor(INT_MAX - 1, INT_MAX, INT_MAX),
              QList<double>({double(INT_MAX - 1)}));
    EXPECT_EQ(QSpectrogramPlot::contourLevelsFor(INT_MIN, 1, INT_MAX).size(),
              QSpectrogramPlot::kMaxContourLevels);

    QSpectrogramPlot plot;
    plot.setGrid(rowRamp(4, 3), 4, 3, 10);
    plot.setUniContourLow(0);
    plot.setUniContourSS(25);
    plot.setUniContourHigh(100);
    EXPECT_TRUE(plot.contourLevels().isEmpty()); // display off
    plot.showContour(true);
    EXPECT_EQ(plot.contourLevels(), QList<double>({0, 25, 50, 75}));
    // The response axis spans the contour range while contours are drawn,
    // the grid's range otherwise.
    plot.setUniContourHigh(200);
    EXPECT_EQ(plot.axisScaleDiv(QwtPlot::yRight).interval(), QwtInterval(0, 200));
    EXPECT_EQ(plot.contourLevels().size(), 8);
    plot.showContour(false);
    EXPECT_EQ(plot.axisScaleDiv(QwtPlot::yRight).interval(), QwtInterval(0, 100));
}

TEST(UniformityChart, RasterIntervalsAndClampedCellLookup)
{
    QSpectrogramPlot plot;
    // 3 columns x 2 rows, column-major.
    plot.setGrid({1, 2, 3, 4, 5, 6}, 3, 2, 8);
    const kestro::UniformityRasterData &raster = *plot.raster();
    EXPECT_EQ(raster.interval(Qt::XAxis), QwtInterval(0, 2));
    EXPECT_EQ(raster.interval(Qt::YAxis), QwtInterval(0, 1));
    EXPECT_EQ(raster.interval(Qt::ZAxis), QwtInterval(1, 6));
    EXPECT_EQ(raster.value(1.5, 0.99), 3);
    EXPECT_EQ(raster.value(7.0, 9.0), 6);  // beyond the last cell: the last cell
    EXPECT_EQ(raster.value(-3.0, 0.5), 1); // before the first: the first
    // The chart's axes follow the grid; rows run top down as in the picture.
    EXPECT_EQ(plot.axisScaleDiv(QwtPlot::yLeft).lowerBound(), 1);
    EXPECT_EQ(plot.axisScaleDiv(QwtPlot::yLeft).upperBound(), 0);

    // A flat grid still has a colour range one unit wide.
    plot.setGrid({7, 7, 7, 7}, 2, 2, 1);
    EXPECT_EQ(raster.interval(Qt::ZAxis), QwtInterval(7, 8));
    // A grid that does not fit its size is dropped, not read out of bounds.
    plot.setGrid({1, 2, 3}, 2, 2, 1);
    EXPECT_EQ(raster.cols(), 0);
    EXPECT_TRUE(std::isnan(raster.value(0, 0)));
}

TEST(UniformityChart, RightButtonStepsBackAndCtrlReturnsHome)
{
    QSpectrogramPlot plot;
    plot.resize(500, 400);
    plot.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&plot));
    plot.setGrid(rowRamp(40, 30), 40, 30, 10);
    MyZoomer *zoomer = plot.zoomer();
    zoomer->zoom(QRectF(10, 5, 10, 10));
    zoomer->zoom(QRectF(12, 7, 4, 4));
    ASSERT_EQ(zoomer->zoomRectIndex(), 2u);
    QWidget *canvas = plot.canvas();
    const QPoint middle = canvas->rect().center();
    // The right button steps one zoom back, Ctrl + right returns home.
    QTest::mouseClick(canvas, Qt::RightButton, Qt::NoModifier, middle);
    EXPECT_EQ(zoomer->zoomRectIndex(), 1u);
    QTest::mouseClick(canvas, Qt::RightButton, Qt::ControlModifier, middle);
    EXPECT_EQ(zoomer->zoomRectIndex(), 0u);
    EXPECT_EQ(plot.axisScaleDiv(QwtPlot::xBottom).interval(), QwtInterval(0, 39));
}

TEST(UniformityChart, PictureAtEightyFiveDotsPerInch)
{
    QSpectrogramPlot plot;
    plot.resize(550, 412);
    plot.setColorMap("Gray");
    plot.setGrid(rowRamp(40, 30), 40, 30, 10);
    const QImage image = plot.renderImage();
    // Millimetres numerically equal to the pixels, at 85 dpi.
    EXPECT_EQ(image.size(), QSize(1841, 1379));

    // The canvas shows the grid with row 0 (black) at the top and the last
    // rows (light) at the bottom; the widget's layout places the canvas
    // nearly where the renderer does.
    const double scale = double(image.width()) / plot.width();
    plot.updateLayout();
    const QRect canvas = plot.canvas()->geometry();
    const int x = qRound(canvas.center().x() * scale);
    const int top = qRound((canvas.top() + 3) * scale);
    const int bottom = qRound((canvas.bottom() - 3) * scale);
    EXPECT_LT(qGray(image.pixel(x, top)), 15);
    EXPECT_GT(qGray(image.pixel(x, bottom)), 200);
    EXPECT_NEAR(qGray(image.pixel(x, (top + bottom) / 2)), 128, 20);

    QTemporaryDir dir;
    EXPECT_FALSE(plot.save(dir.filePath("missing/chart.png")));
}
