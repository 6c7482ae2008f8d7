#include "imaging/demosaic.h"

#include <algorithm>
#include <thread>
#include <vector>

namespace kestro {

namespace {

// map[(x mod 2) + 2 * (y mod 2)] per colour order code.
constexpr int kClassMap[4][4] = {
    {0, 1, 2, 3},
    {1, 0, 3, 2},
    {2, 3, 0, 1},
    {3, 2, 1, 0},
};

// Five mosaic rows around the centre row; s(dx, dy) reads relative to column cx.
struct Window
{
    const std::int16_t *r[5];
    int s(int cx, int dx, int dy) const { return r[dy + 2][cx + dx]; }
};

// The kernels, each scaled by 16 (the published kernels times 1/8, times 16),
// so every coefficient is an integer and every kernel sums to 16.
inline int kIdentity(const Window &w, int x) { return 16 * w.s(x, 0, 0); }

inline int kGreenAtRB(const Window &w, int x)
{
    return 8 * w.s(x, 0, 0) + 4 * (w.s(x, -1, 0) + w.s(x, 1, 0) + w.s(x, 0, -1) + w.s(x, 0, 1))
        - 2 * (w.s(x, -2, 0) + w.s(x, 2, 0) + w.s(x, 0, -2) + w.s(x, 0, 2));
}

inline int diagonals(const Window &w, int x)
{
    return w.s(x, -1, -1) + w.s(x, 1, -1) + w.s(x, -1, 1) + w.s(x, 1, 1);
}

// Wanted colour to the left and right of the centre.
inline int kAlongRow(const Window &w, int x)
{
    return 10 * w.s(x, 0, 0) + 8 * (w.s(x, -1, 0) + w.s(x, 1, 0)) - 2 * (w.s(x, -2, 0) + w.s(x, 2, 0))
        - 2 * diagonals(w, x) + (w.s(x, 0, -2) + w.s(x, 0, 2));
}

// Wanted colour above and below the centre.
inline int kAlongColumn(const Window &w, int x)
{
    return 10 * w.s(x, 0, 0) + 8 * (w.s(x, 0, -1) + w.s(x, 0, 1)) - 2 * (w.s(x, 0, -2) + w.s(x, 0, 2))
        - 2 * diagonals(w, x) + (w.s(x, -2, 0) + w.s(x, 2, 0));
}

// Red at blue, blue at red.
inline int kDiagonal(const Window &w, int x)
{
    return 12 * w.s(x, 0, 0) + 4 * diagonals(w, x)
        - 3 * (w.s(x, -2, 0) + w.s(x, 2, 0) + w.s(x, 0, -2) + w.s(x, 0, 2));
}

struct Quantiser
{
    const std::uint8_t *lut; // index n in 0..range -> floor(255 n / range + 0.5)
    int offset;              // 16 * black
    int range;               // 16 * (full scale - black)
    std::uint32_t operator()(int sum) const
    {
        const int n = std::min(std::max(sum - offset, 0), range);
        return lut[n];
    }
};

template <int P>
inline std::uint32_t pixel(const Window &w, int cx, const Quantiser &q)
{
    int r, g, b;
    if constexpr (P == 0) {
        r = kAlongRow(w, cx);
        g = kIdentity(w, cx);
        b = kAlongColumn(w, cx);
    } else if constexpr (P == 1) {
        r = kIdentity(w, cx);
        g = kGreenAtRB(w, cx);
        b = kDiagonal(w, cx);
    } else if constexpr (P == 2) {
        r = kDiagonal(w, cx);
        g = kGreenAtRB(w, cx);
        b = kIdentity(w, cx);
    } else {
        r = kAlongColumn(w, cx);
        g = kIdentity(w, cx);
        b = kAlongRow(w, cx);
    }
    return 0xff000000u | (q(r) << 16) | (q(g) << 8) | q(b);
}

// One output row whose even columns are class PE and odd columns class PO.
template <int PE, int PO>
void row(const Window &w, std::uint32_t *out, int outWidth, const Quantiser &q)
{
    int x = 0;
    for (; x + 1 < outWidth; x += 2) {
        out[x] = pixel<PE>(w, x + 2, q);
        out[x + 1] = pixel<PO>(w, x + 3, q);
    }
    if (x < outWidth)
        out[x] = pixel<PE>(w, x + 2, q);
}

void rows(const std::int16_t *samples, int pitch, int y0, int y1, int outWidth, int order, const Quantiser &q,
          uchar *bits, qsizetype bytesPerLine)
{
    for (int y = y0; y < y1; ++y) {
        Window w;
        for (int k = 0; k < 5; ++k)
            w.r[k] = samples + static_cast<size_t>(y + k) * pitch;
        auto *out = reinterpret_cast<std::uint32_t *>(bits + y * bytesPerLine);
        // Output (x, y) is centred on (x + 2, y + 2): same parities.
        const int even = kClassMap[order][2 * (y & 1)];
        switch (even) {
        case 0: row<0, 1>(w, out, outWidth, q); break;
        case 1: row<1, 0>(w, out, outWidth, q); break;
        case 2: row<2, 3>(w, out, outWidth, q); break;
        default: row<3, 2>(w, out, outWidth, q); break;
        }
    }
}

} // namespace

int bayerPositionClass(int bayerOrder, int x, int y)
{
    if (bayerOrder < 0 || bayerOrder > 3)
        bayerOrder = 0;
    return kClassMap[bayerOrder][(x & 1) + 2 * (y & 1)];
}

QImage demosaicToImage(const std::int16_t *samples, int width, int height, int bits, unsigned black,
                       int bayerOrder, int threads)
{
    if (!samples || bits < 1 || bits > 16)
        return QImage();
    const int full = (1 << bits) - 1;
    if (black >= static_cast<unsigned>(full))
        return QImage();
    const int evenW = width & ~1;
    const int evenH = height & ~1;
    if (evenW < 6 || evenH < 6)
        return QImage();
    const int outW = evenW - 4;
    const int outH = evenH - 4;
    QImage image(outW, outH, QImage::Format_RGB32);
    if (image.isNull())
        return QImage();
    if (bayerOrder < 0 || bayerOrder > 3)
        bayerOrder = 0;

    const int range = 16 * (full - static_cast<int>(black));
    std::vector<std::uint8_t> lut(static_cast<size_t>(range) + 1);
    for (int n = 0; n <= range; ++n)
        lut[n] = static_cast<std::uint8_t>((510LL * n + range) / (2LL * range));
    const Quantiser q{lut.data(), 16 * static_cast<int>(black), range};

    if (threads <= 0)
        threads = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    // Bands of at least 64 rows; small pictures stay on the calling thread.
    threads = std::max(1, std::min({threads, 16, outH / 64}));
    // Take the pixel memory once: scanLine() on the workers would race.
    uchar *pixels = image.bits();
    const qsizetype bpl = image.bytesPerLine();
    if (threads == 1) {
        rows(samples, width, 0, outH, outW, bayerOrder, q, pixels, bpl);
        return image;
    }
    std::vector<std::thread> workers;
    workers.reserve(threads - 1);
    const int band = (outH + threads - 1) / threads;
    for (int t = 1; t < threads; ++t) {
        const int y0 = t * band;
        const int y1 = std::min(outH, y0 + band);
        if (y0 >= y1)
            break;
        workers.emplace_back([&, y0, y1] { rows(samples, width, y0, y1, outW, bayerOrder, q, pixels, bpl); });
    }
    rows(samples, width, 0, std::min(outH, band), outW, bayerOrder, q, pixels, bpl);
    for (std::thread &w : workers)
        w.join();
    return image;
}

} // namespace kestro
