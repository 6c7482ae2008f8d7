#include "sfr_esf.h"

#include <algorithm>
#include <cmath>

namespace kestro::sfr {

int Esf::binAt(double u) const
{
    const int k = static_cast<int>(std::lround((u - firstCentre) / binWidth));
    return std::clamp(k, 0, std::max(0, size() - 1));
}

namespace {

inline void addSample(EsfBin &b, double v, double o, double oo)
{
    b.n += 1;
    b.y += v;
    b.o += o;
    b.oo += oo;
    b.oy += o * v;
    b.yy += v * v;
}

// The bin's mean moved to the bin centre along the slope between the means
// of its nearest filled neighbours (or itself, at the ends).
double centredMean(const std::vector<EsfBin> &bins, int k, double h)
{
    const int n = static_cast<int>(bins.size());
    const EsfBin &b = bins[static_cast<std::size_t>(k)];
    const double mean = b.y / b.n, offset = b.o / b.n;
    auto filled = [&](int from, int step) {
        for (int j = from, tries = 0; j >= 0 && j < n && tries < 3; j += step, ++tries)
            if (bins[static_cast<std::size_t>(j)].n > 0)
                return j;
        return -1;
    };
    int a = filled(k - 1, -1), c = filled(k + 1, 1);
    if (a < 0 && c < 0)
        return mean;
    if (a < 0)
        a = k;
    if (c < 0)
        c = k;
    const EsfBin &ba = bins[static_cast<std::size_t>(a)], &bc = bins[static_cast<std::size_t>(c)];
    const double pa = a * h + ba.o / ba.n, pc = c * h + bc.o / bc.n;
    if (!(pc - pa > 1e-9))
        return mean;
    const double slope = (bc.y / bc.n - ba.y / ba.n) / (pc - pa);
    return mean - slope * offset;
}

// Running sums over the bins, so that a least-squares line through the
// samples of any run of bins costs the same however long the run.
struct BinSums
{
    double n = 0, jn = 0, jjn = 0, o = 0, jo = 0, oo = 0, y = 0, jy = 0, oy = 0;
};

std::vector<BinSums> runningSums(const std::vector<EsfBin> &bins)
{
    std::vector<BinSums> sums(bins.size() + 1);
    for (std::size_t j = 0; j < bins.size(); ++j) {
        const EsfBin &b = bins[j];
        const double x = static_cast<double>(j);
        BinSums s = sums[j];
        s.n += b.n;
        s.jn += x * b.n;
        s.jjn += x * x * b.n;
        s.o += b.o;
        s.jo += x * b.o;
        s.oo += b.oo;
        s.y += b.y;
        s.jy += x * b.y;
        s.oy += b.oy;
        sums[j + 1] = s;
    }
    return sums;
}

// Least-squares line through the samples of bins k - m .. k + m, evaluated
// at bin k's centre.
bool localLinearFit(const std::vector<BinSums> &sums, int k, int m, double h, double &value)
{
    const int n = static_cast<int>(sums.size()) - 1;
    const BinSums &a = sums[static_cast<std::size_t>(std::max(0, k - m))];
    const BinSums &b = sums[static_cast<std::size_t>(std::min(n, k + m + 1))];
    const double kk = k;
    const double w = b.n - a.n, sj = b.jn - a.jn, sjj = b.jjn - a.jjn, so = b.o - a.o;
    const double sjo = b.jo - a.jo, sy = b.y - a.y, sjy = b.jy - a.jy;
    // Abscissae relative to bin k's centre: (j - k) h + offset.
    const double sx = h * (sj - kk * w) + so;
    const double sxx = h * h * (sjj - 2 * kk * sj + kk * kk * w) + 2 * h * (sjo - kk * so)
                       + (b.oo - a.oo);
    const double sxy = h * (sjy - kk * sy) + (b.oy - a.oy);
    const double det = w * sxx - sx * sx;
    if (!(w > 0) || !(det > 1e-9 * w * w * h * h))
        return false;
    value = (sxx * sy - sx * sxy) / det;
    return true;
}

} // namespace

bool binEdgeSpread(const Plane &plane, int rowBegin, int rowEnd, const EdgeFit &fit,
                   double binWidth, int maxBins, Esf &esf, bool centred)
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
    std::vector<EsfBin> bins(static_cast<std::size_t>(n));
    // With a whole number of bins per pixel, floor((c - x) * inv) is
    // c * inv + floor(-x * inv), and every sample of the row sits at the same
    // offset from its bin centre: one floor per row.
    const int perPixel = static_cast<int>(std::lround(inv));
    const bool wholeBins = std::fabs(inv - perPixel) < 1e-12;
    for (int r = rowBegin; r < rowEnd; ++r) {
        const double x = fit.at(r);
        const float *row = plane.row(r);
        if (wholeBins) {
            const double cell = std::floor(-x * inv);
            const long long base = static_cast<long long>(cell) - kMin;
            const double o = -x - (cell + 0.5) * binWidth, oo = o * o;
            int c0 = 0, c1 = plane.cols - 1;
            while (c0 <= c1 && base + static_cast<long long>(c0) * perPixel < 0)
                ++c0;
            while (c1 >= c0 && base + static_cast<long long>(c1) * perPixel >= n)
                --c1;
            std::size_t k = static_cast<std::size_t>(base + static_cast<long long>(c0) * perPixel);
            const std::size_t stride = static_cast<std::size_t>(perPixel);
            if (centred) {
                for (int c = c0; c <= c1; ++c, k += stride)
                    addSample(bins[k], row[c], o, oo);
            } else {
                for (int c = c0; c <= c1; ++c, k += stride) {
                    bins[k].n += 1;
                    bins[k].y += row[c];
                }
            }
            continue;
        }
        for (int c = 0; c < plane.cols; ++c) {
            const double cell = std::floor((c - x) * inv);
            const long long k = static_cast<long long>(cell) - kMin;
            if (k < 0 || k >= n)
                continue;
            const double o = (c - x) - (cell + 0.5) * binWidth;
            addSample(bins[static_cast<std::size_t>(k)], row[c], o, o * o);
        }
    }
    int first = 0, last = n - 1;
    while (first < n && bins[static_cast<std::size_t>(first)].n == 0)
        ++first;
    while (last >= 0 && bins[static_cast<std::size_t>(last)].n == 0)
        --last;
    if (last - first + 1 < 8)
        return false;
    esf.bins.assign(bins.begin() + first, bins.begin() + last + 1);
    esf.values.assign(esf.bins.size(), 0.0);
    esf.binWidth = binWidth;
    esf.firstCentre = (kMin + first + 0.5) * binWidth;
    esf.emptyFilled = 0;
    int previous = -1;
    for (int k = 0; k < esf.size(); ++k) {
        if (esf.bins[static_cast<std::size_t>(k)].n <= 0)
            continue;
        const EsfBin &b = esf.bins[static_cast<std::size_t>(k)];
        esf.values[static_cast<std::size_t>(k)] = centred ? centredMean(esf.bins, k, binWidth)
                                                          : b.y / b.n;
        if (previous >= 0 && k - previous > 1) {
            const double a = esf.values[static_cast<std::size_t>(previous)];
            const double b = esf.values[static_cast<std::size_t>(k)];
            for (int m = previous + 1; m < k; ++m) {
                const double t = double(m - previous) / (k - previous);
                esf.values[static_cast<std::size_t>(m)] = a + t * (b - a);
                ++esf.emptyFilled;
            }
        }
        previous = k;
    }
    return true;
}

void smoothEsfTails(Esf &esf, double centre, double flatBefore, double flatAfter,
                    double maxHalfWidth)
{
    const int n = esf.size();
    if (n < 3)
        return;
    std::vector<double> counts;
    counts.reserve(esf.bins.size());
    for (const EsfBin &b : esf.bins)
        counts.push_back(b.n);
    std::nth_element(counts.begin(), counts.begin() + n / 2, counts.end());
    const double typical = counts[static_cast<std::size_t>(n / 2)];
    const double h = esf.binWidth;
    const std::vector<BinSums> sums = runningSums(esf.bins);
    std::vector<double> out = esf.values;
    for (int k = 0; k < n; ++k) {
        const double u = esf.distance(k) - centre;
        const double beyond = u < 0 ? -u - flatBefore : u - flatAfter;
        if (beyond <= 0)
            continue;
        // Wider the farther the edge lies behind; at least a bin each side
        // where a bin holds under half the usual samples.
        double halfWidth = std::min(maxHalfWidth, 0.5 * beyond);
        if (esf.bins[static_cast<std::size_t>(k)].n < 0.5 * typical)
            halfWidth = std::max(halfWidth, h);
        const int m = static_cast<int>(std::floor(halfWidth / h + 1e-9));
        double v;
        if (m >= 1 && localLinearFit(sums, k, m, h, v))
            out[static_cast<std::size_t>(k)] = v;
    }
    esf.values.swap(out);
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

double esfSampleNoise(const Esf &esf, double centre, double exclude)
{
    double ss = 0, dof = 0;
    for (int k = 0; k < esf.size(); ++k) {
        const EsfBin &b = esf.bins[static_cast<std::size_t>(k)];
        if (b.n < 2 || std::fabs(esf.distance(k) - centre) <= exclude)
            continue;
        ss += std::max(0.0, b.yy - b.y * b.y / b.n);
        dof += b.n - 1;
    }
    return dof > 0 ? std::sqrt(ss / dof) : -1.0;
}

double esfSamplesPerBin(const Esf &esf, double from, double to)
{
    double s = 0;
    int count = 0;
    for (int k = 0; k < esf.size(); ++k) {
        const double u = esf.distance(k);
        if (u < from || u > to)
            continue;
        s += esf.bins[static_cast<std::size_t>(k)].n;
        ++count;
    }
    return count > 0 ? s / count : 0.0;
}

} // namespace kestro::sfr
