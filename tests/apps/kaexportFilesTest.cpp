#include "kaexportApp.h"

#include "kaPreferences.h"
#include "kaTestSupport.h"

#include <QFile>

#include <gtest/gtest.h>

#include <algorithm>

#include <sstream>

namespace {
struct Outcome {
    int code;
    std::string out, err;
};
Outcome runKaexport(const QStringList& args) {
    std::ostringstream out, err;
    kaexport::Streams io{out, err};
    int code = kaexport::run(args, io);
    return {code, out.str(), err.str()};
}
} // namespace

class kaexportFiles : public testing::Test {
protected:
    katest::PreferencesGuard guard;
    katest::TempDir dir;
};

TEST_F(kaexportFiles, ListsOneNamePerLine) {
    Outcome r = runKaexport({"files", dir.file("a.png"), "--passes", "beauty,depth"});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out,
              (dir.file("a-beauty.png") + "\n" + dir.file("a-depth.png") + "\n").toStdString());
}

TEST_F(kaexportFiles, SequenceOptions) {
    Outcome r =
        runKaexport({"files", dir.file("a.exr"), "--start", "2", "--stop", "4", "--step", "2"});
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.out,
              (dir.file("a-00002.exr") + "\n" + dir.file("a-00004.exr") + "\n").toStdString())
        << "what is written, not what is pre-rolled";
    EXPECT_EQ(r.err, "kaexport files: frames 0 to 1 are pre-rolled, not written\n");
    r = runKaexport({"files", dir.file("a.png"), "--start", "1", "--stop", "2", "--passes",
                     "beauty,depth", "--set", "ImageExport stereo mode=1"});
    EXPECT_EQ(
        r.out,
        (dir.file("a-left-beauty-00001.png") + "\n" + dir.file("a-left-beauty-00002.png") + "\n" +
         dir.file("a-left-depth-00001.png") + "\n" + dir.file("a-left-depth-00002.png") + "\n" +
         dir.file("a-right-beauty-00001.png") + "\n" + dir.file("a-right-beauty-00002.png") + "\n" +
         dir.file("a-right-depth-00001.png") + "\n" + dir.file("a-right-depth-00002.png") + "\n")
            .toStdString());
    EXPECT_EQ(r.err, "kaexport files: frame 0 is pre-rolled, not written\n");
}

TEST_F(kaexportFiles, AllPassesIntoOneLayeredFile) {
    Outcome r = runKaexport({"files", dir.file("a.exr"), "--passes", "all", "--multilayer"});
    EXPECT_EQ(r.out, (dir.file("a.exr") + "\n").toStdString());
    r = runKaexport({"files", dir.file("a.exr"), "--passes", "all"});
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 47);
}

TEST_F(kaexportFiles, SetChangesTheStereoModeForTheRun) {
    Outcome r = runKaexport({"--set", "ImageExport stereo mode=1", "files", dir.file("a.png")});
    EXPECT_EQ(r.out,
              (dir.file("a-left.png") + "\n" + dir.file("a-right.png") + "\n").toStdString());
}

TEST_F(kaexportFiles, UsageErrorsExitWithTwoAndSayWhy) {
    struct Case {
        QStringList args;
        const char* says;
    };
    const Case cases[] = {
        {{}, "kaexport: no command given"},
        {{"frobnicate"}, "kaexport: The following argument was not expected: frobnicate"},
        {{"--bogus", "files", "x.png"}, "The following argument was not expected: --bogus"},
        {{"files"}, "kaexport files: OUT is required"},
        {{"files", "a.png", "b.png"},
         "kaexport files: The following argument was not expected: b.png"},
        {{"files", "a.png", "--glitter"}, "The following argument was not expected: --glitter"},
        {{"snapshot", "a.png", "--glitter"}, "The following argument was not expected: --glitter"},
        {{"snapshot", "a.png", "b.png"},
         "kaexport snapshot: The following argument was not expected: b.png"},
        {{"fast", "-", "--count", "1", "b.png"},
         "kaexport fast: The following argument was not expected: b.png"},
        {{"fast", "-"}, "kaexport fast: --count is required"},
        {{"files", "a.png", "--passes", "beauty,glitter"}, "unknown render pass 'glitter'"},
        {{"files", "a.png", "--start", "x"}, "Could not convert: --start = x"},
        {{"files", "a.png", "--passes"}, "--passes: 1 required"},
        {{"files", "a.png", "--step", "0"}, "--step: Value 0 is not in 1..1000000"},
        {{"snapshot", "a.png", "--ss", "9"}, "kaexport snapshot: --ss: Value 9 is not in 0..3"},
        {{"snapshot", "a.png", "--icc", "7"}, "--icc: Value 7 is not in 0..4"},
        {{"snapshot", "a.png", "--metadata", "99999"}, "--metadata: Value 99999 is not in 0..255"},
        {{"snapshot", "a.png", "--width", "0"}, "--width: Value 0 is not in 1..1048576"},
        {{"snapshot", "a.png", "--dpi", "-3"}, "--dpi: Value -3 is not in 1..100000"},
        {{"snapshot", "a.png", "--alpha", "--no-alpha"}, "--alpha excludes --no-alpha"},
        {{"--set", "No Such Key=1", "files", "a.png"}, "unknown preference 'No Such Key'"},
        {{"--set", "ImageExport width=wide", "files", "a.png"}, "'wide' is not an integer"},
        {{"--set", "ImageExport add sig=maybe", "files", "a.png"}, "is not a bool"},
        {{"--set", "ImageExport sig color=1,x", "files", "a.png"}, "list of integers"},
        {{"--set", "ImageExport quality=500", "files", "a.png"},
         "preference 'ImageExport quality': must be an int from 0 to 100, not 500"},
        {{"--set", "MovieExport ssfactor=-1", "files", "a.png"},
         "preference 'MovieExport ssfactor': must be an int from 0 to 3, not -1"},
        {{"--set", "novalue", "files", "a.png"}, "--set needs \"Key=value\""},
    };
    for (const Case& c : cases) {
        Outcome r = runKaexport(c.args);
        EXPECT_EQ(r.code, kaexport::UsageError) << c.args.join(' ').toStdString();
        EXPECT_NE(r.err.find(c.says), std::string::npos) << c.args.join(' ').toStdString() << "\n"
                                                         << r.err;
        EXPECT_EQ(r.out, "");
    }
}

TEST_F(kaexportFiles, HelpForTheProgramAndForEachCommand) {
    Outcome r = runKaexport({"--help"});
    EXPECT_EQ(r.code, 0);
    EXPECT_NE(r.out.find("Usage: kaexport"), std::string::npos);
    // Preference types as users read them, never C++ type names.
    EXPECT_NE(r.out.find("\"ImageExport stereo mode\" (int 0..3)"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("\"ImageExport sig color\" (list 0..255, 3 values)"), std::string::npos);
    EXPECT_NE(r.out.find("\"Imageprofile\" (text)"), std::string::npos);
    EXPECT_EQ(r.out.find("QString"), std::string::npos);
    EXPECT_EQ(r.out.find("std::vector"), std::string::npos);
    for (const kaexport::Command& command : kaexport::commands()) {
        Outcome help = runKaexport({command.name, "--help"});
        EXPECT_EQ(help.code, 0);
        EXPECT_NE(help.out.find(std::string("kaexport ") + command.name), std::string::npos);
    }
}

TEST_F(kaexportFiles, MalformedPreferencesFileFailsClearly) {
    QString path = dir.file("p.json");
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write("not json");
    f.close();
    Outcome r = runKaexport({"--prefs", path, "files", dir.file("a.png")});
    EXPECT_EQ(r.code, kaexport::Failed);
    EXPECT_NE(r.err.find("Couldn't read preferences"), std::string::npos) << r.err;
}

TEST_F(kaexportFiles, PreferencesFileIsReadBeforeSetAssignments) {
    kaPreferences::getData().set("ImageExport stereo mode", 2);
    QString path = dir.file("p.json");
    ASSERT_TRUE(kaPreferences::save(path));
    kaPreferences::resetToDefaults();
    Outcome r = runKaexport({"--prefs", path, "files", dir.file("a.png")});
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 5);
    r = runKaexport(
        {"--prefs", path, "--set", "ImageExport stereo mode=0", "files", dir.file("a.png")});
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 1);
}
