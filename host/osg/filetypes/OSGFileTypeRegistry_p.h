#pragma once

#include "OSGImageFileType.h"

#include <memory>
#include <vector>

namespace osg {
// Every image file type this build can offer, the JPEG type always among them.
std::vector<std::unique_ptr<ImageFileType>> createImageFileTypes();
} // namespace osg
