#include "OSGImage.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

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

// A block of several megabytes (so that every core takes part) is made ready for a writer, and
// nothing outside it changes, the part of it outside the image included.
TEST(Image, PrepareToOverwriteTouchesTheBlockAlone) {
    osg::ImagePtr image = Image::create();
    ASSERT_TRUE(image->set(Image::OSG_RGB_PF, 3000, 1200));
    std::memset(image->getData(), 0x55, image->getSize());
    image->prepareToOverwrite(-500, 100, 2000, 1200); // (0..1500) x (100..1200) in the image
    size_t outsideChanged = 0, insideTouched = 0;
    for (int y = 0; y < 1200; ++y)
        for (int x = 0; x < 3000; ++x) {
            const uint8_t* p = image->getData() + (size_t(y) * 3000 + size_t(x)) * 3;
            const bool inside = x < 1500 && y >= 100;
            const bool kept = p[0] == 0x55 && p[1] == 0x55 && p[2] == 0x55;
            outsideChanged += !inside && !kept;
            insideTouched += inside && !kept;
        }
    EXPECT_EQ(outsideChanged, 0u);
    EXPECT_GT(insideTouched, 1100u) << "at least a byte of every page of every row";
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

namespace {

// A field of the process's own map entry for the mapping that holds 'address' ("THPeligible",
// "AnonHugePages", ...): its number, or -1 when the mapping or the field is not found.
long mappingField(const void* address, const std::string& field) {
    std::ifstream maps("/proc/self/smaps");
    std::string line;
    bool inside = false;
    while (std::getline(maps, line)) {
        unsigned long low = 0, high = 0;
        if (std::sscanf(line.c_str(), "%lx-%lx ", &low, &high) == 2 &&
            line.find(':') > line.find(' ')) {
            inside = uintptr_t(address) >= low && uintptr_t(address) < high;
            continue;
        }
        long value = 0;
        if (inside && line.compare(0, field.size() + 1, field + ":") == 0 &&
            std::sscanf(line.c_str() + field.size() + 1, "%ld", &value) == 1)
            return value;
    }
    return -1;
}

bool systemOffersHugePages() {
    std::ifstream setting("/sys/kernel/mm/transparent_hugepage/enabled");
    std::string modes;
    std::getline(setting, modes);
    return modes.find("[always]") != std::string::npos ||
           modes.find("[madvise]") != std::string::npos;
}

} // namespace

// A large picture is written once, pixel by pixel: where the system has huge pages, its
// memory should come in them, not in hundreds of thousands of small faults.
TEST(Image, LargePicturesAskForHugePagesWhereTheSystemHasThem) {
#ifdef KA_SANITIZED_BUILD
    GTEST_SKIP() << "the sanitizer's allocator places memory its own way";
#endif
    if (!systemOffersHugePages())
        GTEST_SKIP() << "this system gives no huge pages";
    osg::ImagePtr image = Image::create();
    ASSERT_TRUE(image->set(Image::OSG_RGB_PF, 4096, 4096, 1, 1, 1, 0.0, nullptr));
    std::memset(image->getData(), 0x7f, image->getSize());
    const uint8_t* middle = image->getData() + image->getSize() / 2;
    // Whether the system could find free huge pages just then is its business; that the
    // picture asked for them is ours.
    EXPECT_EQ(mappingField(middle, "THPeligible"), 1)
        << "huge pages held: " << mappingField(middle, "AnonHugePages") << " kB";
}
