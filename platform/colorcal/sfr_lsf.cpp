#include "sfr_lsf.h"

#include <algorithm>
#include <cmath>

namespace kestro::sfr {

Lsf differentiate(const Esf &esf)
{
    Lsf lsf;
    const int n = esf.size();
    lsf.binWidth = esf.binWidth;
    lsf.firstCentre = esf.firstCentre;
    lsf.values.assign(static_cast<std::size_t>(n), 0.0);
    double total = 0;
    for (int k = 1; k + 1 < n; ++k) {
        const double v = 0.5
                         * (esf.values[static_cast<std::size_t>(k + 1)]
                            - esf.values[static_cast<std::size_t>(k - 1)]);
        lsf.values[static_cast<std::size_t>(k)] = v;
        total += v;
    }
    if (total < 0)
        for (double &v : lsf.values)
            v = -v;
    lsf.first = 0;
    lsf.last = n - 1;
    return lsf;
}

double lsfCentroid(const Lsf &lsf, double around, double halfWidth)
{
    double s = 0, m = 0;
    for (int k = 0; k < lsf.size(); ++k) {
        const double u = lsf.distance(k);
        if (std::fabs(u - around) > halfWidth)
            continue;
        s += lsf.values[static_cast<std::size_t>(k)];
        m += lsf.values[static_cast<std::size_t>(k)] * u;
    }
    return s > 0 ? m / s : around;
}

LsfWindow chooseLsfWindow(const Esf &esf, double centre, double rise, double sampleNoise)
{
    LsfWindow w;
    w.centre = centre;
    w.flatBefore = w.flatAfter = 1.6 * rise + 0.25;
    w.taper = std::max(1.0, 0.5 * rise);
    if (!(sampleNoise >= 0) || esf.size() < 2)
        return w;
    const double step = std::fabs(esf.values.back() - esf.values.front());
    const double segment = std::max(1.0, 0.5 * rise);
    // Mean value and sample count of the bins whose distance from the centre
    // (outwards on one side) lies in [from, to).
    auto mean = [&](int side, double from, double to, double &samples) {
        double sum = 0;
        int bins = 0;
        samples = 0;
        for (int k = 0; k < esf.size(); ++k) {
            const double u = side * (esf.distance(k) - centre);
            if (u < from || u >= to)
                continue;
            sum += esf.values[static_cast<std::size_t>(k)];
            samples += esf.bins[static_cast<std::size_t>(k)].n;
            ++bins;
        }
        return bins > 0 ? sum / bins : std::nan("");
    };
    for (int side = -1; side <= 1; side += 2) {
        double &flat = side < 0 ? w.flatBefore : w.flatAfter;
        const double extent = side < 0 ? centre - esf.distance(0)
                                       : esf.distance(esf.size() - 1) - centre;
        // The level the far end settles at: the outer quarter of the side.
        const double farFrom = std::max(flat + 2 * segment, 0.75 * extent);
        double farSamples = 0;
        const double far = mean(side, farFrom, extent + 1, farSamples);
        if (!(farSamples > 0))
            continue;
        // Widen while what remains between the window's end and the far
        // level is more than the noise of the two means explains.
        while (flat + segment <= farFrom) {
            double samples = 0;
            const double here = mean(side, flat, flat + segment, samples);
            const double noise = 4.0 * sampleNoise
                                 * std::sqrt(1.0 / std::max(samples, 1.0) + 1.0 / farSamples);
            if (!(std::fabs(here - far) > std::max(noise, 1e-6 * step)))
                break;
            flat += segment;
        }
    }
    return w;
}

void applyWindow(Lsf &lsf, const LsfWindow &window)
{
    const double pi = 3.14159265358979323846;
    lsf.centre = window.centre;
    lsf.halfWidth = std::max(window.flatBefore, window.flatAfter) + window.taper;
    lsf.first = lsf.size();
    lsf.last = -1;
    for (int k = 0; k < lsf.size(); ++k) {
        const double x = lsf.distance(k) - window.centre;
        const double beyond = x < 0 ? -x - window.flatBefore : x - window.flatAfter;
        double &v = lsf.values[static_cast<std::size_t>(k)];
        if (beyond >= window.taper) {
            v = 0;
            continue;
        }
        if (beyond > 0)
            v *= 0.5 + 0.5 * std::cos(pi * beyond / window.taper);
        lsf.first = std::min(lsf.first, k);
        lsf.last = std::max(lsf.last, k);
    }
}

} // namespace kestro::sfr
