// A scene without lights is shown by a headlight and a soft environment, in OpenGL and in the
// raytracer alike; a scene with lights of its own is lit by them alone; the "Headlight"
// preference says always or never instead.
#include "kaDefaultLights.h"
#include "OSGGeometry.h"
#include "OSGMaterial.h"
#include "OSGNodeCores.h"
#include "kaExposure.h"
#include "kaOSGWidget.h"
#include "kaPreferences.h"
#include "kaSharedOffscreenRender.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace {

constexpr int W = 48, H = 36;

class DefaultLights : public testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        root = osg::Node::create(osg::Group::create(), "Imported");
        auto grey = osg::SimpleMaterial::create("grey");
        grey->baseColor = {0.5f, 0.5f, 0.5f};
        grey->roughness = 1.0f;
        root->addChild(osg::Node::create(osg::makePlane(20, 20, grey), "Floor"));
        view.setSceneRoot(root);
        // Looking straight down at the floor, which fills the picture.
        osg::dynamic_pointer_cast<osg::Transform>(view.getCameraBeacon()->getCore())
            ->setMatrix(osg::Matrix::lookAt({0, 3, 0}, {0, 0, 0}, {0, 0, -1}));
        view.getCamera()->setFov(40.0f);
        view.setSize(W, H);
        kaOSGWidget::setMainView(&view);
        kaOSGWidget::setRaytracing(GetParam());
    }
    void TearDown() override {
        kaOSGWidget::setRaytracing(false);
        kaOSGWidget::setMainView(nullptr);
        kaDefaultLights::setUse(kaDefaultLights::Use::WithoutSceneLights);
        kaExposure::setStops(0.0f);
    }

    osg::ImagePtr render() {
        osg::ImagePtr image = osg::Image::create();
        image->set(osg::Image::OSG_RGBA_PF, W, H, 1, 1, 1, 0.0, nullptr,
                   osg::Image::OSG_FLOAT32_IMAGEDATA);
        kaSharedOffscreenRender renderer(&view, {image}, 0);
        EXPECT_TRUE(renderer.updateGL());
        return image;
    }
    static float centre(const osg::ImagePtr& image) { return image->getPixel(W / 2, H / 2).g; }
    static bool same(const osg::ImagePtr& a, const osg::ImagePtr& b) {
        return std::memcmp(a->getData(), b->getData(), a->getSize()) == 0;
    }

    kaOSGWidget view;
    osg::NodePtr root;
};

TEST_P(DefaultLights, AreOnByDefault) {
    EXPECT_EQ(kaDefaultLights::use(), kaDefaultLights::Use::WithoutSceneLights);
    EXPECT_TRUE(kaDefaultLights::applies(0));
    EXPECT_FALSE(kaDefaultLights::applies(1));
}

TEST_P(DefaultLights, ShowASceneWithoutLights) {
    const osg::ImagePtr lit = render();
    // Head-on: the headlight's 0.8 and the environment's 0.25 (less what the floor hides of the
    // sky in the raytracer) on an albedo of 0.5.
    EXPECT_GT(centre(lit), 0.3f);
    EXPECT_LT(centre(lit), 0.7f);

    kaDefaultLights::setUse(kaDefaultLights::Use::Never);
    EXPECT_EQ(centre(render()), 0.0f) << "no light at all: black";
}

TEST_P(DefaultLights, StayAwayFromASceneWithLightsOfItsOwn) {
    auto sky = osg::EnvironmentLight::create();
    sky->setIntensity(0.1f);
    root->addChild(osg::Node::create(sky, "Sky"));
    const osg::ImagePtr own = render();
    EXPECT_GT(centre(own), 0.0f);

    kaDefaultLights::setUse(kaDefaultLights::Use::Never);
    EXPECT_TRUE(same(own, render())) << "the scene's own light alone";

    kaDefaultLights::setUse(kaDefaultLights::Use::Always);
    EXPECT_GT(centre(render()), centre(own) + 0.2f) << "the rig besides the scene's light";
}

TEST_P(DefaultLights, FollowTheCamera) {
    // Seen from the side, the floor faces the headlight less: it is darker.
    const float headOn = centre(render());
    osg::dynamic_pointer_cast<osg::Transform>(view.getCameraBeacon()->getCore())
        ->setMatrix(osg::Matrix::lookAt({0, 1.5f, 2.6f}, {0, 0, 0}, {0, 1, 0}));
    const float slanted = centre(render());
    EXPECT_GT(slanted, 0.0f);
    EXPECT_LT(slanted, headOn - 0.05f);
}

// Exposure: every light and every glowing surface twice as bright a stop up, in both renderers.
TEST_P(DefaultLights, ExposureScalesEveryLightAndGlow) {
    for (const osg::NodePtr& node : osg::collectNodes(root))
        if (auto* floor = dynamic_cast<osg::Geometry*>(node->getCore().get()))
            osg::dynamic_pointer_cast<osg::SimpleMaterial>(floor->getMaterial())->emission = {
                0.1f, 0.05f, 0.0f};
    const osg::Color4f before = render()->getPixel(W / 2, H / 2);
    kaExposure::setStops(1.0f);
    EXPECT_FLOAT_EQ(kaExposure::scale(), 2.0f);
    const osg::Color4f after = render()->getPixel(W / 2, H / 2);
    EXPECT_FLOAT_EQ(after.r, 2.0f * before.r);
    EXPECT_FLOAT_EQ(after.g, 2.0f * before.g);
    EXPECT_FLOAT_EQ(after.b, 2.0f * before.b);
    EXPECT_GT(before.r, before.b + 0.05f) << "the glow shows";
}

INSTANTIATE_TEST_SUITE_P(Renderers, DefaultLights, testing::Values(false, true),
                         [](const testing::TestParamInfo<bool>& info) {
                             return info.param ? "Raytracer" : "OpenGL";
                         });

} // namespace
