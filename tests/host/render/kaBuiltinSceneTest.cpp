#include "kaBuiltinScene.h"

#include "OSGChangeList.h"
#include "kaAnimManager.h"
#include "kaCameraService.h"
#include "kaConstraintManager.h"
#include "kaController.h"
#include "kaKernelServiceFactory.h"
#include "kaNodeUtils.h"
#include "kaOSGWidget.h"
#include "kaQRPCConverter.h"
#include "kaSimulationTime.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {
osg::Pnt3f positionOf(const osg::NodePtr& node) {
    return node->getToWorld().transformPoint({0, 0, 0});
}
osg::NodePtr named(const std::string& name) {
    for (const osg::NodePtr& node : kaNodeUtils::getSceneNodes())
        if (node->getName() == name)
            return node;
    return osg::NodePtr();
}
} // namespace

class BuiltinScene : public testing::Test {
protected:
    void SetUp() override { kaOSGWidget::setMainView(&view); }
    void TearDown() override {
        kaOSGWidget::setMainView(nullptr);
        kaKernelServiceFactory::registerService("kaCameraService", nullptr);
        kaSimulationTime::setTime(0.0);
    }
    kaOSGWidget view;
    kaBuiltinScene scene{view};
};

TEST_F(BuiltinScene, HasItsNamedPartsAndTheActiveCamera) {
    for (const char* name :
         {"Ground", "Box", "Chrome Sphere", "Lamp", "Sun", "Sky", "Camera 1", "Ball 1", "Ball 3"})
        EXPECT_TRUE(named(name)) << name;
    auto cameras = kaKernelServiceFactory::get<kaCameraService>("kaCameraService");
    ASSERT_TRUE(cameras);
    EXPECT_EQ(kaQRPCConverter::idToNode(cameras->getActiveCamera().getId()), scene.getCameraNode());
    EXPECT_EQ(view.getSceneRoot(), scene.getRoot());
}

TEST_F(BuiltinScene, TheAnimationMovesTheBoxByFrame) {
    const osg::NodePtr box = named("Box");
    kaAnimManager::setCurrentFrame(0, true, false);
    const osg::Pnt3f start = positionOf(box);
    kaAnimManager::setCurrentFrame(100, true, false);
    const osg::Pnt3f end = positionOf(box);
    EXPECT_NEAR(start.x, -2.0f, 1e-5f);
    EXPECT_NEAR(end.x, 1.0f, 1e-5f);
    EXPECT_EQ(kaAnimManager::getCurrentFrame(), 100);
    kaAnimManager::evaluateByFrame(scene.getAnimation(), 50, true, true, false);
    EXPECT_NEAR(positionOf(box).z, 1.5f, 1e-5f);
    EXPECT_EQ(scene.getAnimation()->getLastEvaluationTime(), 50.0f);
    kaAnimManager::evaluateByFrame(scene.getAnimation(), 25, true, false, false);
    const osg::Pnt3f between = positionOf(box);
    EXPECT_GT(between.x, -2.0f);
    EXPECT_LT(between.x, -0.5f);
}

TEST_F(BuiltinScene, TheSimulationDependsOnWhatCameBefore) {
    kaBouncingBodies& sim = scene.getSimulation();
    const float startHeight = sim.getBodies()[2].position.y;
    kaController::enableSimulation(true);
    // Frame by frame at 25 fps up to 2 s, as a sequence export pre-rolls...
    for (int frame = 1; frame <= 50; ++frame) {
        kaSimulationTime::setTime(frame * 0.04);
        kaController::updateBehavior(true);
    }
    const osg::Pnt3f stepped = positionOf(named("Ball 3"));
    EXPECT_NE(stepped.y, startHeight) << "the ball has moved";
    EXPECT_GE(stepped.y, 0.25f - 1e-4f) << "and never sinks into the ground";
    // ... is the same when done again from the start ...
    kaSimulationTime::setTime(0.0);
    kaController::updateBehavior(true);
    EXPECT_NEAR(sim.getBodies()[2].position.y, startHeight, 1e-6f) << "back to the start";
    for (int frame = 1; frame <= 50; ++frame) {
        kaSimulationTime::setTime(frame * 0.04);
        kaController::updateBehavior(true);
    }
    EXPECT_EQ(positionOf(named("Ball 3")).y, stepped.y);
    // ... but not the same as one jump to 2 s, which steps only the last 0.1 s.
    kaSimulationTime::setTime(0.0);
    kaController::updateBehavior(true);
    kaSimulationTime::setTime(2.0);
    kaController::updateBehavior(true);
    const osg::Pnt3f jumped = positionOf(named("Ball 3"));
    EXPECT_GT(std::abs(stepped.y - jumped.y), 0.05f);
    EXPECT_NEAR(sim.getTime(), 2.0, 1e-9) << "the dropped time is not caught up later";

    kaController::enableSimulation(false);
    kaSimulationTime::setTime(3.0);
    kaController::updateBehavior(true);
    EXPECT_NEAR(positionOf(named("Ball 3")).y, jumped.y, 1e-6f) << "no steps while disabled";
    kaController::enableSimulation(true);
}

TEST_F(BuiltinScene, ForcedRendersDrawTheMainView) {
    view.setSize(80, 60);
    const int before = kaController::getForcedRenderCount();
    kaController::forceRender(true);
    EXPECT_EQ(kaController::getForcedRenderCount(), before + 1);
    ASSERT_TRUE(view.getScreenImage());
    EXPECT_EQ(view.getScreenImage()->getWidth(), 80);
    // The picture has both the sky gradient and something red.
    bool red = false;
    for (int y = 0; y < 60; ++y)
        for (int x = 0; x < 80; ++x) {
            osg::Color4f p = view.getScreenImage()->getPixel(x, y);
            red = red || (p.r > 0.3f && p.r > 2 * p.g && p.r > 2 * p.b);
        }
    EXPECT_TRUE(red);
}

TEST_F(BuiltinScene, LookAtConstraintAimsTheFollower) {
    osg::NodePtr spot =
        osg::Node::create(osg::Transform::create(osg::Matrix::translation(0, 5, 0)), "Spot");
    scene.getRoot()->addChild(spot);
    const int id = kaConstraintManager::addLookAtConstraint(spot, named("Chrome Sphere"));
    kaConstraintManager::evaluateConstraints();
    const osg::Vec3f aim = osg::normalize(spot->getToWorld().transformVector({0, 0, -1}));
    const osg::Pnt3f from = positionOf(spot), to = positionOf(named("Chrome Sphere"));
    const osg::Vec3f expected = osg::normalize({to.x - from.x, to.y - from.y, to.z - from.z});
    EXPECT_NEAR(osg::dot(aim, expected), 1.0f, 1e-5f);
    EXPECT_NEAR(positionOf(spot).y, 5.0f, 1e-5f) << "it stays where it is";
    kaConstraintManager::removeConstraint(id);
}

TEST_F(BuiltinScene, ConstraintsKeepTheSunOnTheBoxAndTheLampAboveIt) {
    kaAnimManager::setCurrentFrame(80, true, false);
    kaConstraintManager::evaluateConstraints();
    const osg::Pnt3f box = positionOf(named("Box"));
    const osg::Pnt3f lamp = positionOf(named("Box Lamp"));
    EXPECT_NEAR(lamp.x, box.x, 1e-4f);
    EXPECT_NEAR(lamp.y, box.y + 1.4f, 1e-4f);
    EXPECT_NEAR(lamp.z, box.z, 1e-4f);
    const osg::NodePtr sun = named("Sun Place");
    const osg::Vec3f aim = osg::normalize(sun->getToWorld().transformVector({0, 0, -1}));
    const osg::Pnt3f from = positionOf(sun);
    const osg::Vec3f toBox =
        osg::normalize(osg::Vec3f{box.x - from.x, box.y - from.y, box.z - from.z});
    EXPECT_GT(aim.x * toBox.x + aim.y * toBox.y + aim.z * toBox.z, 0.9999f);
    EXPECT_NEAR(from.x, 4.0f, 1e-4f) << "aiming turns the sun, it does not move it";
    kaAnimManager::setCurrentFrame(0, true, false);
    kaConstraintManager::evaluateConstraints();
}

TEST_F(BuiltinScene, MotionBlurSpreadsSamplesOverTheShutter) {
    const osg::NodePtr box = named("Box");
    kaAnimManager::setCurrentFrame(40, true, false);
    const float atFrame = positionOf(box).x;
    kaAnimManager::applyMotionBlur(0, 4);
    EXPECT_EQ(positionOf(box).x, atFrame) << "no blur without a shutter";

    kaAnimManager::setMotionBlurShutter(2.0f);
    kaAnimManager::applyMotionBlur(0, 4); // frame 40 - 0.75
    const float first = positionOf(box).x;
    kaAnimManager::applyMotionBlur(3, 4); // frame 40 + 0.75
    const float last = positionOf(box).x;
    EXPECT_LT(first, atFrame) << "the box moves to +x over these frames";
    EXPECT_GT(last, atFrame);
    EXPECT_NEAR(atFrame - first, last - atFrame, 0.01f * (last - first));
    kaAnimManager::resetMotionBlur();
    EXPECT_EQ(positionOf(box).x, atFrame);
    EXPECT_EQ(kaAnimManager::getCurrentFrame(), 40) << "the frame stays";
    kaAnimManager::setMotionBlurShutter(0.0f);
    kaAnimManager::setCurrentFrame(0, true, false);
}
