#include "kaImageOutStream.h"

#include "kaImage.h"

#include <gtest/gtest.h>

TEST(kaImageOutStream, InstallCallAndRemove) {
    EXPECT_FALSE(kaImageOutStream::getImageWriteFunction());
    std::vector<std::string> written;
    kaImageOutStream::setImageWriteFunction([&](osg::ImagePtr image, std::string name) {
        written.push_back(name);
        return image != nullptr;
    });
    auto write = kaImageOutStream::getImageWriteFunction();
    ASSERT_TRUE(write);
    EXPECT_TRUE(write(osg::Image::create(), "a.png"));
    EXPECT_FALSE(write(osg::ImagePtr(), "b.png"));
    EXPECT_EQ(written, (std::vector<std::string>{"a.png", "b.png"}));
    kaImageOutStream::setImageWriteFunction(nullptr);
    EXPECT_FALSE(kaImageOutStream::getImageWriteFunction());
}

TEST(kaImageOutStream, LayeredFunctionIsSeparate) {
    int calls = 0;
    kaImageOutStream::setLayeredImageWriteFunction(
        [&](osg::ImageFileType*, const osg::ImagePtr&, std::string,
            std::vector<osg::ImagePtr> layers, const std::string* names) {
            ++calls;
            return layers.size() == 2 && names[1] == "diffuse_ibl";
        });
    EXPECT_FALSE(kaImageOutStream::getImageWriteFunction());
    const std::string names[] = {"beauty", "diffuse_ibl"};
    EXPECT_TRUE(kaImageOutStream::getLayeredImageWriteFunction()(nullptr, osg::ImagePtr(), "x.exr",
                                                                 {nullptr, nullptr}, names));
    EXPECT_EQ(calls, 1);
    kaImageOutStream::setLayeredImageWriteFunction(nullptr);
    EXPECT_FALSE(kaImageOutStream::getLayeredImageWriteFunction());
}

TEST(kaImage, DefaultImageFormatIsPngUnlessTheHostChangesIt) {
    EXPECT_EQ(kaImage::getDefaultImageFormat(), "png");
    kaImage::setDefaultImageFormat("tif");
    EXPECT_EQ(kaImage::getDefaultImageFormat(), "tif");
    kaImage::setDefaultImageFormat("png");
}
