// Slanted-edge MTF speed. The picture: 6000 x 4000 RGB with one blurred edge
// leaning 5 degrees, written once to /tmp as PNG.
//
//   build/bench/bench_mtf
//
// BM_DecodeFile is the baseline: what the first region of a file pays.

#include "platform/colorcal/colorcal.h"
#include "platform/colorcal/imagecache.h"
#include "platform/colorcal/sfr_extract.h"
#include "platform/colorcal/sfr_measure.h"

#include <benchmark/benchmark.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QImageReader>
#include <cmath>
#include <random>

namespace {

const int kWidth = 6000, kHeight = 4000;
const double kLean = 5.0;

QString picturePath()
{
    return QDir::temp().filePath(QStringLiteral("kestro_bench_mtf_6000x4000.png"));
}

const QString &picture()
{
    static const QString path = [] {
        const QString p = picturePath();
        QImageReader probe(p);
        if (QFileInfo::exists(p) && probe.size() == QSize(kWidth, kHeight))
            return p;
        QImage img(kWidth, kHeight, QImage::Format_RGB32);
        const double t = std::tan(kLean * 3.14159265358979 / 180);
        std::mt19937 rng(7);
        std::normal_distribution<double> noise(0, 1);
        for (int y = 0; y < kHeight; ++y) {
            QRgb *line = reinterpret_cast<QRgb *>(img.scanLine(y));
            const double edge = kWidth / 2.0 + (y - kHeight / 2.0) * t;
            for (int x = 0; x < kWidth; ++x) {
                const double d = (x + 0.5 - edge) * std::cos(kLean * 3.14159265358979 / 180);
                const double cover = 0.5 * std::erfc(-d / (1.1 * std::sqrt(2.0)));
                const int v = static_cast<int>(std::lround(20 + 190 * cover + noise(rng)));
                const int c = std::max(1, std::min(254, v));
                line[x] = qRgb(c, c * 9 / 10, c * 8 / 10);
            }
        }
        img.save(p, "PNG", 50);
        return p;
    }();
    return path;
}

QRect regionOf(int w, int h)
{
    // Centred on the edge at mid-height.
    return QRect(kWidth / 2 - w / 2, kHeight / 2 - h / 2, w, h);
}

void calculate(benchmark::State &state, int w, int h)
{
    CColorCalibrate cal(nullptr);
    std::vector<double> f(1000), g(1000), r(1000), gr(1000), b(1000);
    double m[6][4];
    char error[1024];
    const QByteArray name = QFile::encodeName(picture());
    const QRect rect = regionOf(w, h);
    unsigned n = 0;
    auto once = [&] {
        return cal.CalculateMTF(n, f.data(), g.data(), r.data(), gr.data(), b.data(), m[0], m[1],
                                m[2], m[3], m[4], m[5], error, 1024, name.constData(), 0.45,
                                rect.left(), rect.top(), w, h, 3);
    };
    once(); // decode into the cache
    if (error[0])
        state.SkipWithError(error);
    for (auto _ : state) {
        benchmark::DoNotOptimize(once());
    }
    state.counters["points"] = n;
}

void regionOnly(benchmark::State &state, int w, int h)
{
    const QImage image = kestro::colorcal::loadImageCached(picture());
    const QRect rect = regionOf(w, h);
    kestro::sfr::Result result;
    for (auto _ : state) {
        kestro::sfr::measureImageRegion(image, rect, 0.45, result);
        benchmark::DoNotOptimize(result.mtf50[3]);
    }
    static std::string why;
    if (!result.ok()) {
        why = result.errorText();
        state.SkipWithError(why.c_str());
    }
}

void extractOnly(benchmark::State &state, int w, int h)
{
    const QImage image = kestro::colorcal::loadImageCached(picture());
    const QRect rect = regionOf(w, h);
    kestro::sfr::RegionPlanes planes;
    for (auto _ : state) {
        kestro::sfr::extractRegion(image, rect, 0.45, planes);
        benchmark::DoNotOptimize(planes.channel[3].v.data());
    }
}

void BM_DecodeFile(benchmark::State &state)
{
    const QString p = picture();
    for (auto _ : state) {
        kestro::colorcal::clearImageCache();
        benchmark::DoNotOptimize(kestro::colorcal::loadImageCached(p).width());
    }
}

void BM_CalculateMTF_100x200(benchmark::State &s)
{
    calculate(s, 100, 200);
}
void BM_CalculateMTF_300x600(benchmark::State &s)
{
    calculate(s, 300, 600);
}
void BM_RegionOnly_100x200(benchmark::State &s)
{
    regionOnly(s, 100, 200);
}
void BM_RegionOnly_300x600(benchmark::State &s)
{
    regionOnly(s, 300, 600);
}
void BM_ExtractOnly_100x200(benchmark::State &s)
{
    extractOnly(s, 100, 200);
}
void BM_ExtractOnly_300x600(benchmark::State &s)
{
    extractOnly(s, 300, 600);
}

} // namespace

BENCHMARK(BM_DecodeFile)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_CalculateMTF_100x200)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CalculateMTF_300x600)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RegionOnly_100x200)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RegionOnly_300x600)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ExtractOnly_100x200)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ExtractOnly_300x600)->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
