// Several named images in one file (multi-layer OpenEXR): channels "<layer>.<channel>", each
// layer in its own value type where the format allows it.
#include "OSGOIIOImageFileType.h"

#include "OSGOIIOImageFileType_p.h"

#include "OSGXMPToolkit.h"
#include "kaLog.h"

#include <Imath/half.h>

#include <cstring>

namespace osg {

namespace {

std::vector<std::string> channelLetters(uint32_t pixelFormat) {
    switch (pixelFormat) {
    case Image::OSG_A_PF:
        return {"A"};
    case Image::OSG_L_PF:
    case Image::OSG_I_PF:
        return {"Y"};
    case Image::OSG_LA_PF:
        return {"Y", "A"};
    case Image::OSG_RGB_PF:
        return {"R", "G", "B"};
    default:
        return {"R", "G", "B", "A"};
    }
}

// 8- and 16-bit layers are stored as half floats: layered files are for compositing.
int32_t storedTypeOf(int32_t type) {
    return (type == Image::OSG_UINT8_IMAGEDATA || type == Image::OSG_UINT16_IMAGEDATA)
               ? Image::OSG_FLOAT16_IMAGEDATA
               : type;
}

struct Layer {
    const Image* image;
    int32_t storedType;
    int32_t components;
};

// Copies one value of a layer into the scanline, converting integers to half.
uint8_t* putValue(uint8_t* out, const uint8_t* in, int32_t type, int32_t storedType) {
    if (type == storedType) {
        size_t size = size_t(Image::componentSizeOf(type));
        std::memcpy(out, in, size);
        return out + size;
    }
    float v = type == Image::OSG_UINT8_IMAGEDATA
                  ? *in / 255.0f
                  : *reinterpret_cast<const uint16_t*>(in) / 65535.0f;
    Imath::half h(v);
    std::memcpy(out, &h, sizeof h);
    return out + sizeof h;
}

} // namespace

bool OIIOImageFileType::writeLayered(const ImagePtr& image, const std::string& fileName,
                                     std::vector<ImagePtr> layers, const std::string* layerNames) {
    std::string error;
    bool ok = false;
    auto fail = [&](const std::string& why) { return reportWrite(fileName, false, why); };
    if (!(getFlags() & OSG_LAYER_SUPPORTED))
        return ImageFileType::writeLayered(image, fileName, layers, layerNames);
    if (!image || !image->getData())
        return fail("no base image");

    const int width = image->getWidth(), height = image->getHeight();
    OIIO::ImageSpec spec(width, height, 0, OIIO::TypeDesc::HALF);
    std::vector<Layer> used;
    std::vector<ImagePtr> premultipliedCopies;
    std::vector<std::string> usedNames;
    size_t pixelBytes = 0;
    for (size_t i = 0; i < layers.size(); ++i) {
        const ImagePtr& layer = layers[i];
        if (!layer)
            continue;
        if (!layer->getData() || layer->getWidth() != width || layer->getHeight() != height)
            return fail("layer " + std::to_string(i) + " is empty or of another size");
        std::string name =
            layerNames && !layerNames[i].empty() ? layerNames[i] : "layer" + std::to_string(i);
        // OpenEXR's colour is colour times alpha: straight colour is premultiplied for the file.
        const Image* source = layer.get();
        if (layer->hasAlphaChannel() && layer->getAlphaMode() == Image::AlphaMode::Straight) {
            ImagePtr premultiplied = layer->clone();
            if (!premultiplied || !premultiplied->premultiplyAlpha())
                return fail("not enough memory to premultiply layer " + std::to_string(i));
            premultipliedCopies.push_back(premultiplied);
            source = premultiplied.get();
        }
        Layer entry{source, storedTypeOf(layer->getDataType()), layer->getComponents()};
        for (const std::string& letter : channelLetters(layer->getPixelFormat())) {
            spec.channelnames.push_back(name + "." + letter);
            spec.channelformats.push_back(oiio::typeDescOf(entry.storedType));
            pixelBytes += size_t(Image::componentSizeOf(entry.storedType));
        }
        used.push_back(entry);
        usedNames.push_back(name);
    }
    if (used.empty())
        return fail("no layer to write");
    spec.nchannels = int(spec.channelnames.size());
    spec.alpha_channel = -1;
    // Every layer's colour is premultiplied in the file by now.
    std::string packet = oiio::packetFor(*image);
    if (!packet.empty())
        packet = XMPToolkit::withExportField(packet, "PremultipliedAlpha", "True");
    oiio::addImageAttributes(*image, traits().oiioName, spec, &packet);
    for (const auto& [key, value] : layeredAttributes(usedNames))
        spec.attribute(key, value);

    try {
        ok = oiio::writeFile(
            fileName, traits().oiioName,
            [&](OIIO::Filesystem::IOProxy* proxy, const std::string& name, std::string& why) {
                auto out = OIIO::ImageOutput::create(traits().oiioName);
                if (!out || (proxy && !out->set_ioproxy(proxy)) || !out->open(name, spec)) {
                    why = out ? out->geterror() : OIIO::geterror();
                    return false;
                }
                std::vector<uint8_t> scanline(pixelBytes * size_t(width));
                bool written = true;
                for (int y = 0; y < height && written; ++y) {
                    // Files run top-down, images bottom-up.
                    const int row = height - 1 - y;
                    uint8_t* out8 = scanline.data();
                    for (int x = 0; x < width; ++x) {
                        for (const Layer& layer : used) {
                            const size_t valueSize =
                                size_t(Image::componentSizeOf(layer.image->getDataType()));
                            const uint8_t* in = layer.image->getData() + (size_t(row) * width + x) *
                                                                             layer.components *
                                                                             valueSize;
                            for (int c = 0; c < layer.components; ++c)
                                out8 = putValue(out8, in + c * valueSize,
                                                layer.image->getDataType(), layer.storedType);
                        }
                    }
                    written = out->write_scanline(y, 0, OIIO::TypeDesc::UNKNOWN, scanline.data());
                }
                written = out->close() && written;
                if (!written)
                    why = out->geterror();
                return written;
            },
            nullptr, error);
    } catch (const std::exception& e) {
        error = e.what();
        ok = false;
    }
    return reportWrite(fileName, ok, error);
}

} // namespace osg
