#pragma once

#include "OSGOIIOImageFileType.h"

namespace osg {

// JPEG, with the compression quality its writers set.
class JPGImageFileType : public OIIOImageFileType {
public:
    static JPGImageFileType& the();

    // 0..100, 90 at start; values outside are clamped. Thread-safe: a thread writes with the
    // quality it set last, so that background writers that each set and restore it never
    // change each other's files; a thread that never set one writes with the one set last by
    // any thread. A write reads it once, when it starts.
    void setQuality(uint32_t quality);
    uint32_t getQuality() const;

    explicit JPGImageFileType(OIIOFormatTraits traits);

protected:
    int compressionQuality() const override { return int(getQuality()); }
};

} // namespace osg
