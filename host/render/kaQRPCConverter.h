#pragma once

#include "OSGNode.h"

#include <cstdint>

// Turns the ids that services hand out into scene-graph objects.
class kaQRPCConverter {
public:
    // The node with that id (its low 32 bits are the field container id); null when there is
    // no such node.
    static osg::NodePtr idToNode(uint64_t id);
    static uint64_t nodeToId(const osg::NodePtr& node);
};
