#include "platform/chartdetect/chartsearch.h"

#include "platform/chartdetect/chartgeometry.h"

#include <opencv2/imgproc.hpp>
#include <opencv2/mcc.hpp>

#include <algorithm>
#include <cmath>

namespace kestro::chartdetect {

bool keepGoing(const unsigned char *keepRunning)
{
    return !keepRunning || __atomic_load_n(keepRunning, __ATOMIC_RELAXED) != 0;
}

int searchChart(const cv::Mat &bgr, Detection &result, const unsigned char *keepRunning)
{
    if (!keepGoing(keepRunning))
        return 0;
    // Search a reduced copy: about a megapixel is enough to find the grid.
    const double scale = std::min(1.0, 1200.0 / std::max(bgr.cols, bgr.rows));
    cv::Mat work;
    if (scale < 1.0)
        cv::resize(bgr, work, cv::Size(), scale, scale, cv::INTER_AREA);
    else
        work = bgr;
    if (!keepGoing(keepRunning))
        return 0;
    cv::Ptr<cv::mcc::CCheckerDetector> detector = cv::mcc::CCheckerDetector::create();
    if (!detector->process(work, cv::mcc::MCC24, 1))
        return 0;
    cv::Ptr<cv::mcc::CChecker> checker = detector->getBestColorChecker();
    if (!checker || !keepGoing(keepRunning))
        return 0;
    const std::vector<cv::Point2f> box = checker->getBox();
    if (box.size() != 4)
        return 0;
    Point2 corners[4];
    for (int i = 0; i < 4; ++i)
        corners[i] = {box[i].x / scale, box[i].y / scale};
    Homography h;
    if (!gridHomography(corners, h) || !fillDetection(h, bgr.cols, bgr.rows, 0.5, result))
        return 0;
    return result.found;
}

} // namespace kestro::chartdetect
