// The pixel encoder: what rendered, linear, premultiplied pixels become in images of each kind.
#include "kaPixelEncoder.h"

#include "kaColor.h"
#include "kaImagePostprocessor.h"

#include <gtest/gtest.h>

#include <cmath>

using osg::Image;

namespace {

osg::ImagePtr image(uint32_t format, int32_t type, int w, int h) {
    osg::ImagePtr i = Image::create();
    i->set(format, w, h, 1, 1, 1, 0.0, nullptr, type);
    return i;
}

// A slow ramp of dark linear values, the same in every column: where banding shows.
std::vector<float> ramp(int w, int h) {
    std::vector<float> rgba(size_t(w) * size_t(h) * 4);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            float* p = &rgba[(size_t(y) * size_t(w) + size_t(x)) * 4];
            p[0] = p[1] = p[2] = 0.02f + 0.03f * float(y) / float(h);
            p[3] = 1.0f;
        }
    return rgba;
}

// The longest run of equal red values down column x.
int longestRun(const osg::ImagePtr& image, int x) {
    int longest = 1, run = 1;
    for (int y = 1; y < image->getHeight(); ++y) {
        run = image->getPixel(x, y).r == image->getPixel(x, y - 1).r ? run + 1 : 1;
        longest = std::max(longest, run);
    }
    return longest;
}

struct Restore {
    ~Restore() {
        kaImagePostprocessor::getImagePostprocessor()->setDithering(true);
        kaColor::setActiveColorSpace(0);
    }
};

} // namespace

TEST(PixelEncoder, DitheringBreaksTheBandsOfASlowGradient) {
    Restore restore;
    const int W = 16, H = 512;
    const std::vector<float> rgba = ramp(W, H);
    kaImagePostprocessor::getImagePostprocessor()->setDithering(false);
    osg::ImagePtr banded = image(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, W, H);
    kaPixelEncoder({1, 1, 1}).store(*banded, 0, 0, W, H, rgba.data(), 0, 0);
    kaImagePostprocessor::getImagePostprocessor()->setDithering(true);
    osg::ImagePtr dithered = image(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, W, H);
    kaPixelEncoder({1, 1, 1}).store(*dithered, 0, 0, W, H, rgba.data(), 0, 0);
    int worstBanded = 0, worstDithered = 0;
    for (int x = 0; x < W; ++x) {
        worstBanded = std::max(worstBanded, longestRun(banded, x));
        worstDithered = std::max(worstDithered, longestRun(dithered, x));
    }
    EXPECT_GT(worstBanded, 8) << "the gradient bands without dithering";
    EXPECT_LT(worstDithered, worstBanded);
    // Dithering moves a value by one code at the most.
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x)
            EXPECT_LE(std::fabs(dithered->getPixel(x, y).r - banded->getPixel(x, y).r),
                      1.0f / 255.0f + 1e-6f);
}

TEST(PixelEncoder, BlocksDitherAsTheWholePictureDoes) {
    Restore restore;
    const int W = 40, H = 90;
    const std::vector<float> rgba = ramp(W, H);
    osg::ImagePtr whole = image(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, W, H);
    const kaPixelEncoder encoder({1, 1, 1});
    encoder.store(*whole, 0, 0, W, H, rgba.data(), 0, 0);
    // The picture's rows 30.. and columns 17.. as a tile of its own.
    osg::ImagePtr tile = image(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, W - 17, H - 30);
    std::vector<float> part;
    for (int y = 30; y < H; ++y)
        for (int x = 17; x < W; ++x)
            part.insert(part.end(), &rgba[(size_t(y) * W + x) * 4],
                        &rgba[(size_t(y) * W + x) * 4] + 4);
    encoder.store(*tile, 0, 0, W - 17, H - 30, part.data(), 17, 30);
    for (int y = 0; y < H - 30; ++y)
        for (int x = 0; x < W - 17; ++x)
            EXPECT_EQ(tile->getPixel(x, y).r, whole->getPixel(x + 17, y + 30).r);
}

TEST(PixelEncoder, EachImageGetsItsOwnAlphaConvention) {
    Restore restore;
    // Half a pixel covered by white, and a pixel covered by nothing.
    const float rgba[8] = {0.5f, 0.5f, 0.5f, 0.5f, 0.0f, 0.0f, 0.0f, 0.0f};
    const kaPixelEncoder encoder({0.0f, 1.0f, 0.0f});
    osg::ImagePtr premultiplied = image(Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA, 2, 1);
    premultiplied->setAlphaPremultiplied(true);
    encoder.store(*premultiplied, 0, 0, 2, 1, rgba, 0, 0);
    EXPECT_FLOAT_EQ(premultiplied->getPixel(0, 0).r, 0.5f);
    EXPECT_FLOAT_EQ(premultiplied->getPixel(1, 0).g, 0.0f) << "nothing behind nothing";

    osg::ImagePtr straight = image(Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA, 2, 1);
    straight->setAlphaPremultiplied(false);
    encoder.store(*straight, 0, 0, 2, 1, rgba, 0, 0);
    EXPECT_FLOAT_EQ(straight->getPixel(0, 0).r, 1.0f);
    EXPECT_FLOAT_EQ(straight->getPixel(1, 0).g, 1.0f) << "the alpha colour";

    osg::ImagePtr bytes = image(Image::OSG_RGBA_PF, Image::OSG_UINT8_IMAGEDATA, 2, 1);
    encoder.prepare(*bytes);
    EXPECT_FALSE(bytes->isAlphaPremultiplied()) << "prepared for what store() puts in";
    encoder.store(*bytes, 0, 0, 2, 1, rgba, 0, 0);
    EXPECT_FLOAT_EQ(bytes->getPixel(0, 0).r, 1.0f) << "white, straight";
    EXPECT_NEAR(bytes->getPixel(0, 0).a, 0.5f, 0.5f / 255.0f + 1e-6f)
        << "rounded to the nearest code";

    osg::ImagePtr data = image(Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA, 2, 1);
    data->setAlphaMode(Image::AlphaMode::Independent);
    encoder.store(*data, 0, 0, 2, 1, rgba, 0, 0);
    EXPECT_FLOAT_EQ(data->getPixel(0, 0).r, 0.5f) << "data as it is";
}

TEST(PixelEncoder, FloatPixelsTakeThePrimariesOfTheColourSpace) {
    Restore restore;
    const float red[4] = {1.0f, 0.0f, 0.0f, 1.0f};
    osg::ImagePtr srgb = image(Image::OSG_RGB_PF, Image::OSG_FLOAT32_IMAGEDATA, 1, 1);
    kaPixelEncoder({0, 0, 0}).store(*srgb, 0, 0, 1, 1, red, 0, 0);
    EXPECT_NEAR(srgb->getPixel(0, 0).r, 1.0f, 1e-3f);
    EXPECT_NEAR(srgb->getPixel(0, 0).g, 0.0f, 1e-3f);
    kaColor::setActiveColorSpace(2);
    osg::ImagePtr adobe = image(Image::OSG_RGB_PF, Image::OSG_FLOAT32_IMAGEDATA, 1, 1);
    kaPixelEncoder({0, 0, 0}).store(*adobe, 0, 0, 1, 1, red, 0, 0);
    // sRGB's red is a less saturated red in Adobe RGB (1998): some green, a little blue.
    EXPECT_NEAR(adobe->getPixel(0, 0).r, 0.715f, 0.01f);
    EXPECT_NEAR(adobe->getPixel(0, 0).g, 0.0f, 0.01f);
    EXPECT_GT(adobe->getPixel(0, 0).r, 0.6f);
}
