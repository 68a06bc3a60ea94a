#include "OSGImageFileType.h"

#include "kaLog.h"
#include "kaWriteJournal.h"

#include <mutex>

namespace osg {

namespace {
std::mutex g_providerMutex;
ImageFileType::LayeredAttributesProvider g_provider;
} // namespace

void ImageFileType::setLayeredAttributesProvider(LayeredAttributesProvider provider) {
    std::lock_guard<std::mutex> lock(g_providerMutex);
    g_provider = std::move(provider);
}

std::vector<std::pair<std::string, std::string>>
ImageFileType::layeredAttributes(const std::vector<std::string>& layerNames) {
    LayeredAttributesProvider provider;
    {
        std::lock_guard<std::mutex> lock(g_providerMutex);
        provider = g_provider;
    }
    // Called unlocked: a provider may take its own locks or replace itself.
    return provider ? provider(layerNames) : std::vector<std::pair<std::string, std::string>>();
}

bool ImageFileType::reportWrite(const std::string& fileName, bool written,
                                const std::string& error) {
    if (!written)
        kaLog::error("ImageFileType: Couldn't write '%s': %s", fileName.c_str(),
                     error.empty() ? "unknown error" : error.c_str());
    kaWriteJournal::record({fileName, written, written ? std::string() : error});
    return written;
}

ImageFileType::ImageFileType(std::string mimeType, std::list<std::string> suffixes, uint32_t flags)
    : _mimeType(std::move(mimeType))
    , _suffixes(std::move(suffixes))
    , _flags(flags) {}

// The defaults answer for formats that lack an operation.
bool ImageFileType::read(ImagePtr&, const std::string& fileName) {
    kaLog::error("ImageFileType: %s can't read '%s'.", _mimeType.c_str(), fileName.c_str());
    return false;
}

bool ImageFileType::write(const ImagePtr&, const std::string& fileName) {
    return reportWrite(fileName, false, _mimeType + " files can't be written");
}

bool ImageFileType::writeLayered(const ImagePtr&, const std::string& fileName,
                                 std::vector<ImagePtr>, const std::string*) {
    return reportWrite(fileName, false, _mimeType + " files can't hold layers");
}

bool ImageFileType::store(const ImagePtr&, std::vector<uint8_t>&) {
    kaLog::error("ImageFileType: %s can't be written to memory.", _mimeType.c_str());
    return false;
}

bool ImageFileType::restore(ImagePtr&, const uint8_t*, size_t) {
    kaLog::error("ImageFileType: %s can't be read from memory.", _mimeType.c_str());
    return false;
}

} // namespace osg
