// The camera moves of the viewer's mouse: turning around the point looked at, sliding across
// the view and moving closer, checked on the camera's placement in the world.
#include "kaviewerNavigator.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

osg::Pnt3f eyeOf(const osg::Matrix& pose) {
    return pose.transformPoint({0, 0, 0});
}

osg::Vec3f aheadOf(const osg::Matrix& pose) {
    return osg::normalize(pose.transformVector({0, 0, -1}));
}

// A camera at (0, 2, 10) looking at the origin's neighbourhood, pivoting 10 ahead.
kaviewer::Navigator startingNavigator() {
    kaviewer::Navigator navigator;
    navigator.setPose(osg::Matrix::lookAt({0, 2, 10}, {0, 2, 0}, {0, 1, 0}), 10.0f);
    return navigator;
}

// Whether the camera looks straight at the pivot.
void expectLooksAtPivot(const kaviewer::Navigator& navigator) {
    const osg::Pnt3f eye = eyeOf(navigator.pose());
    const osg::Pnt3f pivot = navigator.pivot();
    const osg::Vec3f toPivot = osg::normalize({pivot.x - eye.x, pivot.y - eye.y, pivot.z - eye.z});
    EXPECT_NEAR(osg::dot(toPivot, aheadOf(navigator.pose())), 1.0f, 1e-5f);
}

TEST(ViewerNavigator, PivotLiesStraightAheadAtTheGivenDistance) {
    const kaviewer::Navigator navigator = startingNavigator();
    EXPECT_NEAR(navigator.pivot().x, 0.0f, 1e-5f);
    EXPECT_NEAR(navigator.pivot().y, 2.0f, 1e-5f);
    EXPECT_NEAR(navigator.pivot().z, 0.0f, 1e-5f);
    EXPECT_NEAR(navigator.distance(), 10.0f, 1e-5f);
}

TEST(ViewerNavigator, OrbitTurnsAroundThePivotAtTheSameDistance) {
    kaviewer::Navigator navigator = startingNavigator();
    navigator.orbit(float(M_PI) / 2.0f, 0.0f);
    // A quarter turn about the up axis: from +Z of the pivot to +X.
    const osg::Pnt3f eye = eyeOf(navigator.pose());
    EXPECT_NEAR(eye.x, 10.0f, 1e-4f);
    EXPECT_NEAR(eye.y, 2.0f, 1e-4f);
    EXPECT_NEAR(eye.z, 0.0f, 1e-4f);
    expectLooksAtPivot(navigator);

    navigator.orbit(0.0f, 0.5f);
    EXPECT_NEAR(navigator.distance(), 10.0f, 1e-4f);
    EXPECT_NEAR(eyeOf(navigator.pose()).y, 2.0f + 10.0f * std::sin(0.5f), 1e-4f);
    expectLooksAtPivot(navigator);
    // Up stays up: the camera's right axis stays level.
    EXPECT_NEAR(navigator.pose().transformVector({1, 0, 0}).y, 0.0f, 1e-5f);
}

TEST(ViewerNavigator, OrbitStopsShortOfThePoles) {
    kaviewer::Navigator navigator = startingNavigator();
    navigator.orbit(0.0f, 10.0f);
    const osg::Vec3f ahead = aheadOf(navigator.pose());
    EXPECT_LT(ahead.y, -0.99f); // nearly straight down
    EXPECT_GT(ahead.y, -1.0f + 1e-5f);
    expectLooksAtPivot(navigator);
    navigator.orbit(0.0f, -20.0f);
    EXPECT_GT(aheadOf(navigator.pose()).y, 0.99f);
    EXPECT_NEAR(navigator.distance(), 10.0f, 1e-3f);
}

TEST(ViewerNavigator, PanSlidesCameraAndPivotAcrossTheView) {
    kaviewer::Navigator navigator = startingNavigator();
    // 90 degrees at a distance of 10: the view is 20 high there.
    navigator.pan(0.5f, -0.25f, 90.0f);
    const osg::Pnt3f eye = eyeOf(navigator.pose());
    EXPECT_NEAR(eye.x, 10.0f, 1e-4f);
    EXPECT_NEAR(eye.y, 2.0f - 5.0f, 1e-4f);
    EXPECT_NEAR(eye.z, 10.0f, 1e-4f);
    EXPECT_NEAR(navigator.pivot().x, 10.0f, 1e-4f);
    EXPECT_NEAR(navigator.pivot().y, -3.0f, 1e-4f);
    EXPECT_NEAR(navigator.pivot().z, 0.0f, 1e-4f);
    expectLooksAtPivot(navigator);

    // An orthographic view is as high as its camera says, at any distance.
    kaviewer::Navigator ortho = startingNavigator();
    ortho.pan(0.5f, 0.0f, 90.0f, 4.0f);
    EXPECT_NEAR(eyeOf(ortho.pose()).x, 2.0f, 1e-4f);
}

TEST(ViewerNavigator, DollyScalesTheDistanceAndNeverReachesThePivot) {
    kaviewer::Navigator navigator = startingNavigator();
    navigator.dolly(0.5f);
    EXPECT_NEAR(navigator.distance(), 5.0f, 1e-4f);
    EXPECT_NEAR(eyeOf(navigator.pose()).z, 5.0f, 1e-4f);
    expectLooksAtPivot(navigator);
    navigator.dolly(3.0f);
    EXPECT_NEAR(navigator.distance(), 15.0f, 1e-3f);
    for (int i = 0; i < 200; ++i)
        navigator.dolly(0.5f);
    EXPECT_GT(navigator.distance(), 0.0f);
    expectLooksAtPivot(navigator);
    navigator.dolly(0.0f); // ignored
    navigator.dolly(-1.0f);
    EXPECT_GT(navigator.distance(), 0.0f);
}

} // namespace
