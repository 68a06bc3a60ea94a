// The movie export of the built-in scene at 1280 x 720, 60 frames, in one run: frames per
// second into an H.264 MP4 and a Motion JPEG AVI against the render rate alone (the sequence
// export handing its frames to a stream that drops them).
//   ratio = movie fps / render-only fps (target >= 0.9: encoding hides behind rendering)
#include "kaBuiltinScene.h"
#include "kaController.h"
#include "kaImageOutStream.h"
#include "kaImageWriter.h"
#include "kaOSGWidget.h"
#include "kaWinVideoCodecs.h"

#include "benchMeasure.h"

#include <benchmark/benchmark.h>

#include <QTemporaryDir>

#include <chrono>

using benchMeasure::seconds;

namespace {

constexpr int kFrames = 60;

void BM_MovieAgainstRenderOnly(benchmark::State& state, const char* codecName, const char* suffix) {
    const kaVideoCodec* codec = kaWinVideoCodecs::byName(codecName);
    if (!codec) {
        state.SkipWithError("codec not available");
        return;
    }
    kaOSGWidget view;
    kaOSGWidget::setMainView(&view);
    kaBuiltinScene scene(view);
    kaController::setNoGUI(true);
    kaController::setBatchOverwrite(true);
    AVICOMPRESSOPTIONS options{};
    options.fccType = streamtypeVIDEO;
    options.fccHandler = codec->fourcc;
    kaWinVideoCodecs::setDefaultCompression(options);
    QTemporaryDir dir;
    kaImageWriter writer;
    writer.setNoShowImage(true);
    writer.setNoProgress(true);
    double movie = 0.0, renderOnly = 0.0;
    for (auto _ : state) {
        kaImageOutStream::setImageWriteFunction([](osg::ImagePtr, std::string) { return true; });
        auto start = std::chrono::steady_clock::now();
        writer.exportImages(dir.filePath("dropped.png"), 1280, 720, 25, 0, kFrames - 1, 0, 0, false,
                            0, QString(), 1, false);
        renderOnly += seconds(start);
        kaImageOutStream::setImageWriteFunction(nullptr);
        start = std::chrono::steady_clock::now();
        writer.exportAVI(dir.filePath(QString("movie.") + suffix), 1280, 720, 25, 0, kFrames - 1, 0,
                         0, QString(), true);
        movie += seconds(start);
    }
    kaWinVideoCodecs::clearDefaultCompression();
    state.counters["movie_fps"] = kFrames * double(state.iterations()) / movie;
    state.counters["render_only_fps"] = kFrames * double(state.iterations()) / renderOnly;
    state.counters["ratio"] = renderOnly / movie;
    kaOSGWidget::setMainView(nullptr);
}

} // namespace

BENCHMARK_CAPTURE(BM_MovieAgainstRenderOnly, h264_mp4, "h264", "mp4")
    ->Unit(benchmark::kSecond)
    ->Iterations(1);
BENCHMARK_CAPTURE(BM_MovieAgainstRenderOnly, mjpeg_avi, "mjpeg", "avi")
    ->Unit(benchmark::kSecond)
    ->Iterations(1);
