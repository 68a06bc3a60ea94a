#include "OSGImageFileHandler.h"

#include "OSGImage.h"
#include "OSGImageFileType.h"
#include "filetypes/OSGJPGImageFileType.h"

#include "kaTestSupport.h"

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <algorithm>

using osg::Image;
using osg::ImageFileHandler;
using osg::ImageFileType;

namespace {
osg::ImagePtr smallImage() {
    osg::ImagePtr image = Image::create();
    image->set(Image::OSG_RGB_PF, 64, 48);
    for (size_t i = 0; i < image->getSize(); ++i)
        image->getData()[i] = uint8_t((i * 37) ^ (i >> 5));
    return image;
}
bool contains(const std::list<std::string>& list, const std::string& s) {
    return std::find(list.begin(), list.end(), s) != list.end();
}
} // namespace

TEST(ImageFileHandler, SuffixListByFlag) {
    auto writable = ImageFileHandler::the().getSuffixList(ImageFileType::OSG_WRITE_SUPPORTED);
    for (const char* s : {"png", "jpg", "jpeg", "tif", "tiff", "exr", "hdr", "bmp", "tga", "mtd"})
        EXPECT_TRUE(contains(writable, s)) << s;
    auto layered = ImageFileHandler::the().getSuffixList(ImageFileType::OSG_LAYER_SUPPORTED);
    EXPECT_EQ(layered, std::list<std::string>{"exr"});
}

TEST(ImageFileHandler, FileTypeByMimeTypeOrName) {
    ImageFileHandler& h = ImageFileHandler::the();
    ImageFileType* png = h.getFileType("image/png");
    ASSERT_NE(png, nullptr);
    EXPECT_EQ(png->getMimeType(), "image/png");
    EXPECT_EQ(h.getFileType("IMAGE/PNG"), png);
    EXPECT_EQ(h.getFileType("png"), png) << "a bare suffix works as a MIME type";
    EXPECT_EQ(h.getFileType(nullptr, "/a/b.PNG"), png);
    EXPECT_EQ(h.getFileType("", "/a/b.png"), png);
    EXPECT_EQ(h.getFileType(nullptr, "/a.png/b"), nullptr);
    EXPECT_EQ(h.getFileType(nullptr, "/a/b.xyz"), nullptr);
    EXPECT_EQ(h.getFileType("image/x-unknown"), nullptr);
    EXPECT_EQ(h.getFileType(nullptr, nullptr), nullptr);
    ImageFileType* exr = h.getFileType(nullptr, "x.exr");
    ASSERT_NE(exr, nullptr);
    EXPECT_TRUE(exr->getFlags() & ImageFileType::OSG_LAYER_SUPPORTED);
    EXPECT_FALSE(png->getFlags() & ImageFileType::OSG_LAYER_SUPPORTED);
}

TEST(ImageFileHandler, UnknownExtensionIsAClearError) {
    katest::TempDir dir;
    katest::LogCapture log;
    const std::string path = dir.fileStd("a.xyz");
    EXPECT_FALSE(ImageFileHandler::the().write(smallImage(), path.c_str()));
    EXPECT_TRUE(
        log.contains(kaLog::Error, "ImageFileHandler: No image file type writes '" + path + "'."));
    EXPECT_FALSE(QFileInfo::exists(QString::fromStdString(path)));
}

TEST(ImageFileHandler, NullImageOrNameIsRefused) {
    katest::LogCapture log;
    EXPECT_FALSE(ImageFileHandler::the().write(osg::ImagePtr(), "/tmp/x.png"));
    EXPECT_FALSE(ImageFileHandler::the().write(smallImage(), ""));
    EXPECT_EQ(log.texts(kaLog::Error).size(), 2u);
}

TEST(ImageFileHandler, MissingFolderFailsAndCreatesNothing) {
    katest::TempDir dir;
    katest::LogCapture log;
    const std::string path = dir.fileStd("none/a.png");
    EXPECT_FALSE(smallImage()->write(path.c_str()));
    EXPECT_FALSE(QFileInfo::exists(dir.file("none")));
    ASSERT_EQ(log.texts(kaLog::Error).size(), 1u);
    EXPECT_NE(log.texts(kaLog::Error)[0].find(path), std::string::npos);
}

TEST(ImageFileHandler, FailedWriteLeavesTheOldFileAndNoTemporaryFile) {
    katest::TempDir dir;
    const std::string path = dir.fileStd("keep.png");
    ASSERT_TRUE(smallImage()->write(path.c_str()));
    QFile before(QString::fromStdString(path));
    before.open(QIODevice::ReadOnly);
    QByteArray old = before.readAll();

    osg::ImagePtr empty = Image::create(); // no pixels
    katest::LogCapture log;
    EXPECT_FALSE(empty->write(path.c_str()));
    QFile after(QString::fromStdString(path));
    after.open(QIODevice::ReadOnly);
    EXPECT_EQ(after.readAll(), old);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"keep.png"});
}

TEST(ImageFileHandler, StoresPngBytesInMemory) {
    osg::ImagePtr image = smallImage();
    std::vector<uint8_t> bytes;
    ASSERT_TRUE(ImageFileHandler::the().store(image, "image/png", bytes));
    ASSERT_GT(bytes.size(), 8u);
    EXPECT_EQ(std::string(bytes.begin() + 1, bytes.begin() + 4), "PNG");

    OIIO::Filesystem::IOMemReader proxy(bytes.data(), bytes.size());
    auto in = OIIO::ImageInput::open("memory.png", nullptr, &proxy);
    ASSERT_TRUE(in) << OIIO::geterror();
    EXPECT_EQ(in->spec().width, 64);
    std::vector<uint8_t> pixels(64 * 48 * 3);
    ASSERT_TRUE(in->read_image(0, 0, 0, 3, OIIO::TypeDesc::UINT8, pixels.data()));
    // First file row is the image's top row, i.e. its last stored row.
    EXPECT_TRUE(
        std::equal(pixels.begin(), pixels.begin() + 64 * 3, image->getData() + 47 * 64 * 3));

    osg::ImagePtr back;
    ASSERT_TRUE(ImageFileHandler::the().restore(back, "image/png", bytes.data(), bytes.size()));
    EXPECT_TRUE(std::equal(back->getData(), back->getData() + back->getSize(), image->getData()));
}

TEST(JPGImageFileType, QualityIsProcessWideAndUsed) {
    osg::JPGImageFileType& jpg = osg::JPGImageFileType::the();
    EXPECT_EQ(&jpg, ImageFileHandler::the().getFileType("image/jpeg"));
    const uint32_t old = jpg.getQuality();
    osg::ImagePtr image = smallImage();
    std::vector<uint8_t> low, high;
    jpg.setQuality(5);
    EXPECT_EQ(osg::JPGImageFileType::the().getQuality(), 5u);
    ASSERT_TRUE(ImageFileHandler::the().store(image, "image/jpeg", low));
    jpg.setQuality(100);
    ASSERT_TRUE(ImageFileHandler::the().store(image, "image/jpeg", high));
    jpg.setQuality(250);
    EXPECT_EQ(jpg.getQuality(), 100u);
    jpg.setQuality(old);
    EXPECT_LT(low.size() * 2, high.size());
}
