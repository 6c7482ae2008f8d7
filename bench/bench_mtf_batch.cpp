// The batch MTF test on a 4000 x 3000 RGB chart with four slanted edges,
// saved as PNG: the whole KestroLoader process with four regions from a
// region file, and where its time goes, measured in-process: PNG decoding
// (the baseline every run pays), the four regions' MTF, rendering a report
// graph, PNG encoding (with the generic writer beside ours), the regions
// picture and all report pictures together. Also kestro-measure mtf on a
// 512 x 512 chart with four regions, against the tool's bare start-up.
//
//   build/bench/bench_mtf_batch --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
//
// Process benchmarks report the children's CPU seconds per run (cpu_s), which
// a loaded machine does not inflate as much as the wall time.

#include "imaging/imageload.h"
#include "imaging/pngwriter.h"
#include "measure/mtf/gui/mtfplot.h"
#include "measure/mtf/gui/mtfreportpictures.h"
#include "measure/mtf/mtfregionlist.h"
#include "measure/mtf/mtfreport.h"
#include "platform/colorcal/imagecache.h"
#include "tests/platform/colorcal/slantededge.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QBuffer>
#include <QImageWriter>
#include <QPainter>
#include <QProcess>
#include <QTemporaryDir>
#include <sys/resource.h>

namespace {

using namespace kestro;

// A chart: mid-gray with sensor-like noise and four slanted-edge patches;
// the regions lie across the edges. Written once as PNG with its region file.
struct Chart
{
    QTemporaryDir dir;
    QString image;
    QString roi;
    QVector<QRectF> regions;

    Chart(int width, int height, int patch, const QString &name)
    {
        test::EdgeParams edge;
        edge.width = patch;
        edge.height = patch * 4 / 3;
        edge.colour = true;
        edge.sigma[0] = 0.8;
        edge.sigma[1] = 0.7;
        edge.sigma[2] = 0.9;
        edge.encodeGamma = 1 / 2.2;
        edge.noise = 1.5;
        const QImage part = test::makeEdgeImage(edge);
        QImage picture(width, height, QImage::Format_RGB32);
        std::uint32_t seed = 7;
        for (int y = 0; y < height; ++y) {
            auto *row = reinterpret_cast<QRgb *>(picture.scanLine(y));
            for (int x = 0; x < width; ++x) {
                seed = seed * 1664525u + 1013904223u;
                const int v = 126 + static_cast<int>(seed >> 29);
                row[x] = qRgb(v, v, v);
            }
        }
        QPainter painter(&picture);
        QByteArray ini = "[patches]\n";
        for (int k = 0; k < 4; ++k) {
            const QPoint at((k % 2 ? 5 : 1) * width / 8, (k / 2 ? 5 : 1) * height / 8);
            painter.drawImage(at, part);
            const QRectF region(at.x() + patch / 2 - patch / 5, at.y() + edge.height / 6,
                                2 * patch / 5, edge.height * 2 / 3);
            regions << region;
            ini += QStringLiteral("%1\\left=%2\n%1\\top=%3\n%1\\width=%4\n%1\\height=%5\n")
                           .arg(k + 1)
                           .arg(region.left())
                           .arg(region.top())
                           .arg(region.width())
                           .arg(region.height())
                           .toLatin1();
        }
        painter.end();
        image = dir.filePath(name + QStringLiteral(".png"));
        picture.save(image);
        roi = dir.filePath(name + QStringLiteral(".roi"));
        QFile file(roi);
        if (file.open(QIODevice::WriteOnly))
            file.write(ini + "size=4\n");
    }
};

const Chart &bigChart()
{
    static const Chart chart(4000, 3000, 600, QStringLiteral("chart12mp"));
    return chart;
}

const Chart &smallChart()
{
    static const Chart chart(512, 512, 96, QStringLiteral("chart512"));
    return chart;
}

// The four regions of the chart, measured as the batch run measures them.
void measure(MTFRegionList &list)
{
    const Chart &chart = bigChart();
    list.setFileName(chart.image);
    list.setGamma(0.45);
    list.setPictureHeight(3000);
    for (const QRectF &r : chart.regions)
        list.addRegion(r);
    MTFThread(nullptr, &list).runSynchronously();
}

MTFRegionList &measuredRegions()
{
    static MTFRegionList list;
    if (list.mtfRegionCount() == 0)
        measure(list);
    return list;
}

QImage graphOf(MTFPlot &plot, const regionBasedMTF &m)
{
    plot.setData(m.frequencies(), m.curve(regionBasedMTF::Gray), m.curve(regionBasedMTF::Red),
                 m.curve(regionBasedMTF::Green), m.curve(regionBasedMTF::Blue), m.pointCount());
    return plot.renderImage();
}

// Baseline: decoding the picture, which every run pays.
void BM_DecodePng(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(loadImage(bigChart().image));
}
BENCHMARK(BM_DecodePng)->Unit(benchmark::kMillisecond)->UseRealTime();

// The four regions' MTF on the decoded picture (the library's cache holds it).
void BM_FourRegions(benchmark::State &state)
{
    colorcal::loadImageCached(bigChart().image);
    for (auto _ : state) {
        MTFRegionList list;
        measure(list);
        benchmark::DoNotOptimize(list.mtf(3)->mtf50(0));
    }
}
BENCHMARK(BM_FourRegions)->Unit(benchmark::kMillisecond)->UseRealTime();

// One report graph (1280 x 960 widget pixels as millimetres at 85 dpi).
void BM_RenderGraph(benchmark::State &state)
{
    MTFPlot plot;
    plot.resize(1280, 960);
    for (auto _ : state)
        benchmark::DoNotOptimize(graphOf(plot, *measuredRegions().mtf(0)));
}
BENCHMARK(BM_RenderGraph)->Unit(benchmark::kMillisecond)->UseRealTime();

// The first region's graph as the batch report draws it.
QImage reportGraph()
{
    MTFPlot plot;
    plot.resize(1280, 960);
    return graphOf(plot, *measuredRegions().mtf(0));
}

// Encoding one graph: our writer, and the generic one at its fastest level.
void BM_EncodeGraph(benchmark::State &state)
{
    const QImage graph = reportGraph();
    for (auto _ : state)
        benchmark::DoNotOptimize(kestro::encodePng(graph));
}
BENCHMARK(BM_EncodeGraph)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_EncodeGraphGenericWriter(benchmark::State &state)
{
    const QImage graph = reportGraph();
    for (auto _ : state) {
        QBuffer buffer;
        buffer.open(QIODevice::WriteOnly);
        QImageWriter writer(&buffer, "png");
        writer.setQuality(85); // deflate level 1
        writer.write(graph);
        benchmark::DoNotOptimize(buffer.size());
    }
}
BENCHMARK(BM_EncodeGraphGenericWriter)->Unit(benchmark::kMillisecond)->UseRealTime();

// The regions picture: the chart scaled to 1280 x 960 with its outlines.
void BM_RegionsPicture(benchmark::State &state)
{
    const QImage picture = loadImage(bigChart().image);
    QVector<mtf::RegionOutline> outlines;
    for (const QRectF &r : bigChart().regions)
        outlines.append({r, Qt::red, outlines.size() + 1});
    for (auto _ : state)
        benchmark::DoNotOptimize(
                kestro::encodePng(mtf::regionsPicture(picture, outlines, QSize(1280, 960))));
}
BENCHMARK(BM_RegionsPicture)->Unit(benchmark::kMillisecond)->UseRealTime();

// Every picture of the report and its text, written as the batch run does.
void BM_ReportWithPictures(benchmark::State &state)
{
    const QImage picture = loadImage(bigChart().image);
    QVector<mtf::RegionOutline> outlines;
    mtf::MtfReportInput input;
    input.gamma = 0.45;
    for (int i = 0; i < 4; ++i) {
        outlines.append({bigChart().regions[i], Qt::red, i + 1});
        input.regions << measuredRegions().mtf(i);
    }
    QTemporaryDir out;
    input.outputPath = out.filePath(QStringLiteral("report.html"));
    for (auto _ : state) {
        mtf::MtfReportPictureWriter pictures(picture, outlines, QSize(1280, 960));
        input.pictures = &pictures;
        benchmark::DoNotOptimize(mtf::buildMtfReport(input));
    }
}
BENCHMARK(BM_ReportWithPictures)->Unit(benchmark::kMillisecond)->UseRealTime();

double childCpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec
           + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
}

// Runs a program once per iteration; exit status `expected`.
void runProcess(benchmark::State &state, const QString &program, const QStringList &args,
                int expected = 0)
{
    QTemporaryDir temp;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("KESTRO_NONINTERACTIVE"), QStringLiteral("1"));
    env.insert(QStringLiteral("KESTRO_SENSOR_DATA"), QStringLiteral(KESTRO_SENSOR_DATA_PATH));
    env.insert(QStringLiteral("TMPDIR"), temp.path());
    QStringList arguments = args;
    arguments.replaceInStrings(QStringLiteral("@OUT@"), temp.filePath(QStringLiteral("out.html")));
    const double cpuBefore = childCpuSeconds();
    for (auto _ : state) {
        QProcess process;
        process.setProcessEnvironment(env);
        process.start(program, arguments);
        if (!process.waitForFinished(60000) || process.exitCode() != expected) {
            std::fprintf(stderr, "%s\n", process.readAllStandardError().constData());
            state.SkipWithError("the program failed");
            break;
        }
    }
    state.counters["cpu_s"] = benchmark::Counter((childCpuSeconds() - cpuBefore)
                                                 / std::max<double>(1, state.iterations()));
}

// The whole batch test as a test station runs it, a fresh process each time;
// and the same program started for no test, its start-up alone.
void BM_BatchProcess(benchmark::State &state)
{
    runProcess(state, QStringLiteral(KESTRO_LOADER_PATH),
               {QStringLiteral("MTF"), bigChart().image, QStringLiteral("@OUT@"),
                QStringLiteral("Gamma=0.45"), QStringLiteral("ROI=") + bigChart().roi});
}
BENCHMARK(BM_BatchProcess)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);

void BM_LoaderStartUp(benchmark::State &state)
{
    runProcess(state, QStringLiteral(KESTRO_LOADER_PATH), {QStringLiteral("None")});
}
BENCHMARK(BM_LoaderStartUp)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(10);

// kestro-measure mtf on 512 x 512 with four regions, and the tool's start-up
// (a usage error: exit status 1 before anything is read).
void BM_MeasureMtf512(benchmark::State &state)
{
    runProcess(state, QStringLiteral(KESTRO_MEASURE_PATH),
               {QStringLiteral("mtf"), smallChart().image, QStringLiteral("--roi-file"),
                smallChart().roi});
}
BENCHMARK(BM_MeasureMtf512)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(20);

void BM_MeasureStartUp(benchmark::State &state)
{
    runProcess(state, QStringLiteral(KESTRO_MEASURE_PATH), {QStringLiteral("mtf")}, 1);
}
BENCHMARK(BM_MeasureStartUp)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(20);

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    bigChart();
    smallChart();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
