#include "kaLog.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <mutex>
#include <vector>

namespace {
std::mutex& logMutex() {
    static std::mutex m;
    return m;
}
std::map<int, kaLog::Sink>& sinks() {
    static std::map<int, kaLog::Sink> s;
    return s;
}
int g_nextSinkId = 1;
std::atomic<bool> g_stderrEnabled{true};

std::string format(const char* fmt, va_list args) {
    va_list copy;
    va_copy(copy, args);
    int size = std::vsnprintf(nullptr, 0, fmt, copy);
    va_end(copy);
    if (size <= 0)
        return std::string();
    std::vector<char> buffer(size_t(size) + 1);
    std::vsnprintf(buffer.data(), buffer.size(), fmt, args);
    return std::string(buffer.data(), size_t(size));
}
} // namespace

const char* kaLog::levelName(Level level) {
    switch (level) {
    case Info:
        return "INFO";
    case Warning:
        return "WARNING";
    case Error:
        return "ERROR";
    }
    return "?";
}

void kaLog::write(Level level, const std::string& text) {
    std::lock_guard<std::mutex> lock(logMutex());
    if (g_stderrEnabled) {
        // Several messages end in a line break of their own; print one only.
        bool hasNewline = !text.empty() && text.back() == '\n';
        std::fprintf(stderr, "%s: %s%s", levelName(level), text.c_str(), hasNewline ? "" : "\n");
        std::fflush(stderr);
    }
    for (auto& [id, sink] : sinks())
        sink(level, text);
}

#define KA_LOG_FORMAT_AND_WRITE(level)                                                             \
    va_list args;                                                                                  \
    va_start(args, fmt);                                                                           \
    std::string text = ::format(fmt, args);                                                        \
    va_end(args);                                                                                  \
    write(level, text)

void kaLog::info(const char* fmt, ...) {
    KA_LOG_FORMAT_AND_WRITE(Info);
}
void kaLog::warning(const char* fmt, ...) {
    KA_LOG_FORMAT_AND_WRITE(Warning);
}
void kaLog::error(const char* fmt, ...) {
    KA_LOG_FORMAT_AND_WRITE(Error);
}

int kaLog::addSink(Sink sink) {
    std::lock_guard<std::mutex> lock(logMutex());
    int id = g_nextSinkId++;
    sinks()[id] = std::move(sink);
    return id;
}

void kaLog::removeSink(int id) {
    std::lock_guard<std::mutex> lock(logMutex());
    sinks().erase(id);
}

void kaLog::setStandardErrorEnabled(bool enabled) {
    g_stderrEnabled = enabled;
}
