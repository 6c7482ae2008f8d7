#include "platform/chartdetect/chartdetect.h"

#include "platform/chartdetect/chartgeometry.h"
#include "platform/chartdetect/chartsearch.h"

#include <opencv2/core.hpp>
#include <opencv2/mcc.hpp>

#include <cstdint>
#include <limits>

namespace kestro::chartdetect {

const unsigned char kReferenceSrgb[kPatchCount][3]
        = {{115, 82, 68},   {194, 150, 130}, {98, 122, 157}, {87, 108, 67},   {133, 128, 177},
           {103, 189, 170}, {214, 126, 44},  {80, 91, 166},  {193, 90, 99},   {94, 60, 108},
           {157, 188, 64},  {224, 163, 46},  {56, 61, 150},  {70, 148, 73},   {175, 54, 60},
           {231, 199, 31},  {187, 86, 149},  {8, 133, 161},  {243, 243, 242}, {200, 200, 200},
           {160, 160, 160}, {122, 122, 121}, {85, 85, 85},   {52, 52, 52}};

namespace {

// Pictures larger than this (in either direction, or in pixels) are refused:
// the byte count of the buffer would not fit the index types used below.
constexpr int kMaxSide = 100000;
constexpr double kMaxPixels = 700e6;

// OpenCV's mcc detector with its default parameters on the whole picture;
// its best chart is taken as it comes, corners in the detector's own order
// (next to patch 1, 6, 24 and 19).
int plainMcc(const cv::Mat &bgr, Detection &result)
{
    cv::Ptr<cv::mcc::CCheckerDetector> detector = cv::mcc::CCheckerDetector::create();
    if (!detector->process(bgr, cv::mcc::MCC24, 1))
        return 0;
    cv::Ptr<cv::mcc::CChecker> checker = detector->getBestColorChecker();
    if (!checker)
        return 0;
    const std::vector<cv::Point2f> box = checker->getBox();
    if (box.size() != 4)
        return 0;
    Point2 corners[4];
    for (int i = 0; i < 4; ++i)
        corners[i] = {box[i].x, box[i].y};
    Homography h;
    if (!gridHomography(corners, h) || !fillDetection(h, bgr.cols, bgr.rows, 0.5, result))
        return 0;
    return result.found;
}

} // namespace

int findChart(const unsigned char *buffer, int width, int height, Detection &result,
              const unsigned char *keepRunning, Method method)
{
    result = Detection();
    if (!buffer || width <= 0 || height <= 0 || width > kMaxSide || height > kMaxSide
        || double(width) * double(height) > kMaxPixels)
        return 0;
    // The buffer is only read: the wrapper never writes through it.
    const cv::Mat bgr(height, width, CV_8UC3, const_cast<unsigned char *>(buffer),
                      static_cast<size_t>(width) * 3);
    try {
        if (method == Method::PlainMcc)
            return plainMcc(bgr, result);
        return searchChart(bgr, result, keepRunning);
    } catch (const cv::Exception &) {
        result = Detection();
        return 0;
    } catch (const std::bad_alloc &) {
        result = Detection();
        return 0;
    }
}

} // namespace kestro::chartdetect

int FindColorCheckerROIsFromMemory(const unsigned char *buffer, int width, int height,
                                   ColorCheckerROI *regions, unsigned char *keepRunning)
{
    kestro::chartdetect::Detection detection;
    const int found = kestro::chartdetect::findChart(buffer, width, height, detection, keepRunning);
    if (found == kestro::chartdetect::kPatchCount && regions) {
        for (int i = 0; i < kestro::chartdetect::kPatchCount; ++i)
            regions[i] = detection.regions[i];
    }
    return found;
}
