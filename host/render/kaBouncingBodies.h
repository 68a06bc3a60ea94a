#pragma once

#include "OSGNodeCores.h"

#include <vector>

// A small simulation: balls falling under gravity and bouncing off the ground (y = 0) with
// some loss. It steps in fixed steps of 1/240 s up to the simulation time, so the picture at a
// time depends on everything before it. Runs as a behaviour of kaController while simulation
// is enabled. GUI thread only.
class kaBouncingBodies {
public:
    struct Body {
        osg::TransformPtr transform;
        float radius;
        osg::Pnt3f position;
        osg::Vec3f velocity;
    };
    static constexpr double kStep = 1.0 / 240.0;

    kaBouncingBodies();
    ~kaBouncingBodies();
    void addBody(const osg::TransformPtr& transform, float radius, const osg::Pnt3f& position,
                 const osg::Vec3f& velocity);
    // Steps from the current time to 'time' (going back starts over from the beginning).
    void stepTo(double time);
    double getTime() const { return _time; }
    const std::vector<Body>& getBodies() const { return _bodies; }

private:
    void step();
    std::vector<Body> _bodies, _start;
    double _time = 0.0;
    int _hook = 0;
};
