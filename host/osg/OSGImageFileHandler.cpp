#include "OSGImageFileHandler.h"

#include "OSGImageFileType.h"
#include "filetypes/OSGFileTypeRegistry_p.h"

#include "kaLog.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace osg {

namespace {
std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

std::string suffixOf(const char* fileName) {
    if (!fileName)
        return std::string();
    std::string name(fileName);
    size_t slash = name.find_last_of("/\\");
    size_t dot = name.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return std::string();
    return lowered(name.substr(dot + 1));
}
} // namespace

ImageFileHandler& ImageFileHandler::the() {
    static ImageFileHandler handler;
    return handler;
}

ImageFileHandler::ImageFileHandler()
    : _types(createImageFileTypes()) {
    for (auto& type : _types)
        _typeList.push_back(type.get());
}

ImageFileHandler::~ImageFileHandler() = default;

std::list<std::string> ImageFileHandler::getSuffixList(uint32_t flags) const {
    std::list<std::string> suffixes;
    for (const ImageFileType* type : _typeList)
        if ((type->getFlags() & flags) == flags)
            suffixes.insert(suffixes.end(), type->getSuffixList().begin(),
                            type->getSuffixList().end());
    return suffixes;
}

ImageFileType* ImageFileHandler::getFileType(const char* mimeType, const char* fileName) const {
    if (mimeType && *mimeType) {
        std::string mime = lowered(mimeType);
        for (ImageFileType* type : _typeList)
            if (lowered(type->getMimeType()) == mime)
                return type;
        for (ImageFileType* type : _typeList)
            for (const std::string& suffix : type->getSuffixList())
                if (suffix == mime)
                    return type;
        return nullptr;
    }
    std::string suffix = suffixOf(fileName);
    if (suffix.empty())
        return nullptr;
    for (ImageFileType* type : _typeList)
        for (const std::string& s : type->getSuffixList())
            if (s == suffix)
                return type;
    return nullptr;
}

bool ImageFileHandler::write(const ImagePtr& image, const char* fileName, const char* mimeType) {
    if (!image || !fileName || !*fileName) {
        kaLog::error("ImageFileHandler: Nothing to write (%s).",
                     !image ? "no image" : "no file name");
        return false;
    }
    ImageFileType* type = getFileType(mimeType, fileName);
    if (!type || !(type->getFlags() & ImageFileType::OSG_WRITE_SUPPORTED)) {
        kaLog::error("ImageFileHandler: No image file type writes '%s'.", fileName);
        return false;
    }
    return type->write(image, fileName);
}

bool ImageFileHandler::read(ImagePtr& image, const char* fileName, const char* mimeType) {
    if (!fileName || !*fileName)
        return false;
    ImageFileType* type = getFileType(mimeType, fileName);
    if (!type || !(type->getFlags() & ImageFileType::OSG_READ_SUPPORTED)) {
        kaLog::error("ImageFileHandler: No image file type reads '%s'.", fileName);
        return false;
    }
    if (!image)
        image = Image::create();
    return type->read(image, fileName);
}

ImagePtr ImageFileHandler::read(const char* fileName) {
    ImagePtr image = Image::create();
    return read(image, fileName) ? image : ImagePtr();
}

bool ImageFileHandler::store(const ImagePtr& image, const char* mimeType,
                             std::vector<uint8_t>& buffer) {
    ImageFileType* type = getFileType(mimeType);
    if (!image || !type) {
        kaLog::error("ImageFileHandler: Can't store an image as '%s'.", mimeType ? mimeType : "");
        return false;
    }
    return type->store(image, buffer);
}

bool ImageFileHandler::restore(ImagePtr& image, const char* mimeType, const uint8_t* data,
                               size_t size) {
    ImageFileType* type = getFileType(mimeType);
    if (!type || !data) {
        kaLog::error("ImageFileHandler: Can't read an image of type '%s' from memory.",
                     mimeType ? mimeType : "");
        return false;
    }
    if (!image)
        image = Image::create();
    return type->restore(image, data, size);
}

} // namespace osg
