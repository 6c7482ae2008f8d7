// Raw load plus demosaic of a 12-megapixel (4000 x 3000, 12-bit) mosaic,
// against cv::demosaicing with COLOR_BayerBG2BGR_EA on the same mosaic in the
// same run. Prints the ratio ours / OpenCV at the end (goal: <= 1.0).
//
//   build/bench/bench_demosaic [--benchmark_min_time=2]
#include "imaging/demosaic.h"
#include "imaging/frame.h"

#include <QFile>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdio>
#include <map>
#include <opencv2/imgproc.hpp>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int kWidth = 4000;
constexpr int kHeight = 3000;
constexpr int kBits = 12;

struct Fixture
{
    QTemporaryDir dir;
    QString rawPath;
    std::vector<std::uint16_t> samples;

    Fixture()
    {
        // A chart-like scene: smooth shading, sharp edges and sensor noise,
        // mosaiced R G / G B (OpenCV's "BG" naming of the same layout).
        samples.resize(static_cast<size_t>(kWidth) * kHeight);
        std::mt19937 rng(12);
        std::normal_distribution<double> noise(0.0, 12.0);
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                const int patch = ((x / 400) + (y / 400)) % 6;
                const int channel = (x & 1) + (y & 1); // 0 R, 1 G, 2 B
                double v = 168
                           + 500 * (patch + 1) * (0.6 + 0.4 * std::sin(0.002 * x + 0.001 * y))
                                     * (1.0 - 0.2 * channel);
                v += noise(rng);
                samples[static_cast<size_t>(y) * kWidth + x] = static_cast<std::uint16_t>(
                        std::min(4095.0, std::max(0.0, v)));
            }
        }
        rawPath = dir.filePath("mosaic.raw");
        QFile raw(rawPath);
        raw.open(QIODevice::WriteOnly);
        raw.write(reinterpret_cast<const char *>(samples.data()),
                  static_cast<qint64>(samples.size() * 2));
        raw.close();
        QFile ini(dir.filePath("mosaic.ini"));
        ini.open(QIODevice::WriteOnly);
        ini.write(
                "[Frame]\nWidth=4000\nHeight=3000\nBitsPerPixel=12\nImageType=1\nBayerOrder=1\nBlackLevel=168\n");
    }
};

Fixture &fixture()
{
    static Fixture f;
    return f;
}

void BM_KestroRawLoadDemosaic(benchmark::State &state)
{
    Fixture &f = fixture();
    CFrame frame;
    for (auto _ : state) {
        if (!frame.load(f.rawPath)) {
            state.SkipWithError("raw load failed");
            break;
        }
        benchmark::DoNotOptimize(frame.image().constBits());
    }
    state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}

// The demosaic alone, from samples in memory (threads: 0 = every core).
void BM_KestroDemosaicOnly(benchmark::State &state)
{
    Fixture &f = fixture();
    for (auto _ : state) {
        const QImage image = kestro::demosaicToImage(reinterpret_cast<const std::int16_t *>(
                                                             f.samples.data()),
                                                     kWidth, kHeight, kBits, 168, 1,
                                                     static_cast<int>(state.range(0)));
        benchmark::DoNotOptimize(image.constBits());
    }
    state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}

void BM_OpenCvDemosaicEA(benchmark::State &state)
{
    Fixture &f = fixture();
    const cv::Mat mosaic(kHeight, kWidth, CV_16UC1, f.samples.data());
    cv::Mat bgr;
    for (auto _ : state) {
        cv::demosaicing(mosaic, bgr, cv::COLOR_BayerBG2BGR_EA);
        benchmark::DoNotOptimize(bgr.data);
    }
    state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}

BENCHMARK(BM_KestroRawLoadDemosaic)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_KestroDemosaicOnly)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_OpenCvDemosaicEA)->Unit(benchmark::kMillisecond)->UseRealTime();

// Console output plus the ratio of the two real times (the medians when the
// run has repetitions).
class RatioReporter : public benchmark::ConsoleReporter
{
public:
    std::map<std::string, double> times;
    std::map<std::string, bool> fromMedian;
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            const std::string name = run.run_name.str();
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
                times[name] = run.GetAdjustedRealTime();
                fromMedian[name] = true;
            } else if (run.run_type == Run::RT_Iteration && run.iterations > 0
                       && !fromMedian[name]) {
                times[name] = run.GetAdjustedRealTime();
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    fixture();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const auto ours = reporter.times.find("BM_KestroRawLoadDemosaic/real_time");
    const auto theirs = reporter.times.find("BM_OpenCvDemosaicEA/real_time");
    if (ours != reporter.times.end() && theirs != reporter.times.end() && theirs->second > 0)
        std::printf("ratio raw load + demosaic / OpenCV BayerBG2BGR_EA: %.3f\n",
                    ours->second / theirs->second);
    benchmark::Shutdown();
    return 0;
}
