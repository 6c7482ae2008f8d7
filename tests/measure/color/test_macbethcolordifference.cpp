// The colour model: CIEDE2000 on the published pairs, the chart measurement
// and its summary, white balance and the metric selection for the charts.

#include "measure/color/macbethcolordifference.h"

#include "chartimage.h"
#include "measure/color/cielab.h"
#include "measure/color/whitebalance.h"
#include "testsupport.h"

#include <QFile>
#include <QTextStream>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using namespace kestro;
using kestro::test::makeChart;

namespace {

const std::array<QRgb, 24> &kChartColours = test::kSrgbChartColours;

// Puts chosen metric values straight into the records, marked computed: the
// summary's averages, percentiles and tie-breaking are then exact numbers.
struct Injected
{
    std::array<double, 24> dE00{}, dC00{}, dH00{}, sat{};
};
void inject(QStdMacbethChartColorDifference &m, const Injected &v)
{
    for (int i = 0; i < 24; ++i) {
        MacbethPatch &p = m.patch(i);
        p.hasMeasured = true;
        p.computed = true;
        p.dE00 = v.dE00[i];
        p.dC00 = v.dC00[i];
        p.dH00 = v.dH00[i];
        p.saturation = v.sat[i];
    }
}

// Gray row with chosen white-balance values, every record computed; patch k
// (from 0) has dE00 1 + k, dC00 0.5 + k, dH00 0.25 + k, saturation 0.01 k.
void fillGrayRow(QStdMacbethChartColorDifference &m, const double rOverG[6], const double bOverG[6],
                 const double chroma[6])
{
    Injected v;
    for (int i = 0; i < 24; ++i) {
        v.dE00[i] = 1.0 + i;
        v.dC00[i] = 0.5 + i;
        v.dH00[i] = 0.25 + i;
        v.sat[i] = 0.01 * i;
    }
    inject(m, v);
    for (int i = 18; i < 24; ++i) {
        m.patch(i).rOverG = rOverG[i - 18];
        m.patch(i).bOverG = bOverG[i - 18];
        m.patch(i).chroma = chroma[i - 18];
    }
    m.calculateStatistics();
}

} // namespace

TEST(Ciede2000, PublishedPairsInBothOrders)
{
    QFile file(test::dataPath("ciede2000/sharma2005.csv"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly | QIODevice::Text)) << file.fileName().toStdString();
    QTextStream in(&file);
    in.readLine(); // header
    int pairs = 0;
    while (!in.atEnd()) {
        const QStringList f = in.readLine().trimmed().split(',');
        if (f.size() < 7)
            continue;
        const LabColor c1{f[0].toDouble(), f[1].toDouble(), f[2].toDouble()};
        const LabColor c2{f[3].toDouble(), f[4].toDouble(), f[5].toDouble()};
        const double expected = f[6].toDouble();
        EXPECT_NEAR(deltaE00(c1, c2), expected, 1e-4) << "pair " << pairs + 1;
        EXPECT_NEAR(deltaE00(c2, c1), expected, 1e-4) << "pair " << pairs + 1 << " swapped";
        ++pairs;
    }
    EXPECT_EQ(pairs, 34);
}

TEST(MacbethColorDifference, WholeChainOnGeneratedChart)
{
    // The values themselves are checked against an independent computation
    // in the command test; here the chain around them.
    const auto chart = makeChart(kChartColours);
    QStdMacbethChartColorDifference m;
    ASSERT_TRUE(m.setMeasuredRegions(chart.image, chart.rects));
    EXPECT_TRUE(m.errorText().isEmpty());
    m.calculateStatistics();

    for (int i = 0; i < 24; ++i) {
        const MacbethPatch &p = m.patch(i);
        const QRgb c = kChartColours[i];
        ASSERT_TRUE(p.computed);
        EXPECT_NEAR(p.B, qBlue(c) / 255.0, 1e-12);
        EXPECT_EQ(m.regionArea(i), 144.0);
        // The sRGB renderings are close to the reference chart: a reference
        // table out of order would show here.
        EXPECT_LT(p.dE00, 6.0) << "patch " << i + 1;
        EXPECT_NEAR(p.chroma, std::hypot(p.a, p.b), 1e-12);
    }
    const ColorDifferenceSummary &s = m.summary();
    EXPECT_EQ(s.dE00MaximumIndex, 12);
    EXPECT_EQ(s.saturationMaximumIndex, -1);
    EXPECT_NEAR(s.grayROverGAverage, 1.0, 0.01);
}

TEST(MacbethColorDifference, AveragingKeepsSixteenBitQuantisation)
{
    // Two pixel values in one patch: the mean 100.5/255 is stored with 16
    // bits per channel and read back from there.
    auto chart = makeChart(kChartColours, 2, 2);
    const QRect r = chart.rects[0];
    for (int k = 0; k < 4; ++k)
        chart.image.setPixel(r.left() + k % 2, r.top() + k / 2,
                             k < 2 ? qRgb(100, 100, 100) : qRgb(101, 101, 101));
    QStdMacbethChartColorDifference m;
    ASSERT_TRUE(m.setMeasuredRegions(chart.image, chart.rects));
    const double exact = 100.5 / 255.0;
    const double quantised = std::round(exact * 65535.0) / 65535.0;
    EXPECT_DOUBLE_EQ(m.patch(0).R, quantised);
    EXPECT_GT(std::fabs(m.patch(0).R - exact), 1e-6);
}

TEST(MacbethColorDifference, SummaryIndexRulesAndPercentile)
{
    QStdMacbethChartColorDifference m;
    Injected v;
    for (int i = 0; i < 24; ++i) {
        v.dE00[i] = i + 1; // 1..24: extremes at patches 0 and 23
        v.dC00[i] = 1.0;
        v.dH00[i] = 2.0;
        v.sat[i] = 0.1;
    }
    v.dC00[3] = v.dC00[10] = 5.0; // tied maximum
    v.dC00[2] = v.dC00[7] = 0.5;  // tied minimum
    v.sat[5] = 0.2;               // largest colour-patch saturation
    v.sat[12] = 0.05;             // minimum
    v.sat[20] = 0.3;              // overall maximum, on a gray patch
    inject(m, v);
    m.calculateStatistics();
    const ColorDifferenceSummary &s = m.summary();

    EXPECT_FLOAT_EQ(s.dE00Average, 12.5f);
    EXPECT_EQ(s.dE00Minimum, 1.0f);
    EXPECT_EQ(s.dE00Maximum, 24.0f);
    EXPECT_EQ(s.dE00MaximumIndex, 23);
    EXPECT_EQ(s.dE00MinimumIndex, -1); // held by patch 0, which writes no index
    EXPECT_FLOAT_EQ(s.dE00Percentile95, 23.3f);

    EXPECT_EQ(s.dC00MaximumIndex, 10); // ties: the later patch wins
    EXPECT_EQ(s.dC00MinimumIndex, 7);

    EXPECT_EQ(s.dH00MaximumIndex, 23); // all equal: the last patch
    // Saturation: average over the 18 colour patches, extremes over all 24;
    // both extremes write the minimum index, the maximum index stays unset.
    EXPECT_FLOAT_EQ(s.saturationAverage, (16 * 0.1f + 0.2f + 0.05f) / 18.0f);
    EXPECT_FLOAT_EQ(s.saturationMaximum, 0.3f);
    EXPECT_FLOAT_EQ(s.saturationMinimum, 0.05f);
    EXPECT_EQ(s.saturationMinimumIndex, 20);
    EXPECT_EQ(s.saturationMaximumIndex, -1);

    // A second measurement whose maximum sits on patch 0 keeps the index of
    // the previous one; the averages are reset.
    for (int i = 0; i < 24; ++i)
        v.dE00[i] = 24 - i;
    inject(m, v);
    m.calculateStatistics();
    EXPECT_EQ(s.dE00Maximum, 24.0f);
    EXPECT_EQ(s.dE00MaximumIndex, 23);
    EXPECT_EQ(s.dE00MinimumIndex, 23);
    EXPECT_FLOAT_EQ(s.dE00Average, 12.5f);
}

TEST(MacbethColorDifference, InvalidRegionsReportedButOthersMeasured)
{
    auto chart = makeChart(kChartColours);
    chart.rects[23] = QRect(95, 63, 6, 5);
    chart.rects[4] = QRect(-2, 3, 4, 4);
    QStdMacbethChartColorDifference m;
    EXPECT_FALSE(m.setMeasuredRegions(chart.image, chart.rects));
    // The 100 x 68 chart: the second rectangle ends one column past the edge.
    EXPECT_EQ(m.errorText(), "Invalid region:((-2, 3), (1, 6))Invalid region:((95, 63), (100, 67))");
    EXPECT_TRUE(m.patch(22).hasMeasured);
    EXPECT_FALSE(m.patch(4).hasMeasured);
    EXPECT_FALSE(m.patch(23).hasMeasured);

    // A fixed chart clears the error text; an empty rectangle has no average.
    chart = makeChart(kChartColours);
    EXPECT_TRUE(m.setMeasuredRegions(chart.image, chart.rects));
    EXPECT_TRUE(m.errorText().isEmpty());
    chart.rects[1] = QRect(QPoint(10, 10), QPoint(9, 14)); // zero width, both corners inside
    EXPECT_FALSE(m.setMeasuredRegions(chart.image, chart.rects));
    EXPECT_EQ(m.errorText(), "Invalid region:((10, 10), (9, 14))");
    EXPECT_FALSE(m.setMeasuredRegions(QImage(), chart.rects));
}

TEST(MacbethColorDifference, DegenerateChartsNeverCrash)
{
    // All black: 0 / 0 ratios; zero green beside red and blue: infinite ones.
    std::array<QRgb, 24> colours;
    colours.fill(qRgb(0, 0, 0));
    colours[21] = qRgb(100, 0, 80);
    const auto chart = makeChart(colours);
    QStdMacbethChartColorDifference m;
    ASSERT_TRUE(m.setMeasuredRegions(chart.image, chart.rects));
    m.calculateStatistics();
    const ColorDifferenceSummary &s = m.summary();
    EXPECT_TRUE(std::isfinite(s.dE00Average));
    EXPECT_TRUE(std::isfinite(s.dE00Percentile95));
    EXPECT_EQ(m.patch(20).saturation, 0.0);
    EXPECT_TRUE(std::isnan(m.patch(20).rOverG));
    EXPECT_TRUE(std::isinf(m.patch(21).rOverG));
    EXPECT_TRUE(std::isnan(s.grayROverGAverage));
}

TEST(MacbethColorDifference, RecordCachesUntilItsColourChanges)
{
    MacbethPatch p;
    p.setReference(50.0, 20.0, 10.0);
    p.compute();
    EXPECT_FALSE(p.computed); // no measured colour yet
    p.setMeasured(0.5, 0.5, 0.5);
    p.compute();
    ASSERT_TRUE(p.computed);
    const double first = p.dE00;
    p.setMeasured(0.2, 0.6, 0.3);
    EXPECT_FALSE(p.computed);
    p.compute();
    EXPECT_NE(p.dE00, first);
}

TEST(WhiteBalance, ReportSectionTextAndReciprocalAverages)
{
    QStdMacbethChartColorDifference m;
    const double rg[6] = {0.5, 2.0, 1.0, 1.0, 1.0, 1.0};
    const double bg[6] = {1.0, 1.0, 1.0, 1.0, 1.0, 1.0};
    const double chroma[6] = {1.5, 0.25, 0.0, 0.125, 3.0, 2.0};
    fillGrayRow(m, rg, bg, chroma);
    m.patch(23).computed = false; // an uncomputed gray patch is left out

    QString report = "head";
    appendWhiteBalanceReport(report, m);
    EXPECT_TRUE(report.startsWith("head<center><H1>White Balance</H1></center>\n"));
    // Rows of the computed gray patches only (not 24), then the averages:
    // the reciprocal columns are reciprocals of the averaged ratios.
    EXPECT_TRUE(report.contains("<tr><td align=\"center\">20</td><td align=\"right\">0.25</td><td "
                                "align=\"right\">2</td><td align=\"right\">0.5</td>"));
    EXPECT_FALSE(report.contains("<tr><td align=\"center\">24</td>"));
    EXPECT_TRUE(report.endsWith("<caption>White Balance Summary Report</caption>\n"
                                "<tr><td>Average Chroma</td><td>1.14583</td></tr>\n"
                                "<tr><td>Average R/G</td><td>1.08333</td></tr>\n"
                                "<tr><td>Average G/R</td><td>0.923077</td></tr>\n"
                                "<tr><td>Average B/G</td><td>1</td></tr>\n"
                                "<tr><td>Average G/B</td><td>1</td></tr>\n"
                                "</table></p>\n"
                                "</body></html>"));
}

TEST(WhiteBalance, MetricSelectionTable)
{
    QStdMacbethChartColorDifference m;
    EXPECT_FALSE(colorMetricSelection(m, 0).valid); // nothing measured yet

    const double rg[6] = {0.8, 0.9, 1.0, 1.1, 1.25, 2.0};
    const double bg[6] = {1.0, 0.5, 4.0, 1.0, 1.0, 1.0};
    const double chroma[6] = {1, 2, 3, 4, 5, 6};
    fillGrayRow(m, rg, bg, chroma);
    EXPECT_FALSE(colorMetricSelection(m, 9).valid);
    EXPECT_FALSE(colorMetricSelection(m, -1).valid);

    // Metrics 0-3 go to the bar chart over all patches, the others over the
    // gray row; both series start at patch 19.
    for (int k : {0, 3, 4, 8}) {
        const ColorMetricSelection s = colorMetricSelection(m, k);
        ASSERT_TRUE(s.valid);
        EXPECT_EQ(s.grayX.front(), 19.0);
        EXPECT_EQ(s.barValues.size(), k <= 3 ? 24 : 6);
    }
    EXPECT_EQ(colorMetricSelection(m, 0).barValues[4], 5.0);    // dE00 of patch 5
    EXPECT_EQ(colorMetricSelection(m, 2).grayValues[0], 18.25); // dH00 of patch 19
    EXPECT_EQ(colorMetricSelection(m, 5).grayValues[4], rg[4]);
    EXPECT_DOUBLE_EQ(colorMetricSelection(m, 6).grayValues[4], 1.0 / rg[4]);
    EXPECT_DOUBLE_EQ(colorMetricSelection(m, 8).grayValues[2], 1.0 / bg[2]);
}
