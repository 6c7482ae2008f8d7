#pragma once
// Synthetic slanted edges with a known MTF, for the accuracy tests.
//
// The optics are a Gaussian point spread of standard deviation sigma; each
// pixel integrates the blurred edge exactly over its square aperture. Along
// the edge normal the system MTF is then
//   exp(-2 pi^2 sigma^2 f^2) * sinc(f cos a) * sinc(f sin a)
// (the aperture projected onto the normal is two boxes of widths cos a and
// sin a).

#include <QImage>
#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace kestro::test {

struct EdgeParams
{
    int width = 128;
    int height = 200;
    double angleDegrees = 5;     // lean of the edge from the vertical
    double sigma[3] = {1, 1, 1}; // per channel blur (red, green, blue)
    bool colour = false;         // false: one gray channel with sigma[0]
    double dark = 0.05;          // linear levels 0..1
    double light = 0.8;
    bool darkLeft = true;     // dark side on the left (or the top)
    bool horizontal = false;  // transpose: an edge leaning from the horizontal
    double encodeGamma = 1.0; // stored value = 255 * L^encodeGamma
    double noise = 0;         // standard deviation of added noise, DN
    unsigned seed = 1;
    double offset = 0; // shift of the edge from the centre, pixels
    double bow = 0;    // extra shift bow * t^2, t = -1..1 from top to bottom
};

inline double edgePi()
{
    return 3.14159265358979323846;
}

inline double sincPi(double x)
{
    return std::fabs(x) < 1e-12 ? 1.0 : std::sin(edgePi() * x) / (edgePi() * x);
}

inline double trueMtf(double sigma, double angleDegrees, double f)
{
    const double a = angleDegrees * edgePi() / 180;
    return std::exp(-2 * edgePi() * edgePi() * sigma * sigma * f * f) * sincPi(f * std::cos(a))
           * sincPi(f * std::sin(a));
}

// First frequency where the true MTF falls to `level` (bisection).
inline double trueCrossing(double sigma, double angleDegrees, double level)
{
    double hi = 0.001;
    while (trueMtf(sigma, angleDegrees, hi) > level)
        hi += 0.001;
    double lo = hi - 0.001;
    for (int i = 0; i < 80; ++i) {
        const double mid = 0.5 * (lo + hi);
        (trueMtf(sigma, angleDegrees, mid) > level ? lo : hi) = mid;
    }
    return 0.5 * (lo + hi);
}

// Mean over the unit square [i, i+1] x [j, j+1] of Phi((a x + b y - c) / s),
// through the second antiderivative of the normal distribution function.
inline double edgeG2(double t, double s)
{
    const double z = t / s;
    const double Phi = 0.5 * std::erfc(-z / std::sqrt(2.0));
    const double phi = std::exp(-0.5 * z * z) / std::sqrt(2 * edgePi());
    return 0.5 * (t * t + s * s) * Phi + 0.5 * t * s * phi;
}

// Linear-light coverage (0 dark .. 1 light) of every pixel, width x height.
// A bowed edge is treated as locally straight within each row.
inline std::vector<double> edgeCoverage(int width, int height, double angleDegrees, double sigma,
                                        double offset, double bow = 0)
{
    const double th = angleDegrees * edgePi() / 180;
    const double a = std::cos(th), b = -std::sin(th);
    std::vector<double> out(static_cast<std::size_t>(width) * height);
    std::vector<double> g0(static_cast<std::size_t>(width + 1)), g1(g0.size());
    const double ab = a * b;
    for (int j = 0; j < height; ++j) {
        const double t = (j + 0.5 - height / 2.0) / (height / 2.0);
        const double cx = width / 2.0 + offset + bow * t * t, cy = height / 2.0;
        const double c = a * cx + b * cy;
        for (int i = 0; i <= width; ++i) {
            g0[static_cast<std::size_t>(i)] = edgeG2(a * i + b * j - c, sigma);
            g1[static_cast<std::size_t>(i)] = edgeG2(a * i + b * (j + 1) - c, sigma);
        }
        for (int i = 0; i < width; ++i) {
            const double s0 = a * i + b * j - c;
            const double lo = s0 + std::min(0.0, a) + std::min(0.0, b);
            const double hi = s0 + std::max(0.0, a) + std::max(0.0, b);
            double v;
            if (hi < -9 * sigma)
                v = 0;
            else if (lo > 9 * sigma)
                v = 1;
            else
                v = (g1[static_cast<std::size_t>(i + 1)] - g0[static_cast<std::size_t>(i + 1)]
                     - g1[static_cast<std::size_t>(i)] + g0[static_cast<std::size_t>(i)])
                    / ab;
            out[static_cast<std::size_t>(j) * width + i] = std::min(1.0, std::max(0.0, v));
        }
    }
    return out;
}

inline QImage makeEdgeImage(const EdgeParams &params)
{
    const int w = params.horizontal ? params.height : params.width;
    const int h = params.horizontal ? params.width : params.height;
    const int channels = params.colour ? 3 : 1;
    std::vector<double> cover[3];
    for (int ch = 0; ch < channels; ++ch)
        cover[ch] = edgeCoverage(params.width, params.height, params.angleDegrees, params.sigma[ch],
                                 params.offset, params.bow);
    std::mt19937 rng(params.seed);
    std::normal_distribution<double> gauss(0.0, 1.0);
    QImage image(w, h, params.colour ? QImage::Format_RGB32 : QImage::Format_Grayscale8);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            // Generated as a vertical edge at (i, j); transposed on request.
            const int i = params.horizontal ? y : x;
            const int j = params.horizontal ? x : y;
            int v[3] = {0, 0, 0};
            for (int ch = 0; ch < channels; ++ch) {
                double t = cover[ch][static_cast<std::size_t>(j) * params.width + i];
                if (!params.darkLeft)
                    t = 1 - t;
                const double linear = params.dark + (params.light - params.dark) * t;
                double dn = 255 * std::pow(linear, params.encodeGamma);
                if (params.noise > 0)
                    dn += params.noise * gauss(rng);
                v[ch] = std::clamp(static_cast<int>(std::lround(dn)), 0, 255);
            }
            if (params.colour)
                reinterpret_cast<QRgb *>(image.scanLine(y))[x] = qRgb(v[0], v[1], v[2]);
            else
                image.scanLine(y)[x] = static_cast<uchar>(v[0]);
        }
    }
    return image;
}

// The edge pasted at `at` into a larger picture of one flat level.
inline QImage edgeInPicture(const EdgeParams &params, QSize size, QPoint at, int level)
{
    const QImage edge = makeEdgeImage(params);
    QImage picture(size, edge.format());
    picture.fill(params.colour ? qRgb(level, level, level) : static_cast<uint>(level));
    const int bytes = edge.depth() / 8;
    for (int y = 0; y < edge.height(); ++y)
        std::copy_n(edge.constScanLine(y), edge.width() * bytes,
                    picture.scanLine(at.y() + y) + at.x() * bytes);
    return picture;
}

} // namespace kestro::test
