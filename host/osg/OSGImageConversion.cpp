// Pixel-format and data-type conversions of osg::Image. Every value passes through a float in
// 0..1 (integers) or as it is (floats), which is exact for 8- and 16-bit data.
#include "OSGImage.h"

#include <Imath/half.h>

#include <algorithm>
#include <cmath>
#include <new>

namespace osg {

namespace {

template <typename T>
T quantize(float v, double max) {
    if (!(v > 0.0f)) // also NaN
        return 0;
    if (v >= 1.0f)
        return T(max);
    return T(std::lround(double(v) * max));
}

struct Rgba {
    float r, g, b, a;
};

Rgba toRgba(const float* c, uint32_t format) {
    switch (format) {
    case Image::OSG_A_PF:
        return {0.0f, 0.0f, 0.0f, c[0]};
    case Image::OSG_L_PF:
        return {c[0], c[0], c[0], 1.0f};
    case Image::OSG_I_PF:
        return {c[0], c[0], c[0], c[0]};
    case Image::OSG_LA_PF:
        return {c[0], c[0], c[0], c[1]};
    case Image::OSG_RGB_PF:
        return {c[0], c[1], c[2], 1.0f};
    case Image::OSG_RGBA_PF:
        return {c[0], c[1], c[2], c[3]};
    }
    return {0.0f, 0.0f, 0.0f, 1.0f};
}

float luminance(const Rgba& p) {
    return 0.2126f * p.r + 0.7152f * p.g + 0.0722f * p.b;
}

void fromRgba(const Rgba& p, uint32_t format, float* c) {
    switch (format) {
    case Image::OSG_A_PF:
        c[0] = p.a;
        break;
    case Image::OSG_L_PF:
        c[0] = luminance(p);
        break;
    case Image::OSG_I_PF:
        c[0] = luminance(p);
        break;
    case Image::OSG_LA_PF:
        c[0] = luminance(p);
        c[1] = p.a;
        break;
    case Image::OSG_RGB_PF:
        c[0] = p.r;
        c[1] = p.g;
        c[2] = p.b;
        break;
    case Image::OSG_RGBA_PF:
        c[0] = p.r;
        c[1] = p.g;
        c[2] = p.b;
        c[3] = p.a;
        break;
    }
}

} // namespace

float Image::readValue(const uint8_t* p, int32_t type) {
    switch (type) {
    case Image::OSG_UINT8_IMAGEDATA:
        return *p / 255.0f;
    case Image::OSG_UINT16_IMAGEDATA:
        return *reinterpret_cast<const uint16_t*>(p) / 65535.0f;
    case Image::OSG_UINT32_IMAGEDATA:
        return float(*reinterpret_cast<const uint32_t*>(p) / 4294967295.0);
    case Image::OSG_FLOAT16_IMAGEDATA:
        return float(*reinterpret_cast<const Imath::half*>(p));
    case Image::OSG_FLOAT32_IMAGEDATA:
        return *reinterpret_cast<const float*>(p);
    }
    return 0.0f;
}

void Image::writeValue(uint8_t* p, int32_t type, float v) {
    switch (type) {
    case Image::OSG_UINT8_IMAGEDATA:
        *p = quantize<uint8_t>(v, 255.0);
        break;
    case Image::OSG_UINT16_IMAGEDATA:
        *reinterpret_cast<uint16_t*>(p) = quantize<uint16_t>(v, 65535.0);
        break;
    case Image::OSG_UINT32_IMAGEDATA:
        *reinterpret_cast<uint32_t*>(p) = quantize<uint32_t>(v, 4294967295.0);
        break;
    case Image::OSG_FLOAT16_IMAGEDATA:
        *reinterpret_cast<Imath::half*>(p) = Imath::half(v);
        break;
    case Image::OSG_FLOAT32_IMAGEDATA:
        *reinterpret_cast<float*>(p) = v;
        break;
    }
}

Color4f Image::getPixel(int32_t x, int32_t y) const {
    const int32_t n = getComponents(), size = getComponentSize();
    const uint8_t* p = getData() + (size_t(y) * _width + x) * size_t(n * size);
    float c[4];
    for (int32_t i = 0; i < n; ++i)
        c[i] = readValue(p + i * size, _type);
    Rgba v = toRgba(c, _pixelFormat);
    return {v.r, v.g, v.b, v.a};
}

void Image::setPixel(int32_t x, int32_t y, const Color4f& color) {
    const int32_t n = getComponents(), size = getComponentSize();
    uint8_t* p = getData() + (size_t(y) * _width + x) * size_t(n * size);
    float c[4];
    fromRgba({color.r, color.g, color.b, color.a}, _pixelFormat, c);
    for (int32_t i = 0; i < n; ++i)
        writeValue(p + i * size, _type, c[i]);
}

bool Image::reformat(PixelFormat pixelFormat, const ImagePtr& destination) {
    if (componentsOf(pixelFormat) == 0 || componentsOf(_pixelFormat) == 0)
        return false;
    if (pixelFormat == _pixelFormat && !destination)
        return true;

    ImagePtr target = destination ? destination : create();
    if (!target->set(pixelFormat, _width, _height, _depth, _mipmapCount, _frameCount, _frameDelay,
                     nullptr, _type, hasData(), _sideCount))
        return false;

    const int32_t valueSize = getComponentSize();
    const int32_t srcComponents = getComponents();
    const int32_t dstComponents = target->getComponents();
    const size_t pixels = hasData() ? _pixel.size() / size_t(getBpp()) : 0;
    const uint8_t* src = _pixel.data();
    uint8_t* dst = target->_pixel.data();
    float in[4], out[4];
    for (size_t i = 0; i < pixels; ++i) {
        for (int32_t c = 0; c < srcComponents; ++c)
            in[c] = readValue(src + (i * srcComponents + c) * valueSize, _type);
        fromRgba(toRgba(in, _pixelFormat), pixelFormat, out);
        for (int32_t c = 0; c < dstComponents; ++c)
            writeValue(dst + (i * dstComponents + c) * valueSize, _type, out[c]);
    }

    if (!destination) {
        _pixelFormat = pixelFormat;
        _frameSize = target->_frameSize;
        _pixel.swap(target->_pixel);
    } else {
        target->_resX = _resX;
        target->_resY = _resY;
        target->_resUnit = _resUnit;
        target->_alphaMode = _alphaMode;
        target->_attachments = _attachments;
    }
    return true;
}

namespace {
// Scales the colour values of every pixel by 'factor(alpha)'.
template <typename Factor>
void scaleColours(Image& image, size_t pixels, const Factor& factor) {
    const int32_t components = image.getComponents();
    const int32_t alphaAt = components - 1; // RGBA and LA keep alpha last
    const int32_t size = image.getComponentSize();
    uint8_t* data = image.getData();
    for (size_t i = 0; i < pixels; ++i) {
        uint8_t* pixel = data + i * size_t(components) * size_t(size);
        const float f = factor(Image::readValue(pixel + alphaAt * size, image.getDataType()));
        for (int32_t c = 0; c < alphaAt; ++c)
            Image::writeValue(pixel + c * size, image.getDataType(),
                              Image::readValue(pixel + c * size, image.getDataType()) * f);
    }
}
} // namespace

bool Image::premultiplyAlpha() {
    if (componentsOf(_pixelFormat) == 0)
        return false;
    if (_alphaMode != AlphaMode::Straight || !hasAlphaChannel() || _pixelFormat == OSG_A_PF)
        return true;
    if (hasData())
        scaleColours(*this, _pixel.size() / size_t(getBpp()), [](float a) { return a; });
    _alphaMode = AlphaMode::Premultiplied;
    return true;
}

bool Image::unpremultiplyAlpha() {
    if (componentsOf(_pixelFormat) == 0)
        return false;
    if (_alphaMode != AlphaMode::Premultiplied || !hasAlphaChannel() || _pixelFormat == OSG_A_PF)
        return true;
    if (hasData())
        scaleColours(*this, _pixel.size() / size_t(getBpp()),
                     [](float a) { return a > 0.0f ? 1.0f / a : 0.0f; });
    _alphaMode = AlphaMode::Straight;
    return true;
}

bool Image::convertDataTypeTo(int32_t type) {
    if (componentSizeOf(type) == 0 || componentsOf(_pixelFormat) == 0)
        return false;
    if (type == _type)
        return true;
    const int32_t oldSize = getComponentSize();
    const int32_t newSize = componentSizeOf(type);
    const size_t values = _pixel.size() / size_t(oldSize);
    PixelBuffer converted;
    if (!converted.allocate(values * size_t(newSize)))
        return false;
    for (size_t i = 0; i < values; ++i)
        writeValue(converted.data() + i * newSize, type,
                   readValue(_pixel.data() + i * oldSize, _type));
    _pixel.swap(converted);
    _type = type;
    _frameSize = mipmapOffset(_mipmapCount);
    return true;
}

} // namespace osg
