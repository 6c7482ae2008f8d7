#pragma once
// Why a region could not be measured: a code with the figures that the
// user's text quotes, and the one function that writes that text.

#include <string>

namespace kestro::sfr {

enum class FailureCode {
    None,
    UnreadableImage,    // texts: path, reason
    BadGamma,           // gamma
    RegionOutsideImage, // left, top, width, height, image width, image height
    RegionTooLarge,     // width, height, limit in millions of pixels
    RegionTooShort,     // rows, rows needed
    RegionTooNarrow,    // columns, columns needed
    EdgeTooFaint,       // contrast, contrast needed (fractions)
    BarOrLine,          // both ends of the region alike
    NoEdge,
    AngleNearDiagonal, // angle in degrees
    AngleNearAxis,     // angle in degrees
    EdgeNotStraight,   // RMS fit error, largest allowed (pixels)
    EdgeLeavesRegion,
    EdgeTooWide, // rise distance (pixels), columns
    SecondEdge,  // distance of the other transition (pixels)
    EdgeClipped, // fraction of clipped pixels
};

struct Failure
{
    FailureCode code = FailureCode::None;
    double value[6] = {};
    std::string text[2];

    Failure() = default;
    Failure(FailureCode c, double v0 = 0, double v1 = 0, double v2 = 0, double v3 = 0,
            double v4 = 0, double v5 = 0)
        : code(c)
        , value{v0, v1, v2, v3, v4, v5}
    { }
    bool isFailure() const { return code != FailureCode::None; }
};

// What the user is told: what is wrong with the region or file and what to
// do about it; empty for FailureCode::None.
std::string failureText(const Failure &failure);

} // namespace kestro::sfr
