#include "measure/uniformity/uniformityimage.h"

#include "imaging/parallel.h"
#include "measure/uniformity/uniformitykernels.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

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

// Rows summed in 16-bit lanes before they are flushed (255 * 256 < 2^16).
constexpr int kMaxPending = 256;
// Columns are taken in strips so that a strip's accumulators stay in the
// first-level cache while its rows go by.
constexpr int kStrip = 512;

struct PassSetup
{
    const std::uint8_t *bits = nullptr;
    std::size_t stride = 0;
    int width = 0;
    int height = 0;
    int size = 0; // subsample size; 0 without grids
    int cols = 0;
    int rows = 0;
    double *out[4] = {nullptr, nullptr, nullptr, nullptr};
    int zoneRows = 0;
    int zoneCols = 0;
    std::vector<int> zoneX;   // zoneCols + 1 column starts
    std::vector<int> zoneY;   // zoneRows + 1 row starts
    std::vector<int> rowZone; // zone row of every pixel row
};

struct ZoneSums
{
    std::vector<std::uint64_t> r, g, b;
};

// A run of columns inside one block (or none, -1) and one zone (or none).
struct Segment
{
    int x0;
    int x1;
    int block;
    int zone;
};

// Columns [0, used) cut at block edges (up to gridWidth) and, with zoneCut,
// at zone edges; no piece is longer than 65536 columns.
std::vector<Segment> cutColumns(const PassSetup &setup, int used, int gridWidth, bool zoneCut)
{
    std::vector<Segment> segments;
    int bx = 0;
    int zc = 0;
    for (int x = 0; x < used;) {
        int next = std::min(used, x + 65536);
        if (x < gridWidth)
            next = std::min(next, (bx + 1) * setup.size);
        if (zoneCut)
            next = std::min(next, setup.zoneX[zc + 1]);
        segments.push_back({x, next, x < gridWidth ? bx : -1, zoneCut ? zc : -1});
        x = next;
        if (x <= gridWidth && x == (bx + 1) * setup.size)
            ++bx;
        if (zoneCut && x == setup.zoneX[zc + 1])
            ++zc;
    }
    return segments;
}

// The pass with the vector kernels, or with their scalar references.
struct VectorKernels
{
    static constexpr auto addRows = &uniformitykernels::addRows;
    static constexpr auto blockMeans = &uniformitykernels::blockMeans;
};

struct ReferenceKernels
{
    static constexpr auto addRows = &uniformitykernels::addRowsReference;
    static constexpr auto blockMeans = &uniformitykernels::blockMeansReference;
};

// Pixel rows [y0, y1), which start on a block row. Rows are summed down the
// columns in groups that end with a block row, a zone row or kMaxPending
// rows, and each group is then added to its blocks and zones.
template<class Kernels>
void runBand(const PassSetup &setup, int y0, int y1, ZoneSums &zones)
{
    const int s = setup.size;
    const int w = setup.width;
    const int gridHeight = setup.rows * s;
    const std::size_t zoneCount = static_cast<std::size_t>(setup.zoneRows) * setup.zoneCols;
    zones.r.assign(zoneCount, 0);
    zones.g.assign(zoneCount, 0);
    zones.b.assign(zoneCount, 0);

    std::vector<std::uint16_t> lanes(static_cast<std::size_t>(w) * 4, 0);
    // Block sums of the current block row; whole numbers below 2^53, so
    // exact in doubles.
    const std::size_t blockCount = s > 0 ? static_cast<std::size_t>(setup.cols) : 0;
    std::vector<double> blockR(blockCount, 0.0), blockG(blockCount, 0.0), blockB(blockCount, 0.0);
    const double area = static_cast<double>(s) * s;
    const double lumaScale = 1000.0 * area;
    constexpr int kTileRows = 8;
    std::array<std::vector<double>, 4> tile;
    for (auto &t : tile)
        t.resize(s > 0 ? static_cast<std::size_t>(setup.cols) * kTileRows : 0);
    int tileStart = 0;
    int tileRows = 0;
    auto flushTile = [&] {
        for (int c = 0; c < 4 && tileRows > 0; ++c) {
            if (!setup.out[c])
                continue;
            for (int bx = 0; bx < setup.cols; ++bx) {
                double *to = setup.out[c] + static_cast<std::size_t>(bx) * setup.rows + tileStart;
                const double *from = tile[c].data() + bx;
                for (int j = 0; j < tileRows; ++j)
                    to[j] = from[static_cast<std::size_t>(j) * setup.cols];
            }
        }
        tileRows = 0;
    };

    const int gridWidth = setup.cols * s;
    const std::vector<Segment> cutGrid = s > 0 ? cutColumns(setup, gridWidth, gridWidth, false)
                                               : std::vector<Segment>();
    const std::vector<Segment> cutGridZones = s > 0 && zoneCount > 0
                                                      ? cutColumns(setup, w, gridWidth, true)
                                                      : std::vector<Segment>();
    const std::vector<Segment> cutZones = zoneCount > 0 ? cutColumns(setup, w, 0, true)
                                                        : std::vector<Segment>();

    for (int first = y0; first < y1;) {
        const bool inGrid = s > 0 && first < gridHeight;
        const bool inZones = zoneCount > 0;
        if (!inGrid && !inZones)
            break;
        int end = std::min(y1, first + kMaxPending);
        if (inGrid)
            end = std::min(end, (first / s + 1) * s);
        if (inZones)
            end = std::min(end, setup.zoneY[setup.rowZone[first] + 1]);
        // Only the columns that something uses.
        const int used = inZones ? w : setup.cols * s;
        for (int x0 = 0; x0 < used; x0 += kStrip) {
            const int n = std::min(kStrip, used - x0);
            const std::uint8_t *column = setup.bits + 4 * static_cast<std::size_t>(x0);
            std::uint16_t *acc = lanes.data() + 4 * static_cast<std::size_t>(x0);
            Kernels::addRows(column + setup.stride * first, setup.stride, end - first, acc, 4 * n);
        }
        const int last = end - 1;
        first = end;

        // One walk over the columns, cut at block and zone edges: each piece
        // is added to its block and to its zone.
        const std::vector<Segment> &segments = inGrid ? (inZones ? cutGridZones : cutGrid)
                                                      : cutZones;
        const std::size_t zoneBase = inZones ? static_cast<std::size_t>(setup.rowZone[last])
                                                       * setup.zoneCols
                                             : 0;
        for (const Segment &segment : segments) {
            const uniformitykernels::LaneSums sum = uniformitykernels::sumColumns(lanes.data(),
                                                                                  segment.x0,
                                                                                  segment.x1);
            if (segment.block >= 0) {
                blockB[segment.block] += sum.lane[0];
                blockG[segment.block] += sum.lane[1];
                blockR[segment.block] += sum.lane[2];
            }
            if (segment.zone >= 0) {
                zones.b[zoneBase + segment.zone] += sum.lane[0];
                zones.g[zoneBase + segment.zone] += sum.lane[1];
                zones.r[zoneBase + segment.zone] += sum.lane[2];
            }
        }
        std::memset(lanes.data(), 0, lanes.size() * sizeof(std::uint16_t));

        if (inGrid && end % s == 0) {
            // A block row is complete: each mean is its exact value rounded
            // once (all numerators and denominators are exact doubles). The
            // means wait in a row-major tile of kTileRows block rows, which
            // then goes to the column-major grids in runs of kTileRows.
            const int by = last / s;
            if (tileRows == 0)
                tileStart = by;
            const std::size_t row = static_cast<std::size_t>(tileRows) * setup.cols;
            Kernels::blockMeans(blockR.data(), blockG.data(), blockB.data(), setup.cols, area,
                                lumaScale, tile[0].data() + row, tile[1].data() + row,
                                tile[2].data() + row, tile[3].data() + row);
            std::fill(blockR.begin(), blockR.end(), 0.0);
            std::fill(blockG.begin(), blockG.end(), 0.0);
            std::fill(blockB.begin(), blockB.end(), 0.0);
            if (++tileRows == kTileRows || end == gridHeight || end >= y1)
                flushTile();
        }
    }
    flushTile();
}

} // namespace

UniformityGrid UniformityImage::grid(UniformityChannel channel, int size) const
{
    UniformityPass pass = compute(size, uniformityChannelBit(channel));
    return std::move(pass.grids[static_cast<int>(channel)]);
}

UniformityPass UniformityImage::compute(int size, unsigned channelMask, int zoneRows, int zoneCols,
                                        int threads) const
{
    UniformityPass result;
    compute(result, size, channelMask, zoneRows, zoneCols, threads);
    return result;
}

void UniformityImage::compute(UniformityPass &result, int size, unsigned channelMask, int zoneRows,
                              int zoneCols, int threads, UniformityKernels kernels) const
{
    // Everything not computed is left empty; the memory stays for reuse.
    // Grids that are computed are resized, not cleared, so that a grid of
    // the same size is not zeroed before it is written over.
    struct ClearUnused
    {
        UniformityPass &pass;
        ~ClearUnused()
        {
            for (UniformityGrid &grid : pass.grids)
                if (grid.cols == 0)
                    grid.values.clear();
            if (pass.zones.rows == 0) {
                pass.zones.cols = 0;
                pass.zones.red.clear();
                pass.zones.green.clear();
                pass.zones.blue.clear();
            }
        }
    } clearUnused{result};
    for (UniformityGrid &grid : result.grids) {
        grid.cols = 0;
        grid.rows = 0;
    }
    result.zones.rows = 0;
    if (!isValid())
        return;
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
        for (int c = 0; c < 4; ++c) {
            if (channelMask & (1u << c)) {
                UniformityGrid &grid = result.grids[c];
                grid.cols = setup.cols;
                grid.rows = setup.rows;
            }
        }
    }
    if (zoneRows >= 1 && zoneCols >= 1 && zoneRows <= setup.height && zoneCols <= setup.width) {
        setup.zoneRows = zoneRows;
        setup.zoneCols = zoneCols;
        setup.zoneX.resize(zoneCols + 1);
        for (int k = 0; k <= zoneCols; ++k)
            setup.zoneX[k] = zoneStart(k, zoneCols, setup.width);
        setup.zoneY.resize(zoneRows + 1);
        for (int k = 0; k <= zoneRows; ++k)
            setup.zoneY[k] = zoneStart(k, zoneRows, setup.height);
        setup.rowZone.resize(setup.height);
        for (int k = 0; k < zoneRows; ++k)
            for (int y = zoneStart(k, zoneRows, setup.height);
                 y < zoneStart(k + 1, zoneRows, setup.height); ++y)
                setup.rowZone[y] = k;
    }
    if (setup.size == 0 && setup.zoneRows == 0)
        return;

    // Bands of whole block rows, so that no block is shared between bands;
    // the last band also takes the bottom strip for the zones. Zone sums are
    // integers, added up per band and then over the bands, so the results do
    // not depend on the banding.
    const long long pixels = static_cast<long long>(setup.width) * setup.height;
    int count = threads > 0 ? threads : parallelThreadCount();
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

    // Fresh memory for the grids is first touched (page by page) by the
    // pool, one channel per part; memory kept from an earlier pass is simply
    // written over.
    if (setup.size > 0) {
        const std::size_t cells = static_cast<std::size_t>(setup.cols) * setup.rows;
        bool fresh = false;
        for (int c = 0; c < 4; ++c)
            fresh |= (channelMask & (1u << c)) && result.grids[c].values.capacity() < cells;
        const int parts = fresh && count > 1 ? 4 : 1;
        parallelFor(parts, [&](int part) {
            for (int c = part; c < 4; c += parts)
                if (channelMask & (1u << c))
                    result.grids[c].values.resize(cells);
        });
        for (int c = 0; c < 4; ++c)
            if (channelMask & (1u << c))
                setup.out[c] = result.grids[c].values.data();
    }

    std::vector<ZoneSums> zoneSums(count);
    parallelFor(count, [&](int i) {
        if (kernels == UniformityKernels::Vector)
            runBand<VectorKernels>(setup, starts[i], starts[i + 1], zoneSums[i]);
        else
            runBand<ReferenceKernels>(setup, starts[i], starts[i + 1], zoneSums[i]);
    });

    if (setup.zoneRows > 0) {
        UniformityZoneMeans &zones = result.zones;
        zones.rows = setup.zoneRows;
        zones.cols = setup.zoneCols;
        const std::size_t n = static_cast<std::size_t>(zoneRows) * zoneCols;
        zones.red.resize(n);
        zones.green.resize(n);
        zones.blue.resize(n);
        for (int zr = 0; zr < zoneRows; ++zr) {
            const long long h = zoneStart(zr + 1, zoneRows, setup.height)
                                - zoneStart(zr, zoneRows, setup.height);
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
}

} // namespace kestro
