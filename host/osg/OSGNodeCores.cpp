#include "OSGNodeCores.h"

namespace osg {

RefPtr<Transform> Transform::create(const Matrix& matrix) {
    RefPtr<Transform> t(new Transform());
    t->_matrix = matrix;
    return t;
}

void Transform::setMatrix(const Matrix& matrix) {
    _matrix = matrix;
    recordChange(RefPtr<Transform>(this), MatrixFieldMask);
}

RefPtr<Switch> Switch::create(int choice) {
    RefPtr<Switch> s(new Switch());
    s->_choice = choice;
    return s;
}

void Switch::setChoice(int choice) {
    _choice = choice;
    recordChange(RefPtr<Switch>(this), ChoiceFieldMask);
}

RefPtr<CameraCore> CameraCore::create(float fovDegrees, float nearPlane, float farPlane) {
    RefPtr<CameraCore> c(new CameraCore());
    c->_fov = fovDegrees;
    c->_near = nearPlane;
    c->_far = farPlane;
    return c;
}

void CameraCore::setFov(float degrees) {
    _fov = degrees;
    recordChange(RefPtr<CameraCore>(this), FovFieldMask);
}

void CameraCore::setNear(float nearPlane) {
    _near = nearPlane;
    recordChange(RefPtr<CameraCore>(this), NearFieldMask);
}

void CameraCore::setFar(float farPlane) {
    _far = farPlane;
    recordChange(RefPtr<CameraCore>(this), FarFieldMask);
}

} // namespace osg
