#include "OSGOIIOImageFileType.h"
#include "OSGOIIOImageFileType_p.h"

#include "OSGXMPToolkit.h"

#include <exempi/xmp.h>

namespace osg {

bool OIIOImageFileType::embedsXMPBlock() const {
    const std::string name = traits().oiioName;
    return name == "jpeg" || name == "tiff" || name == "png";
}

namespace oiio {

bool embedXMP(const std::string& path, const std::string& packet, std::string& error) {
    if (!XMPToolkit::ready()) {
        error = "the XMP toolkit did not start";
        return false;
    }
    std::lock_guard<std::recursive_mutex> lock(XMPToolkit::mutex());
    XmpPtr xmp = xmp_new(packet.data(), packet.size());
    if (!xmp) {
        error = "the XMP packet does not parse";
        return false;
    }
    XmpFilePtr file = xmp_files_open_new(path.c_str(), XmpOpenFileOptions(XMP_OPEN_FORUPDATE));
    bool ok = file && xmp_files_can_put_xmp(file, xmp) && xmp_files_put_xmp(file, xmp);
    // Read at once: every later call of the toolkit clears it.
    int toolkitError = ok ? 0 : xmp_get_error();
    if (file) {
        ok = xmp_files_close(file, XMP_CLOSE_SAFEUPDATE) && ok;
        if (!ok && toolkitError == 0)
            toolkitError = xmp_get_error();
        xmp_files_free(file);
    }
    xmp_free(xmp);
    if (!ok)
        error = toolkitError != 0 ? "can't put the XMP packet into the file (XMP error " +
                                        std::to_string(toolkitError) + ")"
                                  : std::string("can't put the XMP packet into the file");
    return ok;
}

std::string packetAsEmbedded(const std::string& packet) {
    if (packet.empty() || !XMPToolkit::ready())
        return packet;
    std::lock_guard<std::recursive_mutex> lock(XMPToolkit::mutex());
    XmpPtr xmp = xmp_new(packet.data(), packet.size());
    if (!xmp)
        return packet;
    std::string result = packet;
    XmpStringPtr text = xmp_string_new();
    // As the toolkit's own file handlers write a packet they put into a file.
    if (xmp_serialize(xmp, text, XMP_SERIAL_READONLYPACKET | XMP_SERIAL_USECOMPACTFORMAT, 0))
        result = xmp_string_cstr(text);
    xmp_string_free(text);
    xmp_free(xmp);
    return result;
}

} // namespace oiio
} // namespace osg
