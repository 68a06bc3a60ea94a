#include "kaQRPCConverter.h"

osg::NodePtr kaQRPCConverter::idToNode(uint64_t id) {
    return osg::dynamic_pointer_cast<osg::Node>(
        osg::FieldContainerFactory::the().getContainer(uint32_t(id & 0xFFFFFFFFu)));
}

uint64_t kaQRPCConverter::nodeToId(const osg::NodePtr& node) {
    return node ? node->getId() : 0;
}
