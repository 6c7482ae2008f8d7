// The demosaic against a per-pixel computation written straight from the
// published kernel tables, exact in integers: the optimised, banded
// implementation must match it bit for bit.
#include "imaging/demosaic.h"
#include "imaging/parallel.h"

#include <QImage>
#include <atomic>
#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <stdexcept>
#include <vector>

using namespace kestro;

namespace {

// Kernels before the factor 1/8, as published.
using Kernel = double[5][5];
const Kernel kIdentity = {{0, 0, 0, 0, 0},
                          {0, 0, 0, 0, 0},
                          {0, 0, 8, 0, 0},
                          {0, 0, 0, 0, 0},
                          {0, 0, 0, 0, 0}};
const Kernel kGreen = {{0, 0, -1, 0, 0},
                       {0, 0, 2, 0, 0},
                       {-1, 2, 4, 2, -1},
                       {0, 0, 2, 0, 0},
                       {0, 0, -1, 0, 0}};
const Kernel kRow = {{0, 0, 0.5, 0, 0},
                     {0, -1, 0, -1, 0},
                     {-1, 4, 5, 4, -1},
                     {0, -1, 0, -1, 0},
                     {0, 0, 0.5, 0, 0}};
const Kernel kColumn = {{0, 0, -1, 0, 0},
                        {0, -1, 4, -1, 0},
                        {0.5, 0, 5, 0, 0.5},
                        {0, -1, 4, -1, 0},
                        {0, 0, -1, 0, 0}};
const Kernel kCross = {{0, 0, -1.5, 0, 0},
                       {0, 2, 0, 2, 0},
                       {-1.5, 0, 6, 0, -1.5},
                       {0, 2, 0, 2, 0},
                       {0, 0, -1.5, 0, 0}};

// [class][channel]
const Kernel *const kTable[4][3] = {
        {&kRow, &kIdentity, &kColumn},
        {&kIdentity, &kGreen, &kCross},
        {&kCross, &kGreen, &kIdentity},
        {&kColumn, &kIdentity, &kRow},
};
const int kMaps[4][4] = {{0, 1, 2, 3}, {1, 0, 3, 2}, {2, 3, 0, 1}, {3, 2, 1, 0}};

struct Mosaic
{
    int width, height, bits;
    unsigned black;
    std::vector<std::int16_t> samples;
};

Mosaic randomMosaic(int width, int height, int bits, unsigned black, unsigned seed)
{
    Mosaic m{width, height, bits, black, {}};
    std::mt19937 rng(seed);
    const int full = (1 << bits) - 1;
    std::uniform_int_distribution<int> value(0, full);
    std::uniform_int_distribution<int> pick(0, 19);
    m.samples.resize(static_cast<size_t>(width) * height);
    for (auto &s : m.samples) {
        // Mostly smooth values, some extremes so that clamping is exercised.
        const int p = pick(rng);
        s = static_cast<std::int16_t>(p == 0 ? 0 : p == 1 ? full : value(rng));
    }
    return m;
}

// Exact per-pixel byte: numerator over a common denominator, rounded once.
int exactByte(const Mosaic &m, int order, int x, int y, int channel)
{
    const int cls = kMaps[order][(x & 1) + 2 * (y & 1)];
    const Kernel &k = *kTable[cls][channel];
    const long long full = (1LL << m.bits) - 1;
    long long n = 0; // sum of 16 k/8 (s - black)
    for (int dy = -2; dy <= 2; ++dy)
        for (int dx = -2; dx <= 2; ++dx)
            n += static_cast<long long>(std::lround(k[dy + 2][dx + 2] * 2))
                 * (m.samples[static_cast<size_t>(y + 2 + dy) * m.width + (x + 2 + dx)]
                    - static_cast<long long>(m.black));
    const long long d = 16 * (full - m.black);
    if (n <= 0)
        return 0;
    if (n >= d)
        return 255;
    return static_cast<int>((510 * n + d) / (2 * d)); // floor(255 n / d + 1/2)
}

} // namespace

TEST(Demosaic, MatchesPerPixelComputationForAllOrdersAndSizes)
{
    const int sizes[][2] = {{16, 12}, {17, 13}, {6, 6}, {7, 9}, {40, 31}};
    for (const auto &size : sizes) {
        for (int order = 0; order < 4; ++order) {
            const Mosaic m = randomMosaic(size[0], size[1], 12, 168, 1000u * size[0] + order);
            const QImage img = demosaicToImage(m.samples.data(), m.width, m.height, m.bits, m.black,
                                               order, 1);
            ASSERT_EQ(img.format(), QImage::Format_RGB32);
            ASSERT_EQ(img.size(), QSize((m.width & ~1) - 4, (m.height & ~1) - 4));
            for (int y = 0; y < img.height(); ++y)
                for (int x = 0; x < img.width(); ++x)
                    for (int c = 0; c < 3; ++c)
                        ASSERT_EQ((img.pixel(x, y) >> (16 - 8 * c)) & 0xff,
                                  unsigned(exactByte(m, order, x, y, c)))
                                << size[0] << "x" << size[1] << " order " << order << " at " << x
                                << "," << y << " ch " << c;
        }
    }
}

TEST(Demosaic, FlatFieldsAndDepths)
{
    // A uniform mosaic at value s gives (s - black) / (full - black) in every
    // channel, whatever the kernel (each kernel sums to one).
    for (int bits : {1, 8, 10, 16}) {
        const int full = (1 << bits) - 1;
        const unsigned black = bits > 1 ? 1 : 0;
        for (int s : {0, static_cast<int>(black), full / 3, full}) {
            std::vector<std::uint16_t> samples(10 * 8, static_cast<std::uint16_t>(s));
            const QImage img = demosaicToImage(samples.data(), 10, 8, bits, black, 0);
            ASSERT_EQ(img.size(), QSize(6, 4));
            double v = (static_cast<double>(s) - black) / (full - static_cast<double>(black));
            v = std::min(1.0, std::max(0.0, v));
            const int want = static_cast<int>(std::floor(v * 255 + 0.5));
            EXPECT_EQ(img.pixel(3, 2), qRgb(want, want, want)) << bits << " " << s;
            // Signed samples: 16-bit full scale reads as a negative sample.
            const QImage signedImg = demosaicToImage(reinterpret_cast<const std::int16_t *>(
                                                             samples.data()),
                                                     10, 8, bits, black, 0);
            const int signedWant = (bits == 16 && s > 32767) ? 0 : want;
            EXPECT_EQ(signedImg.pixel(3, 2), qRgb(signedWant, signedWant, signedWant));
        }
    }
    // Unsigned samples above a narrower depth's full scale count as full
    // scale: over-range samples (in an even and an odd column) must not
    // darken their neighbours' colours.
    std::vector<std::uint16_t> over(10 * 8, 1023);
    std::vector<std::uint16_t> noisy = over;
    noisy[4 * 10 + 5] = 0xFFFF;
    noisy[3 * 10 + 2] = 0x8000;
    EXPECT_EQ(demosaicToImage(noisy.data(), 10, 8, 10, 0, 0),
              demosaicToImage(over.data(), 10, 8, 10, 0, 0));
}

TEST(Demosaic, QuantisationIsExactForEveryRange)
{
    // Every level of every depth's range (16 * (full scale - black)) for a
    // spread of black levels: floor(255 n / D + 1/2), ties rounded up.
    for (int bits = 1; bits <= 16; ++bits) {
        const int full = (1 << bits) - 1;
        for (int black = 0; black < full; black += 1 + full / 7) {
            const long long d = 16LL * (full - black);
            for (long long n = -3; n <= d + 3; ++n) {
                const long long clamped = std::min(std::max(n, 0LL), d);
                ASSERT_EQ(quantiseChannel(static_cast<int>(n), static_cast<int>(d)),
                          (510 * clamped + d) / (2 * d))
                        << "n " << n << " range " << d;
            }
        }
    }
}

TEST(Demosaic, RefusesWhatCannotBeDemosaiced)
{
    std::vector<std::int16_t> samples(64, 100);
    EXPECT_TRUE(demosaicToImage(samples.data(), 5, 12, 10, 0, 0).isNull()); // 4 wide after cutting
    EXPECT_TRUE(demosaicToImage(samples.data(), 8, 8, 17, 0, 0).isNull());
    EXPECT_TRUE(demosaicToImage(samples.data(), 8, 8, 10, 1023, 0).isNull());
    // Out-of-range orders give the order-0 result.
    const Mosaic m = randomMosaic(12, 10, 10, 64, 7);
    EXPECT_EQ(demosaicToImage(m.samples.data(), 12, 10, 10, 64, 9),
              demosaicToImage(m.samples.data(), 12, 10, 10, 64, 0));
}

TEST(Demosaic, BandsGiveTheSameResultAsOneThread)
{
    const Mosaic m = randomMosaic(301, 777, 12, 168, 99);
    for (int order = 0; order < 4; ++order) {
        const QImage one = demosaicToImage(m.samples.data(), m.width, m.height, m.bits, m.black,
                                           order, 1);
        for (int threads : {2, 3, 7, 0})
            EXPECT_EQ(one, demosaicToImage(m.samples.data(), m.width, m.height, m.bits, m.black,
                                           order, threads));
    }
}

TEST(Parallel, EveryPartRunsOnceAndFailuresReachTheCaller)
{
    for (bool launchFails : {false, true}) {
        setParallelLaunchFailsForTesting(launchFails);
        std::vector<std::atomic<int>> runs(97);
        parallelFor(97, [&](int part) { runs[part].fetch_add(1); });
        for (const std::atomic<int> &r : runs)
            EXPECT_EQ(r.load(), 1) << launchFails;

        // A throwing part does not stop the others; its exception is
        // rethrown once all have finished.
        std::atomic<int> done{0};
        EXPECT_THROW(parallelFor(40,
                                 [&](int part) {
                                     if (part == 25)
                                         throw std::runtime_error("part failed");
                                     done.fetch_add(1);
                                 }),
                     std::runtime_error);
        EXPECT_EQ(done.load(), 39);
    }
    setParallelLaunchFailsForTesting(false);
    int calls = 0;
    parallelFor(0, [&](int) { ++calls; });
    parallelFor(1, [&](int part) { calls += 1 + part; });
    EXPECT_EQ(calls, 1);
}
