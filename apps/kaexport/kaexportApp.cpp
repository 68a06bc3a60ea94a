#include "kaexportApp.h"

#include "kaexportHost.h"
#include "kaexportOptions.h"

#include "kaMessage.h"
#include "kaPlatform.h"
#include "kaPreferenceKeys.h"
#include "kaPreferences.h"

#include <ostream>

namespace kaexport {

int commandFiles(const QStringList& args, Streams& io);
int commandSnapshot(const QStringList& args, Streams& io, Host& host);
int commandFast(const QStringList& args, Streams& io, Host& host);
extern const char* const kFilesUsage;
extern const char* const kSnapshotUsage;
extern const char* const kFastUsage;

const std::vector<Command>& commands() {
    static const std::vector<Command> table = {
        {"snapshot", "render the scene into an image file", kSnapshotUsage, true,
         [](const QStringList& a, Streams& io, Host* h) { return commandSnapshot(a, io, *h); }},
        {"fast", "capture the scene repeatedly (files or PNG bytes)", kFastUsage, true,
         [](const QStringList& a, Streams& io, Host* h) { return commandFast(a, io, *h); }},
        {"files", "list the files an export writes", kFilesUsage, false,
         [](const QStringList& a, Streams& io, Host*) { return commandFiles(a, io); }},
    };
    return table;
}

namespace {

void printUsage(std::ostream& out) {
    out << "Usage: kaexport [--scene FILE] [--prefs FILE] [--set \"Key=value\"]... COMMAND [ARGS]\n"
           "\n"
           "Turns the 3D view into image files.\n"
           "\n"
           "Options (before or after COMMAND):\n"
           "  --scene FILE       the scene to render (glTF, OBJ, FBX, ...); the built-in scene\n"
           "                     when left out\n"
           "  --prefs FILE       read the preferences from FILE (JSON) over the defaults\n"
           "  --set \"Key=value\"  set one preference for this run; may be repeated\n"
           "  --help             this text; COMMAND --help explains a command\n"
           "  --version          the program's version\n"
           "\n"
           "Commands:\n";
    for (const Command& command : commands())
        out << "  " << QString(command.name).leftJustified(8).toStdString() << " "
            << command.summary << "\n";
    out << "\nPreferences (--set):\n";
    for (const kaPreferenceKeys::Key& key : kaPreferenceKeys::all())
        out << "  \"" << key.name << "\" (" << kaMessage::typeName(*key.type)
            << "): " << key.description << "\n";
}

} // namespace

int run(const QStringList& args, Streams& io) {
    OptionReader reader(args);
    auto usageError = [&](const QString& text) {
        io.err << "kaexport: " << text.toStdString() << "\n"
               << "Try 'kaexport --help'.\n";
        return UsageError;
    };

    QString prefsFile, sceneFile;
    QStringList assignments;
    while (!reader.atEnd()) {
        QString arg = reader.next();
        if (arg == "--help" || arg == "-h") {
            printUsage(io.out);
            return Done;
        }
        if (arg == "--version") {
            io.out << kaPlatform::getAppVersionName().toStdString() << "\n";
            return Done;
        }
        if (arg == "--prefs") {
            if (!reader.value(arg, prefsFile))
                return usageError(reader.error);
            continue;
        }
        if (arg == "--scene") {
            if (!reader.value(arg, sceneFile))
                return usageError(reader.error);
            continue;
        }
        if (arg == "--set") {
            QString assignment;
            if (!reader.value(arg, assignment))
                return usageError(reader.error);
            assignments << assignment;
            continue;
        }
        if (arg.startsWith("-"))
            return usageError(QString("unknown option '%1'").arg(arg));

        for (const Command& command : commands()) {
            if (arg != command.name)
                continue;
            // The options of the whole program may also follow the command's own.
            QStringList rest;
            while (!reader.atEnd()) {
                const QString next = reader.next();
                QString* global = next == "--prefs"   ? &prefsFile
                                  : next == "--scene" ? &sceneFile
                                                      : nullptr;
                QString assignment;
                if (global || next == "--set") {
                    if (!reader.value(next, global ? *global : assignment))
                        return usageError(reader.error);
                    if (!global)
                        assignments << assignment;
                    continue;
                }
                rest << next;
            }
            if (!prefsFile.isEmpty()) {
                QString error;
                if (!kaPreferences::load(prefsFile, &error)) {
                    io.err << "kaexport: " << error.toStdString() << "\n";
                    return Failed;
                }
            }
            for (const QString& assignment : assignments) {
                QString error;
                if (!applyPreferenceAssignment(assignment, error))
                    return usageError(error);
            }
            if (rest.contains("--help") || rest.contains("-h")) {
                io.out << command.usage;
                return Done;
            }
            if (!command.rendersScene)
                return command.run(rest, io, nullptr);
            Host host;
            QString error;
            if (!host.loadScene(sceneFile, error)) {
                io.err << "kaexport: " << error.toStdString() << "\n";
                return Failed;
            }
            return command.run(rest, io, &host);
        }
        return usageError(QString("unknown command '%1'").arg(arg));
    }
    return usageError("no command given");
}

} // namespace kaexport
