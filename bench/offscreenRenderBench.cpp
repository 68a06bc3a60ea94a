// The built-in scene rendered offscreen through headless EGL, measured in one run:
//   samples:  megapixels per second at 4096 x 4096 with 1 and with 16 samples per pixel;
//   tiles:    the same picture in 4 x 4 tiles against one tile ("ratio", target at most 1.15).
#include "OSGCameraDecorators.h"
#include "kaBuiltinScene.h"
#include "kaOSGWidget.h"
#include "kaSharedOffscreenRender.h"

#include <benchmark/benchmark.h>

#include <chrono>

namespace {

double renderPicture(kaOSGWidget& view, int size, int tiles, int quality) {
    const osg::CameraPtr camera = view.getViewport()->getCamera();
    osg::TileCameraDecoratorPtr tile = osg::TileCameraDecorator::create();
    tile->setDecoratee(camera);
    tile->setFullSize(uint32_t(size), uint32_t(size));
    view.getViewport()->setCamera(tile);
    const int tileSize = size / tiles;
    osg::ImagePtr picture = osg::Image::create();
    picture->set(osg::Image::OSG_RGB_PF, size, size);
    osg::ImagePtr tileImage = osg::Image::create();
    tileImage->set(osg::Image::OSG_RGB_PF, tileSize, tileSize);
    kaSharedOffscreenRender renderer(&view, {tileImage}, quality);
    const auto start = std::chrono::steady_clock::now();
    for (int ty = 0; ty < tiles; ++ty)
        for (int tx = 0; tx < tiles; ++tx) {
            tile->setSize(float(tx) / tiles, float(ty) / tiles, float(tx + 1) / tiles,
                          float(ty + 1) / tiles);
            renderer.updateGL();
            picture->setSubData(tx * tileSize, ty * tileSize, 0, tileSize, tileSize, 1,
                                tileImage->getData());
        }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    view.getViewport()->setCamera(camera);
    return seconds;
}

void BM_BuiltinSceneMegapixelsPerSecond(benchmark::State& state) {
    const int size = int(state.range(0)), quality = int(state.range(1));
    kaOSGWidget view;
    kaBuiltinScene scene(view);
    double seconds = 0.0;
    for (auto _ : state)
        seconds += renderPicture(view, size, 1, quality);
    state.counters["MPixel_per_s"] =
        double(size) * size * double(state.iterations()) / seconds / 1e6;
    state.counters["samples"] = view.getViewport()->getSamples(quality);
}

void BM_SixteenTilesVersusOne(benchmark::State& state) {
    const int size = int(state.range(0));
    kaOSGWidget view;
    kaBuiltinScene scene(view);
    double one = 0.0, sixteen = 0.0;
    for (auto _ : state) {
        one += renderPicture(view, size, 1, 0);
        sixteen += renderPicture(view, size, 4, 0);
    }
    state.counters["ratio"] = sixteen / one;
}

} // namespace

BENCHMARK(BM_BuiltinSceneMegapixelsPerSecond)
    ->Args({4096, 0})
    ->Args({4096, 4})
    ->Iterations(1)
    ->Unit(benchmark::kSecond);
BENCHMARK(BM_SixteenTilesVersusOne)->Arg(4096)->Iterations(2)->Unit(benchmark::kSecond);
