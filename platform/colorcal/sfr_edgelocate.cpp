#include "sfr_edgelocate.h"

#include <algorithm>
#include <cmath>

namespace kestro::sfr {

Plane transposed(const Plane &p)
{
    Plane t;
    t.resize(p.cols, p.rows);
    for (int r = 0; r < p.rows; ++r) {
        const float *src = p.row(r);
        for (int c = 0; c < p.cols; ++c)
            t.v[static_cast<std::size_t>(c) * p.rows + r] = src[c];
    }
    return t;
}

std::vector<EdgePoint> locateEdgePoints(const Plane &plane, const LocateOptions &o)
{
    std::vector<EdgePoint> points;
    const int n = plane.cols - 1; // derivative samples, sample j sits at x = j + 0.5
    if (n < 3 || o.halfWidth <= 0)
        return points;
    points.reserve(static_cast<std::size_t>(std::max(0, o.rowEnd - o.rowBegin)));
    std::vector<double> d(static_cast<std::size_t>(n));
    const double pi = 3.14159265358979323846;
    for (int r = o.rowBegin; r < o.rowEnd; ++r) {
        const float *row = plane.row(r);
        double centre;
        if (o.prediction) {
            centre = o.prediction->at(r);
        } else {
            for (int j = 0; j < n; ++j)
                d[static_cast<std::size_t>(j)] = o.sign * (double(row[j + 1]) - double(row[j]));
            // Peak of the lightly smoothed derivative.
            int best = 0;
            double bestValue = -1e300;
            for (int j = 0; j < n; ++j) {
                const double s = d[static_cast<std::size_t>(j)]
                                 + (j > 0 ? d[static_cast<std::size_t>(j - 1)] : 0.0)
                                 + (j + 1 < n ? d[static_cast<std::size_t>(j + 1)] : 0.0);
                if (s > bestValue) {
                    bestValue = s;
                    best = j;
                }
            }
            centre = best + 0.5;
        }
        const int j0 = std::max(0, static_cast<int>(std::ceil(centre - 0.5 - o.halfWidth)));
        const int j1 = std::min(n - 1, static_cast<int>(std::floor(centre - 0.5 + o.halfWidth)));
        if (o.prediction)
            for (int j = j0; j <= j1; ++j)
                d[static_cast<std::size_t>(j)] = o.sign * (double(row[j + 1]) - double(row[j]));
        double sum = 0, moment = 0;
        // cos(pi (x - centre) / H) advanced by a rotation per pixel.
        const double step = pi / o.halfWidth;
        const double cs = std::cos(step), sn = std::sin(step);
        double c = std::cos(step * (j0 + 0.5 - centre)), s = std::sin(step * (j0 + 0.5 - centre));
        for (int j = j0; j <= j1; ++j) {
            const double x = j + 0.5;
            const double v = (0.54 + 0.46 * c) * d[static_cast<std::size_t>(j)];
            sum += v;
            moment += v * x;
            const double cn = c * cs - s * sn;
            s = s * cs + c * sn;
            c = cn;
        }
        if (!(sum > o.minimumStep) || sum <= 0)
            continue;
        const double position = moment / sum;
        if (position < 0 || position > plane.cols - 1)
            continue;
        points.push_back({double(r), position});
    }
    return points;
}

} // namespace kestro::sfr
