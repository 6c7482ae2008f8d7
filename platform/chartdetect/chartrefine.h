#pragma once
// Refines an accepted grid at full resolution: each patch is found as the
// region of its own colour around the predicted centre, and the grid
// transform is fitted again through the centres of the patches that were
// found cleanly. Also measures how much of its cell a patch fills.

#include "platform/chartdetect/chartgeometry.h"

#include <opencv2/core.hpp>

namespace kestro::chartdetect {

struct Refinement
{
    Homography h{};       // the refined transform (the input one when not refined)
    bool refined = false; // enough patches were found to fit a new transform
    int patchesFound = 0;
    double patchFraction = 0.0; // patch side / cell pitch (median), 0 when unknown
};

Refinement refineGrid(const cv::Mat &bgr, const Homography &h);

} // namespace kestro::chartdetect
