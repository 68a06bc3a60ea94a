#include "kaImage.h"

#include "OSGImageFileHandler.h"
#include "kaColor.h"
#include "kaTestSupport.h"

#include <OpenImageIO/imageio.h>

#include <gtest/gtest.h>

#include <lcms2.h>

using osg::Image;

class kaImageProfileInFile : public testing::TestWithParam<const char*> {
protected:
    katest::TempDir dir;
};

TEST_P(kaImageProfileInFile, EmbeddedProfileIsReadBackWithItsDescription) {
    osg::ImagePtr image = Image::create();
    image->set(Image::OSG_RGB_PF, 8, 8);
    ASSERT_TRUE(
        kaImage::embedActiveICCProfile(image, kaColor::getAdobeRGBProfileFileName().toStdString()));
    const std::string path = dir.fileStd(QString("profiled.") + GetParam());
    ASSERT_TRUE(image->write(path.c_str()));

    auto in = OIIO::ImageInput::open(path);
    ASSERT_TRUE(in);
    QByteArray bytes;
    if (std::string(GetParam()) == "exr") {
        // OpenEXR keeps the profile as base64 text.
        bytes = QByteArray::fromBase64(
            QByteArray::fromStdString(in->spec().get_string_attribute("iccProfileBase64")));
    } else {
        const OIIO::ParamValue* icc = in->spec().find_attribute("ICCProfile");
        ASSERT_NE(icc, nullptr) << GetParam();
        bytes = QByteArray(static_cast<const char*>(icc->data()), int(icc->type().size()));
    }
    ASSERT_FALSE(bytes.isEmpty());
    cmsHPROFILE profile = cmsOpenProfileFromMem(bytes.constData(), cmsUInt32Number(bytes.size()));
    ASSERT_NE(profile, nullptr);
    char description[256] = {0};
    cmsGetProfileInfoASCII(profile, cmsInfoDescription, "en", "US", description,
                           sizeof description);
    EXPECT_STREQ(description, "Adobe RGB (1998)");
    auto* red = static_cast<const cmsCIEXYZ*>(cmsReadTag(profile, cmsSigRedColorantTag));
    ASSERT_NE(red, nullptr);
    EXPECT_NEAR(red->X, 0.6097, 2e-3) << "Adobe RGB red colorant, D50";
    cmsCloseProfile(profile);
}

INSTANTIATE_TEST_SUITE_P(Formats, kaImageProfileInFile,
                         testing::Values("png", "jpg", "tif", "exr"));

TEST(kaImage, EmbeddingRefusesMissingAndNonProfileFiles) {
    katest::TempDir dir;
    osg::ImagePtr image = Image::create();
    image->set(Image::OSG_RGB_PF, 2, 2);
    EXPECT_FALSE(kaImage::embedActiveICCProfile(image, dir.fileStd("none.icc")));
    EXPECT_FALSE(kaImage::embedActiveICCProfile(image, KA_TEST_SOURCE_DIR "/CMakeLists.txt"));
    EXPECT_EQ(image->findAttachmentField(kaImage::ICCProfileAttachmentKey), nullptr);
}

TEST(kaImageBlend, OverlayMarksBlendAndTheRestKeepsValuesAboveOne) {
    osg::ImagePtr target = Image::create();
    target->set(Image::OSG_RGB_PF, 4, 4, 1, 1, 1, 0.0, nullptr, Image::OSG_FLOAT32_IMAGEDATA);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            target->setPixel(x, y, {5.0f, 2.0f, 0.5f, 1.0f});
    osg::ImagePtr overlay = Image::create();
    overlay->set(Image::OSG_RGBA_PF, 4, 4); // transparent
    overlay->setPixel(1, 2, {1.0f, 1.0f, 1.0f, 1.0f});
    overlay->setPixel(2, 2, {1.0f, 0.0f, 0.0f, 0.5f});

    ASSERT_TRUE(kaImage::blendImage(target, overlay, {0, 0, 0}, {1, 1, 1, 1}, 1.0f, 0.0f));
    EXPECT_EQ(target->getPixel(0, 0).r, 5.0f);
    EXPECT_EQ(target->getPixel(3, 3).g, 2.0f);
    EXPECT_FLOAT_EQ(target->getPixel(1, 2).r, 1.0f);
    EXPECT_FLOAT_EQ(target->getPixel(1, 2).g, 1.0f);
    const float a = 128 / 255.0f;
    EXPECT_NEAR(target->getPixel(2, 2).r, 1.0f * a + 5.0f * (1 - a), 1e-5f);
    EXPECT_NEAR(target->getPixel(2, 2).g, 2.0f * (1 - a), 1e-5f);
}

TEST(kaImageBlend, OffsetColourAndOpacity) {
    osg::ImagePtr target = Image::create();
    target->set(Image::OSG_RGBA_PF, 3, 3);
    osg::ImagePtr overlay = Image::create();
    overlay->set(Image::OSG_RGBA_PF, 2, 2);
    overlay->setPixel(0, 0, {1, 1, 1, 1});
    ASSERT_TRUE(kaImage::blendImage(target, overlay, {2, 1, 0}, {1, 0, 0, 1}, 0.5f, 0.0f));
    osg::Color4f c = target->getPixel(2, 1);
    EXPECT_NEAR(c.r, 0.5f, 1 / 255.0f);
    EXPECT_NEAR(c.g, 0.0f, 1 / 255.0f);
    EXPECT_NEAR(c.a, 0.5f, 1 / 255.0f);
    EXPECT_EQ(target->getPixel(0, 0).a, 0.0f);
}
