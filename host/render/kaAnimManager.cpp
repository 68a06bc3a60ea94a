#include "kaAnimManager.h"

#include <algorithm>
#include <atomic>

namespace {
std::atomic<int> g_frame{0};
std::atomic<double> g_framesPerSecond{25.0};
std::atomic<float> g_shutter{0.0f};

void evaluateAll(float frame) {
    for (const osg::AnimNodeBasePtr& animation :
         osg::FieldContainerFactory::the().getContainersOfType<osg::AnimNodeBase>())
        animation->evaluate(frame);
}
std::vector<osg::AnimNodeBasePtr>& sceneAnimations() {
    static std::vector<osg::AnimNodeBasePtr> animations;
    return animations;
}
} // namespace

double kaAnimManager::getFramesPerSecond() {
    return g_framesPerSecond;
}
void kaAnimManager::setFramesPerSecond(double fps) {
    if (fps > 0.0)
        g_framesPerSecond = fps;
}
void kaAnimManager::setSceneAnimations(std::vector<osg::AnimNodeBasePtr> animations) {
    sceneAnimations() = std::move(animations);
}

int kaAnimManager::getCurrentFrame() {
    return g_frame;
}

void kaAnimManager::setCurrentFrame(int frame, bool evaluate, bool notify) {
    g_frame = frame;
    if (!evaluate)
        return;
    for (const osg::AnimNodeBasePtr& animation :
         osg::FieldContainerFactory::the().getContainersOfType<osg::AnimNodeBase>()) {
        animation->setCurrentFrameNoEvaluation(frame, notify);
        animation->evaluate(float(frame));
    }
}

void kaAnimManager::setCurrentFrameNoEvaluation(int frame, bool notify) {
    g_frame = frame;
    if (!notify)
        return;
    for (const osg::AnimNodeBasePtr& animation :
         osg::FieldContainerFactory::the().getContainersOfType<osg::AnimNodeBase>())
        animation->setCurrentFrameNoEvaluation(frame, true);
}

void kaAnimManager::evaluateByFrame(const osg::AnimNodeBasePtr& node, int frame, bool evaluate,
                                    bool notify, bool) {
    if (!node)
        return;
    g_frame = frame;
    node->setCurrentFrameNoEvaluation(frame, notify);
    if (evaluate)
        node->evaluate(float(frame));
}

void kaAnimManager::updateCameraShotCurves(const osg::AnimNodeBasePtr& node) {
    if (node)
        node->updateCurves();
}

void kaAnimManager::setMotionBlurShutter(float frames) {
    g_shutter = std::max(frames, 0.0f);
}

float kaAnimManager::getMotionBlurShutter() {
    return g_shutter;
}

void kaAnimManager::applyMotionBlur(int sample, int samples) {
    const float shutter = g_shutter;
    if (shutter <= 0.0f || samples < 1)
        return;
    // Sample moments spread evenly over the open shutter, centred on the frame.
    const float moment = (float(sample % samples) + 0.5f) / float(samples) - 0.5f;
    evaluateAll(float(g_frame.load()) + moment * shutter);
}

void kaAnimManager::resetMotionBlur() {
    if (g_shutter > 0.0f)
        evaluateAll(float(g_frame.load()));
}
