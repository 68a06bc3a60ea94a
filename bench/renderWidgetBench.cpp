// The render dialog on the built-in scene, measured in one run:
//   tiles:  8192 x 8192 with the budget forcing 16 tiles against one tile ("ratio", target at
//           most 1.15);
//   memory: 16384 x 16384 under a 256 MB budget: how much the process's resident size grew at
//           its peak, against the result image plus the tile image ("ratio", target at most 1.10).
#include "kaBuiltinScene.h"
#include "kaImageRenderWidget.h"
#include "kaOSGWidget.h"
#include "kaPreferences.h"

#include "benchMeasure.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <fstream>
#include <string>

using benchMeasure::memoryOf;
using benchMeasure::seconds;

namespace {

double renderOnce(int size, int budget, int* tiles = nullptr) {
    kaPreferences::getData().set("Image Export Max Framebuffer Memory", budget);
    kaImageRenderWidget widget(nullptr, size, size, kaImageRenderWidget::STEREO_NONE, false, 0,
                               true, true, 1, false);
    if (tiles)
        *tiles = (size / widget.getTileWidth()) * (size / widget.getTileHeight());
    const auto start = std::chrono::steady_clock::now();
    widget.render(nullptr, 0, true, false);
    return seconds(start);
}

void BM_SixteenTilesVersusOne(benchmark::State& state) {
    const int size = int(state.range(0));
    kaOSGWidget view;
    kaOSGWidget::setMainView(&view);
    kaBuiltinScene scene(view);
    // 16 bytes a pixel: one tile of a quarter of the side is size^2 / 16 * 16 bytes.
    const int sixteenTileBudget = int(double(size) * size / 1048576.0);
    double one = 0.0, sixteen = 0.0;
    int tiles = 0;
    for (auto _ : state) {
        one += renderOnce(size, 0);
        sixteen += renderOnce(size, sixteenTileBudget, &tiles);
    }
    state.counters["tiles"] = tiles;
    state.counters["ratio"] = sixteen / one;
    kaOSGWidget::setMainView(nullptr);
}

void BM_PeakMemoryUnderBudget(benchmark::State& state) {
    const int size = int(state.range(0)), budget = int(state.range(1));
    kaOSGWidget view;
    kaOSGWidget::setMainView(&view);
    kaBuiltinScene scene(view);
    renderOnce(64, 0); // OpenGL and the shaders are set up before measuring
    double grown = 0.0, need = 0.0;
    for (auto _ : state) {
        const double before = memoryOf("VmRSS");
        std::ofstream("/proc/self/clear_refs") << "5"; // resets the peak to the current size
        kaPreferences::getData().set("Image Export Max Framebuffer Memory", budget);
        {
            kaImageRenderWidget widget(nullptr, size, size, kaImageRenderWidget::STEREO_NONE, false,
                                       0, true, true, 1, false);
            need = double(size) * size * 3.0 +
                   double(widget.getTileWidth()) * widget.getTileHeight() * 3.0;
            widget.render(nullptr, 0, true, false);
        }
        grown = memoryOf("VmHWM") - before;
    }
    state.counters["peak_MB"] = grown / 1048576.0;
    state.counters["images_MB"] = need / 1048576.0;
    state.counters["ratio"] = grown / need;
    kaOSGWidget::setMainView(nullptr);
}

} // namespace

BENCHMARK(BM_SixteenTilesVersusOne)->Arg(8192)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(BM_PeakMemoryUnderBudget)->Args({16384, 256})->Iterations(1)->Unit(benchmark::kSecond);
