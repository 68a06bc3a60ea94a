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

std::string XMPToolkit::withExportField(const std::string& packet, const char* name,
                                        const std::string& value) {
    if (!ready())
        return packet;
    std::lock_guard<std::recursive_mutex> lock(mutex());
    XmpPtr xmp = xmp_new(packet.data(), packet.size());
    if (!xmp)
        return packet;
    std::string result = packet;
    if (xmp_get_property(xmp, kExportNamespace, name, nullptr, nullptr) &&
        xmp_set_property(xmp, kExportNamespace, name, value.c_str(), 0)) {
        XmpStringPtr text = xmp_string_new();
        if (xmp_serialize(xmp, text, 0, 0))
            result = xmp_string_cstr(text);
        xmp_string_free(text);
    }
    xmp_free(xmp);
    return result;
}

std::recursive_mutex& XMPToolkit::mutex() {
    static std::recursive_mutex m;
    return m;
}

} // namespace osg
