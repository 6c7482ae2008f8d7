#pragma once
// Checks a candidate grid by the colours of its patches: a grid on the chart
// shows uniform patches whose colours relate to the reference chart by one
// affine colour transform (any white balance, exposure or cast), with an
// ordered, near-neutral gray row. A grid on another object, between the
// patches or in the wrong orientation fails these tests.

#include "platform/chartdetect/chartgeometry.h"

#include <opencv2/core.hpp>

namespace kestro::chartdetect {

struct PatchColours
{
    double mean[kPatchCount][3] = {}; // red, green, blue, 0..1 (sRGB encoded)
    double spread[kPatchCount] = {};  // standard deviation inside the patch (of 3 x 3 means)
    bool ok = false;                  // every patch was sampled inside the picture
};

// Samples the central `fraction` of every cell of the grid on a BGR picture.
PatchColours samplePatches(const cv::Mat &bgr, const Homography &h, double fraction);

struct Verdict
{
    bool accepted = false;
    double score = 0.0;         // 0..1, higher is better
    double residual = 1.0;      // unexplained share of the reference colours' variance
    double uniformity = 1.0;    // mean spread inside patches / spread between patches
    double worstPatch = 1.0;    // the largest spread inside one patch / spread between patches
    double lumaCorrelation = 0; // measured vs reference luminance
    int grayOrderErrors = 6;    // steps of the gray row that do not get darker
    double grayChroma = 1.0;    // colour of the gray row relative to the chart's colours
};

// Loose thresholds pick candidates worth refining; a refined grid must pass
// the strict ones to be reported.
Verdict judge(const PatchColours &colours, bool strict = false);

// The transform of the candidate's corners that reads the chart in its
// reading order, among the eight orderings of the four corners, with its
// verdict; false when no ordering gives a usable transform.
bool bestOrientation(const cv::Mat &bgr, const Point2 corners[4], Homography &h, Verdict &verdict);

} // namespace kestro::chartdetect
