// The sequence export of the built-in scene at 1280 x 720, measured in one run: frames per
// second when every frame is written to files, against the same export whose images are
// handed to a stream that drops them (the render and the save path without any file):
//   gl:           OpenGL, one PNG a frame, written in the foreground;
//   raytraced_8:  the raytracer with 8 render passes, one PNG per pass, written on background
//                 jobs while the rest of the frame's passes are queued.
//   ratio = written fps / render-only fps (target >= 0.9: the writing hides behind rendering)
#include "kaBuiltinScene.h"
#include "kaController.h"
#include "kaImageOutStream.h"
#include "kaImageWriter.h"
#include "kaOSGWidget.h"
#include "kaRenderPasses.h"

#include "benchMeasure.h"

#include <benchmark/benchmark.h>

#include <QTemporaryDir>

#include <chrono>

using benchMeasure::seconds;

namespace {

constexpr int kFrames = 60;

double framesPerSecond(kaImageWriter& writer, const QString& name, bool passes) {
    const auto start = std::chrono::steady_clock::now();
    writer.exportImages(name, 1280, 720, 25, 0, kFrames - 1, 0, 0, passes, 0, QString(), 1, false);
    return double(kFrames) / seconds(start);
}

void BM_SequenceWrittenAgainstRenderOnly(benchmark::State& state, bool raytraced) {
    kaOSGWidget view;
    kaOSGWidget::setMainView(&view);
    kaBuiltinScene scene(view);
    kaController::setNoGUI(true);
    kaController::setBatchOverwrite(true);
    kaOSGWidget::setRaytracing(raytraced);
    std::vector<bool> active(kaRenderPassCount, false);
    if (raytraced)
        for (int pass : {0, 1, 2, 3, 4, 5, 6, 33})
            active[size_t(pass)] = true;
    kaImageRenderWidget::setActiveRenderPasses(raytraced ? active : std::vector<bool>());
    QTemporaryDir dir;
    kaImageWriter writer;
    writer.setNoShowImage(true);
    writer.setNoProgress(true);
    double written = 0.0, renderOnly = 0.0;
    for (auto _ : state) {
        kaImageOutStream::setImageWriteFunction([](osg::ImagePtr, std::string) { return true; });
        renderOnly += framesPerSecond(writer, dir.filePath("dropped.png"), raytraced);
        kaImageOutStream::setImageWriteFunction(nullptr);
        written += framesPerSecond(writer, dir.filePath("frame.png"), raytraced);
    }
    const double n = double(state.iterations());
    state.counters["written_fps"] = written / n;
    state.counters["render_only_fps"] = renderOnly / n;
    state.counters["ratio"] = written / renderOnly;
    kaImageRenderWidget::setActiveRenderPasses({});
    kaOSGWidget::setRaytracing(false);
    kaOSGWidget::setMainView(nullptr);
}

} // namespace

BENCHMARK_CAPTURE(BM_SequenceWrittenAgainstRenderOnly, gl, false)
    ->Unit(benchmark::kSecond)
    ->Iterations(1);
BENCHMARK_CAPTURE(BM_SequenceWrittenAgainstRenderOnly, raytraced_8, true)
    ->Unit(benchmark::kSecond)
    ->Iterations(1);
