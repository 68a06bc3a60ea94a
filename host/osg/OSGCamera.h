#pragma once

#include "OSGChangeList.h"
#include "OSGFieldContainer.h"
#include "OSGMatrix.h"
#include "OSGNode.h"

namespace osg {

class Camera;
using CameraPtr = RefPtr<Camera>;

// Turns the world into an image: the viewing matrix (world to eye space, the eye looking down
// -Z with +Y up) and the projection matrix (eye space to OpenGL clip space) for an image of a
// given size in pixels. GUI thread only.
class Camera : public FieldContainer {
public:
    enum : BitVector { BeaconFieldMask = 1 << 0, NearFieldMask = 1 << 1, FarFieldMask = 1 << 2 };

    virtual Matrix getProjection(uint32_t width, uint32_t height) const = 0;
    virtual Matrix getViewing(uint32_t width, uint32_t height) const = 0;
    // The node whose world pose is the camera's pose (its -Z is the viewing direction).
    virtual NodePtr getBeacon() const = 0;
    virtual float getNear() const = 0;
    virtual float getFar() const = 0;

    // The tone-mapping settings of this camera; null when it has none. Decorators answer with
    // their decoratee's.
    virtual FieldContainerPtr getTonemappingSettings() const { return _tonemapping; }
    void setTonemappingSettings(const FieldContainerPtr& settings) { _tonemapping = settings; }

private:
    FieldContainerPtr _tonemapping;
};

// The OpenGL projection of the frustum (l, r, b, t at the near plane, n, f).
Matrix frustumMatrix(float left, float right, float bottom, float top, float nearPlane,
                     float farPlane);
// The OpenGL projection of the box (l, r, b, t, n, f) seen along parallel rays.
Matrix orthographicMatrix(float left, float right, float bottom, float top, float nearPlane,
                          float farPlane);

// A pinhole camera with a vertical field of view, or an orthographic one.
class PerspectiveCamera : public Camera {
public:
    enum : BitVector {
        FovFieldMask = 1 << 3,
        AspectFieldMask = 1 << 4,
        OrthographicHeightFieldMask = 1 << 5
    };
    static RefPtr<PerspectiveCamera> create();
    const char* getTypeName() const override { return "PerspectiveCamera"; }

    Matrix getProjection(uint32_t width, uint32_t height) const override;
    Matrix getViewing(uint32_t width, uint32_t height) const override;
    NodePtr getBeacon() const override { return _beacon; }
    void setBeacon(const NodePtr& beacon);
    float getNear() const override { return _near; }
    void setNear(float nearPlane);
    float getFar() const override { return _far; }
    void setFar(float farPlane);
    // Vertical field of view in degrees.
    float getFov() const { return _fov; }
    void setFov(float degrees);
    // Width of a pixel against its height (1 for square pixels): the image's aspect is
    // width / (height * aspect).
    float getAspect() const { return _aspect; }
    void setAspect(float aspect);
    // When above 0, the camera is orthographic: its rays are parallel and the picture shows
    // this height of the scene, in scene units (the field of view is then unused).
    float getOrthographicHeight() const { return _orthographicHeight; }
    void setOrthographicHeight(float height);

private:
    PerspectiveCamera() = default;
    NodePtr _beacon;
    float _near = 0.1f, _far = 1000.0f, _fov = 45.0f, _aspect = 1.0f, _orthographicHeight = 0.0f;
};
using PerspectiveCameraPtr = RefPtr<PerspectiveCamera>;

// A camera that changes another (its decoratee): the decoratee's matrices, changed. Decorators
// chain: viewport -> tile -> stereo -> camera.
class CameraDecorator : public Camera {
public:
    enum : BitVector { DecorateeFieldMask = 1 << 5 };
    const CameraPtr& getDecoratee() const { return _decoratee; }
    void setDecoratee(const CameraPtr& decoratee);

    Matrix getProjection(uint32_t width, uint32_t height) const override;
    Matrix getViewing(uint32_t width, uint32_t height) const override;
    NodePtr getBeacon() const override;
    float getNear() const override;
    float getFar() const override;
    FieldContainerPtr getTonemappingSettings() const override;

private:
    CameraPtr _decoratee;
};
using CameraDecoratorPtr = RefPtr<CameraDecorator>;

} // namespace osg
