#include "OSGCamera.h"
#include "OSGCameraDecorators.h"
#include "OSGChangeList.h"
#include "OSGNodeCores.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace osg;

namespace {

struct Ndc {
    float x, y, z;
};

Ndc project(const Camera& camera, const Pnt3f& world, uint32_t w, uint32_t h) {
    const Matrix m = camera.getProjection(w, h) * camera.getViewing(w, h);
    const float x = m.m[0][0] * world.x + m.m[0][1] * world.y + m.m[0][2] * world.z + m.m[0][3];
    const float y = m.m[1][0] * world.x + m.m[1][1] * world.y + m.m[1][2] * world.z + m.m[1][3];
    const float z = m.m[2][0] * world.x + m.m[2][1] * world.y + m.m[2][2] * world.z + m.m[2][3];
    const float cw = m.m[3][0] * world.x + m.m[3][1] * world.y + m.m[3][2] * world.z + m.m[3][3];
    return {x / cw, y / cw, z / cw};
}

// A camera at (0, 1, 10) looking at the origin.
PerspectiveCameraPtr makeCamera(float fov = 50.0f) {
    PerspectiveCameraPtr camera = PerspectiveCamera::create();
    NodePtr beacon = Node::create(
        Transform::create(Matrix::lookAt({0.0f, 1.0f, 10.0f}, {0.0f, 1.0f, 0.0f}, {0, 1, 0})));
    camera->setBeacon(beacon);
    camera->setFov(fov);
    camera->setNear(0.5f);
    camera->setFar(100.0f);
    return camera;
}

const Pnt3f kPoints[] = {{0.0f, 1.0f, 0.0f}, {1.5f, 2.0f, 1.0f},  {-2.0f, 0.0f, -3.0f},
                         {0.3f, 1.7f, 5.0f}, {-1.0f, 2.5f, 2.0f}, {2.5f, -0.5f, -1.0f}};

} // namespace

TEST(PerspectiveCamera, CentreAndEdgesOfTheView) {
    PerspectiveCameraPtr camera = makeCamera(90.0f);
    Ndc centre = project(*camera, {0.0f, 1.0f, 0.0f}, 200, 100);
    EXPECT_NEAR(centre.x, 0.0f, 1e-6f);
    EXPECT_NEAR(centre.y, 0.0f, 1e-6f);
    // 90 degrees vertically: at distance 10 the top edge is 10 above the axis.
    Ndc top = project(*camera, {0.0f, 11.0f, 0.0f}, 200, 100);
    EXPECT_NEAR(top.y, 1.0f, 1e-5f);
    // The image is twice as wide as high: x = 20 is the right edge.
    Ndc right = project(*camera, {20.0f, 1.0f, 0.0f}, 200, 100);
    EXPECT_NEAR(right.x, 1.0f, 1e-5f);
    Ndc nearPoint = project(*camera, {0.0f, 1.0f, 9.5f}, 200, 100);
    EXPECT_NEAR(nearPoint.z, -1.0f, 1e-4f) << "the near plane is at depth -1";
}

TEST(PerspectiveCamera, PixelAspectWidensTheImage) {
    PerspectiveCameraPtr camera = makeCamera(90.0f);
    camera->setAspect(2.0f);
    EXPECT_NEAR(project(*camera, {10.0f, 1.0f, 0.0f}, 200, 100).x, 1.0f, 1e-5f);
}

TEST(TileCameraDecorator, TilesPutTogetherGiveTheFullImage) {
    PerspectiveCameraPtr camera = makeCamera();
    const uint32_t W = 300, H = 200;
    for (auto [columns, rows] : {std::pair{2, 2}, {3, 5}}) {
        TileCameraDecoratorPtr tile = TileCameraDecorator::create();
        tile->setDecoratee(camera);
        tile->setFullSize(W, H);
        for (const Pnt3f& p : kPoints) {
            const Ndc full = project(*camera, p, W, H);
            const float px = (full.x + 1.0f) / 2.0f * W, py = (full.y + 1.0f) / 2.0f * H;
            const int cx = int(px / (float(W) / columns)), cy = int(py / (float(H) / rows));
            const float l = float(cx) / columns, r = float(cx + 1) / columns;
            const float b = float(cy) / rows, t = float(cy + 1) / rows;
            tile->setSize(l, b, r, t);
            const Ndc inTile = project(*tile, p, W / columns, H / rows);
            const float tx = l * W + (inTile.x + 1.0f) / 2.0f * (r - l) * W;
            const float ty = b * H + (inTile.y + 1.0f) / 2.0f * (t - b) * H;
            EXPECT_NEAR(tx, px, 1e-3f);
            EXPECT_NEAR(ty, py, 1e-3f);
            EXPECT_NEAR(inTile.z, full.z, 1e-5f) << "depth is the same in every tile";
        }
    }
}

TEST(TileCameraDecorator, TheWholeImageAsOneTileIsTheCamera) {
    PerspectiveCameraPtr camera = makeCamera();
    TileCameraDecoratorPtr tile = TileCameraDecorator::create();
    tile->setDecoratee(camera);
    tile->setFullSize(640, 480);
    tile->setSize(0.0f, 0.0f, 1.0f, 1.0f);
    EXPECT_TRUE(tile->getProjection(640, 480).equals(camera->getProjection(640, 480), 1e-6f));
    EXPECT_EQ(tile->getBeacon(), camera->getBeacon());
}

TEST(MultiStereoCameraDecorator, ZeroParallaxPlaneStaysAndEyesMirror) {
    PerspectiveCameraPtr camera = makeCamera();
    MultiStereoCameraDecoratorPtr stereo = MultiStereoCameraDecorator::create();
    stereo->setDecoratee(camera);
    stereo->setEyeSeparation(0.4f);
    stereo->setZeroParallaxDistance(10.0f); // the plane through the origin
    const uint32_t W = 400, H = 300;
    auto at = [&](float offset, const Pnt3f& p) {
        stereo->setEyeOffset(offset);
        return project(*stereo, p, W, H);
    };
    for (const Pnt3f& onPlane : {Pnt3f{1.0f, 2.0f, 0.0f}, Pnt3f{-2.0f, 0.5f, 0.0f}}) {
        const Ndc centre = at(0.0f, onPlane);
        for (float offset : {-2.0f, -0.5f, 0.5f, 1.0f}) {
            const Ndc eye = at(offset, onPlane);
            EXPECT_NEAR(eye.x, centre.x, 1e-5f) << offset;
            EXPECT_NEAR(eye.y, centre.y, 1e-5f) << offset;
        }
    }
    const Pnt3f near{0.5f, 1.0f, 5.0f}, far{0.5f, 1.0f, -8.0f};
    for (const Pnt3f& p : {near, far}) {
        const Ndc centre = at(0.0f, p), left = at(-0.5f, p), right = at(0.5f, p);
        EXPECT_NEAR(left.x - centre.x, -(right.x - centre.x), 1e-5f);
        EXPECT_GT(std::fabs(left.x - right.x), 1e-3f) << "off the plane the eyes differ";
        EXPECT_NEAR(left.y, right.y, 1e-6f);
    }
    // Nearer than the plane, the left eye sees the point further right.
    EXPECT_GT(at(-0.5f, near).x, at(0.5f, near).x);
}

TEST(ShearedStereoCameraDecorator, LeftAndRightAreHalfAnEyeSeparation) {
    ShearedStereoCameraDecoratorPtr eye = ShearedStereoCameraDecorator::create();
    eye->setLeftEye(true);
    EXPECT_EQ(eye->getEyeOffset(), -0.5f);
    EXPECT_TRUE(eye->getLeftEye());
    eye->setLeftEye(false);
    EXPECT_EQ(eye->getEyeOffset(), 0.5f);
}

TEST(ProjectionCameraDecorator, ScreenCornersAreTheImageCornersFromEitherEye) {
    // A 4 x 2 screen standing at z = 0, the head 3 in front of it and off to the side.
    NodePtr head = Node::create(Transform::create(Matrix::translation(0.7f, 1.2f, 3.0f)));
    PerspectiveCameraPtr camera = PerspectiveCamera::create();
    camera->setBeacon(head);
    camera->setNear(0.1f);
    camera->setFar(50.0f);
    ProjectionCameraDecoratorPtr wall = ProjectionCameraDecorator::create();
    wall->setDecoratee(camera);
    wall->setEyeSeparation(0.06f);
    const Pnt3f corners[4] = {{-2, 0, 0}, {2, 0, 0}, {2, 2, 0}, {-2, 2, 0}};
    for (const Pnt3f& c : corners)
        wall->editSurface().push_back(c);
    const Ndc expected[4] = {{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}};
    for (bool left : {true, false}) {
        wall->setLeftEye(left);
        for (int i = 0; i < 4; ++i) {
            Ndc p = project(*wall, corners[i], 800, 400);
            EXPECT_NEAR(p.x, expected[i].x, 1e-4f) << left << " corner " << i;
            EXPECT_NEAR(p.y, expected[i].y, 1e-4f) << left << " corner " << i;
        }
    }
    wall->setLeftEye(true);
    const Pnt3f leftEye = wall->getEyePosition();
    wall->setLeftEye(false);
    const Pnt3f rightEye = wall->getEyePosition();
    EXPECT_NEAR(rightEye.x - leftEye.x, 0.06f, 1e-6f);
    EXPECT_NEAR(leftEye.z, 3.0f, 1e-6f);
    // A point in front of the screen lands at different places for the two eyes.
    wall->setLeftEye(true);
    const float xl = project(*wall, {0, 1, 1.5f}, 800, 400).x;
    wall->setLeftEye(false);
    const float xr = project(*wall, {0, 1, 1.5f}, 800, 400).x;
    EXPECT_GT(xl, xr);
}
