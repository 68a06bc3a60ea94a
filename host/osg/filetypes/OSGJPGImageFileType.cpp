#include "OSGJPGImageFileType.h"

#include "OSGImageFileHandler.h"

#include <algorithm>
#include <atomic>

namespace osg {

namespace {
std::atomic<uint32_t> g_quality{90};
}

JPGImageFileType::JPGImageFileType(OIIOFormatTraits traits)
    : OIIOImageFileType(std::move(traits)) {}

JPGImageFileType& JPGImageFileType::the() {
    // The registry always makes the JPEG type.
    return *static_cast<JPGImageFileType*>(ImageFileHandler::the().getFileType("image/jpeg"));
}

void JPGImageFileType::setQuality(uint32_t quality) {
    g_quality = std::min(quality, 100u);
}

uint32_t JPGImageFileType::getQuality() const {
    return g_quality;
}

} // namespace osg
