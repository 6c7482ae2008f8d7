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

// Multiplies by a Hamming window of the given half-width centred at `centre`;
// samples beyond the half-width become zero.
void applyHammingWindow(Lsf &lsf, double centre, double halfWidth);

} // namespace kestro::sfr
