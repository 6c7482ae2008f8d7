#include "measure/uniformity/uniformityimage.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <thread>

namespace kestro {

const char *uniformityChannelName(UniformityChannel channel)
{
    switch (channel) {
    case UniformityChannel::Y:
        return "Y";
    case UniformityChannel::R:
        return "R";
    case UniformityChannel::G:
        return "G";
    case UniformityChannel::B:
        return "B";
    }
    return "";
}

UniformityImage::UniformityImage(const QImage &image)
{
    if (!image.isNull() && isSupportedFormat(image.format()))
        m_image = image;
}

bool UniformityImage::isSupportedFormat(QImage::Format format)
{
    return format == QImage::Format_RGB32 || format == QImage::Format_ARGB32
           || format == QImage::Format_ARGB32_Premultiplied;
}

bool UniformityImage::isValidSubsample(int size, int width, int height)
{
    return size >= 1 && size <= std::min(width / 8, height / 8);
}

int UniformityImage::zoneStart(int k, int n, int length)
{
    return static_cast<int>(static_cast<long long>(k) * length / n);
}

namespace {

// Luminance weights of the channel plane. The products are tabulated; each
// entry is the same double as the product computed at run time.
struct LumaTables
{
    double r[256];
    double g[256];
    double b[256];
    LumaTables()
    {
        for (int v = 0; v < 256; ++v) {
            const double d = v;
            g[v] = 0.587 * d;
            r[v] = 0.299 * d;
            b[v] = 0.114 * d;
        }
    }
};
const LumaTables kLuma;

inline double lumaOf(std::uint32_t p)
{
    return (kLuma.g[(p >> 8) & 0xFF] + kLuma.r[(p >> 16) & 0xFF]) + kLuma.b[p & 0xFF];
}

// Exact sums of luminance values. Every luminance value is 0 or at least
// 0.114 > 2^-4 and below 256, so it is a multiple of 2^-56. Rounding it to a
// multiple of 2^-20 (by adding and subtracting 1.5 * 2^32) splits it exactly
// into a high part (multiple of 2^-20, below 2^8) and a low part (multiple of
// 2^-56, magnitude at most 2^-21). Over a chunk of at most 2^16 pixels both
// partial sums stay exact in doubles (44 and 51 significant bits); they are
// then carried as integers in units of 2^-20 and 2^-56.
constexpr double kSplitMagic = 6442450944.0; // 1.5 * 2^32
constexpr int kChunk = 65536;
constexpr double kTwo20 = 1048576.0;
constexpr double kTwo56 = 72057594037927936.0;

struct SegmentSums
{
    std::uint64_t r = 0;
    std::uint64_t g = 0;
    std::uint64_t b = 0;
    std::int64_t yHigh = 0; // units of 2^-20
    std::int64_t yLow = 0;  // units of 2^-56
};

inline void splitLuma(std::uint32_t p, double &high, double &low)
{
    const double y = lumaOf(p);
    const double h = (y + kSplitMagic) - kSplitMagic;
    high += h;
    low += y - h;
}

template <bool WithLuma>
void sumSegment(const std::uint32_t *p, int n, SegmentSums &s)
{
    while (n > 0) {
        const int m = std::min(n, kChunk);
        std::uint32_t r = 0, g = 0, b = 0;
        double h0 = 0, h1 = 0, h2 = 0, h3 = 0, l0 = 0, l1 = 0, l2 = 0, l3 = 0;
        int i = 0;
        for (; i + 4 <= m; i += 4) {
            const std::uint32_t p0 = p[i], p1 = p[i + 1], p2 = p[i + 2], p3 = p[i + 3];
            r += ((p0 >> 16) & 0xFF) + ((p1 >> 16) & 0xFF) + ((p2 >> 16) & 0xFF) + ((p3 >> 16) & 0xFF);
            g += ((p0 >> 8) & 0xFF) + ((p1 >> 8) & 0xFF) + ((p2 >> 8) & 0xFF) + ((p3 >> 8) & 0xFF);
            b += (p0 & 0xFF) + (p1 & 0xFF) + (p2 & 0xFF) + (p3 & 0xFF);
            if (WithLuma) {
                splitLuma(p0, h0, l0);
                splitLuma(p1, h1, l1);
                splitLuma(p2, h2, l2);
                splitLuma(p3, h3, l3);
            }
        }
        for (; i < m; ++i) {
            const std::uint32_t q = p[i];
            r += (q >> 16) & 0xFF;
            g += (q >> 8) & 0xFF;
            b += q & 0xFF;
            if (WithLuma)
                splitLuma(q, h0, l0);
        }
        s.r += r;
        s.g += g;
        s.b += b;
        if (WithLuma) {
            s.yHigh += std::llrint(((h0 + h1) + (h2 + h3)) * kTwo20);
            s.yLow += std::llrint(((l0 + l1) + (l2 + l3)) * kTwo56);
        }
        p += m;
        n -= m;
    }
}

struct PassSetup
{
    const std::uint8_t *bits = nullptr;
    std::size_t stride = 0;
    int width = 0;
    int height = 0;
    int size = 0; // subsample size; 0 without grids
    int cols = 0;
    int rows = 0;
    bool luma = false;
    double *out[4] = {nullptr, nullptr, nullptr, nullptr};
    int zoneRows = 0;
    int zoneCols = 0;
    std::vector<int> zoneX;   // zoneCols + 1 column starts
    std::vector<int> rowZone; // zone row of every pixel row
};

struct ZoneSums
{
    std::vector<std::uint64_t> r, g, b;
};

// Pixel rows [y0, y1); block rows that start in it are completed in it.
void runBand(const PassSetup &setup, int y0, int y1, ZoneSums &zones)
{
    const int s = setup.size;
    const int gridHeight = setup.rows * s;
    std::vector<SegmentSums> block(setup.size > 0 ? setup.cols : 0);
    const std::size_t zoneCount = static_cast<std::size_t>(setup.zoneRows) * setup.zoneCols;
    zones.r.assign(zoneCount, 0);
    zones.g.assign(zoneCount, 0);
    zones.b.assign(zoneCount, 0);

    for (int y = y0; y < y1; ++y) {
        const auto *row = reinterpret_cast<const std::uint32_t *>(setup.bits + setup.stride * y);
        if (s > 0 && y < gridHeight) {
            for (int bx = 0; bx < setup.cols; ++bx) {
                if (setup.luma)
                    sumSegment<true>(row + static_cast<std::size_t>(bx) * s, s, block[bx]);
                else
                    sumSegment<false>(row + static_cast<std::size_t>(bx) * s, s, block[bx]);
            }
            if (y % s == s - 1) {
                const int by = y / s;
                for (int bx = 0; bx < setup.cols; ++bx) {
                    SegmentSums &sums = block[bx];
                    const std::size_t index = static_cast<std::size_t>(bx) * setup.rows + by;
                    if (setup.out[0]) {
                        const __int128 total = (static_cast<__int128>(sums.yHigh) << 36) + sums.yLow;
                        const double sum = std::ldexp(static_cast<double>(total), -56);
                        setup.out[0][index] = sum / s / s;
                    }
                    if (setup.out[1])
                        setup.out[1][index] = static_cast<double>(sums.r) / s / s;
                    if (setup.out[2])
                        setup.out[2][index] = static_cast<double>(sums.g) / s / s;
                    if (setup.out[3])
                        setup.out[3][index] = static_cast<double>(sums.b) / s / s;
                    sums = SegmentSums();
                }
            }
        }
        if (zoneCount > 0) {
            const std::size_t base = static_cast<std::size_t>(setup.rowZone[y]) * setup.zoneCols;
            for (int zc = 0; zc < setup.zoneCols; ++zc) {
                SegmentSums sums;
                sumSegment<false>(row + setup.zoneX[zc], setup.zoneX[zc + 1] - setup.zoneX[zc], sums);
                zones.r[base + zc] += sums.r;
                zones.g[base + zc] += sums.g;
                zones.b[base + zc] += sums.b;
            }
        }
    }
}

} // namespace

double UniformityImage::pixelValue(UniformityChannel channel, int x, int y) const
{
    const auto p = reinterpret_cast<const std::uint32_t *>(m_image.constScanLine(y))[x];
    switch (channel) {
    case UniformityChannel::Y:
        return 0.587 * ((p >> 8) & 0xFF) + 0.299 * ((p >> 16) & 0xFF) + 0.114 * (p & 0xFF);
    case UniformityChannel::R:
        return (p >> 16) & 0xFF;
    case UniformityChannel::G:
        return (p >> 8) & 0xFF;
    case UniformityChannel::B:
        return p & 0xFF;
    }
    return 0.0;
}

const std::vector<double> &UniformityImage::plane(UniformityChannel channel) const
{
    std::lock_guard<std::mutex> guard(m_planeMutex);
    auto &slot = m_planes[static_cast<int>(channel)];
    if (slot)
        return *slot;
    auto plane = std::make_unique<std::vector<double>>();
    if (isValid()) {
        const int w = width();
        const int h = height();
        plane->resize(static_cast<std::size_t>(w) * h);
        double *out = plane->data();
        // Tiles of rows keep the transposed writes within a few cache lines.
        constexpr int kTile = 16;
        for (int y0 = 0; y0 < h; y0 += kTile) {
            const int y1 = std::min(h, y0 + kTile);
            for (int x = 0; x < w; ++x)
                for (int y = y0; y < y1; ++y)
                    out[static_cast<std::size_t>(x) * h + y] = pixelValue(channel, x, y);
        }
    }
    slot = std::move(plane);
    return *slot;
}

UniformityGrid UniformityImage::grid(UniformityChannel channel, int size) const
{
    UniformityPass pass = compute(size, uniformityChannelBit(channel));
    return std::move(pass.grids[static_cast<int>(channel)]);
}

UniformityPass UniformityImage::compute(int size, unsigned channelMask, int zoneRows, int zoneCols, int threads) const
{
    UniformityPass result;
    if (!isValid())
        return result;
    PassSetup setup;
    setup.bits = m_image.constBits();
    setup.stride = static_cast<std::size_t>(m_image.bytesPerLine());
    setup.width = width();
    setup.height = height();

    channelMask &= kAllUniformityChannels;
    if (channelMask != 0 && isValidSubsample(size, setup.width, setup.height)) {
        setup.size = size;
        setup.cols = setup.width / size;
        setup.rows = setup.height / size;
        setup.luma = (channelMask & uniformityChannelBit(UniformityChannel::Y)) != 0;
        for (int c = 0; c < 4; ++c) {
            if (channelMask & (1u << c)) {
                UniformityGrid &grid = result.grids[c];
                grid.cols = setup.cols;
                grid.rows = setup.rows;
                grid.values.assign(static_cast<std::size_t>(setup.cols) * setup.rows, 0.0);
                setup.out[c] = grid.values.data();
            }
        }
    }
    if (zoneRows >= 1 && zoneCols >= 1 && zoneRows <= setup.height && zoneCols <= setup.width) {
        setup.zoneRows = zoneRows;
        setup.zoneCols = zoneCols;
        setup.zoneX.resize(zoneCols + 1);
        for (int k = 0; k <= zoneCols; ++k)
            setup.zoneX[k] = zoneStart(k, zoneCols, setup.width);
        setup.rowZone.resize(setup.height);
        for (int k = 0; k < zoneRows; ++k)
            for (int y = zoneStart(k, zoneRows, setup.height); y < zoneStart(k + 1, zoneRows, setup.height); ++y)
                setup.rowZone[y] = k;
    }
    if (setup.size == 0 && setup.zoneRows == 0)
        return result;

    // Bands of whole block rows, so that no block is shared between threads;
    // the last band also takes the bottom strip for the zones.
    const long long pixels = static_cast<long long>(setup.width) * setup.height;
    int count = threads > 0 ? threads : static_cast<int>(std::thread::hardware_concurrency());
    count = std::clamp(count, 1, 16);
    if (pixels < (1 << 20))
        count = 1;
    const int units = setup.size > 0 ? setup.rows : setup.height;
    const int unitHeight = setup.size > 0 ? setup.size : 1;
    count = std::min(count, units);
    std::vector<int> starts(count + 1);
    for (int i = 0; i <= count; ++i)
        starts[i] = static_cast<int>(static_cast<long long>(units) * i / count) * unitHeight;
    starts[count] = setup.height;

    std::vector<ZoneSums> zoneSums(count);
    std::vector<std::thread> workers;
    for (int i = 1; i < count; ++i)
        workers.emplace_back([&, i] { runBand(setup, starts[i], starts[i + 1], zoneSums[i]); });
    runBand(setup, starts[0], starts[1], zoneSums[0]);
    for (std::thread &t : workers)
        t.join();

    if (setup.zoneRows > 0) {
        UniformityZoneMeans &zones = result.zones;
        zones.rows = setup.zoneRows;
        zones.cols = setup.zoneCols;
        const std::size_t n = static_cast<std::size_t>(zoneRows) * zoneCols;
        zones.red.resize(n);
        zones.green.resize(n);
        zones.blue.resize(n);
        for (int zr = 0; zr < zoneRows; ++zr) {
            const long long h = zoneStart(zr + 1, zoneRows, setup.height) - zoneStart(zr, zoneRows, setup.height);
            for (int zc = 0; zc < zoneCols; ++zc) {
                const std::size_t k = static_cast<std::size_t>(zr) * zoneCols + zc;
                std::uint64_t r = 0, g = 0, b = 0;
                for (const ZoneSums &part : zoneSums) {
                    r += part.r[k];
                    g += part.g[k];
                    b += part.b[k];
                }
                const double area = static_cast<double>(h * (setup.zoneX[zc + 1] - setup.zoneX[zc]));
                zones.red[k] = static_cast<double>(r) / area;
                zones.green[k] = static_cast<double>(g) / area;
                zones.blue[k] = static_cast<double>(b) / area;
            }
        }
    }
    return result;
}

} // namespace kestro
