#pragma once

#include "OSGBaseTypes.h"
#include "OSGImage.h"

#include <string>

// Host image helpers.
class kaImage {
public:
    // Name of the image attachment that carries an ICC profile's bytes into files.
    static const char* const ICCProfileAttachmentKey;

    // Suffix of the format used when a file name has none ("png" unless the host changes it).
    static std::string getDefaultImageFormat();
    static void setDefaultImageFormat(const std::string& suffix);

    // Attaches the ICC profile file's bytes to 'image', from where the file types embed it
    // (PNG iCCP, JPEG APP2, TIFF and EXR attributes). False, leaving the image as it was, when
    // the file can't be read or is no ICC profile.
    static bool embedActiveICCProfile(osg::ImagePtr& image, const std::string& profileFileName);

    // Lays 'overlay' over 'target' at 'offset' (pixels from the lower-left corner; the part
    // outside is cut off): target = overlay * color * a + target * (1 - a), with
    // a = overlay alpha * color.a * opacity; pixels with a <= 'minAlpha' are left alone, so
    // target values above 1 survive outside the overlay's marks. A target alpha channel
    // becomes a + alpha * (1 - a). False when an image is empty.
    static bool blendImage(osg::ImagePtr& target, const osg::ImagePtr& overlay,
                           const osg::Vec3i& offset, const osg::Color4f& color, float opacity,
                           float minAlpha);
};
