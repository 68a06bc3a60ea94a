#include "OSGImage.h"
#include "OSGImageFileHandler.h"
#include "OSGImageFileType.h"

#include "kaTestSupport.h"

#include <OpenImageIO/imageio.h>

#include <QDir>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <Imath/half.h>

using osg::Image;

namespace {
osg::ImagePtr layer(uint32_t format, int32_t type, float base) {
    osg::ImagePtr image = Image::create();
    image->set(format, 8, 4, 1, 1, 1, 0.0, nullptr, type);
    const size_t values = image->getSize() / image->getComponentSize();
    for (size_t i = 0; i < values; ++i) {
        float v = base + float(i) * 0.01f;
        if (type == Image::OSG_FLOAT32_IMAGEDATA)
            reinterpret_cast<float*>(image->getData())[i] = v;
        else if (type == Image::OSG_FLOAT16_IMAGEDATA)
            reinterpret_cast<Imath::half*>(image->getData())[i] = Imath::half(v);
        else
            image->getData()[i] = uint8_t(i % 256);
    }
    return image;
}
} // namespace

TEST(LayeredWrite, OneExrWithNamedLayersInTheirOwnPrecision) {
    katest::TempDir dir;
    const std::string names[] = {"beauty", "unused", "depth", "normal", "mask"};
    std::vector<osg::ImagePtr> layers = {
        layer(Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA, 2.0f), osg::ImagePtr(),
        layer(Image::OSG_L_PF, Image::OSG_FLOAT32_IMAGEDATA, 100.0f),
        layer(Image::OSG_RGB_PF, Image::OSG_FLOAT16_IMAGEDATA, -0.5f),
        layer(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 0.0f)};
    layers[0]->setAttachmentField("Comment", "passes");
    osg::ImageFileType* exr = osg::ImageFileHandler::the().getFileType(nullptr, "a.exr");
    const std::string path = dir.fileStd("passes.exr");
    ASSERT_TRUE(exr->writeLayered(layers[0], path, layers, names));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(), 1);

    auto in = OIIO::ImageInput::open(path);
    ASSERT_TRUE(in);
    const OIIO::ImageSpec& spec = in->spec();
    const std::vector<std::string> expectedNames = {"beauty.R", "beauty.G", "beauty.B", "beauty.A",
                                                    "depth.Y",  "normal.R", "normal.G", "normal.B",
                                                    "mask.R",   "mask.G",   "mask.B"};
    std::vector<std::string> channelNames(spec.channelnames.begin(), spec.channelnames.end());
    std::vector<std::string> sortedExpected = expectedNames;
    // OpenEXR orders channels by name in the file.
    std::sort(sortedExpected.begin(), sortedExpected.end());
    std::vector<std::string> sortedGot = channelNames;
    std::sort(sortedGot.begin(), sortedGot.end());
    ASSERT_EQ(sortedGot, sortedExpected);
    EXPECT_EQ(spec.get_string_attribute("ImageDescription"), "passes");

    std::vector<float> pixels(size_t(8) * 4 * spec.nchannels);
    ASSERT_TRUE(in->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, pixels.data()));
    auto channel = [&](const std::string& name) {
        return int(std::find(channelNames.begin(), channelNames.end(), name) -
                   channelNames.begin());
    };
    auto formatOf = [&](const std::string& name) {
        return spec.channelformats.empty() ? spec.format : spec.channelformats[channel(name)];
    };
    EXPECT_EQ(formatOf("depth.Y"), OIIO::TypeDesc::FLOAT);
    EXPECT_EQ(formatOf("beauty.R"), OIIO::TypeDesc::FLOAT);
    EXPECT_EQ(formatOf("normal.R"), OIIO::TypeDesc::HALF);
    EXPECT_EQ(formatOf("mask.R"), OIIO::TypeDesc::HALF) << "8-bit layers become half floats";

    // Pixel (x, image row y) lands at file row 3 - y.
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 8; ++x) {
            const size_t filePixel = (size_t(3 - y) * 8 + x) * spec.nchannels;
            const size_t i = size_t(y) * 8 + x;
            EXPECT_FLOAT_EQ(pixels[filePixel + channel("depth.Y")], 100.0f + float(i) * 0.01f);
            EXPECT_FLOAT_EQ(pixels[filePixel + channel("beauty.A")],
                            2.0f + float(i * 4 + 3) * 0.01f);
            EXPECT_NEAR(pixels[filePixel + channel("mask.G")], float((i * 3 + 1) % 256) / 255.0f,
                        1e-3f);
        }
}

TEST(LayeredWrite, LayersOfAnotherSizeAreRefusedAndNothingIsWritten) {
    katest::TempDir dir;
    katest::LogCapture log;
    osg::ImagePtr base = layer(Image::OSG_RGB_PF, Image::OSG_FLOAT32_IMAGEDATA, 0.0f);
    osg::ImagePtr other = Image::create();
    other->set(Image::OSG_RGB_PF, 3, 3, 1, 1, 1, 0.0, nullptr, Image::OSG_FLOAT32_IMAGEDATA);
    const std::string names[] = {"a", "b"};
    osg::ImageFileType* exr = osg::ImageFileHandler::the().getFileType("image/x-exr");
    const std::string path = dir.fileStd("bad.exr");
    EXPECT_FALSE(exr->writeLayered(base, path, {base, other}, names));
    EXPECT_FALSE(QFileInfo::exists(QString::fromStdString(path)));
    EXPECT_EQ(log.texts(kaLog::Error).size(), 1u);
}

TEST(LayeredWrite, FormatsWithoutLayersRefuse) {
    katest::TempDir dir;
    katest::LogCapture log;
    osg::ImagePtr base = layer(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 0.0f);
    const std::string names[] = {"a"};
    osg::ImageFileType* png = osg::ImageFileHandler::the().getFileType("image/png");
    EXPECT_FALSE(png->writeLayered(base, dir.fileStd("x.png"), {base}, names));
    EXPECT_FALSE(QFileInfo::exists(dir.file("x.png")));
}
