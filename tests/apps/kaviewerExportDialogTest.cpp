// The export dialogs of the desktop program: the arguments each export has, the size presets,
// the files the export will write as the library names them (existing ones marked) and the
// memory its pictures take.
#include "kaviewerExportDialog.h"

#include "kaImageWriter.h"
#include "kaMessage.h"
#include "kaPreferences.h"
#include "kaRenderPasses.h"
#include "kaTestSupport.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QSpinBox>

#include <boost/any.hpp>

#include <gtest/gtest.h>

namespace {

using kaviewer::ExportDialog;
using kaviewer::ExportKind;
using kaviewer::ExportSettings;

QStringList listed(const ExportDialog& dialog) {
    QStringList names;
    auto* files = dialog.findChild<QListWidget*>("files");
    for (int i = 0; i < files->count(); ++i)
        names << files->item(i)->text();
    return names;
}

ExportSettings settingsFor(const QString& file, int width = 100, int height = 50) {
    ExportSettings s;
    s.fileName = file;
    s.width = width;
    s.height = height;
    return s;
}

// Whether the dialog shows the field called 'name' (and so the export has that argument).
bool shows(const ExportDialog& dialog, const char* name) {
    auto* widget = dialog.findChild<QWidget*>(name);
    return widget && widget->isVisibleTo(&dialog);
}

class ViewerExportDialog : public ::testing::Test {
protected:
    katest::PreferencesGuard _prefs;
    katest::TempDir _dir;
};

TEST_F(ViewerExportDialog, EachExportShowsTheArgumentsItHas) {
    const ExportSettings s = settingsFor(_dir.file("a.png"));
    const ExportDialog snapshot(ExportKind::Snapshot, s, 640, 360);
    const ExportDialog sequence(ExportKind::Sequence, s, 640, 360);
    const ExportDialog movie(ExportKind::Movie, s, 640, 360);
    const ExportDialog fast(ExportKind::FastCapture, s, 640, 360);
    EXPECT_EQ(snapshot.windowTitle(), "Snapshot");
    EXPECT_EQ(sequence.windowTitle(), "Image Sequence");
    EXPECT_EQ(movie.windowTitle(), "Movie");
    EXPECT_EQ(fast.windowTitle(), "Fast Capture");
    for (const ExportDialog* dialog : {&snapshot, &sequence, &movie, &fast}) {
        EXPECT_TRUE(shows(*dialog, "fileName"));
        EXPECT_TRUE(shows(*dialog, "width"));
        EXPECT_TRUE(shows(*dialog, "superSampling"));
        EXPECT_TRUE(shows(*dialog, "files"));
        EXPECT_TRUE(shows(*dialog, "memory"));
    }
    EXPECT_TRUE(shows(snapshot, "dpi"));
    EXPECT_TRUE(shows(snapshot, "passes"));
    EXPECT_TRUE(shows(snapshot, "stereo"));
    EXPECT_FALSE(shows(snapshot, "startFrame"));
    EXPECT_TRUE(shows(sequence, "startFrame"));
    EXPECT_TRUE(shows(sequence, "frameStep"));
    EXPECT_TRUE(shows(sequence, "fps"));
    EXPECT_TRUE(shows(sequence, "alpha"));
    EXPECT_FALSE(shows(sequence, "dpi"));
    EXPECT_TRUE(shows(movie, "startFrame"));
    EXPECT_FALSE(shows(movie, "frameStep"));
    EXPECT_TRUE(shows(movie, "chooseCodec"));
    EXPECT_FALSE(shows(movie, "passes"));
    EXPECT_FALSE(shows(movie, "alpha"));
    EXPECT_TRUE(shows(fast, "captures"));
    EXPECT_FALSE(shows(fast, "fps"));
    // Every render pass can be chosen, by its name.
    auto* passes = snapshot.findChild<QListWidget*>("passes");
    ASSERT_EQ(passes->count(), int(kaRenderPassCount));
    EXPECT_EQ(passes->count(), 47);
    EXPECT_EQ(passes->item(0)->text().toStdString(), kaRenderPassNames[0]);
}

TEST_F(ViewerExportDialog, PresetsSetTheSizeAndFollowIt) {
    ExportDialog dialog(ExportKind::Snapshot, settingsFor(_dir.file("a.png"), 640, 360), 640, 360);
    auto* preset = dialog.findChild<QComboBox*>("preset");
    auto* width = dialog.findChild<QSpinBox*>("width");
    auto* height = dialog.findChild<QSpinBox*>("height");
    EXPECT_EQ(preset->currentText(), "The view's size");
    preset->setCurrentIndex(preset->findText("Full HD 1920 x 1080"));
    emit preset->activated(preset->currentIndex());
    EXPECT_EQ(width->value(), 1920);
    EXPECT_EQ(height->value(), 1080);
    width->setValue(1280);
    EXPECT_EQ(preset->currentText(), "Custom");
    height->setValue(720);
    EXPECT_EQ(preset->currentText(), "HD 1280 x 720");
    EXPECT_EQ(dialog.settings().width, 1280);
    EXPECT_EQ(dialog.settings().height, 720);
}

TEST_F(ViewerExportDialog, ListsTheSnapshotsFilesAsTheLibraryNamesThem) {
    const QString file = _dir.file("shot.png");
    ExportDialog dialog(ExportKind::Snapshot, settingsFor(file), 640, 360);
    EXPECT_EQ(listed(dialog), QStringList{file});
    // Two eyes: a file each; the user's stereo preference is left as it was.
    kaPreferences::getData().set("ImageExport stereo mode", 0);
    auto* stereo = dialog.findChild<QComboBox*>("stereo");
    stereo->setCurrentIndex(1);
    EXPECT_EQ(listed(dialog),
              (QStringList{_dir.file("shot-left.png"), _dir.file("shot-right.png")}));
    EXPECT_EQ(boost::any_cast<int>(kaPreferences::getData().get("ImageExport stereo mode")), 0);
    stereo->setCurrentIndex(0);

    // Passes: one file each, named by the library.
    dialog.findChild<QCheckBox*>("exportPasses")->setChecked(true);
    auto* passes = dialog.findChild<QListWidget*>("passes");
    passes->item(0)->setCheckState(Qt::Checked);
    passes->item(3)->setCheckState(Qt::Checked);
    const kaImageWriter writer;
    EXPECT_EQ(listed(dialog), writer.getExportedImageFilenames(file, {0, 3}, false));
    EXPECT_EQ(dialog.fileNames().size(), 2);

    // A file that is there already is marked: the export will ask.
    dialog.findChild<QCheckBox*>("exportPasses")->setChecked(false);
    ASSERT_TRUE(katest::writeFile(file, "there"));
    dialog.findChild<QLineEdit*>("fileName")->setText(file + " ");
    EXPECT_EQ(listed(dialog), QStringList{file + "  (exists: you will be asked)"});
}

TEST_F(ViewerExportDialog, ListsTheFramesOfASequenceAndTheMoviesFile) {
    ExportSettings s = settingsFor(_dir.file("walk.png"));
    s.startFrame = 2;
    s.stopFrame = 7;
    s.frameStep = 2;
    const ExportDialog sequence(ExportKind::Sequence, s, 640, 360);
    EXPECT_EQ(listed(sequence),
              (QStringList{_dir.file("walk-00002.png"), _dir.file("walk-00004.png"),
                           _dir.file("walk-00006.png")}));
    s.fileName = _dir.file("film");
    const ExportDialog movie(ExportKind::Movie, s, 640, 360);
    EXPECT_EQ(listed(movie), QStringList{_dir.file("film.avi")});
    s.fileName = _dir.file("film.mp4");
    const ExportDialog mp4(ExportKind::Movie, s, 640, 360);
    EXPECT_EQ(listed(mp4), QStringList{_dir.file("film.mp4")});
}

TEST_F(ViewerExportDialog, ListsNumberedCapturesShortenedWhenMany) {
    ExportSettings s = settingsFor(_dir.file("cap.png"));
    s.captures = 1;
    EXPECT_EQ(listed(ExportDialog(ExportKind::FastCapture, s, 640, 360)),
              QStringList{_dir.file("cap.png")});
    s.captures = 3;
    EXPECT_EQ(listed(ExportDialog(ExportKind::FastCapture, s, 640, 360)),
              (QStringList{_dir.file("cap-00000.png"), _dir.file("cap-00001.png"),
                           _dir.file("cap-00002.png")}));
    s.captures = 10;
    EXPECT_EQ(
        listed(ExportDialog(ExportKind::FastCapture, s, 640, 360)),
        (QStringList{_dir.file("cap-00000.png"), _dir.file("cap-00001.png"),
                     _dir.file("cap-00002.png"), "... 6 more ...", _dir.file("cap-00009.png")}));
}

TEST_F(ViewerExportDialog, EstimatesTheMemoryOfThePicturesAtATime) {
    ExportSettings s = settingsFor(_dir.file("m.png"), 1000, 500);
    const ExportDialog png(ExportKind::Snapshot, s, 640, 360);
    EXPECT_DOUBLE_EQ(png.memoryEstimate(), 1000.0 * 500.0 * 3.0);
    // Its one float tile fits the default budget of 2048 MB.
    EXPECT_DOUBLE_EQ(png.tileEstimate(), 1000.0 * 500.0 * 16.0);
    EXPECT_EQ(png.findChild<QLabel*>("memory")->text(),
              "1.4 MB of pictures at a time, and up to 7.6 MB of tiles while they render");
    s.fileName = _dir.file("m.exr");
    s.alpha = true;
    s.stereoMode = 1; // two pictures, float with alpha
    const ExportDialog exr(ExportKind::Snapshot, s, 640, 360);
    EXPECT_DOUBLE_EQ(exr.memoryEstimate(), 2.0 * 1000.0 * 500.0 * 4.0 * 4.0);
    // A sequence holds one frame's pictures at a time, however many frames it has.
    s.stereoMode = 0;
    s.startFrame = 0;
    s.stopFrame = 9;
    const ExportDialog sequence(ExportKind::Sequence, s, 640, 360);
    EXPECT_DOUBLE_EQ(sequence.memoryEstimate(), 1000.0 * 500.0 * 4.0 * 4.0);

    // Tiles of a large picture stay within the budget; three passes render three tiles.
    kaPreferences::getData().set("Image Export Max Framebuffer Memory", 64);
    s.width = s.height = 16384;
    s.exportPasses = true;
    s.passes = {0, 1, 2};
    const ExportDialog large(ExportKind::Snapshot, s, 640, 360);
    EXPECT_DOUBLE_EQ(large.tileEstimate(), 64.0 * 1024.0 * 1024.0);
    s.width = s.height = 1024;
    const ExportDialog small(ExportKind::Snapshot, s, 640, 360);
    EXPECT_DOUBLE_EQ(small.tileEstimate(), 1024.0 * 1024.0 * 3.0 * 16.0);
}

} // namespace
