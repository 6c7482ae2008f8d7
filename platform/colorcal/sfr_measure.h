#pragma once
// The slanted-edge measurement of one region: edge location and fit per
// channel, ESF, LSF, spectrum and figures of merit.

#include "sfr_extract.h"
#include "sfr_failure.h"

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
    // How far each channel's result can be trusted: the edge's contrast
    // (light minus dark, linear) over the noise of one pixel (infinite for a
    // noise-free picture), and the mean number of pixels behind each
    // quarter-pixel ESF value across the edge.
    double cnr[4] = {};
    double samplesPerBin[4] = {};
    Failure failure; // FailureCode::None when the region was measured

    bool ok() const { return !failure.isFailure(); }
    std::string errorText() const { return failureText(failure); }
};

// Largest number of frequency points returned (up to 1 cycle per pixel).
constexpr int kMaxPoints = 1000;

// Measures extracted planes; results are filled only when no failure is
// recorded.
void measurePlanes(const RegionPlanes &planes, Result &result);

// Gammas the measurement accepts (0.05 to 20, exclusive).
bool usableGamma(double gamma);

// Checks the region and gamma, extracts the planes and measures them.
void measureImageRegion(const QImage &image, const QRect &rect, double gamma, Result &result);

} // namespace kestro::sfr
