#include "sfr_edgefit.h"

#include <algorithm>
#include <cmath>

namespace kestro::sfr {

double EdgeFit::at(double row) const
{
    const double t = (row - centre) / scale;
    double v = 0;
    for (int i = degree(); i >= 0; --i)
        v = v * t + coeffs[static_cast<std::size_t>(i)];
    return v;
}

double EdgeFit::slope() const
{
    return coeffs.size() > 1 ? coeffs[1] / scale : 0.0;
}

static double residualRms(const std::vector<EdgePoint> &points, const EdgeFit &fit)
{
    double s = 0;
    for (const EdgePoint &p : points) {
        const double r = p.position - fit.at(p.row);
        s += r * r;
    }
    return points.empty() ? 0.0 : std::sqrt(s / points.size());
}

bool fitPolynomial(const std::vector<EdgePoint> &points, int degree, EdgeFit &fit)
{
    const int n = degree + 1;
    if (degree < 0 || degree > 4 || static_cast<int>(points.size()) < n + 1)
        return false;
    double lo = points.front().row, hi = lo;
    for (const EdgePoint &p : points) {
        lo = std::min(lo, p.row);
        hi = std::max(hi, p.row);
    }
    EdgeFit f;
    f.centre = 0.5 * (lo + hi);
    f.scale = std::max(0.5 * (hi - lo), 1.0);
    // Normal equations on the scaled abscissa (|t| <= 1 keeps them well
    // conditioned for the low degrees used here).
    double a[5][6] = {};
    for (const EdgePoint &p : points) {
        const double t = (p.row - f.centre) / f.scale;
        double pw[9];
        pw[0] = 1;
        for (int i = 1; i < 2 * n - 1; ++i)
            pw[i] = pw[i - 1] * t;
        for (int r = 0; r < n; ++r) {
            for (int c = 0; c < n; ++c)
                a[r][c] += pw[r + c];
            a[r][n] += pw[r] * p.position;
        }
    }
    for (int c = 0; c < n; ++c) {
        int pivot = c;
        for (int r = c + 1; r < n; ++r)
            if (std::fabs(a[r][c]) > std::fabs(a[pivot][c]))
                pivot = r;
        if (std::fabs(a[pivot][c]) < 1e-12)
            return false;
        if (pivot != c)
            for (int k = 0; k <= n; ++k)
                std::swap(a[c][k], a[pivot][k]);
        for (int r = 0; r < n; ++r) {
            if (r == c)
                continue;
            const double m = a[r][c] / a[c][c];
            for (int k = c; k <= n; ++k)
                a[r][k] -= m * a[c][k];
        }
    }
    f.coeffs.resize(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i)
        f.coeffs[static_cast<std::size_t>(i)] = a[i][n] / a[i][i];
    f.rms = residualRms(points, f);
    fit = f;
    return true;
}

static bool fitRobust(const std::vector<EdgePoint> &points, int degree, EdgeFit &fit)
{
    if (!fitPolynomial(points, degree, fit))
        return false;
    // One round of outlier removal: rows disturbed by dust or a chart mark.
    const double limit = std::max(4.0 * fit.rms, 1.0);
    std::vector<EdgePoint> kept;
    kept.reserve(points.size());
    for (const EdgePoint &p : points)
        if (std::fabs(p.position - fit.at(p.row)) <= limit)
            kept.push_back(p);
    if (kept.size() == points.size() || kept.size() < points.size() / 2)
        return true;
    EdgeFit refit;
    if (!fitPolynomial(kept, degree, refit))
        return true;
    fit = refit;
    return true;
}

bool fitEdge(const std::vector<EdgePoint> &points, bool allowCurve, EdgeFit &fit)
{
    EdgeFit line;
    if (!fitRobust(points, 1, line))
        return false;
    fit = line;
    if (!allowCurve || points.size() < 20)
        return true;
    EdgeFit curve;
    if (!fitRobust(points, 2, curve))
        return true;
    // The quadratic term must explain a real bow, not row-to-row jitter.
    if (curve.rms < 0.7 * line.rms && line.rms - curve.rms > 0.05)
        fit = curve;
    return true;
}

} // namespace kestro::sfr
