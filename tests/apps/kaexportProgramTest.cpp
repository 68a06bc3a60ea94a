// The installed program as users run it: a separate process, its output and its exit code.
#include "kaTestSupport.h"

#include <QProcess>

#include <gtest/gtest.h>

namespace {
struct Result {
    int code;
    QString out, err;
};
Result runProgram(const QStringList& args) {
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("QT_QPA_PLATFORM"); // the program must find its offscreen platform itself
    env.remove("DISPLAY");
    process.setProcessEnvironment(env);
    process.start(KAEXPORT_PATH, args);
    process.waitForFinished(60000);
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}
} // namespace

TEST(kaexportProgram, ListsFilesWithoutADisplay) {
    katest::TempDir dir;
    Result r = runProgram({"--set", "ImageExport stereo mode=1", "files", dir.file("shot.png"),
                           "--passes", "beauty"});
    EXPECT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(r.out,
              dir.file("shot-left-beauty.png") + "\n" + dir.file("shot-right-beauty.png") + "\n");
    EXPECT_EQ(r.err, "") << "nothing but the list";
}

TEST(kaexportProgram, UsageErrorExitsWithTwo) {
    Result r = runProgram({"files"});
    EXPECT_EQ(r.code, 2);
    EXPECT_TRUE(r.err.startsWith("kaexport files: OUT is required\n")) << r.err.toStdString();
}

TEST(kaexportProgram, VersionNamesTheApplication) {
    Result r = runProgram({"--version"});
    EXPECT_EQ(r.code, 0);
    EXPECT_TRUE(r.out.startsWith("KALO ")) << r.out.toStdString();
}
