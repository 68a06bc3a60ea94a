#include "kaImageWriter.h"

#include "kaImage.h"
#include "kaPreferences.h"
#include "kaRenderPasses.h"
#include "kaTestSupport.h"

#include <gtest/gtest.h>

class kaImageWriterNaming : public testing::Test {
protected:
    katest::PreferencesGuard guard;
    kaImageWriter writer;
};

TEST_F(kaImageWriterNaming, BaseFilename) {
    EXPECT_EQ(writer.getBaseFilename("C:/out/img-00012.png"), "C:/out/img");
    EXPECT_EQ(writer.getBaseFilename("render-00012.png"), "render");
    EXPECT_EQ(writer.getBaseFilename("render00012.png"), "render");
    EXPECT_EQ(writer.getBaseFilename("shot.png"), "shot");
    EXPECT_EQ(writer.getBaseFilename("a-1234.png"), "a-1234");
    EXPECT_EQ(writer.getBaseFilename("img12345"), "img") << "no extension, digits stripped";
    EXPECT_EQ(writer.getBaseFilename("12345.png"), "12345") << "shorter than 6 after the cut";
    EXPECT_EQ(writer.getBaseFilename("x--00001.tif"), "x-") << "only one '-' removed";
    EXPECT_EQ(writer.getBaseFilename("a.b.c"), "a.b");
    EXPECT_EQ(writer.getBaseFilename("123456.png"), "1");
    EXPECT_EQ(writer.getBaseFilename("-00001.png"), "");
    EXPECT_EQ(writer.getBaseFilename(""), "");
    EXPECT_EQ(writer.getBaseFilename("/x/y.z/shot00001"), "/x/y");
}

TEST_F(kaImageWriterNaming, FrameName) {
    EXPECT_EQ(kaImageWriter::getFrameName(0), "-00000");
    EXPECT_EQ(kaImageWriter::getFrameName(7), "-00007");
    EXPECT_EQ(kaImageWriter::getFrameName(99999), "-99999");
    EXPECT_EQ(kaImageWriter::getFrameName(100000), "-100000");
    EXPECT_EQ(kaImageWriter::getFrameName(123456), "-123456");
    EXPECT_EQ(kaImageWriter::getFrameName(-5), "-000-5");
}

TEST_F(kaImageWriterNaming, StereoNames) {
    EXPECT_EQ(kaImageWriter::getStereoName(0, 0), "");
    EXPECT_EQ(kaImageWriter::getStereoName(1, 0), "-left");
    EXPECT_EQ(kaImageWriter::getStereoName(1, 1), "-right");
    EXPECT_EQ(kaImageWriter::getStereoName(1, 2), "");
    const char* five[] = {"-left2", "-left1", "-middle", "-right1", "-right2"};
    for (int v = 0; v < 5; ++v)
        EXPECT_EQ(kaImageWriter::getStereoName(2, v), five[v]);
    const char* nine[] = {"-left4",  "-left3",  "-left2",  "-left1", "-middle",
                          "-right1", "-right2", "-right3", "-right4"};
    for (int v = 0; v < 9; ++v)
        EXPECT_EQ(kaImageWriter::getStereoName(3, v), nine[v]);
    EXPECT_EQ(kaImageWriter::getStereoName(3, 4), "-middle");
    EXPECT_EQ(kaImageWriter::getStereoName(3, 9), "");
    EXPECT_EQ(kaImageWriter::getStereoName(2, -1), "");
    EXPECT_EQ(kaImageWriter::getStereoName(7, 0), "");
    EXPECT_EQ(kaImageWriter::getStereoName(-1, 0), "");
}

TEST_F(kaImageWriterNaming, PassNamesFromTheCatalogue) {
    EXPECT_EQ(kaRenderPassCount, 47u);
    EXPECT_EQ(kaImageWriter::getPassName(0), "-beauty");
    EXPECT_EQ(kaImageWriter::getPassName(33), "-depth");
    EXPECT_EQ(kaImageWriter::getPassName(34), "-cryptoObject00");
    EXPECT_EQ(kaImageWriter::getPassName(39), "-cryptoMaterial02");
    EXPECT_EQ(kaImageWriter::getPassName(42), "-position");
    EXPECT_EQ(kaImageWriter::getPassName(46), "-gpu_depth");
    EXPECT_EQ(kaImageWriter::getPassName(47), "");
    EXPECT_EQ(kaImageWriter::getPassName(-1), "");
    for (int i = 0; i < 47; ++i)
        EXPECT_EQ(kaImageWriter::getPassName(i),
                  "-" + QString::fromStdString(kaRenderPassNames[i]));
}

TEST_F(kaImageWriterNaming, FilenameJoinsItsParts) {
    EXPECT_EQ(
        writer.getFilename("/o/a", kaImageRenderWidget::STEREO_TWO_EYES, 1, "-depth-00003", "exr"),
        "/o/a-right-depth-00003.exr");
    EXPECT_EQ(writer.getFilename("/o/a", kaImageRenderWidget::STEREO_NONE, 0, "", "PNG"),
              "/o/a.PNG");
}

TEST_F(kaImageWriterNaming, CleanupFileExtension) {
    QString name = "shot", ext;
    writer.cleanupFileExtension(name, ext);
    EXPECT_EQ(ext, QString::fromStdString(kaImage::getDefaultImageFormat()));
    EXPECT_EQ(name, "shot." + ext);

    name = "shot.JPG";
    ext = "JPG";
    writer.cleanupFileExtension(name, ext);
    EXPECT_EQ(ext, "JPEG");
    EXPECT_EQ(name, "shot.JPG") << "the name is left alone";

    for (const char* spelling : {"jpg", "Jpg", "PNG"}) {
        name = QString("shot.") + spelling;
        ext = spelling;
        writer.cleanupFileExtension(name, ext);
        EXPECT_EQ(ext, spelling);
        EXPECT_EQ(name, QString("shot.") + spelling);
    }
}

TEST_F(kaImageWriterNaming, CleanupUsesTheHostsDefaultFormat) {
    kaImage::setDefaultImageFormat("tif");
    QString name = "shot", ext;
    writer.cleanupFileExtension(name, ext);
    kaImage::setDefaultImageFormat("png");
    EXPECT_EQ(name, "shot.tif");
    EXPECT_EQ(ext, "tif");
}

TEST_F(kaImageWriterNaming, MultilayerNeedsALayeredTypeAndTheFlag) {
    EXPECT_TRUE(kaImageWriter::isMultilayerSupported("/a/b.exr"));
    EXPECT_TRUE(kaImageWriter::isMultilayerSupported("/a/b.EXR"));
    EXPECT_FALSE(kaImageWriter::isMultilayerSupported("/a/b.png"));
    EXPECT_FALSE(kaImageWriter::isMultilayerSupported("/a/b.unknown"));
    EXPECT_FALSE(kaImageWriter::isMultilayerSupported("/a/b"));
    writer.setExportMultiLayer(false);
    EXPECT_FALSE(writer.isMultilayer("/a/b.exr"));
    writer.setExportMultiLayer(true);
    EXPECT_TRUE(writer.isMultilayer("/a/b.exr"));
    EXPECT_FALSE(writer.isMultilayer("/a/b.tif"));
}

TEST_F(kaImageWriterNaming, FrameStepBelowOneBecomesOne) {
    for (auto [in, out] : {std::pair{0, 1}, {-3, 1}, {1, 1}, {5, 5}}) {
        int step = in;
        writer.validateFrameStep(step);
        EXPECT_EQ(step, out);
    }
}

TEST_F(kaImageWriterNaming, StartAndStopFromThePreferencesOnlyWhenNegative) {
    kaPreferences::getData().set("MovieExport start frame", 3);
    kaPreferences::getData().set("MovieExport stop frame", 30);
    int start = -1, stop = -1;
    writer.validateStartAndStop(start, stop);
    EXPECT_EQ(start, 3);
    EXPECT_EQ(stop, 30);
    start = 8;
    stop = 2;
    writer.validateStartAndStop(start, stop);
    EXPECT_EQ(start, 8) << "start after stop is left as it is";
    EXPECT_EQ(stop, 2);
    kaPreferences::getData().remove("MovieExport start frame");
    start = -4;
    writer.validateStartAndStop(start, stop);
    EXPECT_EQ(start, -4) << "no preference: the negative value stays";
}

TEST_F(kaImageWriterNaming, StereoModeAndViews) {
    auto check = [](int stored, int views) {
        kaPreferences::getData().set("ImageExport stereo mode", stored);
        auto [mode, count] = kaImageWriter::getStereoMode();
        EXPECT_EQ(int(mode), stored);
        EXPECT_EQ(count, views) << stored;
    };
    check(0, 1);
    check(1, 2);
    check(2, 5);
    check(3, 9);
    check(7, 1);
    check(-2, 1);
    kaPreferences::getData().remove("ImageExport stereo mode");
    auto [mode, count] = kaImageWriter::getStereoMode();
    EXPECT_EQ(int(mode), 0);
    EXPECT_EQ(count, 1);
}
