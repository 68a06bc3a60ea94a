#pragma once

// Shared by the OpenImageIO file type's single and layered writers.

#include "OSGImage.h"

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

// The image's resolution and attachments as attributes of 'spec' for the format 'oiioName'.
void addImageAttributes(const Image& image, const char* oiioName, OIIO::ImageSpec& spec);

// Runs 'writeTo' against a temporary file beside 'fileName' and renames it to 'fileName' once
// 'writeTo' has succeeded; the temporary file is removed on any failure. 'writeTo' gets the
// temporary name and reports its failure reason through 'error'.
bool writeAtomically(const std::string& fileName,
                     const std::function<bool(const std::string&, std::string&)>& writeTo,
                     std::string& error);

} // namespace osg::oiio
