#pragma once

// Shared by the OpenImageIO file type's single and layered writers.

#include "OSGImage.h"

#include <OpenImageIO/imageio.h>

#include <functional>
#include <string>

namespace osg::oiio {

OIIO::TypeDesc typeDescOf(int32_t type);
// The image's resolution and attachments as attributes of 'spec'.
void addImageAttributes(const Image& image, OIIO::ImageSpec& spec);

// Runs 'writeTo' against a temporary file beside 'fileName' and renames it to 'fileName' once
// 'writeTo' has succeeded; the temporary file is removed on any failure. 'writeTo' gets the
// temporary name and reports its failure reason through 'error'.
bool writeAtomically(const std::string& fileName,
                     const std::function<bool(const std::string&, std::string&)>& writeTo,
                     std::string& error);

} // namespace osg::oiio
