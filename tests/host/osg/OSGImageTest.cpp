#include "OSGImage.h"

#include <gtest/gtest.h>

#include <cstring>

using osg::Image;

TEST(Image, SetAllocatesZeroedStorageOfTheLayout) {
    osg::ImagePtr image = Image::create();
    ASSERT_TRUE(
        image->set(Image::OSG_RGBA_PF, 5, 3, 1, 1, 1, 0.0, nullptr, Image::OSG_FLOAT32_IMAGEDATA));
    EXPECT_EQ(image->getWidth(), 5);
    EXPECT_EQ(image->getHeight(), 3);
    EXPECT_EQ(image->getComponents(), 4);
    EXPECT_EQ(image->getBpp(), 16);
    EXPECT_EQ(image->getSize(), 5u * 3 * 16);
    EXPECT_EQ(image->getRowSize(), 5u * 16);
    EXPECT_TRUE(image->isFloat());
    EXPECT_TRUE(image->hasAlphaChannel());
    for (size_t i = 0; i < image->getSize(); ++i)
        ASSERT_EQ(image->getData()[i], 0);
}

TEST(Image, SetCopiesGivenData) {
    const uint8_t rgb[] = {1, 2, 3, 4, 5, 6};
    osg::ImagePtr image = Image::create();
    ASSERT_TRUE(image->set(Image::OSG_RGB_PF, 2, 1, 1, 1, 1, 0.0, rgb));
    EXPECT_EQ(std::memcmp(image->getData(), rgb, 6), 0);
}

TEST(Image, SetWithoutMemoryHasNoStorage) {
    osg::ImagePtr image = Image::create();
    ASSERT_TRUE(image->set(Image::OSG_RGB_PF, 4, 4, 1, 1, 1, 0.0, nullptr,
                           Image::OSG_UINT8_IMAGEDATA, false));
    EXPECT_FALSE(image->hasData());
    EXPECT_EQ(image->getData(), nullptr);
    EXPECT_EQ(image->getWidth(), 4);
}

TEST(Image, SetRefusesUnknownFormatsTypesAndNegativeSizes) {
    osg::ImagePtr image = Image::create();
    EXPECT_FALSE(image->set(0x1234, 4, 4));
    EXPECT_FALSE(image->set(Image::OSG_RGB_PF, 4, 4, 1, 1, 1, 0.0, nullptr, 0x9999));
    EXPECT_FALSE(image->set(Image::OSG_RGB_PF, -1, 4));
    EXPECT_FALSE(image->hasData());
}

TEST(Image, SetFailsCleanlyWhenMemoryCannotBeHad) {
    osg::ImagePtr image = Image::create();
    // 2^31 x 2^31 RGBA float frames x 2^31: far beyond any machine.
    EXPECT_FALSE(image->set(Image::OSG_RGBA_PF, 2147483647, 2147483647, 1, 1, 2147483647, 0.0,
                            nullptr, Image::OSG_FLOAT32_IMAGEDATA));
    EXPECT_FALSE(image->hasData());
    EXPECT_EQ(image->getWidth(), 0);
}

TEST(Image, MipmapsFramesAndSidesAreAddressable) {
    osg::ImagePtr image = Image::create();
    ASSERT_TRUE(image->set(Image::OSG_L_PF, 4, 4, 1, 3, 2, 0.5, nullptr, Image::OSG_UINT8_IMAGEDATA,
                           true, 6));
    EXPECT_EQ(image->getMipMapCount(), 3);
    EXPECT_EQ(image->getFrameCount(), 2);
    EXPECT_EQ(image->getSideCount(), 6);
    EXPECT_EQ(image->getFrameSize(), 16u + 4u + 1u);
    EXPECT_EQ(image->getSize(), 21u * 2 * 6);
    EXPECT_EQ(image->getData(1) - image->getData(0), 16);
    EXPECT_EQ(image->getData(0, 1) - image->getData(0), 21);
    EXPECT_EQ(image->getData(0, 0, 1) - image->getData(0), 42);
    EXPECT_EQ(image->getData(3), nullptr);
}

TEST(Image, SetSubDataPastesABlockAndCutsWhatStandsOutside) {
    osg::ImagePtr image = Image::create();
    ASSERT_TRUE(image->set(Image::OSG_L_PF, 4, 3));
    const uint8_t block[] = {1, 2, 3, 4, 5, 6}; // 3 wide, 2 high
    ASSERT_TRUE(image->setSubData(2, 2, 0, 3, 2, 1, block));
    // Only (2,2) and (3,2) of the block's first row land in the image.
    const uint8_t expected[] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2};
    EXPECT_EQ(std::memcmp(image->getData(), expected, 12), 0);

    ASSERT_TRUE(image->setSubData(-1, 0, 0, 3, 2, 1, block));
    const uint8_t expected2[] = {2, 3, 0, 0, 5, 6, 0, 0, 0, 0, 1, 2};
    EXPECT_EQ(std::memcmp(image->getData(), expected2, 12), 0);
}

TEST(Image, ResolutionAndAttachments) {
    osg::ImagePtr image = Image::create();
    EXPECT_EQ(image->findAttachmentField("Comment"), nullptr);
    image->setAttachmentField("Comment", "made here");
    ASSERT_NE(image->findAttachmentField("Comment"), nullptr);
    EXPECT_EQ(*image->findAttachmentField("Comment"), "made here");
    image->setResX(300.0f);
    image->setResY(150.0f);
    image->setResUnit(Image::OSG_RESUNIT_INCH);
    EXPECT_EQ(image->getResX(), 300.0f);
    EXPECT_EQ(image->getResUnit(), 2);
}

TEST(Image, CloneIsIndependent) {
    osg::ImagePtr image = Image::create();
    image->set(Image::OSG_RGB_PF, 2, 2);
    image->getData()[0] = 7;
    image->setAttachmentField("k", "v");
    osg::ImagePtr copy = image->clone();
    copy->getData()[0] = 9;
    EXPECT_EQ(image->getData()[0], 7);
    EXPECT_EQ(*copy->findAttachmentField("k"), "v");
}
