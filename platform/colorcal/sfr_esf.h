#pragma once
// Edge spread function: every pixel projected onto the edge normal (as its
// horizontal distance from the fitted edge) and averaged in quarter-pixel bins.

#include "sfr_edgefit.h"
#include "sfr_plane.h"

#include <vector>

namespace kestro::sfr {

struct Esf
{
    std::vector<double> values;
    double binWidth = 0.25; // along the row, pixels
    double firstCentre = 0; // distance from the edge of bin 0's centre
    int emptyFilled = 0;    // interior bins that had no sample

    int size() const { return static_cast<int>(values.size()); }
    double distance(int k) const { return firstCentre + k * binWidth; }
};

// Bins rows [rowBegin, rowEnd). At most maxBins bins are kept, centred on the
// edge. Empty interior bins are interpolated linearly from their neighbours;
// empty bins at the ends are dropped. False when fewer than 8 bins remain.
bool binEdgeSpread(const Plane &plane, int rowBegin, int rowEnd, const EdgeFit &fit,
                   double binWidth, int maxBins, Esf &esf);

// Dark and light plateau levels: the mean of the bins farther than `exclude`
// pixels from the edge on each side (low side first as found along the row).
void esfPlateaus(const Esf &esf, double exclude, double &before, double &after);

// 10 % to 90 % rise distance of the ESF, pixels along the row.
double esfRiseDistance(const Esf &esf, double before, double after);

} // namespace kestro::sfr
