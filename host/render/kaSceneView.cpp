// A loaded scene put into the view: its camera looked through, or one made to see it all.
#include "kaSceneImport.h"

#include "kaAnimManager.h"

#include "OSGGeometry.h"
#include "OSGNodeCores.h"
#include "kaCameraService.h"
#include "kaFileIO.h"
#include "kaKernelServiceFactory.h"
#include "kaNodeUtils.h"
#include "kaOSGWidget.h"

#include <QStringList>

#include <algorithm>
#include <cmath>

namespace {

osg::TransformPtr beaconOf(kaOSGWidget& view) {
    return osg::dynamic_pointer_cast<osg::Transform>(view.getCameraBeacon()->getCore());
}

// The scene's first camera node; null when it has none.
osg::NodePtr firstCamera(const osg::NodePtr& scene) {
    for (const osg::NodePtr& node : osg::collectNodes(scene))
        if (osg::dynamic_pointer_cast<osg::CameraCore>(node->getCore()))
            return node;
    return osg::NodePtr();
}

// The sphere around that box; false when there is none.
bool sphereAround(const osg::NodePtr& scene, osg::Pnt3f& centre, float& radius) {
    osg::Pnt3f low, high;
    if (!kaSceneImport::bounds(scene, low, high))
        return false;
    centre = {(low.x + high.x) / 2, (low.y + high.y) / 2, (low.z + high.z) / 2};
    radius = std::max(0.5f * std::sqrt((high.x - low.x) * (high.x - low.x) +
                                       (high.y - low.y) * (high.y - low.y) +
                                       (high.z - low.z) * (high.z - low.z)),
                      1e-3f);
    return true;
}

// A camera node placed in front of everything the scene holds, added to the scene; null when
// there is nothing to see.
osg::NodePtr automaticCamera(const osg::NodePtr& scene, float fovDegrees) {
    osg::Pnt3f centre;
    float radius = 0;
    if (!sphereAround(scene, centre, radius))
        return osg::NodePtr();
    const float distance = radius / std::tan(fovDegrees * float(M_PI) / 360.0f);
    const osg::Matrix pose = osg::Matrix::lookAt(
        {centre.x, centre.y + radius * 0.3f, centre.z + distance}, centre, {0, 1, 0});
    osg::NodePtr place = osg::Node::create(osg::Transform::create(pose), "");
    osg::NodePtr camera = osg::Node::create(
        osg::CameraCore::create(fovDegrees, distance / 100.0f, distance + radius * 4.0f),
        "Automatic Camera");
    place->addChild(camera);
    scene->addChild(place);
    return camera;
}

// Looks through 'camera' (a node under the scene) and makes it the active camera.
// (Null: no camera is active.)
void lookThroughNode(kaOSGWidget& view, const osg::NodePtr& camera) {
    if (auto core = camera ? osg::dynamic_pointer_cast<osg::CameraCore>(camera->getCore())
                           : osg::CameraCorePtr()) {
        // Where the camera is and where it looks, without the scale of the nodes above it
        // (FBX files come in centimetres, scaled by 100): a scaled view would shrink the world
        // behind the near plane.
        const osg::Matrix world = camera->getToWorld();
        const osg::Pnt3f eye = world.transformPoint({0, 0, 0});
        const osg::Vec3f ahead = world.transformVector({0, 0, -1});
        beaconOf(view)->setMatrix(
            osg::Matrix::lookAt(eye, {eye.x + ahead.x, eye.y + ahead.y, eye.z + ahead.z},
                                world.transformVector({0, 1, 0})));
        view.getCamera()->setFov(core->getFov());
        view.getCamera()->setOrthographicHeight(core->getOrthographicHeight());
        view.getCamera()->setNear(core->getNear());
        view.getCamera()->setFar(core->getFar());
    }
    auto cameras = kaKernelServiceFactory::get<kaCameraService>("kaCameraService");
    if (!cameras) {
        cameras = std::make_shared<kaCameraService>();
        kaKernelServiceFactory::registerService("kaCameraService", cameras);
    }
    cameras->setActiveCamera(camera);
}

// Unit length; straight ahead for a direction of none.
osg::Vec3f normalized(const osg::Vec3f& v) {
    const osg::Vec3f n = osg::normalize(v);
    return osg::dot(n, n) > 0 ? n : osg::Vec3f{0, 0, -1};
}

// Where a named view looks (and which way is up); false for a name that isn't one.
bool namedView(const QString& name, osg::Vec3f& ahead, osg::Vec3f& up) {
    up = {0, 1, 0};
    if (name == "front")
        ahead = {0, 0, -1};
    else if (name == "back")
        ahead = {0, 0, 1};
    else if (name == "left")
        ahead = {1, 0, 0};
    else if (name == "right")
        ahead = {-1, 0, 0};
    else if (name == "top")
        ahead = {0, -1, 0}, up = {0, 0, -1};
    else if (name == "bottom")
        ahead = {0, 1, 0}, up = {0, 0, 1};
    else if (name == "iso")
        ahead = normalized({-1, -1, -1});
    else
        return false;
    return true;
}

} // namespace

bool kaSceneImport::bounds(const osg::NodePtr& scene, osg::Pnt3f& low, osg::Pnt3f& high) {
    low = {1e30f, 1e30f, 1e30f};
    high = {-1e30f, -1e30f, -1e30f};
    for (const osg::NodePtr& node : osg::collectNodes(scene)) {
        auto geometry = osg::dynamic_pointer_cast<osg::Geometry>(node->getCore());
        if (!geometry || !node->isShown())
            continue;
        const osg::Matrix world = node->getToWorld();
        for (const osg::Pnt3f& p : geometry->getMesh().positions) {
            const osg::Pnt3f w = world.transformPoint(p);
            low = {std::min(low.x, w.x), std::min(low.y, w.y), std::min(low.z, w.z)};
            high = {std::max(high.x, w.x), std::max(high.y, w.y), std::max(high.z, w.z)};
        }
    }
    return low.x <= high.x;
}

void kaSceneImport::show(kaOSGWidget& view, const osg::NodePtr& scene, const QString& fileName,
                         std::vector<osg::AnimNodeBasePtr> animations) {
    view.setSceneRoot(scene);
    kaNodeUtils::setSceneRoot(scene);
    kaFileIO::setFilename(fileName);
    for (const osg::AnimNodeBasePtr& animation : animations)
        animation->evaluate(float(kaAnimManager::getCurrentFrame()));
    kaAnimManager::setSceneAnimations(std::move(animations));
    osg::NodePtr camera = firstCamera(scene);
    if (!camera)
        camera = automaticCamera(scene, view.getCamera()->getFov());
    lookThroughNode(view, camera);
}

bool kaSceneImport::lookThrough(kaOSGWidget& view, const osg::NodePtr& scene,
                                const CameraChoice& choice, QString& error) {
    if (!choice.camera.isEmpty()) {
        std::vector<osg::NodePtr> cameras;
        for (const osg::NodePtr& node : osg::collectNodes(scene))
            if (osg::dynamic_pointer_cast<osg::CameraCore>(node->getCore()))
                cameras.push_back(node);
        osg::NodePtr chosen;
        for (const osg::NodePtr& node : cameras)
            if (QString::fromStdString(node->getName()) == choice.camera && !chosen)
                chosen = node;
        bool isNumber = false;
        const int number = choice.camera.toInt(&isNumber);
        if (!chosen && isNumber && number >= 1 && number <= int(cameras.size()))
            chosen = cameras[size_t(number - 1)];
        if (!chosen) {
            QStringList names;
            for (const osg::NodePtr& node : cameras)
                names << "'" + QString::fromStdString(node->getName()) + "'";
            error = QString("The scene has no camera '%1'; its cameras: %2.")
                        .arg(choice.camera, names.isEmpty() ? "none" : names.join(", "));
            return false;
        }
        lookThroughNode(view, chosen);
    }
    if (choice.view.isEmpty() && !choice.fit)
        return true;

    // Seen from a named side, or from where the camera looks now; far enough back that the
    // sphere around the scene fits the narrower of the picture's two angles.
    const osg::Matrix pose = beaconOf(view)->getMatrix();
    osg::Vec3f ahead = normalized(pose.transformVector({0, 0, -1}));
    osg::Vec3f up = normalized(pose.transformVector({0, 1, 0}));
    if (!choice.view.isEmpty() && !namedView(choice.view, ahead, up)) {
        error = QString("'%1' is not a view: front, back, left, right, top, bottom or iso.")
                    .arg(choice.view);
        return false;
    }
    osg::Pnt3f centre;
    float radius = 0;
    if (!sphereAround(scene, centre, radius)) {
        error = "The scene has nothing to frame.";
        return false;
    }
    const float fov = view.getCamera()->getFov();
    const double aspect = choice.aspect > 0   ? choice.aspect
                          : view.height() > 0 ? double(view.width()) / double(view.height())
                                              : 1.0;
    const float halfVertical = fov * float(M_PI) / 360.0f;
    const float halfHorizontal = std::atan(std::tan(halfVertical) * float(aspect));
    // An orthographic camera sees as much from anywhere: it only has to stand outside.
    const bool orthographic = view.getCamera()->getOrthographicHeight() > 0.0f;
    const float distance =
        orthographic ? 2.0f * radius : radius / std::sin(std::min(halfVertical, halfHorizontal));
    const osg::Pnt3f eye{centre.x - ahead.x * distance, centre.y - ahead.y * distance,
                         centre.z - ahead.z * distance};
    osg::NodePtr place =
        osg::Node::create(osg::Transform::create(osg::Matrix::lookAt(eye, centre, up)), "");
    QString name = "Fitted Camera";
    if (!choice.view.isEmpty())
        name = choice.view.left(1).toUpper() + choice.view.mid(1) + " View";
    osg::CameraCorePtr core =
        osg::CameraCore::create(fov, (distance - radius) * 0.5f, distance + radius * 2.0f);
    // An orthographic camera stays one, its picture as high as the sphere needs.
    if (orthographic)
        core->setOrthographicHeight(2.0f * radius * float(std::max(1.0, 1.0 / aspect)));
    osg::NodePtr camera = osg::Node::create(core, name.toStdString());
    place->addChild(camera);
    scene->addChild(place);
    lookThroughNode(view, camera);
    return true;
}
