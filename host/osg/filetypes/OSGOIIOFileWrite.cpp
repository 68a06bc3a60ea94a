// The one path by which OpenImageIO's codecs put files on the disk: staged, checked, flushed and
// renamed into place.
#include "OSGOIIOImageFileType_p.h"

#include "OSGFileProxy_p.h"

#include "kaAtomicFile.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace osg::oiio {

namespace {

// Whether the format's writer can write through a proxy (every writer but a few old ones).
bool writesThroughProxy(const char* oiioName) {
    auto out = OIIO::ImageOutput::create(oiioName);
    return out && out->supports("ioproxy");
}

// For writers that only open names: the codec writes into memory (an anonymous in-memory file
// opened by its /proc name), and the bytes go to the disk through the checked file.
bool encodeThroughMemory(kaAtomicFile& file, const Encoder& encode, std::string& error) {
    const int memory = ::memfd_create("kaImageEncode", MFD_CLOEXEC);
    if (memory < 0) {
        error = std::string("can't make room in memory to encode: ") + std::strerror(errno);
        return false;
    }
    bool ok = encode(nullptr, "/proc/self/fd/" + std::to_string(memory), error);
    struct stat info;
    if (ok && ::fstat(memory, &info) != 0) {
        error = std::strerror(errno);
        ok = false;
    }
    std::vector<char> chunk(size_t(1) << 20);
    for (off_t offset = 0; ok && offset < info.st_size;) {
        const ssize_t got = ::pread(memory, chunk.data(), chunk.size(), offset);
        if (got <= 0) {
            error = "can't read the encoded image back from memory";
            ok = false;
        } else {
            ok = file.write(chunk.data(), size_t(got));
            offset += got;
        }
    }
    ::close(memory);
    return ok;
}

} // namespace

bool writeFile(const std::string& fileName, const char* oiioName, const Encoder& encode,
               const std::string* xmpPacket, std::string& error) {
    kaAtomicFile file(fileName);
    if (!file.open()) {
        error = file.error();
        return false;
    }
    std::string codecError;
    bool encoded = false;
    if (writesThroughProxy(oiioName)) {
        FileProxy proxy(file);
        encoded = encode(&proxy, file.stagedName(), codecError);
        proxy.finish();
    } else {
        encoded = encodeThroughMemory(file, encode, codecError);
    }
    // A disk that failed is the cause of whatever the codec said afterwards.
    if (!file.failed() && !encoded)
        file.fail(codecError);
    file.close();
    if (!file.failed() && xmpPacket && !embedXMP(file.stagedName(), *xmpPacket, codecError)) {
        // The toolkit seldom knows why a write of its own failed; the disk does.
        const std::string cause = file.probeStagingFolder();
        file.fail(cause.empty() ? codecError : cause);
    }
    if (!file.commit()) {
        error = file.error();
        return false;
    }
    return true;
}

} // namespace osg::oiio
