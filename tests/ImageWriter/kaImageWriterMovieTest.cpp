// The movie export against the built-in scene, written for real through the AVIFile calls on
// FFmpeg, and read back with ffprobe and ffmpeg.
#include "kaImageWriter.h"

#include "OSGChangeList.h"
#include "kaBuiltinScene.h"
#include "kaController.h"
#include "kaExportProbes.h"
#include "kaFaultInjection.h"
#include "kaOSGWidget.h"
#include "kaPreferences.h"
#include "kaSimulationTime.h"
#include "kaTestSupport.h"
#include "kaWinVideoCodecs.h"

#include <OpenImageIO/imageio.h>

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>

#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>

namespace {

// The RGB bytes of an 8-bit image file, top row first.
std::vector<uint8_t> imageRGB(const QString& file) {
    auto in = OIIO::ImageInput::open(file.toStdString());
    if (!in)
        return {};
    std::vector<uint8_t> pixels(size_t(in->spec().image_pixels()) * 3);
    in->read_image(0, 0, 0, 3, OIIO::TypeDesc::UINT8, pixels.data());
    return pixels;
}

double psnr(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
    if (a.size() != b.size() || a.empty())
        return 0.0;
    double sum = 0.0;
    for (size_t i = 0; i < a.size(); ++i)
        sum += (double(a[i]) - double(b[i])) * (double(a[i]) - double(b[i]));
    const double mse = sum / double(a.size());
    return mse == 0.0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 / mse);
}

} // namespace

class MovieExport : public testing::Test {
protected:
    void SetUp() override {
        kaOSGWidget::setMainView(&view);
        view.setSize(160, 120);
        kaController::setNoGUI(true);
        kaController::setBatchOverwrite(true);
        kaSimulationTime::setTime(0.0);
        kaMessage& prefs = kaPreferences::getData();
        prefs.set("MovieExport ssfactor", 0);
        prefs.set("MovieExport fps", 25);
    }
    void TearDown() override {
        kaOSGWidget::setMainView(nullptr);
        kaController::setNoGUI(false);
        kaController::setBatchOverwrite(false);
        kaWinVideoCodecs::setSaveOptionsAnswer(nullptr);
        kaWinVideoCodecs::clearDefaultCompression();
        kaImageRenderWidget::resetAbortAndCancelFlag();
        osg::ChangeList::getCurrent()->clear();
        kaSimulationTime::setTime(0.0);
    }
    // An 80 x 40 movie of frames 'start'..'stop' without the codec dialog.
    void exportMovie(const QString& name, int start, int stop) {
        writer.exportAVI(dir.file(name), 80, 40, 25, start, stop, 0, 0, QString(), true);
    }
    std::vector<std::string> files() const { return katest::folderEntries(dir.path()); }
    // Each export starts from the simulation's time: back to the start for exports that must
    // show the same frames.
    void restartClock() {
        kaSimulationTime::setTime(0.0);
        kaController::updateBehavior(true);
    }

    katest::PreferencesGuard guard;
    katest::TempDir dir;
    kaOSGWidget view;
    kaBuiltinScene scene{view};
    kaImageWriter writer;
};

TEST_F(MovieExport, UncompressedAviHoldsTheRenderedFramesAsWindowsStoresThem) {
    exportMovie("plain.avi", 0, 2);
    auto p = katest::probeVideo(dir.file("plain.avi"));
    EXPECT_EQ(p["format_name"], "avi");
    EXPECT_EQ(p["codec_name"], "rawvideo");
    EXPECT_EQ(p["pix_fmt"], "bgr24");
    EXPECT_EQ(p["width"], "80");
    EXPECT_EQ(p["height"], "40");
    EXPECT_EQ(p["r_frame_rate"], "25/1");
    EXPECT_EQ(p["nb_read_frames"], "3");

    // The same frames written as images by the sequence export, from the same start.
    restartClock();
    writer.setNoShowImage(true);
    writer.exportImages(dir.file("still.png"), 80, 40, 25, 0, 2, 0, 0, false, 0, QString(), 1,
                        false);
    const auto frames = katest::decodedVideoFrames(dir.file("plain.avi"), 80, 40);
    ASSERT_EQ(frames.size(), 3u);
    for (int f = 0; f < 3; ++f)
        EXPECT_EQ(frames[size_t(f)], imageRGB(dir.file(QString("still-0000%1.png").arg(f))))
            << "frame " << f;

    // In the file: BI_RGB, a positive height, and the bottom row first in blue, green, red
    // (in a "00dc" chunk: FFmpeg's name for every video chunk, where Windows says "00db").
    const QByteArray bytes = katest::fileBytes(dir.file("plain.avi"));
    const int chunk = bytes.indexOf("00dc", bytes.indexOf("movi"));
    ASSERT_GT(chunk, 0);
    EXPECT_EQ(*reinterpret_cast<const uint32_t*>(bytes.constData() + chunk + 4), 80u * 40u * 3u);
    const uint8_t* data = reinterpret_cast<const uint8_t*>(bytes.constData() + chunk + 8);
    const std::vector<uint8_t>& first = frames[0];
    const size_t bottom = size_t(39) * 80 * 3;
    for (int x = 0; x < 80; ++x) {
        ASSERT_EQ(data[x * 3 + 0], first[bottom + size_t(x) * 3 + 2]) << x;
        ASSERT_EQ(data[x * 3 + 1], first[bottom + size_t(x) * 3 + 1]) << x;
        ASSERT_EQ(data[x * 3 + 2], first[bottom + size_t(x) * 3 + 0]) << x;
    }
    const int strf = bytes.indexOf("strf");
    ASSERT_GT(strf, 0);
    const int32_t* header = reinterpret_cast<const int32_t*>(bytes.constData() + strf + 8);
    EXPECT_EQ(header[1], 80);
    EXPECT_EQ(header[2], 40) << "positive: bottom-up";
    EXPECT_EQ(header[4], 0) << "BI_RGB";
}

TEST_F(MovieExport, FramesBeforeTheStartArePreRolled) {
    std::vector<double> times;
    const int listener =
        kaController::getSimulationTimer()->addListener([&](double t) { times.push_back(t); });
    katest::TotalProgressRecorder progress;
    exportMovie("late.avi", 5, 9);
    kaController::getSimulationTimer()->removeListener(listener);
    EXPECT_EQ(katest::probeVideo(dir.file("late.avi"))["nb_read_frames"], "5");
    ASSERT_EQ(times.size(), 10u);
    EXPECT_NEAR(times.back(), 9 * 0.04, 1e-6) << "last set at the last frame";
    EXPECT_EQ(times[1] - times[0], double(1.0f / 25.0f)) << "1/fps in single precision";
    ASSERT_FALSE(progress.values.empty());
    EXPECT_EQ(progress.values.back(), 6) << "stop - start + 2";
}

TEST_F(MovieExport, SizesAreCutToMultiplesOfFortyBeforeThePreferences) {
    kaPreferences::getData().set("ImageExport width", 100);
    kaPreferences::getData().set("ImageExport height", 60);
    writer.exportAVI(dir.file("cut.avi"), 130, 90, 25, 0, 0, 0, 0, QString(), true);
    EXPECT_EQ(katest::probeVideo(dir.file("cut.avi"))["width"], "120");
    EXPECT_EQ(katest::probeVideo(dir.file("cut.avi"))["height"], "80");
    writer.exportAVI(dir.file("prefs.avi"), -40, -45, 25, 0, 0, 0, 0, QString(), true);
    EXPECT_EQ(katest::probeVideo(dir.file("prefs.avi"))["width"], "100")
        << "a preference is used as it is";
    EXPECT_EQ(katest::probeVideo(dir.file("prefs.avi"))["height"], "60");

    katest::LogCapture log;
    writer.exportAVI(dir.file("zero.avi"), -1, 40, 25, 0, 0, 0, 0, QString(), true);
    EXPECT_TRUE(log.contains(kaLog::Error, "AVI Compressed Stream format setting failed."))
        << "-1 became 0 and read nothing";
    EXPECT_TRUE(log.contains(kaLog::Error, "Couldn't initialise avi writer!"));
    EXPECT_FALSE(QFileInfo::exists(dir.file("zero.avi")));
}

TEST_F(MovieExport, ANameWithoutExtensionGetsAviAndOthersPickTheirContainer) {
    exportMovie("bare", 0, 0);
    EXPECT_EQ(katest::probeVideo(dir.file("bare.avi"))["format_name"], "avi");
    exportMovie("clip.mkv", 0, 1);
    auto mkv = katest::probeVideo(dir.file("clip.mkv"));
    EXPECT_EQ(mkv["format_name"], "matroska,webm");
    EXPECT_EQ(mkv["codec_name"], "ffv1");
    EXPECT_EQ(mkv["nb_read_frames"], "2");
    exportMovie("clip.mp4", 0, 1);
    auto mp4 = katest::probeVideo(dir.file("clip.mp4"));
    EXPECT_EQ(mp4["codec_name"], "h264");
    EXPECT_EQ(mp4["pix_fmt"], "yuv420p");
    EXPECT_EQ(mp4["nb_read_frames"], "2");
    EXPECT_EQ(files(), (std::vector<std::string>{"bare.avi", "clip.mkv", "clip.mp4"}));
}

TEST_F(MovieExport, LosslessCodecsKeepEveryPixelAndLossyOnesComeClose) {
    writer.exportAVI(dir.file("raw.avi"), 240, 120, 25, 0, 1, 0, 0, QString(), true);
    const auto reference = katest::decodedVideoFrames(dir.file("raw.avi"), 240, 120);
    ASSERT_EQ(reference.size(), 2u);
    kaController::setNoGUI(false);
    for (const char* name : {"ffv1", "huffyuv", "mjpeg", "mpeg4", "h264"}) {
        const kaVideoCodec* codec = kaWinVideoCodecs::byName(name);
        if (!codec)
            continue;
        kaWinVideoCodecs::setSaveOptionsAnswer([codec](const std::string&, AVICOMPRESSOPTIONS& o) {
            o.fccHandler = codec->fourcc;
            o.dwQuality = 0; // the codec's usual default
            return true;
        });
        const QString file = QString("coded-%1.avi").arg(name);
        restartClock();
        writer.exportAVI(dir.file(file), 240, 120, 25, 0, 1, 0, 0, QString(), false);
        EXPECT_EQ(katest::probeVideo(dir.file(file))["codec_name"],
                  codec->name == "h264" ? "h264" : codec->encoder);
        const auto frames = katest::decodedVideoFrames(dir.file(file), 240, 120);
        ASSERT_EQ(frames.size(), 2u) << name;
        for (size_t f = 0; f < 2; ++f) {
            if (codec->lossless)
                EXPECT_EQ(frames[f], reference[f]) << name;
            else
                EXPECT_GT(psnr(frames[f], reference[f]), 35.0) << name;
        }
    }
}

TEST_F(MovieExport, ACancelledCodecDialogWritesNothing) {
    kaController::setNoGUI(false);
    kaWinVideoCodecs::setSaveOptionsAnswer(
        [](const std::string&, AVICOMPRESSOPTIONS&) { return false; });
    katest::LogCapture log;
    writer.exportAVI(dir.file("no.avi"), 80, 40, 25, 0, 1, 0, 0, QString(), false);
    EXPECT_EQ(log.texts(kaLog::Error), std::vector<std::string>{"Couldn't initialise avi writer!"});
    EXPECT_TRUE(files().empty());
}

TEST_F(MovieExport, WriterErrorsSayWhatWindowsSays) {
    katest::LogCapture log;
    exportMovie("clip.xyz", 0, 0);
    EXPECT_TRUE(log.contains(kaLog::Error, "AVI Engine failed to initialize. Check filename " +
                                               dir.fileStd("clip.xyz") +
                                               ".According to the registry, the type of file "
                                               "specified in AVIFileOpen does not have a handler "
                                               "to process it"));
    EXPECT_TRUE(log.contains(kaLog::Error, "Couldn't initialise avi writer!"));

    kaController::setNoGUI(false);
    kaWinVideoCodecs::setSaveOptionsAnswer([](const std::string&, AVICOMPRESSOPTIONS& o) {
        o.fccHandler = mmioFOURCC('N', 'O', 'N', 'E');
        return true;
    });
    writer.exportAVI(dir.file("none.avi"), 80, 40, 25, 0, 0, 0, 0, QString(), false);
    EXPECT_TRUE(log.contains(kaLog::Error, "AVI Compressed Stream creation failed. A suitable "
                                           "compressor cannot be found."));
    EXPECT_TRUE(files().empty());
}

TEST_F(MovieExport, AFullDiskEndsTheMovieAndLeavesNoFile) {
    katest::LogCapture log;
    {
        kaFaultGuard full(dir.path().toUtf8().constData(), "write", 2, ENOSPC);
        exportMovie("full.avi", 0, 30);
    }

    EXPECT_TRUE(log.contains(kaLog::Error, "Unable to write data to stream."));
    EXPECT_TRUE(log.contains(kaLog::Error, "Couldn't add frame to avi, aborted!"));
    EXPECT_FALSE(writer.wasExportCanceled());
    EXPECT_TRUE(QDir(dir.path())
                    .entryList(QDir::Files | QDir::Hidden | QDir::Dirs | QDir::NoDotAndDotDot)
                    .isEmpty())
        << "neither the movie nor anything staged";
}

TEST_F(MovieExport, NoRenderWindowAndTheRaytracingClusterAreRefused) {
    katest::LogCapture log;
    kaOSGWidget::setMainView(nullptr);
    exportMovie("x.avi", 0, 0);
    EXPECT_TRUE(
        log.contains(kaLog::Error, "For a movie export at least one render window is necessary!"));
    kaOSGWidget::setMainView(&view);
    kaOSGWidget::setRaytracing(true);
    writer.exportAVI(dir.file("x.avi"), 80, 40, 25, 0, 0, 0, 0, "localhost:2", true);
    kaOSGWidget::setRaytracing(false);
    EXPECT_TRUE(log.contains(kaLog::Error,
                             "Export in AVI format is not supported via movie raytracing "
                             "cluster, please enable export images in the movie preferences!"));
    EXPECT_TRUE(files().empty());
}

TEST_F(MovieExport, StereoInTheViewerIsRefusedAfterTheWriterOpened) {
    view.setStereoEnabled(true);
    view.setStereoMode(1);
    katest::LogCapture log;
    exportMovie("eyes.avi", 0, 1);
    view.setStereoEnabled(false);
    bool said = false;
    for (const std::string& text : log.texts(kaLog::Warning))
        said = said || text.find("Please disable stereo rendering!") != std::string::npos;
    EXPECT_TRUE(said);
    EXPECT_FALSE(QFileInfo::exists(dir.file("eyes.avi")))
        << "the movie stays open and unfinished: nothing under its name";
}

TEST_F(MovieExport, AnAbortKeepsAPlayableMovieOfTheFramesSoFar) {
    int sets = 0;
    const int listener = kaController::getSimulationTimer()->addListener([&](double) {
        if (++sets == 3)
            for (QWidget* widget : QApplication::topLevelWidgets())
                if (auto* dialog = qobject_cast<kaImageRenderWidget*>(widget))
                    static_cast<QDialog*>(dialog)->reject();
    });
    testing::internal::CaptureStdout();
    exportMovie("part.avi", 0, 20);
    const std::string out = testing::internal::GetCapturedStdout();
    kaController::getSimulationTimer()->removeListener(listener);
    EXPECT_TRUE(writer.wasExportCanceled());
    EXPECT_NE(out.find("aborted movie export!\n"), std::string::npos);
    auto p = katest::probeVideo(dir.file("part.avi"));
    EXPECT_EQ(p["codec_name"], "rawvideo");
    EXPECT_EQ(p["nb_read_frames"], "3")
        << "frames 0 and 1, and frame 2 whose render was aborted, repeated";
}
