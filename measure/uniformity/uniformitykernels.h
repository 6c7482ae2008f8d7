#pragma once
// The inner loops of the uniformity pass. Each comes in a vector form (built
// for AVX2 and for the baseline, chosen at run time, or written with vector
// types) and a plain scalar reference that computes the same numbers one
// element at a time. The pass uses the vector forms; the references are what
// the tests compare them with and what the benchmark measures them against.

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kestro::uniformitykernels {

// acc[i] += src[i] + src[stride + i] + ... over `rows` rows, for i < count,
// in 16-bit arithmetic (the caller keeps the totals below 2^16).
void addRows(const std::uint8_t *src, std::size_t stride, int rows, std::uint16_t *acc, int count);
void addRowsReference(const std::uint8_t *src, std::size_t stride, int rows, std::uint16_t *acc,
                      int count);

// Sums of the four 16-bit lanes of the columns [x0, x1) of `lanes` (4 lanes
// per column), at most 65536 columns so that the sums fit 32 bits.
struct LaneSums
{
    std::uint32_t lane[4];
};

inline LaneSums sumColumns(const std::uint16_t *lanes, int x0, int x1)
{
    typedef std::uint32_t U32x4 __attribute__((vector_size(16)));
    typedef std::uint16_t U16x4 __attribute__((vector_size(8)));
    U32x4 sum = {0, 0, 0, 0};
    for (int x = x0; x < x1; ++x) {
        U16x4 v;
        std::memcpy(&v, lanes + 4 * static_cast<std::ptrdiff_t>(x), sizeof v);
        sum += __builtin_convertvector(v, U32x4);
    }
    return {{sum[0], sum[1], sum[2], sum[3]}};
}

LaneSums sumColumnsReference(const std::uint16_t *lanes, int x0, int x1);

// Means of one row of blocks from their R, G, B sums: Y = (587 G + 299 R +
// 114 B) / lumaScale and R, G, B = sum / area, each the exact quotient
// rounded once. The arrays must not overlap.
void blockMeans(const double *sumR, const double *sumG, const double *sumB, int count, double area,
                double lumaScale, double *y, double *r, double *g, double *b);
void blockMeansReference(const double *sumR, const double *sumG, const double *sumB, int count,
                         double area, double lumaScale, double *y, double *r, double *g, double *b);

} // namespace kestro::uniformitykernels
