// Whole kestro-measure processes, started cold one after another as a script
// starts them: mtf on a 512 x 512 picture with four slanted-edge regions, and
// the bare start-up (a usage error, exit status 1 before anything is read).
// Each runs in the lean kestro-measure and in kestro-measure-full, the program
// that links every command's libraries (the baseline: how every command
// started before the split). The detect start-up shows what a command that
// the lean program hands over pays for the handover.
//
//   build/bench/bench_measure_process --benchmark_repetitions=3
//   build/bench/bench_measure_process --write-chart DIR
//       writes DIR/chart512.png and prints the mtf arguments (for hyperfine)
//
// cpu_s is the children's CPU seconds per run, which a busy machine inflates
// less than the wall time.

#include "tests/platform/colorcal/slantededge.h"

#include <benchmark/benchmark.h>

#include <QDir>
#include <QPainter>
#include <QStringList>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <vector>

extern char **environ;

namespace {

// Four slanted edges, one per quadrant, on a mid-gray noisy ground; each
// region lies across its edge.
struct Chart
{
    QString image;
    QStringList regions; // --roi values

    void write(const QString &folder)
    {
        const int size = 512, patch = 96;
        // Colour edges, each channel blurred a little differently, sRGB-like
        // encoding and sensor-like noise.
        kestro::test::EdgeParams edge;
        const double blur[3] = {0.8, 0.7, 0.9};
        std::copy(std::begin(blur), std::end(blur), edge.sigma);
        edge.colour = true;
        edge.width = patch;
        edge.height = patch * 4 / 3;
        edge.noise = 1.5;
        edge.encodeGamma = 1 / 2.2;
        QImage picture(size, size, QImage::Format_RGB32);
        picture.fill(qRgb(128, 128, 128));
        QPainter painter(&picture);
        for (int k = 0; k < 4; ++k) {
            edge.angleDegrees = 4 + 3 * k;
            edge.seed = unsigned(k + 1);
            const QPoint at((k % 2 ? 5 : 1) * size / 8, (k / 2 ? 5 : 1) * size / 8);
            painter.drawImage(at, kestro::test::makeEdgeImage(edge));
            regions << QStringLiteral("%1,%2,%3,%4")
                               .arg(at.x() + patch / 2 - patch / 5)
                               .arg(at.y() + edge.height / 6)
                               .arg(2 * patch / 5)
                               .arg(edge.height * 2 / 3);
        }
        painter.end();
        image = QDir(folder).filePath(QStringLiteral("chart512.png"));
        picture.save(image);
    }

    QStringList mtfArguments() const
    {
        QStringList args{QStringLiteral("mtf"), image};
        for (const QString &r : regions)
            args << QStringLiteral("--roi") << r;
        return args;
    }
};

const Chart &chart()
{
    static QTemporaryDir dir;
    static Chart c;
    if (c.image.isEmpty())
        c.write(dir.path());
    return c;
}

std::string program(const char *name)
{
    return std::string(KESTRO_MEASURE_DIR) + "/" + name;
}

// Runs the program once per iteration, output to /dev/null; exit status
// `expected`.
void runProcess(benchmark::State &state, const std::string &path, const QStringList &args,
                int expected)
{
    std::vector<std::string> strings{path};
    for (const QString &a : args)
        strings.push_back(a.toStdString());
    std::vector<char *> argv;
    for (std::string &s : strings)
        argv.push_back(s.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    double cpu = 0;
    for (auto _ : state) {
        pid_t pid = 0;
        int status = 0;
        rusage usage{};
        if (posix_spawn(&pid, path.c_str(), &actions, nullptr, argv.data(), environ) != 0
            || wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status)
            || WEXITSTATUS(status) != expected) {
            state.SkipWithError("the program failed");
            break;
        }
        cpu += usage.ru_utime.tv_sec + usage.ru_stime.tv_sec
               + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
    }
    posix_spawn_file_actions_destroy(&actions);
    state.counters["cpu_s"] = cpu / std::max<double>(1, double(state.iterations()));
}

void BM_Mtf512(benchmark::State &state, const char *name)
{
    runProcess(state, program(name), chart().mtfArguments(), 0);
}
BENCHMARK_CAPTURE(BM_Mtf512, lean, "kestro-measure")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_Mtf512, full, "kestro-measure-full")
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();

void BM_StartUp(benchmark::State &state, const char *name, const char *command)
{
    runProcess(state, program(name), {QString::fromLatin1(command)}, 1);
}
BENCHMARK_CAPTURE(BM_StartUp, mtf_lean, "kestro-measure", "mtf")
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
BENCHMARK_CAPTURE(BM_StartUp, mtf_full, "kestro-measure-full", "mtf")
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
BENCHMARK_CAPTURE(BM_StartUp, detect_handed_over, "kestro-measure", "detect")
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
BENCHMARK_CAPTURE(BM_StartUp, detect_full, "kestro-measure-full", "detect")
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    if (argc == 3 && std::strcmp(argv[1], "--write-chart") == 0) {
        Chart c;
        c.write(QString::fromLocal8Bit(argv[2]));
        std::printf("%s\n", c.mtfArguments().join(QLatin1Char(' ')).toLocal8Bit().constData());
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
