#pragma once

#include <mutex>

namespace osg {

// The XMP toolkit that builds packets and puts them into files: started once for the process,
// from whichever thread needs it first. It must not be entered from two threads at once, so
// every call into it, from any module, holds mutex(). Safe from any thread.
struct XMPToolkit {
    // Whether the toolkit runs.
    static bool ready();
    static std::recursive_mutex& mutex();
};

} // namespace osg
