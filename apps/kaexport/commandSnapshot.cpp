// kaexport snapshot: one picture of the scene through the library's snapshot export.
#include "kaexportApp.h"
#include "kaexportHost.h"
#include "kaexportOptions.h"
#include "kaexportReport.h"

#include "OSGImageFileHandler.h"
#include "kaAtomicFile.h"
#include "kaController.h"
#include "kaFile.h"
#include "kaImageWriter.h"
#include "kaOSGWidget.h"
#include "kaPreferences.h"
#include "kaRenderPasses.h"

#include <CLI/CLI.hpp>

#include <QFileInfo>

#include <chrono>
#include <memory>
#include <ostream>

namespace kaexport {

namespace {

struct SnapshotOptions {
    std::string out, passes;
    int width = -1, height = -1, superSampling = -1, stereo = -1, icc = 0, metadata = 0, frame = -1;
    float dpi = -1.0f;
    bool alpha = false, noAlpha = false, raytracing = false, signature = false,
         appendRenderTime = false, force = false;
};

} // namespace

// Largest side the command line accepts; memory is checked before rendering.
constexpr int kMaxSide = 1048576;

Runner defineSnapshot(CLI::App& command) {
    auto o = std::make_shared<SnapshotOptions>();
    describe(command,
             "Renders the scene into OUT; the extension picks the format (png, jpg, tif, exr, hdr, "
             "...). An option left out takes its preference (\"ImageExport width\", \"MovieExport "
             "ssfactor\", \"MovieExport alpha\", \"MovieExport dpi\", ...).");
    addOutput(command, o->out, "the image file to write");
    command.add_option("--width", o->width, "width in pixels")
        ->type_name("W")
        ->check(rangeCheck(1, kMaxSide));
    command.add_option("--height", o->height, "height in pixels")
        ->type_name("H")
        ->check(rangeCheck(1, kMaxSide));
    command.add_option("--ss", o->superSampling, "supersampling level")
        ->type_name("N")
        ->check(rangeCheck(0, 3));
    auto* alpha = command.add_flag("--alpha", o->alpha, "with an alpha channel");
    command.add_flag("--no-alpha", o->noAlpha, "without an alpha channel")->excludes(alpha);
    command.add_option("--dpi", o->dpi, "resolution written into the file")
        ->type_name("D")
        ->check(rangeCheck(1.0f, 100000.0f));
    command.add_option("--passes", o->passes, "render passes, each to its own file (or layer)")
        ->type_name("PASSES")
        ->check(passListCheck());
    command.add_flag("--raytracing", o->raytracing, "render with the raytracer");
    command.add_option("--stereo", o->stereo, "0 mono, 1 two eyes, 2 five eyes, 3 nine eyes")
        ->type_name("MODE")
        ->check(rangeCheck(0, 3));
    command
        .add_option("--icc", o->icc,
                    "colour space: 0/1 sRGB, 2 Adobe RGB, 3 monitor, 4 image profile")
        ->type_name("INDEX")
        ->check(rangeCheck(0, 4));
    command
        .add_option("--metadata", o->metadata,
                    "XMP metadata: 1 camera, 2 visibility, 4 switches, 8 image settings, 16 "
                    "animation, 32 passes, 64 raytracing, 128 materials (added up)")
        ->type_name("FLAGS")
        ->check(rangeCheck(0, 255));
    command.add_flag("--signature", o->signature,
                     "draw the text signature (\"ImageExport sig ...\")");
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
        const QString out = kaFile::expandFilename(QString::fromStdString(o->out));
        if (!kaFile::getExtension(out).isEmpty() &&
            !osg::ImageFileHandler::the().getFileType(nullptr, out.toUtf8().constData())) {
            io.err << "kaexport snapshot: no image file type writes '."
                   << kaFile::getExtension(out).toStdString() << "' files\n";
            return int(UsageError);
        }
        std::vector<unsigned int> passes;
        QString error;
        const bool passesGiven = !o->passes.empty();
        if (passesGiven)
            parsePassList(QString::fromStdString(o->passes), passes, error);

        // Render passes other than beauty come from the raytracer only.
        if (o->raytracing)
            kaOSGWidget::setRaytracing(true);
        const std::string noProfile = missingProfileWarning(o->icc);
        if (!noProfile.empty())
            io.err << "kaexport snapshot: " << noProfile << "\n";
        kaMessage& prefs = kaPreferences::getData();
        if (o->stereo >= 0)
            prefs.set("ImageExport stereo mode", o->stereo);
        if (o->signature)
            prefs.set("ImageExport add sig", true);
        kaImageWriter writer;
        writer.setICCProfile(o->icc);
        writer.setMetaDataFlags(o->metadata);
        std::vector<bool> active(kaRenderPassCount, false);
        for (unsigned int pass : passes)
            active[pass] = true;
        kaImageRenderWidget::setActiveRenderPasses(passesGiven ? active : std::vector<bool>());

        // Users are asked for --force before anything renders; files that appear meanwhile are
        // still never replaced without it.
        const QStringList targets =
            writer.getExportedImageFilenames(out, passes, writer.getExportMultiLayer());
        if (!o->appendRenderTime && !o->force) {
            for (const QString& target : targets) {
                if (QFileInfo::exists(target)) {
                    io.err << "kaexport snapshot: '" << target.toStdString()
                           << "' exists; not overwriting it (use --force)\n";
                    return int(Failed);
                }
            }
        }
        kaAtomicFile::setReplaceExisting(o->force);
        kaController::setBatchOverwrite(o->force);

        if (o->frame >= 0) {
            int fps = 25;
            kaImageWriter::getFromMessage(prefs, "MovieExport fps", fps);
            host->stepToFrame(o->frame, fps);
        }
        const int alpha = o->alpha ? 1 : o->noAlpha ? 0 : -1;
        WriteReport report;
        const auto start = std::chrono::steady_clock::now();
        writer.exportImage(out, o->width, o->height, o->superSampling, alpha, o->dpi, passesGiven,
                           QString(), o->appendRenderTime, false);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        Host::finishProgress(!writer.wasExportCanceled() && !Host::interrupted());
        if (writer.wasExportCanceled() || Host::interrupted()) {
            report.printWritten(io);
            io.err << "kaexport snapshot: cancelled; "
                   << (report.written().isEmpty() ? "nothing was written"
                                                  : "the files above were written before")
                   << "\n";
            return int(Cancelled);
        }
        if (!report.print(io, "snapshot", o->appendRenderTime ? QStringList() : targets))
            return int(Failed);
        io.out << "Render "
               << QString::number(kaImageWriter::getLastRenderTime(), 'f', 2).toStdString()
               << " s, export " << QString::number(seconds, 'f', 2).toStdString() << " s\n";
        return int(Done);
    };
}

} // namespace kaexport
