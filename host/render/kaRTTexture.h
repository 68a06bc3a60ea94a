#pragma once

#include "OSGImage.h"
#include "OSGMaterial.h"
#include "kaRTMath.h"

struct kaRTTexel {
    kaRT::V3 color; // linear
    float alpha;
};

// The linear colour and the alpha of an RGBA 8-bit picture (rows bottom-up) at texture
// coordinates (u, v), filtered between its four nearest texels after decoding, as OpenGL
// samples an sRGB texture; beyond 0..1 as the wrap modes say. Pictures of data rather than
// colour (not 'srgb') are taken as they are.
kaRTTexel kaRTSample(const osg::Image& image, osg::TextureWrap wrapU, osg::TextureWrap wrapV,
                     float u, float v, bool srgb = true);
