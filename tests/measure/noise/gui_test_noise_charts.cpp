#include "measure/noise/chartgraph.h"
#include "measure/noise/noisecharts.h"

#ifdef KESTRO_HAVE_GRAY_CHART_PLOT
#include "measure/color/graychartplot.h"
#endif

#include <QImage>
#include <QSignalSpy>
#include <QTest>
#include <cmath>
#include <gtest/gtest.h>

using namespace kestro;

namespace {

QVector<QColor> chartColors()
{
    QVector<QColor> c;
    for (int k = 0; k < 18; ++k)
        c << QColor::fromHsv(k * 20, 200, 60 + (k % 3) * 90);
    for (int k = 0; k < 6; ++k)
        c << QColor(243 - k * 45, 243 - k * 45, 242 - k * 45);
    return c;
}

// The halves of patch k's cell in the fixed 6 x 4 grid: the patch colour on
// the left, the bar on the right.
struct Cell
{
    QRect left, right;
};
Cell cellOf(const QSize &size, int k)
{
    const int m = size.width() / 50, cw = (size.width() - 2 * m) / 6,
              ch = (size.height() - 2 * m) / 4;
    const QRect cell(m + (k % 6) * cw, m + (k / 6) * ch, cw, ch);
    const int gap = cw / 9;
    const QRect inner(cell.left() + gap / 2, cell.top() + gap / 2, cw - gap, ch - gap);
    Cell c;
    c.left = QRect(inner.left(), inner.top(), inner.width() / 2, inner.height());
    c.right = QRect(c.left.right() + 1, inner.top(), inner.width() - c.left.width(), inner.height());
    return c;
}

} // namespace

TEST(ChartGraph, BarsFromTheBottomAndSelectionByClick)
{
    ChartGraph chart;
    chart.resize(900, 600);
    const QVector<QColor> colors = chartColors();
    chart.setPatchColors(colors);
    double values[24];
    for (int k = 0; k < 24; ++k)
        values[k] = k == 5 ? 8.0 : 2.0; // scale is the largest value, 8
    chart.setValues(values, 24);
    const QImage img = chart.grab().toImage();
    // Patch 13's bar fills the lowest quarter of its half, patch 5's all of it.
    for (int k : {5, 13}) {
        const Cell c = cellOf(img.size(), k);
        const QRgb colour = colors[k].rgb() & 0xffffff;
        EXPECT_EQ(img.pixel(c.left.center()) & 0xffffff, colour) << k;
        EXPECT_EQ(img.pixel(c.right.center().x(), c.right.bottom() - 3) & 0xffffff, colour) << k;
        EXPECT_EQ((img.pixel(c.right.center()) & 0xffffff) == colour, k == 5) << k;
    }

    QSignalSpy spy(&chart, &ChartGraph::patchSelected);
    QTest::mouseClick(&chart, Qt::LeftButton, {}, cellOf(img.size(), 20).left.center());
    ASSERT_EQ(spy.count(), 1);
    EXPECT_EQ(spy.at(0).at(0).toInt(), 20);
    EXPECT_EQ(chart.selectedPatch(), 20);
    // In gray mode a click anywhere in a column selects its gray patch.
    chart.setMode(ChartGraph::GrayMode);
    const double gray[6] = {1.5, 2.5, 3.5, 0.5, 4.0, 2.0};
    chart.setGrayValues(gray, 6);
    QTest::mouseClick(&chart, Qt::LeftButton, {}, cellOf(img.size(), 0).left.center());
    ASSERT_EQ(spy.count(), 2);
    EXPECT_EQ(spy.at(1).at(0).toInt(), 18);
}

TEST(ChartGraph, AnySizeAndNonFiniteValues)
{
    ChartGraph chart;
    double values[24];
    for (int k = 0; k < 24; ++k)
        values[k] = k % 3 == 0 ? std::nan("") : (k % 3 == 1 ? INFINITY : -5.0);
    chart.setValues(values, 24);
    for (const QSize &size : {QSize(1, 1), QSize(30, 20), QSize(140, 90), QSize(2400, 1600)}) {
        chart.resize(size);
        const QImage img = chart.grab().toImage();
        EXPECT_EQ(img.size(), size);
    }
}

#ifdef KESTRO_HAVE_GRAY_CHART_PLOT
TEST(NoiseCharts, InitAndUpdate)
{
    QWidget area;
    area.resize(420, 260);
    ChartGraph chart;
    QVector<NoisePatchResult> results(3);
    GrayChartPlot *plot = initNoiseCharts(&results, &chart, &area);
    ASSERT_NE(plot, nullptr);
    EXPECT_TRUE(results.isEmpty());
    EXPECT_EQ(chart.mode(), ChartGraph::NoiseMode);

    // 24 RGB patches, two frames: SNR = signal / overall; patch 21 has no
    // noise in green and keeps a zero.
    for (int p = 0; p < 24; ++p) {
        NoisePatchResult r;
        r.frames = 2;
        r.layout = NoiseLayout::Rgb;
        for (int c = 0; c < 3; ++c) {
            NoiseChannelResult ch;
            ch.signal = 100.0 + p;
            ch.overall = (p == 20 && c == 1) ? 0.0 : 1.0 + c;
            r.channels << ch;
        }
        results << r;
    }
    updateSnrCharts(results, &chart, plot);
    const QwtSeriesData<QPointF> *red = plot->curve(GrayChartPlot::RedCurve)->data();
    ASSERT_EQ(red->size(), 6u);
    EXPECT_DOUBLE_EQ(red->sample(5).x(), 24.0);
    EXPECT_DOUBLE_EQ(red->sample(0).y(), 118.0);
    const QwtSeriesData<QPointF> *green = plot->curve(GrayChartPlot::GreenCurve)->data();
    EXPECT_DOUBLE_EQ(green->sample(2).y(), 0.0);
    EXPECT_DOUBLE_EQ(green->sample(3).y(), 121.0 / 2.0);
    EXPECT_EQ(plot->curve(GrayChartPlot::GrayCurve)->data()->size(), 0u); // no second green
}
#endif

TEST(ChartGraph, AHugeValueIsShownWhole)
{
    // A noise-free patch has a huge SNR; its text shrinks to fit the patch
    // colour instead of being cut at the edges of it.
    ChartGraph chart;
    chart.resize(900, 600);
    chart.setPatchColors(chartColors());
    double values[24];
    for (int k = 0; k < 24; ++k)
        values[k] = k == 1 ? 123456789.12 : 2.0;
    chart.setValues(values, 24);
    const QImage img = chart.grab().toImage();
    const QRect left = cellOf(chart.size(), 1).left;
    const QRgb patch = img.pixel(left.topLeft());
    int atEdges = 0;
    for (int y = left.top(); y <= left.bottom(); ++y)
        for (int x : {left.left(), left.left() + 1, left.right() - 1, left.right()})
            atEdges += img.pixel(x, y) != patch;
    EXPECT_EQ(atEdges, 0);
}
