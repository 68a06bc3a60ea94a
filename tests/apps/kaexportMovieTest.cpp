// kaexport movie as users run it: a separate process, its movies read back with ffprobe.
#include "kaExportProbes.h"
#include "kaTestSupport.h"
#include "kaexportProcess.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <gtest/gtest.h>

#include <csignal>
#include <map>

using katest::KaexportResult;
using katest::runKaexport;

namespace {} // namespace

class kaexportMovie : public testing::Test {
protected:
    QStringList names() const {
        return QDir(dir.path())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
    }
    katest::TempDir dir;
    const QStringList small = {"--width", "120", "--height", "80", "--ss", "0"};
};

TEST_F(kaexportMovie, WritesEachContainerWithItsDefaultCodec) {
    const std::map<std::string, std::string> codecOf = {
        {"avi", "rawvideo"}, {"mp4", "h264"}, {"mkv", "ffv1"}, {"mov", "prores"}};
    for (const auto& [container, codec] : codecOf) {
        const QString file = dir.file(QString("m.%1").arg(QString::fromStdString(container)));
        const KaexportResult r = runKaexport(
            QStringList{"movie", file, "--start", "2", "--stop", "6", "--fps", "30"} + small);
        ASSERT_EQ(r.code, 0) << container << ": " << r.err.toStdString();
        EXPECT_TRUE(r.out.startsWith("Wrote " + file)) << r.out.toStdString();
        EXPECT_TRUE(r.err.isEmpty() || !r.err.contains("@ 0x")) << "no encoder chatter";
        auto p = katest::probeVideo(file);
        EXPECT_EQ(p["codec_name"], codec) << container;
        EXPECT_EQ(p["width"], "120");
        EXPECT_EQ(p["height"], "80");
        EXPECT_EQ(p["r_frame_rate"], "30/1") << container;
        EXPECT_EQ(p["nb_read_frames"], "5") << container << ": stop - start + 1";
        if (codec == "h264") {
            EXPECT_EQ(p["pix_fmt"], "yuv420p");
            EXPECT_EQ(p["color_space"], "bt709");
            EXPECT_EQ(p["color_range"], "tv");
        }
    }
    EXPECT_EQ(names(), (QStringList{"m.avi", "m.mkv", "m.mov", "m.mp4"}));
}

TEST_F(kaexportMovie, CodecsQualityAndKeyFramesFromTheCommandLine) {
    KaexportResult r = runKaexport(QStringList{"movie", dir.file("c.avi"), "--start", "0", "--stop",
                                               "3", "--codec", "mjpeg", "--quality", "90"} +
                                   small);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(katest::probeVideo(dir.file("c.avi"))["codec_name"], "mjpeg");
    r = runKaexport(QStringList{"movie", dir.file("k.mkv"), "--start", "0", "--stop", "3",
                                "--codec", "h264", "--keyframes", "2"} +
                    small);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    QProcess frames;
    frames.start("ffprobe", {"-v", "error", "-select_streams", "v:0", "-show_entries",
                             "frame=key_frame", "-of", "default=nw=1:nk=1", dir.file("k.mkv")});
    frames.waitForFinished(60000);
    EXPECT_EQ(QString::fromUtf8(frames.readAllStandardOutput()).simplified(), "1 0 1 0");

    r = runKaexport({"movie", dir.file("bad.mp4"), "--codec", "ffv1"});
    EXPECT_EQ(r.code, 2);
    EXPECT_TRUE(r.err.contains(".mp4 files don't take the codec 'ffv1'")) << r.err.toStdString();
    r = runKaexport({"movie", dir.file("bad.webm")});
    EXPECT_EQ(r.code, 2);
    r = runKaexport({"movie", "--codecs"});
    EXPECT_EQ(r.code, 0);
    EXPECT_TRUE(r.out.contains(".avi: raw (default)")) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains(".mp4:")) << r.out.toStdString();
}

TEST_F(kaexportMovie, ANameWithoutExtensionIsAnAviAndExistingFilesNeedForce) {
    KaexportResult r =
        runKaexport(QStringList{"movie", dir.file("plain"), "--start", "0", "--stop", "0"} + small);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(katest::probeVideo(dir.file("plain.avi"))["format_name"], "avi");
    const QByteArray before = katest::fileBytes(dir.file("plain.avi"));
    r = runKaexport(QStringList{"movie", dir.file("plain.avi"), "--start", "0", "--stop", "1"} +
                    small);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.err.contains("exists; not overwriting it (use --force)"));
    EXPECT_EQ(katest::fileBytes(dir.file("plain.avi")), before);
}

TEST_F(kaexportMovie, AFullDiskNamesTheFileAndLeavesNothing) {
    const KaexportResult r = runKaexport(
        QStringList{"movie", dir.file("full.avi"), "--start", "0", "--stop", "20"} + small, 120000,
        katest::failingDiskEnvironment(dir.path(), "write", 3, "ENOSPC"));
    EXPECT_EQ(r.code, 1) << r.err.toStdString();
    EXPECT_TRUE(
        r.err.contains("couldn't write '" + dir.file("full.avi") + "': No space left on device"))
        << r.err.toStdString();
    EXPECT_TRUE(names().isEmpty()) << names().join(' ').toStdString();
}

TEST_F(kaexportMovie, CtrlCFinishesAPlayableMovieOfTheFramesSoFar) {
    QProcess process;
    katest::startKaexport(
        process,
        QStringList{"movie", dir.file("long.avi"), "--start", "0", "--stop", "2000"} + small);
    ASSERT_TRUE(process.waitForStarted());
    QByteArray err;
    while (!err.contains("progress 1%") && process.state() == QProcess::Running) {
        process.waitForReadyRead(100);
        err += process.readAllStandardError();
    }
    ASSERT_TRUE(katest::interruptKaexport(process)) << err.toStdString();
    ASSERT_TRUE(process.waitForFinished(60000));
    err += process.readAllStandardError();
    EXPECT_EQ(process.exitCode(), 3) << err.toStdString();
    auto p = katest::probeVideo(dir.file("long.avi"));
    EXPECT_EQ(p["codec_name"], "rawvideo");
    EXPECT_GE(std::stoi(p["nb_read_frames"].empty() ? "0" : p["nb_read_frames"]), 1);
    EXPECT_EQ(names(), QStringList{"long.avi"}) << "nothing staged is left";
}
