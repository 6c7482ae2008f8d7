#include "imaging/demosaic.h"

#include "imaging/parallel.h"

#include <algorithm>
#include <cstdlib>
#if defined(__linux__)
#include <sys/mman.h>
#endif
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

// The rows are processed in two phases: the even output columns, then the
// odd ones. Each mosaic row is first split into its even and odd columns
// (widened to 32 bits), so that every tap of a phase reads consecutive
// elements and the arithmetic vectorises.
//
// The kernels are scaled by 16 (the published kernels times 1/8, times 16),
// so every coefficient is an integer and every kernel sums to 16; with
// n = sum - 16 * black and D = 16 * (full scale - black) the channel is
// floor(clamp(n / D, 0, 1) * 255 + 1/2), computed exactly (Quantiser).

#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__)
#define KESTRO_DEMOSAIC_CLONES __attribute__((target_clones("avx2", "default"), flatten))
#else
#define KESTRO_DEMOSAIC_CLONES
#endif

struct Phase
{
    const std::int32_t *same[5];  // columns of the centre's parity, element j + 1 = centre
    const std::int32_t *other[5]; // the other parity, elements j and j + 1 = left and right
};

// Exact floor(255 n / D + 1/2) for n in 0..D: a float estimate, then one
// integer correction step (the estimate is off by at most one, near ties).
struct Quantiser
{
    float scale; // 255 / D
    int range;   // D
    int twice;   // 2 D
    inline std::uint32_t operator()(int n) const
    {
        n = std::min(std::max(n, 0), range);
        int q = static_cast<int>(static_cast<float>(n) * scale + 0.5f);
        const int num = 510 * n + range;
        q -= static_cast<int>(twice * q > num);
        q += static_cast<int>(twice * (q + 1) <= num);
        return static_cast<std::uint32_t>(q);
    }
};

// Pixels of n centres of position class P: the three kernel sums, offset by
// 16 * black and quantised.
template<int P>
inline void phasePixels(const Phase &ph, int n, int offset, const Quantiser &q,
                        std::uint32_t *__restrict out)
{
    const std::int32_t *__restrict s0 = ph.same[0];
    const std::int32_t *__restrict s1 = ph.same[1];
    const std::int32_t *__restrict s2 = ph.same[2];
    const std::int32_t *__restrict s3 = ph.same[3];
    const std::int32_t *__restrict s4 = ph.same[4];
    const std::int32_t *__restrict t1 = ph.other[1];
    const std::int32_t *__restrict t2 = ph.other[2];
    const std::int32_t *__restrict t3 = ph.other[3];
    for (int j = 0; j < n; ++j) {
        const int c = s2[j + 1];
        const int hn = t2[j] + t2[j + 1];                     // left and right neighbours
        const int h2 = s2[j] + s2[j + 2];                     // two to the left and right
        const int vn = s1[j + 1] + s3[j + 1];                 // above and below
        const int v2 = s0[j + 1] + s4[j + 1];                 // two above and below
        const int dg = t1[j] + t1[j + 1] + t3[j] + t3[j + 1]; // diagonals
        const int identity = 16 * c;
        const int greenAt = 8 * c + 4 * (hn + vn) - 2 * (h2 + v2);
        const int alongRow = 10 * c + 8 * hn - 2 * h2 - 2 * dg + v2;
        const int alongColumn = 10 * c + 8 * vn - 2 * v2 - 2 * dg + h2;
        const int cross = 12 * c + 4 * dg - 3 * (h2 + v2);
        int vr, vg, vb;
        if constexpr (P == 0) {
            vr = alongRow, vg = identity, vb = alongColumn;
        } else if constexpr (P == 1) {
            vr = identity, vg = greenAt, vb = cross;
        } else if constexpr (P == 2) {
            vr = cross, vg = greenAt, vb = identity;
        } else {
            vr = alongColumn, vg = identity, vb = alongRow;
        }
        out[j] = 0xff000000u | (q(vr - offset) << 16) | (q(vg - offset) << 8) | q(vb - offset);
    }
}

inline void pixelsFor(int cls, const Phase &ph, int n, int offset, const Quantiser &q,
                      std::uint32_t *out)
{
    switch (cls) {
    case 0:
        phasePixels<0>(ph, n, offset, q, out);
        break;
    case 1:
        phasePixels<1>(ph, n, offset, q, out);
        break;
    case 2:
        phasePixels<2>(ph, n, offset, q, out);
        break;
    default:
        phasePixels<3>(ph, n, offset, q, out);
        break;
    }
}

struct Band
{
    const std::int16_t *samples;          // signed samples, or
    const std::uint16_t *unsignedSamples; // unsigned ones, clamped to full scale
    int full;
    int pitch;     // samples per mosaic row
    int halfWidth; // even width / 2
    int outWidth;
    int order;
    int offset;
    Quantiser quantiser;
    uchar *pixels;
    qsizetype bytesPerLine;
};

// Scratch: 5 split rows (even and odd halves) and one row of pixels per phase.
struct Scratch
{
    std::vector<std::int32_t> split;   // 5 * 2 * halfWidth
    std::vector<std::uint32_t> pixels; // 2 * halfWidth: even, then odd columns
    int rowInSlot[5] = {-1, -1, -1, -1, -1};
    std::uint16_t top = 0; // largest unsigned sample split so far
};

KESTRO_DEMOSAIC_CLONES
void splitRow(const std::int16_t *__restrict src, int halfWidth, std::int32_t *__restrict even,
              std::int32_t *__restrict odd)
{
    for (int k = 0; k < halfWidth; ++k) {
        even[k] = src[2 * k];
        odd[k] = src[2 * k + 1];
    }
}

// Also returns the largest sample of the row as it was read, so that the
// caller learns whether anything was above full scale without a pass of its
// own over the mosaic.
KESTRO_DEMOSAIC_CLONES
std::uint16_t splitRowClamped(const std::uint16_t *__restrict src, int halfWidth, int full,
                              std::int32_t *__restrict even, std::int32_t *__restrict odd)
{
    std::uint16_t top = 0;
    for (int k = 0; k < halfWidth; ++k) {
        const std::uint16_t a = src[2 * k];
        const std::uint16_t b = src[2 * k + 1];
        top = std::max(top, std::max(a, b));
        even[k] = std::min<std::int32_t>(a, full);
        odd[k] = std::min<std::int32_t>(b, full);
    }
    return top;
}

KESTRO_DEMOSAIC_CLONES
void rowPixels(int clsEven, int clsOdd, const Phase &evenPhase, const Phase &oddPhase, int nEven,
               int nOdd, int offset, const Quantiser &q, std::uint32_t *__restrict even,
               std::uint32_t *__restrict odd, std::uint32_t *__restrict out)
{
    pixelsFor(clsEven, evenPhase, nEven, offset, q, even);
    pixelsFor(clsOdd, oddPhase, nOdd, offset, q, odd);
    for (int j = 0; j < nOdd; ++j) {
        out[2 * j] = even[j];
        out[2 * j + 1] = odd[j];
    }
    if (nEven > nOdd)
        out[2 * (nEven - 1)] = even[nEven - 1];
}

void bandRows(const Band &band, int y0, int y1, Scratch &scratch)
{
    const int hw = band.halfWidth;
    const int nEven = (band.outWidth + 1) / 2;
    const int nOdd = band.outWidth / 2;
    std::uint32_t *px = scratch.pixels.data();
    for (int y = y0; y < y1; ++y) {
        Phase evenPhase, oddPhase;
        for (int k = 0; k < 5; ++k) {
            const int row = y + k;
            const int slot = row % 5;
            std::int32_t *even = scratch.split.data() + static_cast<size_t>(slot) * 2 * hw;
            std::int32_t *odd = even + hw;
            if (scratch.rowInSlot[slot] != row) {
                const size_t at = static_cast<size_t>(row) * band.pitch;
                if (band.samples)
                    splitRow(band.samples + at, hw, even, odd);
                else
                    scratch.top = std::max(scratch.top, splitRowClamped(band.unsignedSamples + at,
                                                                        hw, band.full, even, odd));
                scratch.rowInSlot[slot] = row;
            }
            // Even output x = 2j is centred on mosaic column 2j + 2 (even,
            // element j + 1); odd x = 2j + 1 on column 2j + 3 (odd, j + 1),
            // whose left neighbour is even column 2j + 2 (element j + 1).
            evenPhase.same[k] = even;
            evenPhase.other[k] = odd;
            oddPhase.same[k] = odd;
            oddPhase.other[k] = even + 1;
        }
        const int clsEven = kClassMap[band.order][2 * (y & 1)];
        const int clsOdd = kClassMap[band.order][1 + 2 * (y & 1)];
        auto *out = reinterpret_cast<std::uint32_t *>(band.pixels + y * band.bytesPerLine);
        rowPixels(clsEven, clsOdd, evenPhase, oddPhase, nEven, nOdd, band.offset, band.quantiser,
                  px, px + hw, out);
    }
}

// A large picture gets memory aligned to 2 MiB and marked for transparent
// huge pages where the system offers them: the first writes then fault in a
// few dozen pages instead of thousands.
QImage allocatePicture(int width, int height)
{
    const qsizetype bytesPerLine = static_cast<qsizetype>(width) * 4;
    const size_t bytes = static_cast<size_t>(bytesPerLine) * static_cast<size_t>(height);
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    constexpr size_t kHuge = size_t(2) << 20;
    if (bytes >= 4 * kHuge) {
        const size_t rounded = (bytes + kHuge - 1) / kHuge * kHuge;
        if (void *memory = std::aligned_alloc(kHuge, rounded)) {
            madvise(memory, rounded, MADV_HUGEPAGE);
            QImage image(
                    static_cast<uchar *>(memory), width, height, bytesPerLine, QImage::Format_RGB32,
                    [](void *p) { std::free(p); }, memory);
            if (!image.isNull())
                return image;
            std::free(memory);
        }
    }
#endif
    return QImage(width, height, QImage::Format_RGB32);
}

// Returns the largest unsigned sample the band read (0 for signed samples).
std::uint16_t runBand(const Band &band, int y0, int y1)
{
    Scratch scratch;
    scratch.split.resize(static_cast<size_t>(10) * band.halfWidth);
    scratch.pixels.resize(static_cast<size_t>(2) * band.halfWidth);
    bandRows(band, y0, y1, scratch);
    return scratch.top;
}

} // namespace

int bayerPositionClass(int bayerOrder, int x, int y)
{
    if (bayerOrder < 0 || bayerOrder > 3)
        bayerOrder = 0;
    return kClassMap[bayerOrder][(x & 1) + 2 * (y & 1)];
}

int quantiseChannel(int n, int range)
{
    if (range < 1)
        return 0;
    const Quantiser q{255.0f / static_cast<float>(range), range, 2 * range};
    return static_cast<int>(q(n));
}

namespace {

QImage demosaic(const std::int16_t *samples, const std::uint16_t *unsignedSamples, int width,
                int height, int bits, unsigned black, int bayerOrder, int threads,
                bool *withinFullScale)
{
    if (withinFullScale)
        *withinFullScale = false;
    if ((!samples && !unsignedSamples) || bits < 1 || bits > 16)
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
    QImage image = allocatePicture(outW, outH);
    if (image.isNull())
        return QImage();
    if (bayerOrder < 0 || bayerOrder > 3)
        bayerOrder = 0;

    const int range = 16 * (full - static_cast<int>(black));
    const Quantiser quantiser{255.0f / static_cast<float>(range), range, 2 * range};
    // Take the pixel memory once: scanLine() on the workers would race.
    const Band band{samples,
                    unsignedSamples,
                    full,
                    width,
                    evenW / 2,
                    outW,
                    bayerOrder,
                    16 * static_cast<int>(black),
                    quantiser,
                    image.bits(),
                    image.bytesPerLine()};

    // Bands of at least 64 rows, a few per pool thread so that the pool can
    // balance them; small pictures stay on the calling thread. Every band
    // writes its own rows, so the picture does not depend on the banding.
    if (threads <= 0)
        threads = 4 * parallelThreadCount();
    // Each band reports its largest sample in its own slot.
    const int bands = std::max(1, std::min({threads, 64, outH / 64}));
    std::vector<std::uint16_t> tops(static_cast<size_t>(bands), 0);
    parallelFor(bands, [&band, &tops, outH, bands](int part) {
        const int y0 = static_cast<int>(static_cast<long long>(outH) * part / bands);
        const int y1 = static_cast<int>(static_cast<long long>(outH) * (part + 1) / bands);
        tops[static_cast<size_t>(part)] = runBand(band, y0, y1);
    });
    if (withinFullScale)
        *withinFullScale = *std::max_element(tops.begin(), tops.end()) <= full;
    return image;
}

} // namespace

QImage demosaicToImage(const std::int16_t *samples, int width, int height, int bits, unsigned black,
                       int bayerOrder, int threads)
{
    if (!samples)
        return QImage();
    return demosaic(samples, nullptr, width, height, bits, black, bayerOrder, threads, nullptr);
}

QImage demosaicToImage(const std::uint16_t *samples, int width, int height, int bits,
                       unsigned black, int bayerOrder, int threads, bool *withinFullScale)
{
    if (withinFullScale)
        *withinFullScale = false;
    if (!samples)
        return QImage();
    return demosaic(nullptr, samples, width, height, bits, black, bayerOrder, threads,
                    withinFullScale);
}

} // namespace kestro
