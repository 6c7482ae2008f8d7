// libFuzzer harness for the chart detection: whole searches on small
// pictures, and the geometry steps on arbitrary corner values (including
// non-finite ones, which the mcc detector can produce on degenerate input).
//
// Input layout: byte 0 selects the mode.
//   Mode 0 (even): bytes 1-2 width, 3-4 height (each taken modulo 200, plus
//     1), byte 5 a block size 1..4 by which the picture is enlarged; the rest
//     fills the pixels (blue, green, red), repeated as needed.
//   Mode 1 (odd): bytes 1-64 eight doubles, the corners of a candidate grid
//     on a 96 x 64 picture filled from the rest.
#include "platform/chartdetect/chartdetect.h"
#include "platform/chartdetect/chartgeometry.h"
#include "platform/chartdetect/chartrefine.h"
#include "platform/chartdetect/chartverify.h"

#include <opencv2/core.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

using namespace kestro::chartdetect;

namespace {

std::vector<unsigned char> fill(size_t bytes, const std::uint8_t *data, size_t size)
{
    std::vector<unsigned char> out(bytes, 0);
    for (size_t i = 0; size > 0 && i < bytes; ++i)
        out[i] = data[i % size];
    return out;
}

void checkDetection(const Detection &d, int width, int height, int found)
{
    if (found != 0 && found != kPatchCount)
        std::abort();
    if (found != kPatchCount)
        return;
    for (const ColorCheckerROI &r : d.regions) {
        // Every rectangle is inside the picture, y being its lower edge.
        if (r.width < 1 || r.height < 1 || r.x < 0 || r.y - r.height < 0 || r.x + r.width > width
            || r.y > height)
            std::abort();
    }
}

void searchMode(const std::uint8_t *data, size_t size)
{
    if (size < 6)
        return;
    const int w = (data[1] | (data[2] << 8)) % 200 + 1;
    const int h = (data[3] | (data[4] << 8)) % 200 + 1;
    const int block = data[5] % 4 + 1;
    const std::vector<unsigned char> small = fill(size_t(w) * h * 3, data + 6, size - 6);
    const int width = w * block, height = h * block;
    std::vector<unsigned char> picture(size_t(width) * height * 3);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            std::memcpy(&picture[(size_t(y) * width + x) * 3],
                        &small[(size_t(y / block) * w + x / block) * 3], 3);
    Detection d;
    unsigned char running = 1;
    const int found = findChart(picture.data(), width, height, d, &running);
    checkDetection(d, width, height, found);
    ColorCheckerROI regions[kPatchCount];
    if (FindColorCheckerROIsFromMemory(picture.data(), width, height, regions, &running) != found)
        std::abort();
}

void geometryMode(const std::uint8_t *data, size_t size)
{
    if (size < 65)
        return;
    Point2 corners[4];
    for (int i = 0; i < 4; ++i) {
        std::memcpy(&corners[i].x, data + 1 + 16 * i, 8);
        std::memcpy(&corners[i].y, data + 9 + 16 * i, 8);
    }
    const int width = 96, height = 64;
    std::vector<unsigned char> pixels = fill(size_t(width) * height * 3, data + 65, size - 65);
    const cv::Mat bgr(height, width, CV_8UC3, pixels.data());
    Homography h;
    if (gridHomography(corners, h)) {
        Detection d;
        if (fillDetection(h, width, height, 0.5, d))
            checkDetection(d, width, height, d.found);
        const PatchColours colours = samplePatches(bgr, h, 0.4);
        (void) judge(colours, true);
        const Refinement refined = refineGrid(bgr, h);
        if (refined.refined && fillDetection(refined.h, width, height, 0.5, d))
            checkDetection(d, width, height, d.found);
    }
    Verdict verdict;
    if (bestOrientation(bgr, corners, h, verdict))
        (void) verdict.score;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    if (data[0] & 1)
        geometryMode(data, size);
    else
        searchMode(data, size);
    return 0;
}
