#include "OSGJPGImageFileType.h"

#include "OSGImageFileHandler.h"

#include <algorithm>
#include <atomic>

namespace osg {

namespace {
std::atomic<uint32_t> g_quality{90};
// What this thread set last; 0xFFFFFFFF: nothing yet.
thread_local uint32_t t_quality = 0xFFFFFFFFu;
} // namespace

JPGImageFileType::JPGImageFileType(OIIOFormatTraits traits)
    : OIIOImageFileType(std::move(traits)) {}

JPGImageFileType& JPGImageFileType::the() {
    // The registry always makes the JPEG type.
    return *static_cast<JPGImageFileType*>(ImageFileHandler::the().getFileType("image/jpeg"));
}

void JPGImageFileType::setQuality(uint32_t quality) {
    t_quality = std::min(quality, 100u);
    g_quality = t_quality;
}

uint32_t JPGImageFileType::getQuality() const {
    return t_quality <= 100u ? t_quality : g_quality.load();
}

} // namespace osg
