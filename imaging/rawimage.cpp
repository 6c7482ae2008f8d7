#include "imaging/rawimage.h"

#include <cmath>
#include <new>
#include <type_traits>

namespace kestro {

double defaultBlackLevel(int bits)
{
    return 42.0 * std::ldexp(1.0, 10 - bits);
}

namespace {

template<typename Sample>
RawPlane normalise(const Sample *samples, int width, int height, int bits, double black, int x0,
                   int y0, int cropWidth, int cropHeight)
{
    RawPlane plane;
    if (!samples || width < 1 || height < 1 || bits < 1 || bits > 16)
        return plane;
    if (x0 < 0 || y0 < 0 || x0 >= width || y0 >= height)
        return plane;
    if (black < 0)
        black = defaultBlackLevel(bits);
    const double full = std::ldexp(1.0, bits) - 1.0;
    if (!(black < full))
        return plane;
    const int remainingW = width - x0;
    const int remainingH = height - y0;
    const int w = (cropWidth <= 0 || cropWidth > remainingW) ? remainingW : cropWidth;
    const int h = (cropHeight <= 0 || cropHeight > remainingH) ? remainingH : cropHeight;
    plane.width = w & ~1;
    plane.height = h & ~1;
    if (plane.isEmpty()) {
        plane.width = plane.height = 0;
        return plane;
    }
    try {
        plane.values.resize(static_cast<size_t>(plane.width) * plane.height);
    } catch (const std::bad_alloc &) {
        plane.width = plane.height = 0;
        return plane;
    }
    const float b = static_cast<float>(black);
    const float scale = static_cast<float>(full - black);
    const float top = static_cast<float>(full);
    for (int y = 0; y < plane.height; ++y) {
        const Sample *row = samples + static_cast<size_t>(y0 + y) * width + x0;
        float *out = plane.values.data() + static_cast<size_t>(y) * plane.width;
        for (int x = 0; x < plane.width; ++x) {
            float v = static_cast<float>(row[x]);
            if (std::is_unsigned<Sample>::value && v > top)
                v = top;
            out[x] = (v - b) / scale;
        }
    }
    return plane;
}

} // namespace

RawPlane normaliseRaw(const std::uint16_t *samples, int width, int height, int bits, double black,
                      int x0, int y0, int cropWidth, int cropHeight)
{
    return normalise(samples, width, height, bits, black, x0, y0, cropWidth, cropHeight);
}

RawPlane normaliseRaw(const std::int16_t *samples, int width, int height, int bits, double black,
                      int x0, int y0, int cropWidth, int cropHeight)
{
    return normalise(samples, width, height, bits, black, x0, y0, cropWidth, cropHeight);
}

} // namespace kestro
