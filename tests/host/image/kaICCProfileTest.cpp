// The stock profiles made by the build, checked against lcms2's own transforms.
#include "kaICCProfile.h"
#include "kaColor.h"

#include "kaTestSupport.h"

#include <QFile>

#include <gtest/gtest.h>

#include <lcms2.h>

#include <cmath>

namespace {

// lcms2's idea of linear sRGB -> profile RGB for one colour, as the reference.
std::array<float, 3> lcmsTransform(const QString& profileFile, std::array<float, 3> linearSrgb) {
    cmsToneCurve* linear = cmsBuildGamma(nullptr, 1.0);
    cmsToneCurve* curves[3] = {linear, linear, linear};
    const cmsCIExyY d65 = {0.3127, 0.3290, 1.0};
    const cmsCIExyYTRIPLE primaries = {{0.64, 0.33, 1.0}, {0.30, 0.60, 1.0}, {0.15, 0.06, 1.0}};
    cmsHPROFILE source = cmsCreateRGBProfile(&d65, &primaries, curves);
    cmsHPROFILE target = cmsOpenProfileFromFile(profileFile.toLocal8Bit().constData(), "r");
    cmsHTRANSFORM t = cmsCreateTransform(source, TYPE_RGB_FLT, target, TYPE_RGB_FLT,
                                         INTENT_RELATIVE_COLORIMETRIC, 0);
    std::array<float, 3> out{};
    cmsDoTransform(t, linearSrgb.data(), out.data(), 1);
    cmsDeleteTransform(t);
    cmsCloseProfile(source);
    cmsCloseProfile(target);
    cmsFreeToneCurve(linear);
    return out;
}

std::array<float, 3> ourTransform(const kaICCProfile& profile, std::array<float, 3> linearSrgb) {
    KA_RGBA32F p{linearSrgb[0], linearSrgb[1], linearSrgb[2], 1.0f};
    profile.getConversionMatrix().apply(p);
    float c[3] = {p.r, p.g, p.b};
    std::array<float, 3> out{};
    for (int k = 0; k < 3; ++k) {
        float v = std::min(std::max(c[k], 0.0f), 0.9999f);
        out[k] = profile.getOutputTable(k)[size_t(v * kaICCProfile::kTableSize)];
    }
    return out;
}

} // namespace

TEST(kaICCProfile, StockSRGBProfile) {
    auto profile = kaColor::getSRGBICCProfile();
    ASSERT_TRUE(profile->isLoaded()) << profile->getFileName().toStdString();
    EXPECT_EQ(profile->getDescription(), "sRGB IEC61966-2.1");
    kaColorMatrix m = profile->getConversionMatrix();
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(m.get(r, c), r == c ? 1.0f : 0.0f, 1e-3f);
    // The sRGB curve at a mid value.
    const float linear = (512 + 0.5f) / 1024.0f;
    EXPECT_NEAR(profile->getOutputTable(1)[512], 1.055f * std::pow(linear, 1 / 2.4f) - 0.055f,
                2e-3f);
}

TEST(kaICCProfile, StockAdobeRGBProfile) {
    auto profile = kaColor::getAdobeRGBICCProfile();
    ASSERT_TRUE(profile->isLoaded());
    EXPECT_EQ(profile->getDescription(), "Adobe RGB (1998)");
    // Published linear sRGB -> linear Adobe RGB (1998) matrix (D65).
    const float expected[3][3] = {
        {0.7152f, 0.2848f, 0.0000f}, {0.0000f, 1.0000f, 0.0000f}, {0.0000f, 0.0412f, 0.9588f}};
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(profile->getConversionMatrix().get(r, c), expected[r][c], 2e-3f);
    EXPECT_NEAR(profile->getOutputTable(0)[100], std::pow((100 + 0.5f) / 1024.0f, 256.0f / 563.0f),
                1e-3f);
}

TEST(kaICCProfile, MatrixAndTablesAgreeWithLcmsTransforms) {
    const std::array<float, 3> colours[] = {
        {0.2f, 0.5f, 0.8f}, {0.9f, 0.1f, 0.05f}, {0.01f, 0.02f, 0.03f}, {0.5f, 0.5f, 0.5f}};
    for (const QString& file :
         {kaColor::getSRGBProfileFileName(), kaColor::getAdobeRGBProfileFileName()}) {
        kaICCProfile profile(file);
        for (const auto& colour : colours) {
            auto ours = ourTransform(profile, colour);
            auto reference = lcmsTransform(file, colour);
            for (int k = 0; k < 3; ++k)
                EXPECT_NEAR(ours[k], reference[k], 4e-3f) << file.toStdString() << " channel " << k;
        }
    }
}

TEST(kaICCProfile, MissingOrBrokenFilesDoNotLoad) {
    katest::TempDir dir;
    kaICCProfile missing(dir.file("none.icc"));
    EXPECT_FALSE(missing.isLoaded());
    EXPECT_TRUE(missing.getData().isEmpty());

    QFile junk(dir.file("junk.icc"));
    ASSERT_TRUE(junk.open(QIODevice::WriteOnly));
    junk.write(QByteArray(500, 'x'));
    junk.close();
    kaICCProfile broken(dir.file("junk.icc"));
    EXPECT_FALSE(broken.isLoaded());
}

TEST(kaICCProfile, GrayProfilesKeepTheirBytesButDoNotLoad) {
    katest::TempDir dir;
    cmsToneCurve* gamma = cmsBuildGamma(nullptr, 2.2);
    cmsHPROFILE gray = cmsCreateGrayProfile(cmsD50_xyY(), gamma);
    const QString path = dir.file("gray.icc");
    ASSERT_TRUE(cmsSaveProfileToFile(gray, path.toLocal8Bit().constData()));
    cmsCloseProfile(gray);
    cmsFreeToneCurve(gamma);
    kaICCProfile profile(path);
    EXPECT_FALSE(profile.isLoaded());
    EXPECT_FALSE(profile.getData().isEmpty());
}
