// kaexport snapshot: one picture of the scene through the library's snapshot export.
#include "kaexportApp.h"
#include "kaexportHost.h"
#include "kaexportOptions.h"

#include "OSGImageFileHandler.h"
#include "kaController.h"
#include "kaFile.h"
#include "kaImageWriter.h"
#include "kaOSGWidget.h"
#include "kaPreferences.h"
#include "kaRenderPasses.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>

#include <chrono>
#include <ostream>

namespace kaexport {

extern const char* const kSnapshotUsage;
const char* const kSnapshotUsage =
    "Usage: kaexport snapshot OUT [--width W] [--height H] [--ss N] [--alpha|--no-alpha]\n"
    "                             [--dpi D] [--passes all|NAME,...] [--raytracing]\n"
    "                             [--stereo MODE] [--icc INDEX] [--metadata FLAGS] [--signature]\n"
    "                             [--append-render-time] [--force]\n"
    "\n"
    "Renders the scene into OUT; the extension picks the format (png, jpg, tif, exr, hdr, ...).\n"
    "An option left out takes its preference (\"ImageExport width\", \"MovieExport ssfactor\",\n"
    "\"MovieExport alpha\", \"MovieExport dpi\", ...).\n"
    "\n"
    "  --width W, --height H   size in pixels\n"
    "  --ss N                  supersampling level 0..3\n"
    "  --alpha, --no-alpha     with or without an alpha channel\n"
    "  --dpi D                 resolution written into the file\n"
    "  --passes all|NAME,...   render passes, each to its own file (or layer)\n"
    "  --raytracing            render with the raytracer\n"
    "  --stereo MODE           0 mono, 1 two eyes, 2 five eyes, 3 nine eyes\n"
    "  --icc INDEX             colour space: 0/1 sRGB, 2 Adobe RGB, 3 monitor, 4 image profile\n"
    "  --metadata FLAGS        XMP metadata: 1 camera, 2 visibility, 4 switches, 8 image\n"
    "                          settings, 16 animation, 32 passes, 64 raytracing, 128 materials\n"
    "  --signature             draw the text signature (\"ImageExport sig ...\")\n"
    "  --append-render-time    add \"__<seconds>\" to the file name\n"
    "  --force                 overwrite existing files\n";

namespace {

struct SnapshotOptions {
    QString out;
    int width = -1, height = -1, superSampling = -1, alpha = -1, stereo = -1, icc = 0, metadata = 0;
    float dpi = -1.0f;
    std::vector<unsigned int> passes;
    bool passesGiven = false, raytracing = false, signature = false, appendRenderTime = false,
         force = false;
};

bool positive(OptionReader& reader, const QString& name, int& value, int minimum = 1) {
    if (!reader.intValue(name, value))
        return false;
    if (value < minimum) {
        reader.error = QString("%1 must be %2 or more (leave it out to use the preference)")
                           .arg(name)
                           .arg(minimum);
        return false;
    }
    return true;
}

QString sizeText(qint64 bytes) {
    return bytes >= 1048576 ? QString::number(double(bytes) / 1048576.0, 'f', 1) + " MB"
                            : QString::number(double(bytes) / 1024.0, 'f', 1) + " kB";
}

} // namespace

int commandSnapshot(const QStringList& args, Streams& io, Host& host) {
    (void)host;
    OptionReader reader(args);
    auto usageError = [&](const QString& text) {
        io.err << "kaexport snapshot: " << text.toStdString() << "\n" << kSnapshotUsage;
        return UsageError;
    };
    SnapshotOptions o;
    while (!reader.atEnd()) {
        const QString arg = reader.next();
        bool ok = true;
        if (arg == "--width")
            ok = positive(reader, arg, o.width);
        else if (arg == "--height")
            ok = positive(reader, arg, o.height);
        else if (arg == "--ss")
            ok = positive(reader, arg, o.superSampling, 0);
        else if (arg == "--alpha")
            o.alpha = 1;
        else if (arg == "--no-alpha")
            o.alpha = 0;
        else if (arg == "--dpi") {
            QString text;
            ok = reader.value(arg, text);
            o.dpi = text.toFloat(&ok);
            if (!ok || o.dpi <= 0.0f) {
                reader.error = QString("--dpi needs a positive number, not '%1'").arg(text);
                ok = false;
            }
        } else if (arg == "--passes") {
            QString list;
            ok = reader.value(arg, list) && parsePassList(list, o.passes, reader.error);
            o.passesGiven = true;
        } else if (arg == "--raytracing")
            o.raytracing = true;
        else if (arg == "--stereo") {
            ok = positive(reader, arg, o.stereo, 0);
            if (ok && o.stereo > 3) {
                reader.error = "--stereo takes 0, 1, 2 or 3";
                ok = false;
            }
        } else if (arg == "--icc")
            ok = positive(reader, arg, o.icc, 0);
        else if (arg == "--metadata")
            ok = positive(reader, arg, o.metadata, 0);
        else if (arg == "--signature")
            o.signature = true;
        else if (arg == "--append-render-time")
            o.appendRenderTime = true;
        else if (arg == "--force")
            o.force = true;
        else
            ok = reader.outputName(arg, o.out);
        if (!ok)
            return usageError(reader.error);
    }
    if (o.out.isEmpty())
        return usageError("no output file name given");
    const QString out = kaFile::expandFilename(o.out);
    if (!kaFile::getExtension(out).isEmpty() &&
        !osg::ImageFileHandler::the().getFileType(nullptr, out.toUtf8().constData())) {
        io.err << "kaexport snapshot: no image file type writes '."
               << kaFile::getExtension(out).toStdString() << "' files\n";
        return UsageError;
    }

    // Render passes other than beauty come from the raytracer only.
    if (o.raytracing)
        kaOSGWidget::setRaytracing(true);

    kaMessage& prefs = kaPreferences::getData();
    if (o.stereo >= 0)
        prefs.set("ImageExport stereo mode", o.stereo);
    if (o.signature)
        prefs.set("ImageExport add sig", true);
    kaImageWriter writer;
    writer.setICCProfile(o.icc);
    writer.setMetaDataFlags(o.metadata);
    std::vector<bool> active(kaRenderPassCount, false);
    for (unsigned int pass : o.passes)
        active[pass] = true;
    kaImageRenderWidget::setActiveRenderPasses(o.passesGiven ? active : std::vector<bool>());

    // The library overwrites in batch mode; users are asked for --force instead.
    const QStringList targets =
        writer.getExportedImageFilenames(out, o.passes, writer.getExportMultiLayer());
    if (!o.appendRenderTime && !o.force) {
        for (const QString& target : targets) {
            if (QFileInfo::exists(target)) {
                io.err << "kaexport snapshot: '" << target.toStdString()
                       << "' exists; not overwriting it (use --force)\n";
                return Failed;
            }
        }
    }
    kaController::setBatchOverwrite(o.force);

    const QDateTime started = QDateTime::currentDateTime().addSecs(-1);
    const auto start = std::chrono::steady_clock::now();
    writer.exportImage(out, o.width, o.height, o.superSampling, o.alpha, o.dpi, o.passesGiven,
                       QString(), o.appendRenderTime, false);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (writer.wasExportCanceled() || Host::interrupted()) {
        io.err << "kaexport snapshot: cancelled; nothing was written\n";
        return Cancelled;
    }

    // What the export wrote: the expected names, or with the render time appended, the files
    // that start like them and are new.
    QStringList written;
    for (const QString& target : targets) {
        if (o.appendRenderTime) {
            const QFileInfo info(target);
            const QString pattern = info.completeBaseName() + "__*." + info.suffix();
            for (const QFileInfo& f :
                 QDir(info.absolutePath()).entryInfoList({pattern}, QDir::Files))
                if (f.lastModified() >= started)
                    written << f.absoluteFilePath();
        } else if (QFileInfo(target).exists() && QFileInfo(target).lastModified() >= started) {
            written << target;
        }
    }
    if (written.isEmpty()) {
        io.err << "kaexport snapshot: nothing was written (see the messages above)\n";
        return Failed;
    }
    for (const QString& file : written)
        io.out << "Wrote " << file.toStdString() << " ("
               << sizeText(QFileInfo(file).size()).toStdString() << ")\n";
    io.out << "Render " << QString::number(kaImageWriter::getLastRenderTime(), 'f', 2).toStdString()
           << " s, export " << QString::number(seconds, 'f', 2).toStdString() << " s\n";
    return Done;
}

} // namespace kaexport
