#include "kaviewerNavigator.h"

#include <algorithm>
#include <cmath>

namespace kaviewer {

namespace {

osg::Vec3f between(const osg::Pnt3f& from, const osg::Pnt3f& to) {
    return {to.x - from.x, to.y - from.y, to.z - from.z};
}

osg::Pnt3f moved(const osg::Pnt3f& p, const osg::Vec3f& v, float by = 1.0f) {
    return {p.x + v.x * by, p.y + v.y * by, p.z + v.z * by};
}

float length(const osg::Vec3f& v) {
    return std::sqrt(osg::dot(v, v));
}

// Closest a camera orbiting the pivot comes to looking straight up or down (radians).
constexpr float kPoleMargin = 0.01f;

} // namespace

void Navigator::setPose(const osg::Matrix& pose, float distance) {
    _pose = pose;
    const osg::Pnt3f eye = pose.transformPoint({0, 0, 0});
    const osg::Vec3f ahead = osg::normalize(pose.transformVector({0, 0, -1}));
    _pivot = moved(eye, ahead, std::max(distance, 1e-4f));
}

float Navigator::distance() const {
    return length(between(_pose.transformPoint({0, 0, 0}), _pivot));
}

void Navigator::lookAtPivot(const osg::Pnt3f& eye, const osg::Vec3f& up) {
    _pose = osg::Matrix::lookAt(eye, _pivot, up);
}

void Navigator::orbit(float yaw, float pitch) {
    const osg::Pnt3f eye = _pose.transformPoint({0, 0, 0});
    osg::Vec3f offset = between(_pivot, eye);
    const float radius = length(offset);
    if (radius <= 0.0f)
        return;
    // The angle above the horizon, kept off the poles so that "up" stays defined.
    const float elevation = std::asin(std::clamp(offset.y / radius, -1.0f, 1.0f));
    const float limit = float(M_PI) / 2.0f - kPoleMargin;
    const float newElevation = std::clamp(elevation + pitch, -limit, limit);
    const float azimuth = std::atan2(offset.x, offset.z) + yaw;
    const float horizontal = radius * std::cos(newElevation);
    offset = {horizontal * std::sin(azimuth), radius * std::sin(newElevation),
              horizontal * std::cos(azimuth)};
    lookAtPivot(moved(_pivot, offset), {0, 1, 0});
}

void Navigator::pan(float dx, float dy, float fovDegrees, float orthographicHeight) {
    const float height = orthographicHeight > 0.0f
                             ? orthographicHeight
                             : 2.0f * distance() * std::tan(fovDegrees * float(M_PI) / 360.0f);
    const osg::Vec3f right = osg::normalize(_pose.transformVector({1, 0, 0}));
    const osg::Vec3f up = osg::normalize(_pose.transformVector({0, 1, 0}));
    const osg::Vec3f shift{(right.x * dx + up.x * dy) * height, (right.y * dx + up.y * dy) * height,
                           (right.z * dx + up.z * dy) * height};
    _pivot = moved(_pivot, shift);
    osg::Matrix pose = osg::Matrix::translation(shift.x, shift.y, shift.z) * _pose;
    _pose = pose;
}

void Navigator::dolly(float factor) {
    if (!(factor > 0.0f))
        return;
    const osg::Pnt3f eye = _pose.transformPoint({0, 0, 0});
    const osg::Vec3f offset = between(_pivot, eye);
    const osg::Vec3f up = _pose.transformVector({0, 1, 0});
    // Never onto the pivot itself: the view direction would be lost.
    const float scale = length(offset) * factor < 1e-4f ? 1.0f : factor;
    lookAtPivot(moved(_pivot, offset, scale), up);
}

} // namespace kaviewer
