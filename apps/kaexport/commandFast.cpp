// kaexport fast: repeated captures through the library's fast export, to files or as PNG bytes
// on standard output.
#include "kaexportApp.h"
#include "kaexportBackgroundSender.h"
#include "kaexportHost.h"
#include "kaexportOptions.h"
#include "kaexportReport.h"

#include "kaExportFrames.h"

#include "kaAtomicFile.h"
#include "kaFile.h"
#include "kaImageOutStream.h"
#include "kaImageWriter.h"
#include "kaOSGWidget.h"

#include <CLI/CLI.hpp>

#include <QFileInfo>

#include <algorithm>
#include <chrono>
#include <memory>
#include <ostream>

namespace kaexport {

using kaapps::captureName;

namespace {
struct FastOptions {
    std::string out;
    int count = 0, width = 1280, height = 720, superSampling = 0, icc = 0, metadata = 0;
    bool force = false;
};

} // namespace

Runner defineFast(CLI::App& command) {
    auto o = std::make_shared<FastOptions>();
    describe(
        command,
        "Captures the scene N times at one resolution with one render dialog. OUT is a file name "
        "(numbered -00000, -00001, ... when N > 1) or '-' for the PNG bytes of every capture on "
        "standard output, one after the other.");
    addOutput(command, o->out, "the file to write, or '-'");
    command.add_option("--count", o->count, "number of captures")
        ->type_name("N")
        ->required()
        ->check(rangeCheck(1, 100000000));
    command.add_option("--width", o->width, "width in pixels")
        ->type_name("W")
        ->check(rangeCheck(1, 65536));
    command.add_option("--height", o->height, "height in pixels")
        ->type_name("H")
        ->check(rangeCheck(1, 65536));
    command.add_option("--ss", o->superSampling, "supersampling level")
        ->type_name("N")
        ->check(rangeCheck(0, 3));
    command
        .add_option("--icc", o->icc,
                    "colour space: 0/1 sRGB, 2 Adobe RGB, 3 monitor, 4 image profile")
        ->type_name("INDEX")
        ->check(rangeCheck(0, 4));
    command
        .add_option("--metadata", o->metadata,
                    "XMP metadata of files (as for snapshot; a stream carries none)")
        ->type_name("FLAGS")
        ->check(rangeCheck(0, 255));
    command.add_flag("--force", o->force, "replace existing files");

    return [o](Streams& io, Host*) {
        const bool toStream = o->out == "-";
        const QString out =
            toStream ? QString() : kaFile::expandFilename(QString::fromStdString(o->out));
        if (!toStream && !o->force) {
            for (int i = 0; i < o->count; ++i) {
                const QString name = captureName(out, i, o->count);
                if (QFileInfo::exists(name)) {
                    io.err << "kaexport fast: '" << name.toStdString()
                           << "' exists; not overwriting it (use --force)\n";
                    return int(Failed);
                }
            }
        }
        kaAtomicFile::setReplaceExisting(o->force);

        if (toStream && io.outDescriptor < 0) {
            io.err << "kaexport fast: '-' needs the program's standard output\n";
            return int(UsageError);
        }
        // Captures for '-' go through the whole save path (comment, profile, metadata) and
        // are sent to standard output as they are made, every write checked.
        // A capture is encoded and sent on a thread of its own while the next one renders.
        auto streamError = std::make_shared<std::string>();
        int handed = 0;
        std::unique_ptr<BackgroundSender> sender;
        if (toStream) {
            io.out.flush();
            sender = std::make_unique<BackgroundSender>(
                kaImageOutStream::descriptorWriter(io.outDescriptor, streamError));
            kaImageOutStream::setImageWriteFunction(
                [sender = sender.get(), &handed](osg::ImagePtr image, std::string name) {
                    const bool ok = sender->submit(image, std::move(name));
                    handed += ok ? 1 : 0;
                    return ok;
                });
        }
        const std::shared_ptr<void> removeStream(nullptr, [toStream](void*) {
            if (toStream)
                kaImageOutStream::setImageWriteFunction(nullptr);
        });

        const std::string noProfile = missingProfileWarning(o->icc);
        if (!noProfile.empty())
            io.err << "kaexport fast: " << noProfile << "\n";
        kaImageWriter writer;
        writer.setNoShowImage(true);
        writer.setMetaDataFlags(o->metadata);
        // The fast export keeps the view's colour space: it is switched here for the captures.
        kaOSGWidget* view = kaOSGWidget::getMGLW(-1);
        const unsigned int savedColorSpace = view ? view->getDisplayColorspace() : 0;
        if (view && o->icc > 0)
            view->setDisplayColorspace(unsigned(o->icc));
        WriteReport report;
        writer.exportImageFastInit(o->width, o->height, o->superSampling);
        const auto start = std::chrono::steady_clock::now();
        int made = 0;
        for (int i = 0; i < o->count && !Host::interrupted(); ++i) {
            if (toStream) {
                writer.exportImageFast(QString("stdout.png"));
                if (handed != made + 1)
                    break;
            } else {
                // The library adds the default extension to a name without one: count files.
                const int before = report.written().size();
                writer.exportImageFast(captureName(out, i, o->count));
                if (report.written().size() == before || report.hasFailures())
                    break;
            }
            ++made;
        }
        if (sender) {
            sender->finish();
            made = std::min(made, sender->sent());
        }
        writer.exportImageFastTerminate();
        if (view && o->icc > 0)
            view->setDisplayColorspace(savedColorSpace);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        Host::finishProgress(made == o->count);
        if (Host::interrupted()) {
            report.printWritten(io);
            io.err << "kaexport fast: cancelled after " << made << " of " << o->count
                   << " captures\n";
            return int(Cancelled);
        }
        bool complete = made == o->count;
        if (toStream) {
            if (!streamError->empty())
                io.err << "kaexport fast: couldn't write to standard output: " << *streamError
                       << "\n";
        } else {
            complete = report.print(io, "fast") && complete;
        }
        if (!complete) {
            io.err << "kaexport fast: " << made << " of " << o->count
                   << " captures made (see the messages above)\n";
            return int(Failed);
        }
        io.err << "kaexport fast: " << made << " captures of " << o->width << " x " << o->height
               << " in " << QString::number(seconds, 'f', 2).toStdString() << " s ("
               << QString::number(made / seconds, 'f', 1).toStdString() << " per second)\n";
        return int(Done);
    };
}

} // namespace kaexport
