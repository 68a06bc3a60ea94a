// Time in the desktop program: the timeline plays the animation and the simulation, and the
// animation exports (sequence, movie, fast captures) run from their dialogs' settings and
// leave the scene at the moment the view showed.
#include "kaviewerTimeline.h"
#include "kaviewerWindowFixture.h"

#include "kaAnimManager.h"
#include "kaExportProbes.h"
#include "kaSimulationTime.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QFile>
#include <QLabel>
#include <QSlider>
#include <QSpinBox>
#include <QTimer>
#include <QToolButton>

namespace {

using kaviewertest::BoxAnswerer;
using kaviewertest::pictureDifference;
using kaviewertest::waitUntil;
using ViewerTime = ViewerWindowTest;

TEST_F(ViewerTime, PlayingStepsFramesAndTheSimulation) {
    kaviewer::Timeline& timeline = _window->timeline();
    EXPECT_EQ(timeline.frame(), 0);
    EXPECT_EQ(kaController::getSimulationTimer()->get(), 0.0);
    const double start = kaController::getSimulationTimer()->get();
    const QImage first = picture();
    // The play button, pressed as a person would.
    QTest::mouseClick(timeline.findChild<QToolButton*>("play"), Qt::LeftButton);
    EXPECT_TRUE(timeline.isPlaying());
    ASSERT_TRUE(waitUntil([&] { return timeline.frame() >= 5; }));
    QTest::mouseClick(timeline.findChild<QToolButton*>("play"), Qt::LeftButton);
    EXPECT_FALSE(timeline.isPlaying());
    const int frame = timeline.frame();
    EXPECT_NEAR(kaController::getSimulationTimer()->get() - start,
                double(frame) / kaAnimManager::getFramesPerSecond(), 1e-9);
    EXPECT_EQ(timeline.findChild<QLabel*>("frame")->text(), QString("Frame %1").arg(frame));
    EXPECT_EQ(timeline.findChild<QSlider*>("frameSlider")->value(), frame);
    EXPECT_NE(pictureDifference(picture(), first), "the same");
}

TEST_F(ViewerTime, TheSliderShowsAFrameWithoutSimulating) {
    kaviewer::Timeline& timeline = _window->timeline();
    const double time = kaController::getSimulationTimer()->get();
    const QImage first = picture();
    auto* slider = timeline.findChild<QSlider*>("frameSlider");
    slider->setValue(50);
    EXPECT_EQ(timeline.frame(), 50);
    EXPECT_EQ(kaController::getSimulationTimer()->get(), time);
    // The keyframed box has moved.
    EXPECT_NE(pictureDifference(picture(), first), "the same");
    timeline.goTo(0);
    EXPECT_EQ(pictureDifference(picture(), first), "the same");
}

TEST_F(ViewerTime, SequenceWritesItsFramesAndLeavesTheViewAsItWas) {
    kaviewer::Timeline& timeline = _window->timeline();
    for (int i = 0; i < 12; ++i)
        timeline.step(); // the balls are in flight
    const QImage before = picture();
    const double time = kaController::getSimulationTimer()->get();
    kaviewer::ExportSettings s = pngOfTheView(_dir.file("walk.png"));
    s.width = 160;
    s.height = 90;
    s.startFrame = 0;
    s.stopFrame = 4;
    s.frameStep = 2;
    _window->runExport(kaviewer::ExportKind::Sequence, s);
    for (const char* name : {"walk-00000.png", "walk-00002.png", "walk-00004.png"})
        EXPECT_TRUE(QFile::exists(_dir.file(name))) << name;
    EXPECT_FALSE(QFile::exists(_dir.file("walk-00001.png")));
    EXPECT_EQ(timeline.frame(), 12);
    EXPECT_DOUBLE_EQ(kaController::getSimulationTimer()->get(), time);
    EXPECT_EQ(pictureDifference(picture(), before), "the same");
    EXPECT_EQ(_window->findChild<QLabel*>("status")->text().section(" in ", 0, 0), "Wrote 3 files");
}

TEST_F(ViewerTime, MovieWithTheCodecChosenInTheSystemsDialog) {
    const QImage before = picture();
    kaviewer::ExportSettings s = pngOfTheView(_dir.file("film.avi"));
    s.width = 160;
    s.height = 120;
    s.startFrame = 0;
    s.stopFrame = 4;
    s.fps = 25;
    s.chooseCodec = true;
    bool asked = false;
    QTimer poll;
    poll.setInterval(50);
    QObject::connect(&poll, &QTimer::timeout, [&] {
        for (QWidget* widget : QApplication::topLevelWidgets())
            if (widget->objectName() == "VideoCompressionDialog" && widget->isVisible() && !asked) {
                asked = true;
                for (QAbstractButton* button : widget->findChildren<QAbstractButton*>())
                    if (button->text().remove('&') == "OK")
                        QTest::mouseClick(button, Qt::LeftButton);
            }
    });
    poll.start();
    _window->runExport(kaviewer::ExportKind::Movie, s);
    poll.stop();
    EXPECT_TRUE(asked) << "the codec dialog did not show";
    const auto video = katest::probeVideo(s.fileName);
    EXPECT_EQ(video.count("width") ? video.at("width") : "", "160");
    EXPECT_EQ(video.count("height") ? video.at("height") : "", "120");
    EXPECT_EQ(video.count("nb_read_frames") ? video.at("nb_read_frames") : "", "5");
    EXPECT_EQ(pictureDifference(picture(), before), "the same");
}

TEST_F(ViewerTime, FastCapturesAskOnceBeforeReplacingFiles) {
    kaviewer::ExportSettings s = pngOfTheView(_dir.file("cap.png"));
    s.width = 160;
    s.height = 90;
    s.captures = 3;
    _window->runExport(kaviewer::ExportKind::FastCapture, s);
    for (const char* name : {"cap-00000.png", "cap-00001.png", "cap-00002.png"})
        EXPECT_TRUE(QFile::exists(_dir.file(name))) << name;
    ASSERT_TRUE(katest::writeFile(_dir.file("cap-00001.png"), "kept"));
    {
        BoxAnswerer no("No");
        _window->runExport(kaviewer::ExportKind::FastCapture, s);
        EXPECT_EQ(no.text(),
                  "3 of the 3 capture files already exist.\nDo you want to replace them?");
    }
    EXPECT_EQ(katest::fileBytes(_dir.file("cap-00001.png")), QByteArray("kept"));
    {
        BoxAnswerer yes("Yes");
        _window->runExport(kaviewer::ExportKind::FastCapture, s);
        EXPECT_TRUE(yes.answered());
    }
    EXPECT_EQ(katest::imagePixels(_dir.file("cap-00001.png")).size(), size_t(160 * 90 * 3));
}

// Fills an animation export's dialog: the file, the size, frames 0 to 2.
void fillAnimationDialog(kaviewer::ExportDialog& dialog, const QString& file, int width,
                         int height) {
    kaviewertest::typeInto(&dialog, "fileName", file);
    dialog.findChild<QSpinBox*>("width")->setValue(width);
    dialog.findChild<QSpinBox*>("height")->setValue(height);
    dialog.findChild<QSpinBox*>("startFrame")->setValue(0);
    dialog.findChild<QSpinBox*>("stopFrame")->setValue(2);
}

TEST_F(ViewerTime, SequenceAndMovieFromTheirDialogs) {
    const QString frames = _dir.file("menu.png");
    EXPECT_TRUE(kaviewertest::exportThroughDialog(
        _window.get(), Qt::Key_I, [&](kaviewer::ExportDialog& dialog) {
            EXPECT_EQ(dialog.kind(), kaviewer::ExportKind::Sequence);
            fillAnimationDialog(dialog, frames, 160, 90);
        }));
    for (const char* name : {"menu-00000.png", "menu-00001.png", "menu-00002.png"})
        EXPECT_TRUE(QFile::exists(_dir.file(name))) << name;

    const QString movie = _dir.file("menu.mp4");
    EXPECT_TRUE(kaviewertest::exportThroughDialog(
        _window.get(), Qt::Key_M, [&](kaviewer::ExportDialog& dialog) {
            EXPECT_EQ(dialog.kind(), kaviewer::ExportKind::Movie);
            fillAnimationDialog(dialog, movie, 160, 120);
            // The platform's default codec, not the system's dialog.
            auto* choose = dialog.findChild<QCheckBox*>("chooseCodec");
            QTest::mouseClick(choose, Qt::LeftButton, {}, QPoint(8, choose->height() / 2));
            EXPECT_FALSE(choose->isChecked());
        }));
    const auto video = katest::probeVideo(movie);
    EXPECT_EQ(video.count("nb_read_frames") ? video.at("nb_read_frames") : "", "3");
    EXPECT_EQ(video.count("width") ? video.at("width") : "", "160");
}

} // namespace
