#include "OSGPNGImageFileType.h"

#include "OSGFileProxy_p.h"
#include "OSGOIIOImageFileType_p.h"
#include "OSGPNGWriter_p.h"

#include "kaAtomicFile.h"
#include "kaLog.h"
#include "kaPreferenceKeys.h"
#include "kaPreferences.h"

#include <new>

namespace osg {

namespace {

constexpr const char* kLevelKey = "ImageExport png level";

int levelIn(const boost::any& value) {
    const int* level = boost::any_cast<int>(&value);
    return level && *level >= 0 && *level <= 9 ? *level : -1;
}

// The image as PNG takes it (8 or 16 bits, straight alpha); null with 'error' when it can't be.
ImagePtr preparedFor(const ImagePtr& image, const OIIOFormatTraits& traits,
                     const std::string& fileName, std::string& error) {
    error = oiio::unwritableBecause(image, traits);
    ImagePtr prepared =
        error.empty() ? oiio::prepareForFormat(image, traits, fileName) : ImagePtr();
    if (!prepared && error.empty())
        error = "can't convert the image for this format";
    return prepared;
}

} // namespace

PNGImageFileType::PNGImageFileType(OIIOFormatTraits traits)
    : OIIOImageFileType(std::move(traits)) {}

int PNGImageFileType::compressionLevel() {
    const int level = levelIn(kaPreferences::getData().get(kLevelKey));
    if (level >= 0)
        return level;
    static const int fallback = levelIn(kaPreferenceKeys::defaults().get(kLevelKey));
    return fallback >= 0 ? fallback : 1;
}

bool PNGImageFileType::write(const ImagePtr& image, const std::string& fileName) {
    std::string error;
    bool ok = false;
    try {
        const int level = compressionLevel();
        ImagePtr prepared = preparedFor(image, traits(), fileName, error);
        if (prepared) {
            // The packet says which alpha the file holds.
            const std::string packet = oiio::packetAsEmbedded(oiio::packetFor(*prepared));
            kaAtomicFile file(fileName);
            if (file.open()) {
                png::PNGOptions options;
                options.level = level;
                options.xmp = &packet;
                std::string codecError;
                // The proxy gathers libpng's small writes into large checked ones; the header
                // goes to the disk before the pixels are compressed.
                oiio::FileProxy proxy(file);
                options.headerDone = [&] { return proxy.finish(); };
                const bool encoded = png::writePNG(
                    *prepared, options,
                    [&](const uint8_t* data, size_t size) {
                        proxy.write(data, size);
                        return !file.failed();
                    },
                    fileName, codecError);
                proxy.finish();
                // A disk that failed is the cause of whatever the encoder said afterwards.
                if (!file.failed() && !encoded)
                    file.fail(codecError.empty() ? "the PNG encoder failed" : codecError);
                file.close();
                file.commit();
            }
            ok = file.committed();
            if (!ok)
                error = file.error();
        }
    } catch (const std::exception& e) {
        error = e.what();
        ok = false;
    }
    return reportWrite(fileName, ok, error);
}

bool PNGImageFileType::store(const ImagePtr& image, std::vector<uint8_t>& buffer) {
    std::string error;
    bool ok = false;
    try {
        const int level = compressionLevel();
        ImagePtr prepared = preparedFor(image, traits(), "memory", error);
        if (prepared) {
            png::PNGOptions options;
            options.level = level;
            // Bytes in memory carry no XMP packet, as before: a stream of captures has none.
            ok = png::encodePNG(*prepared, options, buffer, error);
        }
    } catch (const std::exception& e) {
        error = e.what();
        ok = false;
    }
    if (!ok)
        kaLog::error("ImageFileType: Couldn't encode an image as %s: %s", getMimeType().c_str(),
                     error.c_str());
    return ok;
}

} // namespace osg
