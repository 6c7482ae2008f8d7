#include "measure/color/macbethcolordifference.h"

#include "chartimage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using namespace kestro;
using kestro::test::makeChart;

namespace {

const std::array<QRgb, 24> &kChartColours = test::kSrgbChartColours;

std::array<QRgb, 24> uniform(QRgb c)
{
    std::array<QRgb, 24> a;
    a.fill(c);
    return a;
}

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

} // namespace

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
        EXPECT_NEAR(p.R, qRed(c) / 255.0, 1e-12);
        EXPECT_NEAR(p.B, qBlue(c) / 255.0, 1e-12);
        EXPECT_EQ(m.regionArea(i), 144.0);
        // The sRGB renderings are close to the reference chart: a reference
        // table out of order or a wrong white point would show here.
        EXPECT_LT(p.dE00, 6.0) << "patch " << i + 1;
        EXPECT_LE(p.dC00, p.dE00 + 1e-9);
        EXPECT_NEAR(p.chroma, std::hypot(p.a, p.b), 1e-12);
    }
    const ColorDifferenceSummary &s = m.summary();
    EXPECT_EQ(s.dE00MaximumIndex, 12);
    EXPECT_EQ(s.dE00Maximum, float(m.dE00(12)));
    EXPECT_EQ(s.saturationMaximumIndex, -1);
    EXPECT_NEAR(s.grayROverGAverage, 1.0, 0.01);
}

TEST(MacbethColorDifference, AveragingKeepsSixteenBitQuantisation)
{
    // Two pixel values in one patch: the mean 100.5/255 is stored with 16
    // bits per channel and read back from there.
    auto chart = makeChart(kChartColours, 2, 2);
    const QRect r = chart.rects[0];
    chart.image.setPixel(r.left(), r.top(), qRgb(100, 100, 100));
    chart.image.setPixel(r.left() + 1, r.top(), qRgb(100, 100, 100));
    chart.image.setPixel(r.left(), r.top() + 1, qRgb(101, 101, 101));
    chart.image.setPixel(r.left() + 1, r.top() + 1, qRgb(101, 101, 101));
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
    const QSize size = chart.image.size();
    chart.rects[23] = QRect(size.width() - 5, size.height() - 5, 6, 5); // one column too far
    chart.rects[4] = QRect(-2, 3, 4, 4);
    QStdMacbethChartColorDifference m;
    EXPECT_FALSE(m.setMeasuredRegions(chart.image, chart.rects));
    EXPECT_EQ(m.errorText(),
              QString("Invalid region:((-2, 3), (1, 6))Invalid region:((%1, %2), (%3, %4))")
                      .arg(size.width() - 5)
                      .arg(size.height() - 5)
                      .arg(size.width())
                      .arg(size.height() - 1));
    EXPECT_TRUE(m.patch(22).hasMeasured);
    EXPECT_TRUE(m.patch(0).hasMeasured);
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
    auto colours = uniform(qRgb(0, 0, 0));
    colours[21] = qRgb(100, 0, 80);
    const auto chart = makeChart(colours);
    QStdMacbethChartColorDifference m;
    ASSERT_TRUE(m.setMeasuredRegions(chart.image, chart.rects));
    m.calculateStatistics();
    const ColorDifferenceSummary &s = m.summary();
    EXPECT_TRUE(std::isfinite(s.dE00Average));
    EXPECT_TRUE(std::isfinite(s.dE00Percentile95));
    EXPECT_TRUE(std::isnan(m.patch(20).rOverG));
    EXPECT_TRUE(std::isinf(m.patch(21).rOverG));
    EXPECT_TRUE(std::isnan(s.grayROverGAverage));
}

TEST(MacbethColorDifference, IndexedImageGivesTheSameResults)
{
    const auto rgb = makeChart(kChartColours);
    const auto indexed = makeChart(kChartColours, 12, 4, QImage::Format_Indexed8);
    ASSERT_EQ(indexed.image.format(), QImage::Format_Indexed8);
    QStdMacbethChartColorDifference a, b;
    ASSERT_TRUE(a.setMeasuredRegions(rgb.image, rgb.rects));
    ASSERT_TRUE(b.setMeasuredRegions(indexed.image, indexed.rects));
    a.calculateStatistics();
    b.calculateStatistics();
    for (int i = 0; i < 24; ++i)
        EXPECT_EQ(a.dE00(i), b.dE00(i));
    EXPECT_EQ(a.summary().dE00Percentile95, b.summary().dE00Percentile95);
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
    // dE94chroma weights: hue term by 1 + 0.045 Cg, chroma term by 1 + 0.015 Cg.
    const double C1 = std::hypot(20.0, 10.0), C2 = std::hypot(p.a, p.b), Cg = std::sqrt(C1 * C2);
    EXPECT_NEAR(p.dCab, C1 - C2, 1e-12);
    EXPECT_NEAR(p.dE94chroma, std::hypot(p.dHab / (1 + 0.045 * Cg), p.dCab / (1 + 0.015 * Cg)),
                1e-12);
    EXPECT_NEAR(p.dE94, std::hypot(p.dL, p.dE94chroma), 1e-12);
}
