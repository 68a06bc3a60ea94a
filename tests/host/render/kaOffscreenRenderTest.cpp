// Real OpenGL renders through headless EGL: tiled renders equal the untiled render, eyes
// differ, alpha and values above 1 survive, more samples converge.
#include "OSGCameraDecorators.h"
#include "OSGChangeList.h"
#include "OSGGeometry.h"
#include "OSGNodeCores.h"
#include "kaGLInfo.h"
#include "kaGLSceneRenderer.h"
#include "kaOSGWidget.h"
#include "kaPixelEncoder.h"
#include "kaRaytracer.h"
#include "kaSharedOffscreenRender.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

using osg::Image;

namespace {

osg::NodePtr child(const osg::NodePtr& parent, const osg::NodeCorePtr& core, const char* name) {
    osg::NodePtr node = osg::Node::create(core, name);
    parent->addChild(node);
    return node;
}

// A ground, a box, a bright emissive sphere and three kinds of light.
struct TestView {
    kaOSGWidget view;
    osg::NodePtr emissive;
    TestView() {
        osg::NodePtr scene = osg::Node::create(osg::Group::create(), "Scene");
        auto grey = osg::SimpleMaterial::create("ground");
        auto red = osg::SimpleMaterial::create("red");
        red->baseColor = {0.8f, 0.1f, 0.1f};
        red->roughness = 0.3f;
        auto glow = osg::SimpleMaterial::create("glow");
        glow->baseColor = {0.1f, 0.1f, 0.1f};
        glow->emission = {4.0f, 3.0f, 1.0f};
        child(scene, osg::makePlane(10, 10, grey), "Ground");
        osg::NodePtr boxPlace =
            child(scene, osg::Transform::create(osg::Matrix::translation(-0.8f, 0.5f, 0)), "");
        child(boxPlace, osg::makeBox(1, 1, 1, red), "Box");
        osg::NodePtr spherePlace =
            child(scene, osg::Transform::create(osg::Matrix::translation(0.9f, 0.6f, 0.3f)), "");
        emissive = child(spherePlace, osg::makeSphere(0.6f, 32, glow), "Lamp");
        osg::NodePtr sun =
            child(scene,
                  osg::Transform::create(osg::Matrix::lookAt({3, 5, 2}, {0, 0, 0}, {0, 1, 0})), "");
        child(sun, osg::DirectionalLight::create(), "Sun");
        osg::NodePtr bulbPlace =
            child(scene, osg::Transform::create(osg::Matrix::translation(-2, 2, 2)), "");
        auto bulb = osg::PointLight::create();
        bulb->setIntensity(4.0f);
        child(bulbPlace, bulb, "Bulb");
        auto sky = osg::EnvironmentLight::create();
        sky->setIntensity(0.2f);
        child(scene, sky, "Sky");
        view.setSceneRoot(scene);
        osg::dynamic_pointer_cast<osg::Transform>(view.getCameraBeacon()->getCore())
            ->setMatrix(osg::Matrix::lookAt({0.5f, 2.5f, 5.0f}, {0, 0.4f, 0}, {0, 1, 0}));
        view.getCamera()->setFov(45.0f);
        view.setSize(64, 48);
    }
};

osg::ImagePtr newImage(int w, int h, uint32_t format, int32_t type) {
    osg::ImagePtr image = Image::create();
    image->set(format, w, h, 1, 1, 1, 0.0, nullptr, type);
    return image;
}

// How tiles reached the picture when it was offered to the renderer: the tiles it drew
// there, and the tile image it was given besides.
struct Offered {
    int placed = 0;
    osg::ImagePtr tileImage;
};

// Renders the view in columns x rows tiles the way the export does and pastes them together;
// with 'offered', the picture is offered to the renderer and only tiles it did not draw there
// are pasted.
osg::ImagePtr renderTiled(kaOSGWidget& view, int W, int H, int columns, int rows, uint32_t format,
                          int32_t type, int quality, Offered* offered = nullptr) {
    const osg::CameraPtr camera = view.getViewport()->getCamera();
    osg::TileCameraDecoratorPtr tile = osg::TileCameraDecorator::create();
    tile->setDecoratee(camera);
    tile->setFullSize(uint32_t(W), uint32_t(H));
    view.getViewport()->setCamera(tile);
    const int tileW = (W + columns - 1) / columns, tileH = (H + rows - 1) / rows;
    osg::ImagePtr result = newImage(W, H, format, type);
    osg::ImagePtr tileImage = newImage(tileW, tileH, format, type);
    if (offered)
        *offered = {0, tileImage};
    kaSharedOffscreenRender renderer(&view, {tileImage}, quality);
    const float fx = float(tileW) * (1.0f / float(W)), fy = float(tileH) * (1.0f / float(H));
    int py = 0;
    for (double y = 0.0; y < 1.0; y += fy, py += tileH) {
        int px = 0;
        for (double x = 0.0; x < 1.0; x += fx, px += tileW) {
            tile->setSize(float(x), float(y), std::min(float(x) + fx, 1.0f),
                          std::min(float(y) + fy, 1.0f));
            if (offered)
                renderer.offerPicture({result}, px, py);
            EXPECT_TRUE(renderer.updateGL());
            if (offered && renderer.drewIntoPicture())
                ++offered->placed;
            else
                result->setSubData(px, py, 0, tileW, tileH, 1, tileImage->getData());
        }
    }
    view.getViewport()->setCamera(camera);
    return result;
}

bool allZero(const osg::ImagePtr& image) {
    return std::all_of(image->getData(), image->getData() + image->getSize(),
                       [](uint8_t b) { return b == 0; });
}

float maxDifference(const osg::ImagePtr& a, const osg::ImagePtr& b) {
    float worst = 0.0f;
    for (int y = 0; y < a->getHeight(); ++y)
        for (int x = 0; x < a->getWidth(); ++x) {
            const osg::Color4f p = a->getPixel(x, y), q = b->getPixel(x, y);
            worst = std::max({worst, std::fabs(p.r - q.r), std::fabs(p.g - q.g),
                              std::fabs(p.b - q.b), std::fabs(p.a - q.a)});
        }
    return worst;
}

class OffscreenRender : public testing::Test {
protected:
    void TearDown() override {
        kaGLSceneRenderer::the().setMaxPieceSize(0);
        osg::ChangeList::getCurrent()->clear();
    }
    TestView scene;
};

} // namespace

TEST_F(OffscreenRender, OpenGLIsThere) {
    EXPECT_GE(kaGLInfo::getMaxTextureSize(), 4096);
    EXPECT_GE(kaGLInfo::getVideoMemorySizeMB(), 0);
}

struct TileCase {
    uint32_t format;
    int32_t type;
    int quality;
    const char* name;
};

class TiledEqualsUntiled : public OffscreenRender, public testing::WithParamInterface<TileCase> {};

TEST_P(TiledEqualsUntiled, AtMostOneOf255Apart) {
    const TileCase& c = GetParam();
    osg::ImagePtr whole = renderTiled(scene.view, 64, 48, 1, 1, c.format, c.type, c.quality);
    for (auto [columns, rows] : {std::pair{2, 2}, {3, 5}}) {
        osg::ImagePtr tiled =
            renderTiled(scene.view, 64, 48, columns, rows, c.format, c.type, c.quality);
        EXPECT_LE(maxDifference(whole, tiled), 1.0f / 255.0f + 1e-6f)
            << c.name << " " << columns << "x" << rows;
    }
    // Not a blank picture: the red box is there.
    bool red = false;
    for (int y = 0; y < 48; ++y)
        for (int x = 0; x < 64; ++x) {
            osg::Color4f p = whole->getPixel(x, y);
            red = red || (p.r > 0.3f && p.r > 2 * p.g && p.r > 2 * p.b);
        }
    EXPECT_TRUE(red) << c.name;
}

INSTANTIATE_TEST_SUITE_P(
    FormatsAndSamples, TiledEqualsUntiled,
    testing::Values(TileCase{Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 0, "rgb8"},
                    TileCase{Image::OSG_RGBA_PF, Image::OSG_UINT8_IMAGEDATA, 0, "rgba8"},
                    TileCase{Image::OSG_RGB_PF, Image::OSG_FLOAT32_IMAGEDATA, 0, "rgbFloat"},
                    TileCase{Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA, 2, "rgbaFloat4x"},
                    TileCase{Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 3, "rgb8x9"}),
    [](const testing::TestParamInfo<TileCase>& info) { return std::string(info.param.name); });

class DrawnIntoThePicture : public OffscreenRender, public testing::WithParamInterface<TileCase> {};

TEST_P(DrawnIntoThePicture, EqualsTheTilesCopiedByteForByteAndLeavesTheTileAlone) {
    const TileCase& c = GetParam();
    for (auto [columns, rows] : {std::pair{1, 1}, {2, 2}, {3, 5}}) {
        osg::ImagePtr copied =
            renderTiled(scene.view, 64, 48, columns, rows, c.format, c.type, c.quality);
        Offered offered;
        osg::ImagePtr drawn =
            renderTiled(scene.view, 64, 48, columns, rows, c.format, c.type, c.quality, &offered);
        EXPECT_EQ(offered.placed, columns * rows) << c.name;
        EXPECT_TRUE(allZero(offered.tileImage)) << c.name << ": the tile image was drawn into";
        ASSERT_EQ(copied->getSize(), drawn->getSize());
        EXPECT_EQ(std::memcmp(copied->getData(), drawn->getData(), copied->getSize()), 0)
            << c.name << " " << columns << "x" << rows;
        EXPECT_EQ(copied->getAlphaMode(), drawn->getAlphaMode()) << c.name;
    }
}

INSTANTIATE_TEST_SUITE_P(
    FormatsAndSamples, DrawnIntoThePicture,
    testing::Values(TileCase{Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 0, "rgb8"},
                    TileCase{Image::OSG_RGBA_PF, Image::OSG_UINT8_IMAGEDATA, 0, "rgba8"},
                    TileCase{Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA, 2, "rgbaFloat4x"},
                    TileCase{Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 3, "rgb8x9"}),
    [](const testing::TestParamInfo<TileCase>& info) { return std::string(info.param.name); });

// Tiles of several megabytes have their part of the picture made resident before they are drawn
// (on every core): the picture still equals the copied tiles, and the other tile's part of it
// is left as it was while one tile is drawn.
TEST_F(OffscreenRender, LargeTilesOfThePictureAreDrawnIntoTheirPartAlone) {
    const int W = 2048, H = 1536; // tiles of 1024 x 1536: 4.5 MB each
    osg::ImagePtr copied =
        renderTiled(scene.view, W, H, 2, 1, Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 0);
    Offered offered;
    osg::ImagePtr drawn = renderTiled(scene.view, W, H, 2, 1, Image::OSG_RGB_PF,
                                      Image::OSG_UINT8_IMAGEDATA, 0, &offered);
    EXPECT_EQ(offered.placed, 2);
    EXPECT_TRUE(allZero(offered.tileImage));
    EXPECT_EQ(std::memcmp(copied->getData(), drawn->getData(), copied->getSize()), 0);

    const osg::CameraPtr camera = scene.view.getViewport()->getCamera();
    osg::TileCameraDecoratorPtr tile = osg::TileCameraDecorator::create();
    tile->setDecoratee(camera);
    tile->setFullSize(uint32_t(W), uint32_t(H));
    tile->setSize(0.5f, 0.0f, 1.0f, 1.0f);
    scene.view.getViewport()->setCamera(tile);
    osg::ImagePtr picture = newImage(W, H, Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA);
    std::memset(picture->getData(), 0x55, picture->getSize());
    osg::ImagePtr rightTile = newImage(W / 2, H, Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA);
    kaSharedOffscreenRender renderer(&scene.view, {rightTile}, 0);
    renderer.offerPicture({picture}, W / 2, 0);
    EXPECT_TRUE(renderer.updateGL());
    scene.view.getViewport()->setCamera(camera);
    EXPECT_TRUE(renderer.drewIntoPicture());
    size_t leftKept = 0, rightSame = 0;
    for (int y = 0; y < H; ++y) {
        const size_t row = size_t(y) * size_t(W) * 3, half = size_t(W / 2) * 3;
        const uint8_t* p = picture->getData() + row;
        leftKept += size_t(std::count(p, p + half, uint8_t(0x55)));
        rightSame += std::memcmp(p + half, copied->getData() + row + half, half) == 0;
    }
    EXPECT_EQ(leftKept, size_t(W / 2) * size_t(H) * 3) << "the left half was written";
    EXPECT_EQ(rightSame, size_t(H)) << "rows of the right half differ from the copied tiles";
}

// Where the picture would not get what the tile image gets, the tile image is drawn as before.
TEST_F(OffscreenRender, ThePictureIsLeftAloneWhereItWouldDifferFromTheTile) {
    Offered offered;
    // A viewport over part of the window leaves the rest of the tile as it was.
    scene.view.getViewport()->setSize(0.0f, 0.0f, 0.5f, 1.0f);
    renderTiled(scene.view, 64, 48, 2, 1, Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 0,
                &offered);
    scene.view.getViewport()->setSize(0.0f, 0.0f, 1.0f, 1.0f);
    EXPECT_EQ(offered.placed, 0);
    EXPECT_FALSE(allZero(offered.tileImage));
    // An image unlike its tile image (another data type) is not drawn into.
    osg::ImagePtr tile = newImage(64, 48, Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA);
    osg::ImagePtr floats = newImage(64, 48, Image::OSG_RGB_PF, Image::OSG_FLOAT32_IMAGEDATA);
    kaSharedOffscreenRender renderer(&scene.view, {tile}, 0);
    renderer.offerPicture({floats}, 0, 0);
    EXPECT_TRUE(renderer.updateGL());
    EXPECT_FALSE(renderer.drewIntoPicture());
    EXPECT_TRUE(allZero(floats));
    EXPECT_FALSE(allZero(tile));
    // Nor are images when a pass is missing from them.
    renderer.offerPicture({nullptr}, 0, 0);
    EXPECT_TRUE(renderer.updateGL());
    EXPECT_FALSE(renderer.drewIntoPicture());
    // The raytracer draws its passes into the tile images.
    kaOSGWidget::setRaytracing(true);
    osg::ImagePtr traced = newImage(64, 48, Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA);
    renderer.offerPicture({traced}, 0, 0);
    const bool rendered = renderer.updateGL();
    kaOSGWidget::setRaytracing(false);
    EXPECT_TRUE(rendered);
    EXPECT_FALSE(renderer.drewIntoPicture());
    EXPECT_TRUE(allZero(traced));
    // A withdrawn offer draws the tile image again.
    osg::ImagePtr picture = newImage(64, 48, Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA);
    renderer.offerPicture({picture}, 0, 0);
    EXPECT_TRUE(renderer.updateGL());
    EXPECT_TRUE(renderer.drewIntoPicture());
    renderer.offerPicture({}, 0, 0);
    EXPECT_TRUE(renderer.updateGL());
    EXPECT_FALSE(renderer.drewIntoPicture());
}

TEST_F(OffscreenRender, TransparentBackgroundShowsTheAlphaColourOnlyInStraightPictures) {
    scene.view.getBackground()->setAlpha(0.0f);
    scene.view.getBackground()->setAlphaColor({0.2f, 0.4f, 0.6f});
    // Premultiplied (float pictures by default): nothing where nothing is covered.
    osg::ImagePtr premultiplied =
        renderTiled(scene.view, 64, 48, 1, 1, Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA, 0);
    const osg::Color4f none = premultiplied->getPixel(2, 46); // top left: background
    EXPECT_FLOAT_EQ(none.a, 0.0f);
    EXPECT_FLOAT_EQ(none.r, 0.0f);
    EXPECT_FLOAT_EQ(none.b, 0.0f);
    EXPECT_FLOAT_EQ(premultiplied->getPixel(32, 5).a, 1.0f) << "the ground is covered";
    // Straight: the alpha colour behind what is not covered.
    kaRaytracer::setPremultiply(false);
    osg::ImagePtr straight =
        renderTiled(scene.view, 64, 48, 1, 1, Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA, 0);
    kaRaytracer::setPremultiply(true);
    const osg::Color4f sky = straight->getPixel(2, 46);
    EXPECT_FLOAT_EQ(sky.a, 0.0f);
    EXPECT_NEAR(sky.r, 0.2f, 1e-5f);
    EXPECT_NEAR(sky.b, 0.6f, 1e-5f);
}

TEST_F(OffscreenRender, FloatRendersKeepValuesAboveOne) {
    osg::ImagePtr image =
        renderTiled(scene.view, 64, 48, 1, 1, Image::OSG_RGB_PF, Image::OSG_FLOAT32_IMAGEDATA, 0);
    float brightest = 0.0f;
    for (int y = 0; y < 48; ++y)
        for (int x = 0; x < 64; ++x)
            brightest = std::max(brightest, image->getPixel(x, y).r);
    EXPECT_GT(brightest, 3.0f);
    osg::ImagePtr bytes =
        renderTiled(scene.view, 64, 48, 1, 1, Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 0);
    EXPECT_EQ(*std::max_element(bytes->getData(), bytes->getData() + bytes->getSize()), 255);
}

TEST_F(OffscreenRender, MoreSamplesLowerTheEdgeError) {
    auto render = [&](int quality) {
        return renderTiled(scene.view, 48, 36, 1, 1, Image::OSG_RGB_PF,
                           Image::OSG_FLOAT32_IMAGEDATA, quality);
    };
    // Quality 4 (16 samples) as the reference.
    osg::ImagePtr reference = render(4);
    auto error = [&](const osg::ImagePtr& image) {
        double sum = 0.0;
        for (int y = 0; y < 36; ++y)
            for (int x = 0; x < 48; ++x) {
                osg::Color4f p = image->getPixel(x, y), q = reference->getPixel(x, y);
                sum += std::min(std::fabs(p.r - q.r), 1.0f) + std::min(std::fabs(p.g - q.g), 1.0f);
            }
        return sum;
    };
    const double one = error(render(0)), four = error(render(2)), nine = error(render(3));
    EXPECT_GT(one, four);
    EXPECT_GT(four, nine);
}

TEST_F(OffscreenRender, TilesBeyondTheLimitAreDrawnInPieces) {
    osg::ImagePtr whole =
        renderTiled(scene.view, 64, 48, 1, 1, Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA, 2);
    kaGLSceneRenderer::the().setMaxPieceSize(13);
    EXPECT_EQ(kaGLSceneRenderer::the().getMaxPieceSize(), 13);
    osg::ImagePtr pieces =
        renderTiled(scene.view, 64, 48, 1, 1, Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA, 2);
    EXPECT_LE(maxDifference(whole, pieces), 1e-4f);
}

TEST_F(OffscreenRender, StereoEyesDifferAndTheCentreEyeIsTheCamera) {
    const osg::CameraPtr camera = scene.view.getViewport()->getCamera();
    osg::MultiStereoCameraDecoratorPtr stereo = osg::MultiStereoCameraDecorator::create();
    stereo->setDecoratee(camera);
    stereo->setEyeSeparation(0.3f);
    stereo->setZeroParallaxDistance(5.0f);
    scene.view.getViewport()->setCamera(stereo);
    auto eye = [&](float offset) {
        stereo->setEyeOffset(offset);
        return renderTiled(scene.view, 64, 48, 1, 1, Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA,
                           0);
    };
    osg::ImagePtr left = eye(-0.5f), right = eye(0.5f), centre = eye(0.0f);
    scene.view.getViewport()->setCamera(camera);
    osg::ImagePtr plain =
        renderTiled(scene.view, 64, 48, 1, 1, Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 0);
    EXPECT_GT(maxDifference(left, right), 0.2f);
    EXPECT_LE(maxDifference(centre, plain), 1.0f / 255.0f + 1e-6f);
}

namespace {
struct CallbackLog {
    int calls = 0;
    int stopAfter = 1000;
};
bool countSamples(int, int, bool advance, void* context) {
    auto* log = static_cast<CallbackLog*>(context);
    if (advance)
        ++log->calls;
    return log->calls < log->stopAfter;
}
} // namespace

TEST_F(OffscreenRender, CallbackOncePerSampleAndFalseStops) {
    CallbackLog log;
    scene.view.getViewport()->setEventProcessingCB(countSamples, &log);
    osg::ImagePtr image = newImage(32, 24, Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA);
    kaSharedOffscreenRender renderer(&scene.view, {image}, 3);
    EXPECT_TRUE(renderer.updateGL());
    EXPECT_EQ(log.calls, 9);
    log = CallbackLog{0, 2};
    EXPECT_FALSE(renderer.updateGL()) << "stopped after two samples";
    EXPECT_EQ(log.calls, 2);
    log = CallbackLog{};
    renderer.setRtSample(5);
    EXPECT_TRUE(renderer.updateGL());
    EXPECT_EQ(log.calls, 1) << "only the given sample";
    scene.view.getViewport()->setEventProcessingCB(nullptr, nullptr);
}

namespace {

// The view drawn by the renderer into 'image': encoded on the CPU from the float pieces, or
// encoded on the GPU and read straight into the image.
bool renderDirectly(kaOSGWidget& view, const osg::ImagePtr& image, int quality, bool onGpu) {
    const osg::UberViewport& viewport = *view.getViewport();
    const int w = image->getWidth(), h = image->getHeight();
    const kaPixelEncoder encoder(viewport.getBackground()->getAlphaColor());
    encoder.prepare(*image);
    std::string error;
    if (onGpu) {
        EXPECT_TRUE(encoder.encodesSeparably(*image));
        return kaGLSceneRenderer::the().renderEncoded(viewport, *viewport.getCamera(), w, h, 0, 0,
                                                      w, h, viewport.getSamples(quality), -1,
                                                      encoder, {image.get()}, 0, 0, error);
    }
    return kaGLSceneRenderer::the().render(
        viewport, *viewport.getCamera(), w, h, 0, 0, w, h, viewport.getSamples(quality), -1,
        [&](int px, int py, int pw, int ph, const float* rgba) {
            encoder.store(*image, px, py, pw, ph, rgba, px, py);
        },
        error);
}

struct EncodingCase {
    uint32_t format;
    int quality;
    bool seeThrough;
    const char* name;
};

class GpuEncoding : public OffscreenRender, public testing::WithParamInterface<EncodingCase> {};

} // namespace

// The GPU encodes as the CPU does: one sample drawn straight into 8 bits, several summed and
// encoded after, see-through surfaces blended in linear light first; a code apart at most,
// where the colour engine's tabulated curves and the smooth model round differently.
TEST_P(GpuEncoding, GivesTheCpuEncodersCodes) {
    const EncodingCase& c = GetParam();
    scene.view.getBackground()->setAlpha(0.3f);
    if (c.seeThrough) {
        auto glass = osg::SimpleMaterial::create("glass");
        glass->opacity = 0.4f;
        osg::NodePtr pane = osg::Node::create(osg::makeBox(3, 1, 0.1f, glass), "Pane");
        scene.view.getSceneRoot()->addChild(pane);
    }
    osg::ImagePtr cpu = newImage(64, 48, c.format, Image::OSG_UINT8_IMAGEDATA);
    osg::ImagePtr gpu = newImage(64, 48, c.format, Image::OSG_UINT8_IMAGEDATA);
    ASSERT_TRUE(renderDirectly(scene.view, cpu, c.quality, false));
    ASSERT_TRUE(renderDirectly(scene.view, gpu, c.quality, true));
    EXPECT_LE(maxDifference(cpu, gpu), 1.0f / 255.0f + 1e-6f) << c.name;
    int differing = 0;
    const size_t bytes = size_t(cpu->getSize());
    for (size_t i = 0; i < bytes; ++i)
        differing += cpu->getData()[i] != gpu->getData()[i];
    EXPECT_LT(differing, int(bytes / 100)) << c.name;
}

INSTANTIATE_TEST_SUITE_P(
    SamplesAndAlpha, GpuEncoding,
    testing::Values(EncodingCase{Image::OSG_RGB_PF, 0, false, "rgbOneSample"},
                    EncodingCase{Image::OSG_RGBA_PF, 0, false, "rgbaOneSample"},
                    EncodingCase{Image::OSG_RGBA_PF, 2, false, "rgbaFourSamples"},
                    EncodingCase{Image::OSG_RGB_PF, 0, true, "rgbSeeThrough"}),
    [](const testing::TestParamInfo<EncodingCase>& info) { return std::string(info.param.name); });

// A mesh of many triangles filling the view is drawn in small pieces, each seeing only its
// part of it, and comes out as drawn whole: culling leaves no triangle out.
TEST_F(OffscreenRender, LargeMeshInSmallPiecesEqualsItWhole) {
    osg::Geometry::Mesh mesh;
    const int n = 300; // 180 000 triangles, chunks of a few pixels each
    for (int y = 0; y <= n; ++y)
        for (int x = 0; x <= n; ++x) {
            const float fx = float(x) / n - 0.5f, fy = float(y) / n - 0.5f;
            mesh.positions.push_back({4.0f * fx, 3.0f * fy, 0.3f * std::sin(20.0f * fx * fy)});
        }
    for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x) {
            const uint32_t a = uint32_t(y * (n + 1) + x), b = a + 1, c = a + uint32_t(n) + 1;
            mesh.indices.insert(mesh.indices.end(), {a, b, c + 1, a, c + 1, c});
        }
    osg::GeometryPtr wall = osg::Geometry::create();
    wall->setMesh(std::move(mesh));
    osg::NodePtr root = osg::Node::create(osg::Group::create(), "Root");
    root->addChild(osg::Node::create(wall, "Wall"));
    auto sky = osg::EnvironmentLight::create();
    root->addChild(osg::Node::create(sky, "Sky"));
    scene.view.setSceneRoot(root);
    osg::dynamic_pointer_cast<osg::Transform>(scene.view.getCameraBeacon()->getCore())
        ->setMatrix(osg::Matrix::lookAt({0.3f, 0.2f, 3.0f}, {0, 0, 0}, {0, 1, 0}));
    for (int quality : {0, 2}) {
        osg::ImagePtr whole = newImage(64, 48, Image::OSG_RGBA_PF, Image::OSG_UINT8_IMAGEDATA);
        ASSERT_TRUE(renderDirectly(scene.view, whole, quality, true));
        kaGLSceneRenderer::the().setMaxPieceSize(7);
        osg::ImagePtr pieces = newImage(64, 48, Image::OSG_RGBA_PF, Image::OSG_UINT8_IMAGEDATA);
        ASSERT_TRUE(renderDirectly(scene.view, pieces, quality, true));
        kaGLSceneRenderer::the().setMaxPieceSize(0);
        EXPECT_EQ(maxDifference(whole, pieces), 0.0f) << quality;
        // The wall fills the picture: no pixel shows the background's alpha.
        for (int y = 0; y < 48; ++y)
            for (int x = 0; x < 64; ++x)
                ASSERT_EQ(pieces->getPixel(x, y).a, 1.0f) << x << "," << y;
    }
}
