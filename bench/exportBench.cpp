// The exports around a render, measured in one run on the built-in scene:
//   snapshot: exportImage of 8192 x 8192 with supersampling 2 into a PNG, against a plain
//             render of the same picture with no export around it ("ratio", the library's
//             overhead), and the peak growth of resident memory;
//   fast:     captures per second at 1280 x 720 into memory.
#include "OSGCameraDecorators.h"
#include "kaBuiltinScene.h"
#include "kaController.h"
#include "kaImageWriter.h"
#include "kaOSGWidget.h"
#include "kaSharedOffscreenRender.h"

#include "benchMeasure.h"

#include <benchmark/benchmark.h>

#include <QTemporaryDir>

#include <chrono>
#include <fstream>
#include <string>

using benchMeasure::memoryOf;
using benchMeasure::seconds;

namespace {

// The picture as the renderer alone makes it: one region, the same samples.
double plainRender(kaOSGWidget& view, int size, int quality) {
    osg::ImagePtr image = osg::Image::create();
    image->set(osg::Image::OSG_RGB_PF, size, size);
    const auto start = std::chrono::steady_clock::now();
    kaSharedOffscreenRender renderer(&view, {image}, quality);
    renderer.updateGL();
    return seconds(start);
}

void BM_SnapshotAgainstPlainRender(benchmark::State& state) {
    const int size = int(state.range(0)), superSampling = int(state.range(1));
    kaOSGWidget view;
    kaOSGWidget::setMainView(&view);
    kaBuiltinScene scene(view);
    kaController::setNoGUI(true);
    QTemporaryDir dir;
    kaImageWriter writer;
    writer.setNoShowImage(true);
    double exported = 0.0, plain = 0.0, grown = 0.0;
    for (auto _ : state) {
        const double before = memoryOf("VmRSS");
        std::ofstream("/proc/self/clear_refs") << "5";
        auto start = std::chrono::steady_clock::now();
        writer.exportImage(dir.filePath("snapshot.png"), size, size, superSampling, 0, 72.0f, false,
                           QString(), false, false);
        exported += seconds(start);
        grown = memoryOf("VmHWM") - before;
        plain += plainRender(view, size, superSampling == 0 ? 0 : superSampling + 1);
    }
    state.counters["export_s"] = exported / double(state.iterations());
    state.counters["render_s"] = kaImageWriter::getLastRenderTime();
    state.counters["peak_MB"] = grown / 1048576.0;
    state.counters["ratio"] = exported / plain;
    kaController::setNoGUI(false);
    kaOSGWidget::setMainView(nullptr);
}

void BM_FastCapturesPerSecond(benchmark::State& state) {
    kaOSGWidget view;
    kaOSGWidget::setMainView(&view);
    kaBuiltinScene scene(view);
    kaImageWriter writer;
    writer.setNoProgress(true);
    writer.exportImageFastInit(int(state.range(0)), int(state.range(1)), 0);
    size_t bytes = 0;
    for (auto _ : state)
        bytes += writer.exportImageFast().size();
    writer.exportImageFastTerminate();
    state.counters["captures_per_s"] =
        benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["png_kB"] = double(bytes) / double(state.iterations()) / 1024.0;
    kaOSGWidget::setMainView(nullptr);
}

} // namespace

BENCHMARK(BM_SnapshotAgainstPlainRender)->Args({8192, 2})->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(BM_FastCapturesPerSecond)
    ->Args({1280, 720})
    ->MinTime(3.0)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
