#pragma once

#include "OSGImageFileType.h"

#include <vector>

namespace osg {

// How a format holds alpha: not at all (the channel is dropped), as colour times alpha
// (associated), as the colour itself (unassociated), or either way, marked in the file.
enum class FileAlpha { None, Associated, Unassociated, Either };

// What one OpenImageIO format keeps of an image, so that an image is converted only where the
// format needs it.
struct OIIOFormatTraits {
    const char* oiioName; // OpenImageIO's format name ("png", "openexr")
    const char* mimeType; // "image/png"
    std::list<std::string> suffixes;
    uint32_t flags;                 // ImageFileType::Flags
    std::vector<int32_t> keptTypes; // data types written as they are
    int32_t otherTypesBecome;       // data type for all others
    FileAlpha alpha;                // how alpha is kept, if at all
    bool keepsGray;                 // else one- and two-channel images are written as RGB(A)
    int maxSide;                    // widest and highest image the format holds; 0: no limit
};

// An image file type written and read through OpenImageIO.
class OIIOImageFileType : public ImageFileType {
public:
    explicit OIIOImageFileType(OIIOFormatTraits traits);

    bool read(ImagePtr& image, const std::string& fileName) override;
    bool write(const ImagePtr& image, const std::string& fileName) override;
    bool writeLayered(const ImagePtr& image, const std::string& fileName,
                      std::vector<ImagePtr> layers, const std::string* layerNames) override;
    bool store(const ImagePtr& image, std::vector<uint8_t>& buffer) override;
    bool restore(ImagePtr& image, const uint8_t* data, size_t size) override;

    const OIIOFormatTraits& traits() const { return _traits; }
    // Whether an attached XMP packet goes into the file as the format's own XMP block (JPEG,
    // TIFF, PNG); OpenEXR keeps it as a header attribute instead.
    bool embedsXMPBlock() const;

protected:
    // Compression quality 0..100 to request, or -1 for the format's default.
    virtual int compressionQuality() const { return -1; }

private:
    friend struct OIIOWriteJob;
    OIIOFormatTraits _traits;
};

} // namespace osg
