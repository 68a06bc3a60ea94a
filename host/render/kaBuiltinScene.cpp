#include "kaBuiltinScene.h"

#include "OSGGeometry.h"
#include "kaCameraService.h"
#include "kaKernelServiceFactory.h"
#include "kaNodeUtils.h"
#include "kaOSGWidget.h"

namespace {
osg::NodePtr add(const osg::NodePtr& parent, const osg::NodeCorePtr& core,
                 const std::string& name) {
    osg::NodePtr node = osg::Node::create(core, name);
    parent->addChild(node);
    return node;
}
osg::NodePtr placed(const osg::NodePtr& parent, const osg::Matrix& m, const std::string& name) {
    return add(parent, osg::Transform::create(m), name);
}
} // namespace

kaBuiltinScene::kaBuiltinScene(kaOSGWidget& view)
    : _simulation(std::make_unique<kaBouncingBodies>()) {
    _root = osg::Node::create(osg::Group::create(), "Built-in Scene");

    auto ground = osg::SimpleMaterial::create("Concrete");
    ground->baseColor = {0.55f, 0.55f, 0.52f};
    ground->roughness = 0.9f;
    auto paint = osg::SimpleMaterial::create("Red Paint");
    paint->baseColor = {0.75f, 0.08f, 0.06f};
    paint->roughness = 0.25f;
    auto chrome = osg::SimpleMaterial::create("Chrome");
    chrome->baseColor = {0.9f, 0.9f, 0.92f};
    chrome->metallic = 1.0f;
    chrome->roughness = 0.15f;
    auto lamp = osg::SimpleMaterial::create("Lamp");
    lamp->baseColor = {0.1f, 0.1f, 0.1f};
    lamp->emission = {6.0f, 4.5f, 2.0f};
    auto rubber = osg::SimpleMaterial::create("Rubber");
    rubber->baseColor = {0.1f, 0.35f, 0.8f};
    rubber->roughness = 0.6f;

    add(_root, osg::makePlane(20, 20, ground), "Ground");
    osg::NodePtr boxPlace = placed(_root, osg::Matrix(), "Box Place");
    add(boxPlace, osg::makeBox(1.2f, 1.2f, 1.2f, paint), "Box");
    add(placed(_root, osg::Matrix::translation(1.6f, 0.8f, -0.6f), ""),
        osg::makeSphere(0.8f, 48, chrome), "Chrome Sphere");
    add(placed(_root, osg::Matrix::translation(-1.8f, 2.6f, -1.5f), ""),
        osg::makeSphere(0.35f, 24, lamp), "Lamp");

    auto sun = osg::DirectionalLight::create();
    sun->setColor({1.0f, 0.95f, 0.85f});
    sun->setIntensity(1.2f);
    add(placed(_root, osg::Matrix::lookAt({4, 8, 3}, {0, 0, 0}, {0, 1, 0}), ""), sun, "Sun");
    auto bulb = osg::PointLight::create();
    bulb->setColor({1.0f, 0.8f, 0.5f});
    bulb->setIntensity(6.0f);
    add(placed(_root, osg::Matrix::translation(-1.8f, 2.6f, -1.5f), ""), bulb, "Lamp Light");
    auto sky = osg::EnvironmentLight::create();
    sky->setColor({0.6f, 0.7f, 0.9f});
    sky->setIntensity(0.25f);
    add(_root, sky, "Sky");

    const osg::Matrix cameraPose = osg::Matrix::lookAt({2.5f, 3.0f, 7.0f}, {0, 0.8f, 0}, {0, 1, 0});
    _camera = add(placed(_root, cameraPose, ""), osg::CameraCore::create(40.0f, 0.1f, 200.0f),
                  "Camera 1");

    // The box travels along a curve and turns, frames 0 to 100.
    auto boxMotion = osg::dynamic_pointer_cast<osg::Transform>(boxPlace->getCore());
    _animation = osg::TransformAnimation::create(boxMotion, "BoxAnimation");
    // 5 mm above the ground: a face lying in the ground plane would flicker between the two.
    _animation->addKey({0.0f, {-2.0f, 0.605f, 0.5f}, 0.0f});
    _animation->addKey({50.0f, {-0.5f, 0.605f, 1.5f}, 90.0f});
    _animation->addKey({100.0f, {1.0f, 0.605f, 0.5f}, 180.0f});
    _animation->evaluate(0.0f);

    for (int i = 0; i < 3; ++i) {
        osg::NodePtr ballPlace =
            placed(_root, osg::Matrix(), "Ball Place " + std::to_string(i + 1));
        add(ballPlace, osg::makeSphere(0.25f, 24, rubber), "Ball " + std::to_string(i + 1));
        _simulation->addBody(osg::dynamic_pointer_cast<osg::Transform>(ballPlace->getCore()), 0.25f,
                             {0.3f + 0.6f * float(i), 1.5f + 0.8f * float(i), 2.0f},
                             {0.2f, 0.0f, -0.1f * float(i)});
    }

    view.setSceneRoot(_root);
    kaNodeUtils::setSceneRoot(_root);
    osg::dynamic_pointer_cast<osg::Transform>(view.getCameraBeacon()->getCore())
        ->setMatrix(cameraPose);
    view.getCamera()->setFov(40.0f);
    view.getCamera()->setNear(0.1f);
    view.getCamera()->setFar(200.0f);
    auto cameras = kaKernelServiceFactory::get<kaCameraService>("kaCameraService");
    if (!cameras) {
        cameras = std::make_shared<kaCameraService>();
        kaKernelServiceFactory::registerService("kaCameraService", cameras);
    }
    cameras->setActiveCamera(_camera);
}

kaBuiltinScene::~kaBuiltinScene() {
    if (kaNodeUtils::getSceneRoot() == _root)
        kaNodeUtils::setSceneRoot(nullptr);
}
