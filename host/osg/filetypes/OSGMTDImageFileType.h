#pragma once

#include "OSGImageFileType.h"

namespace osg {

// The scene graph's own lossless dump of an image: every pixel format, data type, mipmap,
// frame and side, the resolution and the attachments, exactly as in memory. For caches and
// tests, not for users: exports leave it out of their format lists.
class MTDImageFileType : public ImageFileType {
public:
    MTDImageFileType();

    bool read(ImagePtr& image, const std::string& fileName) override;
    bool write(const ImagePtr& image, const std::string& fileName) override;
    bool store(const ImagePtr& image, std::vector<uint8_t>& buffer) override;
    bool restore(ImagePtr& image, const uint8_t* data, size_t size) override;
};

} // namespace osg
