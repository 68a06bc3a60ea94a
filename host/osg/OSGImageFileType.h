#pragma once

#include "OSGImage.h"

#include <functional>
#include <list>
#include <string>
#include <utility>
#include <vector>

namespace osg {

// Image attachments that the file types write into files: a text comment, an ICC profile's
// bytes and an XMP packet.
constexpr const char* kCommentAttachment = "Comment";
constexpr const char* kICCProfileAttachment = "ICCProfile";
constexpr const char* kXMPAttachment = "XMP";
// The chromaticities of linear pictures: red, green, blue and white x, y as eight numbers.
constexpr const char* kChromaticitiesAttachment = "Chromaticities";

// One image file format: its MIME type, its suffixes, what it supports, and how it reads and
// writes. Instances live as long as the process and are used from several threads at once:
// implementations keep no per-call state.
//
// Writes never leave a partial file behind and never report a file they did not complete: a
// file is staged beside its final name, every write, flush and close is checked, and it is
// renamed into place only when complete (kaAtomicFile). Each outcome is logged when it failed
// ("ImageFileType: Couldn't write '<name>': <cause>") and recorded in kaWriteJournal.
class ImageFileType {
public:
    enum Flags : uint32_t {
        OSG_NO_FLAGS = 0,
        OSG_READ_SUPPORTED = 1,
        OSG_WRITE_SUPPORTED = 2,
        // Several named images (render passes) in one file.
        OSG_LAYER_SUPPORTED = 4,
    };

    virtual ~ImageFileType() = default;

    const std::string& getMimeType() const { return _mimeType; }
    // Lower-case suffixes without dot, the preferred one first.
    const std::list<std::string>& getSuffixList() const { return _suffixes; }
    uint32_t getFlags() const { return _flags; }

    virtual bool read(ImagePtr& image, const std::string& fileName);
    virtual bool write(const ImagePtr& image, const std::string& fileName);
    // One file holding 'image' and every non-null layer, layer i named layerNames[i]; all
    // layers must have the image's width and height.
    virtual bool writeLayered(const ImagePtr& image, const std::string& fileName,
                              std::vector<ImagePtr> layers, const std::string* layerNames);
    // The file's bytes in memory instead of a file.
    virtual bool store(const ImagePtr& image, std::vector<uint8_t>& buffer);
    virtual bool restore(ImagePtr& image, const uint8_t* data, size_t size);

    // Extra string attributes for the header of layered files, given the names of the layers
    // written (the renderer's Cryptomatte metadata comes this way without this library
    // depending on the renderer). One provider per process; an empty one removes it.
    using LayeredAttributesProvider =
        std::function<std::vector<std::pair<std::string, std::string>>(
            const std::vector<std::string>& layerNames)>;
    static void setLayeredAttributesProvider(LayeredAttributesProvider provider);
    // The provider's attributes for 'layerNames'; empty without a provider.
    static std::vector<std::pair<std::string, std::string>>
    layeredAttributes(const std::vector<std::string>& layerNames);

protected:
    ImageFileType(std::string mimeType, std::list<std::string> suffixes, uint32_t flags);

    // Logs a failed write with its cause, records the outcome in kaWriteJournal and returns
    // 'written'.
    static bool reportWrite(const std::string& fileName, bool written, const std::string& error);

private:
    std::string _mimeType;
    std::list<std::string> _suffixes;
    uint32_t _flags;
};

} // namespace osg
