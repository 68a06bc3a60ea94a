#include "kaviewerView.h"

#include "OSGNodeCores.h"
#include "QImageConverter.h"
#include "kaController.h"
#include "kaOSGWidget.h"

#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace kaviewer {

namespace {

osg::TransformPtr beaconOf(kaOSGWidget& view) {
    return osg::dynamic_pointer_cast<osg::Transform>(view.getCameraBeacon()->getCore());
}

// Radians turned per pixel dragged.
constexpr float kTurnPerPixel = 0.01f;

} // namespace

View::View(kaOSGWidget& view, QWidget* parent)
    : QWidget(parent)
    , _view(view) {
    setObjectName("MainView");
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(64, 64);
    // Whatever draws the host's view (the exports' forced redraws included) shows here.
    _renderHook = kaController::addRenderHook([this](bool) { takePicture(); });
    if (osg::TransformPtr beacon = beaconOf(_view))
        _navigator.setPose(beacon->getMatrix(), 10.0f);
}

View::~View() {
    kaController::removeHook(_renderHook);
}

void View::takePicture() {
    const osg::ImagePtr& screen = _view.getScreenImage();
    if (!screen)
        return;
    QImage picture;
    if (QImageConverter::convertToQImage(picture, screen)) {
        // The view's alpha is the background's: the screen shows the colour.
        _picture = picture.convertToFormat(QImage::Format_RGB32);
        ++_pictures;
        update();
    }
}

void View::redraw() {
    if (_view.width() != width() || _view.height() != height())
        _view.setSize(std::max(width(), 1), std::max(height(), 1));
    // The main view draws through the host's loop, as it does for every other redraw.
    if (kaOSGWidget::getMGLW(-1) == &_view) {
        kaController::forceRender(true);
    } else if (_view.render()) {
        takePicture();
    }
}

void View::resetNavigation(float distance) {
    if (osg::TransformPtr beacon = beaconOf(_view))
        _navigator.setPose(beacon->getMatrix(), distance);
}

void View::applyPose() {
    if (osg::TransformPtr beacon = beaconOf(_view))
        beacon->setMatrix(_navigator.pose());
    redraw();
}

QStringList View::unusualState() const {
    QStringList lines;
    if (_view.getSnapshotMode())
        lines << "Snapshot mode";
    if (_view.isStereoEnabled())
        lines << QString("Stereo (mode %1)").arg(_view.getStereoMode());
    if (_view.isPowerwallEnabled())
        lines << "Powerwall";
    if (_view.getDrawIsolateViewOverlay())
        lines << "Isolate overlay";
    if (_view.getLightsVisible())
        lines << "Lights shown";
    if (_view.getCamerasVisible())
        lines << "Cameras shown";
    if (!_view.isRedrawEnabled())
        lines << "Redraw off";
    if (!_view.isNavigationEnabled())
        lines << "Navigation off";
    if (_view.getBackplate())
        lines << "Backplate";
    if (_view.getSceneplate())
        lines << "Sceneplate";
    if (_view.getDisplayColorspace() > 1)
        lines << QString("Display colour space %1").arg(_view.getDisplayColorspace());
    if (const osg::UberViewportPtr& viewport = _view.getViewport()) {
        if (viewport->getLeft() != 0.0f || viewport->getBottom() != 0.0f ||
            viewport->getRight() != 1.0f || viewport->getTop() != 1.0f)
            lines << QString("Viewport %1 %2 %3 %4")
                         .arg(double(viewport->getLeft()))
                         .arg(double(viewport->getBottom()))
                         .arg(double(viewport->getRight()))
                         .arg(double(viewport->getTop()));
        if (viewport->getBackground().get() != _view.getBackground().get())
            lines << "Another background";
    }
    if (const osg::Gradient2BackgroundPtr& background = _view.getBackground()) {
        if (background->getAlpha() != 1.0f)
            lines << QString("Background alpha %1").arg(double(background->getAlpha()));
        if (background->getBackplateMode())
            lines << "Background backplate mode";
    }
    return lines;
}

void View::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    if (_picture.isNull()) {
        painter.fillRect(rect(), Qt::black);
        return;
    }
    painter.drawImage(QPoint(0, 0), _picture);
    const QStringList state = unusualState();
    if (!state.isEmpty()) {
        const QString text = state.join('\n');
        const QRect box = painter.boundingRect(QRect(8, 8, width() - 16, height() - 16),
                                               Qt::AlignLeft | Qt::AlignTop, text);
        painter.fillRect(box.adjusted(-4, -2, 4, 2), QColor(0, 0, 0, 160));
        painter.setPen(QColor(255, 210, 80));
        painter.drawText(box, Qt::AlignLeft | Qt::AlignTop, text);
    }
    // A picture smaller than the widget (while it is being resized) leaves black.
    if (_picture.width() < width())
        painter.fillRect(_picture.width(), 0, width() - _picture.width(), height(), Qt::black);
    if (_picture.height() < height())
        painter.fillRect(0, _picture.height(), width(), height() - _picture.height(), Qt::black);
}

void View::resizeEvent(QResizeEvent*) {
    if (!isVisible() || kaController::isSnapshotRendering())
        return;
    redraw();
}

void View::showEvent(QShowEvent*) {
    // Resized while hidden: drawn at the size it is shown at.
    if (_picture.size() != size() && !kaController::isSnapshotRendering())
        redraw();
}

void View::mousePressEvent(QMouseEvent* event) {
    if (!_view.isNavigationEnabled() || kaController::isSnapshotRendering())
        return;
    _last = event->pos();
    if (event->button() == Qt::MiddleButton ||
        (event->button() == Qt::LeftButton && (event->modifiers() & Qt::ShiftModifier)))
        _drag = Drag::Pan;
    else if (event->button() == Qt::LeftButton)
        _drag = Drag::Orbit;
    else if (event->button() == Qt::RightButton)
        _drag = Drag::Dolly;
    // The camera may have been moved by something else (a scene loaded, an animation).
    if (_drag != Drag::None)
        if (osg::TransformPtr beacon = beaconOf(_view))
            if (!beacon->getMatrix().equals(_navigator.pose(), 1e-6f))
                _navigator.setPose(beacon->getMatrix(), _navigator.distance());
}

void View::mouseMoveEvent(QMouseEvent* event) {
    if (_drag == Drag::None)
        return;
    const QPoint delta = event->pos() - _last;
    _last = event->pos();
    if (delta.isNull())
        return;
    const float h = float(std::max(height(), 1));
    switch (_drag) {
    case Drag::Orbit:
        _navigator.orbit(-float(delta.x()) * kTurnPerPixel, float(delta.y()) * kTurnPerPixel);
        break;
    case Drag::Pan:
        // The point under the mouse stays under it.
        _navigator.pan(-float(delta.x()) / h, float(delta.y()) / h, _view.getCamera()->getFov(),
                       _view.getCamera()->getOrthographicHeight());
        break;
    case Drag::Dolly:
        _navigator.dolly(std::exp(float(delta.y()) / h * 2.0f));
        break;
    case Drag::None:
        break;
    }
    applyPose();
}

void View::mouseReleaseEvent(QMouseEvent*) {
    _drag = Drag::None;
}

void View::wheelEvent(QWheelEvent* event) {
    if (!_view.isNavigationEnabled() || kaController::isSnapshotRendering())
        return;
    // A notch (120) forwards brings the camera 15 % closer.
    const float notches = float(event->angleDelta().y()) / 120.0f;
    if (notches == 0.0f)
        return;
    _navigator.dolly(std::pow(0.85f, notches));
    applyPose();
}

} // namespace kaviewer
