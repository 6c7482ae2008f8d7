#pragma once
// CIE L*a*b* conversion and colour-difference formulas of the colour
// measurements. Inputs are sRGB-encoded or linear RGB components in 0..1; the
// conversion uses the sRGB primaries and the rounded reference white
// X 95.0, Y 100.0, Z 108.9 that all Kestro colour measurements share.

namespace kestro {

struct LabColor
{
    double L = 0.0;
    double a = 0.0;
    double b = 0.0;
};

// The rounded reference white of the L*a*b* conversion (scale 100).
constexpr double kLabWhiteX = 95.0;
constexpr double kLabWhiteY = 100.0;
constexpr double kLabWhiteZ = 108.9;

// Linear RGB (0..1) to L*a*b*: scale by 100, sRGB primaries to XYZ, normalise
// by the rounded white, f(t) = t^(1/3) above 0.008856 else 7.787 t + 16/116.
LabColor linearRgbToLab(double r, double g, double b);

// sRGB-encoded RGB (0..1): decodes each component with the sRGB curve, then
// linearRgbToLab.
LabColor srgbToLab(double r, double g, double b);

// HSV saturation of an RGB triple: (max - min) / max, 0 when max is 0.
double hsvSaturation(double r, double g, double b);

// CIEDE2000 with kL = kC = kH = 1, and its two reduced forms: dC00 with the
// lightness weight S_L scaled by 1000 (lightness practically removed), dH00
// with S_L and S_C scaled by 1000 (hue alone). The first colour is the
// reference: differences are taken as second minus first.
struct Ciede2000
{
    double dE00 = 0.0;
    double dC00 = 0.0;
    double dH00 = 0.0;
};
Ciede2000 ciede2000(const LabColor &reference, const LabColor &sample);

// Plain CIEDE2000 colour difference.
double deltaE00(const LabColor &reference, const LabColor &sample);

} // namespace kestro
