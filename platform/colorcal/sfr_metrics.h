#pragma once
// Figures of merit read from an MTF curve.

#include <functional>

namespace kestro::sfr {

struct CurveMetrics
{
    double mtf50 = 0;
    double mtf50Peak = 0;
    double mtf10 = 0;
    double mtf10Peak = 0;
    double peak = 0;
};

// First frequency, searching from point `start`, where the curve falls below
// `level`: bracketed on the sampled curve and refined on `exact` (the
// continuous curve) when given, else interpolated linearly. NaN when the
// curve never falls below the level.
double firstCrossing(const double *freq, const double *curve, int n, int start, double level,
                     const std::function<double(double)> &exact);

// MTF50/MTF10: below 0.5 and 0.1; MTF50P/MTF10P: below half and a tenth of
// the curve's peak (its maximum up to `peakLimit` cycles per pixel), searched
// from the peak onwards.
CurveMetrics curveMetrics(const double *freq, const double *curve, int n,
                          const std::function<double(double)> &exact, double peakLimit = 0.5);

} // namespace kestro::sfr
