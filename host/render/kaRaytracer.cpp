#include "kaRaytracer.h"

namespace {
int g_quality = 0, g_applied = 0, g_pending = 0;
bool g_premultiply = true;
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
}
