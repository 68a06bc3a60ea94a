// The render cluster on this machine against the local raytracer, measured in one run, at
// 1920 x 1080 with the built-in scene:
//   samples/s    local, and with 1, 2 and 3 render nodes (beauty accumulated on the nodes,
//                brought back once at the end, as an export's final sample does);
//   overhead     what a sample costs the master beyond its slowest node (change list, sending,
//                waiting, gathering), for a sample without pixels, one with the beauty (a
//                preview) and one with all 47 passes (a final sample);
//   model        samples/s for 8 and 64 nodes from the measured times and transfer sizes:
//                a sample takes (local time / nodes) + the measured overhead of a sample
//                without pixels; the final sample adds its pixels at a 1 GB/s (10 GbE) link
//                into the master (the rate measured here, between processes of one machine,
//                is printed beside it).
// The nodes share this machine's cores: more nodes do not make more cores, so the speed-up
// measured here is not the cluster's; the overhead and the model are what to read.
#include "kaBuiltinScene.h"
#include "kaClusterService.h"
#include "kaOSGWidget.h"
#include "kaRTRenderer.h"
#include "kaRenderPassCatalogue.h"

#include "benchMeasure.h"

#include <QCoreApplication>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

using benchMeasure::seconds;

namespace {

constexpr int W = 1920, H = 1080, kSamples = 4;

uint64_t allPasses() {
    return (uint64_t(1) << kaRenderPass::Count) - 1;
}

double localSamplesPerSecond(kaOSGWidget& view) {
    std::vector<osg::ImagePtr> images(size_t(kaRenderPass::Count));
    images[0] = osg::Image::create();
    images[0]->set(osg::Image::OSG_RGBA_PF, W, H, 1, 1, 1, 0.0, nullptr,
                   osg::Image::OSG_FLOAT32_IMAGEDATA, true);
    kaRTRenderer::Region region;
    region.fullWidth = region.width = W;
    region.fullHeight = region.height = H;
    std::string error;
    const auto start = std::chrono::steady_clock::now();
    kaRTRenderer::the().render(*view.getViewport(), *view.getViewport()->getCamera(), region,
                               images, kSamples, -1, error);
    const double s = seconds(start);
    kaRTRenderer::the().releaseBuffers();
    return kSamples / s;
}

struct ClusterRun {
    double samplesPerSecond = 0, overheadNone = 0, overheadBeauty = 0, overheadAll = 0;
    double slowestNode = 0;
    size_t beautyBytes = 0, allBytes = 0, changeBytes = 0;
};

ClusterRun clusterRun(int nodes) {
    ClusterRun run;
    kaClusterService service;
    service.setSetup(QString("localhost:%1").arg(nodes));
    service.setWaitForNodes(true);
    service.setStopNodesOnFailure(true);
    if (!service.start()) {
        std::printf("cluster of %d did not start: %s\n", nodes, service.getLastError().c_str());
        return run;
    }
    const osg::NetWindowPtr window = service.getClusterWindow();
    window->setSize(W, H);
    window->setImageOps(osg::NetWindow::ImageOpFloat);
    window->setRenderPasses(allPasses());
    auto frame = [&](int sample, bool pixels, uint64_t copy) {
        window->setRtSample(sample);
        window->setRendering(pixels);
        window->setCopyPasses(copy);
        window->render();
        return service.getLastFrameStats();
    };
    // Warm up: the scene goes to the nodes, their pass images are made.
    frame(0, false, 1);
    window->setRenderPasses(1);
    const auto start = std::chrono::steady_clock::now();
    double overhead = 0;
    for (int k = 0; k < kSamples; ++k) {
        const auto stats = frame(k, k == kSamples - 1, 1);
        overhead += stats.seconds - stats.slowestNode;
        run.slowestNode += stats.slowestNode;
        run.changeBytes = stats.sentBytes;
        if (k == kSamples - 1)
            run.beautyBytes = stats.receivedBytes;
    }
    run.samplesPerSecond = kSamples / seconds(start);
    run.overheadBeauty = overhead / kSamples; // mostly samples without pixels, one with
    run.slowestNode /= kSamples;
    const auto none = frame(kSamples, false, 1);
    run.overheadNone = none.seconds - none.slowestNode;
    const auto beauty = frame(kSamples + 1, true, 1);
    run.overheadBeauty = beauty.seconds - beauty.slowestNode;
    window->setRenderPasses(allPasses());
    frame(0, false, 1); // all passes accumulate from a new picture
    const auto all = frame(1, true, allPasses());
    run.overheadAll = all.seconds - all.slowestNode;
    run.allBytes = all.receivedBytes;
    service.stop();
    return run;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    setenv("OMPI_ALLOW_RUN_AS_ROOT", "1", 0);
    setenv("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "1", 0);
    kaOSGWidget view;
    kaOSGWidget::setMainView(&view);
    kaBuiltinScene scene(view);
    view.setSize(W, H);

    const double local = localSamplesPerSecond(view);
    std::printf("%d x %d, built-in scene, beauty: local raytracer %.3f samples/s\n", W, H, local);
    std::printf("%-6s %12s %8s %14s %14s %14s %12s %12s\n", "nodes", "samples/s", "ratio",
                "overhead none", "overhead beauty", "overhead all", "beauty MB", "all MB");
    ClusterRun last;
    for (int nodes = 1; nodes <= 3; ++nodes) {
        const ClusterRun run = clusterRun(nodes);
        std::printf("%-6d %12.3f %8.2f %12.1f ms %12.1f ms %12.1f ms %12.1f %12.1f\n", nodes,
                    run.samplesPerSecond, run.samplesPerSecond / local, run.overheadNone * 1e3,
                    run.overheadBeauty * 1e3, run.overheadAll * 1e3, run.beautyBytes / 1e6,
                    run.allBytes / 1e6);
        if (nodes == 1)
            last = run;
    }
    // The model: one machine's sample time split over n machines like this one, plus the
    // master's overhead per sample, plus the final sample's pixels over a 1 GB/s link.
    const double sampleTime = 1.0 / local;
    std::printf("final sample gathered here at %.0f MB/s (all passes, one node)\n",
                last.overheadAll > 0 ? double(last.allBytes) / 1e6 / last.overheadAll : 0.0);
    for (int nodes : {8, 64}) {
        const double perSample = sampleTime / nodes + last.overheadNone;
        const double finalExtra = double(last.allBytes) / 1e9;
        const double samples = 256;
        const double total = samples * perSample + finalExtra;
        std::printf("model %2d nodes: %.3f s a sample (%.1f samples/s, %.1f x one machine); 256 "
                    "samples with all passes %.2f s\n",
                    nodes, perSample, 1.0 / perSample, sampleTime / perSample, total);
    }
    return 0;
}
