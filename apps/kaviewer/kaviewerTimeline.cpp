#include "kaviewerTimeline.h"

#include "kaAnimManager.h"
#include "kaConstraintManager.h"
#include "kaController.h"
#include "kaSimulationTime.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QSlider>
#include <QStyle>
#include <QToolButton>

#include <algorithm>
#include <cmath>

namespace kaviewer {

namespace {
double frameTime() {
    return 1.0 / std::max(kaAnimManager::getFramesPerSecond(), 1.0);
}
} // namespace

Timeline::Timeline(QWidget* parent)
    : QWidget(parent) {
    setObjectName("timeline");
    _play = new QToolButton;
    _play->setObjectName("play");
    _play->setCheckable(true);
    _play->setIcon(style()->standardIcon(QStyle::SP_MediaPlay));
    _play->setToolTip("Play / pause");
    _slider = new QSlider(Qt::Horizontal);
    _slider->setObjectName("frameSlider");
    _slider->setRange(0, 100);
    _label = new QLabel;
    _label->setObjectName("frame");
    _label->setMinimumWidth(90);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(4, 2, 4, 2);
    layout->addWidget(_play);
    layout->addWidget(_slider, 1);
    layout->addWidget(_label);

    connect(_play, &QToolButton::toggled, this, [this](bool on) { on ? play() : pause(); });
    connect(_slider, &QSlider::valueChanged, this, &Timeline::goTo);
    connect(&_timer, &QTimer::timeout, this, [this] {
        // Exports stop the host's timers while they drive time themselves.
        if (kaController::getTimerLoops() && !kaController::isSnapshotRendering())
            step();
    });
    showFrame(kaAnimManager::getCurrentFrame());
}

int Timeline::frame() const {
    return kaAnimManager::getCurrentFrame();
}

int Timeline::lastFrame() const {
    return _slider->maximum();
}

void Timeline::setLastFrame(int frame) {
    _slider->setMaximum(std::max(frame, 1));
}

void Timeline::play() {
    _timer.start(int(std::lround(frameTime() * 1000.0)));
    const QSignalBlocker block(_play);
    _play->setChecked(true);
    _play->setIcon(style()->standardIcon(QStyle::SP_MediaPause));
}

void Timeline::pause() {
    _timer.stop();
    const QSignalBlocker block(_play);
    _play->setChecked(false);
    _play->setIcon(style()->standardIcon(QStyle::SP_MediaPlay));
}

void Timeline::showFrame(int frame) {
    const QSignalBlocker block(_slider);
    _slider->setValue(frame);
    _label->setText(QString("Frame %1").arg(frame));
}

void Timeline::goTo(int frame) {
    kaAnimManager::setCurrentFrame(frame, true, false);
    kaConstraintManager::evaluateConstraints();
    showFrame(frame);
    emit changed();
}

void Timeline::step() {
    const int next = frame() >= lastFrame() ? 0 : frame() + 1;
    kaSimulationTime* clock = kaController::getSimulationTimer();
    clock->set(clock->get() + frameTime());
    kaController::callLoopCBs();
    kaController::updateBehavior(false);
    goTo(next);
}

Timeline::Moment Timeline::moment() const {
    return {frame(), kaController::getSimulationTimer()->get()};
}

void Timeline::restore(const Moment& moment) {
    kaSimulationTime* clock = kaController::getSimulationTimer();
    // Going back in time starts the simulation over; it then steps as playing stepped it.
    double time = 0.0;
    clock->set(time);
    kaController::updateBehavior(true);
    const double frame = frameTime();
    while (time + frame <= moment.time + 1e-9) {
        time += frame;
        clock->set(time);
        kaController::updateBehavior(true);
    }
    clock->set(moment.time);
    kaController::updateBehavior(true);
    goTo(moment.frame);
}

void Timeline::sync() {
    showFrame(frame());
}

} // namespace kaviewer
