#include "OSGCameraDecorators.h"

namespace osg {

namespace {
Vec3f minus(const Pnt3f& a, const Pnt3f& b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
} // namespace

RefPtr<TileCameraDecorator> TileCameraDecorator::create() {
    return RefPtr<TileCameraDecorator>(new TileCameraDecorator());
}

void TileCameraDecorator::setSize(float left, float bottom, float right, float top) {
    _left = left;
    _bottom = bottom;
    _right = right;
    _top = top;
    recordChange(CameraPtr(this), SizeFieldMask);
}

void TileCameraDecorator::setFullSize(uint32_t width, uint32_t height) {
    _fullWidth = width;
    _fullHeight = height;
    recordChange(CameraPtr(this), FullSizeFieldMask);
}

Matrix TileCameraDecorator::getProjection(uint32_t, uint32_t) const {
    const Matrix full = CameraDecorator::getProjection(_fullWidth, _fullHeight);
    // Maps the tile's part of normalised device space, [2l - 1, 2r - 1] x [2b - 1, 2t - 1],
    // onto [-1, 1]^2.
    const float sx = 1.0f / (_right - _left), sy = 1.0f / (_top - _bottom);
    Matrix tile;
    tile.m[0][0] = sx;
    tile.m[0][3] = (1.0f - _left - _right) * sx;
    tile.m[1][1] = sy;
    tile.m[1][3] = (1.0f - _bottom - _top) * sy;
    return tile * full;
}

Matrix TileCameraDecorator::getViewing(uint32_t, uint32_t) const {
    return CameraDecorator::getViewing(_fullWidth, _fullHeight);
}

RefPtr<MultiStereoCameraDecorator> MultiStereoCameraDecorator::create() {
    return RefPtr<MultiStereoCameraDecorator>(new MultiStereoCameraDecorator());
}

void MultiStereoCameraDecorator::setEyeSeparation(float separation) {
    _eyeSeparation = separation;
    recordChange(CameraPtr(this), EyeSeparationFieldMask);
}
void MultiStereoCameraDecorator::setZeroParallaxDistance(float distance) {
    _zeroParallax = distance;
    recordChange(CameraPtr(this), ZeroParallaxFieldMask);
}
void MultiStereoCameraDecorator::setEyeOffset(float offset) {
    _eyeOffset = offset;
    recordChange(CameraPtr(this), EyeOffsetFieldMask);
}

Matrix MultiStereoCameraDecorator::getProjection(uint32_t width, uint32_t height) const {
    Matrix p = CameraDecorator::getProjection(width, height);
    // Moving the eye by d along x and keeping the zero-parallax plane fixed shifts normalised
    // device x by d * P[0][0] / z0: in clip space, row 0 gains that times row 3.
    const float d = _eyeOffset * _eyeSeparation;
    if (_zeroParallax > 0.0f && d != 0.0f) {
        const float shift = d * p.m[0][0] / _zeroParallax;
        for (int c = 0; c < 4; ++c)
            p.m[0][c] += shift * p.m[3][c];
    }
    return p;
}

Matrix MultiStereoCameraDecorator::getViewing(uint32_t width, uint32_t height) const {
    const float d = _eyeOffset * _eyeSeparation;
    return Matrix::translation(-d, 0.0f, 0.0f) * CameraDecorator::getViewing(width, height);
}

RefPtr<ShearedStereoCameraDecorator> ShearedStereoCameraDecorator::create() {
    return RefPtr<ShearedStereoCameraDecorator>(new ShearedStereoCameraDecorator());
}

RefPtr<ProjectionCameraDecorator> ProjectionCameraDecorator::create() {
    return RefPtr<ProjectionCameraDecorator>(new ProjectionCameraDecorator());
}

void ProjectionCameraDecorator::setEyeSeparation(float separation) {
    _eyeSeparation = separation;
    recordChange(CameraPtr(this), EyeSeparationFieldMask);
}
void ProjectionCameraDecorator::setLeftEye(bool left) {
    _leftEye = left;
    recordChange(CameraPtr(this), LeftEyeFieldMask);
}

Pnt3f ProjectionCameraDecorator::getEyePosition() const {
    const NodePtr beacon = getBeacon();
    const Matrix head = beacon ? beacon->getToWorld() : Matrix();
    const Pnt3f centre = head.transformPoint({0.0f, 0.0f, 0.0f});
    // The eyes sit along the screen's horizontal when there is a screen, else the head's.
    Vec3f across = head.transformVector({1.0f, 0.0f, 0.0f});
    if (_surface.size() >= 4)
        across = minus(_surface[1], _surface[0]);
    across = normalize(across);
    const float half = (_leftEye ? -0.5f : 0.5f) * _eyeSeparation;
    return {centre.x + across.x * half, centre.y + across.y * half, centre.z + across.z * half};
}

Matrix ProjectionCameraDecorator::getProjection(uint32_t width, uint32_t height) const {
    if (_surface.size() < 4)
        return CameraDecorator::getProjection(width, height);
    const Pnt3f eye = getEyePosition();
    const Vec3f vr = normalize(minus(_surface[1], _surface[0]));
    const Vec3f vu = normalize(minus(_surface[3], _surface[0]));
    const Vec3f vn = normalize(cross(vr, vu));
    const Vec3f va = minus(_surface[0], eye), vb = minus(_surface[1], eye),
                vc = minus(_surface[3], eye);
    const float distance = -dot(va, vn);
    const float n = getNear(), f = getFar();
    const float scale = n / distance;
    return frustumMatrix(dot(vr, va) * scale, dot(vr, vb) * scale, dot(vu, va) * scale,
                         dot(vu, vc) * scale, n, f);
}

Matrix ProjectionCameraDecorator::getViewing(uint32_t width, uint32_t height) const {
    if (_surface.size() < 4)
        return CameraDecorator::getViewing(width, height);
    // Eye space is aligned with the screen: x along its bottom edge, y up it, z out of it.
    const Pnt3f eye = getEyePosition();
    const Vec3f vr = normalize(minus(_surface[1], _surface[0]));
    const Vec3f vu = normalize(minus(_surface[3], _surface[0]));
    const Vec3f vn = normalize(cross(vr, vu));
    Matrix rotation;
    const Vec3f rows[3] = {vr, vu, vn};
    for (int r = 0; r < 3; ++r) {
        rotation.m[r][0] = rows[r].x;
        rotation.m[r][1] = rows[r].y;
        rotation.m[r][2] = rows[r].z;
    }
    return rotation * Matrix::translation(-eye.x, -eye.y, -eye.z);
}

} // namespace osg
