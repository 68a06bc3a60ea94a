#include "kaBouncingBodies.h"

#include "kaController.h"
#include "kaSimulationTime.h"

#include <algorithm>

kaBouncingBodies::kaBouncingBodies() {
    _hook = kaController::addBehavior([this](bool) {
        if (kaController::isSimulationEnable())
            stepTo(kaSimulationTime::getTime());
    });
}

kaBouncingBodies::~kaBouncingBodies() {
    kaController::removeHook(_hook);
}

void kaBouncingBodies::addBody(const osg::TransformPtr& transform, float radius,
                               const osg::Pnt3f& position, const osg::Vec3f& velocity) {
    _bodies.push_back({transform, radius, position, velocity});
    _start = _bodies;
    transform->setMatrix(osg::Matrix::translation(position.x, position.y, position.z));
}

void kaBouncingBodies::step() {
    const float dt = float(kStep), gravity = -9.81f, bounce = 0.8f;
    for (Body& b : _bodies) {
        b.velocity.y += gravity * dt;
        b.position = {b.position.x + b.velocity.x * dt, b.position.y + b.velocity.y * dt,
                      b.position.z + b.velocity.z * dt};
        if (b.position.y < b.radius && b.velocity.y < 0.0f) {
            b.position.y = b.radius;
            b.velocity.y = -b.velocity.y * bounce;
        }
    }
}

void kaBouncingBodies::stepTo(double time) {
    if (time < _time) {
        _bodies = _start;
        _time = 0.0;
    }
    const double reachable = std::min(time, _time + kMaxAdvance);
    while (_time + kStep <= reachable + 1e-9) {
        step();
        _time += kStep;
    }
    if (reachable < time)
        _time = time; // what could not be stepped is dropped, not caught up later
    for (const Body& b : _bodies)
        b.transform->setMatrix(osg::Matrix::translation(b.position.x, b.position.y, b.position.z));
}
