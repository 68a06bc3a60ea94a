// displayTransformPixel (fast log2/exp2, four channels at once) against std::pow per channel
// for the gamma display transform: "speedup" and the largest absolute error over the run.
#include "kaDisplayTransform_p.h"

#include "kaImagePostprocessor.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <vector>

namespace {

void BM_DisplayTransformVersusPow(benchmark::State& state) {
    const size_t pixels = size_t(state.range(0));
    std::vector<float> in(pixels * 4), fast(pixels * 4), exact(pixels * 4);
    for (size_t i = 0; i < in.size(); ++i)
        in[i] = float((i * 7919) % 10007) / 10007.0f * 4.0f;
    kaImagePostprocessor* post = kaImagePostprocessor::getImagePostprocessor();
    const int mode = post->getMode();
    post->setMode(0);
    const float gamma = 1.0f / 2.2f;
    double fastTime = 0.0, powTime = 0.0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        for (size_t p = 0; p < pixels; ++p)
            kaDisplayTransform::displayTransformPixel(&in[p * 4], gamma, &fast[p * 4]);
        fastTime += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        start = std::chrono::steady_clock::now();
        for (size_t p = 0; p < pixels; ++p) {
            for (int c = 0; c < 3; ++c)
                exact[p * 4 + c] = std::pow(std::max(in[p * 4 + c], 0.0f), gamma);
            exact[p * 4 + 3] = in[p * 4 + 3];
        }
        powTime += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        benchmark::DoNotOptimize(fast.data());
        benchmark::DoNotOptimize(exact.data());
    }
    float worst = 0.0f;
    for (size_t i = 0; i < in.size(); ++i)
        worst = std::max(worst, std::fabs(fast[i] - exact[i]));
    post->setMode(mode);
    state.counters["speedup"] = powTime / fastTime;
    state.counters["max_error"] = worst;
}

} // namespace

BENCHMARK(BM_DisplayTransformVersusPow)->Arg(1 << 20)->Iterations(5)->Unit(benchmark::kMillisecond);
