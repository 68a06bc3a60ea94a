#include "kaRaytracer.h"

#include "OSGImage.h"

#include "kaRenderParameter.h"

#include <algorithm>
#include <atomic>

namespace {
int g_quality = 0, g_applied = 0, g_pending = 0;
bool g_premultiply = true;
std::atomic<int> g_threads{0};
} // namespace

int kaRaytracer::getQuality() {
    return g_quality;
}
void kaRaytracer::setQuality(int quality) {
    if (quality != g_quality)
        ++g_pending;
    g_quality = quality;
}
int kaRaytracer::applyChangeList() {
    const int applied = g_pending;
    g_applied = g_quality;
    g_pending = 0;
    return applied;
}
int kaRaytracer::getAppliedQuality() {
    return g_applied;
}
bool kaRaytracer::getPremultiply() {
    return g_premultiply;
}
void kaRaytracer::setPremultiply(bool premultiply) {
    g_premultiply = premultiply;
    // Both renderers follow it: rendered float pictures are what it says.
    osg::Image::setFloatAlphaPremultipliedByDefault(premultiply);
}
int kaRaytracer::getThreadCount() {
    return g_threads;
}
void kaRaytracer::setThreadCount(int threads) {
    g_threads = std::max(threads, 0);
}
int kaRaytracer::getSamples(const osg::UberViewport& viewport, int quality) {
    return std::max(viewport.getSamples(quality), 1) *
           std::max(kaRenderParameter::getImageSamples(), 1) *
           std::max(kaRenderParameter::getStillFrameSupersampling(), 1);
}

namespace {
std::atomic<bool> g_snapshot{false};
}
bool kaRaytracer::getSnapshot() {
    return g_snapshot;
}
void kaRaytracer::setSnapshot(bool on) {
    g_snapshot = on;
}
