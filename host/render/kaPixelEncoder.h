#pragma once

#include "OSGBaseTypes.h"
#include "OSGImage.h"

#include <memory>

// Turns what the renderers make - scene-linear colour in linear sRGB primaries, premultiplied
// by alpha, alpha being the coverage of geometry - into what an image of a given kind holds:
//  - float images: linear colour in the primaries of the host's active colour space,
//    premultiplied or straight as the image says;
//  - integer images: straight colour in the encoding of the active colour space's profile,
//    dithered as the host's image postprocessor says (by the pixel's place in the whole
//    picture, so that tiles dither as the whole does), then rounded;
//  - images of data (independent alpha): the values as they are.
// Where alpha is 0 a straight image shows the alpha colour (a linear colour); a premultiplied
// one shows nothing there. Made once per render for the colour space in force then; const and
// safe from any thread.
class kaPixelEncoder {
public:
    explicit kaPixelEncoder(const osg::Color3f& alphaColor);
    ~kaPixelEncoder();
    kaPixelEncoder(const kaPixelEncoder&) = delete;
    kaPixelEncoder& operator=(const kaPixelEncoder&) = delete;

    // Marks 'image' for what store() puts into it (8-bit images with alpha hold straight
    // alpha). Called once for an image before its blocks are stored, which may then come from
    // several threads at once: store() changes only pixels.
    void prepare(osg::Image& image) const;
    // Writes the w x h block 'rgba' (rows bottom-up, four floats a pixel) into 'image' at
    // (x, y), cut to the image; (pictureX, pictureY) is the block's corner in the whole picture.
    void store(osg::Image& image, int x, int y, int w, int h, const float* rgba, int pictureX,
               int pictureY) const;

    // One linear sRGB colour as the encoded (0..1, not clamped) and as the linear value of the
    // colour space, for tests and previews.
    void encode(const float linear[3], float encoded[3]) const;
    void toLinearOfSpace(const float linear[3], float out[3]) const;

private:
    struct Impl;
    std::unique_ptr<Impl> _impl;
};
