#pragma once

#include <mutex>
#include <string>

namespace osg {

// The XMP toolkit that builds packets and puts them into files: started once for the process,
// from whichever thread needs it first. It must not be entered from two threads at once, so
// every call into it, from any module, holds mutex(). Safe from any thread.
struct XMPToolkit {
    // Whether the toolkit runs.
    static bool ready();
    static std::recursive_mutex& mutex();

    // The namespace of the export's own fields, and its prefix.
    static constexpr const char* kExportNamespace = "http://ns.kalo.local/imageexport/1.0/";
    static constexpr const char* kExportPrefix = "kaExport";

    // 'packet' with its export field 'name' set to 'value' when the packet has that field; the
    // packet as it is otherwise (or when it does not parse).
    static std::string withExportField(const std::string& packet, const char* name,
                                       const std::string& value);
};

} // namespace osg
