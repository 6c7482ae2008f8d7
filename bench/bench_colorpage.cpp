// The chart page on 12-megapixel frames (4000 x 3000, a chart filling most
// of the picture, 24 patches of 420 x 420 pixels):
//   - colour difference: processing the 24 patches and building the report,
//     against loading the frame from a PNG file (the baseline);
//   - noise over 16 frames: the calculation alone, against loading the 16
//     frames into the frame set (the baseline).
//
//   build/bench/bench_colorpage
//
// Compare BM_ProcessChart with BM_LoadFramePng, and BM_Noise16Frames with
// BM_LoadFrameSet16.

#include "imaging/frame.h"
#include "imaging/gui/macbethframeview.h"
#include "measure/color/gui/macbethchartpage.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QImage>
#include <QTemporaryDir>
#include <cstdint>
#include <cstdlib>

namespace {

const int kWidth = 4000, kHeight = 3000, kFrames = 16;

// Patch k of the chart; the regions measured are `side` pixels square in
// the middle of it (420: most of the patch; 100: as small as in the engine's
// own benchmark).
QRect patchRect(int k, int side = 420)
{
    const int inset = (420 - side) / 2;
    return QRect(260 + (k % 6) * 600 + inset, 260 + (k / 6) * 650 + inset, side, side);
}

// A chart on a dark card with sensor-like noise in every pixel.
QImage chartFrame(std::uint32_t seed)
{
    QImage img(kWidth, kHeight, QImage::Format_RGB32);
    img.fill(qRgb(30, 30, 30));
    std::uint32_t s = seed * 2654435761u + 1;
    for (int k = 0; k < 24; ++k) {
        const QColor base = k < 18 ? QColor::fromHsv(k * 20, 170, 190)
                                   : QColor(235 - 40 * (k - 18), 235 - 40 * (k - 18),
                                            230 - 40 * (k - 18));
        const QRect r = patchRect(k).adjusted(-60, -60, 60, 60);
        for (int y = r.top(); y <= r.bottom(); ++y) {
            auto *row = reinterpret_cast<QRgb *>(img.scanLine(y));
            for (int x = r.left(); x <= r.right(); ++x) {
                s ^= s << 13;
                s ^= s >> 17;
                s ^= s << 5;
                row[x] = qRgb(qBound(0, base.red() + int(s & 7) - 3, 255),
                              qBound(0, base.green() + int((s >> 3) & 7) - 3, 255),
                              qBound(0, base.blue() + int((s >> 6) & 7) - 3, 255));
            }
        }
    }
    return img;
}

struct Files
{
    QTemporaryDir dir;
    QStringList png, bmp;
    Files()
    {
        for (int i = 0; i < kFrames; ++i) {
            const QImage img = chartFrame(i + 1);
            bmp << dir.filePath(QString("f%1.bmp").arg(i));
            img.save(bmp.last());
            if (i < 2) {
                png << dir.filePath(QString("f%1.png").arg(i));
                img.save(png.last());
            }
        }
    }
};
Files &files()
{
    static Files f;
    return f;
}

// A page holding the frames of `paths` and the 24 patch regions.
struct LoadedPage
{
    MacbethChartPage page;
    LoadedPage(const QStringList &paths, int side)
    {
        page.setBatchMode(true);
        page.resize(1400, 900);
        page.frameView()->frameSet().loadFiles(paths);
        for (int k = 0; k < 24; ++k)
            page.frameView()->view()->addRegion(QRectF(patchRect(k, side)));
    }
};

} // namespace

static void BM_LoadFramePng(benchmark::State &state)
{
    int i = 0;
    for (auto _ : state) {
        CFrame frame;
        if (!frame.load(files().png[i++ % 2]))
            state.SkipWithError("frame did not load");
        benchmark::DoNotOptimize(frame.image());
    }
}
BENCHMARK(BM_LoadFramePng)->Unit(benchmark::kMillisecond);

// Averaging the 24 patches, the differences and summary, the charts and the
// report text (what the process button does once the frame is loaded).
static void BM_ProcessChart(benchmark::State &state)
{
    LoadedPage loaded({files().png[0]}, int(state.range(0)));
    for (auto _ : state) {
        if (!loaded.page.processMacbethChart())
            state.SkipWithError("not processed");
        benchmark::DoNotOptimize(loaded.page.colorDifferenceHtml());
    }
}
BENCHMARK(BM_ProcessChart)->Arg(420)->Arg(100)->Unit(benchmark::kMillisecond);

static void BM_LoadFrameSet16(benchmark::State &state)
{
    kestro::CFrameSet set;
    for (auto _ : state) {
        if (set.loadFiles(files().bmp) != kFrames)
            state.SkipWithError("frames did not load");
    }
}
BENCHMARK(BM_LoadFrameSet16)->Unit(benchmark::kMillisecond)->Iterations(3);

static void BM_Noise16Frames(benchmark::State &state)
{
    LoadedPage loaded(files().bmp, int(state.range(0)));
    for (auto _ : state) {
        if (!loaded.page.calculateNoise())
            state.SkipWithError("noise refused");
    }
}
BENCHMARK(BM_Noise16Frames)->Arg(420)->Arg(100)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    // The page draws its charts; no display is needed for that.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    files(); // written before anything is measured
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
