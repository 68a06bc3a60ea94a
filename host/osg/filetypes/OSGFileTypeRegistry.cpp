#include "OSGFileTypeRegistry_p.h"

#include "OSGJPGImageFileType.h"
#include "OSGMTDImageFileType.h"
#include "OSGOIIOImageFileType.h"
#include "OSGPNGImageFileType.h"

#include <OpenImageIO/imageio.h>

namespace osg {

namespace {
using T = Image::Type;
constexpr int32_t U8 = T::OSG_UINT8_IMAGEDATA, U16 = T::OSG_UINT16_IMAGEDATA,
                  U32 = T::OSG_UINT32_IMAGEDATA, F16 = T::OSG_FLOAT16_IMAGEDATA,
                  F32 = T::OSG_FLOAT32_IMAGEDATA;
constexpr uint32_t RW = ImageFileType::OSG_READ_SUPPORTED | ImageFileType::OSG_WRITE_SUPPORTED;
constexpr uint32_t LAYERS = ImageFileType::OSG_LAYER_SUPPORTED;
constexpr FileAlpha NONE = FileAlpha::None, ASSOCIATED = FileAlpha::Associated,
                    UNASSOCIATED = FileAlpha::Unassociated, EITHER = FileAlpha::Either;

// The formats we offer, in the order users see them. A format is offered only when this
// OpenImageIO build can write it. JPEG 2000 is left out: this OpenImageIO can't read back the
// files it writes.
std::vector<OIIOFormatTraits> formatTable() {
    return {
        // name, MIME type, suffixes, flags, kept types, others become, alpha, gray, max side
        {"png", "image/png", {"png"}, RW, {U8, U16}, U16, UNASSOCIATED, true, 0},
        // libjpeg ends the process on larger images: they are refused before it sees them.
        {"jpeg", "image/jpeg", {"jpg", "jpeg", "jpe", "jfif"}, RW, {U8}, U8, NONE, true, 65500},
        {"tiff", "image/tiff", {"tif", "tiff"}, RW, {U8, U16, U32, F32}, F32, EITHER, true, 0},
        {"openexr", "image/x-exr", {"exr"}, RW | LAYERS, {F16, F32, U32}, F16, ASSOCIATED, true, 0},
        {"hdr", "image/vnd.radiance", {"hdr", "rgbe"}, RW, {F32}, F32, NONE, false, 0},
        {"bmp", "image/bmp", {"bmp"}, RW, {U8}, U8, UNASSOCIATED, false, 0},
        {"targa", "image/x-tga", {"tga"}, RW, {U8}, U8, UNASSOCIATED, true, 65535},
        // OpenImageIO's WebP writer divides straight alpha once more: no alpha here.
        {"webp", "image/webp", {"webp"}, RW, {U8}, U8, NONE, false, 16383},
        {"pnm",
         "image/x-portable-anymap",
         {"ppm", "pgm", "pnm"},
         RW,
         {U8, U16},
         U16,
         NONE,
         true,
         0},
        {"sgi", "image/x-sgi", {"sgi", "rgb"}, RW, {U8, U16}, U16, UNASSOCIATED, true, 65535},
        {"dpx", "image/x-dpx", {"dpx"}, RW, {U8, U16}, U16, UNASSOCIATED, true, 0},
    };
}
} // namespace

std::vector<std::unique_ptr<ImageFileType>> createImageFileTypes() {
    std::vector<std::unique_ptr<ImageFileType>> types;
    for (OIIOFormatTraits& traits : formatTable()) {
        bool isJpeg = std::string(traits.oiioName) == "jpeg";
        if (!isJpeg && !OIIO::ImageOutput::create(traits.oiioName))
            continue;
        if (isJpeg)
            types.push_back(std::make_unique<JPGImageFileType>(std::move(traits)));
        else if (std::string(traits.oiioName) == "png")
            types.push_back(std::make_unique<PNGImageFileType>(std::move(traits)));
        else
            types.push_back(std::make_unique<OIIOImageFileType>(std::move(traits)));
    }
    types.push_back(std::make_unique<MTDImageFileType>());
    return types;
}

} // namespace osg
