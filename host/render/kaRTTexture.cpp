#include "kaRTTexture.h"

#include <array>
#include <cmath>

namespace {

// sRGB's decoding of every 8-bit value.
const std::array<float, 256>& linearOf() {
    static const std::array<float, 256> table = [] {
        std::array<float, 256> t{};
        for (int i = 0; i < 256; ++i) {
            const double c = i / 255.0;
            t[size_t(i)] = float(c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4));
        }
        return t;
    }();
    return table;
}

// Every 8-bit value as it is, on 0..1.
const std::array<float, 256>& unitOf() {
    static const std::array<float, 256> table = [] {
        std::array<float, 256> t{};
        for (int i = 0; i < 256; ++i)
            t[size_t(i)] = float(i) / 255.0f;
        return t;
    }();
    return table;
}

// Texel index 'i' of a row or column of 'size' texels, wrapped.
int wrapped(int i, int size, osg::TextureWrap wrap) {
    switch (wrap) {
    case osg::TextureWrap::ClampToEdge:
        return std::min(std::max(i, 0), size - 1);
    case osg::TextureWrap::MirroredRepeat: {
        const int period = 2 * size;
        int m = i % period;
        if (m < 0)
            m += period;
        return m < size ? m : period - 1 - m;
    }
    default: {
        const int m = i % size;
        return m < 0 ? m + size : m;
    }
    }
}

} // namespace

kaRTTexel kaRTSample(const osg::Image& image, osg::TextureWrap wrapU, osg::TextureWrap wrapV,
                     float u, float v, bool srgb) {
    const int width = image.getWidth(), height = image.getHeight();
    if (width <= 0 || height <= 0 || !std::isfinite(u) || !std::isfinite(v))
        return {{1, 1, 1}, 1};
    // Texel centres lie at half-integers, as in OpenGL. Repeating coordinates are brought
    // into 0..2 first (both repeats have that period), so that far ones keep their precision.
    auto near = [](float c, osg::TextureWrap wrap) {
        return wrap == osg::TextureWrap::ClampToEdge ? c : c - 2.0f * std::floor(c / 2.0f);
    };
    const float x = near(u, wrapU) * float(width) - 0.5f;
    const float y = near(v, wrapV) * float(height) - 0.5f;
    const float xFloor = std::floor(x), yFloor = std::floor(y);
    const float tx = x - xFloor, ty = y - yFloor;
    const int x0 = int(xFloor), y0 = int(yFloor);
    const int xs[2] = {wrapped(x0, width, wrapU), wrapped(x0 + 1, width, wrapU)};
    const int ys[2] = {wrapped(y0, height, wrapV), wrapped(y0 + 1, height, wrapV)};
    const std::array<float, 256>& linear = srgb ? linearOf() : unitOf();
    const uint8_t* data = image.getData();
    kaRTTexel sum{{0, 0, 0}, 0};
    for (int j = 0; j < 2; ++j)
        for (int i = 0; i < 2; ++i) {
            const float w = (i ? tx : 1.0f - tx) * (j ? ty : 1.0f - ty);
            const uint8_t* texel = data + (size_t(ys[j]) * size_t(width) + size_t(xs[i])) * 4;
            sum.color += kaRT::V3{linear[texel[0]], linear[texel[1]], linear[texel[2]]} * w;
            sum.alpha += float(texel[3]) * (w / 255.0f);
        }
    return sum;
}
