#pragma once

#include "OSGImage.h"

#include <functional>
#include <string>
#include <vector>

namespace osg {
class ImageFileType;
}

// Where finished images go instead of files: a program (a streaming server, a test) installs
// write functions here, and every image the export writes is handed to them. Thread-safe:
// background writers call the getters.
class kaImageOutStream {
public:
    using ImageWriteFunction = std::function<bool(osg::ImagePtr, std::string)>;
    using LayeredImageWriteFunction =
        std::function<bool(osg::ImageFileType*, const osg::ImagePtr&, std::string,
                           std::vector<osg::ImagePtr>, const std::string*)>;

    // Empty when none is installed.
    static ImageWriteFunction getImageWriteFunction();
    static LayeredImageWriteFunction getLayeredImageWriteFunction();

    // Installing an empty function removes the current one.
    static void setImageWriteFunction(ImageWriteFunction function);
    static void setLayeredImageWriteFunction(LayeredImageWriteFunction function);
};
