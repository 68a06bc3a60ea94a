#include "kaImageOutStream.h"

#include "OSGImageFileHandler.h"
#include "kaFile.h"
#include "kaLog.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
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

kaImageOutStream::ImageWriteFunction
kaImageOutStream::descriptorWriter(int fd, std::shared_ptr<std::string> lastError) {
    return [fd, lastError](osg::ImagePtr image, std::string name) {
        auto fail = [&](const std::string& why) {
            kaLog::error("kaImageOutStream: Couldn't send image '%s' to the stream: %s",
                         name.c_str(), why.c_str());
            if (lastError)
                *lastError = why;
            return false;
        };
        std::string format = kaFile::getExtension(name);
        if (format.empty())
            format = "png";
        std::vector<uint8_t> bytes;
        if (!image || !osg::ImageFileHandler::the().store(image, format.c_str(), bytes))
            return fail("the image could not be encoded as " + format);
        for (size_t done = 0; done < bytes.size();) {
            const ssize_t written = ::write(fd, bytes.data() + done, bytes.size() - done);
            if (written < 0 && errno == EINTR)
                continue;
            if (written <= 0)
                return fail(written < 0 ? std::strerror(errno) : "the stream took no more data");
            done += size_t(written);
        }
        return true;
    };
}
