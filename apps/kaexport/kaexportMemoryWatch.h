#pragma once

#include <string>

namespace kaexport {

// How much resident memory a piece of work added at its peak, from the kernel's own count
// (Linux): the peak is reset to the current size when the watch starts, so what the scene's
// loading took before is not counted.
class MemoryWatch {
public:
    MemoryWatch();
    // "memory at most +N MB over M MB", or "" where the kernel can't tell.
    std::string grownText() const;

private:
    double _startMB = -1.0;
};

} // namespace kaexport
