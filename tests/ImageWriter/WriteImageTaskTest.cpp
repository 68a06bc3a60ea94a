#include "WriteImageTask.h"

#include "kaImageWriter.h"
#include "kaTestSupport.h"

#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

namespace {
osg::ImagePtr image() {
    osg::ImagePtr i = osg::Image::create();
    i->set(osg::Image::OSG_RGB_PF, 8, 8);
    return i;
}
} // namespace

TEST(WriteImageTask, WritesEveryImageAndFlagsAFailure) {
    katest::PreferencesGuard guard;
    katest::TempDir dir;
    QFile blocker(dir.file("blocked"));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    kaImageWriter writer;
    WriteImageTask task(&writer, 150.0f, false);
    task.addImage(image(), dir.fileStd("a.png"), "PNG", false);
    task.addImage(image(), dir.fileStd("blocked/b.png"), "PNG", false);
    task.addImage(image(), dir.fileStd("c.tif"), "TIF", false);
    katest::LogCapture log;
    EXPECT_EQ(task.write(), int(WriteImageTask::WriteFailed));
    EXPECT_EQ(task.getStatus(), WriteImageTask::WriteFailed);
    EXPECT_TRUE(QFileInfo::exists(dir.file("a.png")));
    EXPECT_TRUE(QFileInfo::exists(dir.file("c.tif")));
    for (const std::string& line : log.texts(kaLog::Error))
        EXPECT_EQ(line.find("Couldn't save image"), std::string::npos) << "no message: " << line;
}

TEST(WriteImageTask, AllWrittenLeavesTheStatusClear) {
    katest::TempDir dir;
    kaImageWriter writer;
    WriteImageTask task(&writer, 72.0f, false);
    for (int i = 0; i < 5; ++i)
        task.addImage(image(), dir.fileStd(QString("i%1.png").arg(i)), "PNG", false);
    EXPECT_EQ(task.write(), 0);
    for (int i = 0; i < 5; ++i)
        EXPECT_TRUE(QFileInfo::exists(dir.file(QString("i%1.png").arg(i))));
}
