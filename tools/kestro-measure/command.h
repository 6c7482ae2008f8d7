#pragma once
// Subcommands of kestro-measure. Each subcommand lives in its own cmd_*.cpp
// file and registers itself with KESTRO_MEASURE_COMMAND.
//
// Exit status: 0 success; 1 usage error or unreadable input (message on
// stderr); 2 the engine refused (its JSON still printed with "ok": false).

#include <QStringList>
#include <string>

namespace kestro::measure {

using CommandFunction = int (*)(const QStringList &args);

struct Command
{
    const char *name;
    const char *usage; // arguments after the name
    CommandFunction run;
};

bool registerCommand(const Command &command);

// Prints "kestro-measure: <message>" on stderr and returns 1.
int fail(const QString &message);
// Prints the usage of one command on stderr and returns 1.
int usageError(const char *name);
// Writes a complete JSON document and a newline to stdout.
void printJson(const std::string &json);

} // namespace kestro::measure

#define KESTRO_MEASURE_CONCAT2(a, b) a##b
#define KESTRO_MEASURE_CONCAT(a, b) KESTRO_MEASURE_CONCAT2(a, b)
#define KESTRO_MEASURE_COMMAND(name, usage, function) \
    static const bool KESTRO_MEASURE_CONCAT(kestroMeasureRegistered_, __LINE__) \
            = ::kestro::measure::registerCommand({name, usage, function})
