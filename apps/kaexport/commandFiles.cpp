// kaexport files: the names an export would write, one per line.
#include "kaexportApp.h"
#include "kaexportOptions.h"

#include "kaExportFrames.h"
#include "kaImageWriter.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <ostream>

namespace kaexport {

using namespace kaapps;

namespace {
struct FilesOptions {
    std::string out, passes;
    bool multiLayer = false;
    int start = -1, stop = -1, step = 1;
};
} // namespace

Runner defineFiles(CLI::App& command) {
    auto o = std::make_shared<FilesOptions>();
    describe(command, "Prints the files that an export to OUT writes, one per line: one per "
                      "stereo view (\"ImageExport stereo mode\"), render pass and frame. A "
                      "sequence walks from frame 0: the frames before the start are pre-rolled "
                      "(stepped through for the animation and simulation), not written, and not "
                      "listed.");
    addOutput(command, o->out, "the name the export is given");
    command.add_option("--passes", o->passes, "render passes exported, each to its own file")
        ->type_name("PASSES")
        ->check(passListCheck());
    command.add_flag("--multilayer", o->multiLayer,
                     "put the passes into one layered file where the format allows it");
    auto* start = command
                      .add_option("--start", o->start,
                                  "first frame written by a sequence; a negative value takes "
                                  "\"MovieExport start frame\"")
                      ->type_name("S");
    auto* stop = command
                     .add_option("--stop", o->stop,
                                 "last frame of a sequence; a negative value takes "
                                 "\"MovieExport stop frame\"")
                     ->type_name("E");
    auto* step = command.add_option("--step", o->step, "every K-th frame from the start on")
                     ->type_name("K")
                     ->check(rangeCheck(1, 1000000));
    return [o, start, stop, step](Streams& io, Host*) {
        std::vector<unsigned int> passes;
        QString error;
        if (!o->passes.empty())
            parsePassList(QString::fromStdString(o->passes), passes, error);
        const bool sequence = start->count() + stop->count() + step->count() > 0;
        kaImageWriter writer;
        const QString out = QString::fromStdString(o->out);
        if (!sequence) {
            for (const QString& name : writer.getExportedImageFilenames(out, passes, o->multiLayer))
                io.out << name.toStdString() << "\n";
            return int(Done);
        }
        const FrameWalk walk(writer, o->start, o->stop, o->step);
        for (const QString& name : writtenFiles(writer, out, passes, o->multiLayer, walk))
            io.out << name.toStdString() << "\n";
        if (walk.preRolled() == 1)
            io.err << "kaexport files: frame 0 is pre-rolled, not written\n";
        else if (walk.preRolled() > 1)
            io.err << "kaexport files: frames 0 to " << walk.preRolled() - 1
                   << " are pre-rolled, not written\n";
        return int(Done);
    };
}

} // namespace kaexport
