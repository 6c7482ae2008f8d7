#pragma once
// The inner loops of the uniformity pass. Those that the benchmark shows
// faster as vector code come in a vector form (built for AVX2 and for the
// baseline, chosen at run time) and a plain scalar reference that computes
// the same numbers one element at a time. The pass uses the vector forms;
// the references are what the tests compare them with and what the benchmark
// measures them against.

#include <cstddef>
#include <cstdint>

namespace kestro::uniformitykernels {

// acc[i] += src[i] + src[stride + i] + ... over `rows` rows, for i < count,
// in 16-bit arithmetic (the caller keeps the totals below 2^16).
void addRows(const std::uint8_t *src, std::size_t stride, int rows, std::uint16_t *acc, int count);
void addRowsReference(const std::uint8_t *src, std::size_t stride, int rows, std::uint16_t *acc,
                      int count);

// Sums of the four 16-bit lanes of the columns [x0, x1) of `lanes` (4 lanes
// per column), at most 65536 columns so that the sums fit 32 bits. One plain
// form: it runs once per block and row group, and a vector form measured no
// faster in the benchmark.
struct LaneSums
{
    std::uint32_t lane[4];
};

inline LaneSums sumColumns(const std::uint16_t *lanes, int x0, int x1)
{
    LaneSums sums{{0, 0, 0, 0}};
    for (int x = x0; x < x1; ++x)
        for (int k = 0; k < 4; ++k)
            sums.lane[k] += lanes[4 * static_cast<std::ptrdiff_t>(x) + k];
    return sums;
}

// Means of one row of blocks from their R, G, B sums: Y = (587 G + 299 R +
// 114 B) / lumaScale and R, G, B = sum / area, each the exact quotient
// rounded once. The arrays must not overlap.
void blockMeans(const double *sumR, const double *sumG, const double *sumB, int count, double area,
                double lumaScale, double *y, double *r, double *g, double *b);
void blockMeansReference(const double *sumR, const double *sumG, const double *sumB, int count,
                         double area, double lumaScale, double *y, double *r, double *g, double *b);

} // namespace kestro::uniformitykernels
