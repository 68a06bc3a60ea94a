#pragma once

#include "OSGAnimNodeBase.h"
#include "kaBouncingBodies.h"

#include <memory>
#include <vector>

class kaOSGWidget;

// The scene the host shows when no file is given: a ground, a red glossy box moved by a
// keyframe animation ("BoxAnimation", frames 0 to 100), a metallic sphere, a lamp bright enough
// to exceed 1.0, a sun aimed at the box and a small lamp kept above it by constraints, a point
// light and sky light, a named camera ("Camera 1") and three bouncing balls simulated by the
// simulation time.
class kaBuiltinScene {
public:
    // Builds the scene into 'view' (scene root, camera pose, camera service's active camera).
    explicit kaBuiltinScene(kaOSGWidget& view);
    ~kaBuiltinScene();

    const osg::NodePtr& getRoot() const { return _root; }
    const osg::NodePtr& getCameraNode() const { return _camera; }
    const osg::TransformAnimationPtr& getAnimation() const { return _animation; }
    kaBouncingBodies& getSimulation() { return *_simulation; }

private:
    osg::NodePtr _root, _camera;
    osg::TransformAnimationPtr _animation;
    std::unique_ptr<kaBouncingBodies> _simulation;
    std::vector<int> _constraints;
};
