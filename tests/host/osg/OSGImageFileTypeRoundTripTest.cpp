// Every format the file types offer: write an image, read it back with OpenImageIO directly
// and compare orientation, channels and values.
#include "OSGImage.h"
#include "OSGImageFileHandler.h"
#include "OSGImageFileType.h"
#include "filetypes/OSGOIIOImageFileType.h"

#include "kaTestSupport.h"

#include <OpenImageIO/imageio.h>

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using osg::Image;

namespace {

struct Source {
    const char* name;
    uint32_t format;
    int32_t type;
};

const Source kSources[] = {
    {"rgb8", Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA},
    {"rgba8", Image::OSG_RGBA_PF, Image::OSG_UINT8_IMAGEDATA},
    {"rgbaFloat", Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA},
    {"gray8", Image::OSG_L_PF, Image::OSG_UINT8_IMAGEDATA},
};

constexpr int kWidth = 37, kHeight = 23;

// A smooth picture (lossy codecs keep it well) whose rows differ, with values above 1 in the
// float version's first pixel row.
float sampleValue(int x, int y, int c, bool isFloat) {
    float v = 0.1f +
              0.8f * (float(x) / kWidth * (c % 2 ? 1.0f : 0.5f) + float(y) / kHeight * 0.4f) / 1.4f;
    if (c == 3)
        v = 0.25f + 0.5f * float(y) / kHeight;
    if (isFloat && y == 0 && c == 0)
        v = 4.0f;
    return v;
}

osg::ImagePtr makeSource(const Source& s) {
    osg::ImagePtr image = Image::create();
    image->set(s.format, kWidth, kHeight, 1, 1, 1, 0.0, nullptr, s.type);
    const int n = image->getComponents();
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
            for (int c = 0; c < n; ++c) {
                size_t i = (size_t(y) * kWidth + x) * n + c;
                float v = sampleValue(x, y, n == 1 ? 1 : c, s.type == Image::OSG_FLOAT32_IMAGEDATA);
                if (s.type == Image::OSG_FLOAT32_IMAGEDATA)
                    reinterpret_cast<float*>(image->getData())[i] = v;
                else
                    image->getData()[i] = uint8_t(std::lround(std::min(v, 1.0f) * 255.0f));
            }
    image->setResX(300.0f);
    image->setResY(300.0f);
    image->setResUnit(Image::OSG_RESUNIT_INCH);
    image->setAttachmentField("Comment", "round trip");
    return image;
}

struct Case {
    osg::OIIOImageFileType* type;
    Source source;
};

std::vector<Case> allCases() {
    std::vector<Case> cases;
    for (osg::ImageFileType* type : osg::ImageFileHandler::the().getFileTypes())
        if (auto* oiio = dynamic_cast<osg::OIIOImageFileType*>(type))
            for (const Source& s : kSources)
                cases.push_back({oiio, s});
    return cases;
}

void PrintTo(const Case& c, std::ostream* os) {
    *os << c.type->traits().oiioName << " " << c.source.name;
}

std::string caseName(const testing::TestParamInfo<Case>& info) {
    return std::string(info.param.type->traits().oiioName) + "_" + info.param.source.name;
}

bool isLossy(const std::string& format) {
    return format == "jpeg" || format == "webp";
}

float tolerance(const std::string& format, bool isFloatSource) {
    if (isLossy(format))
        return 0.02f; // mean error: lossy codecs ring at the bright first row

    if (format == "hdr")
        return 1.0f / 128.0f; // of the pixel's brightest channel: RGBE shares one exponent
    if (format == "openexr")
        return 1.0f / 1024.0f; // half floats keep 11 bits
    return isFloatSource ? 0.5f / 255.0f + 1e-6f : 1e-6f;
}

bool keepsFloat(const osg::OIIOFormatTraits& t) {
    const auto& kept = t.keptTypes;
    return std::find(kept.begin(), kept.end(), Image::OSG_FLOAT32_IMAGEDATA) != kept.end() ||
           t.otherTypesBecome == Image::OSG_FLOAT16_IMAGEDATA;
}

} // namespace

class FileTypeRoundTrip : public testing::TestWithParam<Case> {
protected:
    katest::TempDir dir;
};

TEST_P(FileTypeRoundTrip, ReadsBackWithOpenImageIO) {
    const Case& c = GetParam();
    const osg::OIIOFormatTraits& traits = c.type->traits();
    const std::string format = traits.oiioName;
    osg::ImagePtr source = makeSource(c.source);
    // Rendered float pictures are premultiplied, integer ones straight (the host's defaults).
    EXPECT_EQ(source->isAlphaPremultiplied(),
              source->hasAlphaChannel() && c.source.type == Image::OSG_FLOAT32_IMAGEDATA);
    const std::string path = dir.fileStd(QString("image.") + traits.suffixes.front().c_str());

    ASSERT_TRUE(osg::ImageFileHandler::the().write(source, path.c_str()));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(), 1)
        << "no temporary file is left";

    // Straight alpha is read as stored, not premultiplied.
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);
    auto in = OIIO::ImageInput::open(path, &config);
    ASSERT_TRUE(in) << OIIO::geterror();
    const OIIO::ImageSpec& spec = in->spec();
    EXPECT_EQ(spec.width, kWidth);
    EXPECT_EQ(spec.height, kHeight);
    const int srcChannels = source->getComponents();
    const bool alphaKept = source->hasAlphaChannel() && traits.alpha != osg::FileAlpha::None;
    // The file holds the convention its format defines: colour times alpha (associated) or
    // the colour itself; a format that marks either keeps the image's own.
    const bool sourcePremultiplied = source->isAlphaPremultiplied();
    const bool filePremultiplied = traits.alpha == osg::FileAlpha::Associated ||
                                   (traits.alpha == osg::FileAlpha::Either && sourcePremultiplied);
    // Formats that can say which they hold, say it.
    if (alphaKept && (format == "tiff" || format == "openexr" || format == "png")) {
        EXPECT_EQ(spec.get_int_attribute("oiio:UnassociatedAlpha", 0) == 0, filePremultiplied);
    }
    int expectedChannels = srcChannels == 1 ? (traits.keepsGray ? 1 : 3) : (alphaKept ? 4 : 3);
    ASSERT_EQ(spec.nchannels, expectedChannels);

    std::vector<float> pixels(size_t(kWidth) * kHeight * spec.nchannels);
    ASSERT_TRUE(in->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, pixels.data()));

    const bool floatSource = c.source.type == Image::OSG_FLOAT32_IMAGEDATA;
    const float tol = tolerance(format, floatSource);
    const bool unclamped = floatSource && keepsFloat(traits);
    float worst = 0.0f;
    double sum = 0.0;
    for (int fileRow = 0; fileRow < kHeight; ++fileRow) {
        const int y = kHeight - 1 - fileRow; // files are top-down, images bottom-up
        for (int x = 0; x < kWidth; ++x)
            for (int ch = 0; ch < spec.nchannels; ++ch) {
                int srcCh = srcChannels == 1 ? 1 : ch;
                // The source's values as stored in it, then in the file's convention.
                auto stored = [&](int channel) {
                    const float v = sampleValue(x, y, channel, floatSource);
                    return floatSource ? v : std::lround(std::min(v, 1.0f) * 255.0f) / 255.0f;
                };
                float expected = stored(srcCh);
                if (alphaKept && ch < 3 && sourcePremultiplied != filePremultiplied)
                    expected = filePremultiplied ? expected * stored(3) : expected / stored(3);
                if (!unclamped)
                    expected = std::min(expected, 1.0f);
                float got = pixels[(size_t(fileRow) * kWidth + x) * spec.nchannels + ch];
                float diff = std::fabs(got - expected);
                if (format == "hdr") {
                    float brightest = 0.0f;
                    for (int k = 0; k < 3; ++k)
                        brightest = std::max(
                            brightest, sampleValue(x, y, srcChannels == 1 ? 1 : k, floatSource));
                    diff /= brightest;
                }
                worst = std::max(worst, diff);
                sum += diff;
            }
    }
    if (isLossy(format))
        EXPECT_LE(sum / double(pixels.size()), tol) << format << " " << c.source.name;
    else
        EXPECT_LE(worst, tol) << format << " " << c.source.name;
}

INSTANTIATE_TEST_SUITE_P(AllFormats, FileTypeRoundTrip, testing::ValuesIn(allCases()), caseName);

TEST(FileTypeRoundTripCoverage, TheUsualFormatsAreOffered) {
    for (const char* suffix :
         {"png", "jpg", "jpeg", "tif", "tiff", "exr", "hdr", "bmp", "tga", "webp"})
        EXPECT_NE(
            osg::ImageFileHandler::the().getFileType(nullptr, (std::string("a.") + suffix).c_str()),
            nullptr)
            << suffix;
}

class FileTypeMetadata : public testing::TestWithParam<const char*> {
protected:
    katest::TempDir dir;
};

TEST_P(FileTypeMetadata, ResolutionAndCommentReachTheFile) {
    osg::ImagePtr source = makeSource(kSources[0]);
    const std::string path = dir.fileStd(QString("meta.") + GetParam());
    ASSERT_TRUE(source->write(path.c_str()));
    auto in = OIIO::ImageInput::open(path);
    ASSERT_TRUE(in);
    const OIIO::ImageSpec& spec = in->spec();
    EXPECT_EQ(spec.get_string_attribute("ImageDescription"), "round trip");
    if (std::string(GetParam()) != "exr") {
        EXPECT_NEAR(spec.get_float_attribute("XResolution"), 300.0f, 0.1f);
        EXPECT_NEAR(spec.get_float_attribute("YResolution"), 300.0f, 0.1f);
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, FileTypeMetadata, testing::Values("png", "jpg", "tif", "exr"));

TEST(FileTypeRead, ReadsBackWhatItWroteBottomUp) {
    katest::TempDir dir;
    osg::ImagePtr source = makeSource(kSources[1]);
    const std::string path = dir.fileStd("back.png");
    ASSERT_TRUE(source->write(path.c_str()));
    osg::ImagePtr back = osg::ImageFileHandler::the().read(path.c_str());
    ASSERT_TRUE(back);
    EXPECT_EQ(back->getPixelFormat(), unsigned(Image::OSG_RGBA_PF));
    ASSERT_EQ(back->getSize(), source->getSize());
    EXPECT_TRUE(std::equal(back->getData(), back->getData() + back->getSize(), source->getData()));
    EXPECT_NEAR(back->getResX(), 300.0f, 0.1f);
    EXPECT_EQ(*back->findAttachmentField("Comment"), "round trip");
}

TEST(FileTypeMTD, KeepsEverythingExactly) {
    katest::TempDir dir;
    osg::ImagePtr source = Image::create();
    source->set(Image::OSG_LA_PF, 3, 2, 1, 2, 2, 0.25, nullptr, Image::OSG_FLOAT16_IMAGEDATA);
    for (size_t i = 0; i < source->getSize(); ++i)
        source->getData()[i] = uint8_t(i * 7);
    source->setAttachmentField("binary", std::string("a\0b", 3));
    const std::string path = dir.fileStd("raw.mtd");
    ASSERT_TRUE(source->write(path.c_str()));
    osg::ImagePtr back = osg::ImageFileHandler::the().read(path.c_str());
    ASSERT_TRUE(back);
    EXPECT_EQ(back->getPixelFormat(), source->getPixelFormat());
    EXPECT_EQ(back->getDataType(), source->getDataType());
    EXPECT_EQ(back->getMipMapCount(), 2);
    EXPECT_EQ(back->getFrameCount(), 2);
    EXPECT_EQ(back->getFrameDelay(), 0.25);
    ASSERT_EQ(back->getSize(), source->getSize());
    EXPECT_TRUE(std::equal(back->getData(), back->getData() + back->getSize(), source->getData()));
    EXPECT_EQ(*back->findAttachmentField("binary"), std::string("a\0b", 3));
}

TEST(FileTypeMTD, RefusesTruncatedData) {
    osg::ImagePtr source = makeSource(kSources[0]);
    std::vector<uint8_t> bytes;
    ASSERT_TRUE(osg::ImageFileHandler::the().store(source, "image/x-mtd", bytes));
    katest::LogCapture log;
    osg::ImagePtr back;
    EXPECT_FALSE(osg::ImageFileHandler::the().restore(back, "mtd", bytes.data(), bytes.size() - 1));
    EXPECT_FALSE(log.entries().empty());
}
