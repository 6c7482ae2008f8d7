// kestro-measure: the headless measurement tool. Each engine has a subcommand
// that prints its results as one JSON object on stdout.

#include "command.h"

#include <QCoreApplication>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

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

void printJson(const std::string &json)
{
    std::fwrite(json.data(), 1, json.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

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
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments();
    args.removeFirst();
    if (args.isEmpty() || args.first() == QLatin1String("--help")
        || args.first() == QLatin1String("-h")) {
        printUsage(args.isEmpty() ? stderr : stdout);
        return args.isEmpty() ? 1 : 0;
    }
    const QString name = args.takeFirst();
    for (const Command &c : commands()) {
        if (name == QLatin1String(c.name))
            return c.run(args);
    }
    std::fprintf(stderr, "kestro-measure: unknown command '%s'\n", name.toLocal8Bit().constData());
    printUsage(stderr);
    return 1;
}
