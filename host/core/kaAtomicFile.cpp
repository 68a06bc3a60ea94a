#include "kaAtomicFile.h"

#include "kaLog.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <vector>

namespace {

std::atomic<bool> g_replaceExisting{true};
std::mutex g_countMutex;
int g_inProgress = 0;
bool g_refusing = false;

std::string folderOf(const std::string& name) {
    const size_t slash = name.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : name.substr(0, slash);
}

std::string fileNameOf(const std::string& name) {
    const size_t slash = name.rfind('/');
    return slash == std::string::npos ? name : name.substr(slash + 1);
}

std::string errnoText(int error) {
    char buffer[256];
    // The GNU variant returns the text, which may or may not be in the buffer.
    return strerror_r(error, buffer, sizeof buffer);
}

// Flushes a folder's entries (a rename into it, a removal) to the disk.
int syncFolder(const std::string& folder) {
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return errno;
    int result = ::fsync(fd) == 0 ? 0 : errno;
    // Folders that can't be flushed (some network file systems) have nothing to lose here.
    if (result == EINVAL || result == ENOTSUP)
        result = 0;
    ::close(fd);
    return result;
}

// Moves 'from' to 'to' unless 'to' exists; the check and the move are one step.
int renameWithoutReplacing(const std::string& from, const std::string& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return errno;
    // File systems without the flag: a hard link fails just as atomically when 'to' exists.
    if (::link(from.c_str(), to.c_str()) != 0)
        return errno;
    ::unlink(from.c_str());
    return 0;
}

} // namespace

kaAtomicFile::kaAtomicFile(std::string finalName)
    : _finalName(std::move(finalName)) {}

kaAtomicFile::~kaAtomicFile() {
    if (_fd >= 0)
        ::close(_fd);
    removeStaged();
    if (_counted) {
        std::lock_guard<std::mutex> lock(g_countMutex);
        --g_inProgress;
    }
}

int kaAtomicFile::inProgress() {
    std::lock_guard<std::mutex> lock(g_countMutex);
    return g_inProgress;
}

void kaAtomicFile::refuseNewFiles() {
    std::lock_guard<std::mutex> lock(g_countMutex);
    g_refusing = true;
}

void kaAtomicFile::setReplaceExisting(bool replace) {
    g_replaceExisting = replace;
}

bool kaAtomicFile::replaceExisting() {
    return g_replaceExisting;
}

const char* kaAtomicFile::existsError() {
    return "the file exists and replacing it was not asked for";
}

void kaAtomicFile::fail(const std::string& reason) {
    if (_error.empty())
        _error = reason.empty() ? std::string("unknown error") : reason;
}

bool kaAtomicFile::failWithErrno(const char* what) {
    const int error = errno;
    fail(what ? std::string(what) + ": " + errnoText(error) : errnoText(error));
    return false;
}

bool kaAtomicFile::open() {
    if (_finalName.empty()) {
        fail("no file name given");
        return false;
    }
    {
        std::lock_guard<std::mutex> lock(g_countMutex);
        if (g_refusing) {
            fail("the program is stopping");
            return false;
        }
        if (!_counted)
            ++g_inProgress;
        _counted = true;
    }
    const std::string folder = folderOf(_finalName);
    std::string pattern = folder + "/." + fileNameOf(_finalName) + ".part-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (!::mkdtemp(buffer.data()))
        return failWithErrno(nullptr);
    _stagingFolder = buffer.data();
    _stagedName = _stagingFolder + "/" + fileNameOf(_finalName);
    _fd = ::open(_stagedName.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (_fd < 0)
        return failWithErrno(nullptr);
    return true;
}

bool kaAtomicFile::write(const void* data, size_t size) {
    if (!writeAt(data, size, _position))
        return false;
    _position += size;
    return true;
}

bool kaAtomicFile::writeAt(const void* data, size_t size, uint64_t offset) {
    if (failed())
        return false;
    if (_fd < 0) {
        fail("the file is not open");
        return false;
    }
    const char* p = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t written = ::pwrite(_fd, p, size, off_t(offset));
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return failWithErrno(nullptr);
        }
        if (written == 0) {
            fail("the disk took no more data");
            return false;
        }
        p += written;
        size -= size_t(written);
        offset += uint64_t(written);
    }
    return true;
}

long long kaAtomicFile::readAt(void* data, size_t size, uint64_t offset) {
    if (_fd < 0)
        return -1;
    ssize_t got;
    do {
        got = ::pread(_fd, data, size, off_t(offset));
    } while (got < 0 && errno == EINTR);
    return got;
}

bool kaAtomicFile::close() {
    if (_fd < 0)
        return !failed();
    const int fd = _fd;
    _fd = -1;
    // Linux frees the descriptor even when close reports an error; the error still counts:
    // it may be the only report of data that never reached the disk.
    if (::close(fd) != 0 && errno != EINTR)
        return failWithErrno(nullptr);
    return !failed();
}

bool kaAtomicFile::commit() {
    if (failed() || _committed)
        return _committed;
    if (_stagedName.empty()) {
        fail("nothing was written");
        return false;
    }
    if (_fd < 0) {
        // Other code rewrote the staged file by name: flush what is there now.
        _fd = ::open(_stagedName.c_str(), O_RDONLY | O_CLOEXEC);
        if (_fd < 0)
            return failWithErrno(nullptr);
    }
    if (::fsync(_fd) != 0)
        return failWithErrno(nullptr);
    struct stat existing;
    if (::stat(_finalName.c_str(), &existing) == 0 && S_ISREG(existing.st_mode))
        ::fchmod(_fd, existing.st_mode & 07777);
    if (!close())
        return false;

    if (replaceExisting()) {
        if (::rename(_stagedName.c_str(), _finalName.c_str()) != 0)
            return failWithErrno(nullptr);
    } else if (const int error = renameWithoutReplacing(_stagedName, _finalName)) {
        fail(error == EEXIST ? existsError() : errnoText(error));
        return false;
    }
    _committed = true;
    ::rmdir(_stagingFolder.c_str());
    _stagingFolder.clear();
    // The file is complete under its final name from here on, whatever happens to the folder
    // flush: a failure there is worth a warning, not a report that the file was not written.
    if (const int error = syncFolder(folderOf(_finalName)))
        kaLog::warning("kaAtomicFile: '%s' is written, but its folder could not be flushed to the "
                       "disk: %s",
                       _finalName.c_str(), errnoText(error).c_str());
    return true;
}

std::string kaAtomicFile::probeStagingFolder() const {
    if (_stagingFolder.empty())
        return std::string();
    const std::string probe = _stagingFolder + "/.probe", moved = probe + "-moved";
    // As much as a rewrite of a file's header would take.
    const std::vector<char> bytes(size_t(64) << 10, '\0');
    int error = 0;
    const int fd = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0)
        error = errno;
    for (size_t done = 0; error == 0 && done < bytes.size();) {
        const ssize_t written = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (written > 0)
            done += size_t(written);
        else if (written == 0 || errno != EINTR)
            error = written == 0 ? ENOSPC : errno;
    }
    if (error == 0 && ::fsync(fd) != 0)
        error = errno;
    if (fd >= 0 && ::close(fd) != 0 && error == 0)
        error = errno;
    if (error == 0 && ::rename(probe.c_str(), moved.c_str()) != 0)
        error = errno;
    ::unlink(probe.c_str());
    ::unlink(moved.c_str());
    return error == 0 ? std::string() : errnoText(error);
}

void kaAtomicFile::removeStaged() {
    if (_stagingFolder.empty())
        return;
    // Other code (an XMP toolkit, say) may have left files of its own in the staging folder.
    if (DIR* dir = ::opendir(_stagingFolder.c_str())) {
        std::vector<std::string> names;
        while (const dirent* entry = ::readdir(dir)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..")
                names.push_back(_stagingFolder + "/" + name);
        }
        ::closedir(dir);
        for (const std::string& name : names)
            ::unlink(name.c_str());
    }
    ::rmdir(_stagingFolder.c_str());
    _stagingFolder.clear();
}
