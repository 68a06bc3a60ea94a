#pragma once

#include "OSGOIIOImageFileType.h"

namespace osg {

// JPEG, with the one compression quality that every JPEG write of the process uses.
class JPGImageFileType : public OIIOImageFileType {
public:
    static JPGImageFileType& the();

    // 0..100, 90 at start; values outside are clamped. Thread-safe.
    void setQuality(uint32_t quality);
    uint32_t getQuality() const;

    explicit JPGImageFileType(OIIOFormatTraits traits);

protected:
    int compressionQuality() const override { return int(getQuality()); }
};

} // namespace osg
