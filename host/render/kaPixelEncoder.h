#pragma once

#include "OSGBaseTypes.h"
#include "OSGImage.h"

#include <memory>
#include <vector>

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
    // The encoder for the colour space, dithering and alpha colour in force now: the last one
    // made when none of them changed since, for renders in quick succession (making one costs
    // the colour engine milliseconds).
    static std::shared_ptr<const kaPixelEncoder> current(const osg::Color3f& alphaColor);
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

    // The encoding of integer pixels as a matrix followed by one curve per channel. A colour
    // space with a matrix/shaper profile (sRGB among them) encodes so; the model is checked
    // against the colour engine's own transform when the encoder is made and offered only when
    // it gives the same codes, so that a GPU may encode 8-bit pixels itself.
    struct Separable {
        static constexpr int kCurveSize = 4096;
        float toSpace[3][3]; // linear sRGB to the linear values of the colour space
        // Entry i of channel c is the encoded value of the linear value (i / (kCurveSize - 1))^2:
        // dense where the curves are steep, near black.
        std::vector<float> curves[3];
    };
    // Null when the encoding is not separable.
    const Separable* getSeparable() const;
    // Tells encoders apart, for caches of what they hand out (an address may be reused).
    uint64_t getId() const;
    // True when store() would encode into 'image' with the separable model alone: 8-bit RGB or
    // RGBA of colour, and a separable encoding.
    bool encodesSeparably(const osg::Image& image) const;
    // The dither tile (float RGB, getDitherSize() on a side, rows in order) or null.
    const float* getDither() const;
    int getDitherSize() const;
    osg::Color3f getAlphaColor() const;

    // One linear sRGB colour as the encoded (0..1, not clamped) and as the linear value of the
    // colour space, for tests and previews.
    void encode(const float linear[3], float encoded[3]) const;
    void toLinearOfSpace(const float linear[3], float out[3]) const;

private:
    struct Impl;
    std::unique_ptr<Impl> _impl;
};
