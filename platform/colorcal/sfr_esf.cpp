#include "sfr_esf.h"

#include <algorithm>
#include <cmath>

namespace kestro::sfr {

bool binEdgeSpread(const Plane &plane, int rowBegin, int rowEnd, const EdgeFit &fit,
                   double binWidth, int maxBins, Esf &esf)
{
    if (rowEnd <= rowBegin || plane.cols < 2 || binWidth <= 0)
        return false;
    double uMin = 1e300, uMax = -1e300;
    for (int r = rowBegin; r < rowEnd; ++r) {
        const double x = fit.at(r);
        uMin = std::min(uMin, -x);
        uMax = std::max(uMax, plane.cols - 1 - x);
    }
    // Bin edges on multiples of the bin width, counted from the edge.
    const double inv = 1.0 / binWidth;
    long long kMin = static_cast<long long>(std::floor(uMin * inv));
    long long kMax = static_cast<long long>(std::floor(uMax * inv));
    const long long half = maxBins / 2;
    kMin = std::max(kMin, -half);
    kMax = std::min(kMax, half - 1);
    if (kMax - kMin + 1 < 8)
        return false;
    const int n = static_cast<int>(kMax - kMin + 1);
    std::vector<double> sum(static_cast<std::size_t>(n), 0.0);
    std::vector<int> count(static_cast<std::size_t>(n), 0);
    // With a whole number of bins per pixel, floor((c - x) * inv) is
    // c * inv + floor(-x * inv): one floor per row.
    const int perPixel = static_cast<int>(std::lround(inv));
    const bool wholeBins = std::fabs(inv - perPixel) < 1e-12;
    for (int r = rowBegin; r < rowEnd; ++r) {
        const double x = fit.at(r);
        const float *row = plane.row(r);
        if (wholeBins) {
            const long long base = static_cast<long long>(std::floor(-x * inv)) - kMin;
            int c0 = 0, c1 = plane.cols - 1;
            while (c0 <= c1 && base + static_cast<long long>(c0) * perPixel < 0)
                ++c0;
            while (c1 >= c0 && base + static_cast<long long>(c1) * perPixel >= n)
                --c1;
            std::size_t k = static_cast<std::size_t>(base + static_cast<long long>(c0) * perPixel);
            for (int c = c0; c <= c1; ++c, k += static_cast<std::size_t>(perPixel)) {
                sum[k] += row[c];
                ++count[k];
            }
            continue;
        }
        for (int c = 0; c < plane.cols; ++c) {
            const long long k = static_cast<long long>(std::floor((c - x) * inv)) - kMin;
            if (k < 0 || k >= n)
                continue;
            sum[static_cast<std::size_t>(k)] += row[c];
            ++count[static_cast<std::size_t>(k)];
        }
    }
    int first = 0, last = n - 1;
    while (first < n && count[static_cast<std::size_t>(first)] == 0)
        ++first;
    while (last >= 0 && count[static_cast<std::size_t>(last)] == 0)
        --last;
    if (last - first + 1 < 8)
        return false;
    esf.values.assign(static_cast<std::size_t>(last - first + 1), 0.0);
    esf.binWidth = binWidth;
    esf.firstCentre = (kMin + first + 0.5) * binWidth;
    esf.emptyFilled = 0;
    int previous = -1;
    for (int k = first; k <= last; ++k) {
        const std::size_t i = static_cast<std::size_t>(k - first);
        if (count[static_cast<std::size_t>(k)] > 0) {
            esf.values[i] = sum[static_cast<std::size_t>(k)] / count[static_cast<std::size_t>(k)];
            if (previous >= 0 && k - previous > 1) {
                const double a = esf.values[static_cast<std::size_t>(previous - first)];
                const double b = esf.values[i];
                for (int m = previous + 1; m < k; ++m) {
                    const double t = double(m - previous) / (k - previous);
                    esf.values[static_cast<std::size_t>(m - first)] = a + t * (b - a);
                    ++esf.emptyFilled;
                }
            }
            previous = k;
        }
    }
    return true;
}

void esfPlateaus(const Esf &esf, double exclude, double &before, double &after)
{
    double s0 = 0, s1 = 0;
    int n0 = 0, n1 = 0;
    for (int k = 0; k < esf.size(); ++k) {
        const double u = esf.distance(k);
        if (u < -exclude) {
            s0 += esf.values[static_cast<std::size_t>(k)];
            ++n0;
        } else if (u > exclude) {
            s1 += esf.values[static_cast<std::size_t>(k)];
            ++n1;
        }
    }
    // A region that barely reaches past the edge on one side: use its end bins.
    const int fallback = std::max(1, esf.size() / 10);
    if (n0 == 0) {
        for (int k = 0; k < fallback; ++k)
            s0 += esf.values[static_cast<std::size_t>(k)];
        n0 = fallback;
    }
    if (n1 == 0) {
        for (int k = esf.size() - fallback; k < esf.size(); ++k)
            s1 += esf.values[static_cast<std::size_t>(k)];
        n1 = fallback;
    }
    before = s0 / n0;
    after = s1 / n1;
}

double esfRiseDistance(const Esf &esf, double before, double after)
{
    const double step = after - before;
    if (step == 0 || esf.size() < 2)
        return 0;
    // Crossings nearest the edge (distance 0), searched outwards.
    auto crossing = [&](double level) {
        const double target = before + level * step;
        int centre = 0;
        double best = 1e300;
        for (int k = 0; k < esf.size(); ++k)
            if (std::fabs(esf.distance(k)) < best) {
                best = std::fabs(esf.distance(k));
                centre = k;
            }
        for (int off = 0; off < esf.size(); ++off) {
            for (int s = -1; s <= 1; s += 2) {
                const int k = centre + s * off;
                if (k < 0 || k + 1 >= esf.size())
                    continue;
                const double a = (esf.values[static_cast<std::size_t>(k)] - target) / step;
                const double b = (esf.values[static_cast<std::size_t>(k + 1)] - target) / step;
                if (a <= 0 && b > 0)
                    return esf.distance(k) + esf.binWidth * (-a / (b - a));
            }
        }
        return esf.distance(centre);
    };
    return std::fabs(crossing(0.9) - crossing(0.1));
}

} // namespace kestro::sfr
