#pragma once

#include "OSGMatrix.h"

namespace kaviewer {

// Moves a camera the way mouse drags do in a 3D viewer: it turns around a pivot point it looks
// at, slides across the view with the pivot, and moves towards or away from it. The pose is
// the camera's placement in the world (its local -Z looks ahead, +Y is up).
class Navigator {
public:
    // Takes the camera's pose; the pivot is the point straight ahead at 'distance'.
    void setPose(const osg::Matrix& pose, float distance);
    const osg::Matrix& pose() const { return _pose; }
    osg::Pnt3f pivot() const { return _pivot; }
    float distance() const;

    // Turns around the pivot: 'yaw' radians about the world's up axis, 'pitch' about the
    // camera's right axis. The camera never tips over the poles.
    void orbit(float yaw, float pitch);
    // Slides camera and pivot across the view: 'dx' and 'dy' are fractions of the view's height
    // at the pivot's distance seen through a vertical field of view of 'fovDegrees' (or, for an
    // orthographic camera, of 'orthographicHeight').
    void pan(float dx, float dy, float fovDegrees, float orthographicHeight = 0.0f);
    // Moves towards the pivot: the distance to it is multiplied by 'factor' (> 0).
    void dolly(float factor);

private:
    void lookAtPivot(const osg::Pnt3f& eye, const osg::Vec3f& up);

    osg::Matrix _pose;
    osg::Pnt3f _pivot;
};

} // namespace kaviewer
