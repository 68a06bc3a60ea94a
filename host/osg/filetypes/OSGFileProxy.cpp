#include "OSGFileProxy_p.h"

#include <algorithm>
#include <cstring>

namespace osg::oiio {

namespace {
// Large enough that codecs writing a few bytes at a time cost no system call each.
constexpr size_t kGatherSize = size_t(1) << 20;
} // namespace

FileProxy::FileProxy(kaAtomicFile& file)
    : IOProxy(file.stagedName(), IOProxy::Write)
    , _file(file) {
    _buffer.reserve(kGatherSize);
}

FileProxy::~FileProxy() {
    flushBuffer();
}

void FileProxy::close() {
    flushBuffer();
    m_mode = Closed;
}

bool FileProxy::flushBuffer() {
    if (!_buffer.empty()) {
        _file.writeAt(_buffer.data(), _buffer.size(), uint64_t(_bufferStart));
        _buffer.clear();
    }
    return !_file.failed();
}

void FileProxy::flush() const {
    const_cast<FileProxy*>(this)->flushBuffer();
}

bool FileProxy::finish() {
    return flushBuffer();
}

bool FileProxy::seek(int64_t offset) {
    if (offset < 0)
        return false;
    m_pos = offset;
    return true;
}

size_t FileProxy::write(const void* buf, size_t size) {
    const size_t done = pwrite(buf, size, m_pos);
    m_pos += int64_t(done);
    return done;
}

size_t FileProxy::pwrite(const void* buf, size_t size, int64_t offset) {
    // Dropped once the file failed; the codec goes on as if all was written.
    if (!_file.failed()) {
        const int64_t bufferEnd = _bufferStart + int64_t(_buffer.size());
        if (offset != bufferEnd || _buffer.size() + size > kGatherSize)
            flushBuffer();
        if (_buffer.empty())
            _bufferStart = offset;
        if (size >= kGatherSize) {
            _file.writeAt(buf, size, uint64_t(offset));
        } else {
            const char* bytes = static_cast<const char*>(buf);
            _buffer.insert(_buffer.end(), bytes, bytes + size);
        }
    }
    _size = std::max(_size, offset + int64_t(size));
    return size;
}

size_t FileProxy::read(void* buf, size_t size) {
    const size_t got = pread(buf, size, m_pos);
    m_pos += int64_t(got);
    return got;
}

size_t FileProxy::pread(void* buf, size_t size, int64_t offset) {
    // Codecs that read back what they wrote (to patch offsets) see the gathered bytes too.
    if (!flushBuffer())
        return 0;
    const long long got = _file.readAt(buf, size, uint64_t(offset));
    return got > 0 ? size_t(got) : 0;
}

} // namespace osg::oiio
