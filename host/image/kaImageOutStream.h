#pragma once

#include "OSGImage.h"

#include <functional>
#include <memory>
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

    // A write function that sends every image, encoded in the format of its name's extension
    // (PNG without one), to the open descriptor 'fd' (a pipe, a socket, a file), one image after
    // the other. Every write is checked: a short write, a closed reader or a full disk gives
    // false, logs the cause and, when 'lastError' is given, leaves it there. The descriptor
    // stays the caller's. The function may be called from any thread, one call at a time.
    static ImageWriteFunction descriptorWriter(int fd,
                                               std::shared_ptr<std::string> lastError = nullptr);
};
