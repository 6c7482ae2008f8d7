#pragma once
// Line spread function: the derivative of the binned ESF, centred and
// windowed.

#include "sfr_esf.h"

#include <vector>

namespace kestro::sfr {

struct Lsf
{
    std::vector<double> values; // windowed, zero outside [first, last]
    double binWidth = 0.25;
    double firstCentre = 0;   // distance of sample 0 from the edge
    double centre = 0;        // window centre (distance from the edge)
    double halfWidth = 0;     // window half-width, pixels along the row
    int first = 0, last = -1; // samples inside the window

    int size() const { return static_cast<int>(values.size()); }
    double distance(int k) const { return firstCentre + k * binWidth; }
};

// Central difference [-1/2, 0, 1/2] of the ESF: sample k of the result lies
// at the same distance as ESF bin k, so the filter adds no phase shift. The
// sign is chosen so that the LSF integrates to a positive value.
Lsf differentiate(const Esf &esf);

// Centroid of the LSF within `halfWidth` of `around` (distances in pixels).
double lsfCentroid(const Lsf &lsf, double around, double halfWidth);

// A window that leaves the edge's transition untouched: flat over
// [centre - flatBefore, centre + flatAfter], then a cosine taper of length
// `taper` down to zero on each side.
struct LsfWindow
{
    double centre = 0;
    double flatBefore = 0;
    double flatAfter = 0;
    double taper = 1;
};

// The window from the data: flat over the transition (1.6 rise distances and
// a quarter pixel each side of the centre), and on each side widened a step
// at a time while the ESF over the next step still differs from the level of
// the side's far end by more than their noise explains, so that long tails
// of the line spread (a halo) stay inside while flat, noisy plateaus stay
// out. `sampleNoise` is the noise of one sample (negative when unknown: no
// widening).
LsfWindow chooseLsfWindow(const Esf &esf, double centre, double rise, double sampleNoise);

// Multiplies by the window; samples where it is zero become zero.
void applyWindow(Lsf &lsf, const LsfWindow &window);

} // namespace kestro::sfr
