#pragma once
// The sRGB transfer curves (IEC 61966-2-1), shared by the linear frame copy,
// the near-neutral outline test, colour difference and noise measurement.

#include <cmath>
#include <cstdint>

namespace kestro {

// Decodes one sRGB-encoded component in 0..1 to linear light in 0..1.
inline double srgbToLinear(double v)
{
    return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}

// Encodes linear light in 0..1 to an sRGB component in 0..1.
inline double linearToSrgb(double v)
{
    return v <= 0.0031308 ? v * 12.92 : 1.055 * std::pow(v, 1.0 / 2.4) - 0.055;
}

// Decodes one 8-bit sRGB byte to linear light in 0..1.
inline double srgbByteToLinear(std::uint8_t byte)
{
    return srgbToLinear(byte / 255.0);
}

} // namespace kestro
