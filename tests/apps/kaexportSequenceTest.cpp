// kaexport sequence as users run it: a separate process rendering the built-in scene's
// animation and simulation, its files read back with OpenImageIO.
#include "kaTestSupport.h"
#include "kaexportProcess.h"

#include <OpenImageIO/imageio.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

using katest::KaexportResult;
using katest::runKaexport;

namespace {

// The file's annotation without the lines that tell when it was made.
QString annotationWithoutClocks(const QString& file) {
    auto in = OIIO::ImageInput::open(file.toStdString());
    if (!in)
        return QString();
    QString text = QString::fromStdString(in->spec().get_string_attribute("ImageDescription"));
    text.remove(QRegularExpression("Date: [^\n]*\n"));
    text.remove(QRegularExpression("System time: [^\n]*\n"));
    return text;
}

QStringList lines(const QString& text) {
    return text.split('\n', Qt::SkipEmptyParts);
}

} // namespace

class kaexportSequence : public testing::Test {
protected:
    QStringList names() const {
        return QDir(dir.path()).entryList(QDir::Files | QDir::Hidden, QDir::Name);
    }
    katest::TempDir dir;
    const QStringList small = {"--width", "96", "--height", "64", "--ss", "0"};
};

TEST_F(kaexportSequence, WritesExactlyWhatFilesListsAndSaysWhatIsPreRolled) {
    const QStringList range = {"--start", "4", "--stop", "10", "--step", "3"};
    const KaexportResult listed = runKaexport(QStringList{"files", dir.file("a.png")} + range);
    ASSERT_EQ(listed.code, 0) << listed.err.toStdString();
    EXPECT_EQ(listed.err, "kaexport files: frames 0 to 3 are pre-rolled, not written\n");
    const KaexportResult r =
        runKaexport(QStringList{"sequence", dir.file("a.png")} + range + small);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    QStringList written;
    for (const QString& name : names())
        written << dir.file(name);
    EXPECT_EQ(written, lines(listed.out));
    EXPECT_EQ(names(), (QStringList{"a-00004.png", "a-00007.png", "a-00010.png"}));
    for (const QString& file : written)
        EXPECT_TRUE(r.out.contains("Wrote " + file)) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains("3 frames in ")) << r.out.toStdString();
}

TEST_F(kaexportSequence, ExistingFilesNeedForceOrResume) {
    QFile taken(dir.file("b-00001.png"));
    ASSERT_TRUE(taken.open(QIODevice::WriteOnly));
    taken.write("mine");
    taken.close();
    KaexportResult r = runKaexport(
        QStringList{"sequence", dir.file("b.png"), "--start", "0", "--stop", "1"} + small);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.err.contains("'" + dir.file("b-00001.png") + "' exists; not overwriting it"))
        << r.err.toStdString();
    EXPECT_EQ(katest::fileBytes(dir.file("b-00001.png")), QByteArray("mine"));
    EXPECT_EQ(names(), QStringList{"b-00001.png"}) << "nothing rendered";

    r = runKaexport(
        QStringList{"sequence", dir.file("b.png"), "--start", "0", "--stop", "1", "--force"} +
        small);
    EXPECT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_FALSE(katest::imagePixels(dir.file("b-00001.png")).empty());
}

TEST_F(kaexportSequence, UsageErrorsSayWhy) {
    KaexportResult r = runKaexport({"sequence", dir.file("c.png"), "--start", "5", "--stop", "2"});
    EXPECT_EQ(r.code, 2);
    EXPECT_TRUE(r.err.contains("the stop frame 2 is before the start frame 5"))
        << r.err.toStdString();
    r = runKaexport({"sequence", dir.file("c.png"), "--animation", "Nothing"});
    EXPECT_EQ(r.code, 2);
    EXPECT_TRUE(r.err.contains("the scene has no animation 'Nothing'; it has 'BoxAnimation'"))
        << r.err.toStdString();
    r = runKaexport({"sequence", dir.file("c.png"), "--fps", "0"});
    EXPECT_EQ(r.code, 2);
    r = runKaexport({"sequence", dir.file("c.png"), "--resume", "--force"});
    EXPECT_EQ(r.code, 2);
    EXPECT_TRUE(names().isEmpty());
}

TEST_F(kaexportSequence, AResumedSequenceEqualsOneThatWasNeverInterrupted) {
    // A step of 3 frames at 25 fps is 0.12 s a frame: more than the simulation steps in one
    // update, so it depends on the exact times of every update before a frame.
    const QStringList range = {"--start", "2", "--stop", "14", "--step", "3"};
    QDir(dir.path()).mkdir("whole");
    QDir(dir.path()).mkdir("resumed");
    const QString whole = dir.file("whole/f.png"), resumed = dir.file("resumed/f.png");
    KaexportResult r = runKaexport(QStringList{"sequence", whole} + range + small);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    r = runKaexport(QStringList{"sequence", resumed} + range + small);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();

    // As an interrupted run leaves it: frame 8 cut short by an older tool, 11 and 14 missing.
    const QString cut = dir.file("resumed/f-00008.png");
    QByteArray bytes = katest::fileBytes(cut);
    bytes.truncate(bytes.size() / 2);
    QFile file(cut);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
    file.close();
    QFile::remove(dir.file("resumed/f-00011.png"));
    QFile::remove(dir.file("resumed/f-00014.png"));

    r = runKaexport(QStringList{"sequence", resumed, "--resume"} + range + small);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.startsWith("Resuming at frame 8: the 2 frames before it are complete\n"))
        << r.out.toStdString();
    EXPECT_FALSE(r.out.contains("f-00005.png")) << "complete frames are kept";

    bool moved = false;
    std::vector<float> previous;
    for (const char* frame : {"00002", "00005", "00008", "00011", "00014"}) {
        const QString name = QString("f-%1.png").arg(frame);
        const std::vector<float> a = katest::imagePixels(dir.file("whole/" + name));
        ASSERT_FALSE(a.empty()) << frame;
        EXPECT_EQ(a, katest::imagePixels(dir.file("resumed/" + name))) << frame;
        EXPECT_EQ(annotationWithoutClocks(dir.file("whole/" + name)),
                  annotationWithoutClocks(dir.file("resumed/" + name)))
            << frame;
        moved = moved || (!previous.empty() && previous != a);
        previous = a;
    }
    EXPECT_TRUE(moved) << "the frames show motion";
    EXPECT_TRUE(annotationWithoutClocks(dir.file("whole/f-00011.png"))
                    .contains("Simulation time: 0.6\nFrame: 11\n"))
        << "frame 11 is pass 5 of the walk (frames 0, 1, 2, 5, 8, 11), 3 / 25 s each";

    r = runKaexport(QStringList{"sequence", resumed, "--resume"} + range + small);
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.out, "All 5 frames are complete; nothing to do\n");
}

TEST_F(kaexportSequence, ASnapshotOfAFrameEqualsThatFrameOfTheSequence) {
    KaexportResult r = runKaexport(
        QStringList{"sequence", dir.file("s.png"), "--start", "30", "--stop", "30"} + small);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    r = runKaexport(QStringList{"snapshot", dir.file("one.png"), "--frame", "30"} + small);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    r = runKaexport(QStringList{"snapshot", dir.file("zero.png")} + small);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const std::vector<float> frame = katest::imagePixels(dir.file("s-00030.png"));
    ASSERT_FALSE(frame.empty());
    EXPECT_EQ(frame, katest::imagePixels(dir.file("one.png")));
    EXPECT_NE(frame, katest::imagePixels(dir.file("zero.png")));
}

TEST_F(kaexportSequence, TheAnimationOptionDrivesTheFrames) {
    KaexportResult r = runKaexport(QStringList{"sequence", dir.file("m.png"), "--start", "1",
                                               "--stop", "1", "--animation", "BoxAnimation"} +
                                   small);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(annotationWithoutClocks(dir.file("m-00001.png"))
                    .endsWith("Frame: 1\nAnimation object: BoxAnimation\n"));
}

TEST_F(kaexportSequence, CtrlCKeepsTheFinishedFramesAndResumeCompletesThem) {
    QProcess process;
    katest::startKaexport(
        process,
        QStringList{"sequence", dir.file("long.png"), "--start", "0", "--stop", "400"} + small);
    ASSERT_TRUE(process.waitForStarted());
    // Interrupted once a few frames are on disk.
    while (!QFileInfo::exists(dir.file("long-00003.png")) && process.state() == QProcess::Running)
        process.waitForFinished(20);
    ASSERT_TRUE(katest::interruptKaexport(process)) << "it ended before the interrupt";
    ASSERT_TRUE(process.waitForFinished(30000));
    const QByteArray err = process.readAllStandardError();
    EXPECT_EQ(process.exitCode(), 3) << err.toStdString();
    const QStringList kept = names();
    EXPECT_GE(kept.size(), 4);
    EXPECT_LT(kept.size(), 401);
    for (const QString& name : kept) {
        EXPECT_FALSE(name.startsWith(".")) << "no temporary file is left: " << name.toStdString();
        EXPECT_FALSE(katest::imagePixels(dir.file(name)).empty())
            << name.toStdString() << " is whole";
    }

    const KaexportResult r = runKaexport(
        QStringList{"sequence", dir.file("long.png"), "--start", "0", "--stop", "12", "--resume"} +
        small);
    EXPECT_EQ(r.code, 0) << r.err.toStdString();
}

TEST_F(kaexportSequence, AnImportedSceneMovesWithItsOwnAnimation) {
    QFile scene(dir.file("moving.gltf"));
    ASSERT_TRUE(scene.open(QIODevice::WriteOnly));
    scene.write(katest::animatedGltf());
    scene.close();
    QDir(dir.path()).mkdir("out");
    KaexportResult r = runKaexport(QStringList{"--scene", dir.file("moving.gltf"), "sequence",
                                               dir.file("out/m.png"), "--start", "0", "--stop",
                                               "30", "--step", "15", "--animation", "Move"} +
                                   small);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const std::vector<float> first = katest::imagePixels(dir.file("out/m-00000.png")),
                             middle = katest::imagePixels(dir.file("out/m-00015.png")),
                             last = katest::imagePixels(dir.file("out/m-00030.png"));
    ASSERT_FALSE(first.empty());
    EXPECT_NE(first, middle);
    EXPECT_NE(middle, last);
    // At 30 frames a second, frame 30 is the end of the one-second animation: the same as a
    // snapshot of frame 60 at 60 frames a second.
    r = runKaexport(QStringList{"--scene", dir.file("moving.gltf"), "--set", "MovieExport fps=60",
                                "snapshot", dir.file("out/end.png"), "--frame", "60"} +
                    small);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    r = runKaexport(QStringList{"--scene", dir.file("moving.gltf"), "sequence",
                                dir.file("out/s.png"), "--fps", "30", "--start", "30", "--stop",
                                "30"} +
                    small);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(katest::imagePixels(dir.file("out/end.png")),
              katest::imagePixels(dir.file("out/s-00030.png")));
}

TEST_F(kaexportSequence, TheProgressOfAStereoSequenceCountsEveryEye) {
    const KaexportResult r = runKaexport(QStringList{"sequence", dir.file("eyes.png"), "--stereo",
                                                     "1", "--start", "0", "--stop", "3"} +
                                         small);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    std::vector<int> percents;
    const QRegularExpression line("^progress (\\d+)%$");
    for (const QString& text : r.err.split('\n')) {
        const auto match = line.match(text);
        if (match.hasMatch())
            percents.push_back(match.captured(1).toInt());
    }
    // Four frames of two eyes are eight images (and the end): one step of 1/9 each. Counting
    // frames instead would reach 100 % when half of them are written.
    EXPECT_EQ(percents, (std::vector<int>{0, 11, 22, 33, 44, 56, 67, 78, 89, 100}))
        << r.err.toStdString();
}
