// One capture of a 4000 x 3000 frame through the image-source service, from
// the request to the 24-bit picture that a page receives (Kestro's capture
// function), against the baseline of the copy that capture must make: the
// first three bytes of each 32-bit pixel of a frame already in memory.
//
//   dbus-run-session -- build/bench/bench_capture
//
// BM_Capture12MP/0 serves the same noiseless frame each time (the service
// renders it once); BM_Capture12MP/1 renders fresh noise into every frame,
// as a live sensor delivers them. The goal is at most 0.3 s per capture.

#include "acquisition/automation.h"
#include "acquisition/camera.h"

#include "capturecopy.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>
#include <cstdio>
#include <cstring>
#include <memory>

using namespace kestro;

namespace {

const int kWidth = 4000, kHeight = 3000;

// The camera with its service, kept for every benchmark of the run and
// closed (ending the service) before the application object goes.
std::unique_ptr<CCamera> g_camera;

CCamera *camera()
{
    if (!g_camera) {
        g_camera = std::make_unique<CCamera>();
        g_camera->open();
    }
    return g_camera.get();
}

void BM_Capture12MP(benchmark::State &state)
{
    CCamera *cam = camera();
    ImageSourceAutomation *source = automationOf(*cam);
    const std::int64_t deadline = deadlineIn(10000);
    if (!source->ensure(deadline) || !source->setOption("width", QString::number(kWidth), deadline)
        || !source->setOption("height", QString::number(kHeight), deadline)
        || !source->setOption("noise", state.range(0) ? "2" : "0", deadline)) {
        state.SkipWithError(qPrintable(source->lastError()));
        return;
    }
    bool first = true;
    for (auto _ : state) {
        CapturedImage frame;
        if (!captureImage(*cam, frame, first, {})) {
            state.SkipWithError(qPrintable(source->lastError()));
            return;
        }
        first = false;
        const QImage picture = toImage(std::move(frame));
        benchmark::DoNotOptimize(picture.constBits());
    }
    state.counters["megapixels"] = kWidth * kHeight / 1e6;
}
BENCHMARK(BM_Capture12MP)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir home;
    qputenv("XDG_DATA_HOME", QFile::encodeName(home.path()));
    qputenv("KESTRO_DEMO_CAMERA", "1");
    if (qEnvironmentVariableIsEmpty("KESTRO_SENSOR_DATA"))
        qputenv("KESTRO_SENSOR_DATA", KESTRO_SENSORS_DIR);
    if (qEnvironmentVariableIsEmpty("KESTRO_IMAGESOURCE_PROGRAM"))
        qputenv("KESTRO_IMAGESOURCE_PROGRAM", KESTRO_IMAGESOURCE_BUILT);
    if (!QDBusConnection::sessionBus().isConnected()) {
        std::fprintf(stderr, "bench_capture: no session bus (run it under dbus-run-session)\n");
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    g_camera.reset();
    return 0;
}
