#pragma once

#include <QStringList>

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace kaexport {

enum ExitCode { Done = 0, Failed = 1, UsageError = 2, Cancelled = 3 };

// Output streams of one run, so that tests can capture them. 'outDescriptor' is the
// descriptor behind 'out' when there is one (the program's real standard output), for commands
// that send images there.
struct Streams {
    std::ostream& out;
    std::ostream& err;
    int outDescriptor = -1;
};

class Host;

// What a command does once its options are parsed; commands that render get the host with its
// scene loaded, the others null.
using Runner = std::function<int(Streams& io, Host* host)>;

// One sub-command: its name, one line for the command list, whether it renders, and the
// function that declares its options on its part of the parser and returns its runner.
struct Command {
    const char* name;
    const char* summary;
    bool rendersScene;
    std::function<Runner(CLI::App& command)> define;
};

const std::vector<Command>& commands();

// The scene file of --scene in the current run (empty: the built-in scene), for commands
// that read the scene without rendering it.
const std::string& sceneOption();

// Runs kaexport with 'args' (without the program name). A QApplication must exist.
int run(const QStringList& args, Streams& io);

} // namespace kaexport
