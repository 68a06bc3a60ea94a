// kaexport snapshot: one picture of the scene through the library's snapshot export.
#include "kaexportApp.h"
#include "kaexportHost.h"
#include "kaexportMemoryWatch.h"
#include "kaexportOptions.h"
#include "kaexportRenderOptions.h"
#include "kaexportReport.h"

#include "kaAtomicFile.h"
#include "kaController.h"
#include "kaExportFrames.h"
#include "kaImageWriter.h"
#include "kaSnapshotFileNames.h"

#include <CLI/CLI.hpp>

#include <QFileInfo>

#include <chrono>
#include <memory>
#include <ostream>

namespace kaexport {

using namespace kaapps;

namespace {

struct SnapshotOptions {
    std::string out;
    RenderOptions render;
    float dpi = -1.0f;
    int frame = -1;
    bool appendRenderTime = false, force = false;
};

} // namespace

Runner defineSnapshot(CLI::App& command) {
    auto o = std::make_shared<SnapshotOptions>();
    describe(command,
             "Renders the scene into OUT; the extension picks the format (png, jpg, tif, exr, hdr, "
             "...). An option left out takes its preference (\"ImageExport width\", \"MovieExport "
             "ssfactor\", \"MovieExport alpha\", \"MovieExport dpi\", ...).");
    addOutput(command, o->out, "the image file to write");
    addRenderOptions(command, o->render);
    command.add_option("--dpi", o->dpi, "resolution written into the file")
        ->type_name("D")
        ->check(rangeCheck(1.0f, 100000.0f));
    command.add_flag("--append-render-time", o->appendRenderTime,
                     "add \"__<seconds>\" to the file name");
    command
        .add_option("--frame", o->frame,
                    "show frame N of the animation: the frames before it are pre-rolled at "
                    "\"MovieExport fps\" as a sequence export does, so the picture equals that "
                    "frame of a sequence")
        ->type_name("N")
        ->check(rangeCheck(0, 100000000));
    command.add_flag("--force", o->force, "replace existing files");

    return [o](Streams& io, Host* host) {
        kaImageWriter writer;
        RenderTarget render;
        if (!applyRenderOptions(io, "snapshot", o->out, o->render, writer, render))
            return int(UsageError);

        // Users are asked for --force before anything renders; files that appear meanwhile are
        // still never replaced without it.
        const QStringList targets =
            kaapps::snapshotFiles(writer, render.out, render.passes, render.passesGiven);
        if (!o->appendRenderTime && !o->force) {
            for (const QString& name : targets) {
                if (QFileInfo::exists(name)) {
                    io.err << "kaexport snapshot: '" << name.toStdString()
                           << "' exists; not overwriting it (use --force)\n";
                    return int(Failed);
                }
            }
        }
        kaAtomicFile::setReplaceExisting(o->force);
        kaController::setBatchOverwrite(o->force);

        if (o->frame >= 0)
            host->stepToFrame(o->frame, timelineRate(-1));
        const int alpha = o->render.alphaArgument();
        WriteReport report;
        const MemoryWatch memory;
        const auto start = std::chrono::steady_clock::now();
        writer.exportImage(render.out, o->render.width, o->render.height, o->render.superSampling,
                           alpha, o->dpi, render.passesGiven, o->render.clusterSetup(),
                           o->appendRenderTime, false);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        // A failed cluster ends the export as a cancel does; it is a failure all the same.
        const bool clusterFailed = !Host::clusterFailure().empty();
        const int code = report.conclude(
            io, "snapshot", (writer.wasExportCanceled() && !clusterFailed) || Host::interrupted(),
            "the files above were written before", o->appendRenderTime ? QStringList() : targets);
        if (code != Done)
            return code;
        io.out << "Render "
               << QString::number(kaImageWriter::getLastRenderTime(), 'f', 2).toStdString()
               << " s, export " << QString::number(seconds, 'f', 2).toStdString() << " s";
        const std::string grown = memory.grownText();
        if (!grown.empty())
            io.out << ", " << grown;
        io.out << "\n";
        return int(Done);
    };
}

} // namespace kaexport
