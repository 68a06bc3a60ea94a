#include "OSGSceneEffects.h"

#include <algorithm>
#include <cmath>

namespace osg {

RefPtr<Fog> Fog::create(const Color3f& color, float density) {
    RefPtr<Fog> fog(new Fog());
    fog->_color = color;
    fog->_density = std::max(density, 0.0f);
    return fog;
}

void Fog::setColor(const Color3f& color) {
    _color = color;
    recordChange(RefPtr<Fog>(this), ColorFieldMask);
}

void Fog::setDensity(float density) {
    _density = std::max(density, 0.0f);
    recordChange(RefPtr<Fog>(this), DensityFieldMask);
}

RefPtr<ImagePlate> ImagePlate::create(const ImagePtr& image, bool front) {
    RefPtr<ImagePlate> plate(new ImagePlate());
    plate->_image = image;
    plate->_front = front;
    return plate;
}

void ImagePlate::setImage(const ImagePtr& image) {
    _image = image;
    recordChange(RefPtr<ImagePlate>(this), ImageFieldMask);
}

void ImagePlate::setFront(bool front) {
    _front = front;
    recordChange(RefPtr<ImagePlate>(this), FrontFieldMask);
}

void ImagePlate::setRect(float left, float bottom, float right, float top) {
    _left = left;
    _bottom = bottom;
    _right = right;
    _top = top;
    recordChange(RefPtr<ImagePlate>(this), RectFieldMask);
}

void ImagePlate::setOpacity(float opacity) {
    _opacity = std::min(std::max(opacity, 0.0f), 1.0f);
    recordChange(RefPtr<ImagePlate>(this), OpacityFieldMask);
}

Color4f ImagePlate::sample(float u, float v) const {
    if (!_image || !_image->getData() || _right <= _left || _top <= _bottom || u < _left ||
        u >= _right || v < _bottom || v >= _top)
        return {0, 0, 0, 0};
    // Nearest texel: plates are pictures shown at about their own resolution.
    const int w = _image->getWidth(), h = _image->getHeight();
    const int x = std::min(int((u - _left) / (_right - _left) * float(w)), w - 1);
    const int y = std::min(int((v - _bottom) / (_top - _bottom) * float(h)), h - 1);
    Color4f c = _image->getPixel(x, y);
    c.a *= _opacity;
    return c;
}

RefPtr<LensFlare> LensFlare::create(float intensity, float size) {
    RefPtr<LensFlare> flare(new LensFlare());
    flare->_intensity = std::max(intensity, 0.0f);
    flare->_size = std::max(size, 1e-4f);
    return flare;
}

void LensFlare::setIntensity(float intensity) {
    _intensity = std::max(intensity, 0.0f);
    recordChange(RefPtr<LensFlare>(this), IntensityFieldMask);
}

void LensFlare::setSize(float size) {
    _size = std::max(size, 1e-4f);
    recordChange(RefPtr<LensFlare>(this), SizeFieldMask);
}

} // namespace osg
