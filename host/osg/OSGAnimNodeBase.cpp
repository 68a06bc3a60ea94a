#include "OSGAnimNodeBase.h"

#include <algorithm>
#include <cmath>

namespace osg {

void AnimNodeBase::changed(BitVector mask) {
    if (mask & LastEvaluationTimeFieldMask)
        ++_evaluationTimeChanges;
}

void AnimNodeBase::setCurrentFrameNoEvaluation(int frame, bool notify) {
    _currentFrame = frame;
    if (notify)
        recordChange(FieldContainerPtr(this), CurrentFrameFieldMask);
}

RefPtr<TransformAnimation> TransformAnimation::create(const TransformPtr& target,
                                                      const std::string& name) {
    RefPtr<TransformAnimation> a(new TransformAnimation());
    a->_target = target;
    a->setName(name);
    return a;
}

void TransformAnimation::addKey(const Key& key) {
    _keys.push_back(key);
    std::sort(_keys.begin(), _keys.end(),
              [](const Key& a, const Key& b) { return a.frame < b.frame; });
    updateCurves();
}

void TransformAnimation::updateCurves() {
    _tangents.assign(_keys.size(), Vec3f{0, 0, 0});
    for (size_t i = 0; i < _keys.size(); ++i) {
        const Pnt3f& prev = _keys[i == 0 ? i : i - 1].position;
        const Pnt3f& next = _keys[i + 1 < _keys.size() ? i + 1 : i].position;
        _tangents[i] = {(next.x - prev.x) / 2, (next.y - prev.y) / 2, (next.z - prev.z) / 2};
    }
}

void TransformAnimation::evaluate(float frame) {
    setLastEvaluationTime(frame);
    if (_keys.empty() || !_target)
        return;
    size_t i = 0;
    while (i + 1 < _keys.size() && _keys[i + 1].frame <= frame)
        ++i;
    Pnt3f position = _keys[i].position;
    float turn = _keys[i].turnDegrees;
    if (i + 1 < _keys.size() && frame > _keys[i].frame) {
        const Key &a = _keys[i], &b = _keys[i + 1];
        const float t = (frame - a.frame) / (b.frame - a.frame);
        // Cubic Hermite with Catmull-Rom tangents.
        const float t2 = t * t, t3 = t2 * t;
        const float h00 = 2 * t3 - 3 * t2 + 1, h10 = t3 - 2 * t2 + t, h01 = -2 * t3 + 3 * t2,
                    h11 = t3 - t2;
        const Vec3f &ma = _tangents[i], &mb = _tangents[i + 1];
        position = {h00 * a.position.x + h10 * ma.x + h01 * b.position.x + h11 * mb.x,
                    h00 * a.position.y + h10 * ma.y + h01 * b.position.y + h11 * mb.y,
                    h00 * a.position.z + h10 * ma.z + h01 * b.position.z + h11 * mb.z};
        turn = a.turnDegrees + (b.turnDegrees - a.turnDegrees) * t;
    }
    _target->setMatrix(Matrix::translation(position.x, position.y, position.z) *
                       Matrix::rotation({0, 1, 0}, turn * float(M_PI) / 180.0f));
}

} // namespace osg
