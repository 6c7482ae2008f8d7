// MTFPlot: the peak and Nyquist markers, the checkable legend, clearing and
// the picture size of a saved plot.

#include "measure/mtf/gui/mtfplot.h"

#include <gtest/gtest.h>

#include <QImageReader>
#include <QTemporaryDir>
#include <qwt_legend.h>
#include <qwt_plot_curve.h>
#include <qwt_plot_marker.h>

namespace {

const double x[5] = {0, 0.1, 0.2, 0.3, 0.4};
const double gray[5] = {0.5, 0.9, 0.9, 0.2, 0.1};
const double red[5] = {2, 2, 2, 2, 2}; // higher than gray: the peak still follows gray

} // namespace

TEST(MtfPlot, MarkersLegendAndClearing)
{
    MTFPlot plot;
    plot.setData(x, gray, red, red, red, 5);
    EXPECT_EQ(plot.curve(3)->dataSize(), 5u);
    // The first of equal maxima.
    EXPECT_EQ(plot.peakMarker()->value(), QPointF(0.1, 0.9));
    EXPECT_EQ(plot.peakMarker()->label().text(), "RGB Peak: (0.1, 0.9)");
    EXPECT_EQ(plot.nyquistMarker()->xValue(), 0.5);

    // Unchecking a legend item hides its curve; new data shows it again.
    emit plot.legendWidget()->checked(plot.itemToInfo(plot.curve(1)), false, 0);
    EXPECT_FALSE(plot.curve(1)->isVisible());
    EXPECT_TRUE(plot.curve(2)->isVisible());
    plot.setData(x, gray, red, red, red, 5);
    EXPECT_TRUE(plot.curve(1)->isVisible());

    plot.setData(nullptr, nullptr, nullptr, nullptr, nullptr, 0);
    EXPECT_FALSE(plot.curve(0)->isVisible());
    EXPECT_EQ(plot.curve(0)->dataSize(), 0u);
    EXPECT_FALSE(plot.peakMarker()->isVisible());
    EXPECT_FALSE(plot.nyquistMarker()->isVisible());
}

TEST(MtfPlot, SavedPictureIsTheWidgetSizeInMillimetresAtEightyFiveDpi)
{
    QTemporaryDir dir;
    MTFPlot plot;
    plot.resize(400, 300);
    plot.setData(x, gray, red, red, red, 5);
    const QString path = dir.filePath("plot.png");
    ASSERT_TRUE(plot.save(path));
    const QImage image = QImageReader(path).read();
    EXPECT_EQ(image.size(), QSize(1339, 1004)); // 400 x 300 mm at 85 dpi
    EXPECT_EQ(image.dotsPerMeterX(), 3346);
    EXPECT_FALSE(plot.save(QString()));
}
