// kaexport movie: the animation into one movie file through the library's movie export.
#include "kaexportApp.h"
#include "kaexportHost.h"
#include "kaexportOptions.h"
#include "kaexportReport.h"

#include "kaAtomicFile.h"
#include "kaController.h"
#include "kaExportFrames.h"
#include "kaFile.h"
#include "kaImageWriter.h"
#include "kaWinVideoCodecs.h"

#include <CLI/CLI.hpp>

#include <QFileInfo>

#include <algorithm>
#include <chrono>
#include <memory>
#include <ostream>

namespace kaexport {

using namespace kaapps;

namespace {

struct MovieOptions {
    std::string out, codec, animation;
    int width = -1, height = -1, fps = -1, start = -1, stop = -1, superSampling = -1, quality = -1,
        keyFrames = -1;
    bool force = false, listCodecs = false;
};

void printCodecs(Streams& io) {
    for (const std::string& container : kaWinVideoCodecs::containers()) {
        const AVICOMPRESSOPTIONS chosen = kaWinVideoCodecs::defaultCompression(container);
        io.out << "." << container << ":";
        for (const kaVideoCodec& codec : kaWinVideoCodecs::forContainer(container))
            io.out << " " << codec.name << (codec.fourcc == chosen.fccHandler ? " (default)" : "");
        io.out << "\n";
    }
    for (const kaVideoCodec& codec : kaWinVideoCodecs::available())
        io.out << "  " << codec.name << ": " << codec.description << "\n";
}

} // namespace

Runner defineMovie(CLI::App& command) {
    auto o = std::make_shared<MovieOptions>();
    describe(command,
             "Renders the animation into one movie file. The extension picks the container: "
             ".avi (the default; uncompressed 24-bit frames unless --codec says otherwise), .mp4 "
             "(H.264), .mkv (FFV1, lossless) or .mov (ProRes). Width and height are cut to "
             "multiples of 40. Frames before --start are pre-rolled (the animation and the "
             "simulation step through them), not recorded. The file appears under its name "
             "when it is finished; Ctrl-C finishes it with the frames made so far.");
    command.add_option("OUT", o->out, "the movie file to write")->type_name("OUT");
    command.add_flag("--codecs", o->listCodecs, "list the codecs each container takes and stop");
    command.add_option("--width", o->width, "width in pixels (cut to a multiple of 40)")
        ->type_name("W")
        ->check(rangeCheck(40, 65536));
    command.add_option("--height", o->height, "height in pixels (cut to a multiple of 40)")
        ->type_name("H")
        ->check(rangeCheck(40, 65536));
    command.add_option("--fps", o->fps, "frames per second")
        ->type_name("F")
        ->check(rangeCheck(1, 1000));
    command
        .add_option("--start", o->start, "first frame recorded; the frames before are pre-rolled")
        ->type_name("S")
        ->check(rangeCheck(0, 100000000));
    command.add_option("--stop", o->stop, "last frame (inclusive)")
        ->type_name("E")
        ->check(rangeCheck(0, 100000000));
    command.add_option("--ss", o->superSampling, "supersampling level")
        ->type_name("N")
        ->check(rangeCheck(0, 3));
    command.add_option("--codec", o->codec, "the codec (see --codecs)")->type_name("NAME");
    command.add_option("--quality", o->quality, "quality of lossy codecs, 1 to 100 (75)")
        ->type_name("Q")
        ->check(rangeCheck(1, 100));
    command.add_option("--keyframes", o->keyFrames, "a key frame every K frames (codec default)")
        ->type_name("K")
        ->check(rangeCheck(1, 100000));
    command
        .add_option("--animation", o->animation,
                    "the animation that drives the frames (by name); the host's timeline when "
                    "left out")
        ->type_name("NAME");
    command.add_flag("--force", o->force, "replace an existing file");

    return [o](Streams& io, Host*) {
        if (o->listCodecs) {
            printCodecs(io);
            return int(Done);
        }
        if (o->out.empty()) {
            io.err << "kaexport movie: OUT is required\nTry 'kaexport movie --help'.\n";
            return int(UsageError);
        }
        QString out = kaFile::expandFilename(QString::fromStdString(o->out));
        if (kaFile::getExtension(out).isEmpty())
            out += ".avi";
        const std::string container = kaWinVideoCodecs::containerOf(out.toStdString());
        if (container.empty()) {
            io.err << "kaexport movie: no container for '."
                   << kaFile::getExtension(out).toStdString() << "' files (avi, mp4, mkv or mov)\n";
            return int(UsageError);
        }
        AVICOMPRESSOPTIONS compression = kaWinVideoCodecs::defaultCompression(container);
        if (!o->codec.empty()) {
            const kaVideoCodec* codec = kaWinVideoCodecs::byName(o->codec);
            bool taken = false;
            for (const kaVideoCodec& c : kaWinVideoCodecs::forContainer(container))
                taken = taken || (codec && c.fourcc == codec->fourcc);
            if (!taken) {
                io.err << "kaexport movie: ." << container << " files don't take the codec '"
                       << o->codec << "' (see kaexport movie --codecs)\n";
                return int(UsageError);
            }
            compression.fccHandler = codec->fourcc;
        }
        if (o->quality > 0)
            compression.dwQuality = DWORD(o->quality * 100);
        if (o->keyFrames > 0) {
            compression.dwKeyFrameEvery = DWORD(o->keyFrames);
            compression.dwFlags |= AVICOMPRESSF_KEYFRAMES;
        }
        // Without a dialog the platform takes the default compression: this run's choice.
        kaWinVideoCodecs::setDefaultCompression(compression);
        const std::shared_ptr<void> restoreCompression(
            nullptr, [](void*) { kaWinVideoCodecs::clearDefaultCompression(); });

        std::string known;
        const __int64 animationId = o->animation.empty() ? 0 : animationNamed(o->animation, known);
        if (!o->animation.empty() && animationId == 0) {
            io.err << "kaexport movie: the scene has no animation '" << o->animation << "'"
                   << (known.empty() ? " (it has none)" : "; it has " + known) << "\n";
            return int(UsageError);
        }
        if (!o->force && QFileInfo::exists(out)) {
            io.err << "kaexport movie: '" << out.toStdString()
                   << "' exists; not overwriting it (use --force)\n";
            return int(Failed);
        }
        kaAtomicFile::setReplaceExisting(o->force);
        kaController::setBatchOverwrite(o->force);

        const int fps = timelineRate(o->fps);
        kaImageWriter writer;
        // The export takes the frame range from the preferences as well; it is resolved here
        // so that the progress counts the frames recorded.
        const FrameWalk walk(writer, o->start, o->stop, 1);
        const int start = walk.start(), stop = walk.stop();
        kaImageWriter::startProgress(std::max(int(walk.written().size()), 1));
        WriteReport report;
        const auto clockStart = std::chrono::steady_clock::now();
        writer.exportAVI(out, o->width, o->height, fps, start, stop, o->superSampling, animationId,
                         QString(), true);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - clockStart).count();
        const int code =
            report.conclude(io, "movie", writer.wasExportCanceled() || Host::interrupted(),
                            "the movie holds the frames made before", {out});
        if (code != Done)
            return code;
        io.out << "Movie made in " << QString::number(seconds, 'f', 2).toStdString() << " s\n";
        return int(Done);
    };
}

} // namespace kaexport
