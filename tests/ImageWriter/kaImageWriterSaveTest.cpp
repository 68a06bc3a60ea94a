#include "kaImageWriter.h"

#include "OSGExternalThread.h"
#include "exImageViewer.h"
#include "filetypes/OSGJPGImageFileType.h"
#include "kaImageOutStream.h"
#include "kaPlatform.h"
#include "kaPreferences.h"
#include "kaRenderPasses.h"
#include "kaTestSupport.h"
#include "kaThreadPool.h"

#include <OpenImageIO/imageio.h>

#include <QApplication>
#include <QDesktopWidget>
#include <QDir>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <csignal>
#include <mutex>
#include <set>
#include <sys/resource.h>
#include <vector>

using osg::Image;

namespace {

osg::ImagePtr makeImage(uint32_t format, int32_t type, int w = 16, int h = 8, float value = 0.5f) {
    osg::ImagePtr image = Image::create();
    image->set(format, w, h, 1, 1, 1, 0.0, nullptr, type);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            image->setPixel(x, y, {value, float(x) / w, float(y) / h, 1.0f});
    return image;
}

std::unique_ptr<OIIO::ImageInput> openImage(const QString& path) {
    return OIIO::ImageInput::open(path.toStdString());
}

class StreamGuard {
public:
    ~StreamGuard() {
        kaImageOutStream::setImageWriteFunction(nullptr);
        kaImageOutStream::setLayeredImageWriteFunction(nullptr);
    }
};

} // namespace

class kaImageWriterSave : public testing::Test {
protected:
    void SetUp() override {
        kaImageRenderWidget::setPixelFormat(Image::OSG_RGB_PF);
        kaImageRenderWidget::setDataType(Image::OSG_UINT8_IMAGEDATA);
    }
    katest::PreferencesGuard guard;
    katest::TempDir dir;
    StreamGuard streams;
    kaImageWriter writer;
};

TEST_F(kaImageWriterSave, RefusesNullImageNameOrTypeAndCreatesNothing) {
    katest::LogCapture log;
    osg::ImagePtr image = makeImage(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA);
    const QByteArray name = dir.file("sub/a.png").toUtf8();
    EXPECT_FALSE(writer.saveImage(image, name, "", false, false, true, 72, false, false, nullptr));
    EXPECT_FALSE(
        writer.saveImage(image, name, nullptr, false, false, true, 72, false, false, nullptr));
    EXPECT_FALSE(
        writer.saveImage(image, nullptr, "PNG", false, false, true, 72, false, false, nullptr));
    EXPECT_FALSE(writer.saveImage(osg::ImagePtr(), name, "PNG", false, false, true, 72, false,
                                  false, nullptr));
    EXPECT_FALSE(QFileInfo::exists(dir.file("sub")));
    EXPECT_TRUE(log.entries().empty());
}

TEST_F(kaImageWriterSave, WritesCommentResolutionAndCreatesTheFolder) {
    osg::ImagePtr image = makeImage(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA);
    const QString path = dir.file("deep/er/shot.png");
    ASSERT_TRUE(writer.saveImage(image, path.toUtf8(), "PNG", false, false, true, 300.0f, false,
                                 false, "final take"));
    auto in = openImage(path);
    ASSERT_TRUE(in);
    EXPECT_EQ(in->spec().get_string_attribute("ImageDescription"),
              (kaPlatform::getAppVersionName() + "\nfinal take").toStdString());
    EXPECT_NEAR(in->spec().get_float_attribute("XResolution"), 300.0f, 0.1f);
    EXPECT_EQ(*image->findAttachmentField("Comment"),
              (kaPlatform::getAppVersionName() + "\nfinal take").toStdString());
}

TEST_F(kaImageWriterSave, CommentWithoutCallerTextIsTheVersionName) {
    osg::ImagePtr image = makeImage(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA);
    ASSERT_TRUE(writer.saveImage(image, dir.file("a.png").toUtf8(), "PNG", false, false, true, 72,
                                 false, false, nullptr));
    EXPECT_EQ(openImage(dir.file("a.png"))->spec().get_string_attribute("ImageDescription"),
              kaPlatform::getAppVersionName().toStdString());
}

TEST_F(kaImageWriterSave, FloatRgbaAsHdrIsWrittenAsRgbAndGetsFreshStorageAfterwards) {
    osg::ImagePtr image = makeImage(Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA, 16, 8, 3.0f);
    ASSERT_TRUE(writer.saveImage(image, dir.file("a.hdr").toUtf8(), "HDR", false, false, true, 72,
                                 false, false, nullptr));
    auto in = openImage(dir.file("a.hdr"));
    ASSERT_TRUE(in);
    EXPECT_EQ(in->spec().nchannels, 3);
    std::vector<float> first(size_t(in->spec().width) * 3);       // a whole scanline
    in->read_scanline(7, 0, OIIO::TypeDesc::FLOAT, first.data()); // the image's row 0
    EXPECT_NEAR(first[0], 3.0f, 0.05f);
    // The image now holds zeroed storage in the render format (8-bit RGB here).
    EXPECT_EQ(image->getPixelFormat(), unsigned(Image::OSG_RGB_PF));
    EXPECT_EQ(image->getDataType(), Image::OSG_UINT8_IMAGEDATA);
    EXPECT_EQ(image->getWidth(), 16);
    EXPECT_EQ(image->getSize(), 16u * 8 * 3);
    EXPECT_EQ(image->getData()[0], 0);
}

TEST_F(kaImageWriterSave, HalfRgbaAsHdrIsReformatted) {
    osg::ImagePtr image = makeImage(Image::OSG_RGBA_PF, Image::OSG_FLOAT16_IMAGEDATA);
    ASSERT_TRUE(writer.saveImage(image, dir.file("h.hdr").toUtf8(), "HDR", false, false, true, 72,
                                 false, false, nullptr));
    EXPECT_EQ(openImage(dir.file("h.hdr"))->spec().nchannels, 3);
}

TEST_F(kaImageWriterSave, ExrHalfFlagWritesHalfUnlessKeepFloat) {
    struct Case {
        bool flag, keepFloat;
        OIIO::TypeDesc expected;
        bool converted;
    };
    for (const Case& c : {Case{true, false, OIIO::TypeDesc::HALF, true},
                          Case{true, true, OIIO::TypeDesc::FLOAT, false},
                          Case{false, false, OIIO::TypeDesc::FLOAT, false}}) {
        writer.setExportExrHalf(c.flag);
        osg::ImagePtr image = makeImage(Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA);
        const QString path = dir.file(QString("x%1%2.exr").arg(c.flag).arg(c.keepFloat));
        ASSERT_TRUE(writer.saveImage(image, path.toUtf8(), "EXR", false, c.keepFloat, true, 72,
                                     false, false, nullptr));
        EXPECT_EQ(openImage(path)->spec().format, c.expected) << c.flag << c.keepFloat;
        EXPECT_EQ(image->getDataType(),
                  c.converted ? Image::OSG_UINT8_IMAGEDATA : Image::OSG_FLOAT32_IMAGEDATA);
    }
}

TEST_F(kaImageWriterSave, JpegQualityComesFromThePreferenceAndIsRestored) {
    osg::JPGImageFileType::the().setQuality(77);
    kaPreferences::getData().set("ImageExport quality", 10);
    std::vector<uint32_t> seen;
    kaImageOutStream::setImageWriteFunction([&](osg::ImagePtr, std::string) {
        seen.push_back(osg::JPGImageFileType::the().getQuality());
        return true;
    });
    ASSERT_TRUE(writer.saveImage(makeImage(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA),
                                 dir.file("q.jpg").toUtf8(), "JPG", false, false, true, 72, false,
                                 false, nullptr));
    EXPECT_EQ(seen, std::vector<uint32_t>{10});
    EXPECT_EQ(osg::JPGImageFileType::the().getQuality(), 77u);

    kaPreferences::getData().remove("ImageExport quality");
    seen.clear();
    writer.saveImage(makeImage(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA),
                     dir.file("q.jpg").toUtf8(), "JPG", false, false, true, 72, false, false,
                     nullptr);
    EXPECT_EQ(seen, std::vector<uint32_t>{77}) << "without the preference the writer's own stands";
}

TEST_F(kaImageWriterSave, WriterThrowingAStandardExceptionIsLoggedAndLeavesTheQuality) {
    osg::JPGImageFileType::the().setQuality(80);
    kaPreferences::getData().set("ImageExport quality", 33);
    kaImageOutStream::setImageWriteFunction(
        [](osg::ImagePtr, std::string) -> bool { throw std::runtime_error("disk on fire"); });
    katest::LogCapture log;
    const QString path = dir.file("t.png");
    EXPECT_FALSE(writer.saveImage(makeImage(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA),
                                  path.toUtf8(), "PNG", false, false, true, 72, false, false,
                                  nullptr));
    EXPECT_TRUE(
        log.contains(kaLog::Error, "kaImageWriter: Error disk on fire occured while writing "
                                   "the image file '" +
                                       path.toStdString() + "'!"));
    EXPECT_EQ(osg::JPGImageFileType::the().getQuality(), 33u) << "deliberately not restored";
    osg::JPGImageFileType::the().setQuality(90);
}

TEST_F(kaImageWriterSave, WriterThrowingAnythingElseIsLogged) {
    kaImageOutStream::setImageWriteFunction([](osg::ImagePtr, std::string) -> bool { throw 7; });
    katest::LogCapture log;
    const QString path = dir.file("t.png");
    osg::ImagePtr image = makeImage(Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA);
    EXPECT_FALSE(writer.saveImage(image, path.toUtf8(), "HDR", false, false, true, 72, false, false,
                                  nullptr));
    EXPECT_TRUE(
        log.contains(kaLog::Error, "kaImageWriter: An error occured while writing the image "
                                   "file '" +
                                       path.toStdString() + "'!"));
    EXPECT_EQ(image->getPixelFormat(), unsigned(Image::OSG_RGB_PF))
        << "left converted: the early return skips the fresh storage";
    EXPECT_EQ(image->getDataType(), Image::OSG_FLOAT32_IMAGEDATA);
}

TEST_F(kaImageWriterSave, FailedWriteIsLoggedUnlessSilenced) {
    // A file stands where the folder should be made.
    QFile blocker(dir.file("blocked"));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    const QString path = dir.file("blocked/a.png");
    katest::LogCapture log;
    EXPECT_FALSE(writer.saveImage(makeImage(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA),
                                  path.toUtf8(), "PNG", false, false, true, 72, false, false,
                                  nullptr));
    EXPECT_TRUE(log.contains(kaLog::Error,
                             "kaImageWriter: Couldn't save image '" + path.toStdString() + "'!"));
    katest::LogCapture quiet;
    EXPECT_FALSE(writer.saveImage(makeImage(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA),
                                  path.toUtf8(), "PNG", false, false, true, 72, false, true,
                                  nullptr));
    EXPECT_FALSE(quiet.contains(kaLog::Error, "kaImageWriter: Couldn't save image '" +
                                                  path.toStdString() + "'!"));
}

TEST_F(kaImageWriterSave, StreamWriterGetsTheImageAndNoFolderOrFileIsMade) {
    std::vector<std::string> names;
    kaImageOutStream::setImageWriteFunction([&](osg::ImagePtr image, std::string name) {
        names.push_back(name);
        return image != nullptr;
    });
    const QString path = dir.file("streamed/out.png");
    EXPECT_TRUE(writer.saveImage(makeImage(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA),
                                 path.toUtf8(), "PNG", false, false, true, 72, false, false,
                                 nullptr));
    EXPECT_EQ(names, std::vector<std::string>{path.toStdString()});
    EXPECT_FALSE(QFileInfo::exists(dir.file("streamed")));
}

TEST_F(kaImageWriterSave, PassImagesAreWrittenInParallelAndANullPassGivesFalse) {
    std::vector<osg::ImagePtr> images = {makeImage(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA),
                                         osg::ImagePtr(),
                                         makeImage(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA)};
    images.resize(kaRenderPass::Depth + 1);
    images[kaRenderPass::Depth] = makeImage(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA);
    images[2] = nullptr;
    katest::LogCapture log;
    EXPECT_FALSE(writer.saveImages(images, dir.file("out/frame.png").toStdString(), "PNG", false,
                                   false, false, 72, false, false, nullptr));
    QStringList files = QDir(dir.file("out")).entryList(QDir::Files | QDir::Hidden);
    files.sort();
    EXPECT_EQ(files, (QStringList{"frame-beauty.png", "frame-depth.png"}));
    EXPECT_TRUE(log.texts(kaLog::Error).empty()) << "background writes log no 'Couldn't save'";
}

TEST_F(kaImageWriterSave, AllPassesPresentGivesTrue) {
    std::vector<osg::ImagePtr> images(3);
    for (auto& image : images)
        image = makeImage(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA);
    EXPECT_TRUE(writer.saveImages(images, dir.file("f.tif").toStdString(), "TIF", false, false,
                                  false, 72, false, false, nullptr));
    for (const char* name : {"f-beauty.tif", "f-diffuse_ibl.tif", "f-diffuse_light.tif"})
        EXPECT_TRUE(openImage(dir.file(name))) << name;
}

TEST_F(kaImageWriterSave, EmptyListWritesNothingAndSucceeds) {
    EXPECT_TRUE(writer.saveImages({}, dir.file("x.png").toStdString(), "PNG", false, false, false,
                                  72, false, false, nullptr));
    EXPECT_FALSE(writer.saveImages({}, dir.file("x.png").toStdString(), "", false, false, false, 72,
                                   false, false, nullptr));
    EXPECT_TRUE(
        QDir(dir.path()).entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot).isEmpty());
}

TEST_F(kaImageWriterSave, PassJobsRunOnRegisteredImagewriterThreads) {
    std::mutex mutex;
    std::map<std::string, std::string> threadOfFile;
    std::set<std::thread::id> osThreads;
    kaImageOutStream::setImageWriteFunction([&](osg::ImagePtr, std::string name) {
        osg::ExternalThreadRefPtr current = osg::ExternalThread::getCurrent();
        kaThreadPool::sleep(20);
        std::lock_guard<std::mutex> lock(mutex);
        threadOfFile[name] = current ? current->getName() : "none";
        osThreads.insert(std::this_thread::get_id());
        return true;
    });
    std::vector<osg::ImagePtr> images(6);
    for (auto& image : images)
        image = makeImage(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA);
    EXPECT_TRUE(writer.saveImages(images, dir.file("p.png").toStdString(), "PNG", false, false,
                                  false, 72, false, false, nullptr));
    ASSERT_EQ(threadOfFile.size(), 6u);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(
            threadOfFile[dir.file("p" + kaImageWriter::getPassName(i) + ".png").toStdString()],
            "imagewriter" + std::to_string(i));
    EXPECT_EQ(osThreads.count(std::this_thread::get_id()), 0u) << "not on the calling thread";
    if (std::thread::hardware_concurrency() > 1) {
        EXPECT_GT(osThreads.size(), 1u);
    }
}

TEST_F(kaImageWriterSave, MultiLayerWritesOneFileWithNamedLayers) {
    writer.setExportMultiLayer(true);
    std::vector<osg::ImagePtr> images(kaRenderPass::Depth + 1);
    images[0] = makeImage(Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA);
    images[kaRenderPass::Depth] = makeImage(Image::OSG_L_PF, Image::OSG_FLOAT32_IMAGEDATA);
    testing::internal::CaptureStdout();
    const bool written = writer.saveImages(images, dir.file("layers.exr").toStdString(), "EXR",
                                           false, false, false, 72, false, false, "layered");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "filetype image/x-exr supports LAYERs\n");
    ASSERT_TRUE(written);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"layers.exr"});
    auto in = openImage(dir.file("layers.exr"));
    ASSERT_TRUE(in);
    std::set<std::string> channels(in->spec().channelnames.begin(), in->spec().channelnames.end());
    EXPECT_EQ(channels,
              (std::set<std::string>{"beauty.R", "beauty.G", "beauty.B", "beauty.A", "depth.Y"}));
    EXPECT_NE(in->spec().get_string_attribute("ImageDescription").find("layered"),
              std::string::npos);
}

TEST_F(kaImageWriterSave, MultiLayerGoesThroughTheLayeredStreamWriter) {
    writer.setExportMultiLayer(true);
    const std::string* namesSeen = nullptr;
    size_t layersSeen = 0;
    kaImageOutStream::setLayeredImageWriteFunction(
        [&](osg::ImageFileType*, const osg::ImagePtr&, std::string,
            std::vector<osg::ImagePtr> layers, const std::string* names) {
            namesSeen = names;
            layersSeen = layers.size();
            return false;
        });
    katest::LogCapture log;
    testing::internal::CaptureStdout();
    std::vector<osg::ImagePtr> images(2,
                                      makeImage(Image::OSG_RGB_PF, Image::OSG_FLOAT32_IMAGEDATA));
    EXPECT_FALSE(writer.saveImages(images, dir.file("s.exr").toStdString(), "EXR", false, false,
                                   false, 72, false, false, nullptr));
    testing::internal::GetCapturedStdout();
    // Every source file has its own copy of the catalogue: compare the names.
    ASSERT_NE(namesSeen, nullptr);
    for (unsigned i = 0; i < kaRenderPassCount; ++i)
        EXPECT_EQ(namesSeen[i], kaRenderPassNames[i]) << "the pass catalogue names the layers";
    EXPECT_EQ(layersSeen, 2u);
    EXPECT_TRUE(log.contains(kaLog::Error, "kaImageWriter: Couldn't save image '" +
                                               dir.file("s.exr").toStdString() + "'!"));
}

TEST_F(kaImageWriterSave, DiskFullLosesNoOtherPassAndLeavesNothingHalfWritten) {
    // A file-size limit makes the kernel refuse writes past it, as a full disk would.
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    rlimit limit = old;
    limit.rlim_cur = 64 * 1024;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    std::vector<osg::ImagePtr> images = {
        makeImage(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 16, 16),
        makeImage(Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA, 512, 512),
        makeImage(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 16, 16)};
    // Noise that does not compress, so the big pass really passes the limit.
    auto* big = reinterpret_cast<float*>(images[1]->getData());
    for (size_t i = 0; i < images[1]->getSize() / 4; ++i)
        big[i] = float((i * 2654435761u) % 1000003) / 1000003.0f;
    katest::LogCapture log;
    const bool written = writer.saveImages(images, dir.file("full.exr").toStdString(), "EXR", false,
                                           true, false, 72, false, false, nullptr);
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_FALSE(written);
    QStringList files = QDir(dir.path()).entryList(QDir::Files | QDir::Hidden);
    files.sort();
    EXPECT_EQ(files, (QStringList{"full-beauty.exr", "full-diffuse_light.exr"}))
        << "the failed pass leaves no file, not even a temporary one";
    EXPECT_TRUE(openImage(dir.file("full-beauty.exr")));
    EXPECT_FALSE(log.texts(kaLog::Error).empty());
}

TEST_F(kaImageWriterSave, ShownImagesUseTheWritersViewerOrOneWindowEach) {
    kaPreferences::getData().set("ImageExport show image", true);
    osg::ImagePtr image = makeImage(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 40, 30);
    ASSERT_TRUE(writer.saveImage(image, dir.file("v.png").toUtf8(), "PNG", false, false, false, 72,
                                 false, false, nullptr));
    EXPECT_TRUE(writer.getImageViewer()->isVisible());
    EXPECT_EQ(writer.getImageViewer()->getImage().size(), QSize(40, 30));
    EXPECT_EQ(writer.getImageViewer()->size(), QSize(40, 30));
    writer.getImageViewer()->hide();

    auto viewers = [] {
        int n = 0;
        for (QWidget* w : QApplication::topLevelWidgets())
            if (qobject_cast<exImageViewer*>(w) && w->isVisible())
                ++n;
        return n;
    };
    kaPreferences::getData().set("ImageExport single viewer", false);
    for (int i = 0; i < 2; ++i)
        ASSERT_TRUE(writer.saveImage(image, dir.file("v.png").toUtf8(), "PNG", false, false, false,
                                     72, false, false, nullptr));
    EXPECT_EQ(viewers(), 2);
    EXPECT_FALSE(writer.getImageViewer()->isVisible());
    for (QWidget* w : QApplication::topLevelWidgets())
        if (qobject_cast<exImageViewer*>(w) && w != writer.getImageViewer())
            w->close();
}

TEST_F(kaImageWriterSave, NothingIsShownForFloatImagesOrWithNoShow) {
    kaPreferences::getData().set("ImageExport show image", true);
    ASSERT_TRUE(writer.saveImage(makeImage(Image::OSG_RGB_PF, Image::OSG_FLOAT32_IMAGEDATA),
                                 dir.file("f.exr").toUtf8(), "EXR", false, false, false, 72, false,
                                 false, nullptr));
    ASSERT_TRUE(writer.saveImage(makeImage(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA),
                                 dir.file("n.png").toUtf8(), "PNG", false, false, true, 72, false,
                                 false, nullptr));
    EXPECT_FALSE(writer.getImageViewer()->isVisible());
}

TEST_F(kaImageWriterSave, WideImagesAreShownScaledToTheDesktop) {
    kaPreferences::getData().set("ImageExport show image", true);
    const QRect desktop = QApplication::desktop()->geometry();
    const int maxW = desktop.right() - desktop.left() - 9;
    osg::ImagePtr image = makeImage(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, maxW * 2, 100);
    ASSERT_TRUE(writer.saveImage(image, dir.file("wide.png").toUtf8(), "PNG", false, false, false,
                                 72, false, false, nullptr));
    EXPECT_EQ(writer.getImageViewer()->getImage().size(), QSize(maxW, 50));
    EXPECT_EQ(writer.getImageViewer()->width(), maxW);
    writer.getImageViewer()->hide();
}

TEST(kaImageWriterDrain, SaysHowManyJobsAreLeft) {
    kaThreadPool pool(1);
    pool.run([] { kaThreadPool::sleep(250); });
    pool.run([] { kaThreadPool::sleep(250); });
    testing::internal::CaptureStderr();
    kaImageWriter::waitForBackgroundJobs(pool);
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(pool.count(), 0u);
    EXPECT_EQ(err.rfind("waiting for 2 jobs to end\n", 0), 0u) << err;
    EXPECT_NE(err.find("waiting for 1 jobs to end\n"), std::string::npos) << err;
}
