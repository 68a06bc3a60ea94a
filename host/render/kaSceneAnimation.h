#pragma once

#include "OSGAnimNodeBase.h"

#include <array>
#include <string>
#include <vector>

// The keyframe animation of an imported scene: each channel moves one transform by position,
// rotation and scale keys given in seconds, interpolated linearly (rotations spherically) and
// held before the first and after the last key. A channel without keys of a kind keeps that
// part of the node's own transform. Frames become seconds at kaAnimManager's frame rate, so
// the animation plays on the host's timeline. GUI thread only.
class kaSceneAnimation : public osg::AnimNodeBase {
public:
    template <typename Value>
    struct Key {
        double seconds;
        Value value;
    };
    using Vector = std::array<float, 3>;
    using Rotation = std::array<float, 4>; // w, x, y, z
    struct Channel {
        osg::TransformPtr target;
        // The node's own transform, for the parts without keys.
        Vector restPosition, restScale;
        Rotation restRotation;
        std::vector<Key<Vector>> positions, scales;
        std::vector<Key<Rotation>> rotations;
    };

    static osg::RefPtr<kaSceneAnimation> create(const std::string& name);
    const char* getTypeName() const override { return "SceneAnimation"; }
    void addChannel(Channel channel);
    const std::vector<Channel>& getChannels() const { return _channels; }
    // The time of the last key, in seconds.
    double getDuration() const;
    void evaluate(float frame) override;

private:
    kaSceneAnimation() = default;
    std::vector<Channel> _channels;
};
using kaSceneAnimationPtr = osg::RefPtr<kaSceneAnimation>;
