#pragma once
// Region extraction: 8-bit pixels to linear-light planes (red, green, blue and
// luminance), with the clipping statistics the measurement needs.

#include "sfr_plane.h"
#include "sfr_quantised.h"

#include <QImage>
#include <QRect>

namespace kestro::sfr {

struct RegionPlanes
{
    Plane channel[4];        // red, green, blue, gray (luminance)
    double clipped[3] = {};  // fraction of pixels at 0 or 255, per colour channel
    bool transposed = false; // a horizontal edge: rows of the planes are image columns
    // How each plane's values came from 8-bit codes (gray only when every
    // pixel is neutral, else it mixes three codes).
    Quantisation quantisation[4];
};

// Fills the planes from `rect` of the image (which must lie inside it), each
// 8-bit value v becoming (v / 255)^(1 / gamma). Gray is 0.299 R + 0.587 G +
// 0.114 B of the linear values.
void extractRegion(const QImage &image, const QRect &rect, double gamma, RegionPlanes &planes);

// True when the edge in the gray plane runs horizontally (the intensity
// changes mostly from row to row).
bool isHorizontalEdge(const Plane &gray);

} // namespace kestro::sfr
