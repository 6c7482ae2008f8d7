// Chart detection (the full search) against OpenCV's mcc detector with its
// default parameters on the whole picture (Method::PlainMcc), in one run.
//
//   build/bench/bench_chartdetect --benchmark_filter=Speed
//   build/bench/bench_chartdetect --benchmark_filter=Photographs
//   KESTRO_SWEEP_SCENES=200 build/bench/bench_chartdetect --benchmark_filter=Sweep
//
// BM_Speed12MP: seconds per detection of the full search (the benchmark's
// time) with the plain detector's mean ("plain_s") and the ratio plain/full
// ("speedup") on the same picture, both measured inside the benchmark.
// BM_CancelLatency: milliseconds from clearing the flag to the return.
// BM_Photographs: charts placed correctly (checked by the colours inside the
// rectangles) among the fully visible ones, and grids reported on wrong
// places, for both detectors. BM_Sweep: correct / misplaced / missed shares
// over rendered scenes with known patch positions, for both detectors.

#include "platform/chartdetect/chartdetect.h"
#include "platform/chartdetect/qimagebuffer.h"
#include "tests/platform/chartdetect/chartscene.h"

#include <benchmark/benchmark.h>

#include <QDir>
#include <QFile>
#include <QImage>
#include <QTextStream>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>

using namespace kestro::chartdetect;
using Clock = std::chrono::steady_clock;

namespace {

const QString kCharts = QStringLiteral(KESTRO_CHARTS_DIR);

struct Picture
{
    QImage image;
    std::unique_ptr<unsigned char[]> bgr;
};

// A photograph enlarged to 4000 x 3000 (or 3000 x 4000), or a rendered
// scene of that size.
Picture picture12MP(int which)
{
    Picture p;
    if (which == 0) {
        kestro::test::SceneSetup setup;
        setup.width = 4000;
        setup.height = 3000;
        setup.chartLong = 1400;
        setup.rotation = 97;
        setup.perspective = 0.05;
        setup.noise = 3;
        setup.jpegQuality = 90;
        setup.clutter = 10;
        setup.decoyGrids = true;
        p.image = kestro::test::renderScene(setup).image;
    } else {
        const char *file = which == 1 ? "jarrelscy_IMG_20140613_203438.jpg" : "jtvd_classic_08.jpg";
        const QImage photo(kCharts + "/" + file);
        if (photo.isNull())
            return p;
        const QSize size = photo.width() > photo.height() ? QSize(4000, 3000) : QSize(3000, 4000);
        p.image = photo.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                          .convertToFormat(QImage::Format_RGB32);
    }
    p.bgr = packedBgrBuffer(p.image);
    return p;
}

double secondsOf(const Picture &p, Method method)
{
    Detection d;
    const auto t0 = Clock::now();
    findChart(p.bgr.get(), p.image.width(), p.image.height(), d, nullptr, method);
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

void BM_Speed12MP(benchmark::State &state)
{
    const Picture p = picture12MP(int(state.range(0)));
    if (!p.bgr) {
        state.SkipWithError("picture not available");
        return;
    }
    double plain = 0, full = 0;
    int runs = 0;
    for (auto _ : state) {
        const double f = secondsOf(p, Method::Refined);
        state.SetIterationTime(f);
        full += f;
        plain += secondsOf(p, Method::PlainMcc);
        ++runs;
    }
    Detection d;
    state.counters["found"] = findChart(p.bgr.get(), p.image.width(), p.image.height(), d, nullptr,
                                        Method::Refined);
    state.counters["plain_s"] = plain / runs;
    state.counters["full_s"] = full / runs;
    state.counters["speedup"] = plain / full;
    state.SetLabel(state.range(0) == 0   ? "rendered scene"
                   : state.range(0) == 1 ? "cluttered desk photo"
                                         : "chart on paper photo");
}
BENCHMARK(BM_Speed12MP)
        ->Arg(0)
        ->Arg(1)
        ->Arg(2)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond)
        ->Iterations(5);

void BM_CancelLatency(benchmark::State &state)
{
    // A small chart in a large cluttered frame keeps the search busy.
    kestro::test::SceneSetup setup;
    setup.width = 4000;
    setup.height = 3000;
    setup.chartLong = 170;
    setup.clutter = 12;
    setup.decoyGrids = true;
    const QImage image = kestro::test::renderScene(setup).image;
    const auto bgr = packedBgrBuffer(image);
    double worst = 0, total = 0;
    int runs = 0;
    for (auto _ : state) {
        unsigned char running = 1;
        std::atomic<long long> clearedAt{0};
        std::thread stopper([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(30 + 37 * (runs % 7)));
            clearedAt = Clock::now().time_since_epoch().count();
            __atomic_store_n(&running, 0, __ATOMIC_RELAXED);
        });
        ColorCheckerROI regions[kPatchCount];
        FindColorCheckerROIsFromMemory(bgr.get(), image.width(), image.height(), regions, &running);
        const long long returned = Clock::now().time_since_epoch().count();
        stopper.join();
        const double late = std::max(0.0, (returned - clearedAt.load()) / 1e6);
        worst = std::max(worst, late);
        total += late;
        ++runs;
    }
    state.counters["mean_ms"] = total / runs;
    state.counters["worst_ms"] = worst;
}
BENCHMARK(BM_CancelLatency)->Iterations(14)->Unit(benchmark::kMillisecond);

void BM_Photographs(benchmark::State &state)
{
    const Method method = state.range(0) ? Method::PlainMcc : Method::Refined;
    QFile table(kCharts + "/charts.csv");
    if (!table.open(QIODevice::ReadOnly)) {
        state.SkipWithError("no charts.csv");
        return;
    }
    QTextStream in(&table);
    in.readLine();
    struct Entry
    {
        QImage image;
        bool whole;
    };
    std::vector<Entry> photos;
    while (!in.atEnd()) {
        const QStringList fields = kestro::test::csvFields(in.readLine());
        photos.push_back(
                {QImage(kCharts + "/" + fields.value(0)).convertToFormat(QImage::Format_RGB32),
                 !fields.value(6).startsWith("no")});
    }
    int whole = 0, correct = 0, misplaced = 0, partialFound = 0;
    for (auto _ : state) {
        whole = correct = misplaced = partialFound = 0;
        for (const Entry &e : photos) {
            const auto bgr = packedBgrBuffer(e.image);
            Detection d;
            const int found = findChart(bgr.get(), e.image.width(), e.image.height(), d, nullptr,
                                        method);
            const bool right = found == kPatchCount
                               && kestro::test::checkPlacement(e.image, d.regions).ok();
            if (e.whole) {
                ++whole;
                correct += right;
            } else if (found == kPatchCount) {
                ++partialFound;
            }
            misplaced += found == kPatchCount && !right;
        }
    }
    state.counters["whole_charts"] = whole;
    state.counters["placed_correctly"] = correct;
    state.counters["misplaced"] = misplaced;
    state.counters["partial_reported"] = partialFound;
    state.SetLabel(method == Method::PlainMcc ? "plain mcc" : "full search");
}
BENCHMARK(BM_Photographs)->Arg(0)->Arg(1)->Iterations(1)->Unit(benchmark::kSecond);

void BM_Sweep(benchmark::State &state)
{
    const Method method = state.range(0) ? Method::PlainMcc : Method::Refined;
    const char *env = std::getenv("KESTRO_SWEEP_SCENES");
    const int count = env ? std::max(1, std::atoi(env)) : 100;
    int correct = 0, misplaced = 0, missed = 0;
    for (auto _ : state) {
        correct = misplaced = missed = 0;
        for (int i = 0; i < count; ++i) {
            // Every eighth scene is a 12-megapixel frame; the rest 2 MP.
            const bool large = i % 8 == 7;
            const auto setup = kestro::test::sweepSceneSetup(i, large ? 4000 : 1600,
                                                             large ? 3000 : 1200, 150, 2024);
            const kestro::test::Scene scene = kestro::test::renderScene(setup);
            const auto bgr = packedBgrBuffer(scene.image);
            Detection d;
            const int found = findChart(bgr.get(), setup.width, setup.height, d, nullptr, method);
            if (found != kPatchCount)
                ++missed;
            else if (kestro::test::placedCorrectly(scene, d.regions))
                ++correct;
            else
                ++misplaced;
        }
    }
    state.counters["scenes"] = count;
    state.counters["correct_rate"] = double(correct) / count;
    state.counters["misplaced_rate"] = double(misplaced) / count;
    state.counters["missed_rate"] = double(missed) / count;
    state.SetLabel(method == Method::PlainMcc ? "plain mcc" : "full search");
}
BENCHMARK(BM_Sweep)->Arg(0)->Arg(1)->Iterations(1)->Unit(benchmark::kSecond);

} // namespace

BENCHMARK_MAIN();
