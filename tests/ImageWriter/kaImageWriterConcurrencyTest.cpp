// The save path on background threads while the GUI thread goes on: preferences changed and
// reloaded, events pumped. Run under the thread sanitizer, any race in the host services the
// save steps call is a failure; every file must be whole and every JPEG written at one of the
// qualities the preference held.
#include "WriteImageTask.h"
#include "kaImageWriter.h"

#include "filetypes/OSGJPGImageFileType.h"
#include "kaPreferenceKeys.h"
#include "kaPreferences.h"
#include "kaTestSupport.h"

#include <OpenImageIO/imageio.h>

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using osg::Image;

namespace {

osg::ImagePtr picture(int seed) {
    osg::ImagePtr image = Image::create();
    image->set(Image::OSG_RGB_PF, 160, 120, 1, 1, 1, 0.0, nullptr, Image::OSG_UINT8_IMAGEDATA);
    for (int y = 0; y < 120; ++y)
        for (int x = 0; x < 160; ++x)
            image->setPixel(x, y, {float((x * seed) % 160) / 160.0f, float(y) / 120.0f, 0.5f, 1});
    return image;
}

// The first value of a JPEG file's first quantisation table (the luminance DC step), which
// the quality sets: libjpeg scales its standard table, whose first entry is 16.
int luminanceDcStep(const QByteArray& jpeg) {
    // Marker segments from the start of the file: FF, the marker, a big-endian length.
    for (int i = 2; i + 5 < jpeg.size();) {
        if (uchar(jpeg[i]) != 0xFF)
            return -1;
        const int marker = uchar(jpeg[i + 1]);
        const int length = uchar(jpeg[i + 2]) << 8 | uchar(jpeg[i + 3]);
        if (marker == 0xDB)
            return uchar(jpeg[i + 5]);
        i += 2 + length;
    }
    return -1;
}

int dcStepForQuality(int quality) {
    const int scale = quality < 50 ? 5000 / quality : 200 - quality * 2;
    return std::max(1, (16 * scale + 50) / 100);
}

bool readsWhole(const std::string& name) {
    auto in = OIIO::ImageInput::open(name);
    if (!in)
        return false;
    std::vector<float> pixels(size_t(in->spec().image_pixels()) * size_t(in->spec().nchannels));
    return in->read_image(0, 0, 0, in->spec().nchannels, OIIO::TypeDesc::FLOAT, pixels.data());
}

} // namespace

TEST(SaveConcurrency, BackgroundWritesWhileTheGuiChangesPreferencesAndPumpsEvents) {
    katest::PreferencesGuard guard;
    katest::TempDir dir;
    kaImageWriter writer;
    writer.setMetaDataFlags(8);
    constexpr int kQualities[] = {20, 95};
    kaPreferences::getData().set("ImageExport quality", kQualities[0]);

    WriteImageTask task(&writer, 150.0f, false);
    std::vector<std::string> names;
    for (int i = 0; i < 24; ++i) {
        const char* extension = i % 3 == 0 ? "jpg" : i % 3 == 1 ? "png" : "exr";
        const char* type = i % 3 == 0 ? "JPEG" : i % 3 == 1 ? "PNG" : "EXR";
        names.push_back(dir.fileStd(QString("pass%1.%2").arg(i).arg(extension)));
        task.addImage(picture(i + 1), names.back(), type, false);
    }
    std::atomic<bool> done{false};
    int status = -1;
    std::thread writing([&] {
        status = task.write();
        done = true;
    });
    // The GUI thread meanwhile: a "--set", a reload of the whole store, events.
    for (int round = 0; !done; ++round) {
        kaPreferences::getData().set("ImageExport quality", kQualities[round % 2]);
        if (round % 7 == 0) {
            kaMessage reloaded = kaPreferenceKeys::defaults();
            reloaded.set("ImageExport quality", kQualities[(round + 1) % 2]);
            kaPreferences::getData() = reloaded;
        }
        QCoreApplication::processEvents();
    }
    writing.join();
    EXPECT_EQ(status, 0);

    for (const std::string& name : names) {
        EXPECT_TRUE(readsWhole(name)) << name;
        if (QString::fromStdString(name).endsWith(".jpg")) {
            const int step = luminanceDcStep(katest::fileBytes(QString::fromStdString(name)));
            EXPECT_TRUE(step == dcStepForQuality(kQualities[0]) ||
                        step == dcStepForQuality(kQualities[1]))
                << name << ": quantisation step " << step;
        }
    }
    EXPECT_EQ(katest::folderEntries(dir.path()).size(), names.size()) << "no temporary files";
}

TEST(SaveConcurrency, AThreadWritesJpegsWithTheQualityItSetWhateverOthersSet) {
    katest::TempDir dir;
    osg::JPGImageFileType& jpeg = osg::JPGImageFileType::the();
    const uint32_t saved = jpeg.getQuality();
    jpeg.setQuality(20);
    std::atomic<bool> done{false};
    // Another writer sets and restores its own quality all the while.
    std::thread changing([&] {
        for (int round = 0; !done; ++round)
            jpeg.setQuality(round % 2 ? 95 : 60);
    });
    for (int i = 0; i < 20; ++i) {
        const std::string name = dir.fileStd(QString("q%1.jpg").arg(i));
        ASSERT_TRUE(jpeg.write(picture(i + 1), name));
        EXPECT_EQ(luminanceDcStep(katest::fileBytes(QString::fromStdString(name))),
                  dcStepForQuality(20));
    }
    done = true;
    changing.join();
    // A thread that never set one writes with the quality set last.
    jpeg.setQuality(95);
    std::thread fresh([&] {
        ASSERT_TRUE(jpeg.write(picture(3), dir.fileStd("fresh.jpg")));
        EXPECT_EQ(jpeg.getQuality(), 95u);
    });
    fresh.join();
    EXPECT_EQ(luminanceDcStep(katest::fileBytes(dir.file("fresh.jpg"))), dcStepForQuality(95));
    jpeg.setQuality(saved);
}
