// Accuracy of the slanted-edge measurement on synthetic edges of known MTF.

#include "slantededge.h"

#include "platform/colorcal/sfr_measure.h"

#include <gtest/gtest.h>

#include <QDebug>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

using kestro::test::EdgeParams;
using kestro::test::makeEdgeImage;
using kestro::test::trueCrossing;

namespace {

struct Sample
{
    double error; // relative MTF50 error
    double angle, sigma, noise;
    bool low;
};

double measureMtf50(const EdgeParams &params, int channel = kestro::sfr::Gray, double gamma = 1.0,
                    kestro::sfr::Result *out = nullptr)
{
    const QImage image = makeEdgeImage(params);
    kestro::sfr::Result r;
    kestro::sfr::measureImageRegion(image, image.rect(), gamma, r);
    EXPECT_EQ(r.error, "") << params.angleDegrees << " " << params.sigma[0];
    if (out)
        *out = r;
    return r.error.empty() ? r.mtf50[channel] : std::nan("");
}

EdgeParams gridParams(double angle, double sigma, bool low, double noise, unsigned seed)
{
    EdgeParams s;
    s.angleDegrees = angle;
    s.sigma[0] = s.sigma[1] = s.sigma[2] = sigma;
    s.height = 200;
    s.width = 100
              + static_cast<int>(std::ceil(s.height * std::tan(angle * 3.14159265358979 / 180)));
    if (low) {
        s.dark = 0.2;
        s.light = 0.8;
    } else {
        s.dark = 0.05;
        s.light = 0.9;
    }
    s.noise = noise;
    s.seed = seed;
    s.offset = 0.37 * seed;
    return s;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

} // namespace

TEST(SfrAccuracy, Mtf50OverAnglesBlursContrastsAndNoise)
{
    const double angles[] = {2, 3, 4.5, 6, 8, 10.5, 13, 16, 20, 25};
    const double sigmas[] = {0.45, 0.6, 0.8, 1.0, 1.3, 1.7, 2.1, 2.5};
    std::vector<Sample> samples;
    unsigned seed = 1;
    for (double noise : {0.0, 1.0})
        for (bool low : {false, true})
            for (double angle : angles)
                for (double sigma : sigmas) {
                    const EdgeParams params = gridParams(angle, sigma, low, noise, seed++ % 7 + 1);
                    const double truth = trueCrossing(sigma, angle, 0.5);
                    const double got = measureMtf50(params);
                    samples.push_back({got / truth - 1, angle, sigma, noise, low});
                    if (qEnvironmentVariableIsSet("SFR_VERBOSE")
                        && std::fabs(got / truth - 1) > 0.004)
                        std::printf("    angle %.1f sigma %.2f noise %.0f %s: %+.3f %%\n", angle,
                                    sigma, noise, low ? "low" : "high", 100 * (got / truth - 1));
                }
    std::vector<double> all, worst;
    double maxAbs = 0;
    const Sample *worstSample = nullptr;
    for (const Sample &s : samples) {
        all.push_back(std::fabs(s.error));
        if (!(std::fabs(s.error) <= maxAbs)) {
            maxAbs = std::fabs(s.error);
            worstSample = &s;
        }
    }
    auto category = [&](const char *name, auto pick) {
        std::vector<double> v;
        double mx = 0, mean = 0;
        for (const Sample &s : samples)
            if (pick(s)) {
                v.push_back(std::fabs(s.error));
                mx = std::max(mx, std::fabs(s.error));
                mean += s.error;
            }
        std::printf("  %-22s n=%3zu median %.3f %%  worst %.3f %%  bias %+.3f %%\n", name, v.size(),
                    100 * median(v), 100 * mx, v.empty() ? 0.0 : 100 * mean / v.size());
    };
    std::printf("MTF50 relative error over %zu edges:\n", samples.size());
    category("all", [](const Sample &) { return true; });
    category("noise-free", [](const Sample &s) { return s.noise == 0; });
    category("1 DN noise", [](const Sample &s) { return s.noise > 0; });
    category("high contrast", [](const Sample &s) { return !s.low; });
    category("low contrast 4:1", [](const Sample &s) { return s.low; });
    category("sigma < 0.7", [](const Sample &s) { return s.sigma < 0.7; });
    category("sigma > 2", [](const Sample &s) { return s.sigma > 2; });
    category("angle < 4", [](const Sample &s) { return s.angle < 4; });
    category("angle > 15", [](const Sample &s) { return s.angle > 15; });
    if (worstSample)
        std::printf("  worst case: angle %.1f sigma %.2f noise %.0f %s: %+.3f %%\n",
                    worstSample->angle, worstSample->sigma, worstSample->noise,
                    worstSample->low ? "low" : "high", 100 * worstSample->error);
    EXPECT_LE(median(all), 0.005);
    EXPECT_LE(maxAbs, 0.015);
}
