#include "OSGImageScaler.h"

#include "kaTestSupport.h"

#include <gtest/gtest.h>

using osg::Image;

namespace {
osg::ImagePtr gray(int w, int h, int32_t type, std::vector<float> values) {
    osg::ImagePtr image = Image::create();
    image->set(Image::OSG_L_PF, w, h, 1, 1, 1, 0.0, nullptr, type);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            float v = values[size_t(y * w + x)];
            image->setPixel(x, y, {v, v, v, 1.0f});
        }
    return image;
}
} // namespace

TEST(ImageScaler, BoxHalvingAveragesEachTwoByTwoBlock) {
    osg::ImagePtr src = gray(4, 2, Image::OSG_FLOAT32_IMAGEDATA, {0, 1, 2, 3, 4, 5, 6, 7});
    osg::ImagePtr dst = Image::create();
    dst->set(Image::OSG_L_PF, 2, 1, 1, 1, 1, 0.0, nullptr, Image::OSG_FLOAT32_IMAGEDATA);
    ASSERT_TRUE(osg::ImageScaler::scale(src, dst, osg::ImageBoxFilter(0.5f)));
    EXPECT_FLOAT_EQ(dst->getPixel(0, 0).r, (0 + 1 + 4 + 5) / 4.0f);
    EXPECT_FLOAT_EQ(dst->getPixel(1, 0).r, (2 + 3 + 6 + 7) / 4.0f);
}

TEST(ImageScaler, ConvertsToTheDestinationsDataType) {
    osg::ImagePtr src = gray(2, 2, Image::OSG_FLOAT32_IMAGEDATA, {0.5f, 0.5f, 0.5f, 0.5f});
    osg::ImagePtr dst = Image::create();
    dst->set(Image::OSG_L_PF, 1, 1);
    ASSERT_TRUE(osg::ImageScaler::scale(src, dst, osg::ImageBoxFilter(0.5f)));
    EXPECT_NEAR(dst->getData()[0], 128, 1);
}

TEST(ImageScaler, LinearFilterKeepsAConstantImageConstant) {
    osg::ImagePtr src = gray(16, 8, Image::OSG_UINT8_IMAGEDATA, std::vector<float>(128, 0.25f));
    osg::ImagePtr dst = Image::create();
    dst->set(Image::OSG_L_PF, 5, 3);
    ASSERT_TRUE(osg::ImageScaler::scale(src, dst, osg::ImageLinearFilter(1.0f)));
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x)
            EXPECT_NEAR(dst->getPixel(x, y).r, 0.25f, 1.0f / 255.0f);
}

TEST(ImageScaler, RefusesDifferentFormatsAndEmptyImages) {
    katest::LogCapture log;
    osg::ImagePtr src = gray(2, 2, Image::OSG_UINT8_IMAGEDATA, {0, 0, 0, 0});
    osg::ImagePtr rgb = Image::create();
    rgb->set(Image::OSG_RGB_PF, 1, 1);
    EXPECT_FALSE(osg::ImageScaler::scale(src, rgb, osg::ImageBoxFilter()));
    EXPECT_FALSE(osg::ImageScaler::scale(src, Image::create(), osg::ImageBoxFilter()));
    EXPECT_EQ(log.texts(kaLog::Error).size(), 2u);
}
