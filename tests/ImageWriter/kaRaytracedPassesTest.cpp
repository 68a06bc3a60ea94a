// All 47 raytraced render passes of the built-in scene through saveImages into one layered
// EXR, read back with OpenImageIO: layer names, value types and the Cryptomatte header that
// compositing programs pick mattes by.
#include "kaImageWriter.h"

#include "OSGCameraDecorators.h"
#include "OSGChangeList.h"
#include "kaBuiltinScene.h"
#include "kaOSGWidget.h"
#include "kaRTCryptomatte.h"
#include "kaRenderPasses.h"
#include "kaSharedOffscreenRender.h"
#include "kaTestSupport.h"

#include <OpenImageIO/imageio.h>

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <cstring>
#include <set>

namespace {

constexpr int W = 64, H = 48;

std::string hexOf(float id) {
    uint32_t bits;
    std::memcpy(&bits, &id, 4);
    char text[9];
    std::snprintf(text, sizeof text, "%08x", bits);
    return text;
}

class RaytracedPasses : public testing::Test {
protected:
    void SetUp() override {
        kaOSGWidget::setMainView(&view);
        view.setSize(W, H);
        kaOSGWidget::setRaytracing(true);
    }
    void TearDown() override {
        kaOSGWidget::setRaytracing(false);
        kaOSGWidget::setMainView(nullptr);
        kaRTCryptomatte::setStaticMetadata(false, false);
        osg::ChangeList::getCurrent()->clear();
    }
    std::vector<osg::ImagePtr> renderAll() {
        std::vector<osg::ImagePtr> images;
        for (unsigned int p = 0; p < kaRenderPassCount; ++p) {
            osg::ImagePtr image = osg::Image::create();
            image->set(osg::Image::OSG_RGBA_PF, W, H, 1, 1, 1, 0.0, nullptr,
                       osg::Image::OSG_FLOAT32_IMAGEDATA);
            images.push_back(image);
        }
        kaSharedOffscreenRender renderer(&view, images, 2);
        EXPECT_TRUE(renderer.updateGL());
        return images;
    }
    katest::TempDir dir;
    kaOSGWidget view;
    kaBuiltinScene scene{view};
};

} // namespace

TEST_F(RaytracedPasses, OneLayeredExrWithEveryPassAndTheCryptomatteHeader) {
    std::vector<osg::ImagePtr> images = renderAll();
    kaImageWriter writer;
    writer.setExportMultiLayer(true);
    // Half floats where they are enough; ids, depth and positions keep full floats.
    for (unsigned int p = 0; p < kaRenderPassCount; ++p)
        if (writer.allowPassConversionTo16Bit(p)) {
            ASSERT_TRUE(images[p]->convertDataTypeTo(osg::Image::OSG_FLOAT16_IMAGEDATA));
        }
    const std::string file = dir.file("passes.exr").toStdString();
    ASSERT_TRUE(
        writer.saveImages(images, file, "EXR", false, true, true, 72.0f, false, false, nullptr));

    auto in = OIIO::ImageInput::open(file);
    ASSERT_TRUE(in);
    const OIIO::ImageSpec& spec = in->spec();
    ASSERT_EQ(spec.nchannels, int(kaRenderPassCount) * 4);
    std::map<std::string, OIIO::TypeDesc> types;
    for (int c = 0; c < spec.nchannels; ++c)
        types[spec.channelnames[size_t(c)]] = spec.channelformat(c);
    for (unsigned int p = 0; p < kaRenderPassCount; ++p) {
        const bool full = (p >= 33 && p <= 39) || p == 42;
        for (const char* channel : {".R", ".G", ".B", ".A"}) {
            const std::string name = kaRenderPassNames[p] + channel;
            ASSERT_TRUE(types.count(name)) << name;
            EXPECT_EQ(types[name], full ? OIIO::TypeDesc::FLOAT : OIIO::TypeDesc::HALF) << name;
        }
    }

    const std::string objectKey = kaRTCryptomatte::manifestKey("cryptoObject");
    EXPECT_EQ(spec.get_string_attribute("cryptomatte/" + objectKey + "/name"), "cryptoObject");
    EXPECT_EQ(spec.get_string_attribute("cryptomatte/" + objectKey + "/hash"), "MurmurHash3_32");
    EXPECT_EQ(spec.get_string_attribute("cryptomatte/" + objectKey + "/conversion"),
              "uint32_to_float32");
    const std::string materialKey = kaRTCryptomatte::manifestKey("cryptoMaterial");
    EXPECT_EQ(spec.get_string_attribute("cryptomatte/" + materialKey + "/name"), "cryptoMaterial");

    // The manifest names every object of the scene, by the id its pixels carry.
    const QJsonObject manifest =
        QJsonDocument::fromJson(QByteArray::fromStdString(spec.get_string_attribute(
                                    "cryptomatte/" + objectKey + "/manifest")))
            .object();
    std::set<std::string> names;
    for (auto it = manifest.begin(); it != manifest.end(); ++it) {
        names.insert(it.key().toStdString());
        EXPECT_EQ(it.value().toString().toStdString(),
                  hexOf(kaRTCryptomatte::idOfName(it.key().toStdString())));
    }
    EXPECT_EQ(names, (std::set<std::string>{"Ground", "Box", "Chrome Sphere", "Lamp", "Ball 1",
                                            "Ball 2", "Ball 3", "Glass Ball", "Paper Screen"}));

    // Every id in the first rank decodes to a name of the manifest.
    std::vector<float> ids(size_t(W * H));
    const int channel =
        int(std::find(spec.channelnames.begin(), spec.channelnames.end(), "cryptoObject00.R") -
            spec.channelnames.begin());
    ASSERT_TRUE(in->read_image(0, 0, channel, channel + 1, OIIO::TypeDesc::FLOAT, ids.data()));
    std::set<std::string> seen;
    for (float id : ids) {
        if (id == 0.0f)
            continue;
        bool known = false;
        for (auto it = manifest.begin(); it != manifest.end(); ++it)
            if (it.value().toString().toStdString() == hexOf(id)) {
                known = true;
                seen.insert(it.key().toStdString());
            }
        EXPECT_TRUE(known) << hexOf(id);
    }
    EXPECT_TRUE(seen.count("Box"));
    EXPECT_TRUE(seen.count("Ground"));
}
