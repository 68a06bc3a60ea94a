#pragma once

#include "OSGNode.h"

#include <functional>

namespace osg {

// A node that only groups its children.
class Group : public NodeCore {
public:
    static RefPtr<Group> create() { return RefPtr<Group>(new Group()); }
    const char* getTypeName() const override { return "Group"; }

private:
    Group() = default;
};
using GroupPtr = RefPtr<Group>;

// Moves its children by a matrix.
class Transform : public NodeCore {
public:
    enum : BitVector { MatrixFieldMask = 1 << 0 };
    static RefPtr<Transform> create(const Matrix& matrix = Matrix());
    const char* getTypeName() const override { return "Transform"; }
    const Matrix& getMatrix() const { return _matrix; }
    void setMatrix(const Matrix& matrix);
    Matrix getLocalMatrix() const override { return _matrix; }

private:
    Transform() = default;
    Matrix _matrix;
};
using TransformPtr = RefPtr<Transform>;

// Shows one of its children, all or none.
class Switch : public NodeCore {
public:
    enum : BitVector { ChoiceFieldMask = 1 << 0 };
    static constexpr int ALL = -2;
    static constexpr int NONE = -1;
    static RefPtr<Switch> create(int choice = ALL);
    const char* getTypeName() const override { return "Switch"; }
    int getChoice() const { return _choice; }
    void setChoice(int choice);

private:
    Switch() = default;
    int _choice = ALL;
};
using SwitchPtr = RefPtr<Switch>;

// A camera placed in the scene: it looks down its node's -Z axis with +Y up, in perspective or,
// with an orthographic height, along parallel rays (plans, elevations).
class CameraCore : public NodeCore {
public:
    enum : BitVector {
        FovFieldMask = 1 << 0,
        NearFieldMask = 1 << 1,
        FarFieldMask = 1 << 2,
        OrthographicHeightFieldMask = 1 << 3
    };
    static RefPtr<CameraCore> create(float fovDegrees = 45.0f, float nearPlane = 0.1f,
                                     float farPlane = 1000.0f);
    const char* getTypeName() const override { return "CameraCore"; }
    // Vertical field of view in degrees.
    float getFov() const { return _fov; }
    void setFov(float degrees);
    float getNear() const { return _near; }
    void setNear(float nearPlane);
    float getFar() const { return _far; }
    void setFar(float farPlane);
    // The height the picture shows, in scene units, for an orthographic camera; 0 for a
    // perspective one.
    float getOrthographicHeight() const { return _orthographicHeight; }
    void setOrthographicHeight(float height);

private:
    CameraCore() = default;
    float _fov = 45.0f, _near = 0.1f, _far = 1000.0f, _orthographicHeight = 0.0f;
};
using CameraCorePtr = RefPtr<CameraCore>;

// Calls 'visit' for every shown node below 'root', root first, depth first: inactive nodes
// hide what is below them, and a switch shows only its chosen children. 'world' is the node's
// placement in the root's space, its own core's matrix included.
void forEachShownNode(const NodePtr& root,
                      const std::function<void(const NodePtr& node, const Matrix& world)>& visit);

} // namespace osg
