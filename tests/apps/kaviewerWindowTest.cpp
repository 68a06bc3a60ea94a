// The desktop program's main window as a person uses it: the view shows the scene as a
// snapshot of its size writes it, the mouse moves the camera, the Export menu's dialog runs the
// library's snapshot, whose questions and Abort button are answered with the mouse, and the
// view is the same after every export.
#include "kaviewerExportDialog.h"
#include "kaviewerWindowFixture.h"

#include "kaController.h"
#include "kaImageRenderWidget.h"
#include "kaMessage.h"
#include "kaOSGWidget.h"
#include "kaPreferences.h"
#include "kaRenderParameter.h"
#include "kaTestSupport.h"

#include <QApplication>
#include <QComboBox>
#include <QFile>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QMouseEvent>
#include <QProgressBar>
#include <QTimer>
#include <QtTest/QTest>

#include <gtest/gtest.h>

#include <boost/any.hpp>

#include <cstdlib>
#include <thread>

using kaviewertest::BoxAnswerer;
using kaviewertest::largestDifference;
using kaviewertest::waitUntil;

namespace {

using ViewerWindow = ViewerWindowTest;

TEST_F(ViewerWindow, IsTheHostsMainWindowWithItsMainView) {
    EXPECT_EQ(kaController::getMainWindow(), _window.get());
    EXPECT_EQ(kaOSGWidget::getMGLW(-1), &_window->hostView());
    EXPECT_EQ(_window->hostView().width(), _window->view().width());
    EXPECT_EQ(_window->hostView().height(), _window->view().height());
    // The built-in scene: ground, sky, objects in many shades.
    EXPECT_GT(kaviewertest::colourCount(picture(), 2), 200);
}

TEST_F(ViewerWindow, ViewEqualsASnapshotOfItsSizeAndIsTheSameAfterIt) {
    const QImage before = picture();
    const QString file = _dir.file("view.png");
    _window->runExport(kaviewer::ExportKind::Snapshot, pngOfTheView(file));
    EXPECT_EQ(largestDifference(before, file), 0);
    EXPECT_EQ(kaviewertest::pictureDifference(picture(), before), "the same");
    EXPECT_FALSE(_window->findChild<QProgressBar*>("progress")->isVisible());
    const QString status = _window->findChild<QLabel*>("status")->text();
    EXPECT_TRUE(status.startsWith("Wrote " + file + " in ")) << status.toStdString();
}

TEST_F(ViewerWindow, StatusBarFollowsTheRendersProgress) {
    auto* bar = _window->findChild<QProgressBar*>("progress");
    EXPECT_FALSE(bar->isVisible());
    kaController::setImageRenderProgress(0.25);
    EXPECT_TRUE(bar->isVisible());
    EXPECT_EQ(bar->value(), 250);
    // From a render thread it arrives through the event loop.
    std::thread([] { kaController::setImageRenderProgress(0.5); }).join();
    ASSERT_TRUE(waitUntil([&] { return bar->value() == 500; }));
    kaController::setImageRenderProgress(1.0);
    EXPECT_FALSE(bar->isVisible());
}

TEST_F(ViewerWindow, SnapshotFromTheExportMenusDialog) {
    const QString file = _dir.file("fromMenu.png");
    QAction* snapshot = _window->findChild<QAction*>("snapshot");
    ASSERT_NE(snapshot, nullptr);
    EXPECT_EQ(snapshot->shortcut(), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S));
    QStringList listed;
    EXPECT_TRUE(kaviewertest::exportThroughDialog(
        _window.get(), Qt::Key_S, [&](kaviewer::ExportDialog& dialog) {
            kaviewertest::typeInto(&dialog, "fileName", file);
            // The view's own size, from the presets.
            auto* preset = dialog.findChild<QComboBox*>("preset");
            preset->setCurrentIndex(0);
            emit preset->activated(0);
            dialog.findChild<QComboBox*>("superSampling")->setCurrentIndex(0);
            auto* files = dialog.findChild<QListWidget*>("files");
            for (int i = 0; i < files->count(); ++i)
                listed << files->item(i)->text();
        }));
    EXPECT_EQ(listed, QStringList{file});
    EXPECT_TRUE(QFile::exists(file));
    EXPECT_EQ(largestDifference(picture(), file), 0);
}

TEST_F(ViewerWindow, OverwriteQuestionAnsweredBothWays) {
    const QString file = _dir.file("existing.png");
    ASSERT_TRUE(katest::writeFile(file, "the user's file"));
    {
        BoxAnswerer no("No");
        _window->runExport(kaviewer::ExportKind::Snapshot, pngOfTheView(file));
        EXPECT_TRUE(no.answered());
        EXPECT_EQ(no.text(),
                  QString("The file '%1' already exists.\nDo you want to replace it?").arg(file));
    }
    EXPECT_EQ(katest::fileBytes(file), QByteArray("the user's file"));
    {
        BoxAnswerer yes("Yes");
        _window->runExport(kaviewer::ExportKind::Snapshot, pngOfTheView(file));
        EXPECT_TRUE(yes.answered());
    }
    EXPECT_EQ(largestDifference(picture(), file), 0);
}

TEST_F(ViewerWindow, DraggingTurnsTheCameraAndTheSnapshotFollows) {
    const QImage before = picture();
    kaviewer::View& view = _window->view();
    const int count = view.pictureCount();
    QTest::mousePress(&view, Qt::LeftButton, Qt::NoModifier, QPoint(160, 90));
    // Moves with the button held, as the window system delivers them (QTest's own moves only
    // place the cursor).
    for (const QPoint& at : {QPoint(200, 90), QPoint(240, 100)}) {
        QMouseEvent move(QEvent::MouseMove, at, view.mapToGlobal(at), Qt::NoButton, Qt::LeftButton,
                         Qt::NoModifier);
        QApplication::sendEvent(&view, &move);
    }
    QTest::mouseRelease(&view, Qt::LeftButton, Qt::NoModifier, QPoint(240, 100));
    EXPECT_GT(view.pictureCount(), count);
    EXPECT_NE(kaviewertest::pictureDifference(picture(), before), "the same");
    // The wheel moves closer: the picture changes again.
    const QImage turned = picture();
    QWheelEvent wheel(QPointF(160, 90), view.mapToGlobal(QPoint(160, 90)), QPoint(), QPoint(0, 240),
                      Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(&view, &wheel);
    EXPECT_NE(kaviewertest::pictureDifference(picture(), turned), "the same");
    const QString file = _dir.file("turned.png");
    _window->runExport(kaviewer::ExportKind::Snapshot, pngOfTheView(file));
    EXPECT_EQ(largestDifference(picture(), file), 0);
}

TEST_F(ViewerWindow, AbortInTheRenderDialogWritesNothingAndKeepsTheView) {
    const QImage before = picture();
    kaviewertest::RenderAborter aborter;
    kaviewer::ExportSettings s = pngOfTheView(_dir.file("aborted.png"));
    s.raytracing = true;
    s.samples = 100000; // far longer than the test waits
    s.width = 1600;
    s.height = 900;
    _window->runExport(kaviewer::ExportKind::Snapshot, s);
    EXPECT_TRUE(aborter.clicked());
    EXPECT_FALSE(QFile::exists(s.fileName));
    EXPECT_EQ(_window->findChild<QLabel*>("status")->text(), "The export was aborted");
    // The view is drawn as before, with OpenGL.
    EXPECT_FALSE(kaOSGWidget::getRaytracing());
    EXPECT_EQ(kaviewertest::pictureDifference(picture(), before), "the same");
}

TEST_F(ViewerWindow, OpensSceneFilesAndRemembersThem) {
    const QString scene = _dir.file("animated.gltf");
    ASSERT_TRUE(katest::writeFile(scene, katest::animatedGltf()));
    const QImage builtin = picture();
    ASSERT_TRUE(_window->openScene(scene));
    EXPECT_EQ(_window->sceneFile(), scene);
    EXPECT_TRUE(_window->windowTitle().contains("animated.gltf"));
    EXPECT_NE(kaviewertest::pictureDifference(picture(), builtin), "the same");
    auto* recent = _window->findChild<QMenu*>("recent");
    ASSERT_NE(recent, nullptr);
    ASSERT_EQ(recent->actions().size(), 1);
    EXPECT_EQ(recent->actions().front()->text(), "animated.gltf");

    // A file that isn't a scene: a warning a person closes, the scene shown stays.
    const QString bad = _dir.file("broken.gltf");
    ASSERT_TRUE(katest::writeFile(bad, "{ not json"));
    const QImage shown = picture();
    BoxAnswerer ok("OK");
    EXPECT_FALSE(_window->openScene(bad));
    EXPECT_TRUE(ok.answered());
    EXPECT_TRUE(ok.text().startsWith("Couldn't open '" + bad + "'")) << ok.text().toStdString();
    EXPECT_TRUE(_window->logText().contains("Couldn't open '" + bad + "'"));
    EXPECT_EQ(_window->sceneFile(), scene);
    EXPECT_EQ(kaviewertest::pictureDifference(picture(), shown), "the same");
}

TEST_F(ViewerWindow, SwitchesLeftChangedShowOverTheView) {
    kaviewer::View& view = _window->view();
    EXPECT_TRUE(view.unusualState().isEmpty()) << view.unusualState().join("; ").toStdString();
    _window->hostView().setSnapshotMode(true);
    _window->hostView().getBackground()->setAlpha(0.0f);
    EXPECT_EQ(view.unusualState(), (QStringList{"Snapshot mode", "Background alpha 0"}));
    // Drawn over the picture on the screen, not into it.
    const QImage before = picture();
    const QImage shown = view.grab().toImage();
    EXPECT_NE(kaviewertest::pictureDifference(shown.convertToFormat(QImage::Format_RGB32), before),
              "the same");
    _window->hostView().setSnapshotMode(false);
    _window->hostView().getBackground()->setAlpha(1.0f);

    // Every export puts the view's switches back: none shows afterwards.
    kaviewer::ExportSettings s = pngOfTheView(_dir.file("eyes.png"));
    s.stereoMode = 1;
    s.alpha = true;
    _window->runExport(kaviewer::ExportKind::Snapshot, s);
    EXPECT_TRUE(QFile::exists(_dir.file("eyes-left.png")));
    EXPECT_TRUE(view.unusualState().isEmpty()) << view.unusualState().join("; ").toStdString();
    EXPECT_EQ(kaviewertest::pictureDifference(picture(), before), "the same");
}

TEST_F(ViewerWindow, RaytracedSnapshotOnTheRenderCluster) {
    setenv("OMPI_ALLOW_RUN_AS_ROOT", "1", 1);
    setenv("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "1", 1);
    const QImage before = picture();
    kaviewer::ExportSettings s = pngOfTheView(_dir.file("cluster.png"));
    s.width = 160;
    s.height = 90;
    s.raytracing = true;
    s.samples = 1;
    s.cluster = "localhost:2";
    bool clusterDialogSeen = false;
    QTimer poll;
    poll.setInterval(20);
    QObject::connect(&poll, &QTimer::timeout, [&] {
        for (QWidget* widget : QApplication::topLevelWidgets())
            clusterDialogSeen = clusterDialogSeen ||
                                (widget->inherits("kaSnapshotProgressGUII") && widget->isVisible());
    });
    poll.start();
    _window->runExport(kaviewer::ExportKind::Snapshot, s);
    poll.stop();
    EXPECT_TRUE(clusterDialogSeen);
    EXPECT_EQ(katest::imagePixels(s.fileName).size(), size_t(160 * 90 * 3));
    EXPECT_FALSE(kaOSGWidget::getRaytracing());
    EXPECT_EQ(kaviewertest::pictureDifference(picture(), before), "the same");
}

TEST_F(ViewerWindow, DialogsStartFromThePreferencesAndLeaveThemAsTheyWere) {
    kaMessage& prefs = kaPreferences::getData();
    prefs.set("MovieExport fps", 30);
    prefs.set("MovieExport stop frame", 48);
    prefs.set("ImageExport stereo mode", 1);
    kaviewer::ExportSettings offered;
    kaviewertest::ExportDialogWatcher watcher([&](kaviewer::ExportDialog& dialog) {
        offered = dialog.settings();
        dialog.reject();
    });
    _window->askForExport(kaviewer::ExportKind::Sequence);
    EXPECT_TRUE(watcher.seen());
    EXPECT_EQ(offered.fps, 30);
    EXPECT_EQ(offered.stopFrame, 48);
    EXPECT_EQ(offered.stereoMode, 1);
    EXPECT_EQ(offered.width, _window->hostView().width());

    // A mono snapshot chosen in a dialog is that snapshot's: the preference stays two eyes.
    _window->runExport(kaviewer::ExportKind::Snapshot, pngOfTheView(_dir.file("mono.png")));
    EXPECT_TRUE(QFile::exists(_dir.file("mono.png")));
    EXPECT_EQ(boost::any_cast<int>(prefs.get("ImageExport stereo mode")), 1);
}

} // namespace
