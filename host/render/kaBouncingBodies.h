#pragma once

#include "OSGNodeCores.h"

#include <vector>

// A small simulation: balls falling under gravity and bouncing off the ground (y = 0) with
// some loss. Like the physics of an interactive host it steps in fixed steps of 1/240 s towards
// the simulation time, but never more than kMaxAdvance seconds per behaviour update: when the
// clock jumps further (a stalled host, a jump in the timeline) the rest is dropped, so that the
// view keeps up. The state at a time therefore depends on every update before it: an export
// that wants frame N as a user saw it playing must step frame by frame from the start. Runs as
// a behaviour of kaController while simulation is enabled. GUI thread only.
class kaBouncingBodies {
public:
    struct Body {
        osg::TransformPtr transform;
        float radius;
        osg::Pnt3f position;
        osg::Vec3f velocity;
    };
    static constexpr double kStep = 1.0 / 240.0;
    static constexpr double kMaxAdvance = 0.1;

    kaBouncingBodies();
    ~kaBouncingBodies();
    void addBody(const osg::TransformPtr& transform, float radius, const osg::Pnt3f& position,
                 const osg::Vec3f& velocity);
    // Steps from the current time towards 'time', at most kMaxAdvance (going back starts over
    // from the beginning).
    void stepTo(double time);
    double getTime() const { return _time; }
    const std::vector<Body>& getBodies() const { return _bodies; }

private:
    void step();
    std::vector<Body> _bodies, _start;
    double _time = 0.0;
    int _hook = 0;
};
