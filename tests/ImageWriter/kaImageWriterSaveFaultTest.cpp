// The library's save path on a disk that fails: saveImage, saveImages (one layered file and one
// file per pass) and WriteImageTask report the failure with the file and its cause, leave no
// temporary file behind and keep every file that was there, byte for byte.
#include "WriteImageTask.h"
#include "kaImageWriter.h"

#include "kaFaultInjection.h"
#include "kaPreferences.h"
#include "kaRenderPasses.h"
#include "kaTestSupport.h"

#include <QFile>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>

using osg::Image;

namespace {

// Large enough for every codec to write more than once.
osg::ImagePtr noise(uint32_t format, int32_t type, int w = 800, int h = 600, unsigned seed = 1) {
    osg::ImagePtr image = Image::create();
    image->set(format, w, h, 1, 1, 1, 0.0, nullptr, type);
    std::mt19937 random(seed);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            image->setPixel(x, y,
                            {float(random() % 256) / 255.0f, float(random() % 256) / 255.0f,
                             float(random() % 256) / 255.0f, 1.0f});
    return image;
}

const QByteArray kOld = "the good old file";

void putOld(const QString& path) {
    QFile old(path);
    ASSERT_TRUE(old.open(QIODevice::WriteOnly));
    old.write(kOld);
}

struct Fault {
    const char* operation;
    int error;
    int nth;
};

std::string faultName(const Fault& f) {
    return std::string(f.operation) + (f.error == EIO ? "EIO" : "ENOSPC") + std::to_string(f.nth);
}

void PrintTo(const Fault& f, std::ostream* out) {
    *out << faultName(f);
}

const Fault kFaults[] = {{"write", ENOSPC, 1}, {"write", ENOSPC, 2}, {"write", EIO, 1},
                         {"fsync", EIO, 1},    {"close", EIO, 1},    {"rename", ENOSPC, 1}};

struct SaveCase {
    const char* type;      // as the drivers pass it
    const char* extension; // of the file
    int32_t dataType;
    Fault fault;
};

// Names the case in test listings instead of dumping its bytes.
void PrintTo(const SaveCase& c, std::ostream* out) {
    *out << c.extension << " with ";
    PrintTo(c.fault, out);
}

std::vector<SaveCase> saveCases() {
    const SaveCase formats[] = {{"PNG", "png", Image::OSG_UINT8_IMAGEDATA, {}},
                                {"JPEG", "jpg", Image::OSG_UINT8_IMAGEDATA, {}},
                                {"TIF", "tif", Image::OSG_UINT8_IMAGEDATA, {}},
                                {"EXR", "exr", Image::OSG_FLOAT32_IMAGEDATA, {}},
                                {"HDR", "hdr", Image::OSG_FLOAT32_IMAGEDATA, {}}};
    std::vector<SaveCase> cases;
    for (SaveCase format : formats)
        for (const Fault& fault : kFaults) {
            format.fault = fault;
            cases.push_back(format);
        }
    return cases;
}

class SaveFault : public testing::TestWithParam<SaveCase> {
protected:
    void SetUp() override {
        kaImageRenderWidget::setPixelFormat(Image::OSG_RGB_PF);
        kaImageRenderWidget::setDataType(Image::OSG_UINT8_IMAGEDATA);
        writer.setMetaDataFlags(8);
    }
    std::string folder() const { return dir.fileStd(""); }

    katest::PreferencesGuard guard;
    katest::TempDir dir;
    kaImageWriter writer;
};

} // namespace

TEST_P(SaveFault, SaveImageFailsWithFileAndCauseAndKeepsTheOldFile) {
    const SaveCase c = GetParam();
    const QString name = dir.file(QString("shot.") + c.extension);
    putOld(name);
    katest::LogCapture log;
    bool saved = true;
    {
        kaFaultGuard fault(folder().c_str(), c.fault.operation, c.fault.nth, c.fault.error);
        saved = writer.saveImage(noise(Image::OSG_RGB_PF, c.dataType), name.toUtf8(), c.type, false,
                                 false, true, 300.0f, false, false, "a comment");
    }
    EXPECT_FALSE(saved);
    EXPECT_TRUE(log.contains(kaLog::Error, "ImageFileType: Couldn't write '" + name.toStdString() +
                                               "': " + std::strerror(c.fault.error)));
    EXPECT_TRUE(log.contains(kaLog::Error,
                             "kaImageWriter: Couldn't save image '" + name.toStdString() + "'!"));
    EXPECT_EQ(katest::fileBytes(name), kOld);
    EXPECT_EQ(katest::folderEntries(dir.path()),
              std::vector<std::string>{name.section('/', -1).toStdString()});
}

INSTANTIATE_TEST_SUITE_P(Formats, SaveFault, testing::ValuesIn(saveCases()),
                         [](const testing::TestParamInfo<SaveCase>& info) {
                             return std::string(info.param.extension) + "_" +
                                    faultName(info.param.fault);
                         });

class PassFault : public testing::TestWithParam<Fault> {
protected:
    void SetUp() override {
        kaImageRenderWidget::setPixelFormat(Image::OSG_RGBA_PF);
        kaImageRenderWidget::setDataType(Image::OSG_FLOAT32_IMAGEDATA);
    }
    void TearDown() override {
        kaImageRenderWidget::setPixelFormat(Image::OSG_RGB_PF);
        kaImageRenderWidget::setDataType(Image::OSG_UINT8_IMAGEDATA);
    }
    std::vector<osg::ImagePtr> passes() const {
        return {noise(Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA, 300, 200, 1),
                noise(Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA, 300, 200, 2),
                noise(Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA, 300, 200, 3)};
    }
    katest::PreferencesGuard guard;
    katest::TempDir dir;
    kaImageWriter writer;
};

TEST_P(PassFault, OneLayeredFileFailsWholeAndKeepsTheOldOne) {
    writer.setExportMultiLayer(true);
    const QString name = dir.file("passes.exr");
    putOld(name);
    const Fault f = GetParam();
    katest::LogCapture log;
    bool saved = true;
    {
        kaFaultGuard fault(dir.fileStd("").c_str(), f.operation, f.nth, f.error);
        saved = writer.saveImages(passes(), name.toStdString(), "EXR", false, true, true, 72.0f,
                                  false, false, nullptr);
    }
    EXPECT_FALSE(saved);
    EXPECT_TRUE(log.contains(kaLog::Error, "ImageFileType: Couldn't write '" + name.toStdString() +
                                               "': " + std::strerror(f.error)));
    EXPECT_EQ(katest::fileBytes(name), kOld);
    EXPECT_EQ(katest::folderEntries(dir.path()), std::vector<std::string>{"passes.exr"});
}

TEST_P(PassFault, PassFilesInTheBackgroundFailAndKeepTheOldOnes) {
    std::vector<std::string> names;
    for (int pass = 0; pass < 3; ++pass)
        names.push_back("f-" + kaRenderPassNames[pass] + ".exr");
    std::sort(names.begin(), names.end());
    for (const std::string& name : names)
        putOld(dir.file(QString::fromStdString(name)));
    const Fault f = GetParam();
    katest::LogCapture log;
    bool saved = true;
    {
        // Every pass file fails from the first failing call on, as on a disk that is full.
        kaFaultGuard fault(dir.fileStd("").c_str(), f.operation, f.nth, f.error);
        saved = writer.saveImages(passes(), dir.file("f.exr").toStdString(), "EXR", false, true,
                                  true, 72.0f, false, false, nullptr);
    }
    EXPECT_FALSE(saved);
    int failures = 0;
    for (const std::string& name : names) {
        const QByteArray bytes = katest::fileBytes(dir.file(QString::fromStdString(name)));
        if (bytes == kOld) {
            ++failures;
            EXPECT_TRUE(log.contains(kaLog::Error, "ImageFileType: Couldn't write '" +
                                                       dir.fileStd(QString::fromStdString(name)) +
                                                       "': " + std::strerror(f.error)));
        } else {
            // A pass written before the fault struck is whole.
            EXPECT_TRUE(bytes.startsWith("v/1\x01")) << name << " is neither old nor whole";
        }
    }
    EXPECT_GE(failures, 1);
    EXPECT_EQ(katest::folderEntries(dir.path()), names);
    for (const std::string& line : log.texts(kaLog::Error))
        EXPECT_EQ(line.find("Couldn't save image"), std::string::npos) << "passes are silent";
}

TEST_P(PassFault, WriteImageTaskFlagsTheFailureAndKeepsTheOldFiles) {
    putOld(dir.file("a.png"));
    putOld(dir.file("b.tif"));
    const Fault f = GetParam();
    WriteImageTask task(&writer, 72.0f, false);
    task.addImage(noise(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 300, 200, 4),
                  dir.fileStd("a.png"), "PNG", false);
    task.addImage(noise(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 300, 200, 5),
                  dir.fileStd("b.tif"), "TIF", false);
    int status = 0;
    {
        kaFaultGuard fault(dir.fileStd("").c_str(), f.operation, f.nth, f.error);
        status = task.write();
    }
    EXPECT_EQ(status, int(WriteImageTask::WriteFailed));
    int kept = 0;
    for (const char* name : {"a.png", "b.tif"})
        kept += katest::fileBytes(dir.file(name)) == kOld;
    EXPECT_GE(kept, 1);
    EXPECT_EQ(katest::folderEntries(dir.path()), (std::vector<std::string>{"a.png", "b.tif"}));
}

INSTANTIATE_TEST_SUITE_P(Faults, PassFault, testing::ValuesIn(kFaults),
                         [](const testing::TestParamInfo<Fault>& info) {
                             return faultName(info.param);
                         });

TEST(SaveImages, MoreImagesThanRenderPassesAreRefused) {
    katest::TempDir dir;
    kaImageWriter writer;
    std::vector<osg::ImagePtr> images(kaRenderPassCount + 1,
                                      noise(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 4, 4));
    katest::LogCapture log;
    EXPECT_FALSE(writer.saveImages(images, dir.fileStd("many.png"), "PNG", false, false, true,
                                   72.0f, false, false, nullptr));
    EXPECT_TRUE(log.contains(kaLog::Error, "kaImageWriter: Couldn't save images '" +
                                               dir.fileStd("many.png") +
                                               "': 48 images, but only 47 render passes!"));
    EXPECT_TRUE(katest::folderEntries(dir.path()).empty());
}

// The real thing where the machine allows it.
TEST(SaveOnFullDisk, SaveImageFailsAndTheOldFileSurvives) {
    katest::SmallDisk disk(1024);
    if (!disk.isMounted())
        GTEST_SKIP() << "no small disk can be mounted here (needs root)";
    katest::PreferencesGuard guard;
    kaImageWriter writer;
    const QString name = disk.file("keep.png");
    putOld(name);
    ASSERT_TRUE(disk.fill(4096));
    katest::LogCapture log;
    EXPECT_FALSE(writer.saveImage(noise(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 800, 600),
                                  name.toUtf8(), "PNG", false, false, true, 72.0f, false, false,
                                  nullptr));
    EXPECT_TRUE(log.contains(kaLog::Error, "ImageFileType: Couldn't write '" + name.toStdString() +
                                               "': " + std::strerror(ENOSPC)));
    EXPECT_EQ(katest::fileBytes(name), kOld);
    EXPECT_EQ(katest::folderEntries(disk.path()), (std::vector<std::string>{"filler", "keep.png"}));
}
