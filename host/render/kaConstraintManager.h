#pragma once

#include "OSGNode.h"
#include "OSGNodeCores.h"

#include <vector>

// Rules that keep scene objects related (a spotlight aimed at a car): evaluated after the
// animation has moved things. GUI thread only.
class kaConstraintManager {
public:
    // Keeps 'follower' (whose core must be a transform) at its place, turned so that its -Z
    // axis points at 'target'. Returns an id for removeConstraint.
    static int addLookAtConstraint(const osg::NodePtr& follower, const osg::NodePtr& target);
    // Keeps 'follower' (whose core must be a transform) at 'target's place plus 'offset' (in
    // world space), turned as it is. Returns an id for removeConstraint.
    static int addPositionConstraint(const osg::NodePtr& follower, const osg::NodePtr& target,
                                     const osg::Vec3f& offset);
    static void removeConstraint(int id);
    // Applies every constraint, in the order they were added.
    static void evaluateConstraints();
};
