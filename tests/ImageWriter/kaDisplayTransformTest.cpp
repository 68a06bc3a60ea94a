#include "kaDisplayTransform_p.h"

#include "kaColor.h"
#include "kaFile.h"
#include "kaImagePostprocessor.h"
#include "kaPlatform.h"
#include "kaTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace kaDisplayTransform;

class DisplayTransform : public testing::Test {
protected:
    void SetUp() override {
        post->setDithering(false);
        savedMode = post->getMode();
        forgetProfiles();
    }
    // Points $KALO_DATA somewhere else and makes the transform look again.
    void useDataFolder(const QString& folder) {
        kaFile::setPathVariable("KALO_DATA", folder);
        forgetProfiles();
    }
    void TearDown() override {
        post->setMode(savedMode);
        post->setDithering(true);
        post->setDitherImage(dither);
        useDataFolder(kaPlatform::getDataDir());
    }
    kaImagePostprocessor* post = kaImagePostprocessor::getImagePostprocessor();
    osg::ImagePtr dither = post->getDitherImage();
    int savedMode = 1;
};

TEST_F(DisplayTransform, FastLog2AndExp2AreCloseToTheRealOnes) {
    float worstLog = 0, worstExp = 0;
    for (float x = 1e-6f; x < 1e6f; x *= 1.37f) {
        float in[4] = {x, x * 1.1f, x * 0.7f, x * 3.0f}, out[4];
        fastLog2x4(in, out);
        for (int i = 0; i < 4; ++i)
            worstLog = std::max(worstLog, std::fabs(out[i] - std::log2(in[i])));
    }
    for (float x = -30.0f; x < 30.0f; x += 0.173f) {
        float in[4] = {x, x + 0.05f, x - 0.05f, x * 0.5f}, out[4];
        fastExp2x4(in, out);
        for (int i = 0; i < 4; ++i)
            worstExp = std::max(worstExp, std::fabs(out[i] / std::exp2(in[i]) - 1.0f));
    }
    EXPECT_LT(worstLog, 1e-4f);
    EXPECT_LT(worstExp, 1e-5f);
}

TEST_F(DisplayTransform, ExpClampsItsArgument) {
    float in[4] = {-500.0f, -126.99999f, 0.0f, 1.0f}, out[4];
    fastExp2x4(in, out);
    // At the lower bound the exponent field becomes 0: the result is 0, not a denormal.
    EXPECT_GE(out[0], 0.0f);
    EXPECT_LT(out[0], 1e-37f);
    EXPECT_NEAR(out[2], 1.0f, 1e-6f);
    EXPECT_NEAR(out[3], 2.0f, 1e-5f);
}

TEST_F(DisplayTransform, GammaModeRaisesToTheGivenExponent) {
    post->setMode(0);
    float in[4] = {0.25f, -1.0f, 1.0f, 0.3f}, out[4];
    displayTransformPixel(in, 0.5f, out);
    EXPECT_NEAR(out[0], 0.5f, 1e-4f);
    EXPECT_NEAR(out[1], 0.0f, 1e-6f);
    EXPECT_NEAR(out[2], 1.0f, 1e-4f);
    EXPECT_EQ(out[3], 0.3f) << "alpha is copied";
}

TEST_F(DisplayTransform, SRGBCurveThresholdTakesTheLinearBranch) {
    post->setMode(9); // any unknown mode is the sRGB curve
    float in[4] = {0.0031308f, 0.5f, -0.2f, 0.7f}, out[4];
    displayTransformPixel(in, 1.0f, out);
    EXPECT_FLOAT_EQ(out[0], 12.92f * 0.0031308f);
    EXPECT_NEAR(out[1], 1.055f * std::pow(0.5f, 1 / 2.4f) - 0.055f, 1e-4f);
    EXPECT_FLOAT_EQ(out[2], 12.92f * -0.2f);
    EXPECT_EQ(out[3], 0.7f);
}

TEST_F(DisplayTransform, ProfilePathUsesTheLastTableEntryForOne) {
    post->setMode(1);
    auto profile = kaColor::getSRGBICCProfile();
    ASSERT_TRUE(profile->isLoaded());
    float in[4] = {1.0f, 5.0f, 0.0f, 1.0f}, out[4];
    displayTransformPixel(in, 1.0f, out);
    EXPECT_EQ(out[0], profile->getOutputTable(0)[1023]);
    EXPECT_EQ(out[1], profile->getOutputTable(1)[1023]);
    EXPECT_EQ(out[2], profile->getOutputTable(2)[0]);
}

TEST_F(DisplayTransform, SRGBModeWithoutProfileFallsBackToTheCurve) {
    katest::TempDir empty;
    useDataFolder(empty.path());
    post->setMode(1);
    float in[4] = {0.5f, 0.001f, 1.0f, 1.0f}, out[4];
    displayTransformPixel(in, 1.0f, out);
    EXPECT_NEAR(out[0], 1.055f * std::pow(0.5f, 1 / 2.4f) - 0.055f, 1e-4f);
    EXPECT_FLOAT_EQ(out[1], 12.92f * 0.001f);
}

TEST_F(DisplayTransform, AdobeModeWithoutProfileUsesThePublishedMatrices) {
    katest::TempDir empty;
    useDataFolder(empty.path());
    post->setMode(2);
    const float c[3] = {0.2f, 0.5f, 0.8f};
    float in[4] = {c[0], c[1], c[2], 0.5f}, out[4];
    displayTransformPixel(in, 1.0f, out);
    // Linear sRGB -> linear Adobe RGB (D65), then gamma 256/563.
    const double m[3][3] = {{0.7152, 0.2848, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0412, 0.9588}};
    for (int k = 0; k < 3; ++k) {
        double linear = m[k][0] * c[0] + m[k][1] * c[1] + m[k][2] * c[2];
        EXPECT_NEAR(out[k], std::pow(linear, 256.0 / 563.0), 2e-3) << k;
    }
    EXPECT_EQ(out[3], 0.5f);
}

TEST_F(DisplayTransform, AdobeModeWithProfileAgreesWithTheFormula) {
    post->setMode(2);
    float in[4] = {0.2f, 0.5f, 0.8f, 1.0f}, viaProfile[4], viaFormula[4];
    displayTransformPixel(in, 1.0f, viaProfile);
    katest::TempDir empty;
    useDataFolder(empty.path());
    displayTransformPixel(in, 1.0f, viaFormula);
    for (int k = 0; k < 3; ++k)
        EXPECT_NEAR(viaProfile[k], viaFormula[k], 4e-3f) << k;
}

TEST_F(DisplayTransform, NoneModeCopies) {
    post->setMode(5);
    float in[4] = {3.0f, -1.0f, 0.5f, 0.25f}, out[4];
    displayTransformPixel(in, 1.0f, out);
    for (int k = 0; k < 4; ++k)
        EXPECT_EQ(out[k], in[k]);
}

TEST_F(DisplayTransform, QuantizeScalesBy256AndClamps) {
    unsigned char rgb[3];
    float p[4] = {0.5f, 1.0f, -0.1f, 1.0f};
    quantizePixel(p, 0, 0, 0, rgb);
    EXPECT_EQ(rgb[0], 128);
    EXPECT_EQ(rgb[1], 255);
    EXPECT_EQ(rgb[2], 0);
    float q[4] = {0.999f, 0.00390625f * 3.5f, 2.0f, 1.0f};
    quantizePixel(q, 0, 0, 0, rgb);
    EXPECT_EQ(rgb[0], 255);
    EXPECT_EQ(rgb[1], 3);
    EXPECT_EQ(rgb[2], 255);
}

TEST_F(DisplayTransform, QuantizeWithFlagTwoAppliesTheDisplayTransform) {
    post->setMode(0);
    const float gamma = post->getGamma();
    post->setGamma(0.5f);
    unsigned char rgb[3];
    float p[4] = {0.25f, 0.0f, 0.0f, 1.0f};
    quantizePixel(p, 0, 0, 2, rgb);
    post->setGamma(gamma);
    EXPECT_EQ(rgb[0], 127) << "0.25^0.5 = 0.5 -> 128 less the approximation's last bit";
}

TEST_F(DisplayTransform, DitherWrapsBothWaysWithTheWidth) {
    // 2 wide, 4 high: rows 2 and 3 are never read, because the width wraps the rows too.
    osg::ImagePtr image = osg::Image::create();
    image->set(osg::Image::OSG_RGB_PF, 2, 4, 1, 1, 1, 0.0, nullptr,
               osg::Image::OSG_FLOAT32_IMAGEDATA);
    image->setPixel(0, 0, {0.9f, 0.9f, 0.9f, 1});
    image->setPixel(1, 0, {0.1f, 0.1f, 0.1f, 1});
    image->setPixel(0, 1, {0.5f, 0.5f, 0.5f, 1});
    image->setPixel(1, 1, {0.0f, 0.0f, 0.0f, 1});
    image->setPixel(0, 2, {100.0f, 100.0f, 100.0f, 1});
    post->setDitherImage(image);
    post->setDithering(true);
    const float base = 100.0f / 256.0f;
    float p[4] = {base, base, base, 1.0f};
    unsigned char rgb[3];
    quantizePixel(p, 0, 0, 0, rgb);
    EXPECT_EQ(rgb[0], 100) << "100 + 0.9 truncates to 100";
    quantizePixel(p, 2, 2, 0, rgb);
    EXPECT_EQ(rgb[0], 100) << "(2, 2) wraps to (0, 0), not to row 2";
    quantizePixel(p, 0, 3, 0, rgb);
    EXPECT_EQ(rgb[0], 100) << "row 3 wraps to row 1 (0.5)";
    float q[4] = {base + 0.5f / 256.0f, 0, 0, 1.0f};
    quantizePixel(q, 0, 0, 0, rgb);
    EXPECT_EQ(rgb[0], 101) << "100.5 + 0.9";
    quantizePixel(q, 1, 1, 0, rgb);
    EXPECT_EQ(rgb[0], 100) << "100.5 + 0.0";
    float transparent[4] = {base + 0.5f / 256.0f, 0, 0, 0.0f};
    quantizePixel(transparent, 0, 0, 0, rgb);
    EXPECT_EQ(rgb[0], 100) << "no dither where alpha is 0";
}
