#include "measure/uniformity/uniformitykernels.h"

namespace kestro::uniformitykernels {

// The references must stay scalar, or the benchmark would compare two vector
// forms: the compiler is told not to vectorise their loops.
#if defined(__clang__)
#define KESTRO_SCALAR_FUNCTION
#define KESTRO_SCALAR_LOOP _Pragma("clang loop vectorize(disable) interleave(disable)")
#elif defined(__GNUC__)
#define KESTRO_SCALAR_FUNCTION __attribute__((optimize("no-tree-vectorize")))
#define KESTRO_SCALAR_LOOP
#else
#define KESTRO_SCALAR_FUNCTION
#define KESTRO_SCALAR_LOOP
#endif

namespace {

// N rows in one pass over the accumulators, one plain function per N so that
// the compiler unrolls the rows and vectorises the columns.
#define KESTRO_ADD_ROWS(N) \
    __attribute__((target_clones("avx2", "default"))) void addRows##N(const std::uint8_t *src, \
                                                                      std::size_t stride, \
                                                                      std::uint16_t *acc, \
                                                                      int count) \
    { \
        for (int i = 0; i < count; ++i) { \
            unsigned sum = 0; \
            for (int k = 0; k < N; ++k) \
                sum += src[k * stride + i]; \
            acc[i] = static_cast<std::uint16_t>(acc[i] + sum); \
        } \
    }
KESTRO_ADD_ROWS(1)
KESTRO_ADD_ROWS(2)
KESTRO_ADD_ROWS(4)
KESTRO_ADD_ROWS(8)
#undef KESTRO_ADD_ROWS

} // namespace

void addRows(const std::uint8_t *src, std::size_t stride, int rows, std::uint16_t *acc, int count)
{
    int y = 0;
    for (; y + 8 <= rows; y += 8)
        addRows8(src + stride * y, stride, acc, count);
    if (y + 4 <= rows) {
        addRows4(src + stride * y, stride, acc, count);
        y += 4;
    }
    if (y + 2 <= rows) {
        addRows2(src + stride * y, stride, acc, count);
        y += 2;
    }
    if (y < rows)
        addRows1(src + stride * y, stride, acc, count);
}

KESTRO_SCALAR_FUNCTION
void addRowsReference(const std::uint8_t *src, std::size_t stride, int rows, std::uint16_t *acc,
                      int count)
{
    for (int y = 0; y < rows; ++y) {
        const std::uint8_t *row = src + stride * y;
        KESTRO_SCALAR_LOOP
        for (int i = 0; i < count; ++i)
            acc[i] = static_cast<std::uint16_t>(acc[i] + row[i]);
    }
}

// The arrays do not overlap, so the divisions run side by side in vector
// lanes; a division rounds the same in a lane as alone.
__attribute__((target_clones("avx2", "default"))) void blockMeans(
        const double *__restrict sumR, const double *__restrict sumG, const double *__restrict sumB,
        int count, double area, double lumaScale, double *__restrict y, double *__restrict r,
        double *__restrict g, double *__restrict b)
{
    for (int i = 0; i < count; ++i) {
        // 587 G + 299 R + 114 B is a whole number below 2^53: exact.
        y[i] = (587.0 * sumG[i] + 299.0 * sumR[i] + 114.0 * sumB[i]) / lumaScale;
        r[i] = sumR[i] / area;
        g[i] = sumG[i] / area;
        b[i] = sumB[i] / area;
    }
}

KESTRO_SCALAR_FUNCTION
void blockMeansReference(const double *sumR, const double *sumG, const double *sumB, int count,
                         double area, double lumaScale, double *y, double *r, double *g, double *b)
{
    KESTRO_SCALAR_LOOP
    for (int i = 0; i < count; ++i) {
        y[i] = (587.0 * sumG[i] + 299.0 * sumR[i] + 114.0 * sumB[i]) / lumaScale;
        r[i] = sumR[i] / area;
        g[i] = sumG[i] / area;
        b[i] = sumB[i] / area;
    }
}

} // namespace kestro::uniformitykernels
