#include "sfr_metrics.h"

#include <cmath>
#include <limits>

namespace kestro::sfr {

double firstCrossing(const double *freq, const double *curve, int n, int start, double level,
                     const std::function<double(double)> &exact)
{
    for (int i = std::max(start, 0) + 1; i < n; ++i) {
        if (!(curve[i] < level))
            continue;
        double fa = freq[i - 1], fb = freq[i];
        double ya = curve[i - 1] - level, yb = curve[i] - level;
        if (!exact || ya <= 0)
            return ya == yb ? fb : fa + (fb - fa) * ya / (ya - yb);
        // Illinois false position on the continuous curve.
        int side = 0;
        double f = fa;
        for (int it = 0; it < 40; ++it) {
            f = fa + (fb - fa) * ya / (ya - yb);
            const double y = exact(f) - level;
            if (std::fabs(y) < 1e-10 || fb - fa < 1e-10)
                break;
            if (y > 0) {
                fa = f;
                ya = y;
                if (side == 1)
                    yb *= 0.5;
                side = 1;
            } else {
                fb = f;
                yb = y;
                if (side == -1)
                    ya *= 0.5;
                side = -1;
            }
        }
        return f;
    }
    return std::numeric_limits<double>::quiet_NaN();
}

CurveMetrics curveMetrics(const double *freq, const double *curve, int n,
                          const std::function<double(double)> &exact, double peakLimit)
{
    CurveMetrics m;
    int peakIndex = 0;
    double peak = n > 0 ? curve[0] : 0;
    for (int i = 1; i < n && freq[i] <= peakLimit; ++i)
        if (curve[i] > peak) {
            peak = curve[i];
            peakIndex = i;
        }
    m.peak = peak;
    m.mtf50 = firstCrossing(freq, curve, n, 0, 0.5, exact);
    m.mtf10 = firstCrossing(freq, curve, n, 0, 0.1, exact);
    m.mtf50Peak = firstCrossing(freq, curve, n, peakIndex, 0.5 * peak, exact);
    m.mtf10Peak = firstCrossing(freq, curve, n, peakIndex, 0.1 * peak, exact);
    return m;
}

} // namespace kestro::sfr
