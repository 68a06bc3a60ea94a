// What users must be able to trust: a file under its final name is complete, a file they had is
// never replaced by a worse one, exit 0 means every file was written, and every failure names
// the file and the cause. kaexport runs as a separate process, on a disk that fails (the
// fault-injection library loaded into it) and, where the machine allows it, on a full one.
#include "kaTestSupport.h"
#include "kaexportProcess.h"

#include <OpenImageIO/imageio.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

namespace {

struct Result {
    int code;
    QString out, err;
};

Result finish(QProcess& process) {
    process.waitForFinished(120000);
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

Result kaexport(const QStringList& args,
                const QProcessEnvironment& env = katest::kaexportEnvironment()) {
    QProcess process;
    process.setProcessEnvironment(env);
    process.start(KAEXPORT_PATH, args);
    return finish(process);
}

const QByteArray kOld = "the good old file";

void putOld(const QString& path) {
    QFile old(path);
    ASSERT_TRUE(old.open(QIODevice::WriteOnly));
    old.write(kOld);
}

QStringList entries(const QString& folder) {
    QStringList names =
        QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    names.sort();
    return names;
}

struct Fault {
    const char* operation;
    const char* error;
    int nth;
    const char* cause;
};

struct Case {
    const char* extension;
    Fault fault;
};

// Names the case in test listings instead of dumping its bytes.
void PrintTo(const Case& c, std::ostream* out) {
    *out << c.extension << " with " << c.fault.operation << " #" << c.fault.nth << " failing ("
         << c.fault.error << ")";
}

std::vector<Case> cases() {
    const Fault faults[] = {{"write", "ENOSPC", 1, "No space left on device"},
                            {"write", "EIO", 2, "Input/output error"},
                            {"fsync", "EIO", 1, "Input/output error"},
                            {"rename", "ENOSPC", 1, "No space left on device"}};
    std::vector<Case> all;
    for (const char* extension : {"png", "exr", "jpg", "tif"})
        for (const Fault& fault : faults)
            all.push_back({extension, fault});
    return all;
}

} // namespace

class kaexportOnAFailingDisk : public testing::TestWithParam<Case> {
protected:
    katest::TempDir dir;
};

TEST_P(kaexportOnAFailingDisk, SnapshotExitsOneNamesTheFileAndKeepsTheOldOne) {
    const Case c = GetParam();
    const QString name = dir.file(QString("keep.") + c.extension);
    putOld(name);
    // With metadata, the XMP toolkit's writes are part of it.
    Result r = kaexport(
        {"snapshot", name, "--width", "640", "--height", "400", "--metadata", "8", "--force"},
        katest::failingDiskEnvironment(dir.path(), c.fault.operation, c.fault.nth, c.fault.error));
    EXPECT_EQ(r.code, 1) << r.err.toStdString();
    EXPECT_TRUE(
        r.err.contains("kaexport snapshot: couldn't write '" + name + "': " + c.fault.cause))
        << r.err.toStdString();
    EXPECT_FALSE(r.out.contains("Wrote")) << r.out.toStdString();
    EXPECT_EQ(katest::fileBytes(name), kOld);
    EXPECT_EQ(entries(dir.path()), QStringList{QFileInfo(name).fileName()});
}

INSTANTIATE_TEST_SUITE_P(Formats, kaexportOnAFailingDisk, testing::ValuesIn(cases()),
                         [](const testing::TestParamInfo<Case>& info) {
                             return std::string(info.param.extension) + "_" +
                                    info.param.fault.operation + info.param.fault.error +
                                    std::to_string(info.param.fault.nth);
                         });

class kaexportTrust : public testing::Test {
protected:
    katest::TempDir dir;
};

TEST_F(kaexportTrust, FastOnAFailingDiskExitsOneAndLeavesNothing) {
    Result r =
        kaexport({"fast", dir.file("f.png"), "--count", "2", "--width", "640", "--height", "400"},
                 katest::failingDiskEnvironment(dir.path(), "write", 1, "ENOSPC"));
    EXPECT_EQ(r.code, 1) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains("kaexport fast: couldn't write '" + dir.file("f-00000.png") +
                               "': No space left on device"))
        << r.err.toStdString();
    EXPECT_TRUE(entries(dir.path()).isEmpty()) << entries(dir.path()).join(' ').toStdString();
}

TEST_F(kaexportTrust, AFullDiskKeepsTheOldFileAndExitsOne) {
    katest::SmallDisk disk(2048);
    if (!disk.isMounted())
        GTEST_SKIP() << "no small disk can be mounted here (needs root)";
    const QString keep = disk.file("keep.png");
    putOld(keep);
    ASSERT_TRUE(disk.fill(16384));
    Result r = kaexport({"snapshot", keep, "--width", "1920", "--height", "1080", "--force"});
    EXPECT_EQ(r.code, 1) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains("couldn't write '" + keep + "': No space left on device"));
    EXPECT_FALSE(r.out.contains("Wrote"));
    EXPECT_EQ(katest::fileBytes(keep), kOld);

    r = kaexport(
        {"fast", disk.file("f.png"), "--count", "2", "--width", "1920", "--height", "1080"});
    EXPECT_EQ(r.code, 1) << r.err.toStdString();
    EXPECT_EQ(entries(disk.path()), (QStringList{"filler", "keep.png"}));
}

TEST_F(kaexportTrust, TwoWritersOfOneNameWithoutForceNeverClobberEachOther) {
    const QString name = dir.file("same.png");
    QProcess first, second;
    for (QProcess* process : {&first, &second}) {
        process->setProcessEnvironment(katest::kaexportEnvironment());
        process->start(KAEXPORT_PATH, {"snapshot", name, "--width", "640", "--height", "400"});
    }
    const Result a = finish(first), b = finish(second);
    EXPECT_EQ(a.code + b.code, 1) << a.err.toStdString() << b.err.toStdString();
    const Result& loser = a.code == 1 ? a : b;
    EXPECT_TRUE(loser.err.contains("exists; not overwriting it (use --force)") ||
                loser.err.contains("couldn't write '" + name +
                                   "': the file exists and replacing it was not asked for "
                                   "(use --force to replace it)"))
        << loser.err.toStdString();
    EXPECT_FALSE(loser.out.contains("Wrote"));
    auto in = OIIO::ImageInput::open(name.toStdString());
    ASSERT_TRUE(in);
    std::vector<uint8_t> pixels(640 * 400 * 3);
    EXPECT_TRUE(in->read_image(0, 0, 0, 3, OIIO::TypeDesc::UINT8, pixels.data()));
    EXPECT_EQ(entries(dir.path()), QStringList{"same.png"});
}

TEST_F(kaexportTrust, FastFollowsTheForceRule) {
    putOld(dir.file("f.png"));
    Result r =
        kaexport({"fast", dir.file("f.png"), "--count", "1", "--width", "64", "--height", "48"});
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(
        r.err.contains("'" + dir.file("f.png") + "' exists; not overwriting it (use --force)"));
    EXPECT_EQ(katest::fileBytes(dir.file("f.png")), kOld);
    r = kaexport(
        {"fast", dir.file("f.png"), "--count", "1", "--width", "64", "--height", "48", "--force"});
    EXPECT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.startsWith("Wrote " + dir.file("f.png")));
    EXPECT_TRUE(OIIO::ImageInput::open(dir.fileStd("f.png")));
}

TEST_F(kaexportTrust, APreferenceOfTheWrongTypeIsOneClearLine) {
    QFile prefs(dir.file("p.json"));
    ASSERT_TRUE(prefs.open(QIODevice::WriteOnly));
    prefs.write(
        R"({ "version": 1, "values": { "ImageExport width": { "type": "float", "value": 3 } } })");
    prefs.close();
    Result r = kaexport({"--prefs", dir.file("p.json"), "snapshot", dir.file("a.png")});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kaexport: Couldn't use preferences '" + dir.file("p.json") +
                         "': \"ImageExport width\" must be an int from 1 to 1048576, not a value "
                         "of type float\n");
    EXPECT_TRUE(entries(dir.path()) == QStringList{"p.json"});
}

TEST_F(kaexportTrust, AMissingPreferencesFileStopsWithoutClaimingDefaults) {
    Result r = kaexport({"--prefs", dir.file("none.json"), "files", dir.file("a.png")});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kaexport: Couldn't read preferences '" + dir.file("none.json") +
                         "': No such file or directory\n");
    EXPECT_TRUE(r.out.isEmpty());
}

TEST_F(kaexportTrust, ASceneWithoutGeometrySaysSo) {
    QFile scene(dir.file("empty.gltf"));
    ASSERT_TRUE(scene.open(QIODevice::WriteOnly));
    scene.write(
        R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],"nodes":[{"name":"n"}]})");
    scene.close();
    Result r = kaexport({"--scene", dir.file("empty.gltf"), "snapshot", dir.file("a.png")});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kaexport: The scene file '" + dir.file("empty.gltf") +
                         "' has no geometry to render.\n");
}

TEST_F(kaexportTrust, ANormalRunPrintsOnlyWhatUsersNeed) {
    Result r = kaexport({"--set", "ImageExport multi layer exr=true", "snapshot", dir.file("p.exr"),
                         "--width", "64", "--height", "48", "--passes", "beauty"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const QStringList out = r.out.split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(out.size(), 2) << r.out.toStdString();
    EXPECT_TRUE(out[0].startsWith("Wrote " + dir.file("p.exr") + " ("));
    EXPECT_TRUE(out[1].startsWith("Render ")) << "the timings once";
    for (const QString& text : {r.out, r.err}) {
        EXPECT_FALSE(text.contains("supports LAYERs")) << text.toStdString();
        EXPECT_FALSE(text.contains("render time")) << text.toStdString();
    }
    const QStringList progress = r.err.split('\n', Qt::SkipEmptyParts);
    ASSERT_FALSE(progress.isEmpty());
    EXPECT_EQ(progress.last(), "progress 100%") << r.err.toStdString();

    // The library's lines are there for those who ask, on standard error.
    r = kaexport({"--verbose", "--set", "ImageExport multi layer exr=true", "snapshot",
                  dir.file("v.exr"), "--width", "64", "--height", "48", "--passes", "beauty"});
    EXPECT_TRUE(r.err.contains("filetype image/x-exr supports LAYERs"));
    EXPECT_TRUE(r.err.contains("Snapshot render time"));
    EXPECT_FALSE(r.out.contains("supports LAYERs"));
}

TEST_F(kaexportTrust, AClosedStandardOutputIsAFailure) {
    // A reader that stops after a few bytes.
    QProcess shell;
    shell.setProcessEnvironment(katest::kaexportEnvironment());
    shell.start("bash", {"-c",
                         "\"$0\" fast - --count 50 --width 320 --height 200 | head -c 10 "
                         ">/dev/null; exit ${PIPESTATUS[0]}",
                         KAEXPORT_PATH});
    const Result r = finish(shell);
    EXPECT_EQ(r.code, 1) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains("kaexport fast: couldn't write to standard output: Broken pipe"))
        << r.err.toStdString();
}
