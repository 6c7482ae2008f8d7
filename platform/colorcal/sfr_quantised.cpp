#include "sfr_quantised.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace kestro::sfr {

namespace {

const int kBoundaries = 6;    // code boundaries fitted per side
const int kMinBoundaries = 4; // fewer: the side is left as it is
// Boundaries farther than this (in normal deviates, RMS) from a blurred
// step's approach leave the side as it is.
const double kMaxDeviateRms = 0.02;

// Inverse of the standard normal distribution function (Acklam's rational
// approximation, relative error below 1.2e-9).
double normalQuantile(double p)
{
    static const double a[] = {-3.969683028665376e+01, 2.209460984245205e+02,
                               -2.759285104469687e+02, 1.383577518672690e+02,
                               -3.066479806614716e+01, 2.506628277459239e+00};
    static const double b[] = {-5.447609879822406e+01, 1.615858368580409e+02,
                               -1.556989798598866e+02, 6.680131188771972e+01,
                               -1.328068155288572e+01};
    static const double c[] = {-7.784894002430293e-03, -3.223964580411365e-01,
                               -2.400758277161838e+00, -2.549732539343734e+00,
                               4.374664141464968e+00,  2.938163982698783e+00};
    static const double d[] = {7.784695709041462e-03, 3.224671290700398e-01, 2.445134137142996e+00,
                               3.754408661907416e+00};
    const double low = 0.02425;
    if (p <= 0)
        return -std::numeric_limits<double>::infinity();
    if (p >= 1)
        return std::numeric_limits<double>::infinity();
    if (p < low || p > 1 - low) {
        const double q = std::sqrt(-2 * std::log(p < low ? p : 1 - p));
        const double x = (((((c[0] * q + c[1]) * q + c[2]) * q + c[3]) * q + c[4]) * q + c[5])
                         / ((((d[0] * q + d[1]) * q + d[2]) * q + d[3]) * q + 1);
        return p < low ? x : -x;
    }
    const double q = p - 0.5, r = q * q;
    return (((((a[0] * r + a[1]) * r + a[2]) * r + a[3]) * r + a[4]) * r + a[5]) * q
           / (((((b[0] * r + b[1]) * r + b[2]) * r + b[3]) * r + b[4]) * r + 1);
}

double normalTail(double z)
{
    return 0.5 * std::erfc(z / std::sqrt(2.0));
}

// The approach of a blurred step to its plateau: step * Q(alpha + beta w),
// Q the upper tail of the normal distribution, w the outward distance.
struct TailFit
{
    double y = 0; // distance to the plateau at the outermost boundary, codes
    double alpha = 0;
    double beta = 0;
    double rms = 0; // of the boundaries' normal deviates

    double remaining(double step, double w) const { return step * normalTail(alpha + beta * w); }
};

// With the plateau y codes beyond the outermost boundary, boundary k lies
// where step * Q(z) = k + y: the deviates z must be a straight line in w.
bool fitTail(const double *w, const int *k, int n, double step, double y, TailFit &fit)
{
    double sw = 0, sz = 0, sww = 0, swz = 0;
    double z[16];
    for (int i = 0; i < n; ++i) {
        z[i] = -normalQuantile((k[i] + y) / step);
        sw += w[i];
        sz += z[i];
        sww += w[i] * w[i];
        swz += w[i] * z[i];
    }
    const double det = n * sww - sw * sw;
    if (!(det > 1e-12))
        return false;
    fit.y = y;
    fit.beta = (n * swz - sw * sz) / det;
    fit.alpha = (sz - fit.beta * sw) / n;
    double ss = 0;
    for (int i = 0; i < n; ++i) {
        const double d = fit.alpha + fit.beta * w[i] - z[i];
        ss += d * d;
    }
    fit.rms = std::sqrt(ss / n);
    return true;
}

// The y that fits best, by a scan and a golden-section refinement.
bool bestTail(const double *w, const int *k, int n, double step, TailFit &best)
{
    auto cost = [&](double y) {
        TailFit f;
        return fitTail(w, k, n, step, y, f) ? f.rms : std::numeric_limits<double>::infinity();
    };
    double bestY = -1, bestCost = std::numeric_limits<double>::infinity();
    for (int i = 1; i < 50; ++i) {
        const double y = i / 50.0;
        const double c = cost(y);
        if (c < bestCost) {
            bestCost = c;
            bestY = y;
        }
    }
    if (bestY < 0)
        return false;
    double lo = std::max(1e-3, bestY - 0.02), hi = std::min(0.999, bestY + 0.02);
    const double g = 0.5 * (std::sqrt(5.0) - 1);
    double x1 = hi - g * (hi - lo), x2 = lo + g * (hi - lo);
    double c1 = cost(x1), c2 = cost(x2);
    for (int it = 0; it < 30; ++it) {
        if (c1 < c2) {
            hi = x2;
            x2 = x1;
            c2 = c1;
            x1 = hi - g * (hi - lo);
            c1 = cost(x1);
        } else {
            lo = x1;
            x1 = x2;
            c1 = c2;
            x2 = lo + g * (hi - lo);
            c2 = cost(x2);
        }
    }
    return fitTail(w, k, n, step, 0.5 * (lo + hi), best);
}

} // namespace

int restoreQuantisedTails(const Plane &plane, int rowBegin, int rowEnd, const EdgeFit &fit,
                          const Quantisation &quantisation, double centre, Esf &esf)
{
    if (!quantisation.exact || esf.size() < 8 || !(quantisation.gamma > 0))
        return 0;
    const double gamma = quantisation.gamma;
    auto toCode = [gamma](double v) { return 255.0 * std::pow(std::max(v, 0.0), gamma); };
    auto toValue = [gamma](double c) { return std::pow(std::max(c, 0.0) / 255.0, 1.0 / gamma); };
    auto rawMean = [&esf](int k) {
        const EsfBin &b = esf.bins[static_cast<std::size_t>(k)];
        return b.n > 0 ? b.y / b.n : esf.values[static_cast<std::size_t>(k)];
    };
    const int middle = esf.binAt(centre);
    const double middleCode = toCode(esf.values[static_cast<std::size_t>(middle)]);
    int restored = 0;
    for (int side = -1; side <= 1; side += 2) {
        const int outer = side < 0 ? 0 : esf.size() - 1;
        const double outerCode = toCode(rawMean(outer));
        const double plateau = std::round(outerCode);
        if (std::fabs(outerCode - plateau) > 1e-3
            || std::fabs(middleCode - plateau) < 2 * (kBoundaries + 1))
            continue;
        const int dir = middleCode > plateau ? 1 : -1;
        // The zone of the last codes before the plateau, as outward distance.
        int j = outer;
        while (j != middle && dir * (toCode(rawMean(j)) - plateau) <= kBoundaries + 1)
            j -= side;
        if (j == middle)
            continue;

        // Boundary k as an area: across the zone the share of samples at most
        // k codes from the plateau rises from 0 to 1, and its integral over
        // the zone is the zone's length beyond the boundary. Exact wherever
        // in a bin the boundary falls, and unmoved by a symmetric spread of
        // the samples about it.
        const int zoneBins = std::abs(outer - j) + 1;
        std::vector<int> total(static_cast<std::size_t>(zoneBins), 0);
        std::vector<int> near(static_cast<std::size_t>(zoneBins) * kBoundaries, 0);
        const double h = esf.binWidth, lowEdge = esf.firstCentre - 0.5 * h;
        const double zoneStart = side * (esf.distance(j) - centre) - h;
        for (int r = rowBegin; r < rowEnd; ++r) {
            const double x = fit.at(r), origin = x + centre; // column of w = 0
            const float *row = plane.row(r);
            int c0, c1;
            if (side > 0) {
                c0 = std::max(0, static_cast<int>(std::ceil(origin + zoneStart)));
                c1 = plane.cols - 1;
            } else {
                c0 = 0;
                c1 = std::min(plane.cols - 1, static_cast<int>(std::floor(origin - zoneStart)));
            }
            for (int c = c0; c <= c1; ++c) {
                const int bin = static_cast<int>(std::floor((c - x - lowEdge) / h));
                const int z = side > 0 ? bin - j : j - bin; // 0 at the zone's inner end
                if (z < 0 || z >= zoneBins)
                    continue;
                const int level = std::max(0, static_cast<int>(std::lround(
                                                      dir * (toCode(row[c]) - plateau))));
                ++total[static_cast<std::size_t>(z)];
                for (int k = std::min(level, kBoundaries); k < kBoundaries; ++k)
                    ++near[static_cast<std::size_t>(z) * kBoundaries + k];
            }
        }
        const double zoneEnd = side * (esf.distance(outer) - centre) + 0.5 * h;
        double w[kBoundaries];
        int level[kBoundaries];
        int n = 0;
        for (int k = 0; k < kBoundaries; ++k) {
            double area = 0, share = 0;
            for (int z = zoneBins - 1; z >= 0; --z) {
                const int t = total[static_cast<std::size_t>(z)];
                if (t > 0) // an empty bin takes its outer neighbour's share
                    share = double(near[static_cast<std::size_t>(z) * kBoundaries + k]) / t;
                area += share * h;
            }
            const double at = zoneEnd - area;
            if (n > 0 && !(at < w[n - 1]))
                continue; // boundaries move inwards as the codes rise
            w[n] = at;
            level[n] = k;
            ++n;
        }
        if (n < kMinBoundaries)
            continue;
        // The far plateau: the step the approach is a part of.
        const int opposite = side < 0 ? esf.size() - 1 : 0;
        const double step = std::fabs(std::round(toCode(rawMean(opposite))) - plateau);
        TailFit tail;
        if (!bestTail(w, level, n, step, tail) || !(tail.beta > 0) || !(tail.rms < kMaxDeviateRms))
            continue;
        const double asymptote = plateau + dir * (0.5 - tail.y);
        for (int k = outer;; k -= side) {
            const double wk = side * (esf.distance(k) - centre);
            if (wk < w[n - 1])
                break;
            esf.values[static_cast<std::size_t>(k)] = toValue(asymptote
                                                              + dir * tail.remaining(step, wk));
        }
        ++restored;
    }
    return restored;
}

} // namespace kestro::sfr
