#pragma once

#include "OSGBaseTypes.h"
#include "OSGChangeList.h"
#include "OSGImage.h"
#include "OSGNode.h"

namespace osg {

// Haze between the camera and the surfaces: a surface at distance d keeps exp(-density * d) of
// its light and takes the rest from the fog colour. The background stays clear.
class Fog : public NodeCore {
public:
    enum : BitVector { ColorFieldMask = 1 << 0, DensityFieldMask = 1 << 1 };
    static RefPtr<Fog> create(const Color3f& color = {0.7f, 0.7f, 0.75f}, float density = 0.05f);
    const char* getTypeName() const override { return "Fog"; }
    const Color3f& getColor() const { return _color; }
    void setColor(const Color3f& color);
    float getDensity() const { return _density; }
    void setDensity(float density);

private:
    Fog() = default;
    Color3f _color;
    float _density = 0.05f;
};
using FogPtr = RefPtr<Fog>;

// A picture fixed to the frame: behind the scene (a backplate, shown where the background
// would be) or in front of it (a frontplate, laid over everything by its alpha). The
// rectangle is in fractions of the picture, 0 left/bottom to 1 right/top.
class ImagePlate : public NodeCore {
public:
    enum : BitVector {
        ImageFieldMask = 1 << 0,
        FrontFieldMask = 1 << 1,
        RectFieldMask = 1 << 2,
        OpacityFieldMask = 1 << 3
    };
    static RefPtr<ImagePlate> create(const ImagePtr& image, bool front);
    const char* getTypeName() const override { return "ImagePlate"; }
    const ImagePtr& getImage() const { return _image; }
    void setImage(const ImagePtr& image);
    bool isFront() const { return _front; }
    void setFront(bool front);
    void setRect(float left, float bottom, float right, float top);
    float getLeft() const { return _left; }
    float getBottom() const { return _bottom; }
    float getRight() const { return _right; }
    float getTop() const { return _top; }
    float getOpacity() const { return _opacity; }
    void setOpacity(float opacity);
    // The plate's colour and alpha (times the opacity) at a point of the picture; alpha 0
    // outside the rectangle.
    Color4f sample(float u, float v) const;

private:
    ImagePlate() = default;
    ImagePtr _image;
    bool _front = false;
    float _left = 0, _bottom = 0, _right = 1, _top = 1, _opacity = 1;
};
using ImagePlatePtr = RefPtr<ImagePlate>;

// The glow a camera lens adds around bright point lights it sees: each visible light adds its
// colour times 'intensity', falling off with the distance from the light's image over 'size'
// (a fraction of the picture height).
class LensFlare : public NodeCore {
public:
    enum : BitVector { IntensityFieldMask = 1 << 0, SizeFieldMask = 1 << 1 };
    static RefPtr<LensFlare> create(float intensity = 0.2f, float size = 0.05f);
    const char* getTypeName() const override { return "LensFlare"; }
    float getIntensity() const { return _intensity; }
    void setIntensity(float intensity);
    float getSize() const { return _size; }
    void setSize(float size);

private:
    LensFlare() = default;
    float _intensity = 0.2f, _size = 0.05f;
};
using LensFlarePtr = RefPtr<LensFlare>;

} // namespace osg
