// kaexport's PNG compression level: the option, the preference and the default, seen in the
// zlib stream's level hint of the files it writes (as pngcheck reports it).
#include "kaTestSupport.h"
#include "kaexportProcess.h"

#include <QProcess>

#include <gtest/gtest.h>

using katest::KaexportResult;
using katest::runKaexport;

namespace {

// pngcheck's name for the level hint of the file's zlib stream ("superfast" for levels 0 and
// 1, "fast" for 2 to 5, "default" for 6, "maximum" for 7 to 9); empty when it can't tell.
std::string compressionOf(const QString& path) {
    QProcess check;
    check.start("pngcheck", {"-v", path});
    check.waitForFinished(30000);
    const QString out = QString::fromUtf8(check.readAllStandardOutput());
    if (check.exitCode() != 0 || !out.contains("No errors detected"))
        return std::string();
    const int at = out.indexOf(" compression\n");
    const int from = out.lastIndexOf(", ", at);
    return at < 0 || from < 0 ? std::string() : out.mid(from + 2, at - from - 2).toStdString();
}

} // namespace

class kaexportPngLevel : public testing::Test {
protected:
    // A snapshot with 'options' before the command; the level hint of the file written.
    std::string snapshotWith(const QStringList& options) {
        const QString out = dir.file(QString("shot%1.png").arg(++count));
        KaexportResult r =
            runKaexport(options + QStringList{"snapshot", out, "--width", "96", "--height", "64"});
        EXPECT_EQ(r.code, 0) << r.err.toStdString();
        return compressionOf(out);
    }
    katest::TempDir dir;
    int count = 0;
};

TEST_F(kaexportPngLevel, TheDefaultIsTheFastestLevel) {
    EXPECT_EQ(snapshotWith({}), "superfast");
}

TEST_F(kaexportPngLevel, TheOptionSetsTheLevelForTheRun) {
    EXPECT_EQ(snapshotWith({"--png-level", "9"}), "maximum");
    EXPECT_EQ(snapshotWith({"--png-level", "6"}), "default");
    EXPECT_EQ(snapshotWith({"--png-level", "3"}), "fast");
    EXPECT_EQ(snapshotWith({"--png-level", "0"}), "superfast");
}

TEST_F(kaexportPngLevel, ThePreferenceSetsItAndTheOptionWins) {
    EXPECT_EQ(snapshotWith({"--set", "ImageExport png level=7"}), "maximum");
    EXPECT_EQ(snapshotWith({"--set", "ImageExport png level=9", "--png-level", "6"}), "default");
}

TEST_F(kaexportPngLevel, ALevelOutsideZeroToNineIsAUsageError) {
    for (const char* level : {"10", "-1", "fast"}) {
        KaexportResult r =
            runKaexport({"--png-level", level, "snapshot", dir.file("x.png"), "--width", "8"});
        EXPECT_EQ(r.code, 2) << level;
        EXPECT_NE(r.err.indexOf("--png-level"), -1) << r.err.toStdString();
    }
    KaexportResult r = runKaexport({"--set", "ImageExport png level=12", "files", "a.png"});
    EXPECT_EQ(r.code, 2);
    EXPECT_NE(r.err.indexOf("must be an int from 0 to 9, not 12"), -1) << r.err.toStdString();
    EXPECT_TRUE(katest::folderEntries(dir.path()).empty());
}
