#include "measure/color/graychartplot.h"

#include "measure/color/grayplotupdate.h"
#include "measure/color/macbethcolordifference.h"

#include <gtest/gtest.h>
#include <qwt_scale_div.h>
#include <qwt_text.h>

using namespace kestro;

TEST(GrayChartPlot, SamplesAndAxis)
{
    GrayChartPlot plot;
    const double x[6] = {19, 20, 21, 22, 23, 24};
    const double y[6] = {100, -5, 3, 2, 1, 1e6};
    const double r[6] = {1, 2, 3, 4, 5, 6};
    // A missing series leaves its curve as it was.
    plot.setSamples(x, nullptr, r, nullptr, nullptr, 6);
    EXPECT_EQ(plot.curve(GrayChartPlot::GrayCurve)->dataSize(), 0u);
    EXPECT_EQ(plot.curve(GrayChartPlot::RedCurve)->dataSize(), 6u);
    plot.setGraySamples(x, y, 6);
    EXPECT_EQ(plot.curve(GrayChartPlot::GrayCurve)->sample(5).y(), 1e6);
    plot.replot();
    // The bottom axis keeps 19..24 whatever the values.
    EXPECT_EQ(plot.axisScaleDiv(QwtPlot::xBottom).lowerBound(), 19.0);
    EXPECT_EQ(plot.axisScaleDiv(QwtPlot::xBottom).upperBound(), 24.0);
}

TEST(GrayChartPlot, UpdateFromModelFollowsTheSelector)
{
    GrayChartPlot plot;
    plot.setTitle("Gray Chart Color Difference");
    QStdMacbethChartColorDifference m;
    EXPECT_FALSE(updateGrayChartPlot(plot, m, 0)); // before any measurement nothing changes
    EXPECT_EQ(plot.title().text(), "Gray Chart Color Difference");

    for (int i = 0; i < 24; ++i) {
        MacbethPatch &p = m.patch(i);
        p.hasMeasured = p.computed = true;
        p.dE00 = i;
        p.rOverG = 0.5 + 0.1 * i;
    }
    ASSERT_TRUE(updateGrayChartPlot(plot, m, 6));
    EXPECT_EQ(plot.title().text(), "Gray Char G/R");
    EXPECT_EQ(plot.axisTitle(QwtPlot::yLeft).text(), "G/R");
    QwtPlotCurve *gray = plot.curve(GrayChartPlot::GrayCurve);
    ASSERT_EQ(gray->dataSize(), 6u);
    EXPECT_DOUBLE_EQ(gray->sample(0).y(), 1.0 / (0.5 + 0.1 * 18));
    EXPECT_EQ(plot.curve(GrayChartPlot::BlueCurve)->dataSize(), 0u);
    ASSERT_TRUE(updateGrayChartPlot(plot, m, 0));
    EXPECT_EQ(plot.title().text(), "Gray Char Color Difference");
    EXPECT_EQ(plot.axisTitle(QwtPlot::yLeft).text(), "Delta E00");
    EXPECT_EQ(gray->sample(5).y(), 23.0);
}
