#include "platform/chartdetect/chartgeometry.h"

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace kestro::chartdetect {

namespace {

bool finite(double v)
{
    return std::isfinite(v);
}

bool toHomography(const cv::Mat &m, Homography &h)
{
    if (m.empty() || m.rows != 3 || m.cols != 3)
        return false;
    cv::Mat d;
    m.convertTo(d, CV_64F);
    for (int i = 0; i < 9; ++i) {
        h[i] = d.at<double>(i / 3, i % 3);
        if (!finite(h[i]))
            return false;
    }
    return true;
}

} // namespace

bool mapPoint(const Homography &h, double u, double v, Point2 &out)
{
    const double w = h[6] * u + h[7] * v + h[8];
    if (!finite(w) || std::fabs(w) < 1e-12)
        return false;
    out.x = (h[0] * u + h[1] * v + h[2]) / w;
    out.y = (h[3] * u + h[4] * v + h[5]) / w;
    return finite(out.x) && finite(out.y);
}

bool gridHomography(const Point2 corners[4], Homography &h)
{
    std::vector<cv::Point2f> src = {{0.f, 0.f},
                                    {float(kColumns), 0.f},
                                    {float(kColumns), float(kRows)},
                                    {0.f, float(kRows)}};
    std::vector<cv::Point2f> dst;
    for (int i = 0; i < 4; ++i) {
        if (!finite(corners[i].x) || !finite(corners[i].y) || std::fabs(corners[i].x) > 1e7
            || std::fabs(corners[i].y) > 1e7)
            return false;
        dst.emplace_back(float(corners[i].x), float(corners[i].y));
    }
    // A quadrilateral with (nearly) no area has no usable transform.
    if (std::fabs(cv::contourArea(dst)) < 1.0)
        return false;
    try {
        return toHomography(cv::getPerspectiveTransform(src, dst), h);
    } catch (const cv::Exception &) {
        return false;
    }
}

bool fitHomography(const Point2 *grid, const Point2 *picture, int count, Homography &h)
{
    if (count < 4)
        return false;
    std::vector<cv::Point2d> src, dst;
    for (int i = 0; i < count; ++i) {
        if (!finite(picture[i].x) || !finite(picture[i].y))
            return false;
        src.emplace_back(grid[i].x, grid[i].y);
        dst.emplace_back(picture[i].x, picture[i].y);
    }
    try {
        return toHomography(cv::findHomography(src, dst, 0), h);
    } catch (const cv::Exception &) {
        return false;
    }
}

Point2 patchGridCentre(int index)
{
    return {index % kColumns + 0.5, index / kColumns + 0.5};
}

double insetSquareHalfSide(const Point2 q[4], const Point2 &centre)
{
    // Orientation of the quadrilateral, so that the inward side is known.
    double area = 0.0;
    for (int i = 0; i < 4; ++i) {
        const Point2 &a = q[i], &b = q[(i + 1) % 4];
        area += a.x * b.y - b.x * a.y;
    }
    if (!finite(area) || std::fabs(area) < 1e-9)
        return 0.0;
    const double sign = area > 0 ? 1.0 : -1.0;
    double best = 1e300;
    for (int i = 0; i < 4; ++i) {
        const Point2 &a = q[i], &b = q[(i + 1) % 4];
        const double ex = b.x - a.x, ey = b.y - a.y;
        const double len = std::hypot(ex, ey);
        if (!(len > 1e-12))
            return 0.0;
        // Inward unit normal.
        const double nx = -ey / len * sign, ny = ex / len * sign;
        const double d = nx * (centre.x - a.x) + ny * (centre.y - a.y);
        // A square corner (centre + s * (+-1, +-1)) stays inside this edge
        // while d - s * (|nx| + |ny|) >= 0.
        best = std::min(best, d / (std::fabs(nx) + std::fabs(ny)));
    }
    return finite(best) ? best : 0.0;
}

bool fillDetection(const Homography &h, int width, int height, double fraction, Detection &result)
{
    Detection out;
    const double half = std::clamp(fraction, 0.05, 1.0) / 2.0;
    for (int i = 0; i < kPatchCount; ++i) {
        const Point2 c = patchGridCentre(i);
        Point2 centre;
        if (!mapPoint(h, c.x, c.y, centre))
            return false;
        Point2 quad[4];
        if (!mapPoint(h, c.x - half, c.y - half, quad[0])
            || !mapPoint(h, c.x + half, c.y - half, quad[1])
            || !mapPoint(h, c.x + half, c.y + half, quad[2])
            || !mapPoint(h, c.x - half, c.y + half, quad[3]))
            return false;
        const double s = insetSquareHalfSide(quad, centre);
        if (!(s >= 0.5))
            return false;
        const double left = std::ceil(centre.x - s), right = std::floor(centre.x + s);
        const double top = std::ceil(centre.y - s), bottom = std::floor(centre.y + s);
        if (!(left >= 0 && top >= 0 && right <= width && bottom <= height && right > left
              && bottom > top))
            return false;
        ColorCheckerROI &r = out.regions[i];
        r.x = static_cast<std::int32_t>(left);
        r.width = static_cast<std::int32_t>(right - left);
        r.height = static_cast<std::int32_t>(bottom - top);
        r.y = static_cast<std::int32_t>(top) + r.height;
        out.centres[2 * i] = centre.x;
        out.centres[2 * i + 1] = centre.y;
    }
    const double gu[4] = {0, double(kColumns), double(kColumns), 0};
    const double gv[4] = {0, 0, double(kRows), double(kRows)};
    for (int k = 0; k < 4; ++k) {
        Point2 p;
        if (!mapPoint(h, gu[k], gv[k], p))
            return false;
        out.corners[2 * k] = p.x;
        out.corners[2 * k + 1] = p.y;
    }
    out.found = kPatchCount;
    out.score = result.score;
    result = out;
    return true;
}

} // namespace kestro::chartdetect
