// kaAviWriter's own lines for each failure of the AVIFile calls, and the codec dialog that
// AVISaveOptions shows.
#include "kaAviWriter.h"

#include "kaController.h"
#include "kaTestSupport.h"
#include "kaWinVideoCodecs.h"

#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QFileInfo>
#include <QTimer>

#include <gtest/gtest.h>

#include <vector>

class AviWriter : public testing::Test {
protected:
    void TearDown() override {
        kaController::setNoGUI(false);
        kaWinVideoCodecs::setSaveOptionsAnswer(nullptr);
    }
    katest::TempDir dir;
};

TEST_F(AviWriter, TheFrameFormatIsFilledAtConstruction) {
    kaAviWriter writer(dir.fileStd("f.avi"), 82, 40, 25);
    const BITMAPINFOHEADER& b = writer.getBitmapHeader();
    EXPECT_EQ(b.biSize, 40u);
    EXPECT_EQ(b.biWidth, 82);
    EXPECT_EQ(b.biHeight, 40);
    EXPECT_EQ(b.biPlanes, 1);
    EXPECT_EQ(b.biBitCount, 24);
    EXPECT_EQ(b.biCompression, BI_RGB);
    EXPECT_EQ(b.biSizeImage, 248u * 40u) << "rows of 246 bytes padded to 248";
    EXPECT_EQ(b.biXPelsPerMeter, 0);
    EXPECT_EQ(b.biClrUsed, 0u);
    EXPECT_FALSE(QFileInfo::exists(dir.file("f.avi"))) << "nothing is called yet";
}

TEST_F(AviWriter, AFileThatCantBeCreatedSaysWhy) {
    const std::string name = dir.fileStd("missing/folder/f.avi");
    kaAviWriter writer(name, 80, 40, 25);
    katest::LogCapture log;
    EXPECT_FALSE(writer.initialize(true));
    writer.close();
    EXPECT_TRUE(log.contains(kaLog::Error, "AVI Engine failed to initialize. Check filename " +
                                               name +
                                               ".A disk error occurred while opening the file."));
}

TEST_F(AviWriter, AStreamWithoutAFrameRateIsRefused) {
    kaAviWriter writer(dir.fileStd("f.avi"), 80, 40, 0);
    katest::LogCapture log;
    EXPECT_FALSE(writer.initialize(true));
    writer.close();
    EXPECT_TRUE(log.contains(kaLog::Error, "AVI Stream creation failed. Check Bitmap info."));
    EXPECT_FALSE(QFileInfo::exists(dir.file("f.avi")));
}

TEST_F(AviWriter, TheFrameCounterAdvancesAlsoWhenAWriteFails) {
    kaAviWriter writer(dir.fileStd("f.avi"), 80, 40, 25);
    ASSERT_TRUE(writer.initialize(true));
    std::vector<uint8_t> frame(writer.getBitmapHeader().biSizeImage, 128);
    EXPECT_TRUE(writer.addFrame(frame.data()));
    EXPECT_EQ(writer.getFrameCounter(), 1);
    EXPECT_TRUE(writer.close());
    EXPECT_TRUE(QFileInfo::exists(dir.file("f.avi")));
    katest::LogCapture log;
    EXPECT_FALSE(writer.addFrame(frame.data())) << "the stream is gone";
    EXPECT_EQ(writer.getFrameCounter(), 2);
    EXPECT_TRUE(log.contains(kaLog::Error, "Unable to write data to stream."));
}

TEST_F(AviWriter, TheCodecDialogListsWhatTheContainerTakes) {
    QStringList offered;
    QTimer::singleShot(0, [&] {
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            auto* dialog = qobject_cast<QDialog*>(widget);
            if (!dialog || dialog->objectName() != "VideoCompressionDialog")
                continue;
            auto* codecs = dialog->findChild<QComboBox*>("codec");
            for (int i = 0; i < codecs->count(); ++i)
                offered << codecs->itemText(i);
            codecs->setCurrentIndex(codecs->findText("Motion JPEG"));
            dialog->accept();
        }
    });
    kaAviWriter writer(dir.fileStd("dialog.mp4"), 80, 40, 25);
    ASSERT_TRUE(writer.initialize(false));
    std::vector<uint8_t> frame(writer.getBitmapHeader().biSizeImage, 90);
    EXPECT_TRUE(writer.addFrame(frame.data()));
    writer.close();
    EXPECT_TRUE(offered.contains("Motion JPEG"));
    EXPECT_TRUE(offered.contains("H.264 (x264)"));
    EXPECT_FALSE(offered.contains("FFV1, lossless")) << "MP4 doesn't take it";

    QTimer::singleShot(0, [] {
        for (QWidget* widget : QApplication::topLevelWidgets())
            if (widget->objectName() == "VideoCompressionDialog")
                static_cast<QDialog*>(widget)->reject();
    });
    katest::LogCapture log;
    kaAviWriter cancelled(dir.fileStd("cancelled.avi"), 80, 40, 25);
    EXPECT_FALSE(cancelled.initialize(false));
    cancelled.close();
    EXPECT_TRUE(log.texts(kaLog::Error).empty()) << "a cancelled dialog says nothing";
    EXPECT_FALSE(QFileInfo::exists(dir.file("cancelled.avi")));
}

TEST_F(AviWriter, WithoutAGuiTheDefaultIsTakenAndLogged) {
    kaController::setNoGUI(true);
    AVICOMPRESSOPTIONS options = kaWinVideoCodecs::defaultCompression("mp4");
    katest::LogCapture log;
    EXPECT_TRUE(kaWinVideoCodecs::defaultSaveOptionsAnswer()("mp4", options));
    EXPECT_TRUE(log.contains(kaLog::Info,
                             "Video compression for .mp4: H.264 (x264) (no dialog without a GUI)"));
}

// Each failure of an AVIFile call and the line the writer logs for it.
struct CallFailure {
    const char* call;
    HRESULT code;
    std::string line; // "NAME" stands for the file name
};

class AviWriterCallFailure : public AviWriter, public testing::WithParamInterface<CallFailure> {};

TEST_P(AviWriterCallFailure, LogsItsLine) {
    const CallFailure& failure = GetParam();
    const std::string name = dir.fileStd("f.avi");
    std::string line = failure.line;
    const size_t at = line.find("NAME");
    if (at != std::string::npos)
        line.replace(at, 4, name);
    kaAviWriter writer(name, 80, 40, 25);
    kaWinVideoCodecs::failNextCall(failure.call, failure.code);
    katest::LogCapture log;
    bool ok = writer.initialize(true);
    if (ok) {
        std::vector<uint8_t> frame(writer.getBitmapHeader().biSizeImage, 0);
        ok = writer.addFrame(frame.data());
    }
    writer.close();
    EXPECT_FALSE(ok);
    ASSERT_FALSE(log.texts(kaLog::Error).empty());
    EXPECT_EQ(log.texts(kaLog::Error).front(), line);
    EXPECT_FALSE(QFileInfo::exists(dir.file("f.avi")) &&
                 std::string(failure.call) != "AVIStreamWrite");
}

INSTANTIATE_TEST_SUITE_P(
    Calls, AviWriterCallFailure,
    testing::Values(
        CallFailure{"AVIFileOpenA", AVIERR_BADFORMAT,
                    "AVI Engine failed to initialize. Check filename NAME.The file couldn't be "
                    "read, indicating a corrupt file or an unrecognized format."},
        CallFailure{"AVIFileOpenA", AVIERR_MEMORY,
                    "AVI Engine failed to initialize. Check filename NAME.The file could not be "
                    "opened because of insufficient memory."},
        CallFailure{"AVIFileOpenA", AVIERR_FILEREAD,
                    "AVI Engine failed to initialize. Check filename NAME.A disk error occurred "
                    "while reading the file."},
        CallFailure{"AVIFileOpenA", AVIERR_FILEOPEN,
                    "AVI Engine failed to initialize. Check filename NAME.A disk error occurred "
                    "while opening the file."},
        CallFailure{"AVIFileOpenA", REGDB_E_CLASSNOTREG,
                    "AVI Engine failed to initialize. Check filename NAME.According to the "
                    "registry, the type of file specified in AVIFileOpen does not have a "
                    "handler to process it"},
        CallFailure{"AVIFileOpenA", AVIERR_ERROR,
                    "AVI Engine failed to initialize. Check filename NAME."},
        CallFailure{"AVIFileCreateStreamA", AVIERR_READONLY,
                    "AVI Stream creation failed. Check Bitmap info. Read only file."},
        CallFailure{"AVIFileCreateStreamA", AVIERR_MEMORY,
                    "AVI Stream creation failed. Check Bitmap info."},
        CallFailure{"AVIMakeCompressedStream", AVIERR_UNSUPPORTED,
                    "AVI Compressed Stream creation failed.Compression is not supported for "
                    "this type of data. This error might be returned if you try to compress "
                    "data that is not audio or video."},
        CallFailure{"AVIMakeCompressedStream", AVIERR_MEMORY,
                    "AVI Compressed Stream creation failed. There is not enough memory to "
                    "complete the operation."},
        CallFailure{"AVIMakeCompressedStream", AVIERR_NOCOMPRESSOR,
                    "AVI Compressed Stream creation failed. A suitable compressor cannot be "
                    "found."},
        CallFailure{"AVIMakeCompressedStream", AVIERR_ERROR,
                    "AVI Compressed Stream creation failed."},
        CallFailure{"AVISaveOptionsFree", AVIERR_MEMORY, "Error releasing memory\n"},
        CallFailure{"AVIStreamSetFormat", AVIERR_BADFORMAT,
                    "AVI Compressed Stream format setting failed."},
        CallFailure{"AVIStreamWrite", AVIERR_FILEWRITE, "Unable to write data to stream."}),
    [](const testing::TestParamInfo<CallFailure>& info) {
        return std::string(info.param.call) + "_" + std::to_string(info.index);
    });
