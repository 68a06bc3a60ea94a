#include "OSGXMPToolkit.h"

#include <exempi/xmp.h>

namespace osg {

bool XMPToolkit::ready() {
    static const bool started = [] {
        std::lock_guard<std::recursive_mutex> lock(mutex());
        return xmp_init();
    }();
    return started;
}

std::recursive_mutex& XMPToolkit::mutex() {
    static std::recursive_mutex m;
    return m;
}

} // namespace osg
