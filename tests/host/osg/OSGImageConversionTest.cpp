#include "OSGImage.h"

#include <Imath/half.h>

#include <gtest/gtest.h>

using osg::Image;

namespace {
osg::ImagePtr floatRgba(std::vector<float> values, int width) {
    osg::ImagePtr image = Image::create();
    image->set(Image::OSG_RGBA_PF, width, int(values.size() / 4 / width), 1, 1, 1, 0.0,
               reinterpret_cast<const uint8_t*>(values.data()), Image::OSG_FLOAT32_IMAGEDATA);
    return image;
}
const float* floats(const osg::ImagePtr& image) {
    return reinterpret_cast<const float*>(image->getData());
}
} // namespace

TEST(ImageReformat, RgbaToRgbDropsAlphaAndKeepsValuesAboveOne) {
    osg::ImagePtr image = floatRgba({2.5f, 0.5f, -1.0f, 0.25f}, 1);
    ASSERT_TRUE(image->reformat(Image::OSG_RGB_PF));
    EXPECT_EQ(image->getPixelFormat(), unsigned(Image::OSG_RGB_PF));
    EXPECT_EQ(image->getSize(), 12u);
    EXPECT_EQ(floats(image)[0], 2.5f);
    EXPECT_EQ(floats(image)[1], 0.5f);
    EXPECT_EQ(floats(image)[2], -1.0f);
}

TEST(ImageReformat, RgbToRgbaAddsOpaqueAlpha) {
    const uint8_t rgb[] = {10, 20, 30, 40, 50, 60};
    osg::ImagePtr image = Image::create();
    image->set(Image::OSG_RGB_PF, 2, 1, 1, 1, 1, 0.0, rgb);
    ASSERT_TRUE(image->reformat(Image::OSG_RGBA_PF));
    const uint8_t expected[] = {10, 20, 30, 255, 40, 50, 60, 255};
    EXPECT_EQ(std::vector<uint8_t>(image->getData(), image->getData() + 8),
              std::vector<uint8_t>(expected, expected + 8));
}

TEST(ImageReformat, IntoADestinationLeavesTheSourceAlone) {
    const uint8_t l[] = {100};
    osg::ImagePtr image = Image::create();
    image->set(Image::OSG_L_PF, 1, 1, 1, 1, 1, 0.0, l);
    osg::ImagePtr rgb = Image::create();
    ASSERT_TRUE(image->reformat(Image::OSG_RGB_PF, rgb));
    EXPECT_EQ(image->getPixelFormat(), unsigned(Image::OSG_L_PF));
    EXPECT_EQ(rgb->getData()[0], 100);
    EXPECT_EQ(rgb->getData()[2], 100);
}

TEST(ImageReformat, ColourToLuminanceUsesRec709Weights) {
    osg::ImagePtr image = floatRgba({1.0f, 0.0f, 0.0f, 1.0f}, 1);
    ASSERT_TRUE(image->reformat(Image::OSG_L_PF));
    EXPECT_FLOAT_EQ(floats(image)[0], 0.2126f);
}

TEST(ImageConvertDataType, FloatToHalfAndBack) {
    osg::ImagePtr image = floatRgba({0.5f, 1000.0f, -2.0f, 1.0f}, 1);
    ASSERT_TRUE(image->convertDataTypeTo(Image::OSG_FLOAT16_IMAGEDATA));
    EXPECT_EQ(image->getDataType(), Image::OSG_FLOAT16_IMAGEDATA);
    EXPECT_EQ(image->getSize(), 8u);
    const auto* h = reinterpret_cast<const Imath::half*>(image->getData());
    EXPECT_EQ(float(h[1]), 1000.0f);
    ASSERT_TRUE(image->convertDataTypeTo(Image::OSG_FLOAT32_IMAGEDATA));
    EXPECT_EQ(floats(image)[0], 0.5f);
    EXPECT_EQ(floats(image)[2], -2.0f);
}

TEST(ImageConvertDataType, FloatToBytesClampsAndRounds) {
    osg::ImagePtr image = floatRgba({-0.5f, 0.5f, 1.5f, 0.1f}, 1);
    ASSERT_TRUE(image->convertDataTypeTo(Image::OSG_UINT8_IMAGEDATA));
    const uint8_t expected[] = {0, 128, 255, 26};
    EXPECT_EQ(std::vector<uint8_t>(image->getData(), image->getData() + 4),
              std::vector<uint8_t>(expected, expected + 4));
}

TEST(ImageConvertDataType, BytesSurviveARoundTripThroughEveryType) {
    std::vector<uint8_t> all(256);
    for (int i = 0; i < 256; ++i)
        all[i] = uint8_t(i);
    for (int32_t type : {Image::OSG_UINT16_IMAGEDATA, Image::OSG_UINT32_IMAGEDATA,
                         Image::OSG_FLOAT16_IMAGEDATA, Image::OSG_FLOAT32_IMAGEDATA}) {
        osg::ImagePtr image = Image::create();
        image->set(Image::OSG_L_PF, 256, 1, 1, 1, 1, 0.0, all.data());
        ASSERT_TRUE(image->convertDataTypeTo(type));
        ASSERT_TRUE(image->convertDataTypeTo(Image::OSG_UINT8_IMAGEDATA));
        EXPECT_EQ(std::vector<uint8_t>(image->getData(), image->getData() + 256), all)
            << Image::dataTypeName(type);
    }
}
