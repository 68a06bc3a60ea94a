#include "kaNodeUtils.h"

#include "OSGAnimNodeBase.h"

namespace {
osg::NodePtr& sceneRoot() {
    static osg::NodePtr root;
    return root;
}
} // namespace

osg::NodePtr kaNodeUtils::getSceneRoot() {
    return sceneRoot();
}
void kaNodeUtils::setSceneRoot(const osg::NodePtr& root) {
    sceneRoot() = root;
}
std::vector<osg::NodePtr> kaNodeUtils::getSceneNodes() {
    return osg::collectNodes(sceneRoot());
}

std::string kaNodeUtils::getName(const osg::FieldContainerPtr& container) {
    if (const auto* node = dynamic_cast<const osg::Node*>(container.get()))
        return node->getName();
    if (const auto* animation = dynamic_cast<const osg::AnimNodeBase*>(container.get()))
        return animation->getName();
    return std::string();
}
