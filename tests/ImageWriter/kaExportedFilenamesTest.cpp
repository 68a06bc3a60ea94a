#include "kaImageWriter.h"

#include "kaFile.h"
#include "kaPreferences.h"
#include "kaTestSupport.h"

#include <QDir>

#include <gtest/gtest.h>

class kaExportedFilenames : public testing::Test {
protected:
    void SetUp() override { kaPreferences::getData().set("ImageExport stereo mode", 0); }
    katest::PreferencesGuard guard;
    kaImageWriter writer;
};

TEST_F(kaExportedFilenames, OneFilePerPassWithTheLowerCaseExtension) {
    EXPECT_EQ(writer.getExportedImageFilenames("/out/a.PNG", {0, 33}, false),
              (QStringList{"/out/a-beauty.png", "/out/a-depth.png"}));
}

TEST_F(kaExportedFilenames, NoPassesKeepsTheExtensionAsSpelled) {
    EXPECT_EQ(writer.getExportedImageFilenames("/out/a.PNG", {}, false), QStringList{"/out/a.PNG"});
}

TEST_F(kaExportedFilenames, PassesInTheCallersOrder) {
    EXPECT_EQ(writer.getExportedImageFilenames("/o/x.tif", {33, 0, 46}, false),
              (QStringList{"/o/x-depth.tif", "/o/x-beauty.tif", "/o/x-gpu_depth.tif"}));
}

TEST_F(kaExportedFilenames, LayeredFormatWithMultiLayerGivesOneName) {
    EXPECT_EQ(writer.getExportedImageFilenames("/o/x.EXR", {0, 33}, true), QStringList{"/o/x.EXR"});
    EXPECT_EQ(writer.getExportedImageFilenames("/o/x.exr", {0, 33}, false),
              (QStringList{"/o/x-beauty.exr", "/o/x-depth.exr"}));
    EXPECT_EQ(writer.getExportedImageFilenames("/o/x.png", {0}, true),
              QStringList{"/o/x-beauty.png"})
        << "png holds no layers, so the multi-layer wish changes nothing";
}

TEST_F(kaExportedFilenames, JpgSpellingReachesTheList) {
    EXPECT_EQ(writer.getExportedImageFilenames("/o/x.JPG", {}, false), QStringList{"/o/x.JPG"});
    EXPECT_EQ(writer.getExportedImageFilenames("/o/x.JPG", {0}, false),
              QStringList{"/o/x-beauty.jpg"});
}

TEST_F(kaExportedFilenames, MissingExtensionGetsTheDefaultFormat) {
    EXPECT_EQ(writer.getExportedImageFilenames("/o/shot", {}, false), QStringList{"/o/shot.png"});
}

TEST_F(kaExportedFilenames, NameIsExpandedFirst) {
    kaFile::setPathVariable("KA_TEST_OUT", "/renders");
    EXPECT_EQ(writer.getExportedImageFilenames("$KA_TEST_OUT\\a-00007.png", {}, false),
              QStringList{"/renders/a.png"});
    EXPECT_EQ(writer.getExportedImageFilenames("rel/a.png", {}, false),
              QStringList{QDir::cleanPath(QDir::currentPath() + "/rel/a.png")});
}

TEST_F(kaExportedFilenames, SequenceWalksFromFrameZero) {
    EXPECT_EQ(
        writer.getExportedImageFilenames("/o/a.png", {}, false, 2, 4, 2),
        (QStringList{"/o/a-00000.png", "/o/a-00001.png", "/o/a-00002.png", "/o/a-00004.png"}));
}

TEST_F(kaExportedFilenames, SequencePreRollsOneByOneThenSteps) {
    QStringList names = writer.getExportedImageFilenames("/o/a.png", {}, false, 10, 20, 5);
    QStringList expected;
    for (int f : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 15, 20})
        expected << QString("/o/a%1.png").arg(kaImageWriter::getFrameName(f));
    EXPECT_EQ(names, expected);
}

TEST_F(kaExportedFilenames, SequenceWithPassesPutsThePassBeforeTheFrame) {
    EXPECT_EQ(writer.getExportedImageFilenames("/o/a.PNG", {0, 33}, false, 1, 1, 1),
              (QStringList{"/o/a-beauty-00000.png", "/o/a-beauty-00001.png", "/o/a-depth-00000.png",
                           "/o/a-depth-00001.png"}));
}

TEST_F(kaExportedFilenames, StepZeroOrNegativeIsOne) {
    EXPECT_EQ(writer.getExportedImageFilenames("/o/a.png", {}, false, 0, 2, 0).size(), 3);
    EXPECT_EQ(writer.getExportedImageFilenames("/o/a.png", {}, false, 0, 2, -4).size(), 3);
}

TEST_F(kaExportedFilenames, StopBeforeStartStillPreRollsToTheStop) {
    EXPECT_EQ(writer.getExportedImageFilenames("/o/a.png", {}, false, 5, 2, 1),
              (QStringList{"/o/a-00000.png", "/o/a-00001.png", "/o/a-00002.png"}));
}

TEST_F(kaExportedFilenames, NegativeStartWithoutPreferenceStaysAndTheWalkStartsAtZero) {
    kaPreferences::getData().remove("MovieExport start frame");
    EXPECT_EQ(writer.getExportedImageFilenames("/o/a.png", {}, false, -3, 2, 2),
              (QStringList{"/o/a-00000.png", "/o/a-00002.png"}));
}

TEST_F(kaExportedFilenames, NegativeStartAndStopComeFromThePreferences) {
    kaPreferences::getData().set("MovieExport start frame", 1);
    kaPreferences::getData().set("MovieExport stop frame", 3);
    EXPECT_EQ(writer.getExportedImageFilenames("/o/a.png", {}, false, -1, -1, 2),
              (QStringList{"/o/a-00000.png", "/o/a-00001.png", "/o/a-00003.png"}));
}

TEST_F(kaExportedFilenames, NegativeStopWithoutPreferenceListsNothing) {
    kaPreferences::getData().remove("MovieExport stop frame");
    EXPECT_TRUE(writer.getExportedImageFilenames("/o/a.png", {}, false, 0, -1, 1).isEmpty());
}

TEST_F(kaExportedFilenames, TwoEyesDoubleTheListLeftFirst) {
    kaPreferences::getData().set("ImageExport stereo mode", 1);
    EXPECT_EQ(writer.getExportedImageFilenames("/o/a.png", {33}, false),
              (QStringList{"/o/a-left-depth.png", "/o/a-right-depth.png"}));
    EXPECT_EQ(writer.getExportedImageFilenames("/o/a.png", {33}, false, 0, 1, 1),
              (QStringList{"/o/a-left-depth-00000.png", "/o/a-left-depth-00001.png",
                           "/o/a-right-depth-00000.png", "/o/a-right-depth-00001.png"}));
}

TEST_F(kaExportedFilenames, FiveAndNineEyes) {
    kaPreferences::getData().set("ImageExport stereo mode", 2);
    QStringList five = writer.getExportedImageFilenames("/o/a.png", {}, false);
    EXPECT_EQ(five, (QStringList{"/o/a-left2.png", "/o/a-left1.png", "/o/a-middle.png",
                                 "/o/a-right1.png", "/o/a-right2.png"}));
    kaPreferences::getData().set("ImageExport stereo mode", 3);
    QStringList nine = writer.getExportedImageFilenames("/o/a.png", {0, 1}, false);
    EXPECT_EQ(nine.size(), 18);
    EXPECT_EQ(nine[8], "/o/a-middle-beauty.png");
    EXPECT_EQ(nine[17], "/o/a-right4-diffuse_ibl.png");
}

TEST_F(kaExportedFilenames, UnknownStereoModeIsOneViewWithoutSuffix) {
    kaPreferences::getData().set("ImageExport stereo mode", 7);
    EXPECT_EQ(writer.getExportedImageFilenames("/o/a.png", {}, false), QStringList{"/o/a.png"});
}

TEST_F(kaExportedFilenames, FrameNumberInTheGivenNameIsReplaced) {
    EXPECT_EQ(writer.getExportedImageFilenames("/o/render-00012.png", {}, false, 0, 1, 1),
              (QStringList{"/o/render-00000.png", "/o/render-00001.png"}));
}
