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

void CameraCore::setOrthographicHeight(float height) {
    _orthographicHeight = height;
    recordChange(RefPtr<CameraCore>(this), OrthographicHeightFieldMask);
}

namespace {
void visitShown(const NodePtr& node, const Matrix& parent,
                const std::function<void(const NodePtr&, const Matrix&)>& visit) {
    if (!node || !node->getActive())
        return;
    const NodeCore* core = node->getCore().get();
    const Matrix world = core ? parent * core->getLocalMatrix() : parent;
    visit(node, world);
    const auto* choice = dynamic_cast<const Switch*>(core);
    for (size_t i = 0; i < node->getNChildren(); ++i)
        if (!choice || choice->getChoice() == Switch::ALL || choice->getChoice() == int(i))
            visitShown(node->getChild(i), world, visit);
}
} // namespace

void forEachShownNode(const NodePtr& root,
                      const std::function<void(const NodePtr& node, const Matrix& world)>& visit) {
    visitShown(root, Matrix(), visit);
}

} // namespace osg
