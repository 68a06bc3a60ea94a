#include "kaImagePostprocessor.h"

#include <gtest/gtest.h>

#include <set>

TEST(kaImagePostprocessor, DitherImageIsAnOrderedDitherPerChannel) {
    osg::ImagePtr dither = kaImagePostprocessor::getImagePostprocessor()->getDitherImage();
    ASSERT_TRUE(dither);
    EXPECT_EQ(dither->getWidth(), 64);
    EXPECT_EQ(dither->getHeight(), 64);
    EXPECT_EQ(dither->getDataType(), osg::Image::OSG_FLOAT32_IMAGEDATA);
    EXPECT_EQ(dither->getPixelFormat(), unsigned(osg::Image::OSG_RGB_PF));
    const auto* v = reinterpret_cast<const float*>(dither->getData());
    for (int c = 0; c < 3; ++c) {
        std::set<float> levels;
        for (int i = 0; i < 64 * 64; ++i) {
            float value = v[i * 3 + c];
            EXPECT_GT(value, 0.0f);
            EXPECT_LT(value, 1.0f);
            levels.insert(value);
        }
        EXPECT_EQ(levels.size(), 4096u) << "every level once in channel " << c;
    }
    EXPECT_NE(v[0], v[1]) << "channels use different patterns";
}

TEST(kaImagePostprocessor, Settings) {
    kaImagePostprocessor* p = kaImagePostprocessor::getImagePostprocessor();
    EXPECT_EQ(p, kaImagePostprocessor::getImagePostprocessor());
    const int mode = p->getMode();
    const float gamma = p->getGamma();
    p->setMode(0);
    p->setGamma(0.5f);
    p->setDithering(false);
    EXPECT_EQ(p->getMode(), 0);
    EXPECT_EQ(p->getGamma(), 0.5f);
    EXPECT_FALSE(p->getDithering());
    p->setMode(mode);
    p->setGamma(gamma);
    p->setDithering(true);
}
