#pragma once
// The pixels of a flat-field image as the uniformity measurement reads them:
// 32-bit RGB, ARGB or premultiplied ARGB, bytes in memory order B, G, R, A.
// The grids and the CPIQ zone means come from one pass over the pixel bytes,
// split over the worker pool, without copying the image or building a plane
// of channel values.

#include <QImage>
#include <QString>
#include <array>
#include <vector>

namespace kestro {

enum class UniformityChannel { Y = 0, R = 1, G = 2, B = 3 };

// Channel name "Y", "R", "G" or "B".
const char *uniformityChannelName(UniformityChannel channel);

// Bit of a channel in a channel mask.
constexpr unsigned uniformityChannelBit(UniformityChannel channel)
{
    return 1u << static_cast<unsigned>(channel);
}
constexpr unsigned kAllUniformityChannels = 0xFu;

// A subsampled grid: cols * rows block means, column-major.
struct UniformityGrid
{
    int cols = 0;
    int rows = 0;
    std::vector<double> values;
};

// Mean 8-bit R, G, B of each zone of a zone grid (row-major: index =
// row * cols + column), on the 0..255 scale.
struct UniformityZoneMeans
{
    int rows = 0;
    int cols = 0;
    std::vector<double> red;
    std::vector<double> green;
    std::vector<double> blue;
};

// Result of one pass: the grids of the asked channels (others stay empty)
// and, when zones were asked for, the zone means.
struct UniformityPass
{
    std::array<UniformityGrid, 4> grids;
    UniformityZoneMeans zones;
};

enum class UniformityKernels { Vector, Reference };

class UniformityImage
{
public:
    UniformityImage() = default;
    // Shares the picture (no pixel copy). A picture in any other pixel format
    // than 32-bit RGB / ARGB / premultiplied ARGB gives an invalid object.
    explicit UniformityImage(const QImage &image);

    static bool isSupportedFormat(QImage::Format format);
    // Valid subsample sizes are 1 to min(width / 8, height / 8).
    static bool isValidSubsample(int size, int width, int height);
    // Zone k of n along a side of `length` pixels spans
    // [floor(k length / n), floor((k + 1) length / n)).
    static int zoneStart(int k, int n, int length);

    bool isValid() const { return !m_image.isNull(); }
    int width() const { return m_image.width(); }
    int height() const { return m_image.height(); }
    const QImage &image() const { return m_image; }

    // Grid of one channel: each value the mean of its s x s block of channel
    // values, computed exactly from integer sums and rounded once (for Y from
    // the exact decimal weights), so it is the block's true mean to the last
    // digit. A right or bottom strip narrower than s is dropped. Empty grid
    // for an invalid size or image.
    UniformityGrid grid(UniformityChannel channel, int size) const;

    // One pass for the channels in `channelMask` (grids need a valid size)
    // and, when zoneRows and zoneCols are positive and fit the image, the
    // zone means, in at most `threads` bands on the worker pool (1: on the
    // calling thread alone; <= 0: one band per pool thread). The results are
    // the same for any banding.
    UniformityPass compute(int size, unsigned channelMask, int zoneRows = 0, int zoneCols = 0,
                           int threads = 0) const;
    // The same pass into `pass`, reusing the memory its vectors already hold:
    // a recompute of a grid of the same size writes over the previous one
    // instead of faulting in fresh pages. Same results as above.
    // `kernels` chooses the vector inner loops or their scalar references
    // (for tests and benchmarks; the results are the same).
    void compute(UniformityPass &pass, int size, unsigned channelMask, int zoneRows = 0,
                 int zoneCols = 0, int threads = 0,
                 UniformityKernels kernels = UniformityKernels::Vector) const;

private:
    QImage m_image;
};

} // namespace kestro
