#include "kaexportHost.h"

#include "OSGGeometry.h"
#include "OSGNodeCores.h"
#include "kaBuiltinScene.h"
#include "kaController.h"
#include "kaFileIO.h"
#include "kaNodeUtils.h"
#include "kaOSGWidget.h"
#include "kaSceneImport.h"

#include <QApplication>
#include <QDialog>
#include <QSocketNotifier>
#include <QWidget>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace kaexport {

namespace {

int g_signalPipe[2] = {-1, -1};
bool g_interrupted = false;

void onSigint(int) {
    const char byte = 1;
    // Only async-signal-safe calls here: the GUI thread reads the pipe.
    [[maybe_unused]] ssize_t written = ::write(g_signalPipe[1], &byte, 1);
}

// The progress display: a bar on a terminal, a line per whole percent otherwise.
int g_lastPercent = -1;
bool g_barOpen = false; // a bar is on the terminal's last line, without its line break

void drawBar(int percent) {
    const int filled = percent / 5;
    std::fprintf(stderr, "\r[%.*s%.*s] %3d%%", filled, "####################", 20 - filled,
                 "....................", percent);
    g_barOpen = true;
}

void showProgress(double progress) {
    const int percent = std::clamp(int(progress * 100.0 + 0.5), 0, 100);
    if (percent == g_lastPercent)
        return;
    g_lastPercent = percent;
    if (isatty(fileno(stderr)))
        drawBar(percent);
    else
        std::fprintf(stderr, "progress %d%%\n", percent);
    std::fflush(stderr);
}

// Aborts the render dialog that is running, as its Abort button would.
void abortRunningRender() {
    g_interrupted = true;
    std::fprintf(stderr, "%skaexport: interrupted, stopping the render\n", g_barOpen ? "\n" : "");
    g_barOpen = false;
    for (QWidget* widget : QApplication::topLevelWidgets())
        if (widget->objectName() == "ImageRenderWidget" && widget->isVisible())
            static_cast<QDialog*>(widget)->reject();
}

// Looks through the scene's first camera; without one, from in front of everything it holds.
void frameScene(kaOSGWidget& view, const osg::NodePtr& scene) {
    auto beacon = osg::dynamic_pointer_cast<osg::Transform>(view.getCameraBeacon()->getCore());
    osg::Pnt3f low{1e30f, 1e30f, 1e30f}, high{-1e30f, -1e30f, -1e30f};
    for (const osg::NodePtr& node : osg::collectNodes(scene)) {
        if (auto camera = osg::dynamic_pointer_cast<osg::CameraCore>(node->getCore())) {
            beacon->setMatrix(node->getToWorld());
            view.getCamera()->setFov(camera->getFov());
            view.getCamera()->setNear(camera->getNear());
            view.getCamera()->setFar(camera->getFar());
            return;
        }
        if (auto geometry = osg::dynamic_pointer_cast<osg::Geometry>(node->getCore())) {
            const osg::Matrix world = node->getToWorld();
            for (const osg::Pnt3f& p : geometry->getMesh().positions) {
                const osg::Pnt3f w = world.transformPoint(p);
                low = {std::min(low.x, w.x), std::min(low.y, w.y), std::min(low.z, w.z)};
                high = {std::max(high.x, w.x), std::max(high.y, w.y), std::max(high.z, w.z)};
            }
        }
    }
    if (low.x > high.x)
        return; // nothing to see
    const osg::Pnt3f centre{(low.x + high.x) / 2, (low.y + high.y) / 2, (low.z + high.z) / 2};
    const float radius = std::max(0.5f * std::sqrt((high.x - low.x) * (high.x - low.x) +
                                                   (high.y - low.y) * (high.y - low.y) +
                                                   (high.z - low.z) * (high.z - low.z)),
                                  1e-3f);
    const float distance = radius / std::tan(view.getCamera()->getFov() * float(M_PI) / 360.0f);
    beacon->setMatrix(osg::Matrix::lookAt({centre.x, centre.y + radius * 0.3f, centre.z + distance},
                                          centre, {0, 1, 0}));
    view.getCamera()->setNear(distance / 100.0f);
    view.getCamera()->setFar(distance + radius * 4.0f);
}

} // namespace

Host::Host()
    : _view(std::make_unique<kaOSGWidget>()) {
    kaOSGWidget::setMainView(_view.get());
    _view->setSize(1280, 720);
    _progressListener = kaController::addProgressListener(showProgress);
    if (g_signalPipe[0] < 0 && ::pipe(g_signalPipe) == 0) {
        auto* notifier = new QSocketNotifier(g_signalPipe[0], QSocketNotifier::Read, qApp);
        QObject::connect(notifier, &QSocketNotifier::activated, [] {
            char byte;
            [[maybe_unused]] ssize_t read = ::read(g_signalPipe[0], &byte, 1);
            abortRunningRender();
        });
        std::signal(SIGINT, onSigint);
    }
}

Host::~Host() {
    kaController::removeProgressListener(_progressListener);
    _builtin.reset();
    kaOSGWidget::setMainView(nullptr);
}

bool Host::loadScene(const QString& sceneFile, QString& error) {
    if (sceneFile.isEmpty()) {
        _builtin = std::make_unique<kaBuiltinScene>(*_view);
        return true;
    }
    osg::NodePtr scene = kaSceneImport::load(sceneFile, error);
    if (!scene)
        return false;
    _view->setSceneRoot(scene);
    kaNodeUtils::setSceneRoot(scene);
    kaFileIO::setFilename(sceneFile);
    frameScene(*_view, scene);
    return true;
}

bool Host::interrupted() {
    return g_interrupted;
}

void Host::finishProgress(bool complete) {
    if (complete && g_lastPercent >= 0 && g_lastPercent < 100)
        showProgress(1.0);
    if (g_barOpen)
        std::fputc('\n', stderr);
    g_barOpen = false;
    g_lastPercent = -1;
    std::fflush(stderr);
}

} // namespace kaexport
