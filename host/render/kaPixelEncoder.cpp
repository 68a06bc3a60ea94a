#include "kaPixelEncoder.h"

#include "kaColor.h"
#include "kaImagePostprocessor.h"

#include <lcms2.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

struct kaPixelEncoder::Impl {
    cmsContext context = nullptr;
    cmsHTRANSFORM toEncoded = nullptr;
    float toSpace[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    bool convertsToSpace = false;
    osg::Color3f alphaColor;
    osg::ImagePtr dither; // float RGB, tiled; null without dithering
    int ditherSize = 0;

    ~Impl() {
        if (toEncoded)
            cmsDeleteTransform(toEncoded);
        if (context)
            cmsDeleteContext(context);
    }

    void space(const float in[3], float out[3]) const {
        if (!convertsToSpace) {
            std::copy(in, in + 3, out);
            return;
        }
        for (int r = 0; r < 3; ++r)
            out[r] = toSpace[r][0] * in[0] + toSpace[r][1] * in[1] + toSpace[r][2] * in[2];
    }

    // The dither offset of whole-picture pixel (x, y), channel c, in code values (-0.5..0.5).
    float ditherAt(int x, int y, int c) const {
        if (!dither)
            return 0.0f;
        const float* d = reinterpret_cast<const float*>(dither->getData()) +
                         (size_t(y % ditherSize) * size_t(ditherSize) + size_t(x % ditherSize)) * 3;
        return d[c] - 0.5f;
    }
};

namespace {

// The working space of the renderers: sRGB primaries and white, linear.
cmsHPROFILE linearSRGB(cmsContext context) {
    const cmsCIExyY d65{0.3127, 0.3290, 1.0};
    const cmsCIExyYTRIPLE primaries{{0.64, 0.33, 1.0}, {0.30, 0.60, 1.0}, {0.15, 0.06, 1.0}};
    cmsToneCurve* linear = cmsBuildGamma(context, 1.0);
    cmsToneCurve* curves[3] = {linear, linear, linear};
    cmsHPROFILE profile = cmsCreateRGBProfileTHR(context, &d65, &primaries, curves);
    cmsFreeToneCurve(linear);
    return profile;
}

bool nearIdentity(const kaColorMatrix& m) {
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            if (std::fabs(m.get(r, c) - (r == c ? 1.0f : 0.0f)) > 1e-3f)
                return false;
    return true;
}

} // namespace

kaPixelEncoder::kaPixelEncoder(const osg::Color3f& alphaColor)
    : _impl(std::make_unique<Impl>()) {
    Impl& m = *_impl;
    m.alphaColor = alphaColor;
    m.context = cmsCreateContext(nullptr, nullptr);

    // The colour space's profile encodes integer pixels; without one, sRGB does, which is what
    // files without a profile are taken to be.
    const std::shared_ptr<const kaICCProfile> profile = kaColor::getActiveICCProfile();
    cmsHPROFILE source = linearSRGB(m.context);
    cmsHPROFILE target = nullptr;
    if (profile && !profile->getData().isEmpty())
        target = cmsOpenProfileFromMemTHR(m.context, profile->getData().constData(),
                                          cmsUInt32Number(profile->getData().size()));
    if (target && cmsGetColorSpace(target) == cmsSigRgbData)
        m.toEncoded = cmsCreateTransformTHR(m.context, source, TYPE_RGB_FLT, target, TYPE_RGB_FLT,
                                            INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOCACHE);
    if (target)
        cmsCloseProfile(target);
    if (!m.toEncoded) {
        cmsHPROFILE srgb = cmsCreate_sRGBProfileTHR(m.context);
        m.toEncoded = cmsCreateTransformTHR(m.context, source, TYPE_RGB_FLT, srgb, TYPE_RGB_FLT,
                                            INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOCACHE);
        cmsCloseProfile(srgb);
    }
    cmsCloseProfile(source);

    // Float pixels stay linear, in the colour space's own primaries (matrix/shaper profiles).
    if (profile && profile->isLoaded() && !nearIdentity(profile->getConversionMatrix())) {
        m.convertsToSpace = true;
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c)
                m.toSpace[r][c] = profile->getConversionMatrix().get(r, c);
    }

    const kaImagePostprocessor* post = kaImagePostprocessor::getImagePostprocessor();
    osg::ImagePtr dither = post->getDitherImage();
    if (post->getDithering() && dither && dither->getData() && dither->getWidth() > 0) {
        // As float RGB, read square by its width.
        osg::ImagePtr copy = dither->clone();
        if (copy && copy->convertDataTypeTo(osg::Image::OSG_FLOAT32_IMAGEDATA) &&
            copy->reformat(osg::Image::OSG_RGB_PF) && copy->getHeight() >= copy->getWidth()) {
            m.dither = copy;
            m.ditherSize = copy->getWidth();
        }
    }
}

kaPixelEncoder::~kaPixelEncoder() = default;

void kaPixelEncoder::encode(const float linear[3], float encoded[3]) const {
    float in[3] = {std::max(linear[0], 0.0f), std::max(linear[1], 0.0f), std::max(linear[2], 0.0f)};
    cmsDoTransform(_impl->toEncoded, in, encoded, 1);
}

void kaPixelEncoder::toLinearOfSpace(const float linear[3], float out[3]) const {
    _impl->space(linear, out);
}

void kaPixelEncoder::prepare(osg::Image& image) const {
    // The images store() encodes (not data passes, not other layouts) hold straight alpha when
    // they are 8-bit.
    const bool encoded = image.getAlphaMode() != osg::Image::AlphaMode::Independent &&
                         (image.getPixelFormat() == osg::Image::OSG_RGB_PF ||
                          image.getPixelFormat() == osg::Image::OSG_RGBA_PF);
    if (encoded && !image.isFloat() && image.hasAlphaChannel())
        image.setAlphaPremultiplied(false);
}

void kaPixelEncoder::store(osg::Image& image, int x, int y, int w, int h, const float* rgba,
                           int pictureX, int pictureY) const {
    const Impl& m = *_impl;
    if (!image.getData())
        return;
    const int x0 = std::max(x, 0), x1 = std::min(x + w, int(image.getWidth()));
    const int y0 = std::max(y, 0), y1 = std::min(y + h, int(image.getHeight()));
    if (x0 >= x1 || y0 >= y1)
        return;
    const osg::Image::AlphaMode mode = image.getAlphaMode();
    const bool hasAlpha = image.hasAlphaChannel();
    const bool isInteger = !image.isFloat();
    const bool plainLayout = image.getPixelFormat() == osg::Image::OSG_RGB_PF ||
                             image.getPixelFormat() == osg::Image::OSG_RGBA_PF;

    // Data passes, and layouts the renderers never make, take the values as they are.
    if (mode == osg::Image::AlphaMode::Independent || !plainLayout) {
        for (int row = y0; row < y1; ++row)
            for (int column = x0; column < x1; ++column) {
                const float* p = rgba + (size_t(row - y) * size_t(w) + size_t(column - x)) * 4;
                image.setPixel(column, row, {p[0], p[1], p[2], p[3]});
            }
        return;
    }

    const bool straight = hasAlpha && (isInteger || mode == osg::Image::AlphaMode::Straight);
    const int components = image.getComponents();
    const int32_t type = image.getDataType();
    const size_t valueSize = size_t(image.getComponentSize());
    const float scale = type == osg::Image::OSG_UINT16_IMAGEDATA   ? 65535.0f
                        : type == osg::Image::OSG_UINT32_IMAGEDATA ? 4294967295.0f
                                                                   : 255.0f;
    const bool dithers = type == osg::Image::OSG_UINT8_IMAGEDATA && m.dither;
    std::vector<float> colours(size_t(x1 - x0) * 3), encoded(colours.size());
    for (int row = y0; row < y1; ++row) {
        const float* in = rgba + (size_t(row - y) * size_t(w) + size_t(x0 - x)) * 4;
        for (int i = 0; i < x1 - x0; ++i) {
            const float* p = in + size_t(i) * 4;
            float c[3] = {p[0], p[1], p[2]};
            if (straight) {
                if (p[3] > 0.0f)
                    for (float& v : c)
                        v /= p[3];
                else
                    c[0] = m.alphaColor.r, c[1] = m.alphaColor.g, c[2] = m.alphaColor.b;
            }
            if (isInteger)
                for (float& v : c)
                    v = std::max(v, 0.0f);
            else
                m.space(c, c);
            std::copy(c, c + 3, &colours[size_t(i) * 3]);
        }
        if (isInteger)
            cmsDoTransform(m.toEncoded, colours.data(), encoded.data(), cmsUInt32Number(x1 - x0));
        uint8_t* out = image.getData() + (size_t(row) * size_t(image.getWidth()) + size_t(x0)) *
                                             components * valueSize;
        for (int i = 0; i < x1 - x0; ++i) {
            const float alpha = in[size_t(i) * 4 + 3];
            uint8_t* pixel = out + size_t(i) * components * valueSize;
            for (int c = 0; c < 3; ++c) {
                if (!isInteger) {
                    osg::Image::writeValue(pixel + c * valueSize, type, colours[size_t(i) * 3 + c]);
                    continue;
                }
                const float d =
                    dithers ? m.ditherAt(pictureX + (x0 - x) + i, pictureY + (row - y), c) : 0.0f;
                const float e = std::min(std::max(encoded[size_t(i) * 3 + c], 0.0f), 1.0f);
                const float code =
                    std::min(std::max(std::floor(e * scale + 0.5f + d), 0.0f), scale);
                osg::Image::writeValue(pixel + c * valueSize, type, code / scale);
            }
            if (hasAlpha)
                osg::Image::writeValue(pixel + 3 * valueSize, type,
                                       isInteger ? std::min(std::max(alpha, 0.0f), 1.0f) : alpha);
        }
    }
}
