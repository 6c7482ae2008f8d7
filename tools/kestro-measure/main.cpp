// kestro-measure: the headless measurement tool. Each engine has a subcommand
// that prints its results as one JSON object on stdout.

#include "command.h"

#ifndef KESTRO_MEASURE_LEAN
#include <QApplication>
#endif
#include <QCoreApplication>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#ifdef KESTRO_MEASURE_LEAN
#include <unistd.h>
#endif

namespace kestro::measure {

static std::vector<Command> &commands()
{
    static std::vector<Command> list;
    return list;
}

bool registerCommand(const Command &command)
{
    commands().push_back(command);
    return true;
}

int fail(const QString &message)
{
    std::fprintf(stderr, "kestro-measure: %s\n", message.toLocal8Bit().constData());
    return 1;
}

int usageError(const char *name)
{
    for (const Command &c : commands()) {
        if (std::strcmp(c.name, name) == 0) {
            std::fprintf(stderr, "usage: kestro-measure %s %s\n", c.name, c.usage);
            return 1;
        }
    }
    return 1;
}

// The reason of the first failed write to stdout (0 while all went well).
static int g_outputErrno = 0;

void printJson(const std::string &json)
{
    errno = 0;
    if ((std::fwrite(json.data(), 1, json.size(), stdout) != json.size()
         || std::fputc('\n', stdout) == EOF || std::fflush(stdout) != 0)
        && g_outputErrno == 0)
        g_outputErrno = errno ? errno : EIO;
}

// The JSON is only useful whole: when stdout could not take all of it (full
// disk, closed pipe), the run fails with a message instead of ending 0 with
// a cut-off document.
static int finishOutput(int status)
{
    errno = 0;
    if (std::fflush(stdout) != 0 && g_outputErrno == 0)
        g_outputErrno = errno ? errno : EIO;
    if (g_outputErrno == 0 && !std::ferror(stdout))
        return status;
    std::fprintf(stderr, "kestro-measure: cannot write the output: %s\n",
                 std::strerror(g_outputErrno ? g_outputErrno : EIO));
    return 1;
}

// A run that writes a report (--report) draws its pictures with widgets, on
// the offscreen platform unless another one is asked for: the tool never
// needs a display.
static bool drawsReportPictures(int argc, char **argv)
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--report") == 0)
            return true;
    }
    return false;
}

#ifdef KESTRO_MEASURE_LEAN
// This program holds only the plain measurements. Whatever else the command
// line asks for (a command it does not hold, a report drawn with widgets,
// the usage over every command) is handed to the full program beside it,
// which replaces this process: arguments, standard streams and exit status
// stay those of one run.
static bool runsHere(int argc, char **argv)
{
    if (argc < 2 || drawsReportPictures(argc, argv))
        return false;
    for (const Command &c : commands()) {
        if (std::strcmp(argv[1], c.name) == 0)
            return true;
    }
    return false;
}

static std::string fullProgramPath()
{
    std::vector<char> buffer(4096);
    const ssize_t n = readlink("/proc/self/exe", buffer.data(), buffer.size() - 1);
    std::string self = n > 0 ? std::string(buffer.data(), std::size_t(n)) : std::string();
    const std::string::size_type slash = self.rfind('/');
    return (slash == std::string::npos ? std::string() : self.substr(0, slash + 1))
           + KESTRO_MEASURE_FULL_NAME;
}

[[noreturn]] static void runFullProgram(char **argv)
{
    const std::string path = fullProgramPath();
    execv(path.c_str(), argv);
    std::fprintf(stderr, "kestro-measure: cannot start %s: %s\n", path.c_str(),
                 std::strerror(errno));
    std::exit(1);
}
#endif

static void printUsage(FILE *out)
{
    std::vector<Command> sorted = commands();
    std::sort(sorted.begin(), sorted.end(),
              [](const Command &a, const Command &b) { return std::strcmp(a.name, b.name) < 0; });
    std::fprintf(out, "usage: kestro-measure COMMAND [ARGS...]\n\ncommands:\n");
    for (const Command &c : sorted)
        std::fprintf(out, "  %s %s\n", c.name, c.usage);
}

} // namespace kestro::measure

int main(int argc, char **argv)
{
    using namespace kestro::measure;
#ifdef SIGPIPE
    // A closed pipe shows as a write error that finishOutput reports, not as
    // a silent death by signal.
    std::signal(SIGPIPE, SIG_IGN);
#endif
#ifdef KESTRO_MEASURE_LEAN
    if (!runsHere(argc, argv))
        runFullProgram(argv);
#endif
    std::unique_ptr<QCoreApplication> app;
#ifndef KESTRO_MEASURE_LEAN
    if (drawsReportPictures(argc, argv)) {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
        app = std::make_unique<QApplication>(argc, argv);
    }
#endif
    if (!app)
        app = std::make_unique<QCoreApplication>(argc, argv);
    QStringList args = app->arguments();
    args.removeFirst();
    if (args.isEmpty() || args.first() == QLatin1String("--help")
        || args.first() == QLatin1String("-h")) {
        printUsage(args.isEmpty() ? stderr : stdout);
        return args.isEmpty() ? 1 : 0;
    }
    const QString name = args.takeFirst();
    for (const Command &c : commands()) {
        if (name == QLatin1String(c.name))
            return finishOutput(c.run(args));
    }
    std::fprintf(stderr, "kestro-measure: unknown command '%s'\n", name.toLocal8Bit().constData());
    printUsage(stderr);
    return 1;
}
