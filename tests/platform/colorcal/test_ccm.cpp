// The colour-correction computation: the colour conversions it shares with
// the colour difference measurement, the fits on charts rendered through a
// known camera, and what it refuses.

#include "ccmchart.h"

#include "measure/color/cielab.h"
#include "platform/colorcal/ccm.h"

#include <gtest/gtest.h>

#include <random>

using namespace kestro;
using namespace kestro::test;

namespace {

// The whole correction s·M·diag(g) as one matrix.
Mat3 combined(const ccm::Result &r)
{
    Mat3 t{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            t[i][j] = r.exposure * r.matrix[i][j] * r.gains[j];
    return t;
}

double meanInGamutAfter(const ccm::Result &r)
{
    double sum = 0.0;
    int n = 0;
    for (int i = 0; i < ccm::kPatchCount; ++i)
        if (inGamut(i)) {
            sum += r.deltaE00After[i];
            ++n;
        }
    return sum / n;
}

} // namespace

TEST(ColorCorrection, ConversionsAgreeWithTheColorDifferenceMeasurement)
{
    std::mt19937 random(3);
    std::uniform_real_distribution<double> unit(0.0, 1.0), ab(-90.0, 90.0), light(0.0, 100.0);
    for (int i = 0; i < 2000; ++i) {
        const ccm::Vec3 rgb = {unit(random), unit(random), unit(random)};
        const ccm::Lab lab = ccm::linearRgbToLab(rgb);
        const LabColor model = linearRgbToLab(rgb[0], rgb[1], rgb[2]);
        ASSERT_NEAR(lab.L, model.L, 1e-12);
        ASSERT_NEAR(lab.a, model.a, 1e-12);
        ASSERT_NEAR(lab.b, model.b, 1e-12);
        const ccm::Vec3 back = ccm::labToLinearRgb(lab);
        for (int c = 0; c < 3; ++c)
            ASSERT_NEAR(back[c], rgb[c], 1e-12);

        // Neutral colours (hue angles of zero) are among the pairs.
        const ccm::Lab p = {light(random), i % 7 ? ab(random) : 0.0, i % 7 ? ab(random) : 0.0};
        const ccm::Lab q = {light(random), i % 5 ? ab(random) : 0.0, i % 5 ? ab(random) : 0.0};
        ASSERT_NEAR(ccm::deltaE00(p, q), deltaE00({p.L, p.a, p.b}, {q.L, q.a, q.b}), 1e-12);
    }
    EXPECT_EQ(ccm::deltaE00({50, 2.5, 0}, {50, 2.5, 0}), 0.0);
}

TEST(ColorCorrection, RecoversAKnownCamera)
{
    const Mat3 mix = sampleMixing();
    const ccm::Vec3 gains = sampleGains();
    const double exposure = 0.8;
    const ccm::Chart chart = renderChart(mix, gains, exposure);
    Mat3 camera{};
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            camera[r][c] = exposure * gains[r] * mix[r][c];
    const Mat3 expected = ccm::inverse(camera);

    for (ccm::Fit fit : {ccm::Fit::LeastSquares, ccm::Fit::MinimumDeltaE}) {
        const ccm::Result r = ccm::computeCorrection(chart, {fit, 0.0});
        ASSERT_TRUE(r.ok) << r.error;
        SCOPED_TRACE(fit == ccm::Fit::LeastSquares ? "least squares" : "minimum dE00");
        const Mat3 t = combined(r);
        for (int i = 0; i < 3; ++i) {
            EXPECT_NEAR(r.matrix[i][0] + r.matrix[i][1] + r.matrix[i][2], 1.0, 1e-12);
            for (int j = 0; j < 3; ++j)
                EXPECT_NEAR(t[i][j], expected[i][j], 1e-3) << i << "," << j;
        }
        EXPECT_EQ(r.gains[1], 1.0);
        EXPECT_LE(meanInGamutAfter(r), 0.01);
        EXPECT_TRUE(r.excluded.empty());
    }
}

TEST(ColorCorrection, RidgeTradesColorErrorForNoise)
{
    const ccm::Chart chart = renderChart(sampleMixing(), sampleGains(), 0.8, 0.004, 11);
    for (ccm::Fit fit : {ccm::Fit::LeastSquares, ccm::Fit::MinimumDeltaE}) {
        SCOPED_TRACE(fit == ccm::Fit::LeastSquares ? "least squares" : "minimum dE00");
        const ccm::Result plain = ccm::computeCorrection(chart, {fit, 0.0});
        ASSERT_TRUE(plain.ok) << plain.error;
        const ccm::Result mild = ccm::computeCorrection(chart, {fit, 0.01});
        for (int c = 0; c < 3; ++c)
            EXPECT_LT(mild.noiseGain[c], plain.noiseGain[c] * 0.95) << c;
        EXPECT_GE(mild.after.mean, plain.after.mean - 0.05);
        EXPECT_LT(mild.after.mean, plain.after.mean + 2.0);
        // Without bound the rows go to the lowest noise gain there is.
        const ccm::Result strong = ccm::computeCorrection(chart, {fit, 1e5});
        for (double g : strong.noiseGain)
            EXPECT_NEAR(g, 1.0 / std::sqrt(3.0), 1e-3);
    }
    // The dE fit does better than least squares on the figure it minimises.
    const ccm::Result ls = ccm::computeCorrection(chart, {ccm::Fit::LeastSquares, 0.0});
    const ccm::Result de = ccm::computeCorrection(chart, {ccm::Fit::MinimumDeltaE, 0.0});
    double ls2 = 0.0, de2 = 0.0;
    for (int i = 0; i < ccm::kPatchCount; ++i) {
        ls2 += ls.deltaE00After[i] * ls.deltaE00After[i];
        de2 += de.deltaE00After[i] * de.deltaE00After[i];
    }
    EXPECT_LT(de2, ls2);
}

TEST(ColorCorrection, ClippedPatchesAreLeftOut)
{
    // Overexposed: the white patch and some bright colours clip.
    ccm::Chart chart = renderChart(sampleMixing(), sampleGains(), 1.35);
    chart.measured[23] = {0.0, 0.001, 0.0}; // black crushed
    const ccm::Result r = ccm::computeCorrection(chart);
    ASSERT_TRUE(r.ok) << r.error;
    ASSERT_FALSE(r.excluded.empty());
    EXPECT_EQ(r.excluded.back(), 24);
    EXPECT_NE(std::find(r.excluded.begin(), r.excluded.end(), 19), r.excluded.end());
    EXPECT_EQ(r.fittedPatches, 24 - static_cast<int>(r.excluded.size()));
    // The unclipped patches still give the camera's inverse.
    EXPECT_LT(r.after.mean, 0.6);
}

TEST(ColorCorrection, RefusesWhatCannotBeFitted)
{
    const ccm::Chart good = renderChart(sampleMixing(), sampleGains(), 0.8);
    auto errorOf = [](const ccm::Chart &chart, ccm::Options options = {}) {
        const ccm::Result r = ccm::computeCorrection(chart, options);
        EXPECT_FALSE(r.ok);
        return r.error;
    };
    ccm::Chart partial = good;
    partial.measured[5][1] = std::nan("");
    EXPECT_EQ(errorOf(partial).rfind("Only 23 of the 24 patches", 0), 0u);

    ccm::Chart white = good, oneColor = good, noGray = good;
    for (int i = 0; i < ccm::kPatchCount; ++i) {
        white.measured[i] = {1.0, 1.0, 1.0};
        oneColor.measured[i] = {0.4, 0.5, 0.3};
        if (i >= ccm::kFirstGrayPatch)
            noGray.measured[i] = {1.0, 0.9, 0.9};
    }
    EXPECT_NE(errorOf(white).find("Every patch is clipped"), std::string::npos);
    EXPECT_NE(errorOf(noGray).find("gray patches are clipped"), std::string::npos);
    EXPECT_NE(errorOf(oneColor).find("do not span the colors"), std::string::npos);
    EXPECT_NE(errorOf(good, {ccm::Fit::LeastSquares, -1.0}).find("ridge"), std::string::npos);
}

TEST(ColorCorrection, StatisticsFollowTheColorDifferenceMeasurement)
{
    std::vector<double> values;
    for (int i = 1; i <= 24; ++i)
        values.push_back(25 - i);
    const ccm::Stats s = ccm::summarize(values);
    EXPECT_DOUBLE_EQ(s.mean, 12.5);
    EXPECT_DOUBLE_EQ(s.max, 24.0);
    EXPECT_DOUBLE_EQ(s.p95, 23.3);
}
