#pragma once
// Runs OpenCV's mcc detector on a picture without blocking the caller past
// a cancellation: the detector works on a thread of its own while the caller
// polls the keep-running flag; a cancelled run is left to finish in the
// background (its thread is joined later, at the latest when the program
// ends) and the caller returns at once.

#include "platform/chartdetect/chartgeometry.h"

#include <opencv2/core.hpp>

#include <array>
#include <vector>

namespace kestro::chartdetect {

using Box = std::array<Point2, 4>; // next to patch 1, 6, 24 and 19

struct MccSettings
{
    int maxCharts = 4;
    int windowMin = 23, windowMax = 153, windowStep = 16; // adaptive threshold windows
    int minContourLength = 100;                           // pixels
};

// Candidate chart boxes found in `image` (BGR; copied if it does not own its
// pixels), in the image's coordinates. False when the run was cancelled.
bool runMcc(const cv::Mat &image, const MccSettings &settings, std::vector<Box> &boxes,
            const unsigned char *keepRunning);

} // namespace kestro::chartdetect
