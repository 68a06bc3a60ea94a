#include "kaAtomicFile.h"

#include "kaFaultInjection.h"
#include "kaTestSupport.h"

#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <thread>

namespace {

const std::string kNewBytes(200000, 'n');

bool writeAll(kaAtomicFile& file, const std::string& bytes) {
    // In pieces, as codecs write.
    for (size_t at = 0; at < bytes.size(); at += 4096)
        if (!file.write(bytes.data() + at, std::min<size_t>(4096, bytes.size() - at)))
            return false;
    return true;
}

bool writeFile(const std::string& name, const std::string& bytes) {
    kaAtomicFile file(name);
    return file.open() && writeAll(file, bytes) && file.close() && file.commit();
}

class kaAtomicFileTest : public testing::Test {
protected:
    void SetUp() override { kaAtomicFile::setReplaceExisting(true); }
    void TearDown() override { kaAtomicFile::setReplaceExisting(true); }

    void putOldFile() {
        QFile old(dir.file("keep.png"));
        ASSERT_TRUE(old.open(QIODevice::WriteOnly));
        old.write("the good old file");
    }
    std::vector<std::string> onlyTheOldFile() const { return {"keep.png"}; }

    katest::TempDir dir;
};

} // namespace

TEST_F(kaAtomicFileTest, CommitPutsTheWholeFileUnderItsNameAndNothingElse) {
    ASSERT_TRUE(writeFile(dir.fileStd("keep.png"), kNewBytes));
    EXPECT_EQ(katest::fileBytes(dir.file("keep.png")).toStdString(), kNewBytes);
    EXPECT_EQ(katest::folderEntries(dir.path()), onlyTheOldFile());
}

TEST_F(kaAtomicFileTest, StagedFileKeepsTheFinalFileNameInAPrivateFolder) {
    kaAtomicFile file(dir.fileStd("frame.exr"));
    ASSERT_TRUE(file.open());
    EXPECT_EQ(QFileInfo(QString::fromStdString(file.stagedName())).fileName(), "frame.exr");
    EXPECT_EQ(QFileInfo(QString::fromStdString(file.stagedName())).dir().dirName().left(11),
              ".frame.exr.");
    EXPECT_FALSE(QFileInfo::exists(dir.file("frame.exr")));
}

TEST_F(kaAtomicFileTest, NothingCommittedLeavesNothingAndTheOldFileAlone) {
    putOldFile();
    {
        kaAtomicFile file(dir.fileStd("keep.png"));
        ASSERT_TRUE(file.open());
        ASSERT_TRUE(writeAll(file, kNewBytes));
        // Files other code put beside the staged one go too.
        QFile extra(QString::fromStdString(file.stagedName() + "._tmp"));
        ASSERT_TRUE(extra.open(QIODevice::WriteOnly));
    }
    EXPECT_EQ(katest::fileBytes(dir.file("keep.png")), "the good old file");
    EXPECT_EQ(katest::folderEntries(dir.path()), onlyTheOldFile());
}

TEST_F(kaAtomicFileTest, AnExceptionOnTheWayLeavesNothingBehind) {
    try {
        kaAtomicFile file(dir.fileStd("keep.png"));
        ASSERT_TRUE(file.open());
        writeAll(file, kNewBytes);
        throw std::runtime_error("a codec threw");
    } catch (const std::runtime_error&) {
    }
    EXPECT_TRUE(katest::folderEntries(dir.path()).empty());
}

TEST_F(kaAtomicFileTest, WithoutReplacingAnExistingFileIsKeptAndTheWriteFails) {
    putOldFile();
    kaAtomicFile::setReplaceExisting(false);
    kaAtomicFile file(dir.fileStd("keep.png"));
    ASSERT_TRUE(file.open());
    ASSERT_TRUE(writeAll(file, kNewBytes));
    EXPECT_FALSE(file.commit());
    EXPECT_EQ(file.error(), "the file exists and replacing it was not asked for");
    EXPECT_EQ(katest::fileBytes(dir.file("keep.png")), "the good old file");
    EXPECT_TRUE(kaAtomicFile::replaceExisting() == false);
}

TEST_F(kaAtomicFileTest, ReplacingKeepsTheOldFilesPermissions) {
    putOldFile();
    ASSERT_EQ(::chmod(dir.fileStd("keep.png").c_str(), 0640), 0);
    ASSERT_TRUE(writeFile(dir.fileStd("keep.png"), kNewBytes));
    struct stat info;
    ASSERT_EQ(::stat(dir.fileStd("keep.png").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0640u);
    EXPECT_EQ(katest::fileBytes(dir.file("keep.png")).toStdString(), kNewBytes);
}

TEST_F(kaAtomicFileTest, AMissingFolderIsAFailureWithItsCause) {
    kaAtomicFile file(dir.fileStd("no/such/folder/a.png"));
    EXPECT_FALSE(file.open());
    EXPECT_EQ(file.error(), std::strerror(ENOENT));
    EXPECT_FALSE(file.commit());
}

TEST_F(kaAtomicFileTest, TwoWritersOfOneNameWithoutReplacingNeverClobberEachOther) {
    kaAtomicFile::setReplaceExisting(false);
    for (int round = 0; round < 20; ++round) {
        const std::string name = dir.fileStd(QString("race%1.png").arg(round));
        std::atomic<int> wins{0};
        auto writer = [&](char fill) {
            if (writeFile(name, std::string(100000, fill)))
                ++wins;
        };
        std::thread a(writer, 'a'), b(writer, 'b');
        a.join();
        b.join();
        EXPECT_EQ(wins.load(), 1);
        const QByteArray bytes = katest::fileBytes(QString::fromStdString(name));
        EXPECT_TRUE(bytes == QByteArray(100000, 'a') || bytes == QByteArray(100000, 'b'));
    }
    EXPECT_EQ(katest::folderEntries(dir.path()).size(), 20u);
}

struct Fault {
    const char* operation;
    int error;
    int nth;
};

class kaAtomicFileFault : public kaAtomicFileTest, public testing::WithParamInterface<Fault> {};

TEST_P(kaAtomicFileFault, FailsWithTheCauseAndLeavesTheOldFileExactlyAsItWas) {
    putOldFile();
    const Fault fault = GetParam();
    bool written = false;
    std::string error;
    {
        kaFaultGuard guard(dir.fileStd("").c_str(), fault.operation, fault.nth, fault.error);
        kaAtomicFile file(dir.fileStd("keep.png"));
        written = file.open() && writeAll(file, kNewBytes) && file.close() && file.commit();
        error = file.error();
        EXPECT_GE(kaFaultFailures(), 1);
    }
    EXPECT_FALSE(written);
    EXPECT_EQ(error, std::strerror(fault.error));
    EXPECT_EQ(katest::fileBytes(dir.file("keep.png")), "the good old file");
    EXPECT_EQ(katest::folderEntries(dir.path()), onlyTheOldFile());
}

INSTANTIATE_TEST_SUITE_P(Faults, kaAtomicFileFault,
                         testing::Values(Fault{"write", ENOSPC, 1}, Fault{"write", ENOSPC, 20},
                                         Fault{"write", EIO, 7}, Fault{"fsync", EIO, 1},
                                         Fault{"close", EIO, 1}, Fault{"rename", ENOSPC, 1}),
                         [](const testing::TestParamInfo<Fault>& info) {
                             return std::string(info.param.operation) +
                                    (info.param.error == EIO ? "EIO" : "ENOSPC") +
                                    std::to_string(info.param.nth);
                         });

TEST_F(kaAtomicFileTest, NoStagingFolderOutlivesAFailedWrite) {
    putOldFile();
    {
        kaFaultGuard guard(dir.fileStd("").c_str(), "write", 3, ENOSPC);
        kaAtomicFile file(dir.fileStd("keep.png"));
        ASSERT_TRUE(file.open());
        EXPECT_FALSE(writeAll(file, kNewBytes));
    }
    EXPECT_EQ(katest::folderEntries(dir.path()), onlyTheOldFile());
}

TEST_F(kaAtomicFileTest, AFolderThatCantBeFlushedIsAWarningOnceTheFileIsInPlace) {
    katest::LogCapture log;
    bool written = false;
    {
        // The first fsync is the file's, the second the folder's.
        kaFaultGuard guard(dir.fileStd("").c_str(), "fsync", 2, EIO);
        written = writeFile(dir.fileStd("keep.png"), kNewBytes);
    }
    EXPECT_TRUE(written);
    EXPECT_EQ(katest::fileBytes(dir.file("keep.png")).toStdString(), kNewBytes);
    EXPECT_TRUE(
        log.contains(kaLog::Warning, "kaAtomicFile: '" + dir.fileStd("keep.png") +
                                         "' is written, but its folder could not be flushed to the "
                                         "disk: " +
                                         std::strerror(EIO)));
}

TEST_F(kaAtomicFileTest, AFullDiskIsReportedAndTheOldFileSurvives) {
    katest::SmallDisk disk(1024);
    if (!disk.isMounted())
        GTEST_SKIP() << "no small disk can be mounted here (needs root)";
    QFile old(disk.file("keep.png"));
    ASSERT_TRUE(old.open(QIODevice::WriteOnly));
    old.write("the good old file");
    old.close();
    ASSERT_TRUE(disk.fill(20000));
    kaAtomicFile file(disk.file("keep.png").toStdString());
    const bool written = file.open() && writeAll(file, kNewBytes) && file.close() && file.commit();
    EXPECT_FALSE(written);
    EXPECT_EQ(file.error(), std::strerror(ENOSPC));
    EXPECT_EQ(katest::fileBytes(disk.file("keep.png")), "the good old file");
}
