#include "kaImage.h"

#include <mutex>

namespace {
std::mutex g_mutex;
std::string g_defaultFormat = "png";
} // namespace

std::string kaImage::getDefaultImageFormat() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_defaultFormat;
}

void kaImage::setDefaultImageFormat(const std::string& suffix) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_defaultFormat = suffix;
}
