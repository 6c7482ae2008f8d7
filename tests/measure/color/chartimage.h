#pragma once
// Generated chart pictures for the colour tests: 24 patches in a 6 x 4 grid
// on a dark surround, each patch filled with its own colour.

#include <QImage>
#include <QRect>
#include <QRgb>
#include <QVector>

#include <array>

namespace kestro::test {

// sRGB renderings of the 24 chart patches, close to the reference values.
inline const std::array<QRgb, 24> kSrgbChartColours
        = {qRgb(115, 82, 68),   qRgb(194, 150, 130), qRgb(98, 122, 157),  qRgb(87, 108, 67),
           qRgb(133, 128, 177), qRgb(103, 189, 170), qRgb(214, 126, 44),  qRgb(80, 91, 166),
           qRgb(193, 90, 99),   qRgb(94, 60, 108),   qRgb(157, 188, 64),  qRgb(224, 163, 46),
           qRgb(56, 61, 150),   qRgb(70, 148, 73),   qRgb(175, 54, 60),   qRgb(231, 199, 31),
           qRgb(187, 86, 149),  qRgb(8, 133, 161),   qRgb(243, 243, 242), qRgb(200, 200, 200),
           qRgb(160, 160, 160), qRgb(122, 122, 121), qRgb(85, 85, 85),    qRgb(52, 52, 52)};

struct GeneratedChart
{
    QImage image;
    std::array<QRect, 24> rects; // the patch interiors, in reading order
};

inline GeneratedChart makeChart(const std::array<QRgb, 24> &colours, int patch = 12, int gap = 4)
{
    GeneratedChart chart;
    chart.image = QImage(gap + 6 * (patch + gap), gap + 4 * (patch + gap), QImage::Format_ARGB32);
    chart.image.fill(qRgb(20, 20, 20));
    for (int i = 0; i < 24; ++i) {
        const QRect r(gap + (i % 6) * (patch + gap), gap + (i / 6) * (patch + gap), patch, patch);
        for (int y = r.top(); y <= r.bottom(); ++y)
            for (int x = r.left(); x <= r.right(); ++x)
                chart.image.setPixel(x, y, colours[i]);
        chart.rects[i] = r;
    }
    return chart;
}

} // namespace kestro::test
