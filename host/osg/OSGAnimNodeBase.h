#pragma once

#include "OSGChangeList.h"
#include "OSGFieldContainer.h"
#include "OSGNodeCores.h"

#include <string>
#include <vector>

namespace osg {

// An animation: something in the scene that changes with the frame number. Evaluating it at a
// frame sets what it animates. GUI thread only.
class AnimNodeBase : public FieldContainer {
public:
    enum : BitVector { LastEvaluationTimeFieldMask = 1 << 0, CurrentFrameFieldMask = 1 << 1 };

    const std::string& getName() const { return _name; }
    void setName(const std::string& name) { _name = name; }
    // The frame it was last evaluated at.
    float getLastEvaluationTime() const { return _lastEvaluation; }
    void setLastEvaluationTime(float frame) { _lastEvaluation = frame; }
    // Told after one of its fields was changed from outside.
    virtual void changed(BitVector mask);
    int getCurrentFrame() const { return _currentFrame; }
    // Moves to 'frame' without evaluating; 'notify' records the change.
    void setCurrentFrameNoEvaluation(int frame, bool notify);
    // Sets what it animates to the state at 'frame'.
    virtual void evaluate(float frame) = 0;
    // Recomputes what is derived from the keys (curve tangents).
    virtual void updateCurves() {}
    // How often changed() was told of the last-evaluation time.
    int getEvaluationTimeChanges() const { return _evaluationTimeChanges; }

private:
    std::string _name;
    float _lastEvaluation = -1.0f;
    int _currentFrame = 0;
    int _evaluationTimeChanges = 0;
};
using AnimNodeBasePtr = RefPtr<AnimNodeBase>;

// Moves a transform along keys (frame, position, turn about Y in degrees) on a smooth
// Catmull-Rom curve.
class TransformAnimation : public AnimNodeBase {
public:
    struct Key {
        float frame;
        Pnt3f position;
        float turnDegrees;
    };
    static RefPtr<TransformAnimation> create(const TransformPtr& target, const std::string& name);
    const char* getTypeName() const override { return "TransformAnimation"; }
    void addKey(const Key& key);
    const std::vector<Key>& getKeys() const { return _keys; }
    void evaluate(float frame) override;
    void updateCurves() override;
    const TransformPtr& getTarget() const { return _target; }

private:
    TransformAnimation() = default;
    TransformPtr _target;
    std::vector<Key> _keys;
    std::vector<Vec3f> _tangents; // one per key, from updateCurves
};
using TransformAnimationPtr = RefPtr<TransformAnimation>;

} // namespace osg
