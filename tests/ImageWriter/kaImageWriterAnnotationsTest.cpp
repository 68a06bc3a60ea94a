#include "kaImageWriter.h"
#include "kaImageWriterTestAccess.h"

#include "OSGMaterial.h"
#include "OSGNodeCores.h"
#include "kaCameraService.h"
#include "kaFileIO.h"
#include "kaImageMetaData.h"
#include "kaKernelServiceFactory.h"
#include "kaNodeUtils.h"
#include "kaPlatform.h"
#include "kaPreferences.h"
#include "kaRTSceneHandler.h"
#include "kaRenderPassCatalogue.h"
#include "kaTestSupport.h"

#include <OpenImageIO/imageio.h>

#include <QDateTime>
#include <QProcess>
#include <QRegularExpression>

#include <gtest/gtest.h>

using osg::Image;

class kaImageWriterMetaData : public testing::Test {
protected:
    katest::PreferencesGuard guard;
    katest::TempDir dir;
    kaImageWriter writer;
    kaImageWriterTestAccess access{writer};
};

TEST_F(kaImageWriterMetaData, FormatSupportComparesWithTheDot) {
    for (const char* f : {"tif", "TIFF", "EXR", "png", "jpg", "JPEG"})
        EXPECT_TRUE(access.imageFormatHasMetaDataSupport(f)) << f;
    for (const char* f : {"PSD", "psd", "psb", "bmp", "hdr", ""})
        EXPECT_FALSE(access.imageFormatHasMetaDataSupport(f)) << f;
}

TEST_F(kaImageWriterMetaData, UnsupportedFormatWarningListsTheExtensions) {
    katest::LogCapture log;
    access.logMetaDataUnsupported();
    EXPECT_EQ(log.texts(kaLog::Warning),
              std::vector<std::string>{
                  "The chosen image format doesn't support embedding meta data!\nPlease use image "
                  "format .exr, .jpeg, .jpg, .png, .tif, .tiff to embed meta data in the "
                  "rendering.\n"});
}

TEST_F(kaImageWriterMetaData, EnabledNeedsFlagsAndXMP) {
    EXPECT_FALSE(access.metaDataEnabled());
    writer.setMetaDataFlags(8);
    EXPECT_TRUE(kaImageMetaData::isXMPSupported());
    EXPECT_TRUE(access.metaDataEnabled());
}

TEST_F(kaImageWriterMetaData, NoFlagsNoFormatOrUnsupportedFormatAttachNothing) {
    osg::ImagePtr image = Image::create();
    image->set(Image::OSG_RGB_PF, 2, 2);
    const unsigned resets = writer.getMetaData()->getResetCount();
    access.storeMetaData(image, "PNG");
    writer.setMetaDataFlags(8);
    access.storeMetaData(image, nullptr);
    access.storeMetaData(image, "PSD");
    access.storeMetaData(osg::ImagePtr(), "PNG");
    EXPECT_EQ(image->findAttachmentField(kaImageMetaData::getAttachmentKey()), nullptr);
    EXPECT_EQ(writer.getMetaData()->getResetCount(), resets + 1) << "only setMetaDataFlags reset";
}

TEST_F(kaImageWriterMetaData, SwitchMaterialFlagAloneStillAttachesTheGeneralInformation) {
    writer.setMetaDataFlags(128);
    osg::ImagePtr image = Image::create();
    image->set(Image::OSG_RGB_PF, 2, 2);
    const unsigned resets = writer.getMetaData()->getResetCount();
    access.storeMetaData(image, "png");
    const std::string* packet = image->findAttachmentField(kaImageMetaData::getAttachmentKey());
    ASSERT_NE(packet, nullptr);
    EXPECT_NE(packet->find(kaPlatform::getAppVersionName().toStdString()), std::string::npos);
    EXPECT_EQ(writer.getMetaData()->getResetCount(), resets + 1) << "always ends with reset(false)";
}

namespace {
// exiv2 reads the XMP back independently of the toolkit that wrote it.
QString exiv2Xmp(const QString& path) {
    QProcess exiv2;
    exiv2.start("exiv2", {"-PX", path});
    exiv2.waitForFinished(30000);
    return QString::fromUtf8(exiv2.readAllStandardOutput());
}
} // namespace

class kaImageWriterMetaDataInFile : public kaImageWriterMetaData,
                                    public testing::WithParamInterface<const char*> {};

TEST_P(kaImageWriterMetaDataInFile, SettingsAndGeneralInformationAreReadBack) {
    kaFileIO::setFilename("/scenes/garden.kalo");
    writer.setMetaDataFlags(8 | 16);
    const float white[3] = {1.0f, 1.0f, 1.0f};
    writer.getMetaData()->setFileOutputImageSettings(640, 480, 300, 2, false, true, true, white, 2,
                                                     24);
    writer.getMetaData()->setFileOutputAnimationSettings(true, 1, 0, "", 10, 20, 5, 25);
    osg::ImagePtr image = Image::create();
    image->set(Image::OSG_RGB_PF, 16, 16);
    const QString type = QString(GetParam()).toUpper();
    const QString path = dir.file(QString("meta.") + GetParam());
    ASSERT_TRUE(writer.saveImage(image, path.toUtf8(), type.toUtf8(), false, false, true, 300,
                                 false, false, nullptr));
    kaFileIO::setFilename("");

    QString xmp;
    if (type == "EXR") {
        auto in = OIIO::ImageInput::open(path.toStdString());
        ASSERT_TRUE(in);
        xmp = QString::fromStdString(in->spec().get_string_attribute("xmp"));
        EXPECT_TRUE(xmp.contains("kaExport:ImageWidth>640<") || xmp.contains("ImageWidth=\"640\""))
            << xmp.toStdString();
        EXPECT_TRUE(xmp.contains("garden.kalo"));
        return;
    }
    xmp = exiv2Xmp(path);
    EXPECT_TRUE(
        xmp.contains(QRegularExpression(R"(Xmp\.kaExport\.ImageWidth\s+XmpText\s+\d+\s+640)")))
        << xmp.toStdString();
    EXPECT_TRUE(
        xmp.contains(QRegularExpression(R"(Xmp\.kaExport\.ColorSpace\s+XmpText\s+\d+\s+2)")));
    EXPECT_TRUE(
        xmp.contains(QRegularExpression(R"(Xmp\.kaExport\.FrameStep\s+XmpText\s+\d+\s+5)")));
    EXPECT_TRUE(xmp.contains(
        QRegularExpression(R"(Xmp\.dc\.source\s+XmpText\s+\d+\s+/scenes/garden\.kalo)")));
    EXPECT_TRUE(xmp.contains("Xmp.xmp.CreatorTool")) << xmp.toStdString();
}

INSTANTIATE_TEST_SUITE_P(Formats, kaImageWriterMetaDataInFile,
                         testing::Values("png", "jpg", "tif", "exr"));

class kaImageWriterSignature : public testing::Test {
protected:
    void SetUp() override {
        kaMessage& prefs = kaPreferences::getData();
        prefs.set("ImageExport sig add filename", false);
        prefs.set("ImageExport sig add date", false);
        prefs.set("ImageExport sig add time", false);
        prefs.set("ImageExport sig comment", QString());
    }
    QString text(const char* filename = "/out/scene.png") {
        QString t;
        std::vector<int> position, color;
        int size = 0;
        access.getSignatureSettings(filename, t, position, size, color);
        return t;
    }
    katest::PreferencesGuard guard;
    kaImageWriter writer;
    kaImageWriterTestAccess access{writer};
};

TEST_F(kaImageWriterSignature, NothingSelectedIsAnEmptyLine) {
    EXPECT_EQ(text(), "");
}

TEST_F(kaImageWriterSignature, CommentOnlyHasNoSeparator) {
    kaPreferences::getData().set("ImageExport sig comment", QString("final"));
    EXPECT_EQ(text(), "final");
}

TEST_F(kaImageWriterSignature, SeparatorsOnlyBetweenPresentParts) {
    kaMessage& prefs = kaPreferences::getData();
    prefs.set("ImageExport sig add filename", true);
    EXPECT_EQ(text(), "scene.png");
    prefs.set("ImageExport sig comment", QString("final"));
    EXPECT_EQ(text(), "scene.png - final");
    prefs.set("ImageExport sig add time", true);
    const QString before = QDateTime::currentDateTime().toString("hh:mm");
    const QString got = text();
    const QString after = QDateTime::currentDateTime().toString("hh:mm");
    EXPECT_TRUE(got == "scene.png - " + before + " - final" ||
                got == "scene.png - " + after + " - final")
        << got.toStdString();
    prefs.set("ImageExport sig add date", true);
    prefs.set("ImageExport sig comment", QString());
    EXPECT_TRUE(
        text().contains(QRegularExpression(R"(^scene\.png - \d\d\.\d\d\.\d{4} - \d\d:\d\d$)")))
        << text().toStdString();
}

TEST_F(kaImageWriterSignature, ShortListsGetSafeDefaults) {
    kaPreferences::getData().set("ImageExport sig position", std::vector<int>{5});
    kaPreferences::getData().set("ImageExport sig color", std::vector<int>{});
    QString t;
    std::vector<int> position, color;
    int size = 0;
    access.getSignatureSettings("a.png", t, position, size, color);
    EXPECT_EQ(position, (std::vector<int>{5, 10}));
    EXPECT_EQ(color, (std::vector<int>{255, 255, 255}));
    QImage image(50, 50, QImage::Format_RGB32);
    image.fill(Qt::black);
    access.addImageText(image, "x", {}, 10, {1});
}

namespace {
// The lowest row (from the top) with a pixel that is not black.
int lowestMarkedRow(const QImage& image) {
    for (int y = image.height() - 1; y >= 0; --y)
        for (int x = 0; x < image.width(); ++x)
            if ((image.pixel(x, y) & 0xFFFFFF) != 0)
                return y;
    return -1;
}
} // namespace

TEST_F(kaImageWriterSignature, PositionCountsFromTheBottomEdge) {
    QImage image(200, 1000, QImage::Format_RGB32);
    image.fill(Qt::black);
    access.addImageText(image, "HHH", {10, 20}, 30, {255, 0, 0});
    const int row = lowestMarkedRow(image);
    EXPECT_GE(row, 975);
    EXPECT_LE(row, 980) << "the baseline is at y = 980";
    bool red = false;
    for (int x = 0; x < 200; ++x)
        red = red || image.pixel(x, row) == qRgb(255, 0, 0);
    EXPECT_TRUE(red);
}

TEST_F(kaImageWriterSignature, FloatImagesKeepValuesAboveOneOutsideTheText) {
    osg::ImagePtr image = Image::create();
    image->set(Image::OSG_RGB_PF, 120, 40, 1, 1, 1, 0.0, nullptr, Image::OSG_FLOAT32_IMAGEDATA);
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 120; ++x)
            image->setPixel(x, y, {8.0f, 8.0f, 8.0f, 1.0f});
    access.addImageText(image, "HHHH", {5, 5}, 20, {0, 0, 255});
    int blue = 0, untouched = 0;
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 120; ++x) {
            osg::Color4f c = image->getPixel(x, y);
            if (c.r == 8.0f && c.b == 8.0f)
                ++untouched;
            if (c.b > 0.99f && c.r < 0.01f)
                ++blue;
        }
    EXPECT_GT(blue, 20) << "solid text pixels take the colour";
    EXPECT_GT(untouched, 120 * 40 / 2) << "the rest keeps its values above 1";
    // The text sits near the bottom: image rows are bottom-up.
    bool low = false, high = false;
    for (int x = 0; x < 120; ++x) {
        low = low || image->getPixel(x, 8).r < 8.0f;
        high = high || image->getPixel(x, 35).r < 8.0f;
    }
    EXPECT_TRUE(low);
    EXPECT_FALSE(high);
}

TEST_F(kaImageWriterSignature, SavingAn8BitImageDrawsTheSignatureIntoTheFile) {
    katest::TempDir dir;
    kaMessage& prefs = kaPreferences::getData();
    prefs.set("ImageExport sig comment", QString("HHHHHHHH"));
    prefs.set("ImageExport sig color", std::vector<int>{255, 255, 0});
    prefs.set("ImageExport sig font size", 24);
    prefs.set("ImageExport sig position", std::vector<int>{4, 4});
    osg::ImagePtr image = Image::create();
    image->set(Image::OSG_RGB_PF, 200, 60);
    const QString path = dir.file("signed.png");
    ASSERT_TRUE(writer.saveImage(image, path.toUtf8(), "PNG", true, false, true, 72, false, false,
                                 nullptr));
    auto in = OIIO::ImageInput::open(path.toStdString());
    ASSERT_TRUE(in);
    std::vector<uint8_t> pixels(200 * 60 * 3);
    in->read_image(0, 0, 0, 3, OIIO::TypeDesc::UINT8, pixels.data());
    int yellow = 0;
    for (size_t i = 0; i < pixels.size(); i += 3)
        yellow += pixels[i] == 255 && pixels[i + 1] == 255 && pixels[i + 2] == 0;
    EXPECT_GT(yellow, 50);
}

namespace {
// A small scene: a named camera, a hidden node, a switch, a switch material.
struct TestScene {
    osg::NodePtr root = osg::Node::create(osg::Group::create(), "Scene");
    osg::NodePtr camera = osg::Node::create(osg::CameraCore::create(35.0f, 0.5f, 500.0f), "Front");
    osg::NodePtr hidden = osg::Node::create(osg::Group::create(), "Roof");
    osg::NodePtr variants = osg::Node::create(osg::Switch::create(1), "Wheels");
    osg::SwitchMaterialPtr paint = osg::SwitchMaterial::create("Paint");
    std::shared_ptr<kaCameraService> cameras = std::make_shared<kaCameraService>();

    TestScene() {
        osg::NodePtr cameraPlace =
            osg::Node::create(osg::Transform::create(osg::Matrix::translation(0, 2, 10)), "");
        root->addChild(cameraPlace);
        cameraPlace->addChild(camera);
        root->addChild(hidden);
        root->addChild(variants);
        hidden->setActive(false);
        paint->addMaterial(osg::SimpleMaterial::create("red"));
        paint->addMaterial(osg::SimpleMaterial::create("blue"));
        paint->setChoice(1);
        kaNodeUtils::setSceneRoot(root);
        cameras->setActiveCamera(camera);
        kaKernelServiceFactory::registerService("kaCameraService", cameras);
        osg::StringAttributeMapPtr rt = osg::StringAttributeMap::create();
        rt->setAttribute("Samples", "256");
        rt->setAttribute("Bounces", "8");
        kaRTSceneHandler::setRaytracingSettingsAttachment(rt);
        std::vector<bool> passes(47, false);
        passes[0] = passes[kaRenderPass::Depth] = true;
        kaImageRenderWidget::setActiveRenderPasses(passes);
    }
    ~TestScene() {
        kaNodeUtils::setSceneRoot(nullptr);
        kaKernelServiceFactory::registerService("kaCameraService", nullptr);
        kaRTSceneHandler::setRaytracingSettingsAttachment(nullptr);
        kaImageRenderWidget::setActiveRenderPasses({});
    }
};
} // namespace

TEST_F(kaImageWriterMetaData, ScenePartsOfTheRecordAreReadBackWithExiv2) {
    TestScene scene;
    writer.setMetaDataFlags(1 | 2 | 4 | 32 | 64 | 128);
    osg::ImagePtr image = Image::create();
    image->set(Image::OSG_RGB_PF, 16, 16);
    const QString path = dir.file("scene.tif");
    ASSERT_TRUE(writer.saveImage(image, path.toUtf8(), "TIF", false, false, true, 72, false, false,
                                 nullptr));
    const QString xmp = exiv2Xmp(path);
    auto has = [&](const char* pattern) { return xmp.contains(QRegularExpression(pattern)); };
    EXPECT_TRUE(has(R"(Xmp\.kaExport\.CameraName\s+XmpText\s+\d+\s+Front)")) << xmp.toStdString();
    EXPECT_TRUE(has(R"(Xmp\.kaExport\.CameraPosition\s+XmpText\s+\d+\s+0 2 10)"));
    EXPECT_TRUE(has(R"(Xmp\.kaExport\.CameraDirection\s+XmpText\s+\d+\s+0 0 -1)"));
    EXPECT_TRUE(has(R"(Xmp\.kaExport\.CameraFieldOfView\s+XmpText\s+\d+\s+35)"));
    EXPECT_TRUE(has(
        R"(Xmp\.kaExport\.NodeVisibility\s+XmpSeq\s+\d+\s+Scene=1, Front=1, Roof=0, Wheels=1)"));
    EXPECT_TRUE(has(R"(Xmp\.kaExport\.SwitchChoices\s+XmpSeq\s+\d+\s+Wheels=1)"));
    EXPECT_TRUE(has(R"(Xmp\.kaExport\.RenderPasses\s+XmpSeq\s+\d+\s+beauty, depth)"));
    EXPECT_TRUE(
        has(R"(Xmp\.kaExport\.RaytracingSettings\s+XmpSeq\s+\d+\s+Bounces=8, Samples=256)"));
    EXPECT_TRUE(has(R"(Xmp\.kaExport\.SwitchMaterialChoices\s+XmpSeq\s+\d+\s+.*Paint=1)"));
}

TEST_F(kaImageWriterMetaData, CameraFlagWithoutACameraServiceStoresOnlyTheRest) {
    writer.setMetaDataFlags(1);
    osg::ImagePtr image = Image::create();
    image->set(Image::OSG_RGB_PF, 2, 2);
    access.storeMetaData(image, "png");
    const std::string* packet = image->findAttachmentField(kaImageMetaData::getAttachmentKey());
    ASSERT_NE(packet, nullptr) << "the general information still makes a record";
    EXPECT_EQ(packet->find("CameraName"), std::string::npos);
}
