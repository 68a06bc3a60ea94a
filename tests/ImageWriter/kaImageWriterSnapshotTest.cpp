// The snapshot and fast exports against the built-in scene, rendered for real.
#include "kaImageWriter.h"
#include "kaImageWriterTestAccess.h"

#include "OSGChangeList.h"
#include "kaBuiltinScene.h"
#include "kaColor.h"
#include "kaController.h"
#include "kaImageOutStream.h"
#include "kaOSGWidget.h"
#include "kaPreferences.h"
#include "kaRenderPassCatalogue.h"
#include "kaTestSupport.h"
#include "kaWinPower.h"

#include <OpenImageIO/imageio.h>

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <gtest/gtest.h>

using osg::Image;

class SnapshotExport : public testing::Test {
protected:
    void SetUp() override {
        kaOSGWidget::setMainView(&view);
        view.setSize(320, 240);
        kaController::setNoGUI(true); // every box answers itself and lands in the log
        writer.setNoShowImage(true);
        kaPreferences::getData().set("ImageExport width", 96);
        kaPreferences::getData().set("ImageExport height", 64);
        kaPreferences::getData().set("MovieExport ssfactor", 0);
    }
    void TearDown() override {
        kaOSGWidget::setMainView(nullptr);
        kaController::setNoGUI(false);
        kaController::setBatchOverwrite(false);
        kaImageOutStream::setImageWriteFunction(nullptr);
        kaImageRenderWidget::setActiveRenderPasses({});
        osg::ChangeList::getCurrent()->clear();
    }
    std::unique_ptr<OIIO::ImageInput> open(const QString& name) {
        return OIIO::ImageInput::open(dir.fileStd(name));
    }
    bool logged(const katest::LogCapture& log, const char* text) {
        for (const auto& e : log.entries())
            if (e.text.find(text) != std::string::npos)
                return true;
        return false;
    }
    katest::PreferencesGuard guard;
    katest::TempDir dir;
    kaOSGWidget view;
    kaBuiltinScene scene{view};
    kaImageWriter writer;
    kaImageWriterTestAccess access{writer};
};

TEST_F(SnapshotExport, WritesTheFileWithSizeProfileAndTimes) {
    katest::LogCapture log;
    writer.exportImage(dir.file("shot.png"), 128, 72, 0, 0, 150.0f, false, QString(), false, false);
    auto in = open("shot.png");
    ASSERT_TRUE(in);
    EXPECT_EQ(in->spec().width, 128);
    EXPECT_EQ(in->spec().height, 72);
    EXPECT_EQ(in->spec().nchannels, 3);
    EXPECT_NEAR(in->spec().get_float_attribute("XResolution"), 150.0f, 0.1f);
    EXPECT_TRUE(in->spec().find_attribute("ICCProfile"));
    EXPECT_FALSE(writer.wasExportCanceled());
    EXPECT_TRUE(logged(log, "Snapshot render time "));
    EXPECT_TRUE(logged(log, "Snapshot export time "));
    EXPECT_GT(kaImageWriter::getLastRenderTime(), 0.0);
    EXPECT_EQ(kaImageRenderWidget::getPixelFormat(), Image::OSG_RGB_PF) << "restored";
    EXPECT_FALSE(kaController::isSnapshotRendering());
}

TEST_F(SnapshotExport, NegativeSizesTakeThePreferencesOrEightHundredBySixHundred) {
    writer.exportImage(dir.file("prefs.png"), -1, -1, -1, -1, -1.0f, false, QString(), false,
                       false);
    EXPECT_EQ(open("prefs.png")->spec().width, 96);
    kaPreferences::getData().remove("ImageExport width");
    kaPreferences::getData().remove("ImageExport height");
    writer.exportImage(dir.file("default.png"), -1, -1, 0, 0, -1.0f, false, QString(), false,
                       false);
    auto in = open("default.png");
    ASSERT_TRUE(in);
    EXPECT_EQ(in->spec().width, 800);
    EXPECT_EQ(in->spec().height, 600);
}

TEST_F(SnapshotExport, AlphaWithJpegIsRefusedEvenSpelledInCapitals) {
    kaPreferences::getData().set("MovieExport alpha", true);
    katest::LogCapture log;
    writer.exportImage(dir.file("shot.JPG"), 64, 48, 0, -1, -1.0f, false, QString(), false, false);
    EXPECT_FALSE(QFileInfo::exists(dir.file("shot.JPG")));
    EXPECT_TRUE(
        logged(log, "Snapshot: The chosen image format doesn't support an alpha channel!\n"
                    "Choose another image format, e.g. png, or disable the alpha channel export."));
    writer.exportImage(dir.file("shot.bmp"), 64, 48, 0, 1, -1.0f, false, QString(), false, false);
    EXPECT_FALSE(QFileInfo::exists(dir.file("shot.bmp")));
}

TEST_F(SnapshotExport, AlphaAndFloatFormats) {
    writer.exportImage(dir.file("a.png"), 64, 48, 0, 1, -1.0f, false, QString(), false, false);
    EXPECT_EQ(open("a.png")->spec().nchannels, 4);
    writer.exportImage(dir.file("f.exr"), 64, 48, 0, 0, -1.0f, false, QString(), false, false);
    auto exr = open("f.exr");
    ASSERT_TRUE(exr);
    EXPECT_EQ(exr->spec().format, OIIO::TypeDesc::FLOAT);
    EXPECT_EQ(kaImageRenderWidget::getDataType(), Image::OSG_UINT8_IMAGEDATA) << "restored";
}

TEST_F(SnapshotExport, CryptomattePassesForceAlpha) {
    std::vector<bool> passes(47, false);
    passes[0] = passes[kaRenderPass::CryptoObject00] = true;
    kaImageRenderWidget::setActiveRenderPasses(passes);
    writer.exportImage(dir.file("p.png"), 64, 48, 0, 0, -1.0f, true, QString(), false, false);
    auto beauty = open("p-beauty.png");
    ASSERT_TRUE(beauty);
    EXPECT_EQ(beauty->spec().nchannels, 4);
}

TEST_F(SnapshotExport, RenderTimeIsAppendedWithSixSignificantDigits) {
    writer.exportImage(dir.file("shot.png"), 64, 48, 0, 0, -1.0f, false, QString(), true, false);
    const QString expected =
        "shot__" + QString::number(kaImageWriter::getLastRenderTime(), 'g', 6) + ".png";
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{expected});
}

TEST_F(SnapshotExport, StereoPairIsNamedByEye) {
    kaPreferences::getData().set("ImageExport stereo mode", 1);
    writer.exportImage(dir.file("eye.png"), 64, 48, 0, 0, -1.0f, false, QString(), false, false);
    QStringList files = QDir(dir.path()).entryList(QDir::Files);
    files.sort();
    EXPECT_EQ(files, (QStringList{"eye-left.png", "eye-right.png"}));
}

TEST_F(SnapshotExport, ViewerStereoIsRefused) {
    view.setStereoEnabled(true);
    view.setStereoMode(1);
    katest::LogCapture log;
    writer.exportImage(dir.file("s.png"), 64, 48, 0, 0, -1.0f, false, QString(), false, false);
    EXPECT_TRUE(logged(log, "Please disable stereo rendering!"));
    EXPECT_FALSE(QFileInfo::exists(dir.file("s.png")));
    view.setStereoMode(3); // a single-viewport stereo mode is fine
    writer.exportImage(dir.file("s.png"), 64, 48, 0, 0, -1.0f, false, QString(), false, false);
    EXPECT_TRUE(QFileInfo::exists(dir.file("s.png")));
}

TEST_F(SnapshotExport, NoRenderWindowIsRefused) {
    kaOSGWidget::setMainView(nullptr);
    katest::LogCapture log;
    writer.exportImage(dir.file("x.png"), 64, 48, 0, 0, -1.0f, false, QString(), false, false);
    EXPECT_TRUE(
        log.contains(kaLog::Error, "For an image export at least one render window is necessary!"));
}

TEST_F(SnapshotExport, ClusterWithOpenGLRendersLocally) {
    katest::LogCapture log;
    writer.exportImage(dir.file("c.png"), 64, 48, 0, 0, -1.0f, false, "hostA:4", false, false);
    EXPECT_TRUE(
        log.contains(kaLog::Warning, "Snapshot: cluster rendering is not supported with OpenGL!"));
    EXPECT_TRUE(QFileInfo::exists(dir.file("c.png")));
}

TEST_F(SnapshotExport, UnwritableFolderIsReportedAndNothingRendered) {
    katest::LogCapture log;
    writer.exportImage("/proc/self/x.png", 64, 48, 0, 0, -1.0f, false, QString(), false, false);
    EXPECT_FALSE(logged(log, "Snapshot render time"));
}

TEST_F(SnapshotExport, ColourSpaceAndSleepAreHeldDuringTheExportAndRestored) {
    kaColor::setActiveColorSpace(0);
    unsigned seenSpace = 99;
    EXECUTION_STATE seenState = 0;
    kaImageOutStream::setImageWriteFunction([&](osg::ImagePtr, std::string) {
        seenSpace = kaColor::getActiveColorSpace();
        seenState = SetThreadExecutionState(ES_CONTINUOUS | ES_SYSTEM_REQUIRED);
        return true;
    });
    writer.setICCProfile(2);
    writer.exportImage(dir.file("icc.png"), 64, 48, 0, 0, -1.0f, false, QString(), false, false);
    EXPECT_EQ(seenSpace, 2u);
    EXPECT_EQ(seenState, ES_CONTINUOUS | ES_SYSTEM_REQUIRED);
    EXPECT_EQ(kaColor::getActiveColorSpace(), 0u);
    EXPECT_EQ(SetThreadExecutionState(ES_CONTINUOUS), ES_CONTINUOUS)
        << "the previous state is back";
}

TEST_F(SnapshotExport, StreamOutputIsNeverCheckedForOverwrite) {
    QFile existing(dir.file("taken.png"));
    ASSERT_TRUE(existing.open(QIODevice::WriteOnly));
    existing.close();
    int streamed = 0;
    kaImageOutStream::setImageWriteFunction([&](osg::ImagePtr, std::string) {
        ++streamed;
        return true;
    });
    writer.exportImage(dir.file("taken.png"), 64, 48, 0, 0, -1.0f, false, QString(), false, false);
    EXPECT_EQ(streamed, 1);
}

TEST_F(SnapshotExport, FastInitTakesTheMagnitudeAndMarksFastMode) {
    writer.exportImageFastInit(192, 108, -2);
    ASSERT_TRUE(access.fastWidget());
    EXPECT_TRUE(access.fastWidget()->getFastMode());
    EXPECT_EQ(access.fastWidget()->getSampleQuality(), 3) << "level 2";
    EXPECT_TRUE(view.getSnapshotMode());
    writer.exportImageFastInit(64, 48, 0);
    ASSERT_TRUE(access.fastWidget());
    EXPECT_FALSE(access.fastWidget()->getFastMode()) << "replaced by the second init";
    EXPECT_EQ(access.fastWidget()->getSampleQuality(), 0);
    writer.exportImageFastTerminate();
    EXPECT_FALSE(access.fastWidget());
    EXPECT_FALSE(view.getSnapshotMode());
}

TEST_F(SnapshotExport, FastExportNamesAndFormats) {
    writer.exportImageFastInit(64, 48, 0);
    writer.exportImageFast(dir.file("plain"));
    EXPECT_TRUE(QFileInfo::exists(dir.file("plain.png")));
    writer.exportImageFast(dir.file("photo.jpg"));
    auto jpeg = open("photo.jpg");
    ASSERT_TRUE(jpeg);
    EXPECT_STREQ(jpeg->format_name(), "jpeg");
    const std::string png = writer.exportImageFast();
    ASSERT_GT(png.size(), 8u);
    EXPECT_EQ(png.substr(1, 3), "PNG");
    writer.exportImageFastTerminate();
}

TEST_F(SnapshotExport, FastExportWithoutInit) {
    katest::LogCapture log;
    EXPECT_EQ(writer.exportImageFast(), "");
    EXPECT_TRUE(log.entries().empty()) << "the in-memory form says nothing";
    writer.exportImageFast(dir.file("x.png"));
    EXPECT_TRUE(log.contains(kaLog::Error, "Missing exportImageFastInit() call!"));
}

TEST_F(SnapshotExport, SetupViewportRecordsOnlyTheDisplayFields) {
    osg::ChangeList::getCurrent()->clear();
    const osg::UberViewportPtr viewport = view.getViewport();
    writer.setupViewport(viewport, kaDisplayHDR10, 203.0f, 2);
    EXPECT_EQ(viewport->getDisplay(), int(kaDisplayHDR10));
    EXPECT_EQ(viewport->getHdrReferenceWhite(), 203.0f);
    EXPECT_EQ(viewport->getDeepLearningSS(), 2);
    EXPECT_EQ(osg::ChangeList::getCurrent()->getChangedMask(viewport.get()),
              osg::UberViewport::DisplayFieldMask);
    writer.setupViewport(osg::UberViewportPtr(), kaDisplayStandard, 80.0f, 0);
}

TEST_F(SnapshotExport, SetupBackgroundSetsAlphaOnlyWithAlpha) {
    const osg::UberViewportPtr viewport = view.getViewport();
    writer.setupBackground(viewport, 0.1f, 0.2f, 0.3f, 0.0f, true, true);
    EXPECT_EQ(view.getBackground()->getAlpha(), 0.0f);
    EXPECT_TRUE(view.getBackground()->getBackplateMode());
    EXPECT_EQ(view.getBackground()->getAlphaColor().g, 0.2f);
    writer.setupBackground(viewport, 0.5f, 0.5f, 0.5f, 0.0f, true, false);
    EXPECT_EQ(view.getBackground()->getAlpha(), 1.0f);
    EXPECT_FALSE(view.getBackground()->getBackplateMode());
    auto solid = osg::SolidBackground::create({1, 0, 0});
    viewport->setBackground(solid);
    writer.setupBackground(viewport, 0.0f, 1.0f, 0.0f, 0.25f, false, true);
    EXPECT_EQ(solid->getAlpha(), 0.25f);
    viewport->setBackground(view.getBackground());
}
