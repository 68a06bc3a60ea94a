#include "OSGOIIOImageFileType.h"

#include "OSGOIIOImageFileType_p.h"

#include "OSGImageFileType.h"
#include "OSGXMPToolkit.h"

#include "kaLog.h"

#include <OpenImageIO/filesystem.h>

#include <QByteArray>

#include <algorithm>
#include <cstring>
#include <sstream>
#include <vector>

namespace osg {

namespace oiio {

OIIO::TypeDesc typeDescOf(int32_t type) {
    switch (type) {
    case Image::OSG_UINT8_IMAGEDATA:
        return OIIO::TypeDesc::UINT8;
    case Image::OSG_UINT16_IMAGEDATA:
        return OIIO::TypeDesc::UINT16;
    case Image::OSG_UINT32_IMAGEDATA:
        return OIIO::TypeDesc::UINT32;
    case Image::OSG_FLOAT16_IMAGEDATA:
        return OIIO::TypeDesc::HALF;
    case Image::OSG_FLOAT32_IMAGEDATA:
        return OIIO::TypeDesc::FLOAT;
    }
    return OIIO::TypeDesc::UNKNOWN;
}

std::string packetFor(const Image& image) {
    const std::string* xmp = image.findAttachmentField(kXMPAttachment);
    if (!xmp)
        return std::string();
    if (!image.hasAlphaChannel() || image.getAlphaMode() == Image::AlphaMode::Independent)
        return *xmp;
    return XMPToolkit::withExportField(*xmp, "PremultipliedAlpha",
                                       image.isAlphaPremultiplied() ? "True" : "False");
}

void addImageAttributes(const Image& image, const char* oiioName, OIIO::ImageSpec& spec,
                        const std::string* xmpPacket) {
    if (image.getResUnit() == Image::OSG_RESUNIT_INCH) {
        spec.attribute("XResolution", image.getResX());
        spec.attribute("YResolution", image.getResY());
        spec.attribute("ResolutionUnit", "in");
    }
    if (const std::string* comment = image.findAttachmentField(kCommentAttachment))
        spec.attribute("ImageDescription", *comment);
    const std::string* xmp = xmpPacket ? xmpPacket : image.findAttachmentField(kXMPAttachment);
    if (xmp && !xmp->empty() && std::string(oiioName) == "openexr")
        spec.attribute(kExrXMPAttribute, *xmp);
    if (const std::string* text = image.findAttachmentField(kChromaticitiesAttachment)) {
        float values[8];
        std::istringstream in(*text);
        int read = 0;
        while (read < 8 && in >> values[read])
            ++read;
        if (read == 8 && std::string(oiioName) == "openexr")
            spec.attribute("chromaticities", OIIO::TypeDesc(OIIO::TypeDesc::FLOAT, 8), values);
    }
    if (const std::string* profile = image.findAttachmentField(kICCProfileAttachment)) {
        if (std::string(oiioName) == "openexr")
            spec.attribute(kExrICCProfileAttribute,
                           QByteArray::fromRawData(profile->data(), int(profile->size()))
                               .toBase64()
                               .toStdString());
        else
            spec.attribute("ICCProfile",
                           OIIO::TypeDesc(OIIO::TypeDesc::UINT8, int(profile->size())),
                           profile->data());
    }
}

// Why the format can't hold the image at all; "" when it can.
std::string unwritableBecause(const ImagePtr& image, const OIIOFormatTraits& traits) {
    if (!image || !image->getData())
        return "the image holds no pixels";
    if (traits.maxSide > 0 &&
        (image->getWidth() > traits.maxSide || image->getHeight() > traits.maxSide))
        return std::string(traits.mimeType) + " files hold at most " +
               std::to_string(traits.maxSide) + " x " + std::to_string(traits.maxSide) +
               " pixels, not " + std::to_string(image->getWidth()) + " x " +
               std::to_string(image->getHeight());
    return std::string();
}

// The image as the format can take it: a converted copy when the format lacks its data type,
// its channel layout or its alpha convention, else the image itself.
ImagePtr prepareForFormat(const ImagePtr& image, const OIIOFormatTraits& traits,
                          const std::string& fileName) {
    ImagePtr prepared = image;
    auto ownCopy = [&] {
        if (prepared == image)
            prepared = image->clone();
        return prepared != nullptr;
    };
    const bool keepsAlpha = traits.alpha != FileAlpha::None;
    auto convertAlpha = [&] {
        if (!keepsAlpha || !prepared->hasAlphaChannel() ||
            prepared->getAlphaMode() == Image::AlphaMode::Independent)
            return true;
        const bool wanted = traits.alpha == FileAlpha::Associated ||
                            (traits.alpha == FileAlpha::Either && prepared->isAlphaPremultiplied());
        if (wanted == prepared->isAlphaPremultiplied())
            return true;
        return ownCopy() &&
               (wanted ? prepared->premultiplyAlpha() : prepared->unpremultiplyAlpha());
    };
    const auto& kept = traits.keptTypes;
    const bool convertType =
        std::find(kept.begin(), kept.end(), image->getDataType()) == kept.end();
    auto convertDataType = [&] {
        return !convertType || (ownCopy() && prepared->convertDataTypeTo(traits.otherTypesBecome));
    };
    // The alpha convention changes where the values are more precise: before a conversion to
    // fewer bits, after one to more.
    const bool widening = convertType && Image::componentSizeOf(traits.otherTypesBecome) >
                                             Image::componentSizeOf(image->getDataType());
    if (widening ? !(convertDataType() && convertAlpha()) : !(convertAlpha() && convertDataType()))
        return ImagePtr();
    uint32_t format = prepared->getPixelFormat();
    uint32_t wanted = format;
    if (!traits.keepsGray && prepared->getComponents() < 3)
        wanted = prepared->hasAlphaChannel() && keepsAlpha ? Image::OSG_RGBA_PF : Image::OSG_RGB_PF;
    if (!keepsAlpha && prepared->hasAlphaChannel())
        wanted = (wanted == Image::OSG_RGBA_PF || wanted == Image::OSG_RGB_PF) ? Image::OSG_RGB_PF
                                                                               : Image::OSG_L_PF;
    if (image->hasAlphaChannel() && !keepsAlpha)
        kaLog::warning("ImageFileType: %s keeps no alpha channel; '%s' is written without it.",
                       traits.mimeType, fileName.c_str());
    if (wanted != format) {
        ImagePtr reformatted = Image::create();
        if (!prepared->reformat(Image::PixelFormat(wanted), reformatted))
            return ImagePtr();
        prepared = reformatted;
    }
    return prepared;
}

} // namespace oiio

namespace {

OIIO::ImageSpec specFor(const Image& image, const char* oiioName, const std::string* xmp) {
    OIIO::ImageSpec spec(image.getWidth(), image.getHeight(), image.getComponents(),
                         oiio::typeDescOf(image.getDataType()));
    switch (image.getPixelFormat()) {
    case Image::OSG_A_PF:
        spec.channelnames = {"A"};
        spec.alpha_channel = 0;
        break;
    case Image::OSG_L_PF:
    case Image::OSG_I_PF:
        spec.channelnames = {"Y"};
        break;
    case Image::OSG_LA_PF:
        spec.channelnames = {"Y", "A"};
        spec.alpha_channel = 1;
        break;
    default:
        break; // OpenImageIO's R, G, B (, A) are right
    }
    oiio::addImageAttributes(image, oiioName, spec, xmp);
    // What the pixels hold (the format's own convention by now): OpenImageIO writes them as
    // they are and marks TIFF files either way.
    spec.attribute("oiio:UnassociatedAlpha", image.isAlphaPremultiplied() ? 0 : 1);
    return spec;
}

// Images are stored bottom-up, files top-down: rows go out in bands turned the right way up.
// Handing OpenImageIO the whole image with a negative stride would cost a quarter more time for
// large EXR files, which it then copies and compresses in smaller pieces.
bool writePixels(OIIO::ImageOutput& out, const Image& image) {
    const size_t row = image.getRowSize();
    const int height = image.getHeight();
    if (height <= 0 || row == 0)
        return false;
    const int bandRows = int(std::clamp<size_t>((size_t(16) << 20) / row, 1, size_t(height)));
    std::vector<uint8_t> band(size_t(bandRows) * row);
    const OIIO::TypeDesc type = oiio::typeDescOf(image.getDataType());
    for (int top = 0; top < height; top += bandRows) {
        const int end = std::min(height, top + bandRows);
        for (int y = top; y < end; ++y)
            std::memcpy(&band[size_t(y - top) * row],
                        image.getData() + size_t(height - 1 - y) * row, row);
        if (!out.write_scanlines(top, end, 0, type, band.data()))
            return false;
    }
    return true;
}

Image::PixelFormat pixelFormatFor(const OIIO::ImageSpec& spec) {
    switch (spec.nchannels) {
    case 1:
        return spec.alpha_channel == 0 ? Image::OSG_A_PF : Image::OSG_L_PF;
    case 2:
        return Image::OSG_LA_PF;
    case 3:
        return Image::OSG_RGB_PF;
    default:
        return Image::OSG_RGBA_PF;
    }
}

int32_t dataTypeFor(const OIIO::TypeDesc& format) {
    if (format == OIIO::TypeDesc::UINT8)
        return Image::OSG_UINT8_IMAGEDATA;
    if (format == OIIO::TypeDesc::UINT16)
        return Image::OSG_UINT16_IMAGEDATA;
    if (format == OIIO::TypeDesc::HALF)
        return Image::OSG_FLOAT16_IMAGEDATA;
    if (format == OIIO::TypeDesc::UINT32)
        return Image::OSG_UINT32_IMAGEDATA;
    return Image::OSG_FLOAT32_IMAGEDATA;
}

// Pixels come in as the file holds them, without premultiplying straight alpha.
OIIO::ImageSpec readConfig() {
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);
    return config;
}

bool readFrom(OIIO::ImageInput& in, ImagePtr& image, std::string& error) {
    const OIIO::ImageSpec& spec = in.spec();
    Image::PixelFormat format = pixelFormatFor(spec);
    int32_t type = dataTypeFor(spec.format);
    if (!image->set(format, spec.width, spec.height, 1, 1, 1, 0.0, nullptr, type)) {
        error = "not enough memory";
        return false;
    }
    const int channels = Image::componentsOf(format);
    const OIIO::stride_t row = OIIO::stride_t(image->getRowSize());
    uint8_t* last = image->getData() + (spec.height - 1) * row;
    if (!in.read_image(0, 0, 0, channels, oiio::typeDescOf(type), last, OIIO::AutoStride, -row)) {
        error = in.geterror();
        return false;
    }
    std::string unit = spec.get_string_attribute("ResolutionUnit");
    if (unit == "in" || unit == "inch" || unit == "cm") {
        float scale = unit == "cm" ? 2.54f : 1.0f;
        image->setResX(spec.get_float_attribute("XResolution", 72.0f) * scale);
        image->setResY(spec.get_float_attribute("YResolution", 72.0f) * scale);
        image->setResUnit(Image::OSG_RESUNIT_INCH);
    } else {
        image->setResUnit(Image::OSG_RESUNIT_NONE);
    }
    // Read as the file holds them; EXR and associated TIFF hold colour times alpha.
    image->setAlphaPremultiplied(image->hasAlphaChannel() &&
                                 spec.get_int_attribute("oiio:UnassociatedAlpha", 0) == 0);
    std::string description = spec.get_string_attribute("ImageDescription");
    if (!description.empty())
        image->setAttachmentField("Comment", description);
    return true;
}

} // namespace

OIIOImageFileType::OIIOImageFileType(OIIOFormatTraits traits)
    : ImageFileType(traits.mimeType, traits.suffixes, traits.flags)
    , _traits(std::move(traits)) {}

struct OIIOWriteJob {
    // Opens 'name' (a file, or any name when 'proxy' is given) and writes the prepared image.
    static bool run(const OIIOImageFileType& type, const Image& image, const std::string* xmp,
                    const std::string& name, OIIO::Filesystem::IOProxy* proxy, std::string& error) {
        auto out = OIIO::ImageOutput::create(type._traits.oiioName);
        if (!out) {
            error = OIIO::geterror();
            return false;
        }
        OIIO::ImageSpec spec = specFor(image, type._traits.oiioName, xmp);
        int quality = type.compressionQuality();
        if (quality >= 0) {
            spec.attribute("Compression", "jpeg:" + std::to_string(quality));
            spec.attribute("CompressionQuality", quality);
        }
        if (proxy && !out->set_ioproxy(proxy)) {
            error = "the format can't be written through a proxy";
            return false;
        }
        bool ok = out->open(name, spec) && writePixels(*out, image);
        ok = out->close() && ok;
        if (!ok)
            error = out->geterror();
        return ok;
    }
};

bool OIIOImageFileType::write(const ImagePtr& image, const std::string& fileName) {
    std::string error;
    bool ok = false;
    try {
        error = oiio::unwritableBecause(image, _traits);
        ImagePtr prepared =
            error.empty() ? oiio::prepareForFormat(image, _traits, fileName) : ImagePtr();
        if (!prepared) {
            if (error.empty())
                error = "can't convert the image for this format";
        } else {
            // The packet says which alpha the file holds, and goes into the finished file
            // before it gets its final name.
            const std::string packet = oiio::packetFor(*prepared);
            ok = oiio::writeFile(
                fileName, _traits.oiioName,
                [&](OIIO::Filesystem::IOProxy* proxy, const std::string& name, std::string& why) {
                    return OIIOWriteJob::run(*this, *prepared, &packet, name, proxy, why);
                },
                embedsXMPBlock() && !packet.empty() ? &packet : nullptr, error);
        }
    } catch (const std::exception& e) {
        error = e.what();
        ok = false;
    }
    return reportWrite(fileName, ok, error);
}

bool OIIOImageFileType::store(const ImagePtr& image, std::vector<uint8_t>& buffer) {
    std::string error;
    bool ok = false;
    try {
        error = oiio::unwritableBecause(image, _traits);
        ImagePtr prepared =
            error.empty() ? oiio::prepareForFormat(image, _traits, "memory") : ImagePtr();
        if (!prepared) {
            if (error.empty())
                error = "can't convert the image for this format";
        } else {
            buffer.clear();
            OIIO::Filesystem::IOVecOutput proxy(buffer);
            const std::string packet = oiio::packetFor(*prepared);
            ok = OIIOWriteJob::run(*this, *prepared, &packet, "memory." + getSuffixList().front(),
                                   &proxy, error);
        }
    } catch (const std::exception& e) {
        error = e.what();
    }
    if (!ok)
        kaLog::error("ImageFileType: Couldn't encode an image as %s: %s", getMimeType().c_str(),
                     error.c_str());
    return ok;
}

bool OIIOImageFileType::read(ImagePtr& image, const std::string& fileName) {
    std::string error;
    bool ok = false;
    try {
        OIIO::ImageSpec config = readConfig();
        auto in = OIIO::ImageInput::open(fileName, &config);
        if (!in)
            error = OIIO::geterror();
        else
            ok = readFrom(*in, image, error);
    } catch (const std::exception& e) {
        error = e.what();
    }
    if (!ok)
        kaLog::error("ImageFileType: Couldn't read '%s': %s", fileName.c_str(), error.c_str());
    return ok;
}

bool OIIOImageFileType::restore(ImagePtr& image, const uint8_t* data, size_t size) {
    std::string error;
    bool ok = false;
    try {
        OIIO::Filesystem::IOMemReader proxy(data, size);
        OIIO::ImageSpec config = readConfig(), spec;
        auto in = OIIO::ImageInput::create(_traits.oiioName);
        if (!in || !in->set_ioproxy(&proxy))
            error = in ? "the format can't be read from memory" : OIIO::geterror();
        else if (!in->open("memory." + getSuffixList().front(), spec, config))
            error = in->geterror();
        else
            ok = readFrom(*in, image, error);
    } catch (const std::exception& e) {
        error = e.what();
    }
    if (!ok)
        kaLog::error("ImageFileType: Couldn't decode %s data: %s", getMimeType().c_str(),
                     error.c_str());
    return ok;
}

} // namespace osg
