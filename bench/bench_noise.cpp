// Noise measurement over 200 frames of 4000 x 3000 RGB with 24 patches of
// 100 x 100, against the time to load one such frame from a file (BMP, the
// cheapest format to decode, and PNG). The streaming runs load, add and drop
// one frame at a time; their peak resident size (ru_maxrss) and the bytes of
// the accumulators show that 200 frames cost no more memory than 2.
//
//   build/bench/bench_noise
//
// Per frame, compare BM_Engine200Frames' "perFrame" with the load times.

#include "imaging/frame.h"
#include "measure/noise/noiseengine.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QImage>
#include <QTemporaryDir>
#include <cstdint>
#include <memory>
#include <sys/resource.h>
#include <vector>

using namespace kestro;

namespace {

const int kWidth = 4000, kHeight = 3000, kFrames = 200;

QVector<QRect> patches()
{
    QVector<QRect> r;
    for (int k = 0; k < 24; ++k)
        r << QRect(300 + (k % 6) * 600, 300 + (k / 6) * 700, 100, 100);
    return r;
}

QImage noisyFrame(std::uint32_t seed)
{
    QImage img(kWidth, kHeight, QImage::Format_ARGB32);
    std::uint32_t s = seed * 2654435761u + 1;
    for (int y = 0; y < kHeight; ++y) {
        auto *row = reinterpret_cast<QRgb *>(img.scanLine(y));
        for (int x = 0; x < kWidth; ++x) {
            s ^= s << 13;
            s ^= s >> 17;
            s ^= s << 5;
            const int base = 60 + (x / 700) * 25 + (y / 800) * 10;
            row[x] = qRgba(base + (s & 15), base + ((s >> 4) & 15), base + ((s >> 8) & 15), 255);
        }
    }
    return img;
}

// Two frame files of each format, written once.
struct Files
{
    QTemporaryDir dir;
    QStringList bmp, png;
    Files()
    {
        for (int i = 0; i < 2; ++i) {
            const QImage img = noisyFrame(i + 1);
            bmp << dir.filePath(QString("f%1.bmp").arg(i));
            png << dir.filePath(QString("f%1.png").arg(i));
            img.save(bmp.last());
            img.save(png.last());
        }
    }
};
Files &files()
{
    static Files f;
    return f;
}

double maxRssMiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024.0;
}

void loadFrame(benchmark::State &state, const QStringList &paths)
{
    int i = 0;
    for (auto _ : state) {
        CFrame frame;
        if (!frame.load(paths[i++ % paths.size()]))
            state.SkipWithError("frame did not load");
        benchmark::DoNotOptimize(frame.data());
    }
    state.counters["perFrame"] = benchmark::Counter(state.iterations(),
                                                    benchmark::Counter::kIsRate
                                                            | benchmark::Counter::kInvert);
}

// Streaming: load, add and drop each frame.
void streamFrames(benchmark::State &state)
{
    const int frames = static_cast<int>(state.range(0));
    const QVector<QRect> rects = patches();
    std::size_t accBytes = 0;
    for (auto _ : state) {
        NoiseAccumulator acc;
        for (int i = 0; i < frames; ++i) {
            CFrame frame;
            frame.load(files().bmp[i % 2]);
            if ((i == 0 && !acc.start(frame, rects)) || !acc.add(frame)) {
                state.SkipWithError("refused");
                return;
            }
        }
        benchmark::DoNotOptimize(acc.results());
        accBytes = acc.memoryBytes();
    }
    state.counters["maxRssMiB"] = maxRssMiB();
    state.counters["accumulatorMiB"] = accBytes / 1048576.0;
}

} // namespace

// Files are written before anything is measured, so the peak sizes below
// come from the streaming runs (at most one frame picture plus the
// temporary image of the file writer).
static void BM_StreamLoadAndAdd(benchmark::State &state)
{
    streamFrames(state);
}
BENCHMARK(BM_StreamLoadAndAdd)->Arg(2)->Arg(kFrames)->Iterations(1)->Unit(benchmark::kMillisecond);

static void BM_LoadFrameBmp(benchmark::State &state)
{
    loadFrame(state, files().bmp);
}
BENCHMARK(BM_LoadFrameBmp)->Unit(benchmark::kMillisecond);

static void BM_LoadFramePng(benchmark::State &state)
{
    loadFrame(state, files().png);
}
BENCHMARK(BM_LoadFramePng)->Unit(benchmark::kMillisecond);

// The engine alone: 200 frames added from two frames held in memory.
static void BM_Engine200Frames(benchmark::State &state)
{
    CFrame a, b;
    a.load(files().bmp[0]);
    b.load(files().bmp[1]);
    const CFrame *frames[2] = {&a, &b};
    const QVector<QRect> rects = patches();
    for (auto _ : state) {
        NoiseAccumulator acc;
        acc.start(a, rects);
        for (int i = 0; i < kFrames; ++i)
            acc.add(*frames[i % 2]);
        benchmark::DoNotOptimize(acc.results());
    }
    state.counters["perFrame"] = benchmark::Counter(state.iterations() * kFrames,
                                                    benchmark::Counter::kIsRate
                                                            | benchmark::Counter::kInvert);
}
BENCHMARK(BM_Engine200Frames)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    files(); // written before the first measurement
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
