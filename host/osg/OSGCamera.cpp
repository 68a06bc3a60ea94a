#include "OSGCamera.h"

#include <cmath>

namespace osg {

Matrix frustumMatrix(float l, float r, float b, float t, float n, float f) {
    Matrix m;
    m.m[0][0] = 2.0f * n / (r - l);
    m.m[0][2] = (r + l) / (r - l);
    m.m[1][1] = 2.0f * n / (t - b);
    m.m[1][2] = (t + b) / (t - b);
    m.m[2][2] = -(f + n) / (f - n);
    m.m[2][3] = -2.0f * f * n / (f - n);
    m.m[3][2] = -1.0f;
    m.m[3][3] = 0.0f;
    return m;
}

Matrix orthographicMatrix(float l, float r, float b, float t, float n, float f) {
    Matrix m;
    m.m[0][0] = 2.0f / (r - l);
    m.m[0][3] = -(r + l) / (r - l);
    m.m[1][1] = 2.0f / (t - b);
    m.m[1][3] = -(t + b) / (t - b);
    m.m[2][2] = -2.0f / (f - n);
    m.m[2][3] = -(f + n) / (f - n);
    return m;
}

RefPtr<PerspectiveCamera> PerspectiveCamera::create() {
    return RefPtr<PerspectiveCamera>(new PerspectiveCamera());
}

Matrix PerspectiveCamera::getProjection(uint32_t width, uint32_t height) const {
    const float imageAspect =
        height == 0 ? 1.0f : float(width) / (float(height) * (_aspect > 0.0f ? _aspect : 1.0f));
    if (_orthographicHeight > 0.0f) {
        const float top = _orthographicHeight / 2.0f, right = top * imageAspect;
        return orthographicMatrix(-right, right, -top, top, _near, _far);
    }
    const float top = _near * std::tan(_fov * float(M_PI) / 360.0f);
    const float right = top * imageAspect;
    return frustumMatrix(-right, right, -top, top, _near, _far);
}

Matrix PerspectiveCamera::getViewing(uint32_t, uint32_t) const {
    Matrix viewing;
    if (_beacon)
        _beacon->getToWorld().invert(viewing);
    return viewing;
}

void PerspectiveCamera::setBeacon(const NodePtr& beacon) {
    _beacon = beacon;
    recordChange(CameraPtr(this), BeaconFieldMask);
}
void PerspectiveCamera::setOrthographicHeight(float height) {
    _orthographicHeight = height;
    recordChange(CameraPtr(this), OrthographicHeightFieldMask);
}
void PerspectiveCamera::setNear(float nearPlane) {
    _near = nearPlane;
    recordChange(CameraPtr(this), NearFieldMask);
}
void PerspectiveCamera::setFar(float farPlane) {
    _far = farPlane;
    recordChange(CameraPtr(this), FarFieldMask);
}
void PerspectiveCamera::setFov(float degrees) {
    _fov = degrees;
    recordChange(CameraPtr(this), FovFieldMask);
}
void PerspectiveCamera::setAspect(float aspect) {
    _aspect = aspect;
    recordChange(CameraPtr(this), AspectFieldMask);
}

void CameraDecorator::setDecoratee(const CameraPtr& decoratee) {
    _decoratee = decoratee;
    recordChange(CameraPtr(this), DecorateeFieldMask);
}

Matrix CameraDecorator::getProjection(uint32_t width, uint32_t height) const {
    return _decoratee ? _decoratee->getProjection(width, height) : Matrix();
}
Matrix CameraDecorator::getViewing(uint32_t width, uint32_t height) const {
    return _decoratee ? _decoratee->getViewing(width, height) : Matrix();
}
NodePtr CameraDecorator::getBeacon() const {
    return _decoratee ? _decoratee->getBeacon() : NodePtr();
}
float CameraDecorator::getNear() const {
    return _decoratee ? _decoratee->getNear() : 0.1f;
}
FieldContainerPtr CameraDecorator::getTonemappingSettings() const {
    return _decoratee ? _decoratee->getTonemappingSettings() : FieldContainerPtr();
}
float CameraDecorator::getFar() const {
    return _decoratee ? _decoratee->getFar() : 1000.0f;
}

} // namespace osg
