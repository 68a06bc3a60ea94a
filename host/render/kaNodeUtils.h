#pragma once

#include "OSGNode.h"

#include <string>
#include <vector>

// The scene the host shows and walks over it. GUI thread only.
class kaNodeUtils {
public:
    // The root of the user's scene (not the view's helpers); null when no scene is loaded.
    static osg::NodePtr getSceneRoot();
    static void setSceneRoot(const osg::NodePtr& root);
    // The name the user gave a node or an animation; empty for other objects and for null.
    static std::string getName(const osg::FieldContainerPtr& container);
    // Every node of the scene, the root first, depth first.
    static std::vector<osg::NodePtr> getSceneNodes();
};
