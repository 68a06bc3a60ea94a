#pragma once

#include <QStringList>

#include <functional>
#include <iosfwd>

namespace kaexport {

enum ExitCode { Done = 0, Failed = 1, UsageError = 2, Cancelled = 3 };

// Output streams of one run, so that tests can capture them.
struct Streams {
    std::ostream& out;
    std::ostream& err;
};

class Host;

// One sub-command: its name, one line for the command list, its usage text and its body;
// commands that render get the host with its scene loaded.
struct Command {
    const char* name;
    const char* summary;
    const char* usage;
    bool rendersScene;
    std::function<int(const QStringList& args, Streams& io, Host* host)> run;
};

const std::vector<Command>& commands();

// Runs kaexport with 'args' (without the program name). A QApplication must exist.
int run(const QStringList& args, Streams& io);

} // namespace kaexport
