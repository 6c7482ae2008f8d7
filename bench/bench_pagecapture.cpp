// The Capture button of each page with a 4000 x 3000 frame of the image
// source's scenes (chart, slanted edge, flat field, with the source's default
// noise): from the moment the capture function hands over the 24-bit picture
// to the picture painted in the page, the captured file written into the
// temporary folder. The baseline, measured in the same run, is the one
// per-pixel copy that a capture makes anyway (the first three bytes of each
// 32-bit pixel of the service's frame). BM_SaveCapturedFile shows the file's
// share: compressed as report pictures are (/0), stored as captures are (/1).
//
//   build/bench/bench_pagecapture --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
//
// The service's side of a click (the request, the frame in shared memory and
// that copy) is bench_capture's.

#include "imaging/gui/macbethframeview.h"
#include "imaging/pngwriter.h"
#include "measure/color/gui/macbethchartpage.h"
#include "measure/mtf/gui/mtfpage.h"
#include "measure/uniformity/gui/uniformitypage.h"
#include "scene.h"

#include "capturecopy.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QFileInfo>
#include <QSpinBox>
#include <QTemporaryDir>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace {

using namespace kestro::imagesource;

const int kWidth = 4000, kHeight = 3000;

// A picture as the demo sensor delivers it: the image source's scene with
// its default noise, three bytes per pixel.
QImage sensorPicture(SceneKind kind)
{
    SceneSettings settings;
    settings.kind = kind;
    settings.width = kWidth;
    settings.height = kHeight;
    const std::size_t pixels = std::size_t(kWidth) * kHeight;
    std::vector<std::uint8_t> clean(pixels * 4), noisy(pixels * 4);
    renderScene(settings, clean.data());
    NoiseGenerator(1.0).apply(clean.data(), noisy.data(), pixels, 1);
    QImage picture(kWidth, kHeight, QImage::Format_RGB888);
    for (int y = 0; y < kHeight; ++y) {
        const std::uint8_t *s = noisy.data() + std::size_t(y) * kWidth * 4;
        uchar *d = picture.scanLine(y);
        for (int x = 0; x < kWidth; ++x, s += 4, d += 3)
            std::memcpy(d, s, 3);
    }
    return picture;
}

// The capture function of the pages: hands over a picture of its own, as a
// capture does (the copy is made with the timer paused).
struct Source
{
    explicit Source(SceneKind kind)
        : scene(sensorPicture(kind))
    { }
    const QImage scene;
    QImage next;
    kestro::CaptureFunction function()
    {
        return [this](QImage &picture) {
            picture = std::move(next);
            next = QImage();
            return true;
        };
    }
    void prepare(benchmark::State &state)
    {
        state.PauseTiming();
        next = scene.copy();
        state.ResumeTiming();
    }
};

// The captured file alone: compressed with the fastest LZ matching (/0), as
// the pages wrote it before, and stored (/1).
void BM_SaveCapturedFile(benchmark::State &state)
{
    const QImage picture = sensorPicture(SceneKind::Chart);
    const auto compression = state.range(0) ? kestro::PngCompression::None
                                            : kestro::PngCompression::Fast;
    const QString path = kestro::capturedPicturePath();
    for (auto _ : state) {
        if (!kestro::savePng(picture, path, compression)) {
            state.SkipWithError("cannot write the file");
            return;
        }
    }
    state.counters["MB"] = QFileInfo(path).size() / 1e6;
}
BENCHMARK(BM_SaveCapturedFile)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// Runs the slot and paints the page, as the click does.
template<typename Page>
void capture(benchmark::State &state, Page &page, Source &source, void (Page::*slot)())
{
    page.resize(1366, 700);
    page.show();
    QApplication::processEvents();
    for (auto _ : state) {
        source.prepare(state);
        (page.*slot)();
        page.repaint();
        QApplication::processEvents();
    }
}

void BM_ColorPageCapture(benchmark::State &state)
{
    Source source(SceneKind::Chart);
    MacbethChartPage page;
    page.setCaptureFunction(source.function());
    capture(state, page, source, &MacbethChartPage::captureChartImage);
}
BENCHMARK(BM_ColorPageCapture)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MtfPageCapture(benchmark::State &state)
{
    Source source(SceneKind::Edge);
    MtfPage page;
    page.setCaptureFunction(source.function());
    capture(state, page, source, &MtfPage::captureMTFChartImage);
}
BENCHMARK(BM_MtfPageCapture)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_UniformityPageCapture(benchmark::State &state)
{
    Source source(SceneKind::Flat);
    kestro::UniformityPage page;
    page.setCaptureFunction(source.function());
    capture(state, page, source, &kestro::UniformityPage::captureUniChartImage);
}
BENCHMARK(BM_UniformityPageCapture)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // The captured files go to a private temporary folder.
    QTemporaryDir tmp;
    qputenv("TMPDIR", QFile::encodeName(tmp.path()));
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
