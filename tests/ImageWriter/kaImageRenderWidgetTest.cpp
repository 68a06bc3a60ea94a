// The render dialog: its tile plan under the memory budget, its render loop, progress, abort,
// stereo eyes and aspect correction, rendering the built-in scene for real.
#include "kaImageRenderWidget.h"

#include "kaBuiltinScene.h"
#include "kaController.h"
#include "kaGLInfo.h"
#include "kaGLSceneRenderer.h"
#include "kaImageWriter.h"
#include "kaOSGWidget.h"
#include "kaPreferences.h"
#include "kaRenderParameter.h"
#include "kaRenderPassCatalogue.h"
#include "kaTestSupport.h"
#include "kaUberCameraUtils.h"

#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>

using osg::Image;
using SM = kaImageRenderWidget::StereoMode;

class RenderWidget : public testing::Test {
protected:
    void SetUp() override {
        kaOSGWidget::setMainView(&view);
        view.setSize(320, 240);
        kaImageRenderWidget::setAlpha(false);
        kaImageRenderWidget::setDataType(Image::OSG_UINT8_IMAGEDATA);
        kaImageRenderWidget::setActiveRenderPasses({});
        kaImageRenderWidget::setPowerwall(false);
        kaImageRenderWidget::resetAbortAndCancelFlag();
    }
    void TearDown() override {
        kaOSGWidget::setMainView(nullptr);
        kaImageRenderWidget::setAlpha(false);
        kaImageRenderWidget::setDataType(Image::OSG_UINT8_IMAGEDATA);
        kaImageRenderWidget::setPowerwall(false);
        kaRenderParameter::setUseRenderTimeLimit(false);
        kaGLSceneRenderer::the().setRegionListener(nullptr);
        kaController::setNoGUI(false);
        osg::ChangeList::getCurrent()->clear();
    }
    void budget(int megabytes) {
        kaPreferences::getData().set("Image Export Max Framebuffer Memory", megabytes);
    }
    std::unique_ptr<kaImageRenderWidget> widget(int w, int h, int ss = 0, SM mode = SM::STEREO_NONE,
                                                bool ignoreAspect = true, unsigned passes = 1) {
        return std::make_unique<kaImageRenderWidget>(nullptr, w, h, mode, false, ss, true,
                                                     ignoreAspect, passes, false);
    }
    katest::PreferencesGuard guard;
    kaOSGWidget view;
    kaBuiltinScene scene{view};
};

struct PlanCase {
    int width, height, budget;
    int maxW, maxH, tileW, tileH;
};

class TilePlan : public RenderWidget, public testing::WithParamInterface<PlanCase> {};

TEST_P(TilePlan, FollowsTheBudget) {
    const PlanCase& c = GetParam();
    budget(c.budget);
    auto w = widget(c.width, c.height);
    ASSERT_TRUE(w->isValid());
    EXPECT_EQ(w->getMaxTileWidth(), c.maxW);
    EXPECT_EQ(w->getMaxTileHeight(), c.maxH);
    EXPECT_EQ(w->getTileWidth(), c.tileW);
    EXPECT_EQ(w->getTileHeight(), c.tileH);
    EXPECT_FLOAT_EQ(w->getTileFractionX(), float(double(c.tileW) / c.width));
    EXPECT_FLOAT_EQ(w->getTileFractionY(), float(double(c.tileH) / c.height));
    EXPECT_EQ(w->getTileImages()[0]->getWidth(), c.tileW);
}

INSTANTIATE_TEST_SUITE_P(
    SizesAndBudgets, TilePlan,
    testing::Values(PlanCase{8000, 6000, 2048, 8000, 6000, 8000, 6000}, // 732 MB fits
                    PlanCase{1024, 768, 0, 1024, 768, 1024, 768},       // 0: unlimited
                    PlanCase{2048, 2048, 16, 1024, 1024, 1024, 1024},   // 64 MB -> 16
                    PlanCase{2048, 2048, 32, 2048, 1024, 2048, 1024},   // one halving
                    PlanCase{1001, 1000, 3, 500, 500, 251, 500},        // 1001 -> 501 -> 251
                    PlanCase{256, 9000, 1, 256, 9000, 256, 9000},       // 256 wide: never tiled
                    PlanCase{9000, 256, 1, 9000, 256, 9000, 256},       // 256 high: never tiled
                    PlanCase{4000, 600, 1, 1000, 150, 1000, 150},       // small heights stop
                    PlanCase{3000, 3000, 10, 750, 750, 750, 750}));

TEST_F(RenderWidget, MissingBudgetPreferenceIs2048AndUnlimitedCasesAreNotTiled) {
    kaPreferences::getData().remove("Image Export Max Framebuffer Memory");
    auto w = widget(8000, 6000);
    EXPECT_EQ(w->getTileWidth(), 8000) << "732 MB fits the default 2048 MB";
    budget(1);
    kaRenderParameter::setUseRenderTimeLimit(true);
    kaRenderParameter::setRenderTimeInSeconds(3.0);
    auto timed = widget(2000, 2000);
    EXPECT_EQ(timed->getTileWidth(), 2000) << "time-based renders are never tiled";
    EXPECT_EQ(timed->getProgress()->maximum(), 301) << "hundredths of the render time, plus one";
    kaRenderParameter::setUseRenderTimeLimit(false);
}

TEST_F(RenderWidget, ABudgetBeyondTheVideoMemoryIsCutToHalfOfIt) {
    kaGLInfo::setVideoMemorySizeMB(64);
    budget(2048);
    testing::internal::CaptureStdout();
    auto cut = widget(4096, 4096);
    const std::string said = testing::internal::GetCapturedStdout();
    kaGLInfo::setVideoMemorySizeMB(0);
    EXPECT_EQ(said, "kaImageRenderWidget: reduced maximum frame buffer size to 32 MB memory!\n");
    // The plan is the one a budget of 32 MB gives: the 48 MB picture is split.
    budget(32);
    auto planned = widget(4096, 4096);
    EXPECT_EQ(cut->getTileWidth(), planned->getTileWidth());
    EXPECT_EQ(cut->getTileHeight(), planned->getTileHeight());
    EXPECT_LT(cut->getTileWidth() * cut->getTileHeight(), 4096 * 4096);
}

TEST_F(RenderWidget, ABudgetWithinTheVideoMemoryStands) {
    kaGLInfo::setVideoMemorySizeMB(4096);
    budget(100);
    testing::internal::CaptureStdout();
    auto w = widget(4096, 4096);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    kaGLInfo::setVideoMemorySizeMB(0);
    budget(100);
    auto reference = widget(4096, 4096);
    EXPECT_EQ(w->getTileWidth(), reference->getTileWidth());
    EXPECT_EQ(w->getTileHeight(), reference->getTileHeight());
}

TEST_F(RenderWidget, FullFramePostprocessingMeansOneTile) {
    budget(1);
    osg::TonemappingSettingsPtr tonemapping = osg::TonemappingSettings::create();
    tonemapping->setPostprocessingFlags(2);
    view.getCamera()->setTonemappingSettings(tonemapping);
    auto w = std::make_unique<kaImageRenderWidget>(nullptr, 2000, 2000, SM::STEREO_NONE, false, 0,
                                                   true, true, 1, true);
    EXPECT_EQ(w->getTileWidth(), 2000);
    EXPECT_TRUE(tonemapping->getTonemapHDR()) << "the widget's tonemapHDR reaches the camera";
    w.reset();
    EXPECT_FALSE(tonemapping->getTonemapHDR()) << "and is switched off afterwards";
    view.getCamera()->setTonemappingSettings(nullptr);
}

TEST_F(RenderWidget, SampleQualityBySupersampling) {
    const int expected[] = {0, 2, 3, 4};
    for (int ss = 0; ss <= 3; ++ss)
        EXPECT_EQ(widget(64, 48, ss)->getSampleQuality(), expected[ss]);
    EXPECT_EQ(widget(64, 48, 5)->getSampleQuality(), 4);
    EXPECT_EQ(widget(64, 48, -1)->getSampleQuality(), 4);
}

TEST_F(RenderWidget, PassZeroAlwaysGetsImages) {
    auto w = widget(64, 48, 0, SM::STEREO_NONE, true, 47);
    ASSERT_EQ(w->getTileImages().size(), 47u);
    ASSERT_EQ(w->getImages().size(), 47u);
    EXPECT_TRUE(w->getTileImages()[0]);
    EXPECT_TRUE(w->getImages()[0]);
    EXPECT_FALSE(w->getImages()[kaRenderPass::Depth]);
    std::vector<bool> passes(47, false);
    passes[kaRenderPass::Depth] = true;
    kaImageRenderWidget::setActiveRenderPasses(passes);
    auto v = widget(64, 48, 0, SM::STEREO_NONE, true, 47);
    EXPECT_FALSE(v->getImages()[0]);
    EXPECT_TRUE(v->getImages()[kaRenderPass::Depth]);
}

TEST_F(RenderWidget, NoMainViewMakesAnInvalidWidget) {
    kaOSGWidget::setMainView(nullptr);
    auto w = widget(64, 48);
    EXPECT_FALSE(w->isValid());
    EXPECT_TRUE(w->render(nullptr, 0, true, false).empty());
}

TEST_F(RenderWidget, TimeBasedOpenGLBeyondTheTextureLimitIsRefused) {
    kaController::setNoGUI(true);
    katest::LogCapture log;
    kaRenderParameter::setUseRenderTimeLimit(true);
    auto w = widget(20000, 100);
    EXPECT_FALSE(w->isValid());
    bool box = false;
    for (const std::string& text : log.texts(kaLog::Warning))
        box = box || text.find("Resolution too large for time based rendering in OpenGL mode!") !=
                         std::string::npos;
    EXPECT_TRUE(box);
}

TEST_F(RenderWidget, AResultImageBeyondMemoryShowsTheBoxAndLeavesTheWidgetInvalid) {
    kaController::setNoGUI(true);
    katest::LogCapture log;
    budget(16);
    auto w = widget(2000000, 2000000);
    EXPECT_FALSE(w->isValid());
    EXPECT_TRUE(log.contains(kaLog::Warning, "Image Export: Couldn't allocate enough memory "
                                             "(11444091.8 MB), try to reduce the resolution or "
                                             "the supersampling factor!"));
    EXPECT_TRUE(w->render(nullptr, 0, true, false).empty());
}

TEST_F(RenderWidget, ASingleTileRendersOnceAndProgressEndsAtOne) {
    std::vector<std::array<int, 4>> regions;
    kaGLSceneRenderer::the().setRegionListener([&](int, int, int x, int y, int w, int h) {
        regions.push_back({x, y, w, h});
    });
    auto w = widget(64, 48);
    EXPECT_EQ(w->getProgress()->maximum(), 2);
    auto images = w->render(nullptr, 0, true, true);
    ASSERT_EQ(images.size(), 1u);
    EXPECT_EQ(regions.size(), 1u);
    EXPECT_EQ(w->getProgress()->value(), 1);
}

TEST_F(RenderWidget, FourTilesInOrderLeftToRightThenUp) {
    budget(1);
    std::vector<std::array<int, 4>> regions;
    kaGLSceneRenderer::the().setRegionListener([&](int, int, int x, int y, int w, int h) {
        regions.push_back({x, y, w, h});
    });
    auto w = widget(600, 600, 0);
    ASSERT_FLOAT_EQ(w->getTileFractionX(), 0.5f);
    ASSERT_FLOAT_EQ(w->getTileFractionY(), 0.5f);
    w->render(nullptr, 0, true, false);
    const std::vector<std::array<int, 4>> expected = {
        {0, 0, 300, 300}, {300, 0, 300, 300}, {0, 300, 300, 300}, {300, 300, 300, 300}};
    EXPECT_EQ(regions, expected);
}

TEST_F(RenderWidget, WithoutTheDialogNoProgressIsShown) {
    budget(1);
    auto w = widget(300, 300);
    w->render(nullptr, 0, false, false);
    EXPECT_EQ(w->getProgress()->value(), 0);
    EXPECT_FALSE(w->isVisible());
}

struct RenderCase {
    uint32_t format;
    int32_t type;
    const char* name;
};

class TiledRender : public RenderWidget, public testing::WithParamInterface<RenderCase> {};

TEST_P(TiledRender, ManyTilesGiveTheOneTileImage) {
    kaImageRenderWidget::setAlpha(GetParam().format == Image::OSG_RGBA_PF);
    kaImageRenderWidget::setDataType(osg::Image::Type(GetParam().type));
    // The picture under a budget that forces many tiles, and in one tile. Exports make one
    // widget at a time: each is gone before the next.
    budget(1);
    std::vector<osg::ImagePtr> big;
    {
        kaImageRenderWidget many(nullptr, 1280, 960, SM::STEREO_NONE, false, 1, true, true, 1,
                                 false);
        ASSERT_GE((1280 / many.getTileWidth()) * (960 / many.getTileHeight()), 16);
        big = many.render(nullptr, 0, true, false);
    }
    budget(0);
    std::vector<osg::ImagePtr> reference;
    {
        kaImageRenderWidget one(nullptr, 1280, 960, SM::STEREO_NONE, false, 1, true, true, 1,
                                false);
        ASSERT_EQ(one.getTileWidth(), 1280);
        reference = one.render(nullptr, 0, true, false);
    }
    ASSERT_EQ(big.size(), 1u);
    ASSERT_EQ(reference.size(), 1u);
    // 1 of 255, relative to the value where float pixels exceed 1: highlights far above 1
    // keep float rounding of their own.
    float worst = 0.0f;
    for (int y = 0; y < 960; y += 3)
        for (int x = 0; x < 1280; x += 3) {
            const osg::Color4f a = big[0]->getPixel(x, y), b = reference[0]->getPixel(x, y);
            const float pa[4] = {a.r, a.g, a.b, a.a}, pb[4] = {b.r, b.g, b.b, b.a};
            for (int c = 0; c < 4; ++c)
                worst =
                    std::max(worst, std::fabs(pa[c] - pb[c]) / std::max(1.0f, std::fabs(pb[c])));
        }
    EXPECT_LE(worst, 1.0f / 255.0f + 1e-6f) << GetParam().name;
    EXPECT_EQ(big[0]->getPixelFormat(), GetParam().format);
    EXPECT_EQ(big[0]->getDataType(), GetParam().type);
}

INSTANTIATE_TEST_SUITE_P(
    Formats, TiledRender,
    testing::Values(RenderCase{Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, "rgb8"},
                    RenderCase{Image::OSG_RGBA_PF, Image::OSG_UINT8_IMAGEDATA, "rgba8"},
                    RenderCase{Image::OSG_RGB_PF, Image::OSG_FLOAT32_IMAGEDATA, "rgbFloat"},
                    RenderCase{Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA, "rgbaFloat"}),
    [](const testing::TestParamInfo<RenderCase>& info) { return std::string(info.param.name); });

TEST_F(RenderWidget, AlphaRendersTransparentBackground) {
    kaImageRenderWidget::setAlpha(true);
    kaImageRenderWidget::setAlphaColor(0.0f, 1.0f, 0.0f);
    auto images = widget(80, 60)->render(nullptr, 0, true, false);
    ASSERT_EQ(images.size(), 1u);
    const osg::Color4f top = images[0]->getPixel(2, 58);
    EXPECT_EQ(top.a, 0.0f);
    EXPECT_EQ(top.g, 1.0f);
    EXPECT_EQ(view.getBackground()->getAlpha(), 1.0f) << "the background is given back";
    kaImageRenderWidget::setAlphaColor(1.0f, 1.0f, 1.0f);
}

TEST_F(RenderWidget, AbortButtonMidRenderReturnsTheUnfinishedImages) {
    budget(1);
    auto w = widget(600, 600, 0);
    w->setShowCancelButton(true);
    QTimer::singleShot(0, w.get(),
                       [&] { QTest::mouseClick(w->findChild<QPushButton*>(), Qt::LeftButton); });
    katest::LogCapture log;
    auto images = w->render(nullptr, 0, false, true);
    EXPECT_TRUE(w->wasAborted());
    ASSERT_EQ(images.size(), 1u) << "the images as they stand";
    EXPECT_LT(w->getProgress()->value(), w->getProgress()->maximum() - 1);
    EXPECT_TRUE(log.contains(kaLog::Info, "Render job cancelled."));
    EXPECT_TRUE(kaImageRenderWidget::wasCanceled());
    EXPECT_FALSE(kaImageRenderWidget::wasCanceled()) << "cleared by reading";
}

TEST_F(RenderWidget, AbortInsideTheFirstRaytracedSampleIsQuick) {
    budget(0);
    kaOSGWidget::setRaytracing(true);
    kaImageRenderWidget::setActiveRenderPasses(std::vector<bool>(47, true));
#ifdef KA_SANITIZED_BUILD
    // Sanitizers slow every row and every copy down: a smaller picture, the same behaviour.
    auto w = widget(640, 480, 0, SM::STEREO_NONE, true, 47);
#else
    auto w = widget(1600, 1200, 0, SM::STEREO_NONE, true, 47);
#endif
    ASSERT_TRUE(w->isValid());
    w->setShowCancelButton(true);
    // The tile is pasted into all 47 pictures even when aborted: a gigabyte and a half of
    // copying that the abort cannot skip and that a busy machine may take a second for. The
    // same paste is timed here, in this run, and the abort may take half a second more.
    const auto pasteStart = std::chrono::steady_clock::now();
    const std::vector<osg::ImagePtr>& tiles = w->getTileImages();
    for (size_t i = 0; i < w->getImages().size() && i < tiles.size(); ++i)
        if (w->getImages()[i] && tiles[i])
            w->getImages()[i]->setSubData(0, 0, 0, tiles[i]->getWidth(), tiles[i]->getHeight(), 1,
                                          tiles[i]->getData());
    const double pasteSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - pasteStart).count();
    std::chrono::steady_clock::time_point clicked;
    bool sawProgress = false;
    // The Abort arrives while the first sample is under way, as the progress shows it.
    const int listener = kaController::addStepListener([&](int step, int, double fraction) {
        if (step == 0 && fraction > 0.0 && !sawProgress) {
            sawProgress = true;
            clicked = std::chrono::steady_clock::now();
            QTest::mouseClick(w->findChild<QPushButton*>(), Qt::LeftButton);
        }
    });
    auto images = w->render(nullptr, 0, false, true);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - clicked).count();
    kaController::removeStepListener(listener);
    kaOSGWidget::setRaytracing(false);
    kaImageRenderWidget::setActiveRenderPasses({});
    ASSERT_TRUE(sawProgress) << "no progress inside the first sample";
    EXPECT_TRUE(w->wasAborted());
    EXPECT_LT(seconds, pasteSeconds + 0.5) << "the paste alone took " << pasteSeconds << " s";
    EXPECT_TRUE(kaImageRenderWidget::wasCanceled());
}

TEST_F(RenderWidget, RejectingTheDialogAbortsToo) {
    budget(1);
    auto w = widget(600, 600, 0);
    QTimer::singleShot(0, w.get(), [&] { QTest::keyClick(w.get(), Qt::Key_Escape); });
    auto images = w->render(nullptr, 0, false, true);
    EXPECT_TRUE(w->wasAborted());
    EXPECT_EQ(images.size(), 1u);
    EXPECT_TRUE(kaImageRenderWidget::wasCanceled());
}

TEST_F(RenderWidget, StereoOffsetsReachTheDecorator) {
    struct Case {
        SM mode;
        int eye;
        float offset;
    };
    for (const Case& c :
         {Case{SM::STEREO_TWO_EYES, 0, -0.5f}, Case{SM::STEREO_TWO_EYES, 1, 0.5f},
          Case{SM::STEREO_FIVE_EYES, 0, -1.0f}, Case{SM::STEREO_FIVE_EYES, 2, 0.0f},
          Case{SM::STEREO_NINE_EYES, 4, 0.0f}, Case{SM::STEREO_NINE_EYES, 8, 2.0f}}) {
        auto w = widget(32, 24, 0, c.mode);
        ASSERT_TRUE(w->getMultiStereoCamera());
        EXPECT_EQ(w->getTileCamera(0)->getDecoratee(), osg::CameraPtr(w->getMultiStereoCamera()))
            << "viewport -> tile -> stereo -> camera";
        w->render(nullptr, c.eye, true, false);
        EXPECT_EQ(w->getMultiStereoCamera()->getEyeOffset(), c.offset)
            << int(c.mode) << " " << c.eye;
    }
    auto mono = widget(32, 24);
    EXPECT_FALSE(mono->getMultiStereoCamera());
}

TEST_F(RenderWidget, PowerwallTakesTwoEyesAndRefusesMore) {
    kaImageRenderWidget::setPowerwall(true);
    auto two = widget(32, 24, 0, SM::STEREO_TWO_EYES);
    ASSERT_TRUE(two->getProjectionCamera());
    EXPECT_EQ(two->getProjectionCamera()->getSurface().size(), 4u);
    two->render(nullptr, 0, true, false);
    EXPECT_TRUE(two->getProjectionCamera()->getLeftEye());
    two->render(nullptr, 1, true, false);
    EXPECT_FALSE(two->getProjectionCamera()->getLeftEye());
    katest::LogCapture log;
    auto five = widget(32, 24, 0, SM::STEREO_FIVE_EYES);
    EXPECT_EQ(five->render(nullptr, 2, true, false).size(), 1u) << "renders the mono view";
    auto nine = widget(32, 24, 0, SM::STEREO_NINE_EYES);
    nine->render(nullptr, 2, true, false);
    EXPECT_TRUE(log.contains(kaLog::Error, "5 eye stereo not supported in powerwall mode!"));
    EXPECT_TRUE(log.contains(kaLog::Error, "9 eye stereo not supported in powerwall mode!"));
}

TEST_F(RenderWidget, AspectCorrectionAddsBlackBars) {
    view.setSize(400, 200); // the view is twice as wide as high, the image square
    auto w = widget(200, 200, 0, SM::STEREO_NONE, false);
    EXPECT_EQ(w->getAspectRatio(), 2.0f);
    testing::internal::CaptureStdout();
    auto images = w->render(nullptr, 0, true, false);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "kaImageRenderWidget::modifyAspectRatio: resizing image to 2.000000 200 100\n");
    ASSERT_EQ(images.size(), 1u);
    auto rowIsBlack = [&](int y) {
        for (int x = 0; x < 200; ++x) {
            osg::Color4f p = images[0]->getPixel(x, y);
            if (p.r + p.g + p.b > 0.0f)
                return false;
        }
        return true;
    };
    for (int y : {0, 49, 150, 199})
        EXPECT_TRUE(rowIsBlack(y)) << y;
    for (int y : {50, 100, 149})
        EXPECT_FALSE(rowIsBlack(y)) << y;
}

TEST_F(RenderWidget, SmallAspectChangesLeaveTheImage) {
    view.setSize(201, 200);
    auto w = widget(200, 200, 0, SM::STEREO_NONE, false);
    testing::internal::CaptureStdout();
    w->render(nullptr, 0, true, false);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << "under 2 pixels of change";
}

TEST_F(RenderWidget, PreviewGetsAnEightBitCopy) {
    QImage preview;
    auto images = widget(80, 60)->render(&preview, 0, true, false);
    EXPECT_EQ(preview.size(), QSize(80, 60));
    EXPECT_EQ(preview.format(), QImage::Format_RGB32);
}

TEST_F(RenderWidget, TheDestructorGivesTheViewBack) {
    const osg::CameraPtr camera = view.getViewport()->getCamera();
    view.setOcclusionCulling(true);
    {
        auto w = widget(64, 48);
        EXPECT_NE(view.getViewport()->getCamera(), camera) << "decorated while it lives";
        EXPECT_FALSE(view.isRedrawEnabled());
        EXPECT_FALSE(view.getOcclusionCulling());
    }
    EXPECT_EQ(view.getViewport()->getCamera(), camera);
    EXPECT_TRUE(view.isRedrawEnabled());
    EXPECT_TRUE(view.getOcclusionCulling());
}

TEST(RenderWidgetStatics, GammaOneOnlyMakesEveryPixelOpaque) {
    QImage image(2, 1, QImage::Format_ARGB32);
    image.setPixel(0, 0, qRgba(10, 128, 250, 7));
    image.setPixel(1, 0, qRgba(0, 255, 1, 0));
    kaImageRenderWidget::applyGamma(image, 1.0f);
    EXPECT_EQ(image.pixel(0, 0), qRgba(10, 128, 250, 255));
    EXPECT_EQ(image.pixel(1, 0), qRgba(0, 255, 1, 255));
    kaImageRenderWidget::applyGamma(image, 2.0f);
    EXPECT_EQ(qGreen(image.pixel(0, 0)), int(std::pow(128 / 255.0, 0.5) * 255.0));
    QImage bytes(2, 2, QImage::Format_Grayscale8);
    bytes.fill(5);
    kaImageRenderWidget::applyGamma(bytes, 2.0f);
    EXPECT_EQ(bytes.pixel(0, 0), qRgb(5, 5, 5)) << "only 32-bit images";
}

TEST(RenderWidgetStatics, HasActiveRenderPassesNeedsTheRaytracer) {
    kaImageRenderWidget::setActiveRenderPasses(std::vector<bool>(47, true));
    EXPECT_FALSE(kaImageRenderWidget::hasActiveRenderPasses());
    kaOSGWidget::setRaytracing(true);
    EXPECT_TRUE(kaImageRenderWidget::hasActiveRenderPasses());
    kaOSGWidget::setRaytracing(false);
    kaImageRenderWidget::setActiveRenderPasses({});
}
