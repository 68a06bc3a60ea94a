#include "kaImageWriter.h"

#include "OSGImageFileHandler.h"
#include "OSGImageFileType.h"
#include "exImageViewer.h"
#include "kaImageMetaData.h"
#include "kaImageOutStream.h"
#include "kaPreferences.h"
#include "kaTestSupport.h"

#include <gtest/gtest.h>

class kaImageWriterSettings : public testing::Test {
protected:
    katest::PreferencesGuard guard;
};

TEST_F(kaImageWriterSettings, DefaultsOfANewWriter) {
    kaImageWriter writer;
    EXPECT_FALSE(writer.wasExportCanceled());
    EXPECT_FALSE(writer.getExportTiffHDR());
    EXPECT_FALSE(writer.getExportExrHalf(false));
    EXPECT_FALSE(writer.getExportMultiLayer());
    float r = 0, g = 0, b = 0;
    writer.getAlphaColor(r, g, b);
    EXPECT_EQ(r, 1.0f);
    EXPECT_EQ(g, 1.0f);
    EXPECT_EQ(b, 1.0f);
    ASSERT_NE(writer.getMetaData(), nullptr);
    ASSERT_NE(writer.getImageViewer(), nullptr);
    EXPECT_TRUE(writer.getImageViewer()->getImage().isNull());
    EXPECT_EQ(writer.getImageViewer()->parentWidget(), nullptr);
}

TEST_F(kaImageWriterSettings, ConstructorReadsTheThreeExportFlags) {
    kaPreferences::getData().set("ImageExport tiff hdr", true);
    kaPreferences::getData().set("ImageExport exr half", true);
    kaPreferences::getData().set("ImageExport multi layer exr", true);
    kaImageWriter writer;
    EXPECT_TRUE(writer.getExportTiffHDR());
    EXPECT_TRUE(writer.getExportExrHalf(true));
    EXPECT_TRUE(writer.getExportMultiLayer());
}

TEST_F(kaImageWriterSettings, AnIntUnderTiffHdrLeavesTheFlagFalseAndSaysSo) {
    kaPreferences::getData().set("ImageExport tiff hdr", 1);
    testing::internal::CaptureStderr();
    kaImageWriter writer;
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_FALSE(writer.getExportTiffHDR());
    EXPECT_EQ(err.rfind("getFromMessage : Attribute 'ImageExport tiff hdr' has wrong type "
                        "(is:'int' != req:'bool')!\n",
                        0),
              0u)
        << err;
    EXPECT_NE(err.find("back-trace"), std::string::npos);
}

TEST_F(kaImageWriterSettings, ResetKeepsAFlagWhoseKeyIsMissingOrIllTyped) {
    kaImageWriter writer;
    writer.setExportExrHalf(true);
    writer.setExportMultiLayer(true);
    kaPreferences::getData().remove("ImageExport exr half");
    kaPreferences::getData().set("ImageExport multi layer exr", QString("yes"));
    testing::internal::CaptureStderr();
    writer.resetExportSettings();
    testing::internal::GetCapturedStderr();
    EXPECT_TRUE(writer.getExportExrHalf(false));
    EXPECT_TRUE(writer.getExportMultiLayer());
}

TEST_F(kaImageWriterSettings, ExrHalfGetterIgnoresItsArgument) {
    kaImageWriter writer;
    for (bool flag : {false, true}) {
        writer.setExportExrHalf(flag);
        EXPECT_EQ(writer.getExportExrHalf(false), flag);
        EXPECT_EQ(writer.getExportExrHalf(true), flag);
    }
}

TEST_F(kaImageWriterSettings, SettersStoreTheirValues) {
    kaImageWriter writer;
    writer.setExportTiffHDR(true);
    writer.setExportMultiLayer(true);
    writer.setAlphaColor(0.1f, 0.2f, 0.3f);
    float r, g, b;
    writer.getAlphaColor(r, g, b);
    EXPECT_EQ(r, 0.1f);
    EXPECT_EQ(g, 0.2f);
    EXPECT_EQ(b, 0.3f);
    EXPECT_TRUE(writer.getExportTiffHDR());
    EXPECT_TRUE(writer.getExportMultiLayer());
}

TEST_F(kaImageWriterSettings, PassConversionTo16BitIsRefusedExactlyForFullPrecisionPasses) {
    kaImageWriter writer;
    for (size_t pass = 0; pass < 100; ++pass) {
        bool fullPrecision = (pass >= 33 && pass <= 39) || pass == 42;
        EXPECT_EQ(writer.allowPassConversionTo16Bit(pass), !fullPrecision) << pass;
    }
    for (size_t pass : {32, 40, 41, 43, 46, 47, 1000})
        EXPECT_TRUE(writer.allowPassConversionTo16Bit(pass)) << pass;
}

TEST_F(kaImageWriterSettings, SetMetaDataFlagsResetsTheStoreEveryTime) {
    kaImageWriter writer;
    kaImageMetaData* meta = writer.getMetaData();
    const float color[3] = {1, 1, 1};
    const unsigned before = meta->getResetCount();
    for (int round = 1; round <= 3; ++round) {
        meta->setFileOutputImageSettings(100, 50, 72, 1, false, true, false, color, 0, 8);
        writer.setMetaDataFlags(8); // the same value every time
        EXPECT_FALSE(meta->hasFileOutputImageSettings()) << round;
        EXPECT_EQ(meta->getResetCount(), before + round);
    }
}

TEST_F(kaImageWriterSettings, OpenSGFormatsAreTheWritableSuffixesLessInternalOnes) {
    kaImageWriter writer;
    const auto& formats = writer.getFormatsOpenSG();
    auto writable =
        osg::ImageFileHandler::the().getSuffixList(osg::ImageFileType::OSG_WRITE_SUPPORTED);
    ASSERT_NE(std::find(writable.begin(), writable.end(), "mtd"), writable.end())
        << "the handler lists its raw format";
    EXPECT_EQ(formats.count("mtd"), 0u);
    for (const std::string& suffix : writable) {
        if (suffix != "mtd") {
            EXPECT_EQ(formats.count(suffix), 1u) << suffix;
        }
    }
    EXPECT_TRUE(std::is_sorted(formats.begin(), formats.end()));
    for (const char* s : {"png", "jpg", "tif", "exr", "hdr"})
        EXPECT_EQ(formats.count(s), 1u) << s;
}

TEST_F(kaImageWriterSettings, QtFormatsStayEmpty) {
    kaImageWriter writer;
    EXPECT_TRUE(writer.getFormatsQt().empty());
}

TEST_F(kaImageWriterSettings, CopiesShareTheOwnedObjectsAndNothingIsDeletedTwice) {
    auto* original = new kaImageWriter;
    original->setExportTiffHDR(true);
    kaImageMetaData* meta = original->getMetaData();
    exImageViewer* viewer = original->getImageViewer();
    {
        kaImageWriter copy(*original);
        EXPECT_EQ(copy.getMetaData(), meta);
        EXPECT_EQ(copy.getImageViewer(), viewer);
        EXPECT_TRUE(copy.getExportTiffHDR());
        kaImageWriter assigned;
        assigned = *original;
        EXPECT_EQ(assigned.getMetaData(), meta);
    }
    // The copies are gone; the original's objects are still alive and usable.
    original->setMetaDataFlags(1);
    viewer->set(QImage(4, 4, QImage::Format_RGB32));
    kaImageWriter survivor(*original);
    delete original;
    EXPECT_EQ(survivor.getMetaData(), meta);
    survivor.getImageViewer()->set(QImage());
}

TEST_F(kaImageWriterSettings, StreamOutputFollowsTheInstalledWriteFunction) {
    EXPECT_FALSE(kaImageWriter::isStreamOutput());
    kaImageOutStream::setImageWriteFunction([](osg::ImagePtr, std::string) { return true; });
    EXPECT_TRUE(kaImageWriter::isStreamOutput());
    kaImageOutStream::setImageWriteFunction(nullptr);
    EXPECT_FALSE(kaImageWriter::isStreamOutput());
}
