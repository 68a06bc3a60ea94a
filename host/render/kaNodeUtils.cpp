#include "kaNodeUtils.h"

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
