#include "kaPixelEncoder.h"

#include "kaColor.h"
#include "kaImagePostprocessor.h"

#include <lcms2.h>
#include <lcms2_plugin.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <mutex>
#include <vector>

struct kaPixelEncoder::Impl {
    cmsContext context = nullptr;
    cmsHTRANSFORM toEncoded = nullptr;
    float toSpace[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    bool convertsToSpace = false;
    osg::Color3f alphaColor;
    osg::ImagePtr dither; // float RGB, tiled; null without dithering
    int ditherSize = 0;
    std::unique_ptr<Separable> separable;
    uint64_t id = 0;

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

float evaluateCurve(const std::vector<float>& curve, float linear) {
    const float s = std::sqrt(std::min(std::max(linear, 0.0f), 1.0f)) *
                    float(kaPixelEncoder::Separable::kCurveSize - 1);
    const int i = std::min(int(s), kaPixelEncoder::Separable::kCurveSize - 2);
    return curve[size_t(i)] + (curve[size_t(i) + 1] - curve[size_t(i)]) * (s - float(i));
}

// A matrix/shaper profile's colorants (D50 XYZ of its primaries) as the columns of a matrix.
bool colorantsOf(cmsHPROFILE profile, cmsMAT3& m) {
    const cmsTagSignature tags[3] = {cmsSigRedColorantTag, cmsSigGreenColorantTag,
                                     cmsSigBlueColorantTag};
    for (int c = 0; c < 3; ++c) {
        const auto* xyz = static_cast<const cmsCIEXYZ*>(cmsReadTag(profile, tags[c]));
        if (!xyz)
            return false;
        m.v[0].n[c] = xyz->X;
        m.v[1].n[c] = xyz->Y;
        m.v[2].n[c] = xyz->Z;
    }
    return true;
}

// The matrix and the curves by which 'transform' from the matrix/shaper 'source' to the
// matrix/shaper 'target' encodes, kept only when they encode a spread of colours (out of gamut
// and beyond white included) as the transform does. The matrix is the one relative colorimetric
// intent builds from the colorants; the curves are read off the transform itself, each at the
// colours whose values in the target's primaries lie on its axis.
std::unique_ptr<kaPixelEncoder::Separable> separableEncoding(cmsHPROFILE source, cmsHPROFILE target,
                                                             cmsHTRANSFORM transform) {
    cmsMAT3 from, to, toInverse, matrix, inverse;
    if (!target || !transform || !cmsIsMatrixShaper(target) || !colorantsOf(source, from) ||
        !colorantsOf(target, to) || !_cmsMAT3inverse(&to, &toInverse))
        return nullptr;
    _cmsMAT3per(&matrix, &toInverse, &from);
    if (!_cmsMAT3inverse(&matrix, &inverse))
        return nullptr;
    // Both profiles share the white of the connection space, so white maps to white; the
    // colorants, stored in 16.16 fixed point, miss that by about 1e-5, which the colour engine
    // does not show and which would turn white into 254 under dithering.
    for (int r = 0; r < 3; ++r) {
        const double sum = matrix.v[r].n[0] + matrix.v[r].n[1] + matrix.v[r].n[2];
        if (std::fabs(sum - 1.0) < 1e-3)
            for (int c = 0; c < 3; ++c)
                matrix.v[r].n[c] /= sum;
    }
    float toSpace[3][3];
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            toSpace[r][c] = float(matrix.v[r].n[c]);
    auto model = std::make_unique<kaPixelEncoder::Separable>();
    std::copy(&toSpace[0][0], &toSpace[0][0] + 9, &model->toSpace[0][0]);
    constexpr int size = kaPixelEncoder::Separable::kCurveSize;
    std::vector<float> probe(size_t(size) * 3), encoded(probe.size());
    for (int channel = 0; channel < 3; ++channel) {
        for (int i = 0; i < size; ++i) {
            const double s = double(i) / double(size - 1);
            for (int r = 0; r < 3; ++r)
                probe[size_t(i) * 3 + size_t(r)] = float(inverse.v[r].n[channel] * s * s);
        }
        cmsDoTransform(transform, probe.data(), encoded.data(), cmsUInt32Number(size));
        model->curves[channel].resize(size);
        for (int i = 0; i < size; ++i)
            model->curves[channel][size_t(i)] = encoded[size_t(i) * 3 + size_t(channel)];
    }
    // The colour engine evaluates some profiles' curves from tables, in steps of up to 2e-4;
    // the model follows the curves smoothly and may differ by that, a tenth of an 8-bit code.
    constexpr float kTolerance = 4e-4f;
    // A lattice of colours from black to beyond white, dark ones dense.
    std::vector<float> in, out;
    const float steps[] = {0.0f,  1e-4f, 0.001f, 0.003f, 0.01f, 0.03f, 0.08f,
                           0.18f, 0.35f, 0.5f,   0.7f,   0.9f,  1.0f,  1.5f};
    for (float r : steps)
        for (float g : steps)
            for (float b : steps)
                in.insert(in.end(), {r, g, b});
    out.resize(in.size());
    cmsDoTransform(transform, in.data(), out.data(), cmsUInt32Number(in.size() / 3));
    for (size_t i = 0; i < in.size(); i += 3) {
        for (int c = 0; c < 3; ++c) {
            const float linear =
                toSpace[c][0] * in[i] + toSpace[c][1] * in[i + 1] + toSpace[c][2] * in[i + 2];
            const float expected = std::min(std::max(out[i + size_t(c)], 0.0f), 1.0f);
            if (std::fabs(evaluateCurve(model->curves[c], linear) - expected) > kTolerance)
                return nullptr;
        }
    }
    return model;
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
    static std::atomic<uint64_t> made{0};
    m.id = ++made;
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
    if (!m.toEncoded) {
        if (target)
            cmsCloseProfile(target);
        target = cmsCreate_sRGBProfileTHR(m.context);
        m.toEncoded = cmsCreateTransformTHR(m.context, source, TYPE_RGB_FLT, target, TYPE_RGB_FLT,
                                            INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOCACHE);
    }

    // Float pixels stay linear, in the colour space's own primaries (matrix/shaper profiles).
    if (profile && profile->isLoaded() && !nearIdentity(profile->getConversionMatrix())) {
        m.convertsToSpace = true;
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c)
                m.toSpace[r][c] = profile->getConversionMatrix().get(r, c);
    }
    m.separable = separableEncoding(source, target, m.toEncoded);
    cmsCloseProfile(source);
    cmsCloseProfile(target);

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

std::shared_ptr<const kaPixelEncoder> kaPixelEncoder::current(const osg::Color3f& alphaColor) {
    struct Made {
        std::shared_ptr<const kaICCProfile> profile;
        bool dithering = false;
        osg::ImagePtr dither;
        osg::Color3f alphaColor;
        std::shared_ptr<const kaPixelEncoder> encoder;
    };
    static std::mutex mutex;
    static Made last;
    const kaImagePostprocessor* post = kaImagePostprocessor::getImagePostprocessor();
    Made now{kaColor::getActiveICCProfile(), post->getDithering(), post->getDitherImage(),
             alphaColor, nullptr};
    std::lock_guard<std::mutex> lock(mutex);
    if (!last.encoder || last.profile != now.profile || last.dithering != now.dithering ||
        last.dither != now.dither || last.alphaColor.r != alphaColor.r ||
        last.alphaColor.g != alphaColor.g || last.alphaColor.b != alphaColor.b) {
        now.encoder = std::make_shared<const kaPixelEncoder>(alphaColor);
        last = std::move(now);
    }
    return last.encoder;
}

void kaPixelEncoder::encode(const float linear[3], float encoded[3]) const {
    float in[3] = {std::max(linear[0], 0.0f), std::max(linear[1], 0.0f), std::max(linear[2], 0.0f)};
    cmsDoTransform(_impl->toEncoded, in, encoded, 1);
}

void kaPixelEncoder::toLinearOfSpace(const float linear[3], float out[3]) const {
    _impl->space(linear, out);
}

const kaPixelEncoder::Separable* kaPixelEncoder::getSeparable() const {
    return _impl->separable.get();
}

uint64_t kaPixelEncoder::getId() const {
    return _impl->id;
}

bool kaPixelEncoder::encodesSeparably(const osg::Image& image) const {
    return _impl->separable && image.getData() &&
           image.getDataType() == osg::Image::OSG_UINT8_IMAGEDATA &&
           image.getAlphaMode() != osg::Image::AlphaMode::Independent &&
           (image.getPixelFormat() == osg::Image::OSG_RGB_PF ||
            image.getPixelFormat() == osg::Image::OSG_RGBA_PF);
}

const float* kaPixelEncoder::getDither() const {
    return _impl->dither ? reinterpret_cast<const float*>(_impl->dither->getData()) : nullptr;
}

int kaPixelEncoder::getDitherSize() const {
    return _impl->dither ? _impl->ditherSize : 0;
}

osg::Color3f kaPixelEncoder::getAlphaColor() const {
    return _impl->alphaColor;
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

    const int components = image.getComponents();
    const int32_t type = image.getDataType();
    const bool plainFloats = plainLayout && type == osg::Image::OSG_FLOAT32_IMAGEDATA;
    // Where this block's row 'row' starts in a float image.
    auto floatsAt = [&](int row) {
        return reinterpret_cast<float*>(image.getData()) +
               (size_t(row) * size_t(image.getWidth()) + size_t(x0)) * size_t(components);
    };

    // Data passes, and layouts the renderers never make, take the values as they are.
    if (mode == osg::Image::AlphaMode::Independent && plainFloats) {
        for (int row = y0; row < y1; ++row) {
            const float* in = rgba + (size_t(row - y) * size_t(w) + size_t(x0 - x)) * 4;
            float* out = floatsAt(row);
            for (int i = 0; i < x1 - x0; ++i)
                std::copy(in + i * 4, in + i * 4 + components, out + i * components);
        }
        return;
    }
    if (mode == osg::Image::AlphaMode::Independent || !plainLayout) {
        for (int row = y0; row < y1; ++row)
            for (int column = x0; column < x1; ++column) {
                const float* p = rgba + (size_t(row - y) * size_t(w) + size_t(column - x)) * 4;
                image.setPixel(column, row, {p[0], p[1], p[2], p[3]});
            }
        return;
    }

    const bool straight = hasAlpha && (isInteger || mode == osg::Image::AlphaMode::Straight);
    // A premultiplied pixel's colour as the image keeps it: straight where the image keeps
    // straight alpha, the alpha colour where nothing was drawn.
    auto colourOf = [&](const float* p, float c[3]) {
        c[0] = p[0], c[1] = p[1], c[2] = p[2];
        if (!straight)
            return;
        if (p[3] > 0.0f)
            for (int k = 0; k < 3; ++k)
                c[k] /= p[3];
        else
            c[0] = m.alphaColor.r, c[1] = m.alphaColor.g, c[2] = m.alphaColor.b;
    };
    // Float pixels: linear, in the colour space's primaries, written in place (every render
    // pass of a raytraced picture comes through here).
    if (plainFloats) {
        for (int row = y0; row < y1; ++row) {
            const float* p = rgba + (size_t(row - y) * size_t(w) + size_t(x0 - x)) * 4;
            float* out = floatsAt(row);
            if (components == 4 && !straight && !m.convertsToSpace) {
                std::copy(p, p + size_t(x1 - x0) * 4, out);
                continue;
            }
            for (int i = x0; i < x1; ++i, p += 4, out += components) {
                float c[3];
                colourOf(p, c);
                m.space(c, out);
                if (hasAlpha)
                    out[3] = p[3];
            }
        }
        return;
    }
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
            float c[3];
            colourOf(p, c);
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
