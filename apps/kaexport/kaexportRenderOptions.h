#pragma once

#include "kaexportApp.h"

#include <QString>

#include <string>
#include <vector>

namespace CLI {
class App;
}
class kaImageWriter;

namespace kaexport {

// The options of the commands that render through the library's exports (snapshot,
// sequence): size, supersampling, alpha, render passes, renderer, stereo eyes, colour space,
// metadata and signature. Negative numbers take the preferences.
struct RenderOptions {
    std::string passes, cluster;
    int width = -1, height = -1, superSampling = -1, stereo = -1, icc = 0, metadata = 0;
    int samples = 0;
    double clusterTimeout = 30.0;
    bool alpha = false, noAlpha = false, raytracing = false, signature = false;

    // The export's alpha argument: 1 with --alpha, 0 with --no-alpha, -1 (the preference).
    int alphaArgument() const { return alpha ? 1 : noAlpha ? 0 : -1; }
    // The cluster set-up for the export (empty: render here).
    QString clusterSetup() const { return QString::fromStdString(cluster); }
};

void addRenderOptions(CLI::App& command, RenderOptions& options);

// What a run renders into: the expanded output name and the passes asked for.
struct RenderTarget {
    QString out;
    std::vector<unsigned int> passes;
    bool passesGiven = false;
};

// Checks that a file type writes 'out', then sets the renderer, the stereo mode, the signature
// and the active passes for the run, and the colour space and metadata flags on 'writer'.
// False, after saying why on io.err, when no file type writes 'out' (a usage error).
bool applyRenderOptions(Streams& io, const char* command, const std::string& out,
                        const RenderOptions& options, kaImageWriter& writer, RenderTarget& target);

} // namespace kaexport
