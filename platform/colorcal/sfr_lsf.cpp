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

void applyHammingWindow(Lsf &lsf, double centre, double halfWidth)
{
    const double pi = 3.14159265358979323846;
    lsf.centre = centre;
    lsf.halfWidth = halfWidth;
    lsf.first = lsf.size();
    lsf.last = -1;
    for (int k = 0; k < lsf.size(); ++k) {
        const double x = lsf.distance(k) - centre;
        double &v = lsf.values[static_cast<std::size_t>(k)];
        if (std::fabs(x) >= halfWidth) {
            v = 0;
            continue;
        }
        v *= 0.54 + 0.46 * std::cos(pi * x / halfWidth);
        lsf.first = std::min(lsf.first, k);
        lsf.last = std::max(lsf.last, k);
    }
}

} // namespace kestro::sfr
