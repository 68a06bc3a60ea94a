#include "kaScopedRenderInProgress.h"

#include <atomic>

namespace {
std::atomic<int> g_depth{0};
}

kaScopedRenderInProgress::kaScopedRenderInProgress() {
    ++g_depth;
}
kaScopedRenderInProgress::~kaScopedRenderInProgress() {
    --g_depth;
}
bool kaScopedRenderInProgress::isRenderInProgress() {
    return g_depth > 0;
}
