#include "platform/chartdetect/chartsearch.h"

#include "platform/chartdetect/chartgeometry.h"
#include "platform/chartdetect/chartrefine.h"
#include "platform/chartdetect/chartverify.h"
#include "platform/chartdetect/mccrunner.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <vector>

namespace kestro::chartdetect {

namespace {

using Clock = std::chrono::steady_clock;

// Whole-picture passes: a quick one at 600 pixels on the short side with
// three threshold windows, then the detector's own windows at 1000 pixels.
constexpr double kQuickSide = 600.0;
constexpr double kFullSide = 1000.0;
// Larger scales are searched in overlapping tiles; a chart up to the overlap
// in size lies wholly inside at least one tile.
constexpr int kTile = 1000;
constexpr int kOverlap = 400;
// Limits of the deeper search: enlarging a picture beyond four times shows
// nothing new, and the tiled scales stop at this many pixels.
constexpr double kMaxScale = 4.0;
constexpr double kMaxTiledPixels = 40e6;
// The base copy that the whole-picture passes are made from.
constexpr double kBasePixels = 4e6;
// An unattended search gives up after this long.
constexpr double kTimeLimitSeconds = 6.0;
// Rows per step of the base reduction, between two looks at the flag.
constexpr int kRowsPerStep = 256;

// Reduces the picture by an integer factor (box mean), a band of rows at a
// time so that a stop request is seen while a huge picture is read.
bool boxReduce(const cv::Mat &src, int factor, cv::Mat &dst, const unsigned char *keepRunning)
{
    if (factor <= 1) {
        dst = src;
        return true;
    }
    const int w = src.cols / factor, h = src.rows / factor;
    dst.create(h, w, CV_8UC3);
    std::vector<unsigned> sums(static_cast<size_t>(w) * 3);
    const unsigned area = static_cast<unsigned>(factor * factor);
    for (int y = 0; y < h; ++y) {
        if (y % std::max(1, kRowsPerStep / factor) == 0 && !keepGoing(keepRunning))
            return false;
        std::fill(sums.begin(), sums.end(), 0u);
        for (int k = 0; k < factor; ++k) {
            const unsigned char *row = src.ptr<unsigned char>(y * factor + k);
            for (int x = 0; x < w; ++x) {
                const unsigned char *px = row + static_cast<size_t>(x) * factor * 3;
                unsigned s0 = 0, s1 = 0, s2 = 0;
                for (int j = 0; j < factor; ++j, px += 3)
                    s0 += px[0], s1 += px[1], s2 += px[2];
                sums[3 * x] += s0, sums[3 * x + 1] += s1, sums[3 * x + 2] += s2;
            }
        }
        unsigned char *out = dst.ptr<unsigned char>(y);
        for (int i = 0; i < 3 * w; ++i)
            out[i] = static_cast<unsigned char>((sums[i] + area / 2) / area);
    }
    return true;
}

// A chart shows flat patches. On the picture reduced by four (which also
// averages noise away), the share of pixels whose 3 x 3 neighbourhood spans
// few levels tells pictures that may hold a chart from noise and dense
// texture, on which the detector would spend long for nothing.
bool hasFlatAreas(const cv::Mat &image)
{
    cv::Mat small, gray, low, high;
    cv::resize(image, small, cv::Size(std::max(1, image.cols / 4), std::max(1, image.rows / 4)), 0,
               0, cv::INTER_AREA);
    cv::cvtColor(small, gray, cv::COLOR_BGR2GRAY);
    cv::erode(gray, low, cv::Mat());
    cv::dilate(gray, high, cv::Mat());
    const cv::Mat range = high - low;
    const int flat = cv::countNonZero(range <= 12);
    return flat >= 0.002 * range.total();
}

struct Best
{
    bool found = false;
    Homography h{};
    Verdict verdict;
};

class Search
{
public:
    Search(const cv::Mat &full, const unsigned char *keepRunning)
        : m_full(full)
        , m_keep(keepRunning)
        , m_start(Clock::now())
    { }

    int run(Detection &result);

private:
    bool going() const
    {
        return keepGoing(m_keep)
               && std::chrono::duration<double>(Clock::now() - m_start).count() < kTimeLimitSeconds;
    }
    // The picture at `scale` (relative to the full picture) over the full
    // picture's rectangle `area`.
    cv::Mat scaled(double scale, const cv::Rect2d &area) const;
    // Runs the detector on a scaled view whose origin is `origin` (full
    // picture pixels); checks its candidates. False when stopped.
    bool detectIn(const cv::Mat &image, double scale, const cv::Point2d &origin,
                  const MccSettings &settings);
    bool searchTiled(double scale, const cv::Rect2d &area, const MccSettings &settings);
    void consider(const Box &box);

    const cv::Mat &m_full;
    const unsigned char *m_keep;
    Clock::time_point m_start;
    cv::Mat m_base;
    double m_baseScale = 1.0;
    Best m_best;
    // Candidates that did not pass, in full picture pixels: the chart may lie
    // next to them (the other panel of a folding chart) or be too small to
    // be placed at the scale they were found at.
    std::vector<std::pair<cv::Rect2d, double>> m_rejected;
};

cv::Mat Search::scaled(double scale, const cv::Rect2d &area) const
{
    const cv::Rect2d picture(0, 0, m_full.cols, m_full.rows);
    const cv::Rect2d a = area & picture;
    const cv::Size size(std::max(1, int(std::lround(a.width * scale))),
                        std::max(1, int(std::lround(a.height * scale))));
    // Read from the reduced base when it is fine enough, else from the full
    // picture.
    const bool fromBase = scale <= m_baseScale;
    const cv::Mat &src = fromBase ? m_base : m_full;
    const double s = fromBase ? m_baseScale : 1.0;
    const cv::Rect r = cv::Rect(cv::Point(int(std::floor(a.x * s)), int(std::floor(a.y * s))),
                                cv::Point(int(std::ceil((a.x + a.width) * s)),
                                          int(std::ceil((a.y + a.height) * s))))
                       & cv::Rect(0, 0, src.cols, src.rows);
    cv::Mat out;
    if (r.width <= 0 || r.height <= 0)
        return out;
    const double f = double(size.width) / r.width;
    cv::resize(src(r), out, size, 0, 0, f < 1.0 ? cv::INTER_AREA : cv::INTER_LINEAR);
    return out;
}

void Search::consider(const Box &box)
{
    Point2 corners[4];
    for (int i = 0; i < 4; ++i)
        corners[i] = box[i];
    Homography h;
    Verdict v;
    if (!bestOrientation(m_full, corners, h, v))
        return;
    if (v.accepted) {
        if (!m_best.found || v.score > m_best.verdict.score) {
            m_best.found = true;
            m_best.h = h;
            m_best.verdict = v;
        }
        return;
    }
    double x0 = box[0].x, x1 = x0, y0 = box[0].y, y1 = y0;
    for (const Point2 &p : box) {
        x0 = std::min(x0, p.x), x1 = std::max(x1, p.x);
        y0 = std::min(y0, p.y), y1 = std::max(y1, p.y);
    }
    if (std::isfinite(x0) && std::isfinite(x1) && std::isfinite(y0) && std::isfinite(y1))
        m_rejected.push_back({cv::Rect2d(x0, y0, x1 - x0, y1 - y0), 0.0});
}

bool Search::detectIn(const cv::Mat &image, double scale, const cv::Point2d &origin,
                      const MccSettings &settings)
{
    if (image.empty() || image.cols < 32 || image.rows < 32)
        return going();
    // A featureless picture (one colour, a blank tile) holds no chart.
    cv::Scalar mean, deviation;
    cv::meanStdDev(image, mean, deviation);
    if (deviation[0] + deviation[1] + deviation[2] < 6.0 || !hasFlatAreas(image))
        return going();
    std::vector<Box> boxes;
    if (!runMcc(image, settings, boxes, m_keep))
        return false;
    for (const Box &b : boxes) {
        Box full;
        for (int i = 0; i < 4; ++i)
            full[i] = {origin.x + b[i].x / scale, origin.y + b[i].y / scale};
        consider(full);
        if (!going())
            return false;
    }
    return going();
}

bool Search::searchTiled(double scale, const cv::Rect2d &area, const MccSettings &settings)
{
    const double width = area.width * scale, height = area.height * scale;
    const int step = kTile - kOverlap;
    for (double ty = 0; ty < height; ty += step) {
        for (double tx = 0; tx < width; tx += step) {
            const cv::Rect2d tile(area.x + tx / scale, area.y + ty / scale,
                                  std::min<double>(kTile, width - tx) / scale,
                                  std::min<double>(kTile, height - ty) / scale);
            const cv::Mat image = scaled(scale, tile);
            if (!detectIn(image, scale, tile.tl(), settings))
                return false;
            // The first tile with a chart ends the search at this scale.
            if (m_best.found)
                return true;
            if (tx + kTile >= width)
                break;
        }
        if (ty + kTile >= height)
            break;
    }
    return true;
}

int Search::run(Detection &result)
{
    const double pixels = double(m_full.cols) * m_full.rows;
    const int factor = std::max(1, int(std::floor(std::sqrt(pixels / kBasePixels))));
    if (!boxReduce(m_full, factor, m_base, m_keep))
        return 0;
    m_baseScale = 1.0 / factor;
    const double shortSide = std::min(m_full.cols, m_full.rows);
    const cv::Rect2d whole(0, 0, m_full.cols, m_full.rows);

    MccSettings quick;
    quick.windowMin = 23, quick.windowMax = 83, quick.windowStep = 30;
    quick.minContourLength = 40;
    const MccSettings thorough;

    // Whole-picture passes.
    const double quickScale = std::min(kMaxScale, kQuickSide / shortSide);
    if (!detectIn(scaled(quickScale, whole), quickScale, {0, 0}, quick))
        return 0;
    double scale = std::min(kMaxScale, kFullSide / shortSide);
    if (!m_best.found) {
        if (!detectIn(scaled(scale, whole), scale, {0, 0}, thorough))
            return 0;
    }
    // Deeper: larger scales in tiles, first around the candidates that
    // failed (at twice the scale they were found at), then everywhere.
    while (!m_best.found && scale < kMaxScale) {
        scale = std::min(kMaxScale, scale * 2);
        std::vector<std::pair<cv::Rect2d, double>> near;
        near.swap(m_rejected);
        for (const auto &r : near) {
            const cv::Rect2d around(r.first.x - 1.5 * r.first.width,
                                    r.first.y - 1.5 * r.first.height, 4 * r.first.width,
                                    4 * r.first.height);
            if (!searchTiled(scale, around & whole, thorough))
                return 0;
            if (m_best.found)
                break;
        }
        if (m_best.found || pixels * scale * scale > kMaxTiledPixels)
            break;
        if (!searchTiled(scale, whole, thorough))
            return 0;
    }
    if (!m_best.found || !going())
        return 0;

    // Full-resolution geometry, checked strictly: a grid that cannot be
    // made to sit on the patches is not reported.
    Homography h = m_best.h;
    const Refinement refined = refineGrid(m_full, h);
    if (refined.refined)
        h = refined.h;
    const Verdict check = judge(samplePatches(m_full, h, 0.4), true);
    if (!check.accepted)
        return 0;
    m_best.verdict = check;
    double fraction = 0.5;
    if (refined.patchFraction > 0)
        fraction = std::clamp(0.7 * refined.patchFraction, 0.4, 0.6);
    result.score = m_best.verdict.score;
    if (!fillDetection(h, m_full.cols, m_full.rows, fraction, result))
        return 0;
    return result.found;
}

} // namespace

bool keepGoing(const unsigned char *keepRunning)
{
    return !keepRunning || __atomic_load_n(keepRunning, __ATOMIC_RELAXED) != 0;
}

int searchChart(const cv::Mat &bgr, Detection &result, const unsigned char *keepRunning)
{
    Search search(bgr, keepRunning);
    return search.run(result);
}

} // namespace kestro::chartdetect
