#include "platform/chartdetect/chartrefine.h"

#include "platform/chartdetect/chartverify.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace kestro::chartdetect {

namespace {

// Windows are examined at no more than this many samples across, so that a
// huge chart costs no more than a small one.
constexpr int kWindowSamples = 96;

struct Found
{
    bool ok = false;
    Point2 centre;
    double fraction = 0.0;
};

double distance(const cv::Vec3f &a, const cv::Vec3f &b)
{
    const cv::Vec3f d = a - b;
    return std::sqrt(d.dot(d));
}

// The patch around grid cell `index`: the connected region of pixels close
// to the colour at the cell's centre, grown from the centre inside a window
// of 1.4 cells.
Found findPatch(const cv::Mat &bgr, const Homography &h, int index, const cv::Vec3f &card)
{
    Found found;
    const Point2 c = patchGridCentre(index);
    Point2 corners[4], centre;
    const double reach = 0.7;
    if (!mapPoint(h, c.x - reach, c.y - reach, corners[0])
        || !mapPoint(h, c.x + reach, c.y - reach, corners[1])
        || !mapPoint(h, c.x + reach, c.y + reach, corners[2])
        || !mapPoint(h, c.x - reach, c.y + reach, corners[3]) || !mapPoint(h, c.x, c.y, centre))
        return found;
    double x0 = corners[0].x, x1 = x0, y0 = corners[0].y, y1 = y0;
    for (const Point2 &p : corners) {
        x0 = std::min(x0, p.x), x1 = std::max(x1, p.x);
        y0 = std::min(y0, p.y), y1 = std::max(y1, p.y);
    }
    const cv::Rect window(cv::Point(int(std::floor(x0)), int(std::floor(y0))),
                          cv::Point(int(std::ceil(x1)) + 1, int(std::ceil(y1)) + 1));
    const cv::Rect clipped = window & cv::Rect(0, 0, bgr.cols, bgr.rows);
    if (clipped != window || window.width < 6 || window.height < 6)
        return found;
    const double step = std::max(1.0,
                                 double(std::max(window.width, window.height)) / kWindowSamples);
    cv::Mat small;
    if (step > 1.0)
        cv::resize(bgr(window), small,
                   cv::Size(std::max(1, int(window.width / step)),
                            std::max(1, int(window.height / step))),
                   0, 0, cv::INTER_AREA);
    else
        small = bgr(window);
    cv::Mat colours;
    small.convertTo(colours, CV_32FC3);
    cv::GaussianBlur(colours, colours, cv::Size(3, 3), 0);
    const double sx = double(small.cols) / window.width, sy = double(small.rows) / window.height;
    const cv::Point seed(int((centre.x - window.x) * sx), int((centre.y - window.y) * sy));
    if (seed.x < 1 || seed.y < 1 || seed.x >= small.cols - 1 || seed.y >= small.rows - 1)
        return found;
    // The patch colour: the mean over a small block at the seed.
    cv::Vec3f patch(0, 0, 0);
    int n = 0;
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx, ++n)
            patch += colours.at<cv::Vec3f>(seed.y + dy, seed.x + dx);
    patch *= 1.0f / n;
    // Half way to the card colour, and never tighter than the noise.
    const double limit = std::max(12.0, 0.5 * distance(patch, card));
    cv::Mat mask(small.rows, small.cols, CV_8U);
    for (int y = 0; y < small.rows; ++y)
        for (int x = 0; x < small.cols; ++x)
            mask.at<unsigned char>(y, x) = distance(colours.at<cv::Vec3f>(y, x), patch) < limit ? 1
                                                                                                : 0;
    cv::Mat labels, stats, centroids;
    cv::connectedComponentsWithStats(mask, labels, stats, centroids, 4, CV_32S);
    const int label = labels.at<int>(seed.y, seed.x);
    if (label <= 0)
        return found;
    const int left = stats.at<int>(label, cv::CC_STAT_LEFT),
              top = stats.at<int>(label, cv::CC_STAT_TOP);
    const int width = stats.at<int>(label, cv::CC_STAT_WIDTH);
    const int height = stats.at<int>(label, cv::CC_STAT_HEIGHT);
    // A region touching the window's edge ran into a neighbour or the card.
    if (left <= 0 || top <= 0 || left + width >= small.cols || top + height >= small.rows)
        return found;
    // Cell area in window samples, from the transform.
    Point2 a, b, d;
    if (!mapPoint(h, c.x - 0.5, c.y - 0.5, a) || !mapPoint(h, c.x + 0.5, c.y - 0.5, b)
        || !mapPoint(h, c.x - 0.5, c.y + 0.5, d))
        return found;
    const double cellArea = std::fabs((b.x - a.x) * (d.y - a.y) - (b.y - a.y) * (d.x - a.x)) * sx
                            * sy;
    const double area = stats.at<int>(label, cv::CC_STAT_AREA);
    const double fill = cellArea > 0 ? area / cellArea : 0.0;
    if (fill < 0.3 || fill > 1.0)
        return found;
    found.ok = true;
    found.centre = {window.x + (centroids.at<double>(label, 0) + 0.5) / sx,
                    window.y + (centroids.at<double>(label, 1) + 0.5) / sy};
    found.fraction = std::sqrt(fill);
    return found;
}

// The card colour: the median of samples on the gaps between patches.
cv::Vec3f cardColour(const cv::Mat &bgr, const Homography &h)
{
    std::vector<float> channel[3];
    for (int r = 0; r <= kRows; ++r) {
        for (int c = 0; c <= kColumns; ++c) {
            Point2 p;
            if (!mapPoint(h, c, r, p))
                continue;
            const int x = int(p.x), y = int(p.y);
            if (x < 0 || y < 0 || x >= bgr.cols || y >= bgr.rows)
                continue;
            const cv::Vec3b px = bgr.at<cv::Vec3b>(y, x);
            for (int k = 0; k < 3; ++k)
                channel[k].push_back(px[k]);
        }
    }
    cv::Vec3f out(0, 0, 0);
    for (int k = 0; k < 3; ++k) {
        if (channel[k].empty())
            return out;
        std::nth_element(channel[k].begin(), channel[k].begin() + channel[k].size() / 2,
                         channel[k].end());
        out[k] = channel[k][channel[k].size() / 2];
    }
    return out;
}

} // namespace

namespace {

// One refinement step: patches found around the current grid, a transform
// fitted through them, outliers dropped and the transform fitted again.
bool refineStep(const cv::Mat &bgr, const Homography &h, Homography &fitted, int &found,
                double &fraction)
{
    const cv::Vec3f card = cardColour(bgr, h);
    Point2 grid[kPatchCount], picture[kPatchCount];
    std::vector<double> fractions;
    int n = 0;
    for (int i = 0; i < kPatchCount; ++i) {
        const Found f = findPatch(bgr, h, i, card);
        if (!f.ok)
            continue;
        grid[n] = patchGridCentre(i);
        picture[n] = f.centre;
        fractions.push_back(f.fraction);
        ++n;
    }
    found = n;
    if (!fractions.empty()) {
        std::nth_element(fractions.begin(), fractions.begin() + fractions.size() / 2,
                         fractions.end());
        fraction = fractions[fractions.size() / 2];
    }
    // Enough patches spread over the chart to fix all eight parameters.
    if (n < 12 || !fitHomography(grid, picture, n, fitted))
        return false;
    // Drop patches that disagree with the fit (a region grown into a
    // neighbour of the same colour), then fit again.
    Point2 o, u;
    if (!mapPoint(fitted, 3, 2, o) || !mapPoint(fitted, 4, 2, u))
        return false;
    const double pitch = std::hypot(u.x - o.x, u.y - o.y);
    Point2 keptGrid[kPatchCount], keptPicture[kPatchCount];
    int kept = 0;
    for (int i = 0; i < n; ++i) {
        Point2 p;
        if (!mapPoint(fitted, grid[i].x, grid[i].y, p))
            return false;
        if (std::hypot(p.x - picture[i].x, p.y - picture[i].y) < 0.1 * pitch) {
            keptGrid[kept] = grid[i];
            keptPicture[kept] = picture[i];
            ++kept;
        }
    }
    return kept >= 12 && fitHomography(keptGrid, keptPicture, kept, fitted);
}

// How far the patch centres of one grid lie from those of another, in
// pitches: the largest and the median distance over the 24 patches.
struct Shift
{
    double largest = 1e9;
    double median = 1e9;
};

Shift shiftBetween(const Homography &a, const Homography &b)
{
    Shift out;
    Point2 o, u;
    if (!mapPoint(a, 3, 2, o) || !mapPoint(a, 4, 2, u))
        return out;
    const double pitch = std::hypot(u.x - o.x, u.y - o.y);
    if (!(pitch > 0))
        return out;
    double distances[kPatchCount];
    for (int i = 0; i < kPatchCount; ++i) {
        const Point2 c = patchGridCentre(i);
        Point2 p, q;
        if (!mapPoint(a, c.x, c.y, p) || !mapPoint(b, c.x, c.y, q))
            return out;
        distances[i] = std::hypot(p.x - q.x, p.y - q.y) / pitch;
    }
    out.largest = *std::max_element(distances, distances + kPatchCount);
    std::nth_element(distances, distances + kPatchCount / 2, distances + kPatchCount);
    out.median = distances[kPatchCount / 2];
    return out;
}

} // namespace

Refinement refineGrid(const cv::Mat &bgr, const Homography &h)
{
    Refinement out;
    out.h = h;
    // A few steps: a grid that started half a patch off finds more patches
    // once it has moved closer.
    Homography current = h;
    for (int step = 0; step < 4; ++step) {
        Homography fitted;
        int found = 0;
        double fraction = 0;
        if (!refineStep(bgr, current, fitted, found, fraction))
            break;
        const Shift shift = shiftBetween(current, fitted);
        // A step may not leap to another grid, which would move every patch
        // alike. A grid with one corner misplaced by the detector moves most
        // near that corner, there by up to a pitch.
        if (shift.median > 0.6)
            break;
        current = fitted;
        out.h = fitted;
        out.refined = true;
        out.patchesFound = found;
        out.patchFraction = fraction;
        if (shift.largest < 0.01)
            break;
    }
    return out;
}

} // namespace kestro::chartdetect
