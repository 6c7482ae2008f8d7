#pragma once
// Geometry of the 6 x 4 patch grid. Grid coordinates run from (0, 0) at the
// outer corner of patch 1 to (6, 4) at the outer corner of patch 24, one unit
// per patch pitch; a projective transform (3 x 3, row-major) maps them into
// the picture.

#include "platform/chartdetect/chartdetect.h"

#include <array>

namespace kestro::chartdetect {

using Homography = std::array<double, 9>;
struct Point2
{
    double x = 0.0, y = 0.0;
};

// Image of a grid point; false when the point maps to infinity or the result
// is not finite.
bool mapPoint(const Homography &h, double u, double v, Point2 &out);

// The transform that maps the grid corners (0,0), (6,0), (6,4), (0,4) onto
// four picture points (patch 1, 6, 24 and 19 corners). False when the points
// are not finite or degenerate.
bool gridHomography(const Point2 corners[4], Homography &h);

// The transform through `count` grid/picture point pairs (least squares,
// count >= 4). False when the fit is degenerate or not finite.
bool fitHomography(const Point2 *grid, const Point2 *picture, int count, Homography &h);

// Centre of patch `index` (0..23, reading order) in grid coordinates.
Point2 patchGridCentre(int index);

// The largest axis-aligned square around `centre` that lies inside the convex
// quadrilateral q (four points in order), as a half side; 0 or less when the
// centre is outside.
double insetSquareHalfSide(const Point2 q[4], const Point2 &centre);

// Fills the detection's rectangles, centres and corners from a grid
// transform: each rectangle is the largest axis-aligned square around the
// patch centre inside the central `fraction` (0..1) of its cell, shrunk to
// whole pixels. False (detection unchanged) when any patch falls outside the
// picture or the geometry is not finite.
bool fillDetection(const Homography &h, int width, int height, double fraction, Detection &result);

} // namespace kestro::chartdetect
