// The desktop program on a real X server, as a person sees it: the main window with the scene,
// the snapshot dialog opened from the keyboard, the library's render dialog aborted with its
// button, and a snapshot whose file equals what the screen shows of the view. Screenshots of
// the main window, the snapshot dialog and the render dialog are kept as test artefacts.
#include "kaviewerExportDialog.h"
#include "kaviewerWindowFixture.h"

#include "kaRenderParameter.h"
#include "kaXvfb.h"

#include <QApplication>
#include <QComboBox>
#include <QFile>
#include <QLineEdit>
#include <QScreen>

namespace {

using kaviewertest::colourCount;
using kaviewertest::largestDifference;
using kaviewertest::waitUntil;

QImage screenshotOf(QWidget* window) {
    return window->screen()
        ->grabWindow(window->winId())
        .toImage()
        .convertToFormat(QImage::Format_RGB32);
}

using ViewerOnX = ViewerWindowTest;

TEST_F(ViewerOnX, DISABLED_ChildShowsTheViewAndItsDialogs) {
    const QString artefacts = qEnvironmentVariable("KA_ARTEFACTS");
    if (artefacts.isEmpty())
        GTEST_SKIP() << "run by ViewerOnX.MainWindowDialogsAndSnapshotAsSeen";
    ASSERT_EQ(QGuiApplication::platformName(), "xcb");
    _window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(_window.get()));
    QTest::qWait(200); // the window manager-less server draws at once; a moment for the paint

    // The main window as the screen shows it, its view being the picture of the scene.
    const QImage window = screenshotOf(_window.get());
    window.save(artefacts + "/kaviewerMainWindow.png", "PNG");
    kaviewer::View& view = _window->view();
    const QRect viewRect(view.mapTo(_window.get(), QPoint(0, 0)), view.size());
    EXPECT_GT(colourCount(window.copy(viewRect), 2), 200);
    EXPECT_EQ(kaviewertest::pictureDifference(window.copy(viewRect), picture()), "the same");
    const QImage before = picture();

    // A long raytraced snapshot, aborted with the render dialog's button once it is seen.
    kaviewertest::RenderAborter aborter([&](QWidget& dialog) {
        QTest::qWait(300);
        screenshotOf(&dialog).save(artefacts + "/kaviewerRenderDialog.png", "PNG");
    });
    kaviewer::ExportSettings longRender = pngOfTheView(_dir.file("aborted.png"));
    longRender.raytracing = true;
    longRender.samples = 100000;
    longRender.width = 1280;
    longRender.height = 720;
    _window->runExport(kaviewer::ExportKind::Snapshot, longRender);
    EXPECT_TRUE(aborter.clicked());
    EXPECT_FALSE(QFile::exists(longRender.fileName));

    // The snapshot dialog from the keyboard shortcut; its file equals the view on the screen.
    const QString file = _dir.file("asSeen.png");
    // The render dialog had the keyboard: the main window takes it back.
    EXPECT_TRUE(kaviewertest::exportThroughDialog(
        _window.get(), Qt::Key_S, [&](kaviewer::ExportDialog& dialog) {
            QTest::qWait(200);
            const QImage shot = screenshotOf(&dialog);
            shot.save(artefacts + "/kaviewerSnapshotDialog.png", "PNG");
            EXPECT_GT(colourCount(shot, 1), 8) << "the dialog's screenshot is blank";
            kaviewertest::typeInto(&dialog, "fileName", file);
            // As the view draws: one sample a pixel.
            dialog.findChild<QComboBox*>("superSampling")->setCurrentIndex(0);
        }));
    ASSERT_TRUE(QFile::exists(file));
    QTest::qWait(200);
    const QImage after = screenshotOf(_window.get());
    EXPECT_EQ(largestDifference(after.copy(viewRect), file), 0);
    EXPECT_EQ(kaviewertest::pictureDifference(after.copy(viewRect), before), "the same");
}

class ViewerOnXServer : public katest::OnXServer {};

TEST_F(ViewerOnXServer, MainWindowDialogsAndSnapshotAsSeen) {
    const QString& artefacts = this->artefacts();
    const QStringList shots{"kaviewerMainWindow.png", "kaviewerRenderDialog.png",
                            "kaviewerSnapshotDialog.png"};
    for (const QString& shot : shots)
        QFile::remove(artefacts + "/" + shot);
    QProcessEnvironment env;
    env.insert("KA_ARTEFACTS", artefacts);
    const katest::ChildRun run = katest::runTestOnDisplay(
        server().display(), "ViewerOnX.DISABLED_ChildShowsTheViewAndItsDialogs", env, 120000);
    EXPECT_TRUE(run.passed()) << run.output;
    // The artefacts, read back: pictures with something in them.
    for (const QString& shot : shots) {
        const QImage image(artefacts + "/" + shot, "PNG");
        ASSERT_FALSE(image.isNull()) << shot.toStdString();
        EXPECT_GE(image.width(), 200) << shot.toStdString();
        EXPECT_GT(colourCount(image, 2), 8) << shot.toStdString();
    }
}

} // namespace
