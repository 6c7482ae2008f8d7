// Uniformity on a 6000 x 4000 RGB picture: the grids of Y, R, G and B, their
// statistics, centre and corner values and the CPIQ zones, against the floor
// of a plain pass that reads every pixel once on the same number of threads.
//
//   build/bench/bench_uniformity --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include "imaging/parallel.h"
#include "measure/uniformity/cpiq.h"
#include "measure/uniformity/uniformity.h"

#include <benchmark/benchmark.h>

#include <QImage>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

using namespace kestro;

namespace {

const QImage &picture()
{
    static const QImage image = [] {
        const int w = 6000, h = 4000;
        QImage img(w, h, QImage::Format_RGB32);
        for (int y = 0; y < h; ++y) {
            auto *row = reinterpret_cast<QRgb *>(img.scanLine(y));
            const double dy = (y - h / 2.0) / (h / 2.0);
            for (int x = 0; x < w; ++x) {
                const double dx = (x - w / 2.0) / (w / 2.0);
                const double fall = 1.0 - 0.35 * (dx * dx + dy * dy);
                const int ripple = (x * 7 + y * 13) % 5 - 2;
                row[x] = qRgb(std::clamp(int(210 * fall) + ripple, 0, 255),
                              std::clamp(int(200 * fall) + ripple, 0, 255),
                              std::clamp(int(170 * fall) + ripple, 0, 255));
            }
        }
        return img;
    }();
    return image;
}

// The floor: every pixel word read once and summed, split into row bands
// on the same worker pool the measurement uses.
void BM_ReadEveryPixelOnce(benchmark::State &state)
{
    const QImage &img = picture();
    const int threads = std::clamp(parallelThreadCount(), 1, 16);
    for (auto _ : state) {
        std::vector<std::uint64_t> sums(threads, 0);
        auto band = [&](int t) {
            const int width = img.width();
            const int y0 = img.height() * t / threads, y1 = img.height() * (t + 1) / threads;
            std::uint64_t sum = 0;
            for (int y = y0; y < y1; ++y) {
                const auto *row = reinterpret_cast<const std::uint32_t *>(img.constScanLine(y));
                for (int x = 0; x < width; ++x)
                    sum += row[x];
            }
            sums[t] = sum;
        };
        parallelFor(threads, band);
        benchmark::DoNotOptimize(sums.data());
    }
    state.SetBytesProcessed(state.iterations() * img.sizeInBytes());
}
BENCHMARK(BM_ReadEveryPixelOnce)->Unit(benchmark::kMillisecond)->UseRealTime();

// Everything kestro-measure uniformity computes: one pass for the four grids
// and the zones, then statistics, centre, corners and labels per channel and
// the zones' L*a*b* and Delta-ab. Recomputed as the page does on every
// parameter change of the same picture: the pass's grid memory from the
// previous compute is written over.
void BM_UniformityFourChannelsAndCpiq(benchmark::State &state)
{
    const UniformityImage image(picture());
    const int subsample = static_cast<int>(state.range(0));
    UniformityPass pass;
    for (auto _ : state) {
        image.compute(pass, subsample, kAllUniformityChannels, kCpiqDefaultRows, kCpiqDefaultCols);
        benchmark::DoNotOptimize(summariseChannels(pass, 10, 10));
        benchmark::DoNotOptimize(cpiqFromZoneMeans(pass.zones));
    }
    state.SetBytesProcessed(state.iterations() * picture().sizeInBytes());
}
BENCHMARK(BM_UniformityFourChannelsAndCpiq)
        ->Arg(10)
        ->Arg(50)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();

// The same on a fresh pass each time, as the first compute of a picture:
// the grids' memory is newly allocated and faulted in.
void BM_UniformityFourChannelsAndCpiqFirstCompute(benchmark::State &state)
{
    const UniformityImage image(picture());
    const int subsample = static_cast<int>(state.range(0));
    for (auto _ : state) {
        UniformityPass pass = image.compute(subsample, kAllUniformityChannels, kCpiqDefaultRows,
                                            kCpiqDefaultCols);
        benchmark::DoNotOptimize(summariseChannels(pass, 10, 10));
        benchmark::DoNotOptimize(cpiqFromZoneMeans(pass.zones));
    }
    state.SetBytesProcessed(state.iterations() * picture().sizeInBytes());
}
BENCHMARK(BM_UniformityFourChannelsAndCpiqFirstCompute)
        ->Arg(10)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();

// The pass alone (four grids and the zones), without the summaries, into
// the memory of the previous pass: with the vector kernels (second argument
// 0) and with their scalar references (1), at subsample sizes 10 and 1 (one
// block mean per pixel, where the division kernel counts most).
void BM_UniformityPassOnly(benchmark::State &state)
{
    const UniformityImage image(picture());
    const int subsample = static_cast<int>(state.range(0));
    const auto kernels = state.range(1) == 0 ? UniformityKernels::Vector
                                             : UniformityKernels::Reference;
    UniformityPass pass;
    for (auto _ : state) {
        image.compute(pass, subsample, kAllUniformityChannels, kCpiqDefaultRows, kCpiqDefaultCols,
                      0, kernels);
        benchmark::DoNotOptimize(pass.grids[0].values.data());
    }
    state.SetBytesProcessed(state.iterations() * picture().sizeInBytes());
}
BENCHMARK(BM_UniformityPassOnly)
        ->Args({10, 0})
        ->Args({10, 1})
        ->Args({1, 0})
        ->Args({1, 1})
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();

// One channel's grid, as the page computes it for the chosen channel.
void BM_UniformityOneChannel(benchmark::State &state)
{
    const UniformityImage image(picture());
    const auto channel = static_cast<UniformityChannel>(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(image.grid(channel, 10));
    state.SetBytesProcessed(state.iterations() * picture().sizeInBytes());
}
BENCHMARK(BM_UniformityOneChannel)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
