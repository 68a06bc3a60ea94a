#include "kaAnimManager.h"

#include <atomic>

namespace {
std::atomic<int> g_frame{0};
}

int kaAnimManager::getCurrentFrame() {
    return g_frame;
}
void kaAnimManager::setCurrentFrame(int frame) {
    g_frame = frame;
}
