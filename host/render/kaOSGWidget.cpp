#include "kaOSGWidget.h"

#include "OSGNodeCores.h"
#include "kaColor.h"
#include "kaController.h"
#include "kaSharedOffscreenRender.h"

#include <atomic>

namespace {
kaOSGWidget* g_mainView = nullptr;
std::atomic<bool> g_raytracing{false};
std::atomic<bool> g_gpuRaytracing{false};
} // namespace

kaOSGWidget::kaOSGWidget()
    : _window(osg::Window::create())
    , _viewport(osg::UberViewport::create())
    , _camera(osg::PerspectiveCamera::create())
    , _background(osg::Gradient2Background::create())
    , _root(osg::Node::create(osg::Group::create(), "Root"))
    , _sceneRoot(osg::Node::create(osg::Group::create(), "Scene"))
    , _beacon(osg::Node::create(osg::Transform::create(), "CameraBeacon")) {
    _renderAction =
        std::make_unique<osg::RenderAction>([this](const osg::WindowPtr&) { render(); });
    _root->addChild(_sceneRoot);
    _root->addChild(_beacon);
    _camera->setBeacon(_beacon);
    _background->setColors({0.25f, 0.25f, 0.28f}, {0.62f, 0.66f, 0.72f});
    _viewport->setCamera(_camera);
    _viewport->setBackground(_background);
    _viewport->setRoot(_root);
    _window->addViewport(_viewport);
    _renderHook = kaController::addRenderHook([this](bool) {
        if (getMGLW(-1) == this && _redraw)
            render();
    });
}

bool kaOSGWidget::render() {
    // With a render cluster the raytraced picture is made on its nodes (through the render
    // action): the view does not raytrace it a second time here.
    if (_clusterWindow && getRaytracing())
        return true;
    if (!_screen || _screen->getWidth() != width() || _screen->getHeight() != height()) {
        _screen = osg::Image::create();
        _screen->set(osg::Image::OSG_RGBA_PF, width(), height());
    }
    kaSharedOffscreenRender renderer(this, {_screen}, 0);
    // A raytraced view shows its first sample, as an interactive viewer does before it
    // refines: forced redraws during exports must not cost a full render each.
    if (getRaytracing())
        renderer.setRtSample(0);
    return renderer.updateGL();
}

kaOSGWidget::~kaOSGWidget() {
    kaController::removeHook(_renderHook);
    if (g_mainView == this)
        g_mainView = nullptr;
}

kaOSGWidget* kaOSGWidget::getMGLW(int index) {
    return index == -1 || index == 0 ? g_mainView : nullptr;
}
void kaOSGWidget::setMainView(kaOSGWidget* view) {
    g_mainView = view;
}

void kaOSGWidget::setSceneRoot(const osg::NodePtr& scene) {
    _root->subChild(_sceneRoot);
    _sceneRoot = scene ? scene : osg::Node::create(osg::Group::create(), "Scene");
    _root->addChild(_sceneRoot);
}

int kaOSGWidget::width() const {
    return int(_window->getWidth());
}
int kaOSGWidget::height() const {
    return int(_window->getHeight());
}
void kaOSGWidget::setSize(int width, int height) {
    _window->setSize(uint32_t(width), uint32_t(height));
}

void kaOSGWidget::getPowerwallWindow(osg::Pnt3f (&corners)[4]) const {
    for (int i = 0; i < 4; ++i)
        corners[i] = _powerwallCorners[i];
}
void kaOSGWidget::setPowerwallWindow(const osg::Pnt3f (&corners)[4]) {
    for (int i = 0; i < 4; ++i)
        _powerwallCorners[i] = corners[i];
}

bool kaOSGWidget::getRaytracing() {
    return g_raytracing;
}
void kaOSGWidget::setRaytracing(bool on) {
    g_raytracing = on;
}
bool kaOSGWidget::getGpuRaytracing() {
    return g_gpuRaytracing;
}
void kaOSGWidget::setGpuRaytracing(bool on) {
    g_gpuRaytracing = on;
}

unsigned int kaOSGWidget::getDisplayColorspace() const {
    return kaColor::getActiveColorSpace();
}
void kaOSGWidget::setDisplayColorspace(unsigned int colorSpace) {
    kaColor::setActiveColorSpace(colorSpace);
}

void kaOSGWidget::setImageSamples(int samples) {
    _viewport->setImageSamples(samples);
}

void kaOSGWidget::activateRenderRoots() {
    // The cluster window shows the same viewport: it renders the view's scene on the nodes.
    if (_clusterWindow) {
        _clusterWindow->setClusterViewport(_viewport);
        _renderAction->setRoots({_clusterWindow});
    } else {
        _renderAction->setRoots({_window});
    }
}

void kaOSGWidget::deactivateRenderRoots() {
    _renderAction->setRoots({});
}
