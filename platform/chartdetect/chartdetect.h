#pragma once
// Chart-patch detection: finds the 24 patches of a Macbeth ColorChecker in a
// picture and returns one rectangle inside each patch, in the chart's reading
// order (1 dark skin ... 18 cyan, 19 white ... 24 black) whatever the chart's
// rotation in the picture.
//
// The search runs OpenCV's mcc detector on a reduced copy of the picture (and
// on further scales and tiles when that finds nothing), checks every
// candidate grid by the colours of its patches against the reference chart,
// and refines the accepted grid at full resolution. A grid that does not look
// like the chart is never reported: the call then returns fewer than 24.

#include <cstdint>

// One patch rectangle in picture pixels. y is the LOWER edge of the
// rectangle (top-left origin), so the rectangle covers rows y - height to
// y - 1.
struct ColorCheckerROI
{
    std::int32_t x;
    std::int32_t y;
    std::int32_t width;
    std::int32_t height;
};

// buffer: width x height packed 24-bit pixels, rows top to bottom without
// gaps, bytes blue, green, red. regions: room for 24 records, filled in
// reading order when the chart is found (left untouched otherwise).
// keepRunning: a flag byte that the caller sets to 1 before the call and may
// clear from another thread to ask the search to stop; it is polled at least
// every few tens of milliseconds. May be null.
// Returns the number of patches found: 24 on success, 0 when no chart was
// found, the search was stopped or the input is unusable.
int FindColorCheckerROIsFromMemory(const unsigned char *buffer, int width, int height,
                                   ColorCheckerROI *regions, unsigned char *keepRunning);

namespace kestro::chartdetect {

constexpr int kPatchCount = 24;
constexpr int kColumns = 6;
constexpr int kRows = 4;

// How to search.
enum class Method {
    Refined,  // the full search described above
    PlainMcc, // OpenCV's mcc with default parameters on the whole picture,
              // trusted as it is (the baseline the full search is measured
              // against)
};

struct Detection
{
    int found = 0;
    ColorCheckerROI regions[kPatchCount] = {};
    // Outer corners of the patch grid in picture pixels, next to patch 1,
    // patch 6, patch 24 and patch 19 (x, y pairs); valid when found is 24.
    double corners[8] = {};
    // Patch centres in reading order (x, y pairs); valid when found is 24.
    double centres[2 * kPatchCount] = {};
    // Colour agreement of the accepted grid with the reference chart, 0..1.
    double score = 0.0;
};

// The detection with its details. Same contract as
// FindColorCheckerROIsFromMemory for the buffer and the flag.
int findChart(const unsigned char *buffer, int width, int height, Detection &result,
              const unsigned char *keepRunning = nullptr, Method method = Method::Refined);

// Reference colours of the 24 patches as 8-bit sRGB (red, green, blue), in
// reading order.
extern const unsigned char kReferenceSrgb[kPatchCount][3];

} // namespace kestro::chartdetect
