#include "OSGNode.h"

#include <algorithm>

namespace osg {

NodePtr Node::create(const NodeCorePtr& core, const std::string& name) {
    NodePtr node(new Node());
    node->_core = core;
    node->_name = name;
    return node;
}

Node::~Node() {
    for (NodePtr& child : _children)
        child->_parent = nullptr;
}

void Node::setCore(const NodeCorePtr& core) {
    _core = core;
    recordChange(NodePtr(this), CoreFieldMask);
}

void Node::setName(const std::string& name) {
    _name = name;
    recordChange(NodePtr(this), NameFieldMask);
}

void Node::setActive(bool active) {
    _active = active;
    recordChange(NodePtr(this), ActiveFieldMask);
}

void Node::addChild(const NodePtr& child) {
    if (!child || child.get() == this)
        return;
    NodePtr keep = child; // survives leaving its old parent
    if (child->_parent)
        child->_parent->subChild(child);
    child->_parent = this;
    _children.push_back(child);
    recordChange(NodePtr(this), ChildrenFieldMask);
}

bool Node::subChild(const NodePtr& child) {
    auto it = std::find(_children.begin(), _children.end(), child);
    if (it == _children.end())
        return false;
    (*it)->_parent = nullptr;
    _children.erase(it);
    recordChange(NodePtr(this), ChildrenFieldMask);
    return true;
}

Matrix Node::getToWorld() const {
    Matrix world = _core ? _core->getLocalMatrix() : Matrix();
    for (const Node* n = _parent; n; n = n->_parent)
        if (n->_core)
            world = n->_core->getLocalMatrix() * world;
    return world;
}

bool Node::isShown() const {
    for (const Node* n = this; n; n = n->_parent)
        if (!n->_active)
            return false;
    return true;
}

std::vector<NodePtr> collectNodes(const NodePtr& root) {
    std::vector<NodePtr> nodes;
    if (!root)
        return nodes;
    std::vector<NodePtr> stack{root};
    while (!stack.empty()) {
        NodePtr node = stack.back();
        stack.pop_back();
        nodes.push_back(node);
        for (size_t i = node->getNChildren(); i-- > 0;)
            stack.push_back(node->getChild(i));
    }
    return nodes;
}

} // namespace osg
