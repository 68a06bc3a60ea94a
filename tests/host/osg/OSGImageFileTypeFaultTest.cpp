// Every format the file types write, on a disk that fails: a full disk, an I/O error while
// writing, flushing, closing or renaming, or while the XMP packet goes in. The write must fail
// with the file name and the cause, leave nothing behind and keep the file that was there.
#include "OSGImage.h"
#include "OSGImageFileHandler.h"
#include "OSGImageFileType.h"
#include "filetypes/OSGOIIOImageFileType.h"

#include "kaFaultInjection.h"
#include "kaTestSupport.h"
#include "kaWriteJournal.h"

#include <QFile>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <random>

using osg::Image;

namespace {

// Noise: codecs can't shrink it, so the file takes many writes.
osg::ImagePtr noiseImage(int32_t type, int width = 700, int height = 500) {
    osg::ImagePtr image = Image::create();
    image->set(Image::OSG_RGBA_PF, width, height, 1, 1, 1, 0.0, nullptr, type);
    std::mt19937 random(7);
    if (type == Image::OSG_FLOAT32_IMAGEDATA) {
        auto* p = reinterpret_cast<float*>(image->getData());
        for (size_t i = 0; i < size_t(width) * height * 4; ++i)
            p[i] = float(random() % 1000) / 500.0f;
    } else {
        for (size_t i = 0; i < image->getSize(); ++i)
            image->getData()[i] = uint8_t(random());
    }
    return image;
}

const char* const kOldBytes = "the good old file";

// Which call fails: a number, or one of these, found by a dry run that counts the writes.
constexpr int kMiddleWrite = -1, kLastWrite = -2;

struct Fault {
    const char* operation;
    int error;
    int nth;
};

std::string nthName(int nth) {
    return nth == kMiddleWrite ? "Middle" : nth == kLastWrite ? "Last" : std::to_string(nth);
}

// Names the fault in test listings instead of dumping its bytes.
void PrintTo(const Fault& f, std::ostream* out) {
    *out << f.operation << " #" << nthName(f.nth) << " failing ("
         << (f.error == EIO ? "EIO" : "ENOSPC") << ")";
}

struct Case {
    osg::ImageFileType* type;
    Fault fault;
};

// Names the case in test listings instead of dumping its bytes.
void PrintTo(const Case& c, std::ostream* out) {
    *out << c.type->getSuffixList().front() << " with ";
    PrintTo(c.fault, out);
}

std::vector<Case> allCases() {
    const Fault faults[] = {{"write", ENOSPC, 1},       {"write", ENOSPC, kMiddleWrite},
                            {"write", EIO, kLastWrite}, {"fsync", EIO, 1},
                            {"close", EIO, 1},          {"rename", ENOSPC, 1}};
    std::vector<Case> cases;
    for (osg::ImageFileType* type : osg::ImageFileHandler::the().getFileTypes())
        if (type->getFlags() & osg::ImageFileType::OSG_WRITE_SUPPORTED)
            for (const Fault& fault : faults)
                cases.push_back({type, fault});
    return cases;
}

std::string caseName(const testing::TestParamInfo<Case>& info) {
    std::string mime = info.param.type->getSuffixList().front();
    return mime + "_" + info.param.fault.operation +
           (info.param.fault.error == EIO ? "EIO" : "ENOSPC") + nthName(info.param.fault.nth);
}

std::string fileNameFor(const katest::TempDir& dir, osg::ImageFileType* type) {
    return dir.fileStd("keep." + QString::fromStdString(type->getSuffixList().front()));
}

// Records the journal while it lives.
struct JournalCapture {
    JournalCapture()
        : id(kaWriteJournal::addListener(
              [this](const kaWriteJournal::Entry& entry) { entries.push_back(entry); })) {}
    ~JournalCapture() { kaWriteJournal::removeListener(id); }
    std::vector<kaWriteJournal::Entry> entries;
    int id;
};

// Writes on a healthy disk, counting the writes that reach files in 'dir'.
int writesOf(osg::ImageFileType* type, const osg::ImagePtr& image, const katest::TempDir& dir) {
    kaFaultGuard count(dir.fileStd("").c_str(), "write", 1 << 30, ENOSPC);
    EXPECT_TRUE(type->write(image, dir.fileStd("dry-run")));
    return kaFaultCalls();
}

} // namespace

class FileTypeFault : public testing::TestWithParam<Case> {
protected:
    katest::TempDir dir;
};

TEST_P(FileTypeFault, FailsWithNameAndCauseKeepsTheOldFileAndLeavesNothing) {
    const Case c = GetParam();
    const std::string name = fileNameFor(dir, c.type);
    {
        QFile old(QString::fromStdString(name));
        ASSERT_TRUE(old.open(QIODevice::WriteOnly));
        old.write(kOldBytes);
    }
    osg::ImagePtr image = noiseImage(Image::OSG_UINT8_IMAGEDATA);
    // The packet goes in after the codec: its writes are the last ones.
    image->setAttachmentField(osg::kXMPAttachment,
                              "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF "
                              "xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\"/>"
                              "</x:xmpmeta>");
    int nth = c.fault.nth;
    if (nth < 0) {
        const int writes = writesOf(c.type, image, dir);
        ASSERT_GE(writes, 1);
        QFile::remove(dir.file("dry-run"));
        nth = nth == kLastWrite ? writes : (writes + 1) / 2;
    }

    katest::LogCapture log;
    JournalCapture journal;
    bool written = true;
    {
        kaFaultGuard guard(dir.fileStd("").c_str(), c.fault.operation, nth, c.fault.error);
        written = c.type->write(image, name);
        EXPECT_GE(kaFaultFailures(), 1) << "the fault never happened";
    }
    EXPECT_FALSE(written);
    EXPECT_TRUE(log.contains(kaLog::Error, "ImageFileType: Couldn't write '" + name +
                                               "': " + std::strerror(c.fault.error)))
        << (log.texts(kaLog::Error).empty() ? std::string("no error logged")
                                            : log.texts(kaLog::Error).front());
    ASSERT_EQ(journal.entries.size(), 1u);
    EXPECT_EQ(journal.entries[0].fileName, name);
    EXPECT_FALSE(journal.entries[0].written);
    EXPECT_EQ(journal.entries[0].error, std::strerror(c.fault.error));
    EXPECT_EQ(katest::fileBytes(QString::fromStdString(name)), kOldBytes);
    EXPECT_EQ(
        katest::folderEntries(dir.path()),
        std::vector<std::string>{QString::fromStdString(name).section('/', -1).toStdString()});
}

INSTANTIATE_TEST_SUITE_P(Formats, FileTypeFault, testing::ValuesIn(allCases()), caseName);

TEST(FileTypeFault, AGoodWriteIsRecordedAsWritten) {
    katest::TempDir dir;
    JournalCapture journal;
    osg::ImageFileType* png = osg::ImageFileHandler::the().getFileType("image/png");
    ASSERT_TRUE(png->write(noiseImage(Image::OSG_UINT8_IMAGEDATA, 16, 16), dir.fileStd("a.png")));
    ASSERT_EQ(journal.entries.size(), 1u);
    EXPECT_EQ(journal.entries[0].fileName, dir.fileStd("a.png"));
    EXPECT_TRUE(journal.entries[0].written);
    EXPECT_TRUE(journal.entries[0].error.empty());
}

class LayeredFault : public testing::TestWithParam<Fault> {
protected:
    katest::TempDir dir;
};

TEST_P(LayeredFault, ALayeredFileFailsWholeAndKeepsTheOldOne) {
    const std::string name = dir.fileStd("passes.exr");
    {
        QFile old(QString::fromStdString(name));
        ASSERT_TRUE(old.open(QIODevice::WriteOnly));
        old.write(kOldBytes);
    }
    osg::ImageFileType* exr = osg::ImageFileHandler::the().getFileType("image/x-exr");
    std::vector<osg::ImagePtr> layers = {noiseImage(Image::OSG_FLOAT32_IMAGEDATA), nullptr,
                                         noiseImage(Image::OSG_FLOAT32_IMAGEDATA)};
    const std::string names[] = {"beauty", "unused", "depth"};
    const Fault fault = GetParam();
    katest::LogCapture log;
    bool written = true;
    {
        kaFaultGuard guard(dir.fileStd("").c_str(), fault.operation, fault.nth, fault.error);
        written = exr->writeLayered(layers[0], name, layers, names);
    }
    EXPECT_FALSE(written);
    EXPECT_TRUE(log.contains(kaLog::Error, "ImageFileType: Couldn't write '" + name +
                                               "': " + std::strerror(fault.error)));
    EXPECT_EQ(katest::fileBytes(QString::fromStdString(name)), kOldBytes);
    EXPECT_EQ(katest::folderEntries(dir.path()), std::vector<std::string>{"passes.exr"});
}

INSTANTIATE_TEST_SUITE_P(Faults, LayeredFault,
                         testing::Values(Fault{"write", ENOSPC, 1}, Fault{"write", ENOSPC, 3},
                                         Fault{"write", EIO, 2}, Fault{"fsync", EIO, 1},
                                         Fault{"close", EIO, 1}, Fault{"rename", ENOSPC, 1}),
                         [](const testing::TestParamInfo<Fault>& info) {
                             return std::string(info.param.operation) +
                                    (info.param.error == EIO ? "EIO" : "ENOSPC") +
                                    std::to_string(info.param.nth);
                         });

// The real thing where the machine allows it: a small disk that is full.
class FileTypeOnFullDisk : public testing::TestWithParam<osg::ImageFileType*> {};

TEST_P(FileTypeOnFullDisk, FailsAndKeepsTheOldFile) {
    katest::SmallDisk disk(1024);
    if (!disk.isMounted())
        GTEST_SKIP() << "no small disk can be mounted here (needs root)";
    osg::ImageFileType* type = GetParam();
    const QString name = disk.file("keep." + QString::fromStdString(type->getSuffixList().front()));
    {
        QFile old(name);
        ASSERT_TRUE(old.open(QIODevice::WriteOnly));
        old.write(kOldBytes);
    }
    ASSERT_TRUE(disk.fill(8192));
    katest::LogCapture log;
    EXPECT_FALSE(type->write(noiseImage(Image::OSG_UINT8_IMAGEDATA), name.toStdString()));
    EXPECT_TRUE(log.contains(kaLog::Error, "ImageFileType: Couldn't write '" + name.toStdString() +
                                               "': " + std::strerror(ENOSPC)));
    EXPECT_EQ(katest::fileBytes(name), kOldBytes);
    EXPECT_EQ(katest::folderEntries(disk.path()),
              (std::vector<std::string>{"filler", name.section('/', -1).toStdString()}));
}

std::vector<osg::ImageFileType*> writableTypes() {
    std::vector<osg::ImageFileType*> types;
    for (osg::ImageFileType* type : osg::ImageFileHandler::the().getFileTypes())
        if (type->getFlags() & osg::ImageFileType::OSG_WRITE_SUPPORTED)
            types.push_back(type);
    return types;
}

INSTANTIATE_TEST_SUITE_P(Formats, FileTypeOnFullDisk, testing::ValuesIn(writableTypes()),
                         [](const testing::TestParamInfo<osg::ImageFileType*>& info) {
                             return info.param->getSuffixList().front();
                         });

// libjpeg ends the whole process on an image it can't hold; such images must never reach it.
TEST(FileTypeLimits, AnImageTooLargeForTheFormatIsRefusedAndTheProgramGoesOn) {
    katest::TempDir dir;
    katest::LogCapture log;
    osg::ImageFileType* jpeg = osg::ImageFileHandler::the().getFileType("image/jpeg");
    const std::string name = dir.fileStd("wide.jpg");
    EXPECT_FALSE(jpeg->write(noiseImage(Image::OSG_UINT8_IMAGEDATA, 70000, 2), name));
    EXPECT_TRUE(log.contains(kaLog::Error, "ImageFileType: Couldn't write '" + name +
                                               "': image/jpeg files hold at most 65500 x 65500 "
                                               "pixels, not 70000 x 2"));
    std::vector<uint8_t> bytes;
    EXPECT_FALSE(jpeg->store(noiseImage(Image::OSG_UINT8_IMAGEDATA, 2, 70000), bytes));
    EXPECT_TRUE(katest::folderEntries(dir.path()).empty());
}
