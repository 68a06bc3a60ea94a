#pragma once

// OpenImageIO writes every file through this proxy, so that no write of a codec goes unchecked:
// codecs differ in whether (and how) they report a failed write, and some end the process.

#include "kaAtomicFile.h"

#include <OpenImageIO/filesystem.h>

#include <vector>

namespace osg::oiio {

// Writes into a staged atomic file. The first failed write is kept in the file's error and the
// rest of the codec's output is dropped while it is told that all went well: the codec then
// finishes on its usual path (no error path of a third-party library is ever taken), and the
// caller reads the file's error afterwards. Sequential writes are gathered into large ones.
class FileProxy : public OIIO::Filesystem::IOProxy {
public:
    explicit FileProxy(kaAtomicFile& file);
    ~FileProxy() override;

    const char* proxytype() const override { return "kaAtomicFile"; }
    void close() override;
    bool seek(int64_t offset) override;
    size_t read(void* buf, size_t size) override;
    size_t write(const void* buf, size_t size) override;
    size_t pread(void* buf, size_t size, int64_t offset) override;
    size_t pwrite(const void* buf, size_t size, int64_t offset) override;
    size_t size() const override { return size_t(_size); }
    void flush() const override;

    // Writes out what is gathered; false when any write failed.
    bool finish();

private:
    bool flushBuffer();

    kaAtomicFile& _file;
    std::vector<char> _buffer;
    int64_t _bufferStart = 0;
    int64_t _size = 0;
};

} // namespace osg::oiio
