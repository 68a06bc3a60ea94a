#pragma once

#include "OSGOIIOImageFileType.h"

namespace osg {

// PNG, written on every core: the rows are compressed in slices in parallel into one zlib
// stream that libpng frames as a PNG file (read through OpenImageIO like the other formats).
// Files carry what the OpenImageIO writer put in them: the ICC profile, the resolution, the
// comment and, in files, the XMP packet.
class PNGImageFileType : public OIIOImageFileType {
public:
    explicit PNGImageFileType(OIIOFormatTraits traits);

    bool write(const ImagePtr& image, const std::string& fileName) override;
    bool store(const ImagePtr& image, std::vector<uint8_t>& buffer) override;

    // The zlib level 0..9 that a write starting now uses: the preference
    // "ImageExport png level", or its default from the preference table when the preference
    // is absent or not an int from 0 to 9. Read at the start of every write; safe from any
    // thread.
    static int compressionLevel();
};

} // namespace osg
