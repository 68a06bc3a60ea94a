#include "kaSceneAnimation.h"

#include "kaAnimManager.h"
#include "kaAssimpMatrix.h"

#include <assimp/matrix4x4.inl>
#include <assimp/quaternion.inl>
#include <assimp/vector3.inl>

#include <algorithm>
#include <tuple>

namespace {

// The keys around 'seconds' and how far between them it lies (0 before the first key, 1 after
// the last).
template <typename Key>
std::tuple<const Key*, const Key*, float> bracket(const std::vector<Key>& keys, double seconds) {
    auto after = std::upper_bound(keys.begin(), keys.end(), seconds,
                                  [](double s, const Key& k) { return s < k.seconds; });
    if (after == keys.begin())
        return {&keys.front(), &keys.front(), 0.0f};
    if (after == keys.end())
        return {&keys.back(), &keys.back(), 0.0f};
    const Key& a = *(after - 1);
    const Key& b = *after;
    const double span = b.seconds - a.seconds;
    return {&a, &b, span > 0.0 ? float((seconds - a.seconds) / span) : 0.0f};
}

aiVector3D vectorAt(const std::vector<kaSceneAnimation::Key<kaSceneAnimation::Vector>>& keys,
                    const kaSceneAnimation::Vector& rest, double seconds) {
    if (keys.empty())
        return {rest[0], rest[1], rest[2]};
    const auto [a, b, t] = bracket(keys, seconds);
    const kaSceneAnimation::Vector &from = a->value, &to = b->value;
    return {from[0] + (to[0] - from[0]) * t, from[1] + (to[1] - from[1]) * t,
            from[2] + (to[2] - from[2]) * t};
}

aiQuaternion rotationAt(const std::vector<kaSceneAnimation::Key<kaSceneAnimation::Rotation>>& keys,
                        const kaSceneAnimation::Rotation& rest, double seconds) {
    if (keys.empty())
        return aiQuaternion(rest[0], rest[1], rest[2], rest[3]);
    const auto [a, b, t] = bracket(keys, seconds);
    const aiQuaternion from(a->value[0], a->value[1], a->value[2], a->value[3]);
    const aiQuaternion to(b->value[0], b->value[1], b->value[2], b->value[3]);
    aiQuaternion result;
    aiQuaternion::Interpolate(result, from, to, t);
    return result.Normalize();
}

} // namespace

osg::RefPtr<kaSceneAnimation> kaSceneAnimation::create(const std::string& name) {
    osg::RefPtr<kaSceneAnimation> animation(new kaSceneAnimation());
    animation->setName(name);
    return animation;
}

void kaSceneAnimation::addChannel(Channel channel) {
    auto bySeconds = [](const auto& a, const auto& b) { return a.seconds < b.seconds; };
    std::stable_sort(channel.positions.begin(), channel.positions.end(), bySeconds);
    std::stable_sort(channel.scales.begin(), channel.scales.end(), bySeconds);
    std::stable_sort(channel.rotations.begin(), channel.rotations.end(), bySeconds);
    _channels.push_back(std::move(channel));
}

double kaSceneAnimation::getDuration() const {
    double last = 0.0;
    for (const Channel& c : _channels) {
        if (!c.positions.empty())
            last = std::max(last, c.positions.back().seconds);
        if (!c.scales.empty())
            last = std::max(last, c.scales.back().seconds);
        if (!c.rotations.empty())
            last = std::max(last, c.rotations.back().seconds);
    }
    return last;
}

void kaSceneAnimation::evaluate(float frame) {
    setLastEvaluationTime(frame);
    const double seconds = double(frame) / kaAnimManager::getFramesPerSecond();
    for (const Channel& c : _channels) {
        if (!c.target)
            continue;
        const aiMatrix4x4 matrix(vectorAt(c.scales, c.restScale, seconds),
                                 rotationAt(c.rotations, c.restRotation, seconds),
                                 vectorAt(c.positions, c.restPosition, seconds));
        c.target->setMatrix(toOsgMatrix(matrix));
    }
}
