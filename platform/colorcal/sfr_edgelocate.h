#pragma once
// Per-row edge location: the centroid of the row's derivative under a Hamming
// window.

#include "sfr_edgefit.h"
#include "sfr_plane.h"

#include <vector>

namespace kestro::sfr {

struct LocateOptions
{
    int rowBegin = 0;
    int rowEnd = 0;                      // exclusive
    double halfWidth = 0;                // window half-width in pixels
    double sign = 1;                     // +1 dark-to-light along the row, -1 light-to-dark
    double minimumStep = 0;              // rows whose windowed step is smaller are skipped
    const EdgeFit *prediction = nullptr; // window centres; null: the row's derivative peak
};

// Edge positions in pixel-centre coordinates (column c is at x = c).
std::vector<EdgePoint> locateEdgePoints(const Plane &plane, const LocateOptions &options);

} // namespace kestro::sfr
