#pragma once
// Edge spread function: every pixel projected onto the edge normal (as its
// horizontal distance from the fitted edge) and gathered in quarter-pixel
// bins. Each bin's value is a local linear fit of its samples at the bin
// centre: in the edge itself the bin mean moved along the local slope to the
// centre (the samples of a bin rarely sit evenly around it), farther out a fit
// over neighbouring bins as well, which smooths the noise of the plateaus
// without bending the edge.

#include "sfr_edgefit.h"
#include "sfr_plane.h"

#include <vector>

namespace kestro::sfr {

// Sums over the samples of one bin; offsets are the samples' distances from
// the bin centre, in pixels along the row.
struct EsfBin
{
    double n = 0;  // samples
    double y = 0;  // values
    double o = 0;  // offsets
    double oo = 0; // squared offsets
    double oy = 0; // offset times value
    double yy = 0; // squared values
};

struct Esf
{
    std::vector<double> values;
    std::vector<EsfBin> bins; // the sums behind each value
    double binWidth = 0.25;   // along the row, pixels
    double firstCentre = 0;   // distance from the edge of bin 0's centre
    int emptyFilled = 0;      // interior bins that had no sample

    int size() const { return static_cast<int>(values.size()); }
    double distance(int k) const { return firstCentre + k * binWidth; }
    // Bin whose centre is nearest to distance u (clamped to the bins).
    int binAt(double u) const;
};

// Bins rows [rowBegin, rowEnd). At most maxBins bins are kept, centred on the
// edge. Empty interior bins are interpolated linearly from their neighbours;
// empty bins at the ends are dropped. False when fewer than 8 bins remain.
// Without `centred` (a first look at the edge) the values are plain bin means
// and the bins keep counts and value sums only.
bool binEdgeSpread(const Plane &plane, int rowBegin, int rowEnd, const EdgeFit &fit,
                   double binWidth, int maxBins, Esf &esf, bool centred = true);

// Refits the bins outside [centre - flatBefore, centre + flatAfter] (where the
// edge has settled) over neighbouring bins, the more of them the farther out
// and the fewer samples a bin holds, up to `maxHalfWidth` pixels each side.
void smoothEsfTails(Esf &esf, double centre, double flatBefore, double flatAfter,
                    double maxHalfWidth);

// Dark and light plateau levels: the mean of the bins farther than `exclude`
// pixels from the edge on each side (low side first as found along the row).
void esfPlateaus(const Esf &esf, double exclude, double &before, double &after);

// 10 % to 90 % rise distance of the ESF, pixels along the row.
double esfRiseDistance(const Esf &esf, double before, double after);

// Standard deviation of single samples about their bin's mean, pooled over
// the bins farther than `exclude` pixels from `centre` (where the ESF is
// flat); -1 when no such bin holds two samples.
double esfSampleNoise(const Esf &esf, double centre, double exclude);

// Mean number of samples per bin over the bins within [from, to].
double esfSamplesPerBin(const Esf &esf, double from, double to);

} // namespace kestro::sfr
