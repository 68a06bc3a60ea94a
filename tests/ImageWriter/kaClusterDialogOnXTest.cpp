// The cluster snapshot's dialog on a real X server, while a real cluster renders: the live
// preview shows the picture as it comes, zooms under the mouse, and Abort asks about the
// queued render jobs, answered either way. Screenshots are kept as test artefacts.
#include "kaImageViewer.h"
#include "kaImageWriter.h"
#include "kaSnapshotProgressGUII.h"

#include "kaBuiltinScene.h"
#include "kaClusterService.h"
#include "kaController.h"
#include "kaImageRenderWidget.h"
#include "kaOSGWidget.h"
#include "kaRenderParameter.h"
#include "kaTestSupport.h"
#include "kaXvfb.h"

#include <QApplication>
#include <QFile>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QTimer>
#include <QWindow>
#include <QtTest/QTest>

#include <gtest/gtest.h>

namespace {

kaSnapshotProgressGUII* clusterDialog() {
    for (QWidget* widget : QApplication::topLevelWidgets())
        if (auto* dialog = qobject_cast<kaSnapshotProgressGUII*>(widget))
            if (dialog->isVisible())
                return dialog;
    return nullptr;
}

// Pixels of the picture (not black, not the grey of the zoom's outside) in the viewer's image.
int pictureCells(const QImage& image) {
    int cells = 0;
    for (int y = 0; y < image.height(); y += 4)
        for (int x = 0; x < image.width(); x += 4) {
            const QRgb p = image.pixel(x, y);
            if ((p & 0xFFFFFF) != 0 && (p & 0xFFFFFF) != 0x646464)
                ++cells;
        }
    return cells;
}

// The part of a screenshot that shows the preview, and whether it has a picture in it.
bool screenshotShowsPicture(const QImage& shot, const QRect& rect) {
    int coloured = 0, total = 0;
    QRgb first = shot.pixel(rect.center());
    bool varies = false;
    for (int y = rect.top(); y <= rect.bottom(); y += 3)
        for (int x = rect.left(); x <= rect.right(); x += 3) {
            const QRgb p = shot.pixel(x, y);
            ++total;
            coloured += (p & 0xFFFFFF) != 0;
            varies = varies || p != first;
        }
    return varies && coloured > total / 2;
}

} // namespace

TEST(ClusterDialogOnX, DISABLED_ChildRendersPreviewsZoomsAndAborts) {
    const QString artefacts = qEnvironmentVariable("KA_ARTEFACTS");
    const bool answerYes = qEnvironmentVariable("KA_ANSWER") == "Yes";
    if (artefacts.isEmpty())
        GTEST_SKIP() << "run by ClusterDialogOnX.PreviewZoomAndAbortBothWays";
    ASSERT_EQ(QGuiApplication::platformName(), "xcb");
    setenv("OMPI_ALLOW_RUN_AS_ROOT", "1", 1);
    setenv("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "1", 1);

    kaOSGWidget view;
    kaOSGWidget::setMainView(&view);
    kaBuiltinScene scene(view);
    kaOSGWidget::setRaytracing(true);
    kaController::setNoGUI(false); // a person answers the boxes: this test, with the mouse
    kaClusterService::the();
    kaRenderParameter::setImageSamples(100000); // longer than the test waits
    kaImageRenderWidget::setNrOfQueuedRenderJobs(3);
    katest::TempDir dir;

    bool previewed = false, zoomed = false, asked = false;
    QString question;
    QTimer poll;
    poll.setInterval(100);
    QObject::connect(&poll, &QTimer::timeout, [&] {
        kaSnapshotProgressGUII* dialog = clusterDialog();
        if (!dialog || zoomed)
            return;
        auto* preview = dialog->findChild<kaImageViewer*>();
        if (!preview || pictureCells(preview->getImage()) < 100)
            return; // the first pixels have not come back yet
        // Mid-render: the preview shows the cluster's picture.
        const QImage shot = dialog->screen()->grabWindow(dialog->winId()).toImage();
        shot.save(artefacts + "/clusterDialogMidRender.png", "PNG");
        const QRect previewRect(preview->mapTo(dialog, QPoint(0, 0)), preview->size());
        previewed = screenshotShowsPicture(shot, previewRect);

        // A real press of the left button zooms to 1:1 around the mouse.
        QTest::mousePress(preview, Qt::LeftButton, Qt::NoModifier, preview->rect().center());
        zoomed = dialog->isZooming();
        dialog->setProgress(dialog->_progress->value(), true);
        dialog->screen()
            ->grabWindow(dialog->winId())
            .toImage()
            .save(artefacts + "/clusterDialogZoomed.png", "PNG");
        QTest::mouseRelease(preview, Qt::LeftButton, Qt::NoModifier, preview->rect().center());

        // Abort: the question about the 3 queued jobs comes up and is answered.
        QTimer::singleShot(300, [&] {
            for (QWidget* widget : QApplication::topLevelWidgets())
                if (auto* box = qobject_cast<QMessageBox*>(widget); box && box->isVisible()) {
                    asked = true;
                    question = box->text();
                    for (QAbstractButton* button : box->buttons())
                        if (button->text() == (answerYes ? "Yes" : "No"))
                            QTest::mouseClick(button, Qt::LeftButton);
                }
        });
        QTest::mouseClick(dialog->_cancel, Qt::LeftButton);
    });
    poll.start();

    kaImageWriter writer;
    const QString file = dir.file("aborted.png");
    writer.exportImage(file, 320, 200, 0, 0, 72.0f, false, "localhost:2", false, false);
    poll.stop();

    EXPECT_TRUE(previewed) << "the preview showed no picture mid-render";
    EXPECT_TRUE(zoomed);
    EXPECT_TRUE(asked);
    EXPECT_EQ(question, "Abort all 3 remaining render jobs?\n");
    EXPECT_TRUE(writer.wasExportCanceled());
    EXPECT_EQ(kaImageRenderWidget::wasAllAborted(), answerYes);
    EXPECT_FALSE(QFile::exists(file));
    EXPECT_FALSE(kaClusterService::the()->isRunning());
    kaImageRenderWidget::setNrOfQueuedRenderJobs(0);
    kaOSGWidget::setMainView(nullptr);
}

class ClusterDialogOnXServer : public katest::OnXServer {};

TEST_F(ClusterDialogOnXServer, PreviewZoomAndAbortBothWays) {
    const QString& artefacts = this->artefacts();
    for (const char* answer : {"No", "Yes"}) {
        QFile::remove(artefacts + "/clusterDialogMidRender.png");
        QProcessEnvironment env;
        env.insert("KA_ARTEFACTS", artefacts);
        env.insert("KA_ANSWER", answer);
        const katest::ChildRun run = katest::runTestOnDisplay(
            server().display(), "ClusterDialogOnX.DISABLED_ChildRendersPreviewsZoomsAndAborts", env,
            90000);
        EXPECT_TRUE(run.passed()) << "answered " << answer << ":\n" << run.output;
        // The artefact, read back: the dialog with the cluster's picture in its preview.
        QImage shot(artefacts + "/clusterDialogMidRender.png", "PNG");
        ASSERT_FALSE(shot.isNull());
        EXPECT_GE(shot.width(), 640);
        EXPECT_GE(shot.height(), 512);
    }
}
