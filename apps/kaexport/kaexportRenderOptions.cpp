#include "kaexportRenderOptions.h"

#include "kaexportOptions.h"

#include "OSGImageFileHandler.h"
#include "kaClusterService.h"
#include "kaFile.h"
#include "kaImageWriter.h"
#include "kaOSGWidget.h"
#include "kaPreferences.h"
#include "kaRenderParameter.h"
#include "kaRenderPasses.h"

#include <CLI/CLI.hpp>

#include <ostream>

namespace kaexport {

// Largest side the command line accepts; memory is checked before rendering.
constexpr int kMaxSide = 1048576;

void addRenderOptions(CLI::App& command, RenderOptions& o) {
    command.add_option("--width", o.width, "width in pixels")
        ->type_name("W")
        ->check(rangeCheck(1, kMaxSide));
    command.add_option("--height", o.height, "height in pixels")
        ->type_name("H")
        ->check(rangeCheck(1, kMaxSide));
    command.add_option("--ss", o.superSampling, "supersampling level")
        ->type_name("N")
        ->check(rangeCheck(0, 3));
    auto* alpha = command.add_flag("--alpha", o.alpha, "with an alpha channel");
    command.add_flag("--no-alpha", o.noAlpha, "without an alpha channel")->excludes(alpha);
    command.add_option("--passes", o.passes, "render passes, each to its own file (or layer)")
        ->type_name("PASSES")
        ->check(passListCheck());
    auto* raytracing = command.add_flag("--raytracing", o.raytracing, "render with the raytracer");
    command
        .add_option("--samples", o.samples,
                    "raytraced samples per pixel (times those of --ss; on a cluster, times the "
                    "still-frame supersampling squared)")
        ->type_name("N")
        ->check(rangeCheck(1, 1000000));
    command
        .add_option("--cluster", o.cluster,
                    "raytrace on a render cluster: hosts with node counts (\"localhost:3\", "
                    "\"nodeA:8,nodeB:8\") or an Open MPI host file")
        ->type_name("SETUP")
        ->needs(raytracing);
    command
        .add_option("--cluster-timeout", o.clusterTimeout,
                    "seconds a render node may stay silent before the export fails")
        ->type_name("SECONDS")
        ->check(rangeCheck(1.0, 86400.0));
    command.add_option("--stereo", o.stereo, "0 mono, 1 two eyes, 2 five eyes, 3 nine eyes")
        ->type_name("MODE")
        ->check(rangeCheck(0, 3));
    command
        .add_option("--icc", o.icc,
                    "colour space: 0/1 sRGB, 2 Adobe RGB, 3 monitor, 4 image profile")
        ->type_name("INDEX")
        ->check(rangeCheck(0, 4));
    command
        .add_option("--metadata", o.metadata,
                    "XMP metadata: 1 camera, 2 visibility, 4 switches, 8 image settings, 16 "
                    "animation, 32 passes, 64 raytracing, 128 materials (added up)")
        ->type_name("FLAGS")
        ->check(rangeCheck(0, 255));
    command.add_flag("--signature", o.signature,
                     "draw the text signature (\"ImageExport sig ...\")");
}

bool applyRenderOptions(Streams& io, const char* command, const std::string& out,
                        const RenderOptions& o, kaImageWriter& writer, RenderTarget& target) {
    target.out = kaFile::expandFilename(QString::fromStdString(out));
    const QString extension = kaFile::getExtension(target.out);
    if (!extension.isEmpty() &&
        !osg::ImageFileHandler::the().getFileType(nullptr, target.out.toUtf8().constData())) {
        io.err << "kaexport " << command << ": no image file type writes '."
               << extension.toStdString() << "' files\n";
        return false;
    }
    target.passesGiven = !o.passes.empty();
    QString error;
    if (target.passesGiven)
        parsePassList(QString::fromStdString(o.passes), target.passes, error);

    // Render passes other than beauty come from the raytracer only.
    if (o.raytracing)
        kaOSGWidget::setRaytracing(true);
    if (o.samples > 0)
        kaRenderParameter::setImageSamples(o.samples);
    kaClusterService::the()->setNodeTimeout(o.clusterTimeout);
    const std::string noProfile = missingProfileWarning(o.icc);
    if (!noProfile.empty())
        io.err << "kaexport " << command << ": " << noProfile << "\n";
    kaMessage& prefs = kaPreferences::getData();
    if (o.stereo >= 0)
        prefs.set("ImageExport stereo mode", o.stereo);
    if (o.signature)
        prefs.set("ImageExport add sig", true);
    writer.setICCProfile(o.icc);
    writer.setMetaDataFlags(o.metadata);
    std::vector<bool> active(kaRenderPassCount, false);
    for (unsigned int pass : target.passes)
        active[pass] = true;
    kaImageRenderWidget::setActiveRenderPasses(target.passesGiven ? active : std::vector<bool>());
    return true;
}

} // namespace kaexport
