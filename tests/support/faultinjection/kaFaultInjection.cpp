#include "kaFaultInjection.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

namespace {

enum Operation { None, Write, Fsync, Close, Rename };

struct Config {
    std::string folder;
    Operation operation = None;
    int nth = 1;
    int error = ENOSPC;
    bool once = false;
};

std::mutex g_configMutex;
Config g_config;
std::atomic<bool> g_armed{false};
std::atomic<int> g_calls{0};
std::atomic<int> g_failures{0};

constexpr int kMaxFd = 1 << 16;
std::atomic<bool> g_tracked[kMaxFd];

// The C library's own calls, looked up when this library is loaded: looking one up later, in
// the middle of someone's call (a sanitizer's report opening files, say), is not safe.
template <typename F>
F resolved(std::atomic<void*>& slot, const char* name) {
    void* function = slot.load(std::memory_order_relaxed);
    if (!function) {
        function = dlsym(RTLD_NEXT, name);
        slot.store(function, std::memory_order_relaxed);
    }
    return reinterpret_cast<F>(function);
}

std::atomic<void*> g_real_open{nullptr};
std::atomic<void*> g_real_open64{nullptr};
std::atomic<void*> g_real_openat{nullptr};
std::atomic<void*> g_real_openat64{nullptr};
std::atomic<void*> g_real_write{nullptr};
std::atomic<void*> g_real_pwrite{nullptr};
std::atomic<void*> g_real_pwrite64{nullptr};
std::atomic<void*> g_real_writev{nullptr};
std::atomic<void*> g_real_fsync{nullptr};
std::atomic<void*> g_real_fdatasync{nullptr};
std::atomic<void*> g_real_close{nullptr};
std::atomic<void*> g_real_rename{nullptr};
std::atomic<void*> g_real_renameat{nullptr};
std::atomic<void*> g_real_renameat2{nullptr};

__attribute__((constructor(101))) void lookUpTheRealCalls() {
    resolved<int (*)(const char*, int, ...)>(g_real_open, "open");
    resolved<int (*)(const char*, int, ...)>(g_real_open64, "open64");
    resolved<int (*)(int, const char*, int, ...)>(g_real_openat, "openat");
    resolved<int (*)(int, const char*, int, ...)>(g_real_openat64, "openat64");
    resolved<ssize_t (*)(int, const void*, size_t)>(g_real_write, "write");
    resolved<ssize_t (*)(int, const void*, size_t, off_t)>(g_real_pwrite, "pwrite");
    resolved<ssize_t (*)(int, const void*, size_t, off64_t)>(g_real_pwrite64, "pwrite64");
    resolved<ssize_t (*)(int, const struct iovec*, int)>(g_real_writev, "writev");
    resolved<int (*)(int)>(g_real_fsync, "fsync");
    resolved<int (*)(int)>(g_real_fdatasync, "fdatasync");
    resolved<int (*)(int)>(g_real_close, "close");
    resolved<int (*)(const char*, const char*)>(g_real_rename, "rename");
    resolved<int (*)(int, const char*, int, const char*)>(g_real_renameat, "renameat");
    resolved<int (*)(int, const char*, int, const char*, unsigned int)>(g_real_renameat2,
                                                                        "renameat2");
}

Operation operationNamed(const char* name) {
    if (!name)
        return None;
    const std::string n = name;
    return n == "write"    ? Write
           : n == "fsync"  ? Fsync
           : n == "close"  ? Close
           : n == "rename" ? Rename
                           : None;
}

int errorNamed(const char* name) {
    if (!name || !*name)
        return ENOSPC;
    if (std::strcmp(name, "ENOSPC") == 0)
        return ENOSPC;
    if (std::strcmp(name, "EIO") == 0)
        return EIO;
    if (std::strcmp(name, "EDQUOT") == 0)
        return EDQUOT;
    return std::atoi(name);
}

// Set up from the environment when loaded with LD_PRELOAD.
void armFromEnvironment() {
    const char* folder = std::getenv("KA_FAULT_DIR");
    if (!folder || !*folder)
        return;
    const char* nth = std::getenv("KA_FAULT_NTH");
    const char* once = std::getenv("KA_FAULT_ONCE");
    kaFaultArm(folder, std::getenv("KA_FAULT_OP"), nth ? std::atoi(nth) : 1,
               errorNamed(std::getenv("KA_FAULT_ERRNO")), once && std::strcmp(once, "1") == 0);
}

// After the settings above exist: objects of one file are made in the order they are written.
const struct ArmedFromEnvironment {
    ArmedFromEnvironment() { armFromEnvironment(); }
} g_armedFromEnvironment;

std::string absolute(int dirfd, const char* path) {
    if (!path)
        return std::string();
    if (path[0] == '/')
        return path;
    char base[4096] = {0};
    if (dirfd == AT_FDCWD) {
        if (!getcwd(base, sizeof base))
            return path;
    } else {
        const std::string link = "/proc/self/fd/" + std::to_string(dirfd);
        const ssize_t n = readlink(link.c_str(), base, sizeof base - 1);
        if (n <= 0)
            return path;
        base[n] = '\0';
    }
    return std::string(base) + "/" + path;
}

bool affected(const std::string& path) {
    if (!g_armed.load(std::memory_order_acquire))
        return false;
    std::lock_guard<std::mutex> lock(g_configMutex);
    const std::string& folder = g_config.folder;
    return path.compare(0, folder.size(), folder) == 0 &&
           (path.size() == folder.size() || path[folder.size()] == '/');
}

void track(int fd, int dirfd, const char* path) {
    if (fd >= 0 && fd < kMaxFd)
        g_tracked[fd].store(g_armed.load(std::memory_order_acquire) &&
                            affected(absolute(dirfd, path)));
}

bool isTracked(int fd) {
    return fd >= 0 && fd < kMaxFd && g_tracked[fd].load();
}

// Whether this call of 'operation' on an affected file fails, and with which error.
bool shouldFail(Operation operation, int& error, bool& first) {
    if (!g_armed.load(std::memory_order_acquire))
        return false;
    std::lock_guard<std::mutex> lock(g_configMutex);
    if (g_config.operation != operation)
        return false;
    const int call = ++g_calls;
    if (call < g_config.nth || (g_config.once && call > g_config.nth))
        return false;
    error = g_config.error;
    first = call == g_config.nth;
    ++g_failures;
    return true;
}

int modeOf(int flags, va_list args) {
    return (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(args, int) : 0;
}

// A write of 'size' bytes on 'fd' that 'call' makes with the number of bytes to write: the
// first failing call writes half of them, later ones fail with the error.
template <typename Call>
ssize_t faultyWrite(int fd, size_t size, const Call& call) {
    int error = 0;
    bool first = false;
    if (isTracked(fd) && shouldFail(Write, error, first)) {
        if (first && size > 1)
            return call(size / 2);
        errno = error;
        return -1;
    }
    return call(size);
}

} // namespace

extern "C" {

void kaFaultArm(const char* folder, const char* operation, int nth, int error, int once) {
    {
        std::lock_guard<std::mutex> lock(g_configMutex);
        g_config.folder = folder ? folder : "";
        while (g_config.folder.size() > 1 && g_config.folder.back() == '/')
            g_config.folder.pop_back();
        g_config.operation = operationNamed(operation);
        g_config.nth = nth < 1 ? 1 : nth;
        g_config.error = error;
        g_config.once = once != 0;
    }
    g_calls = 0;
    g_failures = 0;
    g_armed.store(true, std::memory_order_release);
}

void kaFaultDisarm(void) {
    g_armed.store(false, std::memory_order_release);
    for (auto& tracked : g_tracked)
        tracked.store(false);
}

int kaFaultCalls(void) {
    return g_calls.load();
}

int kaFaultFailures(void) {
    return g_failures.load();
}

int open(const char* path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const int mode = modeOf(flags, args);
    va_end(args);
    const auto next = resolved<int (*)(const char*, int, ...)>(g_real_open, "open");
    const int fd = next(path, flags, mode);
    track(fd, AT_FDCWD, path);
    return fd;
}

int open64(const char* path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const int mode = modeOf(flags, args);
    va_end(args);
    const auto next = resolved<int (*)(const char*, int, ...)>(g_real_open64, "open64");
    const int fd = next(path, flags, mode);
    track(fd, AT_FDCWD, path);
    return fd;
}

int openat(int dirfd, const char* path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const int mode = modeOf(flags, args);
    va_end(args);
    const auto next = resolved<int (*)(int, const char*, int, ...)>(g_real_openat, "openat");
    const int fd = next(dirfd, path, flags, mode);
    track(fd, dirfd, path);
    return fd;
}

int openat64(int dirfd, const char* path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const int mode = modeOf(flags, args);
    va_end(args);
    const auto next = resolved<int (*)(int, const char*, int, ...)>(g_real_openat64, "openat64");
    const int fd = next(dirfd, path, flags, mode);
    track(fd, dirfd, path);
    return fd;
}

int creat(const char* path, mode_t mode) {
    return open(path, O_CREAT | O_WRONLY | O_TRUNC, mode);
}

int creat64(const char* path, mode_t mode) {
    return open64(path, O_CREAT | O_WRONLY | O_TRUNC, mode);
}

ssize_t write(int fd, const void* buffer, size_t size) {
    const auto next = resolved<ssize_t (*)(int, const void*, size_t)>(g_real_write, "write");
    return faultyWrite(fd, size, [&](size_t n) { return next(fd, buffer, n); });
}

ssize_t pwrite(int fd, const void* buffer, size_t size, off_t offset) {
    const auto next =
        resolved<ssize_t (*)(int, const void*, size_t, off_t)>(g_real_pwrite, "pwrite");
    return faultyWrite(fd, size, [&](size_t n) { return next(fd, buffer, n, offset); });
}

ssize_t pwrite64(int fd, const void* buffer, size_t size, off64_t offset) {
    const auto next =
        resolved<ssize_t (*)(int, const void*, size_t, off64_t)>(g_real_pwrite64, "pwrite64");
    return faultyWrite(fd, size, [&](size_t n) { return next(fd, buffer, n, offset); });
}

ssize_t writev(int fd, const struct iovec* vector, int count) {
    const auto next = resolved<ssize_t (*)(int, const struct iovec*, int)>(g_real_writev, "writev");
    // No short writes here: a vector is written whole or refused.
    return faultyWrite(fd, 1, [&](size_t) { return next(fd, vector, count); });
}

int fsync(int fd) {
    const auto next = resolved<int (*)(int)>(g_real_fsync, "fsync");
    int error = 0;
    bool first = false;
    if (isTracked(fd) && shouldFail(Fsync, error, first)) {
        errno = error;
        return -1;
    }
    return next(fd);
}

int fdatasync(int fd) {
    const auto next = resolved<int (*)(int)>(g_real_fdatasync, "fdatasync");
    int error = 0;
    bool first = false;
    if (isTracked(fd) && shouldFail(Fsync, error, first)) {
        errno = error;
        return -1;
    }
    return next(fd);
}

int close(int fd) {
    const auto next = resolved<int (*)(int)>(g_real_close, "close");
    const bool tracked = isTracked(fd);
    if (fd >= 0 && fd < kMaxFd)
        g_tracked[fd].store(false);
    const int result = next(fd);
    int error = 0;
    bool first = false;
    if (tracked && result == 0 && shouldFail(Close, error, first)) {
        errno = error;
        return -1;
    }
    return result;
}

int rename(const char* from, const char* to) {
    const auto next = resolved<int (*)(const char*, const char*)>(g_real_rename, "rename");
    int error = 0;
    bool first = false;
    if (affected(absolute(AT_FDCWD, to)) && shouldFail(Rename, error, first)) {
        errno = error;
        return -1;
    }
    return next(from, to);
}

int renameat(int fromDir, const char* from, int toDir, const char* to) {
    const auto next =
        resolved<int (*)(int, const char*, int, const char*)>(g_real_renameat, "renameat");
    int error = 0;
    bool first = false;
    if (affected(absolute(toDir, to)) && shouldFail(Rename, error, first)) {
        errno = error;
        return -1;
    }
    return next(fromDir, from, toDir, to);
}

int renameat2(int fromDir, const char* from, int toDir, const char* to, unsigned int flags) {
    const auto next = resolved<int (*)(int, const char*, int, const char*, unsigned int)>(
        g_real_renameat2, "renameat2");
    int error = 0;
    bool first = false;
    if (affected(absolute(toDir, to)) && shouldFail(Rename, error, first)) {
        errno = error;
        return -1;
    }
    return next(fromDir, from, toDir, to, flags);
}

} // extern "C"
