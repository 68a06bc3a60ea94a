// kaexport sequence: an animation into numbered image files through the library's sequence
// export, with a resume that continues an interrupted run exactly where it stopped.
#include "kaexportApp.h"
#include "kaexportHost.h"
#include "kaexportOptions.h"
#include "kaexportRenderOptions.h"
#include "kaexportReport.h"

#include "kaAtomicFile.h"
#include "kaController.h"
#include "kaExportFrames.h"
#include "kaImageWriter.h"
#include "kaSimulationTime.h"

#include <CLI/CLI.hpp>

#include <QFileInfo>

#include <chrono>
#include <memory>
#include <ostream>
#include <tuple>

namespace kaexport {

using namespace kaapps;

namespace {

struct SequenceOptions {
    std::string out, animation;
    RenderOptions render;
    int fps = -1, start = -1, stop = -1, step = 1;
    bool force = false, resume = false;
};

// The index of the first written frame whose files are not all there and whole.
size_t firstIncompleteFrame(const QStringList& files, const FrameWalk& walk) {
    const size_t frames = walk.written().size();
    for (size_t i = 0; i < frames; ++i)
        for (const QString& file : filesOfFrame(files, walk, i))
            if (!isCompleteImage(file))
                return i;
    return frames;
}

} // namespace

constexpr int kMaxFrame = 100000000;

Runner defineSequence(CLI::App& command) {
    auto o = std::make_shared<SequenceOptions>();
    describe(command,
             "Renders the animation into numbered files OUT-00000.png, OUT-00001.png, ...; the "
             "extension picks the format. The export walks from frame 0: frames before --start are "
             "pre-rolled (the animation and the simulation step through them so that the start "
             "frame shows what playing the animation shows), not written; from the start on every "
             "--step-th frame up to --stop is written. An option left out takes its preference "
             "(\"MovieExport start frame\", \"MovieExport stop frame\", \"MovieExport fps\", "
             "\"ImageExport width\", ...). 'kaexport files' lists the files.");
    addOutput(command, o->out, "the name the frames are numbered after");
    addRenderOptions(command, o->render);
    command.add_option("--fps", o->fps, "frames per second of the animation's clock")
        ->type_name("F")
        ->check(rangeCheck(1, 1000));
    command
        .add_option("--start", o->start, "first frame written; the frames before are pre-rolled")
        ->type_name("S")
        ->check(rangeCheck(0, kMaxFrame));
    command.add_option("--stop", o->stop, "last frame (inclusive)")
        ->type_name("E")
        ->check(rangeCheck(0, kMaxFrame));
    command.add_option("--step", o->step, "every K-th frame from the start on")
        ->type_name("K")
        ->check(rangeCheck(1, kMaxFrame));
    command
        .add_option("--animation", o->animation,
                    "the animation that drives the frames (by name); the host's timeline "
                    "when left out")
        ->type_name("NAME");
    auto* force = command.add_flag("--force", o->force, "replace existing files");
    command
        .add_flag("--resume", o->resume,
                  "continue an interrupted sequence: keep the frames whose files are complete, "
                  "pre-roll to the first one that is not and render from there; the result is "
                  "the same as a run that was never interrupted")
        ->excludes(force);

    return [o](Streams& io, Host* host) {
        kaImageWriter writer;
        writer.setNoShowImage(true);
        RenderTarget render;
        if (!applyRenderOptions(io, "sequence", o->out, o->render, writer, render))
            return int(UsageError);
        __int64 animationId = 0;
        if (!o->animation.empty()) {
            std::string known;
            animationId = animationNamed(o->animation, known);
            if (!animationId) {
                io.err << "kaexport sequence: the scene has no animation '" << o->animation << "'"
                       << (known.empty() ? " (it has none)" : "; it has " + known) << "\n";
                return int(UsageError);
            }
        }

        const int fps = timelineRate(o->fps);
        const FrameWalk walk(writer, o->start, o->stop, o->step);
        const std::vector<int> frames = walk.written();
        if (frames.empty()) {
            io.err << "kaexport sequence: the stop frame " << walk.stop()
                   << " is before the start frame " << walk.start() << ": nothing to write\n";
            return int(UsageError);
        }
        const bool cluster = !o->render.cluster.empty();
        const QStringList files = cluster ? clusterWrittenFiles(writer, render.out, render.passes,
                                                                writer.getExportMultiLayer(), walk)
                                          : writtenFiles(writer, render.out, render.passes,
                                                         writer.getExportMultiLayer(), walk);

        size_t first = 0;
        if (o->resume) {
            first = firstIncompleteFrame(files, walk);
            if (first == frames.size()) {
                io.out << "All " << frames.size() << " frames are complete; nothing to do\n";
                return int(Done);
            }
        }
        QStringList remaining;
        for (size_t i = first; i < frames.size(); ++i)
            remaining << filesOfFrame(files, walk, i);
        if (!o->force && !o->resume) {
            for (const QString& name : remaining) {
                if (QFileInfo::exists(name)) {
                    io.err << "kaexport sequence: '" << name.toStdString()
                           << "' exists; not overwriting it (use --force, or --resume to "
                              "continue an interrupted sequence)\n";
                    return int(Failed);
                }
            }
        }
        // A resumed run writes again the frames from its first incomplete one on: the files of
        // the same frames of the same sequence, so they may be replaced.
        kaAtomicFile::setReplaceExisting(o->force || o->resume);
        kaController::setBatchOverwrite(o->force || o->resume);

        // Resolved here, so that the export counts its progress over the frames it writes.
        int start = walk.start();
        if (first > 0) {
            // The resumed export pre-rolls to its start frame one frame at a time, where the
            // first run stepped by the frame step from its start on. The simulation clock starts
            // earlier by the passes that makes up, so that every frame gets the time it got in
            // the first run and the simulation sees the same steps up to it.
            start = frames[first];
            const FrameWalk resumed(writer, start, walk.stop(), walk.step());
            const int extraPasses = resumed.passOf(start) - walk.passOf(start);
            kaSimulationTime* timer = kaController::getSimulationTimer();
            timer->set(timer->get() - double(extraPasses) * double(walk.step()) / double(fps));
            io.out << "Resuming at frame " << start << ": the " << first
                   << " frames before it are complete\n";
        }

        // With several eyes the export's own progress counts frames while every eye renders:
        // follow the images instead.
        const int eyes = std::get<1>(kaImageWriter::getStereoMode());
        if (eyes > 1 && host)
            host->showTotalProgress((int(frames.size()) - int(first)) * eyes + 1);
        WriteReport report;
        const auto clockStart = std::chrono::steady_clock::now();
        writer.exportImages(render.out, o->render.width, o->render.height, fps, start, walk.stop(),
                            o->render.superSampling, o->render.alphaArgument(), render.passesGiven,
                            animationId, o->render.clusterSetup(), walk.step(), false);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - clockStart).count();
        // A failed cluster ends the export as a cancel does; it is a failure all the same.
        const bool clusterFailed = !Host::clusterFailure().empty();
        const int code = report.conclude(
            io, "sequence", (writer.wasExportCanceled() && !clusterFailed) || Host::interrupted(),
            "the files above are complete; --resume continues from there", remaining);
        if (code != Done)
            return code;
        const size_t made = frames.size() - first;
        io.out << made << (made == 1 ? " frame" : " frames") << " in "
               << QString::number(seconds, 'f', 2).toStdString() << " s ("
               << QString::number(double(made) / seconds, 'f', 2).toStdString() << " per second)\n";
        return int(Done);
    };
}

} // namespace kaexport
