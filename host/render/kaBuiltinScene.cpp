#include "kaBuiltinScene.h"

#include "OSGGeometry.h"
#include "OSGSceneEffects.h"
#include "kaCameraService.h"
#include "kaConstraintManager.h"
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
// A small picture for the plates: a colour ramp whose alpha fades towards the top.
osg::ImagePtr rampImage(const osg::Color3f& from, const osg::Color3f& to, float alphaFrom,
                        float alphaTo) {
    osg::ImagePtr image = osg::Image::create();
    const int width = 64, height = 16;
    image->set(osg::Image::OSG_RGBA_PF, width, height, 1, 1, 1, 0.0, nullptr,
               osg::Image::OSG_FLOAT32_IMAGEDATA, true);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const float t = float(x) / float(width - 1), a = float(y) / float(height - 1);
            image->setPixel(x, y,
                            {from.r + (to.r - from.r) * t, from.g + (to.g - from.g) * t,
                             from.b + (to.b - from.b) * t, alphaFrom + (alphaTo - alphaFrom) * a});
        }
    return image;
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

    // A see-through and a back-lit material, so that every render pass has something to show.
    auto glass = osg::SimpleMaterial::create("Frosted Glass");
    glass->baseColor = {0.75f, 0.85f, 0.95f};
    glass->roughness = 0.1f;
    glass->opacity = 0.35f;
    auto paper = osg::SimpleMaterial::create("Paper");
    paper->baseColor = {0.95f, 0.9f, 0.75f};
    paper->roughness = 0.85f;
    paper->translucency = 0.6f;

    // The box's paint is a choice between two (a material switch), and the sphere one of two
    // shapes (a switch): exports record both choices.
    auto bluePaint = osg::SimpleMaterial::create("Blue Paint");
    bluePaint->baseColor = {0.08f, 0.2f, 0.75f};
    bluePaint->roughness = 0.25f;
    auto boxPaint = osg::SwitchMaterial::create("Box Paint");
    boxPaint->addMaterial(paint);
    boxPaint->addMaterial(bluePaint);
    boxPaint->setChoice(0);

    add(_root, osg::makePlane(20, 20, ground), "Ground");
    osg::NodePtr boxPlace = placed(_root, osg::Matrix(), "Box Place");
    add(boxPlace, osg::makeBox(1.2f, 1.2f, 1.2f, boxPaint), "Box");
    osg::NodePtr variants = add(placed(_root, osg::Matrix::translation(1.6f, 0.8f, -0.6f), ""),
                                osg::Switch::create(0), "Sphere Variants");
    add(variants, osg::makeSphere(0.8f, 48, chrome), "Chrome Sphere");
    add(variants, osg::makeBox(1.3f, 1.3f, 1.3f, chrome), "Chrome Cube");
    add(placed(_root, osg::Matrix::translation(-1.8f, 2.6f, -1.5f), ""),
        osg::makeSphere(0.35f, 24, lamp), "Lamp");

    add(placed(_root, osg::Matrix::translation(0.2f, 0.45f, 2.2f), ""),
        osg::makeSphere(0.45f, 32, glass), "Glass Ball");
    // Between the camera and the lamp, so the lamp shines through it.
    add(placed(_root,
               osg::Matrix::translation(-2.3f, 0.8f, -0.4f) *
                   osg::Matrix::rotation({0, 1, 0}, 0.35f),
               ""),
        osg::makeBox(1.4f, 1.6f, 0.02f, paper), "Paper Screen");

    add(_root, osg::Fog::create({0.75f, 0.78f, 0.85f}, 0.02f), "Haze");
    auto backplate = osg::ImagePlate::create(
        rampImage({0.35f, 0.5f, 0.8f}, {0.8f, 0.6f, 0.45f}, 0.6f, 0.0f), false);
    backplate->setRect(0.0f, 0.7f, 1.0f, 1.0f);
    add(_root, backplate, "Sky Plate");
    auto frontplate =
        osg::ImagePlate::create(rampImage({1, 1, 1}, {0.9f, 0.7f, 0.2f}, 0.7f, 0.3f), true);
    frontplate->setRect(0.02f, 0.02f, 0.22f, 0.07f);
    add(_root, frontplate, "Caption Plate");
    add(_root, osg::LensFlare::create(0.1f, 0.03f), "Lens Flare");

    auto sun = osg::DirectionalLight::create();
    sun->setColor({1.0f, 0.95f, 0.85f});
    sun->setIntensity(1.2f);
    osg::NodePtr sunPlace =
        placed(_root, osg::Matrix::lookAt({4, 8, 3}, {0, 0, 0}, {0, 1, 0}), "Sun Place");
    add(sunPlace, sun, "Sun");
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

    // The sun follows the box with its aim and a small lamp rides above it: the rules are
    // applied after the animation has moved the box.
    auto boxLamp = osg::PointLight::create();
    boxLamp->setColor({1.0f, 0.85f, 0.6f});
    boxLamp->setIntensity(0.8f);
    osg::NodePtr boxLampPlace = placed(_root, osg::Matrix(), "Box Lamp Place");
    add(boxLampPlace, boxLamp, "Box Lamp");
    _constraints.push_back(kaConstraintManager::addLookAtConstraint(sunPlace, boxPlace));
    _constraints.push_back(
        kaConstraintManager::addPositionConstraint(boxLampPlace, boxPlace, {0.0f, 1.4f, 0.0f}));
    kaConstraintManager::evaluateConstraints();

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
    for (int id : _constraints)
        kaConstraintManager::removeConstraint(id);
    if (kaNodeUtils::getSceneRoot() == _root)
        kaNodeUtils::setSceneRoot(nullptr);
}
