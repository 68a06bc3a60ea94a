// Linear float pixels to display values. The powers use fast polynomial approximations of
// log2 and exp2 on four channels at once, with fixed coefficients, so that every display
// value of the product comes out the same wherever it is computed.
#include "kaDisplayTransform_p.h"

#include "kaColor.h"
#include "kaImagePostprocessor.h"

#include <emmintrin.h>

#include <algorithm>

namespace kaDisplayTransform {

namespace {

inline __m128 poly5(__m128 x, float c0, float c1, float c2, float c3, float c4, float c5) {
    __m128 p = _mm_set1_ps(c5);
    p = _mm_add_ps(_mm_mul_ps(p, x), _mm_set1_ps(c4));
    p = _mm_add_ps(_mm_mul_ps(p, x), _mm_set1_ps(c3));
    p = _mm_add_ps(_mm_mul_ps(p, x), _mm_set1_ps(c2));
    p = _mm_add_ps(_mm_mul_ps(p, x), _mm_set1_ps(c1));
    return _mm_add_ps(_mm_mul_ps(p, x), _mm_set1_ps(c0));
}

// log2(x) = exponent + P(m) * (m - 1), m the mantissa in [1, 2).
inline __m128 log2x4(__m128 x) {
    const __m128i bits = _mm_castps_si128(x);
    const __m128i exponentBits =
        _mm_srli_epi32(_mm_and_si128(bits, _mm_set1_epi32(0x7F800000)), 23);
    const __m128 exponent = _mm_cvtepi32_ps(_mm_sub_epi32(exponentBits, _mm_set1_epi32(127)));
    const __m128 one = _mm_set1_ps(1.0f);
    const __m128 mantissa =
        _mm_or_ps(_mm_castsi128_ps(_mm_and_si128(bits, _mm_set1_epi32(0x007FFFFF))), one);
    const __m128 p =
        poly5(mantissa, 3.11579f, -3.324199f, 2.5988452f, -1.2315303f, 0.31821337f, -0.034436006f);
    return _mm_add_ps(_mm_mul_ps(p, _mm_sub_ps(mantissa, one)), exponent);
}

// exp2(x) = 2^i * P(f), i = x rounded at -0.5 (so f is in [0, 1)), 2^i put into the exponent.
inline __m128 exp2x4(__m128 x) {
    x = _mm_min_ps(x, _mm_set1_ps(129.0f));
    x = _mm_max_ps(x, _mm_set1_ps(-126.99999f));
    const __m128i whole = _mm_cvtps_epi32(_mm_sub_ps(x, _mm_set1_ps(0.5f)));
    const __m128 fraction = _mm_sub_ps(x, _mm_cvtepi32_ps(whole));
    const __m128 power =
        _mm_castsi128_ps(_mm_slli_epi32(_mm_add_epi32(whole, _mm_set1_epi32(127)), 23));
    const __m128 p = poly5(fraction, 0.99999994f, 0.6931531f, 0.24015361f, 0.055826318f,
                           0.00898934f, 0.0018775767f);
    return _mm_mul_ps(power, p);
}

inline __m128 pow4(__m128 x, float power) {
    return exp2x4(_mm_mul_ps(log2x4(x), _mm_set1_ps(power)));
}

// The exported fastPow4 is not used inside: an exported function can't be inlined here.
inline void pow4(const float in[4], float power, float out[4]) {
    _mm_storeu_ps(out, pow4(_mm_loadu_ps(in), power));
}

void srgbCurve(const float in[4], float out[4]) {
    float clamped[4], powered[4];
    for (int i = 0; i < 3; ++i)
        clamped[i] = std::max(in[i], 0.0f);
    clamped[3] = 1.0f;
    pow4(clamped, 1.0f / 2.4f, powered);
    for (int i = 0; i < 3; ++i)
        out[i] = in[i] > 0.0031308f ? 1.055f * powered[i] - 0.055f : 12.92f * in[i];
    out[3] = in[3];
}

// Linear sRGB -> XYZ (IEC 61966-2-1, D65) -> linear Adobe RGB (1998) (D65), then its gamma.
void adobeRGBFormula(const float in[4], float out[4]) {
    const float r = in[0], g = in[1], b = in[2], alpha = in[3];
    const float X = 0.4124564f * r + 0.3575761f * g + 0.1804375f * b;
    const float Y = 0.2126729f * r + 0.7151522f * g + 0.0721750f * b;
    const float Z = 0.0193339f * r + 0.1191920f * g + 0.9503041f * b;
    float linear[4] = {2.0413690f * X - 0.5649464f * Y - 0.3446944f * Z,
                       -0.9692660f * X + 1.8760108f * Y + 0.0415560f * Z,
                       0.0134474f * X - 0.1183897f * Y + 1.0154096f * Z, 1.0f};
    for (int i = 0; i < 3; ++i)
        linear[i] = std::max(linear[i], 0.0f);
    pow4(linear, 256.0f / 563.0f, out);
    out[3] = alpha;
}

void throughProfile(const kaICCProfile& profile, const float in[4], float out[4]) {
    KA_RGBA32F p{in[0], in[1], in[2], in[3]};
    profile.getConversionMatrix().apply(p);
    const float c[3] = {p.r, p.g, p.b};
    for (int k = 0; k < 3; ++k) {
        const float v = std::min(std::max(c[k], 0.0f), 0.9999f);
        out[k] = profile.getOutputTable(k)[size_t(v * kaICCProfile::kTableSize)];
    }
    out[3] = in[3];
}

bool usable(const std::shared_ptr<const kaICCProfile>& profile) {
    return profile && profile->isLoaded();
}

// The profiles as this thread last fetched them. Fetching takes a lock and a file check, too
// much for every pixel; a refresh every 4096 pixels still follows a change of colour space or
// profile within one image row.
struct Profiles {
    std::shared_ptr<const kaICCProfile> srgb, adobe, active, image;
    unsigned untilRefresh = 0;
};

thread_local Profiles t_profiles;

const Profiles& currentProfiles() {
    Profiles& profiles = t_profiles;
    if (profiles.untilRefresh-- == 0) {
        profiles.srgb = kaColor::getSRGBICCProfile();
        profiles.adobe = kaColor::getAdobeRGBICCProfile();
        profiles.active = kaColor::getActiveICCProfile();
        profiles.image = kaColor::getImageICCProfile();
        profiles.untilRefresh = 4095;
    }
    return profiles;
}

} // namespace

void forgetProfiles() {
    t_profiles.untilRefresh = 0;
}

void fastLog2x4(const float in[4], float out[4]) {
    _mm_storeu_ps(out, log2x4(_mm_loadu_ps(in)));
}
void fastExp2x4(const float in[4], float out[4]) {
    _mm_storeu_ps(out, exp2x4(_mm_loadu_ps(in)));
}
void fastPow4(const float in[4], float power, float out[4]) {
    _mm_storeu_ps(out, pow4(_mm_loadu_ps(in), power));
}

void displayTransformPixel(const float in[4], float gamma, float out[4]) {
    const int mode = kaImagePostprocessor::getImagePostprocessor()->getMode();
    switch (mode) {
    case 0: {
        float clamped[4] = {std::max(in[0], 0.0f), std::max(in[1], 0.0f), std::max(in[2], 0.0f),
                            1.0f};
        const float alpha = in[3];
        pow4(clamped, gamma, out);
        out[3] = alpha;
        return;
    }
    case 1:
    case 3: {
        const Profiles& profiles = currentProfiles();
        const auto& profile = mode == 1 ? profiles.srgb : profiles.active;
        if (usable(profile))
            throughProfile(*profile, in, out);
        else
            srgbCurve(in, out);
        return;
    }
    case 2: {
        const auto& profile = currentProfiles().adobe;
        if (usable(profile))
            throughProfile(*profile, in, out);
        else
            adobeRGBFormula(in, out);
        return;
    }
    case 4:
        // The image profile is used as it is, loaded or not.
        throughProfile(*currentProfiles().image, in, out);
        return;
    case 5:
        std::copy(in, in + 4, out);
        return;
    default:
        srgbCurve(in, out);
        return;
    }
}

void quantizePixel(const float pixel[4], int x, int y, int flags, unsigned char rgb[3]) {
    kaImagePostprocessor* post = kaImagePostprocessor::getImagePostprocessor();
    float p[4] = {pixel[0], pixel[1], pixel[2], pixel[3]};
    if (flags & 2)
        displayTransformPixel(p, post->getGamma(), p);
    if (post->getDithering() && p[3] > 0.0f) {
        osg::ImagePtr dither = post->getDitherImage();
        if (dither && dither->getData() && dither->getWidth() > 0 &&
            dither->getDataType() == osg::Image::OSG_FLOAT32_IMAGEDATA &&
            dither->getPixelFormat() == osg::Image::OSG_RGB_PF) {
            // The width serves for both wrap-arounds and as the row stride: the dither image
            // is taken as square.
            const int w = dither->getWidth();
            const auto* d = reinterpret_cast<const float*>(dither->getData()) +
                            (size_t(y % w) * w + size_t(x % w)) * 3;
            for (int i = 0; i < 3; ++i)
                p[i] += d[i] * 0.00390625f;
        }
    }
    for (int i = 0; i < 3; ++i)
        rgb[i] = (unsigned char)(std::min(std::max(p[i] * 256.0f, 0.0f), 255.9f));
}

} // namespace kaDisplayTransform
