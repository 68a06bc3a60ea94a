#pragma once

// Shared by the OpenImageIO file type's single and layered writers.

#include "OSGImage.h"
#include "OSGOIIOImageFileType.h"

#include <OpenImageIO/imageio.h>

#include <functional>
#include <string>

namespace osg::oiio {

OIIO::TypeDesc typeDescOf(int32_t type);
// Header attribute of OpenEXR files that holds an ICC profile as base64 text: OpenEXR 3.1 has
// no attribute type for raw bytes.
constexpr const char* kExrICCProfileAttribute = "iccProfileBase64";
// Header attribute of OpenEXR files that holds the XMP packet.
constexpr const char* kExrXMPAttribute = "xmp";

// Writes the XMP packet into the finished file at 'path' (JPEG, TIFF and PNG as their standard
// XMP blocks). Exempi is not reentrant for files, so calls are serialised.
bool embedXMP(const std::string& path, const std::string& packet, std::string& error);
// The packet as embedXMP() puts it into a file (compact, read-only, without padding), for
// writers that embed it themselves; the packet as it is when it does not parse.
std::string packetAsEmbedded(const std::string& packet);

// The image's resolution and attachments as attributes of 'spec' for the format 'oiioName';
// 'xmp', when given, stands for the image's XMP packet.
void addImageAttributes(const Image& image, const char* oiioName, OIIO::ImageSpec& spec,
                        const std::string* xmp = nullptr);

// Why the format can't hold the image at all; "" when it can.
std::string unwritableBecause(const ImagePtr& image, const OIIOFormatTraits& traits);

// The image as the format can take it: a converted copy when the format lacks its data type,
// its channel layout or its alpha convention, else the image itself. Null when a conversion
// failed; 'fileName' names the file in the warning about a dropped alpha channel.
ImagePtr prepareForFormat(const ImagePtr& image, const OIIOFormatTraits& traits,
                          const std::string& fileName);

// The image's XMP packet as the file will say it: with the alpha convention the image holds.
// Empty when the image has no packet.
std::string packetFor(const Image& image);

// Writes the file 'fileName' of the OpenImageIO format 'oiioName' so that it is complete under
// its final name or not there at all (kaAtomicFile). 'encode' runs the codec: it gets the proxy
// to hand to ImageOutput::set_ioproxy (null for formats that can only write to a name) and the
// name to open, and reports a codec failure through its last argument. A non-empty 'xmpPacket'
// is embedded into the finished file before it gets its final name. False with 'error' (the
// disk's cause first, then the codec's) on any failure.
using Encoder =
    std::function<bool(OIIO::Filesystem::IOProxy* proxy, const std::string& name, std::string&)>;
bool writeFile(const std::string& fileName, const char* oiioName, const Encoder& encode,
               const std::string* xmpPacket, std::string& error);

} // namespace osg::oiio
