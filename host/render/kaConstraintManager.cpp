#include "kaConstraintManager.h"

#include <map>

namespace {
struct Constraint {
    enum Kind { LookAt, Position } kind;
    osg::NodePtr follower, target;
    osg::Vec3f offset;
};
std::map<int, Constraint>& constraints() {
    static std::map<int, Constraint> c;
    return c;
}
int g_nextId = 1;
} // namespace

int kaConstraintManager::addLookAtConstraint(const osg::NodePtr& follower,
                                             const osg::NodePtr& target) {
    const int id = g_nextId++;
    constraints()[id] = {Constraint::LookAt, follower, target, {0, 0, 0}};
    return id;
}

int kaConstraintManager::addPositionConstraint(const osg::NodePtr& follower,
                                               const osg::NodePtr& target,
                                               const osg::Vec3f& offset) {
    const int id = g_nextId++;
    constraints()[id] = {Constraint::Position, follower, target, offset};
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
        const osg::Matrix world = c.follower->getToWorld();
        const osg::Pnt3f from = world.transformPoint({0, 0, 0});
        const osg::Pnt3f to = c.target->getToWorld().transformPoint({0, 0, 0});
        osg::Matrix parent;
        if (c.follower->getParent())
            parent = c.follower->getParent()->getToWorld();
        osg::Matrix toParent;
        parent.invert(toParent);
        if (c.kind == Constraint::LookAt) {
            transform->setMatrix(toParent * osg::Matrix::lookAt(from, to, {0, 1, 0}));
        } else {
            // The world matrix moved so that its origin lands on the target plus the offset.
            const osg::Vec3f move{to.x + c.offset.x - from.x, to.y + c.offset.y - from.y,
                                  to.z + c.offset.z - from.z};
            transform->setMatrix(toParent * osg::Matrix::translation(move.x, move.y, move.z) *
                                 world);
        }
    }
}
