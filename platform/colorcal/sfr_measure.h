#pragma once
// The slanted-edge measurement of one region: edge location and fit per
// channel, ESF, LSF, spectrum and figures of merit.

#include "sfr_extract.h"

#include <QImage>
#include <QRect>
#include <string>
#include <vector>

namespace kestro::sfr {

enum { Red = 0, Green = 1, Blue = 2, Gray = 3 };

struct Result
{
    std::vector<double> frequencies; // cycles per pixel along the edge normal
    std::vector<double> curve[4];    // red, green, blue, gray
    double mtf50[4] = {};
    double mtf50Peak[4] = {};
    double mtf10[4] = {};
    double mtf10Peak[4] = {};
    double slopeDegrees[4] = {};
    double contrast[4] = {};
    std::string error; // empty when the region was measured
};

// Largest number of frequency points returned (up to 1 cycle per pixel).
constexpr int kMaxPoints = 1000;

// Measures extracted planes. The error text names what is wrong and what to
// do about it; results are filled only when it is empty.
void measurePlanes(const RegionPlanes &planes, Result &result);

// Checks the region and gamma, extracts the planes and measures them.
void measureImageRegion(const QImage &image, const QRect &rect, double gamma, Result &result);

} // namespace kestro::sfr
