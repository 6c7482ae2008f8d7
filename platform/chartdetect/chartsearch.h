#pragma once
// The full chart search behind findChart (Method::Refined).

#include "platform/chartdetect/chartdetect.h"

#include <opencv2/core.hpp>

namespace kestro::chartdetect {

// True while the caller has not asked the search to stop.
bool keepGoing(const unsigned char *keepRunning);

// Searches a BGR picture; returns the number of patches found (24 or 0).
int searchChart(const cv::Mat &bgr, Detection &result, const unsigned char *keepRunning);

} // namespace kestro::chartdetect
