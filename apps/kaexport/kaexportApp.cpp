#include "kaexportApp.h"

#include "kaexportHost.h"
#include "kaexportOptions.h"

#include "kaAtomicFile.h"
#include "kaDefaultLights.h"
#include "kaExposure.h"
#include "kaMessage.h"
#include "kaPlatform.h"
#include "kaPreferences.h"
#include "kaSceneImport.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <map>
#include <ostream>

namespace kaexport {

Runner defineSnapshot(CLI::App& command);
Runner defineFast(CLI::App& command);
Runner defineSequence(CLI::App& command);
Runner defineMovie(CLI::App& command);
Runner defineFiles(CLI::App& command);
Runner defineInfo(CLI::App& command);
Runner defineClusterCheck(CLI::App& command);

const std::vector<Command>& commands() {
    static const std::vector<Command> table = {
        {"snapshot", "render the scene into an image file", true, defineSnapshot},
        {"sequence", "render the animation into numbered image files", true, defineSequence},
        {"movie", "render the animation into a movie file (AVI, MP4, MKV, MOV)", true, defineMovie},
        {"fast", "capture the scene repeatedly (files or PNG bytes)", true, defineFast},
        {"files", "list the files an export writes", false, defineFiles},
        {"info", "list what a scene holds: objects, materials, cameras, lights, animations", false,
         defineInfo},
        {"cluster-check", "start a render cluster, time one sample on it, stop it", true,
         defineClusterCheck},
    };
    return table;
}

namespace {

// The program's own options, accepted before and after the command.
struct ProgramOptions {
    std::string scene, prefs;
    std::vector<std::string> assignments;
    int pngLevel = -1;     // -1: the preference's
    std::string headlight; // empty: the preference's
    std::string camera, view;
    bool fit = false;
    double exposure = std::nan(""); // NaN: the preference's
    bool verbose = false, version = false;
};

void defineProgram(CLI::App& app, ProgramOptions& o) {
    app.description("Turns the 3D view into image files.");
    app.footer("\nEach command has --help. Exit codes: 0 done, 1 failed, 2 usage error, "
               "3 cancelled.\n\n" +
               preferencesHelp());
    app.add_option("--scene", o.scene,
                   "the scene to render (glTF, OBJ, FBX, ...); the built-in scene when left out")
        ->type_name("FILE");
    app.add_option("--prefs", o.prefs, "read the preferences from FILE (JSON) over the defaults")
        ->type_name("FILE");
    app.add_option("--set", o.assignments, "set one preference for this run; may be repeated")
        ->type_name("\"Key=value\"")
        ->allow_extra_args(false);
    app.add_option("--png-level", o.pngLevel,
                   "PNG compression for this run: 0 none, 1 fastest (the default) .. 9 smallest "
                   "(sets \"ImageExport png level\")")
        ->type_name("N")
        ->check(rangeCheck(0, 9));
    app.add_option("--headlight", o.headlight,
                   "default lights (a headlight and a soft environment): auto for a scene without "
                   "lights of its own (the default), on always, off never (sets \"Headlight\")")
        ->type_name("auto|on|off")
        ->check(CLI::IsMember({"auto", "on", "off"}));
    app.add_option("--exposure", o.exposure,
                   "stops of light: lights and glowing surfaces 2^EV as bright (sets "
                   "\"Exposure\")")
        ->type_name("EV")
        ->check(rangeCheck(-20.0, 20.0));
    app.add_option("--camera", o.camera,
                   "look through the scene's camera of this name, or number (1: the first, in "
                   "the order kaexport info lists them)")
        ->type_name("NAME");
    app.add_option("--view", o.view,
                   "look at the whole scene from a side: front, back, left, right, top, bottom "
                   "or iso")
        ->type_name("SIDE")
        ->check(CLI::IsMember({"front", "back", "left", "right", "top", "bottom", "iso"}));
    app.add_flag("--fit", o.fit,
                 "move the camera back along its direction until the whole scene is in the "
                 "picture");
    app.add_flag("--verbose,-v", o.verbose,
                 "also show the library's informational lines and diagnostics");
    app.add_flag("--version", o.version, "the program's version");
    // Options of the program may follow a command's own.
    app.fallthrough();
    app.require_subcommand(0, 1);
}

// Which part of the parser the error is about: "kaexport" or "kaexport snapshot".
std::string whoseError(const CLI::App& app) {
    for (const CLI::App* command : app.get_subcommands())
        return "kaexport " + command->get_name();
    return "kaexport";
}

int usageError(Streams& io, const std::string& who, const std::string& text) {
    io.err << who << ": " << text << "\nTry '" << who << " --help'.\n";
    return UsageError;
}

} // namespace

namespace {
std::string g_sceneOption;
} // namespace

const std::string& sceneOption() {
    return g_sceneOption;
}

int run(const QStringList& args, Streams& io) {
    CLI::App app("", "kaexport");
    ProgramOptions program;
    defineProgram(app, program);
    std::map<std::string, Runner> runners;
    for (const Command& command : commands())
        runners[command.name] = command.define(*app.add_subcommand(command.name, command.summary));

    // The parser takes its arguments last first.
    std::vector<std::string> reversed;
    for (auto it = args.rbegin(); it != args.rend(); ++it)
        reversed.push_back(it->toStdString());
    try {
        app.parse(reversed);
    } catch (const CLI::CallForHelp&) {
        io.out << app.help();
        return Done;
    } catch (const CLI::ParseError& e) {
        return usageError(io, whoseError(app), e.what());
    }
    if (program.version) {
        io.out << kaPlatform::getAppVersionName().toStdString() << "\n";
        return Done;
    }
    const std::vector<CLI::App*> chosen = app.get_subcommands();
    if (chosen.empty())
        return usageError(io, "kaexport", "no command given");
    const Command* command = nullptr;
    for (const Command& c : commands())
        if (chosen.front()->get_name() == c.name)
            command = &c;

    if (!program.prefs.empty()) {
        kaMessage loaded;
        QString error;
        if (!readPreferencesFile(QString::fromStdString(program.prefs), loaded, error)) {
            io.err << "kaexport: " << error.toStdString() << "\n";
            return Failed;
        }
        kaPreferences::getData() = loaded;
    }
    for (const std::string& assignment : program.assignments) {
        QString error;
        if (!applyPreferenceAssignment(QString::fromStdString(assignment), error))
            return usageError(io, "kaexport", error.toStdString());
    }
    // The option names the one preference it sets, and wins over --set and --prefs.
    if (program.pngLevel >= 0)
        kaPreferences::getData().set("ImageExport png level", program.pngLevel);
    if (!program.headlight.empty())
        kaDefaultLights::setUse(program.headlight == "on" ? kaDefaultLights::Use::Always
                                : program.headlight == "off"
                                    ? kaDefaultLights::Use::Never
                                    : kaDefaultLights::Use::WithoutSceneLights);
    g_sceneOption = program.scene;
    if (!std::isnan(program.exposure))
        kaExposure::setStops(float(program.exposure));
    if (!command->rendersScene)
        return runners[command->name](io, nullptr);
    Host host;
    QString error;
    if (!host.loadScene(QString::fromStdString(program.scene), error)) {
        io.err << "kaexport: " << error.toStdString() << "\n";
        return Failed;
    }
    kaSceneImport::CameraChoice camera;
    camera.camera = QString::fromStdString(program.camera);
    camera.view = QString::fromStdString(program.view);
    camera.fit = program.fit;
    if (!host.lookThrough(camera, error)) {
        io.err << "kaexport: " << error.toStdString() << "\n";
        return Failed;
    }
    return runners[command->name](io, &host);
}

} // namespace kaexport
