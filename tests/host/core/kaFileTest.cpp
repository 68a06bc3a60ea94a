#include "kaFile.h"

#include "kaController.h"
#include "kaPlatform.h"
#include "kaTestSupport.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include <gtest/gtest.h>

#include <cstdlib>

TEST(kaFileExpand, HostVariablesInBothSpellings) {
    kaFile::setPathVariable("KA_TEST_ROOT", "/srv/render");
    EXPECT_EQ(kaFile::expandFilename(QString("$KA_TEST_ROOT/a.png")), "/srv/render/a.png");
    EXPECT_EQ(kaFile::expandFilename(QString("${KA_TEST_ROOT}x/a.png")), "/srv/renderx/a.png");
}

TEST(kaFileExpand, HostVariablesWinOverTheEnvironment) {
    setenv("KA_TEST_BOTH", "/from/env", 1);
    EXPECT_EQ(kaFile::expandFilename(QString("$KA_TEST_BOTH/f")), "/from/env/f");
    kaFile::setPathVariable("KA_TEST_BOTH", "/from/host");
    EXPECT_EQ(kaFile::expandFilename(QString("$KA_TEST_BOTH/f")), "/from/host/f");
}

TEST(kaFileExpand, EnvironmentVariables) {
    setenv("KA_TEST_ENV_DIR", "/tmp/env dir", 1);
    EXPECT_EQ(kaFile::expandFilename(std::string("${KA_TEST_ENV_DIR}/b.exr")),
              "/tmp/env dir/b.exr");
}

TEST(kaFileExpand, UnknownVariablesStayAsWritten) {
    unsetenv("KA_TEST_NOT_SET");
    EXPECT_EQ(kaFile::expandFilename(QString("/a/$KA_TEST_NOT_SET/b")), "/a/$KA_TEST_NOT_SET/b");
}

TEST(kaFileExpand, KaloDataDefaultsToTheDataFolder) {
    unsetenv("KALO_DATA");
    EXPECT_EQ(kaFile::expandFilename(QString("$KALO_DATA\\MonitorProfiles\\x.icc")),
              QDir::cleanPath(kaPlatform::getDataDir() + "/MonitorProfiles/x.icc"));
}

TEST(kaFileExpand, BackslashesBecomeSlashes) {
    EXPECT_EQ(kaFile::expandFilename(QString("\\out\\shots\\a.png")), "/out/shots/a.png");
}

TEST(kaFileExpand, RelativeNamesBecomeAbsolute) {
    EXPECT_EQ(kaFile::expandFilename(QString("out/a.png")),
              QDir::cleanPath(QDir::currentPath() + "/out/a.png"));
    EXPECT_EQ(kaFile::expandFilename(QString("/a/b/../c/./d.png")), "/a/c/d.png");
    EXPECT_EQ(kaFile::expandFilename(QString("~/x.png")), QDir::homePath() + "/x.png");
}

TEST(kaFileExpand, EmptyStaysEmpty) {
    EXPECT_EQ(kaFile::expandFilename(QString()), QString());
}

TEST(kaFileNames, PartsOfAName) {
    EXPECT_EQ(kaFile::getExtension(QString("/a/b.tar.gz")), "gz");
    EXPECT_EQ(kaFile::getExtension(std::string("shot.PNG")), "PNG");
    EXPECT_EQ(kaFile::getExtension(QString("/a.b/c")), "");
    EXPECT_EQ(kaFile::getExtension(QString("/a/.hidden")), "");
    EXPECT_EQ(kaFile::getExtension(QString("name.")), "");
    EXPECT_EQ(kaFile::getFilePath(QString("/a/b/c.png")), "/a/b");
    EXPECT_EQ(kaFile::getFilePath(QString("/c.png")), "/");
    EXPECT_EQ(kaFile::getFilePath(QString("c.png")), "");
    EXPECT_EQ(kaFile::getFileName(QString("/a/b/c.png")), "c.png");
    EXPECT_EQ(kaFile::getBaseName(QString("/a/b/c.d.png")), "c.d");
}

TEST(kaFilePaths, CreatePathMakesParentsAndExistsSeesThem) {
    katest::TempDir dir;
    QString deep = dir.file("x/y/z");
    EXPECT_TRUE(kaFile::createPath(deep));
    EXPECT_TRUE(kaFile::exists(deep));
    EXPECT_TRUE(kaFile::createPath(deep)) << "an existing folder is fine";
    EXPECT_TRUE(kaFile::createPath(QString()));
    EXPECT_FALSE(kaFile::exists(QString()));
}

TEST(kaFilePaths, CreatePathFailsWhereAFileStands) {
    katest::TempDir dir;
    QFile blocker(dir.file("file"));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    EXPECT_FALSE(kaFile::createPath(dir.file("file/sub")));
}

class kaFileCheckWrite : public testing::Test {
protected:
    void SetUp() override {
        kaController::setNoGUI(false);
        kaController::setBatchOverwrite(false);
    }
    void TearDown() override {
        kaController::setNoGUI(false);
        kaController::setBatchOverwrite(false);
    }
    QString makeFile(const QString& name) {
        QString path = dir.file(name);
        QFile f(path);
        f.open(QIODevice::WriteOnly);
        f.write("x");
        return path;
    }
    katest::TempDir dir;
    katest::LogCapture log;
};

TEST_F(kaFileCheckWrite, NewFileInAWritableFolderPasses) {
    EXPECT_TRUE(kaFile::checkWrite(dir.file("new.png"), true, true));
    EXPECT_TRUE(log.entries().empty());
}

TEST_F(kaFileCheckWrite, MissingFolderFailsAndIsReportedOnlyWhenAsked) {
    EXPECT_FALSE(kaFile::checkWrite(dir.file("none/a.png"), false, false));
    EXPECT_TRUE(log.entries().empty());
    EXPECT_FALSE(kaFile::checkWrite(dir.file("none/a.png"), false, true));
    EXPECT_EQ(log.texts(kaLog::Error).size(), 1u);
}

TEST_F(kaFileCheckWrite, EmptyNameFails) {
    EXPECT_FALSE(kaFile::checkWrite(QString(), false, true));
    EXPECT_TRUE(log.contains(kaLog::Error, "kaFile: No file name given!"));
}

TEST_F(kaFileCheckWrite, UnwritableFolderFails) {
    // Nobody, root included, may create files in /proc/self.
    EXPECT_FALSE(kaFile::checkWrite("/proc/self/a.png", false, true));
    EXPECT_TRUE(log.contains(kaLog::Error, "kaFile: The folder '/proc/self' is not writable!"));
}

TEST_F(kaFileCheckWrite, ExistingFileWithoutAskingPasses) {
    EXPECT_TRUE(kaFile::checkWrite(makeFile("a.png"), false, true));
}

TEST_F(kaFileCheckWrite, BatchModeTakesTheCommandLinesAnswer) {
    QString path = makeFile("a.png");
    kaController::setNoGUI(true);
    EXPECT_FALSE(kaFile::checkWrite(path, true, true));
    EXPECT_TRUE(log.contains(kaLog::Warning, "kaFile: '" + path.toStdString() +
                                                 "' exists and is not overwritten."));
    kaController::setBatchOverwrite(true);
    EXPECT_TRUE(kaFile::checkWrite(path, true, true));
}

TEST_F(kaFileCheckWrite, WithAGuiTheUserIsAsked) {
    QString path = makeFile("a.png");
    for (bool yes : {true, false}) {
        QString asked;
        QTimer::singleShot(0, [&] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            ASSERT_NE(box, nullptr);
            asked = box->text();
            box->button(yes ? QMessageBox::Yes : QMessageBox::No)->click();
        });
        EXPECT_EQ(kaFile::checkWrite(path, true, true), yes);
        EXPECT_TRUE(asked.contains(path)) << asked.toStdString();
    }
}
