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

// A camera node placed in front of everything the scene holds, added to the scene; null when
// there is nothing to see.
osg::NodePtr automaticCamera(const osg::NodePtr& scene, float fovDegrees) {
    osg::Pnt3f low{1e30f, 1e30f, 1e30f}, high{-1e30f, -1e30f, -1e30f};
    for (const osg::NodePtr& node : osg::collectNodes(scene)) {
        auto geometry = osg::dynamic_pointer_cast<osg::Geometry>(node->getCore());
        if (!geometry)
            continue;
        const osg::Matrix world = node->getToWorld();
        for (const osg::Pnt3f& p : geometry->getMesh().positions) {
            const osg::Pnt3f w = world.transformPoint(p);
            low = {std::min(low.x, w.x), std::min(low.y, w.y), std::min(low.z, w.z)};
            high = {std::max(high.x, w.x), std::max(high.y, w.y), std::max(high.z, w.z)};
        }
    }
    if (low.x > high.x)
        return osg::NodePtr();
    const osg::Pnt3f centre{(low.x + high.x) / 2, (low.y + high.y) / 2, (low.z + high.z) / 2};
    const float radius = std::max(0.5f * std::sqrt((high.x - low.x) * (high.x - low.x) +
                                                   (high.y - low.y) * (high.y - low.y) +
                                                   (high.z - low.z) * (high.z - low.z)),
                                  1e-3f);
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

} // namespace

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
    if (auto core = camera ? osg::dynamic_pointer_cast<osg::CameraCore>(camera->getCore())
                           : osg::CameraCorePtr()) {
        beaconOf(view)->setMatrix(camera->getToWorld());
        view.getCamera()->setFov(core->getFov());
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
