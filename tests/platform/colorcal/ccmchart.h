#pragma once
// Charts seen through a simulated camera, for the colour-correction tests:
// the chart's reference colours in linear RGB, mixed by a known 3×3 matrix
// (the channels' crosstalk), scaled by channel gains and an exposure, with
// optional Gaussian noise, then sRGB-encoded and clamped to 0..1.

#include "measure/color/macbethcolordifference.h"
#include "platform/colorcal/ccm.h"

#include <QColor>
#include <QImage>
#include <QPainter>
#include <QRect>
#include <QVector>

#include <algorithm>
#include <cmath>
#include <random>

namespace kestro::test {

using ccm::Mat3;
using ccm::Vec3;

// A camera with real crosstalk (rows of a spectral overlap) and an uneven
// channel response.
inline Mat3 sampleMixing()
{
    return {{{0.72, 0.22, 0.06}, {0.14, 0.70, 0.16}, {0.04, 0.26, 0.70}}};
}
inline Vec3 sampleGains()
{
    return {0.55, 1.0, 0.75};
}

inline double srgbEncode(double v)
{
    v = std::clamp(v, 0.0, 1.0);
    return v <= 0.0031308 ? v * 12.92 : 1.055 * std::pow(v, 1.0 / 2.4) - 0.055;
}

inline ccm::Lab referenceLab(int patch)
{
    ccm::Lab lab;
    QStdMacbethChartColorDifference::referenceLab(patch, lab.L, lab.a, lab.b);
    return lab;
}

// True for the patches whose reference lies inside the sRGB gamut (so that
// the rendered chart shows them without clamping).
inline bool inGamut(int patch)
{
    const Vec3 rgb = ccm::labToLinearRgb(referenceLab(patch));
    return *std::min_element(rgb.begin(), rgb.end()) >= 0.0
           && *std::max_element(rgb.begin(), rgb.end()) <= 1.0;
}

// The chart's own gray patches are slightly tinted (up to 1.4 in b*); with
// `neutralGrays` they are made exactly neutral in linear RGB (same mean
// level), so that white balance on them recovers the camera exactly.
inline ccm::Chart renderChart(const Mat3 &mix, const Vec3 &gains, double exposure,
                              double noise = 0.0, unsigned seed = 1, bool neutralGrays = true)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> gauss(0.0, noise > 0.0 ? noise : 1.0);
    ccm::Chart chart;
    for (int i = 0; i < ccm::kPatchCount; ++i) {
        chart.reference[i] = referenceLab(i);
        if (neutralGrays && i >= ccm::kFirstGrayPatch) {
            const Vec3 rgb = ccm::labToLinearRgb(chart.reference[i]);
            const double y = (rgb[0] + rgb[1] + rgb[2]) / 3.0;
            chart.reference[i] = ccm::linearRgbToLab({y, y, y});
        }
        // The camera's linear response: crosstalk, channel gain, exposure.
        const Vec3 v = ccm::labToLinearRgb(chart.reference[i]);
        for (int c = 0; c < 3; ++c) {
            const double seen = exposure * gains[c]
                                * (mix[c][0] * v[0] + mix[c][1] * v[1] + mix[c][2] * v[2]);
            chart.measured[i][c] = srgbEncode(seen + (noise > 0.0 ? gauss(random) : 0.0));
        }
    }
    return chart;
}

// The chart as a picture: 6 × 4 patches of `patch` pixels on a dark
// surround, each patch dithered so that its 8-bit mean carries the exact
// colour; the patch rectangles (inset by a quarter) in `rects`.
inline QImage renderChartImage(const ccm::Chart &chart, int patch, QVector<QRect> *rects)
{
    const int gap = patch / 4;
    QImage image(6 * (patch + gap) + gap, 4 * (patch + gap) + gap, QImage::Format_RGB32);
    image.fill(QColor(20, 20, 20));
    std::mt19937 random(7);
    std::uniform_real_distribution<double> dither(0.0, 1.0);
    for (int i = 0; i < ccm::kPatchCount; ++i) {
        const int x0 = gap + (i % 6) * (patch + gap), y0 = gap + (i / 6) * (patch + gap);
        for (int y = y0; y < y0 + patch; ++y) {
            QRgb *line = reinterpret_cast<QRgb *>(image.scanLine(y));
            for (int x = x0; x < x0 + patch; ++x) {
                int v[3];
                for (int c = 0; c < 3; ++c)
                    v[c] = std::clamp(static_cast<int>(chart.measured[i][c] * 255.0
                                                       + dither(random)),
                                      0, 255);
                line[x] = qRgb(v[0], v[1], v[2]);
            }
        }
        if (rects)
            rects->append(QRect(x0 + patch / 4, y0 + patch / 4, patch / 2, patch / 2));
    }
    return image;
}

} // namespace kestro::test
