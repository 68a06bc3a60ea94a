#pragma once

#include "OSGImage.h"

#include <list>
#include <memory>
#include <string>
#include <vector>

namespace osg {

class ImageFileType;

// The registry of image file types. Thread-safe after its first use: the set of types is
// fixed when the handler is made.
class ImageFileHandler {
public:
    static ImageFileHandler& the();

    // Suffixes of every type that has all of 'flags' (ImageFileType::Flags), in registration
    // order, each type's suffixes in its own order.
    std::list<std::string> getSuffixList(uint32_t flags) const;

    // The type for a MIME type ("image/png"; a bare suffix such as "png" is accepted too), or,
    // when 'mimeType' is null or empty, for the suffix of 'fileName'; case-insensitive.
    // Null when nothing matches.
    ImageFileType* getFileType(const char* mimeType, const char* fileName = nullptr) const;
    const std::vector<ImageFileType*>& getFileTypes() const { return _typeList; }

    // Writes 'image' with the type chosen as getFileType(mimeType, fileName) does. An unknown
    // type or a null image is logged and gives false.
    bool write(const ImagePtr& image, const char* fileName, const char* mimeType = nullptr);
    bool read(ImagePtr& image, const char* fileName, const char* mimeType = nullptr);
    ImagePtr read(const char* fileName);
    // The encoded file in memory, by MIME type or suffix.
    bool store(const ImagePtr& image, const char* mimeType, std::vector<uint8_t>& buffer);
    bool restore(ImagePtr& image, const char* mimeType, const uint8_t* data, size_t size);

    ~ImageFileHandler();

private:
    ImageFileHandler();

    std::vector<std::unique_ptr<ImageFileType>> _types;
    std::vector<ImageFileType*> _typeList;
};

} // namespace osg
