#pragma once

#include "OSGChangeList.h"
#include "OSGFieldContainer.h"
#include "OSGMatrix.h"

#include <string>
#include <vector>

namespace osg {

class Node;
class NodeCore;
using NodePtr = RefPtr<Node>;
using NodeCorePtr = RefPtr<NodeCore>;

// What a node is (a group, a transform, a switch, a camera, geometry...). A core may be shared
// by several nodes.
class NodeCore : public FieldContainer {
public:
    // The core's contribution to the transformation from its node's children to its node's
    // parent; the identity for cores that don't move things.
    virtual Matrix getLocalMatrix() const { return Matrix(); }
};

// One place in the scene tree: a core, a name, children, and whether it is shown.
// Changing a node records the change in the current change list. GUI thread only.
class Node : public FieldContainer {
public:
    enum : BitVector {
        CoreFieldMask = 1 << 0,
        ChildrenFieldMask = 1 << 1,
        NameFieldMask = 1 << 2,
        ActiveFieldMask = 1 << 3,
    };

    static NodePtr create(const NodeCorePtr& core = NodeCorePtr(), const std::string& name = "");
    const char* getTypeName() const override { return "Node"; }

    const NodeCorePtr& getCore() const { return _core; }
    void setCore(const NodeCorePtr& core);
    const std::string& getName() const { return _name; }
    void setName(const std::string& name);
    // Whether the node and what is below it is shown.
    bool getActive() const { return _active; }
    void setActive(bool active);

    // Adds 'child' at the end; it leaves its former parent first.
    void addChild(const NodePtr& child);
    bool subChild(const NodePtr& child);
    size_t getNChildren() const { return _children.size(); }
    const NodePtr& getChild(size_t index) const { return _children.at(index); }
    // Null for a root.
    Node* getParent() const { return _parent; }

    // From this node's space to the root's: the local matrices of this node's core and of all
    // its ancestors' cores.
    Matrix getToWorld() const;
    // Shown when it and all its ancestors are active.
    bool isShown() const;

    ~Node() override;

private:
    Node() = default;

    NodeCorePtr _core;
    std::string _name;
    bool _active = true;
    std::vector<NodePtr> _children;
    Node* _parent = nullptr;
};

// Every node of the tree below 'root', 'root' first, depth first.
std::vector<NodePtr> collectNodes(const NodePtr& root);

} // namespace osg
