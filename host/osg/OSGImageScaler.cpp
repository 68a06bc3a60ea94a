#include "OSGImageScaler.h"

#include "filetypes/OSGOIIOImageFileType_p.h"

#include "kaLog.h"

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

namespace osg {

bool ImageScaler::scale(const ImagePtr& source, const ImagePtr& destination,
                        const ImageFilter& filter) {
    if (!source || !destination || !source->getData() || !destination->getData()) {
        kaLog::error("ImageScaler: Nothing to scale (an image holds no pixels).");
        return false;
    }
    if (source->getPixelFormat() != destination->getPixelFormat()) {
        kaLog::error("ImageScaler: Can't scale %s pixels into %s pixels.",
                     Image::pixelFormatName(source->getPixelFormat()),
                     Image::pixelFormatName(destination->getPixelFormat()));
        return false;
    }
    // Both images are bottom-up, so rows need no flipping: the buffers are wrapped as they are.
    OIIO::ImageSpec srcSpec(source->getWidth(), source->getHeight(), source->getComponents(),
                            oiio::typeDescOf(source->getDataType()));
    OIIO::ImageSpec dstSpec(destination->getWidth(), destination->getHeight(),
                            destination->getComponents(),
                            oiio::typeDescOf(destination->getDataType()));
    OIIO::ImageBuf src(srcSpec, const_cast<uint8_t*>(source->getData()));
    OIIO::ImageBuf dst(dstSpec, destination->getData());
    if (!OIIO::ImageBufAlgo::resize(dst, src, filter.getName(), 2.0f * filter.getRadius())) {
        kaLog::error("ImageScaler: %s", dst.geterror().c_str());
        return false;
    }
    return true;
}

} // namespace osg
