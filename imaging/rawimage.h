#pragma once
// Normalisation of raw sensor samples: 16-bit samples, row-major with the
// full width as row pitch, become a float plane of
// (sample - black) / ((2^bits - 1) - black).

#include <cstdint>
#include <vector>

namespace kestro {

struct RawPlane
{
    int width = 0;
    int height = 0;
    std::vector<float> values; // row-major, width * height
    bool isEmpty() const { return width <= 0 || height <= 0; }
};

// Black level used when a negative one is asked for: 42 * 2^(10 - bits).
double defaultBlackLevel(int bits);

// Normalises the crop (x0, y0, cropWidth, cropHeight) of a width x height
// sample array. A crop size of zero, a negative one or one larger than what
// remains after the origin means "all that remains". The plane's width and
// height are the cropped size rounded down to even numbers. A negative black
// level means defaultBlackLevel(bits). Bits outside 1..16, a black level at or
// above full scale, an origin outside the frame or a null pointer give an
// empty plane.
//
// Raw files deliver unsigned words: a 16-bit sensor's bright samples are
// above 32767, and samples above a narrower depth's full scale count as full
// scale. Signed samples are taken as they are, negative ones included.
RawPlane normaliseRaw(const std::uint16_t *samples, int width, int height, int bits, double black,
                      int x0 = 0, int y0 = 0, int cropWidth = 0, int cropHeight = 0);
RawPlane normaliseRaw(const std::int16_t *samples, int width, int height, int bits, double black,
                      int x0 = 0, int y0 = 0, int cropWidth = 0, int cropHeight = 0);

} // namespace kestro
