// The raytracer on the built-in scene at 1920 x 1080, measured in one run:
//   passes:  samples per second with the beauty pass only and with all 47 passes
//            ("ratio": all passes against beauty, the median of three turns; goal 0.7);
//   threads: samples per second with one thread and with every core ("speedup").
#include "kaBuiltinScene.h"
#include "kaOSGWidget.h"
#include "kaRaytracer.h"
#include "kaSharedOffscreenRender.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace {

constexpr int kWidth = 1920, kHeight = 1080;
constexpr int kQuality = 2; // four samples a pixel per render

struct RaytracedView {
    kaOSGWidget view;
    kaBuiltinScene scene{view};
    RaytracedView() {
        view.setSize(kWidth, kHeight);
        kaOSGWidget::setMainView(&view);
        kaOSGWidget::setRaytracing(true);
    }
    ~RaytracedView() {
        kaOSGWidget::setRaytracing(false);
        kaOSGWidget::setMainView(nullptr);
        kaRaytracer::setThreadCount(0);
    }
    // Samples per second for a render of the given passes.
    double samplesPerSecond(int passes, int threads) {
        kaRaytracer::setThreadCount(threads);
        std::vector<osg::ImagePtr> images(47);
        for (int p = 0; p < passes; ++p) {
            images[size_t(p)] = osg::Image::create();
            images[size_t(p)]->set(osg::Image::OSG_RGBA_PF, kWidth, kHeight, 1, 1, 1, 0.0, nullptr,
                                   osg::Image::OSG_FLOAT32_IMAGEDATA);
        }
        kaSharedOffscreenRender renderer(&view, images, kQuality);
        // One sample first, so that images and buffers exist as in the tiles of an export.
        renderer.setRtSample(0);
        renderer.updateGL();
        renderer.setRtSample(-1);
        const auto start = std::chrono::steady_clock::now();
        renderer.updateGL();
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        return double(view.getViewport()->getSamples(kQuality)) / seconds;
    }
};

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Beauty alone and all passes take turns, so that a busy machine slows both alike; the
// medians of the turns are reported.
void BM_RaytracerPasses(benchmark::State& state) {
    RaytracedView traced;
    std::vector<double> beauty, all, ratio;
    for (auto _ : state) {
        beauty.push_back(traced.samplesPerSecond(1, 0));
        all.push_back(traced.samplesPerSecond(47, 0));
        ratio.push_back(all.back() / beauty.back());
    }
    state.counters["beauty_samples_per_s"] = median(beauty);
    state.counters["all_passes_samples_per_s"] = median(all);
    state.counters["ratio"] = median(ratio);
    state.counters["goal"] = 0.7;
}

void BM_RaytracerThreads(benchmark::State& state) {
    RaytracedView traced;
    double one = 0, every = 0;
    for (auto _ : state) {
        one += traced.samplesPerSecond(1, 1);
        every += traced.samplesPerSecond(1, 0);
    }
    const double n = double(state.iterations());
    state.counters["one_thread_samples_per_s"] = one / n;
    state.counters["all_threads_samples_per_s"] = every / n;
    state.counters["threads"] = double(std::thread::hardware_concurrency());
    state.counters["speedup"] = every / one;
}

} // namespace

BENCHMARK(BM_RaytracerPasses)->Unit(benchmark::kSecond)->Iterations(3);
BENCHMARK(BM_RaytracerThreads)->Unit(benchmark::kSecond)->Iterations(1);
