// MTFPlot: the peak and Nyquist markers, the checkable legend, clearing and
// the picture size of a saved plot.

#include "measure/mtf/gui/mtfplot.h"

#include <gtest/gtest.h>

#include <QImageReader>
#include <QTemporaryDir>
#include <qwt_legend.h>
#include <qwt_legend_label.h>
#include <qwt_plot_curve.h>
#include <qwt_plot_marker.h>

namespace {

const double x[5] = {0, 0.1, 0.2, 0.3, 0.4};
const double gray[5] = {0.5, 0.9, 0.9, 0.2, 0.1};
const double red[5] = {2, 2, 2, 2, 2}; // higher than gray: the peak still follows gray
const double green[5] = {1, 1, 1, 1, 1};
const double blue[5] = {0, 0, 0, 0, 0};

} // namespace

TEST(MtfPlot, MarkersFollowTheGrayCurveAndTheAxisMode)
{
    MTFPlot plot;
    plot.setData(x, gray, red, green, blue, 5);
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(plot.curve(i)->isVisible());
        EXPECT_EQ(plot.curve(i)->dataSize(), 5u);
    }
    EXPECT_EQ(plot.curve(0)->title().text(), "RGB");
    // The first of equal maxima.
    EXPECT_EQ(plot.peakMarker()->value(), QPointF(0.1, 0.9));
    EXPECT_EQ(plot.peakMarker()->label().text(), "RGB Peak: (0.1, 0.9)");
    EXPECT_EQ(plot.nyquistMarker()->xValue(), 0.5);
    EXPECT_EQ(plot.nyquistMarker()->label().text(), "Nyquist Frequency");
    EXPECT_EQ(plot.axisTitle(QwtPlot::xBottom).text(), "Cycles/Pixel");

    plot.setPictureHeight(960);
    plot.setLWPHMode(true);
    plot.setData(x, gray, red, green, blue, 5);
    EXPECT_EQ(plot.nyquistMarker()->xValue(), 960.0);
    EXPECT_EQ(plot.axisTitle(QwtPlot::xBottom).text(), "Frequency(LW/PH)");

    plot.setData(nullptr, nullptr, nullptr, nullptr, nullptr, 0);
    EXPECT_FALSE(plot.curve(0)->isVisible());
    EXPECT_EQ(plot.curve(0)->dataSize(), 0u);
    EXPECT_FALSE(plot.peakMarker()->isVisible());
    EXPECT_FALSE(plot.nyquistMarker()->isVisible());
}

TEST(MtfPlot, LegendChecksShowAndHideCurves)
{
    MTFPlot plot;
    plot.setData(x, gray, red, green, blue, 5);
    const QVariant info = plot.itemToInfo(plot.curve(1));
    auto *label = qobject_cast<QwtLegendLabel *>(plot.legendWidget()->legendWidget(info));
    ASSERT_NE(label, nullptr);
    EXPECT_TRUE(label->isChecked());
    label->setChecked(false);
    emit plot.legendWidget()->checked(info, false, 0);
    EXPECT_FALSE(plot.curve(1)->isVisible());
    EXPECT_TRUE(plot.curve(2)->isVisible());
    // New data shows every curve again, checked.
    plot.setData(x, gray, red, green, blue, 5);
    EXPECT_TRUE(plot.curve(1)->isVisible());
    EXPECT_TRUE(label->isChecked());
    plot.hideAll();
    EXPECT_FALSE(plot.curve(2)->isVisible());
    EXPECT_FALSE(plot.peakMarker()->isVisible());
}

TEST(MtfPlot, SavedPictureIsTheWidgetSizeInMillimetresAtEightyFiveDpi)
{
    QTemporaryDir dir;
    MTFPlot plot;
    plot.resize(400, 300);
    plot.setData(x, gray, red, green, blue, 5);
    const QString path = dir.filePath("plot.png");
    ASSERT_TRUE(plot.save(path));
    QImageReader reader(path);
    EXPECT_EQ(reader.size(), QSize(1339, 1004)); // 400 and 300 mm at 85 dpi
    const QImage image = reader.read();
    EXPECT_EQ(image.dotsPerMeterX(), 3346);
    EXPECT_FALSE(plot.save(QString()));
}
