// The Embree raytracer behind kaSharedOffscreenRender: render passes that add up, tiles and
// thread counts that agree, the OpenGL geometry, progressive samples, time limit and callback.
#include "kaRaytracer.h"
#include "OSGCameraDecorators.h"
#include "OSGChangeList.h"
#include "OSGGeometry.h"
#include "OSGMaterial.h"
#include "OSGNodeCores.h"
#include "kaAnimManager.h"
#include "kaBuiltinScene.h"
#include "kaController.h"
#include "kaOSGWidget.h"
#include "kaRTCryptomatte.h"
#include "kaRTMath.h"
#include "kaRTRenderer.h"
#include "kaRenderParameter.h"
#include "kaRenderPassCatalogue.h"
#include "kaSharedOffscreenRender.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <functional>
#include <map>
#include <thread>

using osg::Image;
namespace P = kaRenderPass;

namespace {

constexpr int kPasses = kaRenderPass::Count;
constexpr int W = 80, H = 60;

osg::ImagePtr newImage(int w, int h, uint32_t format = Image::OSG_RGBA_PF,
                       int32_t type = Image::OSG_FLOAT32_IMAGEDATA) {
    osg::ImagePtr image = Image::create();
    image->set(format, w, h, 1, 1, 1, 0.0, nullptr, type);
    return image;
}

std::vector<osg::ImagePtr> passImages(const std::vector<int>& passes, int w = W, int h = H) {
    std::vector<osg::ImagePtr> images(kPasses);
    for (int p : passes)
        images[size_t(p)] = newImage(w, h);
    return images;
}

std::vector<int> allPasses() {
    std::vector<int> passes;
    for (int p = 0; p < kPasses; ++p)
        passes.push_back(p);
    return passes;
}

bool samePixels(const osg::ImagePtr& a, const osg::ImagePtr& b) {
    return a->getSize() == b->getSize() &&
           std::memcmp(a->getData(), b->getData(), a->getSize()) == 0;
}

class Raytracer : public testing::Test {
protected:
    void SetUp() override {
        kaOSGWidget::setMainView(&view);
        view.setSize(W, H);
        kaOSGWidget::setRaytracing(true);
        kaAnimManager::setCurrentFrame(0, true);
    }
    void TearDown() override {
        kaOSGWidget::setRaytracing(false);
        kaOSGWidget::setMainView(nullptr);
        kaRaytracer::setThreadCount(0);
        kaRaytracer::setPremultiply(true);
        kaRenderParameter::setUseRenderTimeLimit(false);
        kaRenderParameter::setRenderTimeInSeconds(10.0);
        osg::ChangeList::getCurrent()->clear();
    }

    // Renders the view (in columns x rows tiles) into the pass images.
    bool render(std::vector<osg::ImagePtr>& images, int quality, int columns = 1, int rows = 1,
                int w = W, int h = H) {
        const osg::CameraPtr camera = view.getViewport()->getCamera();
        osg::TileCameraDecoratorPtr tile = osg::TileCameraDecorator::create();
        tile->setDecoratee(camera);
        tile->setFullSize(uint32_t(w), uint32_t(h));
        view.getViewport()->setCamera(tile);
        const int tileW = (w + columns - 1) / columns, tileH = (h + rows - 1) / rows;
        std::vector<osg::ImagePtr> tiles(images.size());
        for (size_t i = 0; i < images.size(); ++i)
            if (images[i])
                tiles[i] =
                    newImage(tileW, tileH, images[i]->getPixelFormat(), images[i]->getDataType());
        bool ok = true;
        {
            kaSharedOffscreenRender renderer(&view, tiles, quality);
            for (int ty = 0; ty < rows; ++ty)
                for (int tx = 0; tx < columns; ++tx) {
                    const int px = tx * tileW, py = ty * tileH;
                    tile->setSize(float(px) / float(w), float(py) / float(h),
                                  std::min(float(px + tileW) / float(w), 1.0f),
                                  std::min(float(py + tileH) / float(h), 1.0f));
                    ok = renderer.updateGL() && ok;
                    for (size_t i = 0; i < images.size(); ++i)
                        if (images[i])
                            images[i]->setSubData(px, py, 0, tileW, tileH, 1, tiles[i]->getData());
                }
        }
        view.getViewport()->setCamera(camera);
        return ok;
    }

    kaOSGWidget view;
    kaBuiltinScene scene{view};
};

kaRT::V3 rgb(const osg::ImagePtr& image, int x, int y) {
    const osg::Color4f c = image->getPixel(x, y);
    return {c.r, c.g, c.b};
}

bool hasContent(const osg::ImagePtr& image) {
    for (int y = 0; y < image->getHeight(); ++y)
        for (int x = 0; x < image->getWidth(); ++x) {
            const osg::Color4f c = image->getPixel(x, y);
            if (std::fabs(c.r) > 1e-4f || std::fabs(c.g) > 1e-4f || std::fabs(c.b) > 1e-4f)
                return true;
        }
    return false;
}

} // namespace

TEST_F(Raytracer, LightPassesAddUpToBeauty) {
    std::vector<osg::ImagePtr> images = passImages(allPasses());
    ASSERT_TRUE(render(images, 2));
    const int lightPasses[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 26, 27, 28, 29};
    double worst = 0;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            kaRT::V3 sum;
            for (int p : lightPasses)
                sum += rgb(images[size_t(p)], x, y);
            const kaRT::V3 beauty = rgb(images[P::Beauty], x, y);
            for (float d : {sum.x - beauty.x, sum.y - beauty.y, sum.z - beauty.z})
                worst = std::max(worst, double(std::fabs(d)) /
                                            std::max(double(kaRT::average(beauty)), 1e-2));
        }
    EXPECT_LE(worst, 1e-3);
}

TEST_F(Raytracer, IlluminationTimesColourIsItsLight) {
    std::vector<osg::ImagePtr> images = passImages(allPasses());
    ASSERT_TRUE(render(images, 2));
    // (light pass, colour pass, illumination passes)
    const struct {
        int light, colour;
        std::vector<int> illumination;
    } pairs[] = {{1, 10, {16}}, {2, 10, {19}}, {8, 10, {22}}, {3, 11, {17}},
                 {4, 11, {20}}, {9, 11, {23}}, {5, 12, {24}}, {6, 13, {18, 21, 25}}};
    for (const auto& pair : pairs) {
        double worst = 0;
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x) {
                kaRT::V3 illumination;
                for (int p : pair.illumination)
                    illumination += rgb(images[size_t(p)], x, y);
                const kaRT::V3 product = rgb(images[size_t(pair.colour)], x, y) * illumination;
                const kaRT::V3 light = rgb(images[size_t(pair.light)], x, y);
                const double scale = std::max(double(kaRT::average(light)), 1e-2);
                for (float d : {product.x - light.x, product.y - light.y, product.z - light.z})
                    worst = std::max(worst, double(std::fabs(d)) / scale);
            }
        EXPECT_LE(worst, 1e-3) << "pass " << pair.light;
    }
}

// A pass asked for alone traces only the rays it needs, yet comes out as it does among all
// passes: the same samples, the same values.
TEST_F(Raytracer, EachPassAloneIsWhatItIsAmongAllPasses) {
    std::vector<osg::ImagePtr> all = passImages(allPasses());
    ASSERT_TRUE(render(all, 2));
    for (int p = 0; p < kPasses; ++p) {
        std::vector<osg::ImagePtr> alone = passImages({p});
        ASSERT_TRUE(render(alone, 2));
        EXPECT_TRUE(samePixels(alone[size_t(p)], all[size_t(p)])) << "pass " << p;
    }
}

// Where a surface has no colour of a kind, its illumination pass shows the light that arrives
// anyway: rays that only these passes need.
TEST_F(Raytracer, IlluminationShowsWhereItsColourIsBlack) {
    osg::Node* lamp = nullptr;
    osg::Geometry* chrome = nullptr;
    for (const osg::NodePtr& node : osg::collectNodes(scene.getRoot())) {
        if (node->getName() == "Lamp Light")
            lamp = node.get();
        if (node->getName() == "Chrome Sphere")
            chrome = dynamic_cast<osg::Geometry*>(node->getCore().get());
        // Colours as they are, for telling surfaces apart by them.
        if (node->getName() == "Haze" || node->getName() == "Caption Plate")
            node->setActive(false);
    }
    ASSERT_TRUE(lamp && lamp->getParent() && chrome);
    // The lamp below the ground lights it from behind; a perfect mirror has no glossy colour.
    auto place = osg::dynamic_pointer_cast<osg::Transform>(lamp->getParent()->getCore());
    ASSERT_TRUE(place);
    place->setMatrix(osg::Matrix::translation(-1.8f, -1.0f, -1.5f));
    auto mirror = osg::dynamic_pointer_cast<osg::SimpleMaterial>(chrome->getMaterial());
    ASSERT_TRUE(mirror);
    mirror->roughness = 0.0f;

    std::vector<osg::ImagePtr> images =
        passImages({P::Albedo, P::TranslucencyLightIllumination, P::TranslucencyIblIllumination,
                    P::SpecularIndirectIllumination, P::GlossyIblIllumination, P::TranslucencyColor,
                    P::SpecularColor, P::GlossyColor});
    ASSERT_TRUE(render(images, 0));
    int ground = 0, groundFromBehind = 0, groundIbl = 0, groundMirrored = 0;
    int mirrorPixels = 0, mirrorGlossy = 0;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const osg::Color4f albedo = images[P::Albedo]->getPixel(x, y);
            auto shows = [&](int pass) { return images[size_t(pass)]->getPixel(x, y).g > 1e-3f; };
            auto black = [&](int pass) { return images[size_t(pass)]->getPixel(x, y).g == 0.0f; };
            if (std::fabs(albedo.r - 0.55f) < 1e-4f && std::fabs(albedo.b - 0.52f) < 1e-4f &&
                black(P::TranslucencyColor) && black(P::SpecularColor)) {
                ++ground;
                groundFromBehind += shows(P::TranslucencyLightIllumination);
                groundIbl += shows(P::TranslucencyIblIllumination);
                groundMirrored += shows(P::SpecularIndirectIllumination);
            }
            if (std::fabs(albedo.r - 0.9f) < 1e-4f && std::fabs(albedo.b - 0.92f) < 1e-4f &&
                black(P::GlossyColor)) {
                ++mirrorPixels;
                mirrorGlossy += shows(P::GlossyIblIllumination);
            }
        }
    ASSERT_GT(ground, 500);
    EXPECT_GT(groundFromBehind, ground / 2) << "the lamp below the ground";
    EXPECT_GT(groundIbl, ground / 2) << "the environment below the ground";
    EXPECT_GT(groundMirrored, ground / 2) << "what the ground would mirror";
    ASSERT_GT(mirrorPixels, 20);
    EXPECT_GT(mirrorGlossy, mirrorPixels / 4) << "the environment around the mirror";
}

TEST_F(Raytracer, EveryPassCarriesContent) {
    std::vector<osg::ImagePtr> images = passImages(allPasses());
    // Motion vectors need a frame before this one.
    kaAnimManager::setCurrentFrame(40, true);
    ASSERT_TRUE(render(images, 0));
    kaAnimManager::setCurrentFrame(44, true);
    ASSERT_TRUE(render(images, 0));
    // Cryptomatte ranks 2 to 5 need pixels shared by three or more objects.
    for (int p = 0; p < kPasses; ++p)
        if (p != 35 && p != 36 && p != 38 && p != 39) {
            EXPECT_TRUE(hasContent(images[size_t(p)])) << "pass " << p;
        }
}

TEST_F(Raytracer, TiledEqualsUntiledAndThreadCountsAgree) {
    std::vector<osg::ImagePtr> whole = passImages(allPasses());
    ASSERT_TRUE(render(whole, 1));
    std::vector<osg::ImagePtr> tiled = passImages(allPasses());
    ASSERT_TRUE(render(tiled, 1, 3, 2));
    kaRaytracer::setThreadCount(1);
    std::vector<osg::ImagePtr> single = passImages(allPasses());
    ASSERT_TRUE(render(single, 1));
    kaRaytracer::setThreadCount(5);
    std::vector<osg::ImagePtr> five = passImages(allPasses());
    ASSERT_TRUE(render(five, 1, 2, 3));
    for (int p = 0; p < kPasses; ++p) {
        EXPECT_TRUE(samePixels(whole[size_t(p)], tiled[size_t(p)])) << "tiles, pass " << p;
        EXPECT_TRUE(samePixels(whole[size_t(p)], single[size_t(p)])) << "1 thread, pass " << p;
        EXPECT_TRUE(samePixels(whole[size_t(p)], five[size_t(p)])) << "5 threads, pass " << p;
    }
}

namespace {
// Counts the viewport callback's calls and their times; stops at call 'stopAt' (0: never).
struct CallbackLog {
    std::vector<double> seconds;
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    size_t stopAt = 0;
    static bool record(int, int, bool advance, void* data) {
        auto* log = static_cast<CallbackLog*>(data);
        if (advance)
            log->seconds.push_back(
                std::chrono::duration<double>(std::chrono::steady_clock::now() - log->start)
                    .count());
        return log->stopAt == 0 || log->seconds.size() < log->stopAt;
    }
};

// The camera matrices of the whole picture, as the view's camera gives them.
kaRT::M4 viewProjectionOf(const osg::Camera& camera) {
    return kaRT::M4::from(camera.getProjection(W, H)) * kaRT::M4::from(camera.getViewing(W, H));
}
} // namespace

TEST_F(Raytracer, SurfacesAreWhereOpenGLDrawsThem) {
    view.getBackground()->setAlpha(0.0f);
    std::vector<osg::ImagePtr> traced = passImages({P::Depth, P::Mask, P::Position, P::GpuDepth});
    ASSERT_TRUE(render(traced, 0));
    kaOSGWidget::setRaytracing(false);
    std::vector<osg::ImagePtr> drawn = {newImage(W, H)};
    ASSERT_TRUE(render(drawn, 0));

    const kaRT::M4 viewing = kaRT::M4::from(view.getCamera()->getViewing(W, H));
    const kaRT::M4 viewProjection = viewProjectionOf(*view.getCamera());
    int different = 0, covered = 0;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const bool hit = traced[P::Mask]->getPixel(x, y).r > 0.5f;
            different += hit != (drawn[0]->getPixel(x, y).a > 0.0f);
            if (!hit)
                continue;
            ++covered;
            const kaRT::V3 position = rgb(traced[P::Position], x, y);
            const kaRT::V3 ndc = viewProjection.project(position);
            EXPECT_NEAR((ndc.x * 0.5f + 0.5f) * W, x + 0.5f, 1e-2f) << x << "," << y;
            EXPECT_NEAR((ndc.y * 0.5f + 0.5f) * H, y + 0.5f, 1e-2f) << x << "," << y;
            EXPECT_NEAR(traced[P::GpuDepth]->getPixel(x, y).r, ndc.z * 0.5f + 0.5f, 1e-5f);
            EXPECT_NEAR(traced[P::Depth]->getPixel(x, y).r, -float(viewing.row(2, position)),
                        1e-3f);
        }
    EXPECT_GT(covered, W * H / 2);
    // Pixels whose centre lies exactly on an edge may go either way.
    EXPECT_LE(different, W * H / 200);
}

TEST_F(Raytracer, StereoEyesMatchTheOpenGLEyes) {
    const osg::CameraPtr camera = view.getViewport()->getCamera();
    view.getBackground()->setAlpha(0.0f);
    std::vector<osg::ImagePtr> masks;
    for (bool left : {true, false}) {
        osg::ShearedStereoCameraDecoratorPtr eye = osg::ShearedStereoCameraDecorator::create();
        eye->setDecoratee(camera);
        eye->setEyeSeparation(0.5f);
        eye->setZeroParallaxDistance(7.0f);
        eye->setLeftEye(left);
        view.getViewport()->setCamera(eye);
        kaOSGWidget::setRaytracing(true);
        std::vector<osg::ImagePtr> traced = passImages({P::Mask});
        ASSERT_TRUE(render(traced, 0));
        kaOSGWidget::setRaytracing(false);
        std::vector<osg::ImagePtr> drawn = {newImage(W, H)};
        ASSERT_TRUE(render(drawn, 0));
        int different = 0;
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x)
                different += (traced[P::Mask]->getPixel(x, y).r > 0.5f) !=
                             (drawn[0]->getPixel(x, y).a > 0.0f);
        EXPECT_LE(different, W * H / 200) << (left ? "left" : "right");
        masks.push_back(traced[P::Mask]);
    }
    view.getViewport()->setCamera(camera);
    EXPECT_FALSE(samePixels(masks[0], masks[1])) << "the eyes see differently";
}

TEST_F(Raytracer, SamplesAddUpOneAtATime) {
    std::vector<osg::ImagePtr> atOnce = passImages(
        {P::Beauty, P::DiffuseIblIllumination, P::Occlusion, P::CryptoObject00, P::Mask});
    ASSERT_TRUE(render(atOnce, 2)); // 4 samples
    std::vector<osg::ImagePtr> oneByOne = passImages(
        {P::Beauty, P::DiffuseIblIllumination, P::Occlusion, P::CryptoObject00, P::Mask});
    osg::TileCameraDecoratorPtr tile = osg::TileCameraDecorator::create();
    const osg::CameraPtr camera = view.getViewport()->getCamera();
    tile->setDecoratee(camera);
    tile->setFullSize(W, H);
    tile->setSize(0, 0, 1, 1);
    view.getViewport()->setCamera(tile);
    {
        kaSharedOffscreenRender renderer(&view, oneByOne, 2);
        for (int k = 0; k < 4; ++k) {
            renderer.setRtSample(k);
            ASSERT_TRUE(renderer.updateGL());
            EXPECT_EQ(kaRTRenderer::the().getLastSampleCount(), 1);
        }
    }
    view.getViewport()->setCamera(camera);
    for (int p : {P::Beauty, P::DiffuseIblIllumination, P::Occlusion, P::CryptoObject00, P::Mask})
        EXPECT_TRUE(samePixels(atOnce[size_t(p)], oneByOne[size_t(p)])) << "pass " << p;
}

TEST_F(Raytracer, TheTimeLimitStopsAfterTheSampleThatPassesIt) {
    // Embree and the scene's structures are set up once, outside the timed render.
    std::vector<osg::ImagePtr> warmUp = passImages({P::Beauty});
    ASSERT_TRUE(render(warmUp, 0));
    kaRenderParameter::setUseRenderTimeLimit(true);
    kaRenderParameter::setRenderTimeInSeconds(0.3);
    CallbackLog log;
    view.getViewport()->setEventProcessingCB(CallbackLog::record, &log);
    std::vector<osg::ImagePtr> images = passImages({P::Beauty});
    log.start = std::chrono::steady_clock::now();
    EXPECT_TRUE(render(images, 0));
    view.getViewport()->setEventProcessingCB(nullptr, nullptr);
    ASSERT_GE(log.seconds.size(), 2u);
    EXPECT_EQ(int(log.seconds.size()), kaRTRenderer::the().getLastSampleCount());
    EXPECT_GT(log.seconds.back(), 0.3);
    // The renderer starts its clock a moment after ours.
    EXPECT_LE(log.seconds[log.seconds.size() - 2], 0.3 + 0.1);
}

TEST_F(Raytracer, TheCallbackStopsTheRender) {
    CallbackLog log;
    log.stopAt = 3;
    view.getViewport()->setEventProcessingCB(CallbackLog::record, &log);
    std::vector<osg::ImagePtr> images = passImages({P::Beauty});
    EXPECT_FALSE(render(images, 4)) << "16 samples asked, stopped at 3";
    view.getViewport()->setEventProcessingCB(nullptr, nullptr);
    EXPECT_EQ(log.seconds.size(), 3u);
    EXPECT_EQ(kaRTRenderer::the().getLastSampleCount(), 3);
    EXPECT_TRUE(hasContent(images[P::Beauty])) << "the samples made so far are kept";
}

// A picture large enough that one sample takes a good part of a second.
constexpr int kLargeW = 1600, kLargeH = 1200;

TEST_F(Raytracer, AnInterruptStopsTheRenderWithinAFewRows) {
    std::vector<osg::ImagePtr> images = passImages({P::Beauty}, kLargeW, kLargeH);
    // The interrupt comes from another thread once rows are being traced: setting the scene
    // up before the first row is not what is measured (slow builds take long there).
    std::atomic<bool> tracing{false}, over{false};
    const int listener = kaController::addStepListener([&](int, int, double fraction) {
        if (fraction > 0.0)
            tracing = true;
    });
    std::chrono::steady_clock::time_point interrupted;
    std::thread interrupter([&] {
        while (!tracing && !over)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        interrupted = std::chrono::steady_clock::now();
        kaController::interruptRenders();
    });
    const bool finished = render(images, 4, 1, 1, kLargeW, kLargeH);
    const auto returned = std::chrono::steady_clock::now();
    over = true;
    interrupter.join();
    kaController::removeStepListener(listener);
    kaController::clearRenderInterrupt();
    EXPECT_FALSE(finished);
    EXPECT_LT(kaRTRenderer::the().getLastSampleCount(), 16);
#ifdef KA_SANITIZED_BUILD
    // The sanitizer watches every byte of the 30 MB tile as it is pasted into the picture
    // after the stop: that alone takes more than half a second there.
    const double limit = 2.0;
#else
    const double limit = 0.5;
#endif
    EXPECT_LT(std::chrono::duration<double>(returned - interrupted).count(), limit);
}

TEST_F(Raytracer, AbortInsideASampleStopsItAndTheNextRenderStartsOver) {
    // The dialog's Abort: the callback says stop while the first sample is under way.
    struct Abort {
        int calls = 0;
        static bool check(int, int, bool advance, void* data) {
            auto* self = static_cast<Abort*>(data);
            ++self->calls;
            return advance;
        }
    } abort;
    view.getViewport()->setEventProcessingCB(Abort::check, &abort);
    std::vector<osg::ImagePtr> images = passImages({P::Beauty}, kLargeW, kLargeH);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(render(images, 4, 1, 1, kLargeW, kLargeH));
    const double aborted =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    view.getViewport()->setEventProcessingCB(nullptr, nullptr);
    EXPECT_EQ(abort.calls, 1);
    EXPECT_EQ(kaRTRenderer::the().getLastSampleCount(), 0);

    // One whole sample takes longer than the aborted one did.
    std::vector<osg::ImagePtr> whole = passImages({P::Beauty}, kLargeW, kLargeH);
    const auto wholeStart = std::chrono::steady_clock::now();
    EXPECT_TRUE(render(whole, 0, 1, 1, kLargeW, kLargeH));
    EXPECT_LT(aborted,
              std::chrono::duration<double>(std::chrono::steady_clock::now() - wholeStart).count());
    EXPECT_EQ(kaRTRenderer::the().getLastSampleCount(), 1) << "started over";
}

TEST_F(Raytracer, ProgressMovesInsideASample) {
    std::vector<double> fractions;
    const int listener = kaController::addStepListener([&](int step, int steps, double fraction) {
        EXPECT_EQ(step, 0);
        EXPECT_EQ(steps, 1);
        fractions.push_back(fraction);
    });
    std::vector<osg::ImagePtr> images = passImages({P::Beauty}, kLargeW, kLargeH);
    EXPECT_TRUE(render(images, 0, 1, 1, kLargeW, kLargeH));
    kaController::removeStepListener(listener);
    ASSERT_FALSE(fractions.empty());
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
    EXPECT_TRUE(std::any_of(fractions.begin(), fractions.end(),
                            [](double f) { return f > 0.0 && f < 1.0; }));
}

TEST_F(Raytracer, AlphaIsPremultipliedOrStraight) {
    view.getBackground()->setAlpha(0.0f);
    view.getBackground()->setAlphaColor({0.2f, 0.4f, 0.6f});
    std::vector<osg::ImagePtr> premultiplied = passImages({P::Beauty, P::DiffuseLight});
    ASSERT_TRUE(render(premultiplied, 2));
    kaRaytracer::setPremultiply(false);
    std::vector<osg::ImagePtr> straight = passImages({P::Beauty, P::DiffuseLight});
    ASSERT_TRUE(render(straight, 2));

    const osg::Color4f sky = straight[P::Beauty]->getPixel(W / 2, H - 1);
    EXPECT_FLOAT_EQ(sky.a, 0.0f);
    EXPECT_NEAR(sky.r, 0.2f, 1e-6f) << "straight colour where nothing is: the alpha colour";
    EXPECT_NEAR(sky.b, 0.6f, 1e-6f);
    EXPECT_NEAR(premultiplied[P::Beauty]->getPixel(W / 2, H - 1).r, 0.0f, 1e-6f);
    int partial = 0;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const osg::Color4f p = premultiplied[P::Beauty]->getPixel(x, y),
                               s = straight[P::Beauty]->getPixel(x, y);
            EXPECT_FLOAT_EQ(p.a, s.a);
            if (p.a <= 0.01f)
                continue;
            partial += p.a < 0.99f;
            EXPECT_NEAR(s.g * s.a, p.g, 1e-4f * std::max(p.g, 1.0f)) << x << "," << y;
            const osg::Color4f pl = premultiplied[P::DiffuseLight]->getPixel(x, y),
                               sl = straight[P::DiffuseLight]->getPixel(x, y);
            EXPECT_NEAR(sl.r * sl.a, pl.r, 1e-4f * std::max(pl.r, 1.0f)) << x << "," << y;
        }
    EXPECT_GT(partial, 0) << "edges against the background are partly covered";
}

TEST_F(Raytracer, FloatImagesKeepValuesAboveOne) {
    std::vector<osg::ImagePtr> images = passImages({P::Beauty, P::Incandescence});
    ASSERT_TRUE(render(images, 0));
    float brightest = 0;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x)
            brightest = std::max(brightest, images[P::Incandescence]->getPixel(x, y).r);
    EXPECT_GT(brightest, 3.0f) << "the lamp glows at 6";
    std::vector<osg::ImagePtr> bytes(kPasses);
    bytes[0] = newImage(W, H, Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA);
    ASSERT_TRUE(render(bytes, 0));
    EXPECT_EQ(*std::max_element(bytes[0]->getData(), bytes[0]->getData() + bytes[0]->getSize()),
              255);
}

TEST_F(Raytracer, CryptomatteNamesTheObjectsItSaw) {
    std::vector<osg::ImagePtr> images = passImages({P::CryptoObject00, P::CryptoMaterial00});
    ASSERT_TRUE(render(images, 2));
    const float box = kaRTCryptomatte::idOfName("Box");
    const float paint = kaRTCryptomatte::idOfName("Red Paint");
    int boxPixels = 0;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const osg::Color4f object = images[P::CryptoObject00]->getPixel(x, y);
            const osg::Color4f material = images[P::CryptoMaterial00]->getPixel(x, y);
            EXPECT_GE(object.g, object.a) << "ranks by coverage";
            EXPECT_LE(object.g + object.a, 1.0f + 1e-6f);
            if (object.r == box && object.g == 1.0f) {
                ++boxPixels;
                EXPECT_EQ(material.r, paint);
            }
        }
    EXPECT_GT(boxPixels, 20);
}

TEST_F(Raytracer, SampleCountsFollowTheRenderSettings) {
    std::vector<osg::ImagePtr> images = passImages({P::Beauty});
    ASSERT_TRUE(render(images, 1));
    EXPECT_EQ(kaRTRenderer::the().getLastSampleCount(), 2) << "quality 1: two samples";
    kaRenderParameter::setImageSamples(3);
    ASSERT_TRUE(render(images, 1));
    kaRenderParameter::setImageSamples(1);
    EXPECT_EQ(kaRTRenderer::the().getLastSampleCount(), 6) << "times the image samples";
    kaRenderParameter::setStillFrameSupersampling(2);
    ASSERT_TRUE(render(images, 1));
    kaRenderParameter::setStillFrameSupersampling(0);
    EXPECT_EQ(kaRTRenderer::the().getLastSampleCount(), 4) << "times the still-frame level";
    // The viewport (or the cluster window) may ask for one sample only.
    view.getViewport()->setRtSample(5);
    ASSERT_TRUE(render(images, 4));
    view.getViewport()->setRtSample(-1);
    EXPECT_EQ(kaRTRenderer::the().getLastSampleCount(), 1);
}

TEST_F(Raytracer, CountsTheRaysItTraces) {
    std::vector<osg::ImagePtr> images = passImages({P::Beauty});
    ASSERT_TRUE(render(images, 0));
    const uint64_t one = kaRTRenderer::the().getLastRayCount();
    // A camera ray a pixel, and shadow and bounce rays where it finds a surface.
    EXPECT_GT(one, uint64_t(3 * W * H));
    ASSERT_TRUE(render(images, 2));
    const uint64_t four = kaRTRenderer::the().getLastRayCount();
    EXPECT_NEAR(double(four) / double(one), 4.0, 0.2) << "four samples";
}

TEST_F(Raytracer, FogPlatesAndFlareOnlyWhenTheSceneHasThem) {
    for (const osg::NodePtr& node : osg::collectNodes(scene.getRoot()))
        if (node->getName() == "Haze" || node->getName() == "Sky Plate" ||
            node->getName() == "Caption Plate" || node->getName() == "Lens Flare")
            node->setActive(false);
    std::vector<osg::ImagePtr> images =
        passImages({P::Beauty, P::Fog, P::LensFlare, P::Backplates, P::Frontplates});
    ASSERT_TRUE(render(images, 0));
    EXPECT_TRUE(hasContent(images[P::Beauty]));
    for (int p : {P::Fog, P::LensFlare, P::Backplates, P::Frontplates})
        EXPECT_FALSE(hasContent(images[size_t(p)])) << "pass " << p;
}

TEST_F(Raytracer, AddingMattesToAProgressiveRenderStartsItOver) {
    const osg::CameraPtr camera = view.getViewport()->getCamera();
    kaRTRenderer::Region region;
    region.fullWidth = region.width = W;
    region.fullHeight = region.height = H;
    std::string error;
    std::vector<osg::ImagePtr> beauty = passImages({P::Beauty});
    ASSERT_TRUE(
        kaRTRenderer::the().render(*view.getViewport(), *camera, region, beauty, 4, 0, error));
    // Same region, next sample, but now with a matte: the sums so far have no ids.
    std::vector<osg::ImagePtr> withMatte = passImages({P::Beauty, P::CryptoObject00});
    ASSERT_TRUE(
        kaRTRenderer::the().render(*view.getViewport(), *camera, region, withMatte, 4, 1, error));
    // Sample 1 alone, with nothing before it.
    kaRTRenderer::the().releaseBuffers();
    std::vector<osg::ImagePtr> fresh = passImages({P::Beauty, P::CryptoObject00});
    ASSERT_TRUE(
        kaRTRenderer::the().render(*view.getViewport(), *camera, region, fresh, 4, 1, error));
    kaRTRenderer::the().releaseBuffers();
    EXPECT_TRUE(hasContent(withMatte[P::CryptoObject00]));
    EXPECT_TRUE(samePixels(withMatte[P::Beauty], fresh[P::Beauty])) << "sample 0 was left behind";
    EXPECT_TRUE(samePixels(withMatte[P::CryptoObject00], fresh[P::CryptoObject00]));
}

// Shadow rays: an opaque surface in the way takes a light whole, a see-through one takes its
// opacity's share. A scene of opaque surfaces only is answered by Embree's any-hit query, one
// with see-through surfaces by walking through them: both must give these shadows.
TEST_F(Raytracer, ShadowsAreWholeBehindOpaqueSurfacesAndPartBehindSeeThroughOnes) {
    // The sun alone lights the ground; nothing glows or lets light through.
    for (const osg::NodePtr& node : osg::collectNodes(scene.getRoot()))
        for (const char* name : {"Lamp Light", "Box Lamp", "Sky", "Lamp", "Paper Screen",
                                 "Glass Ball", "Haze", "Sky Plate", "Caption Plate", "Lens Flare"})
            if (node->getName() == name)
                node->setActive(false);
    constexpr int w = 160, h = 120;
    view.setSize(w, h);
    // The sun's illumination where the ground is seen (elsewhere -1): the ground is known by
    // its concrete colour.
    auto sunlight = [&] {
        std::vector<osg::ImagePtr> images =
            passImages({P::DiffuseLightIllumination, P::Albedo}, w, h);
        EXPECT_TRUE(render(images, 0, 1, 1, w, h));
        std::vector<float> values;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const osg::Color4f albedo = images[P::Albedo]->getPixel(x, y);
                const bool ground =
                    std::fabs(albedo.r - 0.55f) < 1e-4f && std::fabs(albedo.b - 0.52f) < 1e-4f;
                values.push_back(ground ? images[P::DiffuseLightIllumination]->getPixel(x, y).r
                                        : -1.0f);
            }
        return values;
    };
    auto count = [](const std::vector<float>& values, float from, float to) {
        return std::count_if(values.begin(), values.end(),
                             [&](float v) { return v >= from && v <= to; });
    };

    const std::vector<float> opaque = sunlight();
    // Flat ground under a distant light: the lit ground's pixels share one value, the one
    // most pixels have.
    std::map<float, long> histogram;
    for (float v : opaque)
        if (v > 0)
            ++histogram[v];
    ASSERT_FALSE(histogram.empty());
    const float full = std::max_element(histogram.begin(), histogram.end(), [](auto& a, auto& b) {
                           return a.second < b.second;
                       })->first;
    ASSERT_GT(full, 0.1f);
    const long lit = count(opaque, full * 0.999f, full * 1.001f);
    const long shadowed = count(opaque, 0.0f, 0.0f);
    EXPECT_GT(lit, 2000) << "the lit ground";
    EXPECT_GT(shadowed, 200) << "the box's and the balls' shadows";

    for (const osg::NodePtr& node : osg::collectNodes(scene.getRoot()))
        if (node->getName() == "Glass Ball")
            node->setActive(true);
    const std::vector<float> seeThrough = sunlight();
    // Of the lit ground, the glass ball's shadow gets 1 - 0.35 of the sun through each of the
    // ball's two sides; the rest stays lit.
    long partly = 0, still = 0, other = 0;
    for (size_t i = 0; i < opaque.size(); ++i) {
        if (opaque[i] < full * 0.999f || opaque[i] > full * 1.001f)
            continue;
        if (std::fabs(seeThrough[i] - full * 0.65f * 0.65f) < full * 1e-3f)
            ++partly;
        else if (seeThrough[i] == opaque[i])
            ++still;
        else
            ++other; // under the ball itself, or its shadow's soft edge
    }
    EXPECT_GT(partly, 50) << "the glass ball's shadow";
    EXPECT_GT(still, lit - partly - 800);
    EXPECT_LT(other, 800) << "the ball covers about 600 pixels";
    EXPECT_GT(count(seeThrough, 0.0f, 0.0f), 200) << "opaque shadows stay whole";

    // The same ball made opaque (its material only, the mesh unchanged) takes the sun whole.
    for (const osg::NodePtr& node : osg::collectNodes(scene.getRoot()))
        if (node->getName() == "Glass Ball")
            if (auto* ball = dynamic_cast<osg::Geometry*>(node->getCore().get()))
                osg::dynamic_pointer_cast<osg::SimpleMaterial>(ball->getMaterial())->opacity = 1.0f;
    const std::vector<float> opaqueBall = sunlight();
    long nowWhole = 0;
    for (size_t i = 0; i < opaque.size(); ++i)
        if (std::fabs(seeThrough[i] - full * 0.65f * 0.65f) < full * 1e-3f)
            nowWhole += opaqueBall[i] == 0.0f;
    EXPECT_EQ(nowWhole, partly) << "the ball's shadow, whole now";
}
