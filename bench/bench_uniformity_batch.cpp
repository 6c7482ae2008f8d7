// The batch uniformity test on a 4000 x 3000 flat field saved as PNG: the
// whole KestroLoader process (four channel charts, CPIQ zones, contours), and
// where its time goes, measured in-process: PNG decoding (the baseline every
// run pays), grids and zones, chart rendering, PNG encoding of the charts.
//
//   build/bench/bench_uniformity_batch --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
//   build/bench/bench_uniformity_batch --write-flat flat.png   (the picture alone)

#include "imaging/pngwriter.h"
#include "measure/uniformity/gui/qspectrogramplot.h"
#include "measure/uniformity/gui/uniformityreport.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QImageReader>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

using namespace kestro;

namespace {

// A flat field with lens shading, a colour cast that drifts across the
// picture and a little noise, as a PNG in a private folder.
QImage flatFieldImage(int w, int h)
{
    QImage img(w, h, QImage::Format_RGB32);
    std::uint32_t seed = 12345;
    for (int y = 0; y < h; ++y) {
        auto *row = reinterpret_cast<QRgb *>(img.scanLine(y));
        const double dy = (y - h / 2.0) / (h / 2.0);
        for (int x = 0; x < w; ++x) {
            const double dx = (x - w / 2.0) / (w / 2.0);
            const double fall = 1.0 - 0.3 * (dx * dx + dy * dy);
            seed = seed * 1664525u + 1013904223u;
            const int noise = static_cast<int>(seed >> 29) - 4;
            const double cast = 8.0 * dx;
            row[x] = qRgb(std::clamp(int(200 * fall + cast) + noise, 0, 255),
                          std::clamp(int(205 * fall) + noise, 0, 255),
                          std::clamp(int(190 * fall - cast) + noise, 0, 255));
        }
    }
    return img;
}

struct FlatField
{
    QTemporaryDir dir;
    QString path;

    FlatField()
    {
        path = dir.filePath(QStringLiteral("flat.png"));
        flatFieldImage(4000, 3000).save(path);
    }
};

const FlatField &flatField()
{
    static const FlatField field;
    return field;
}

UniformityReportSettings settings()
{
    UniformityReportSettings s;
    s.imagePath = flatField().path;
    s.subsample = 10;
    s.centerPercent = 10;
    s.cornerPercent = 10;
    s.chartSize = 550;
    s.contour = UniformityContour{true, 0, 255, 25};
    s.cpiq = true;
    return s;
}

QImage decoded()
{
    QImageReader reader(flatField().path);
    return reader.read();
}

// The grids of the four channels of the flat field, as the report has them.
const UniformityPass &reportPass()
{
    static const UniformityPass pass = [] {
        UniformityPass p;
        UniformityReportData data;
        computeUniformityReport(UniformityImage(decoded()), settings(), p, data, nullptr);
        return p;
    }();
    return pass;
}

// A chart plot at the report's size for chart size M, with its contours.
std::unique_ptr<QSpectrogramPlot> reportPlot()
{
    auto plot = std::make_unique<QSpectrogramPlot>();
    plot->resize(550, 412);
    plot->setUniContourLow(0);
    plot->setUniContourHigh(255);
    plot->setUniContourSS(25);
    plot->showContour(true);
    return plot;
}

// The baseline: reading the picture, which every run pays.
void BM_DecodePng(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(decoded());
}
BENCHMARK(BM_DecodePng)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_GridsAndZones(benchmark::State &state)
{
    const UniformityImage image(decoded());
    UniformityPass pass;
    UniformityReportData data;
    for (auto _ : state) {
        computeUniformityReport(image, settings(), pass, data, nullptr);
        benchmark::DoNotOptimize(data.cpiq.metric);
    }
}
BENCHMARK(BM_GridsAndZones)->Unit(benchmark::kMillisecond)->UseRealTime();

// The four charts drawn into pictures, without writing them.
void BM_RenderCharts(benchmark::State &state)
{
    const std::unique_ptr<QSpectrogramPlot> plot = reportPlot();
    for (auto _ : state) {
        for (const UniformityGrid &grid : reportPass().grids) {
            plot->setGrid(grid.values, grid.cols, grid.rows, 10);
            benchmark::DoNotOptimize(plot->renderImage());
        }
    }
}
BENCHMARK(BM_RenderCharts)->Unit(benchmark::kMillisecond)->UseRealTime();

// Encoding four rendered charts one after the other.
void BM_EncodeCharts(benchmark::State &state)
{
    const std::unique_ptr<QSpectrogramPlot> plot = reportPlot();
    std::vector<QImage> charts;
    for (const UniformityGrid &grid : reportPass().grids) {
        plot->setGrid(grid.values, grid.cols, grid.rows, 10);
        charts.push_back(plot->renderImage());
    }
    QTemporaryDir out;
    for (auto _ : state)
        for (std::size_t i = 0; i < charts.size(); ++i)
            savePng(charts[i], out.filePath(QStringLiteral("c%1.png").arg(i)));
}
BENCHMARK(BM_EncodeCharts)->Unit(benchmark::kMillisecond)->UseRealTime();

// Rendering and writing as the report does: the charts rendered one after
// the other, their PNG files encoded in parallel.
void BM_RenderAndWriteCharts(benchmark::State &state)
{
    QSpectrogramPlot plot;
    QTemporaryDir out;
    const QString folder = out.path() + QLatin1Char('/');
    for (auto _ : state)
        benchmark::DoNotOptimize(renderUniformityCharts(plot, reportPass(), settings(), folder));
}
BENCHMARK(BM_RenderAndWriteCharts)->Unit(benchmark::kMillisecond)->UseRealTime();

// The whole batch test as a test station runs it: a fresh process each time.
void BM_BatchProcess(benchmark::State &state)
{
    const FlatField &field = flatField();
    QTemporaryDir temp;
    const QString report = temp.filePath(QStringLiteral("report.html"));
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("KESTRO_NONINTERACTIVE"), QStringLiteral("1"));
    env.insert(QStringLiteral("KESTRO_SENSOR_DATA"), QStringLiteral(KESTRO_SENSOR_DATA_PATH));
    env.insert(QStringLiteral("TMPDIR"), temp.path());
    const QStringList args = {QStringLiteral("Uniformity"),
                              field.path,
                              report,
                              QStringLiteral("ShowContour=true"),
                              QStringLiteral("ContourLow=0"),
                              QStringLiteral("ContourSS=25"),
                              QStringLiteral("ContourHigh=255"),
                              QStringLiteral("SubSampleSize=10")};
    for (auto _ : state) {
        QProcess process;
        process.setProcessEnvironment(env);
        process.start(QStringLiteral(KESTRO_LOADER_PATH), args);
        if (!process.waitForFinished(60000) || process.exitCode() != 0) {
            std::fprintf(stderr, "%s\n", process.readAllStandardError().constData());
            state.SkipWithError("KestroLoader failed");
            break;
        }
    }
}
BENCHMARK(BM_BatchProcess)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    // --write-flat FILE writes the picture for runs by hand.
    if (argc == 3 && QLatin1String(argv[1]) == QLatin1String("--write-flat"))
        return flatFieldImage(4000, 3000).save(QString::fromLocal8Bit(argv[2])) ? 0 : 1;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    flatField();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
