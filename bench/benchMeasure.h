#pragma once

// Wall-clock and memory readings the benchmarks turn into ratios.

#include <chrono>
#include <fstream>
#include <string>

namespace benchMeasure {

inline double seconds(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// VmHWM (peak) or VmRSS (current) of this process, in bytes; 0 when /proc is not there.
inline double memoryOf(const std::string& field) {
    std::ifstream status("/proc/self/status");
    std::string key;
    double kilobytes = 0.0;
    while (status >> key) {
        if (key == field + ":") {
            status >> kilobytes;
            return kilobytes * 1024.0;
        }
        status.ignore(1 << 16, '\n');
    }
    return 0.0;
}

} // namespace benchMeasure
