#include "measure/color/cielab.h"

#include "imaging/srgb.h"

#include <algorithm>
#include <cmath>

namespace kestro {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kTwoPi = 2.0 * kPi;
constexpr double k25Pow7 = 6103515625.0;

double labF(double t)
{
    return t > 0.008856 ? std::cbrt(t) : 7.787 * t + 16.0 / 116.0;
}

double degToRad(double deg)
{
    return deg * kPi / 180.0;
}

double pow7(double x)
{
    const double x2 = x * x;
    const double x3 = x2 * x;
    return x3 * x3 * x;
}

} // namespace

LabColor linearRgbToLab(double r, double g, double b)
{
    const double R = r * 100.0;
    const double G = g * 100.0;
    const double B = b * 100.0;
    const double X = 0.4124 * R + 0.3576 * G + 0.1805 * B;
    const double Y = 0.2126 * R + 0.7152 * G + 0.0722 * B;
    const double Z = 0.0193 * R + 0.1192 * G + 0.9505 * B;
    const double fx = labF(X / kLabWhiteX);
    const double fy = labF(Y / kLabWhiteY);
    const double fz = labF(Z / kLabWhiteZ);
    LabColor lab;
    lab.L = 116.0 * fy - 16.0;
    lab.a = 500.0 * (fx - fy);
    lab.b = 200.0 * (fy - fz);
    return lab;
}

LabColor srgbToLab(double r, double g, double b)
{
    return linearRgbToLab(srgbToLinear(r), srgbToLinear(g), srgbToLinear(b));
}

double hsvSaturation(double r, double g, double b)
{
    const double mx = std::max({r, g, b});
    const double mn = std::min({r, g, b});
    if (mx == 0.0)
        return 0.0;
    return (mx - mn) / mx;
}

Ciede2000 ciede2000(const LabColor &reference, const LabColor &sample)
{
    const double L1 = reference.L, a1 = reference.a, b1 = reference.b;
    const double L2 = sample.L, a2 = sample.a, b2 = sample.b;

    const double C1 = std::sqrt(a1 * a1 + b1 * b1);
    const double C2 = std::sqrt(a2 * a2 + b2 * b2);
    const double Cbar = (C1 + C2) / 2.0;
    const double Cbar7 = pow7(Cbar);
    const double G = 0.5 * (1.0 - std::sqrt(Cbar7 / (Cbar7 + k25Pow7)));
    const double a1p = a1 * (1.0 + G);
    const double a2p = a2 * (1.0 + G);
    const double C1p = std::sqrt(a1p * a1p + b1 * b1);
    const double C2p = std::sqrt(a2p * a2p + b2 * b2);

    auto hue = [](double b, double ap) {
        if (b == 0.0 && ap == 0.0)
            return 0.0;
        double h = std::atan2(b, ap);
        if (h < 0.0)
            h += kTwoPi;
        return h;
    };
    const double h1p = hue(b1, a1p);
    const double h2p = hue(b2, a2p);

    const double dLp = L2 - L1;
    const double dCp = C2p - C1p;
    const double CpProduct = C1p * C2p;
    double dhp = 0.0;
    if (CpProduct != 0.0) {
        dhp = h2p - h1p;
        if (dhp > kPi)
            dhp -= kTwoPi;
        else if (dhp < -kPi)
            dhp += kTwoPi;
    }
    const double dHp = 2.0 * std::sqrt(CpProduct) * std::sin(dhp / 2.0);

    const double Lbarp = (L1 + L2) / 2.0;
    const double Cbarp = (C1p + C2p) / 2.0;
    double hbarp;
    if (CpProduct == 0.0) {
        hbarp = h1p + h2p;
    } else {
        hbarp = (h1p + h2p) / 2.0;
        if (std::fabs(h1p - h2p) > kPi) {
            hbarp -= kPi;
            if (hbarp < 0.0)
                hbarp += kTwoPi;
        }
    }

    const double T = 1.0 - 0.17 * std::cos(hbarp - degToRad(30.0)) + 0.24 * std::cos(2.0 * hbarp)
                     + 0.32 * std::cos(3.0 * hbarp + degToRad(6.0))
                     - 0.20 * std::cos(4.0 * hbarp - degToRad(63.0));
    const double hbarDeg = hbarp * 180.0 / kPi;
    const double dTheta = degToRad(30.0) * std::exp(-std::pow((hbarDeg - 275.0) / 25.0, 2.0));
    const double Cbarp7 = pow7(Cbarp);
    const double RC = 2.0 * std::sqrt(Cbarp7 / (Cbarp7 + k25Pow7));
    const double Lm50sq = (Lbarp - 50.0) * (Lbarp - 50.0);
    const double SL = 1.0 + 0.015 * Lm50sq / std::sqrt(20.0 + Lm50sq);
    const double SC = 1.0 + 0.045 * Cbarp;
    const double SH = 1.0 + 0.015 * Cbarp * T;
    const double RT = -std::sin(2.0 * dTheta) * RC;

    auto combine = [&](double sl, double sc) {
        const double l = dLp / sl;
        const double c = dCp / sc;
        const double h = dHp / SH;
        return std::sqrt(l * l + c * c + h * h + RT * c * h);
    };
    Ciede2000 result;
    result.dE00 = combine(SL, SC);
    result.dC00 = combine(SL * 1000.0, SC);
    result.dH00 = combine(SL * 1000.0, SC * 1000.0);
    return result;
}

double deltaE00(const LabColor &reference, const LabColor &sample)
{
    return ciede2000(reference, sample).dE00;
}

} // namespace kestro
