#include "kaImageOutStream.h"

#include <mutex>

namespace {
std::mutex g_mutex;
kaImageOutStream::ImageWriteFunction g_write;
kaImageOutStream::LayeredImageWriteFunction g_layeredWrite;
} // namespace

kaImageOutStream::ImageWriteFunction kaImageOutStream::getImageWriteFunction() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_write;
}

kaImageOutStream::LayeredImageWriteFunction kaImageOutStream::getLayeredImageWriteFunction() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_layeredWrite;
}

void kaImageOutStream::setImageWriteFunction(ImageWriteFunction function) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_write = std::move(function);
}

void kaImageOutStream::setLayeredImageWriteFunction(LayeredImageWriteFunction function) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_layeredWrite = std::move(function);
}
