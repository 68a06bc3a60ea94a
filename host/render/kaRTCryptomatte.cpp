#include "kaRTCryptomatte.h"

#include <atomic>

namespace {
std::atomic<bool> g_static{false};
std::atomic<bool> g_manifest{false};
} // namespace

void kaRTCryptomatte::setStaticMetadata(bool isStatic, bool withManifest) {
    g_static = isStatic;
    g_manifest = withManifest;
}
bool kaRTCryptomatte::isStaticMetadata() {
    return g_static;
}
bool kaRTCryptomatte::hasManifest() {
    return g_manifest;
}
