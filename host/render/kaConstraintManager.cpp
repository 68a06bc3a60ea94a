#include "kaConstraintManager.h"

#include <map>

namespace {
struct LookAt {
    osg::NodePtr follower, target;
};
std::map<int, LookAt>& constraints() {
    static std::map<int, LookAt> c;
    return c;
}
int g_nextId = 1;
} // namespace

int kaConstraintManager::addLookAtConstraint(const osg::NodePtr& follower,
                                             const osg::NodePtr& target) {
    const int id = g_nextId++;
    constraints()[id] = {follower, target};
    return id;
}

void kaConstraintManager::removeConstraint(int id) {
    constraints().erase(id);
}

void kaConstraintManager::evaluateConstraints() {
    for (auto& [id, c] : constraints()) {
        auto transform = osg::dynamic_pointer_cast<osg::Transform>(c.follower->getCore());
        if (!transform || !c.target)
            continue;
        const osg::Pnt3f from = c.follower->getToWorld().transformPoint({0, 0, 0});
        const osg::Pnt3f to = c.target->getToWorld().transformPoint({0, 0, 0});
        osg::Matrix parent;
        if (c.follower->getParent())
            parent = c.follower->getParent()->getToWorld();
        osg::Matrix toParent;
        parent.invert(toParent);
        transform->setMatrix(toParent * osg::Matrix::lookAt(from, to, {0, 1, 0}));
    }
}
