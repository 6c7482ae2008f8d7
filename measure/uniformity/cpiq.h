#pragma once
// CPIQ colour uniformity of a flat field. The image is split into a grid of
// zones (zone k of n along a side of s pixels spans [floor(k s / n),
// floor((k + 1) s / n))); each zone's mean 8-bit R, G, B is decoded from sRGB
// and converted to L*a*b* with the colour measurements' conversion; a zone's
// Delta-ab is its distance in the a*b* plane from the mean a*, b* of all
// zones (each zone counting once). The metric is the largest Delta-ab.

#include "measure/uniformity/uniformityerror.h"
#include "measure/uniformity/uniformityimage.h"

#include <QString>
#include <vector>

namespace kestro {

constexpr int kCpiqDefaultRows = 15;
constexpr int kCpiqDefaultCols = 20;
constexpr int kCpiqMaxZones = 32; // per side

struct CpiqZone
{
    int row = 0;    // from 1
    int column = 0; // from 1
    double R = 0.0; // mean bytes, 0..255, unrounded
    double G = 0.0;
    double B = 0.0;
    double L = 0.0;
    double a = 0.0;
    double b = 0.0;
    double deltaAb = 0.0;
};

struct CpiqResult
{
    int rows = 0;
    int cols = 0;
    std::vector<CpiqZone> zones; // rows outer, columns inner
    double metric = 0.0;
    bool valid = false;
    UniformityError failure = UniformityError::None; // why it is not valid
    QString error;                                   // the text of that failure
};

// 1 to 32 zones per side, and no more zones than pixels along each side.
bool isValidCpiqGrid(int rows, int cols, int width, int height);

// Zone values and metric from zone means.
CpiqResult cpiqFromZoneMeans(const UniformityZoneMeans &means);

// Zone means and CPIQ values of an image in one pass.
CpiqResult computeCpiq(const UniformityImage &image, int rows = kCpiqDefaultRows,
                       int cols = kCpiqDefaultCols);

// The text of a grid that isValidCpiqGrid refuses.
QString cpiqGridError(int rows, int cols, int width, int height);

} // namespace kestro
