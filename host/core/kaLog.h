#pragma once

#include <functional>
#include <string>

// The host log. Each entry goes to standard error as "<LEVEL>: <text>" and to every installed
// sink with the text exactly as formatted. Thread-safe: background image writers log too.
class kaLog {
public:
    enum Level { Info, Warning, Error };
    using Sink = std::function<void(Level, const std::string&)>;

    static void info(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static void warning(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static void error(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static void write(Level level, const std::string& text);

    // Returns an id for removeSink. Sinks are called with the log's lock held: they must not
    // log themselves.
    static int addSink(Sink sink);
    static void removeSink(int id);

    // Standard error echo, on by default.
    static void setStandardErrorEnabled(bool enabled);

    static const char* levelName(Level level);
};
