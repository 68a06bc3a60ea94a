#include "kaImageOutStream.h"

#include "kaImage.h"

#include "kaFaultInjection.h"
#include "kaTestSupport.h"

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

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

namespace {
osg::ImagePtr smallPicture() {
    osg::ImagePtr image = osg::Image::create();
    image->set(osg::Image::OSG_RGB_PF, 32, 16, 1, 1, 1, 0.0, nullptr,
               osg::Image::OSG_UINT8_IMAGEDATA);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 32; ++x)
            image->setPixel(x, y, {float(x) / 32.0f, float(y) / 16.0f, 0.25f, 1.0f});
    return image;
}

std::vector<uint8_t> readAll(int fd) {
    std::vector<uint8_t> bytes;
    uint8_t chunk[4096];
    for (ssize_t got; (got = ::read(fd, chunk, sizeof chunk)) > 0;)
        bytes.insert(bytes.end(), chunk, chunk + got);
    return bytes;
}
} // namespace

TEST(kaImageOutStreamDescriptor, SendsEachImageEncodedAfterTheOther) {
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    auto send = kaImageOutStream::descriptorWriter(pipe[1]);
    EXPECT_TRUE(send(smallPicture(), "/anywhere/a.png"));
    EXPECT_TRUE(send(smallPicture(), "b"));
    ::close(pipe[1]);
    const std::vector<uint8_t> bytes = readAll(pipe[0]);
    ::close(pipe[0]);
    // Two PNG files, one after the other, each read back on its own.
    const std::string text(bytes.begin(), bytes.end());
    const size_t second = text.find("\x89PNG", 1);
    ASSERT_NE(second, std::string::npos);
    for (size_t start : {size_t(0), second}) {
        OIIO::Filesystem::IOMemReader memory(bytes.data() + start, bytes.size() - start);
        auto in = OIIO::ImageInput::create("png");
        ASSERT_TRUE(in && in->set_ioproxy(&memory));
        OIIO::ImageSpec spec;
        ASSERT_TRUE(in->open("stream.png", spec));
        EXPECT_EQ(in->spec().width, 32);
        EXPECT_EQ(in->spec().height, 16);
    }
}

TEST(kaImageOutStreamDescriptor, AReaderThatWentAwayIsAFailureWithItsCause) {
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    ::close(pipe[0]);
    const auto previous = std::signal(SIGPIPE, SIG_IGN);
    auto lastError = std::make_shared<std::string>();
    katest::LogCapture log;
    EXPECT_FALSE(kaImageOutStream::descriptorWriter(pipe[1], lastError)(smallPicture(), "c.png"));
    std::signal(SIGPIPE, previous);
    ::close(pipe[1]);
    EXPECT_EQ(*lastError, std::strerror(EPIPE));
    EXPECT_TRUE(
        log.contains(kaLog::Error, "kaImageOutStream: Couldn't send image 'c.png' to the stream: " +
                                       std::string(std::strerror(EPIPE))));
}

TEST(kaImageOutStreamDescriptor, AFullDiskBehindTheDescriptorIsAFailure) {
    katest::TempDir dir;
    auto lastError = std::make_shared<std::string>();
    bool sent = true;
    {
        kaFaultGuard fault(dir.fileStd("").c_str(), "write", 1, ENOSPC);
        const int fd = ::open(dir.fileStd("stream.bin").c_str(), O_WRONLY | O_CREAT, 0644);
        ASSERT_GE(fd, 0);
        sent = kaImageOutStream::descriptorWriter(fd, lastError)(smallPicture(), "d.png");
        ::close(fd);
    }
    EXPECT_FALSE(sent);
    EXPECT_EQ(*lastError, std::strerror(ENOSPC));
}
