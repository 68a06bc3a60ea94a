// A picture rendered in tiles is the picture rendered whole, to the bit: for many sizes (primes
// and sizes below one tile among them), memory budgets, supersampling levels, pixel formats,
// both renderers, every stereo eye and the powerwall, through the render dialog as exports use
// it, and with the OpenGL renderer's piece grid made small.
#include "kaImageRenderWidget.h"

#include "kaBuiltinScene.h"
#include "kaGLSceneRenderer.h"
#include "kaOSGWidget.h"
#include "kaPreferences.h"
#include "kaRaytracer.h"
#include "kaTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>

using osg::Image;
using SM = kaImageRenderWidget::StereoMode;

namespace {

struct Case {
    int width, height, budget, superSampling;
    uint32_t format;
    int32_t type;
    bool raytracing;
    SM stereo;
    bool powerwall = false;
};

int eyesOf(SM stereo) {
    return stereo == SM::STEREO_TWO_EYES    ? 2
           : stereo == SM::STEREO_FIVE_EYES ? 5
           : stereo == SM::STEREO_NINE_EYES ? 9
                                            : 1;
}

std::string nameOf(const Case& c) {
    return std::to_string(c.width) + "x" + std::to_string(c.height) + "_budget" +
           std::to_string(c.budget) + "_ss" + std::to_string(c.superSampling) +
           (c.format == Image::OSG_RGBA_PF ? "_rgba" : "_rgb") +
           (c.type == Image::OSG_FLOAT32_IMAGEDATA ? "Float" : "8") +
           (c.raytracing ? "_raytraced" : "_opengl") +
           (eyesOf(c.stereo) > 1 ? "_" + std::to_string(eyesOf(c.stereo)) + "eyes" : "") +
           (c.powerwall ? "_powerwall" : "");
}

void PrintTo(const Case& c, std::ostream* out) {
    *out << nameOf(c);
}

std::vector<Case> cases() {
    constexpr uint32_t RGB = Image::OSG_RGB_PF, RGBA = Image::OSG_RGBA_PF;
    constexpr int32_t U8 = Image::OSG_UINT8_IMAGEDATA, F32 = Image::OSG_FLOAT32_IMAGEDATA;
    constexpr SM MONO = SM::STEREO_NONE, TWO = SM::STEREO_TWO_EYES, FIVE = SM::STEREO_FIVE_EYES,
                 NINE = SM::STEREO_NINE_EYES;
    return {
        // The case users reported: 8-bit, supersampled, the smallest budget.
        {1024, 768, 1, 2, RGB, U8, false, MONO},
        // Primes, budgets from 1 up, every supersampling level, every format.
        {1031, 769, 1, 0, RGBA, F32, false, MONO},
        {1031, 769, 2, 1, RGBA, U8, false, MONO},
        {1031, 769, 3, 3, RGB, F32, false, MONO},
        {521, 389, 1, 2, RGBA, F32, false, MONO},
        {521, 389, 1, 1, RGBA, U8, false, TWO},
        // Every eye of the other stereo sets, and the powerwall's off-axis projection.
        {613, 467, 1, 2, RGB, U8, false, FIVE},
        {613, 467, 1, 0, RGBA, F32, false, NINE},
        {521, 389, 1, 1, RGBA, U8, false, TWO, true},
        // Below one tile: the budget must change nothing.
        {97, 53, 1, 3, RGB, U8, false, MONO},
        // The raytracer with every pass: its sums make many tiles of small pictures too.
        {389, 263, 1, 0, RGBA, F32, true, MONO},
        {389, 263, 2, 1, RGBA, U8, true, MONO},
        {97, 53, 1, 0, RGB, U8, true, TWO},
        {263, 263, 1, 0, RGBA, U8, true, FIVE},
    };
}

bool samePixels(const osg::ImagePtr& a, const osg::ImagePtr& b, std::string& where) {
    if (!a || !b)
        return a == b;
    if (a->getSize() != b->getSize() || a->getPixelFormat() != b->getPixelFormat() ||
        a->getDataType() != b->getDataType()) {
        where = "different layouts";
        return false;
    }
    if (std::memcmp(a->getData(), b->getData(), a->getSize()) == 0)
        return true;
    int differing = 0;
    for (int y = 0; y < a->getHeight(); ++y)
        for (int x = 0; x < a->getWidth(); ++x) {
            const osg::Color4f p = a->getPixel(x, y), q = b->getPixel(x, y);
            if (p.r != q.r || p.g != q.g || p.b != q.b || p.a != q.a) {
                if (differing++ == 0)
                    where = "first at " + std::to_string(x) + "," + std::to_string(y);
            }
        }
    where += ", " + std::to_string(differing) + " pixels differ";
    return false;
}

} // namespace

class TiledRenderProperty : public testing::TestWithParam<Case> {
protected:
    void SetUp() override {
        kaOSGWidget::setMainView(&view);
        view.setSize(320, 240);
        const Case& c = GetParam();
        kaOSGWidget::setRaytracing(c.raytracing);
        kaImageRenderWidget::setPowerwall(c.powerwall);
        kaImageRenderWidget::setAlpha(c.format == Image::OSG_RGBA_PF);
        kaImageRenderWidget::setDataType(osg::Image::Type(c.type));
        kaImageRenderWidget::setActiveRenderPasses(c.raytracing ? std::vector<bool>(47, true)
                                                                : std::vector<bool>());
    }
    void TearDown() override {
        kaOSGWidget::setRaytracing(false);
        kaImageRenderWidget::setPowerwall(false);
        kaImageRenderWidget::setAlpha(false);
        kaImageRenderWidget::setDataType(Image::OSG_UINT8_IMAGEDATA);
        kaImageRenderWidget::setActiveRenderPasses({});
        kaOSGWidget::setMainView(nullptr);
    }

    // Every eye's pass images, rendered under 'budget' megabytes; the tile count in 'tiles'.
    std::vector<std::vector<osg::ImagePtr>> render(int budget, int& tiles) {
        const Case& c = GetParam();
        kaPreferences::getData().set("Image Export Max Framebuffer Memory", budget);
        kaImageRenderWidget widget(nullptr, c.width, c.height, c.stereo, false, c.superSampling,
                                   true, true, c.raytracing ? 47u : 1u, false);
        EXPECT_TRUE(widget.isValid());
        tiles = ((c.width + widget.getTileWidth() - 1) / widget.getTileWidth()) *
                ((c.height + widget.getTileHeight() - 1) / widget.getTileHeight());
        std::vector<std::vector<osg::ImagePtr>> eyes;
        for (int eye = 0; eye < eyesOf(c.stereo); ++eye) {
            std::vector<osg::ImagePtr> images = widget.render(nullptr, eye, true, false);
            // The widget reuses its images for the next eye: keep copies.
            for (osg::ImagePtr& image : images)
                if (image)
                    image = image->clone();
            eyes.push_back(images);
        }
        return eyes;
    }

    katest::PreferencesGuard guard;
    kaOSGWidget view;
    kaBuiltinScene scene{view};
};

TEST_P(TiledRenderProperty, TilesGiveTheWholePictureToTheBit) {
    int tiles = 0, wholeTiles = 0;
    const auto tiled = render(GetParam().budget, tiles);
    const auto whole = render(0, wholeTiles);
    ASSERT_EQ(wholeTiles, 1);
    // Pictures under 257 pixels a side are never split.
    if (GetParam().width >= 257 && GetParam().height >= 257) {
        EXPECT_GT(tiles, 1) << "the budget should split this picture";
    }
    ASSERT_EQ(tiled.size(), whole.size());
    for (size_t eye = 0; eye < whole.size(); ++eye) {
        ASSERT_EQ(tiled[eye].size(), whole[eye].size());
        for (size_t pass = 0; pass < whole[eye].size(); ++pass) {
            std::string where;
            EXPECT_TRUE(samePixels(tiled[eye][pass], whole[eye][pass], where))
                << "eye " << eye << ", pass " << pass << ": " << where << " (" << tiles
                << " tiles)";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Sweep, TiledRenderProperty, testing::ValuesIn(cases()),
                         [](const testing::TestParamInfo<Case>& info) {
                             return nameOf(info.param);
                         });

// The OpenGL renderer's own pieces: a small grid, regions that start anywhere.
TEST(GLPieceGrid, RegionsAnywhereGiveTheWholePictureToTheBit) {
    kaOSGWidget view;
    kaOSGWidget::setMainView(&view);
    kaBuiltinScene scene(view);
    kaGLSceneRenderer& renderer = kaGLSceneRenderer::the();
    renderer.setMaxPieceSize(37);
    const int W = 211, H = 151;
    const osg::Camera& camera = *view.getViewport()->getCamera();
    auto renderRegion = [&](int x0, int y0, int w, int h, std::vector<float>& picture) {
        std::string error;
        const bool ok = renderer.render(
            *view.getViewport(), camera, W, H, x0, y0, w, h, 3, -1,
            [&](int px, int py, int pw, int ph, const float* rgba) {
                for (int y = 0; y < ph; ++y)
                    std::memcpy(&picture[(size_t(y0 + py + y) * W + size_t(x0 + px)) * 4],
                                rgba + size_t(y) * size_t(pw) * 4, size_t(pw) * 4 * sizeof(float));
            },
            error);
        EXPECT_TRUE(ok) << error;
    };
    std::vector<float> whole(size_t(W) * H * 4), tiled(whole.size());
    renderRegion(0, 0, W, H, whole);
    // Regions of odd sizes at odd places, none on the grid's lines.
    for (int y0 = 0; y0 < H; y0 += 29)
        for (int x0 = 0; x0 < W; x0 += 43)
            renderRegion(x0, y0, std::min(43, W - x0), std::min(29, H - y0), tiled);
    renderer.setMaxPieceSize(0);
    kaOSGWidget::setMainView(nullptr);
    EXPECT_EQ(std::memcmp(whole.data(), tiled.data(), whole.size() * sizeof(float)), 0);
}
