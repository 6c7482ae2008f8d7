#include "sfr_extract.h"

#include <cmath>

namespace kestro::sfr {

void extractRegion(const QImage &image, const QRect &rect, double gamma, RegionPlanes &planes)
{
    float lut[256];
    for (int v = 0; v < 256; ++v)
        lut[v] = static_cast<float>(std::pow(v / 255.0, 1.0 / gamma));
    const int w = rect.width(), h = rect.height();
    for (Plane &p : planes.channel)
        p.resize(h, w);
    long long clip[3] = {0, 0, 0};
    const bool gray8 = image.format() == QImage::Format_Grayscale8;
    bool neutral = true;
    for (int y = 0; y < h; ++y) {
        float *pr = planes.channel[0].row(y);
        float *pg = planes.channel[1].row(y);
        float *pb = planes.channel[2].row(y);
        float *py = planes.channel[3].row(y);
        const uchar *line = image.constScanLine(rect.top() + y);
        for (int x = 0; x < w; ++x) {
            int r, g, b;
            if (gray8) {
                r = g = b = line[rect.left() + x];
            } else {
                const QRgb px = reinterpret_cast<const QRgb *>(line)[rect.left() + x];
                r = qRed(px);
                g = qGreen(px);
                b = qBlue(px);
            }
            clip[0] += (r == 0 || r == 255);
            clip[1] += (g == 0 || g == 255);
            clip[2] += (b == 0 || b == 255);
            pr[x] = lut[r];
            pg[x] = lut[g];
            pb[x] = lut[b];
            // A neutral pixel keeps its value exactly, so that a gray picture
            // is recognised as one channel.
            const bool same = r == g && g == b;
            neutral = neutral && same;
            py[x] = same ? lut[r] : 0.299f * lut[r] + 0.587f * lut[g] + 0.114f * lut[b];
        }
    }
    const double n = std::max(1.0, double(w) * h);
    for (int c = 0; c < 3; ++c)
        planes.clipped[c] = clip[c] / n;
    for (int c = 0; c < 4; ++c)
        planes.quantisation[c] = {c < 3 || neutral, gamma};
    planes.transposed = false;
    if (isHorizontalEdge(planes.channel[3])) {
        for (Plane &p : planes.channel)
            p = transposed(p);
        planes.transposed = true;
    }
}

bool isHorizontalEdge(const Plane &gray)
{
    double sx = 0, sy = 0;
    for (int r = 0; r < gray.rows; ++r) {
        const float *row = gray.row(r);
        const float *next = r + 1 < gray.rows ? gray.row(r + 1) : nullptr;
        for (int c = 0; c < gray.cols; ++c) {
            if (c + 1 < gray.cols)
                sx += std::fabs(row[c + 1] - row[c]);
            if (next)
                sy += std::fabs(next[c] - row[c]);
        }
    }
    // Compare per difference so that a long narrow region is not biased.
    const double nx = std::max(1.0, double(gray.rows) * (gray.cols - 1));
    const double ny = std::max(1.0, double(gray.rows - 1) * gray.cols);
    return sy / ny > sx / nx;
}

} // namespace kestro::sfr
