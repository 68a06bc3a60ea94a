#pragma once

#include "OSGAnimNodeBase.h"

#include <vector>

// The host's animation clock: the frame the scene shows, and the animations it evaluates.
// GUI thread only (getCurrentFrame may be read from any thread).
class kaAnimManager {
public:
    // The frame rate of the timeline: animations keyed in seconds (imported scenes) show
    // frame f at f / rate seconds. 25 until set.
    static double getFramesPerSecond();
    static void setFramesPerSecond(double fps);
    // Keeps the animations of the scene the host shows alive (replacing those of the scene
    // before).
    static void setSceneAnimations(std::vector<osg::AnimNodeBasePtr> animations);

    static int getCurrentFrame();
    // Sets the frame; with 'evaluate' every live animation is evaluated at it; 'notify'
    // records the change of each animation's frame.
    static void setCurrentFrame(int frame, bool evaluate = false, bool notify = false);
    // Sets the frame the host shows without evaluating anything (an export evaluates its own
    // animation); 'notify' records the change of every animation's frame.
    static void setCurrentFrameNoEvaluation(int frame, bool notify);
    // Evaluates one animation at 'frame'.
    static void evaluateByFrame(const osg::AnimNodeBasePtr& node, int frame, bool evaluate,
                                bool notify, bool reserved);
    // Motion blur of progressive renders: each sample sees the animations at its own moment
    // inside the shutter, which is open 'frames' long around the current frame (0: no blur,
    // the default). applyMotionBlur(k, n) evaluates every live animation for sample k of n;
    // resetMotionBlur() evaluates them at the current frame again.
    static void setMotionBlurShutter(float frames);
    static float getMotionBlurShutter();
    static void applyMotionBlur(int sample, int samples);
    static void resetMotionBlur();
    // Recomputes the curves of an animation after its keys or evaluation time changed.
    static void updateCameraShotCurves(const osg::AnimNodeBasePtr& node);
};
