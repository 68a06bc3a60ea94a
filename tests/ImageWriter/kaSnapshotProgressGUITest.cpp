// The cluster snapshot dialog: its form read back from the widgets, the questions Abort and
// closing ask (answered by a simulated user, and by the host in batch mode), Save and its
// reset, the preview's repaint requests, and the dialog shown on a real X server.
#include "kaSnapshotProgressGUII.h"

#include "kaImageRenderWidget.h"
#include "kaImageViewer.h"

#include "kaClusterWindowPattern.h"

#include "OSGNetWindow.h"
#include "kaController.h"
#include "kaPlatform.h"
#include "kaTestSupport.h"
#include "kaXvfb.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QFile>
#include <QFrame>
#include <QHBoxLayout>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPointer>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QSpacerItem>
#include <QTest>
#include <QTimer>
#include <QVBoxLayout>

#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace {

using katest::byteWindow;
// What the dialog's pictures show of the buffer: they are opaque.
QRgb patternPixel(int x, int y) {
    return katest::opaquePatternPixel(x, y);
}

void fillBuffer(const osg::NetWindowPtr& window, uint8_t r, uint8_t g, uint8_t b) {
    uint8_t* data = window->getBuffer();
    const size_t pixels = size_t(window->getBufferWidth()) * size_t(window->getBufferHeight());
    for (size_t i = 0; i < pixels; ++i) {
        data[i * 4] = r;
        data[i * 4 + 1] = g;
        data[i * 4 + 2] = b;
        data[i * 4 + 3] = 255;
    }
}

// Plays the user at every message box that opens while it lives: notes what the box asks,
// presses Escape (which must not answer it), then clicks the button with the given text.
class QuestionAnswerer : public QObject {
public:
    struct Question {
        QString title, text, defaultButton;
        QStringList buttons;
        QWidget* parent = nullptr;
        bool escapeAnswered = false;
    };

    explicit QuestionAnswerer(const QString& answer)
        : _answer(answer) {
        qApp->installEventFilter(this);
    }
    ~QuestionAnswerer() override { qApp->removeEventFilter(this); }
    std::vector<Question> questions;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Show)
            if (auto* box = qobject_cast<QMessageBox*>(watched)) {
                QPointer<QMessageBox> target(box);
                QMetaObject::invokeMethod(
                    box,
                    [this, target] {
                        if (target)
                            answer(target);
                    },
                    Qt::QueuedConnection);
            }
        return QObject::eventFilter(watched, event);
    }

private:
    void answer(QMessageBox* box) {
        Question q;
        q.title = box->windowTitle();
        q.text = box->text();
        q.parent = box->parentWidget();
        if (box->defaultButton())
            q.defaultButton = box->defaultButton()->text();
        QTest::keyClick(box, Qt::Key_Escape);
        q.escapeAnswered = box->clickedButton() != nullptr || !box->isVisible();
        QAbstractButton* chosen = nullptr;
        for (QAbstractButton* button : box->buttons()) {
            q.buttons << button->text();
            if (button->text() == _answer)
                chosen = button;
        }
        questions.push_back(q);
        if (chosen)
            chosen->click();
        else
            box->reject();
    }
    QString _answer;
};

class SnapshotProgress : public testing::Test {
protected:
    void SetUp() override {
        kaController::setMainWindow(&mainWindow);
        kaImageRenderWidget::setNrOfQueuedRenderJobs(0);
        kaImageRenderWidget::resetAbortAndCancelFlag();
    }
    void TearDown() override {
        dialog.reset();
        kaController::setMainWindow(nullptr);
        kaController::setNoGUI(false);
        kaImageRenderWidget::setNrOfQueuedRenderJobs(0);
        kaImageRenderWidget::resetAbortAndCancelFlag();
    }
    // A shown dialog for a 64 x 48 export from 'window' (the test's pattern window by default).
    kaSnapshotProgressGUII& show(bool withWindow = true) {
        dialog = std::make_unique<kaSnapshotProgressGUII>(64, 48, withWindow ? window : nullptr);
        dialog->show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(dialog.get()));
        QApplication::processEvents();
        return *dialog;
    }
    kaImageViewer* viewer() { return dialog->findChild<kaImageViewer*>(); }
    void expectStopped(bool cancel, bool save) {
        EXPECT_EQ(dialog->isCancel(), cancel);
        EXPECT_EQ(dialog->isSave(), save);
        EXPECT_FALSE(dialog->isEnabled());
        EXPECT_TRUE(viewer()->isFrozen());
    }

    QWidget mainWindow;
    osg::NetWindowPtr window = byteWindow(64, 48);
    std::unique_ptr<kaSnapshotProgressGUII> dialog;
};

const QString kQuestion3 = "Abort all 3 remaining render jobs?\n";

} // namespace

// One row per object of the form: name, class and text.
struct FormObject {
    const char* name;
    const char* className;
    const char* text;
};

void PrintTo(const FormObject& object, std::ostream* os) {
    *os << object.name;
}

class kaSnapshotProgressGUIForm : public testing::TestWithParam<FormObject> {};

TEST_P(kaSnapshotProgressGUIForm, HasTheObjectWithItsClassAndText) {
    const FormObject o = GetParam();
    kaSnapshotProgressGUIW form;
    QObject* object = form.findChild<QObject*>(o.name);
    ASSERT_NE(object, nullptr) << o.name;
    EXPECT_STREQ(object->metaObject()->className(), o.className);
    if (auto* button = qobject_cast<QAbstractButton*>(object))
        EXPECT_EQ(button->text(), o.text);
    else
        EXPECT_STREQ(o.text, "");
}

INSTANTIATE_TEST_SUITE_P(
    Objects, kaSnapshotProgressGUIForm,
    testing::Values(FormObject{"vboxLayout", "QVBoxLayout", ""}, FormObject{"_frame", "QFrame", ""},
                    FormObject{"hboxLayout", "QHBoxLayout", ""},
                    FormObject{"_progress", "QProgressBar", ""},
                    FormObject{"_render_update", "QCheckBox", "Update preview"},
                    FormObject{"_movie_progress", "QProgressBar", ""},
                    FormObject{"hboxLayout1", "QHBoxLayout", ""},
                    FormObject{"_save", "QPushButton", "Save"},
                    FormObject{"_cancel", "QPushButton", "Abort"}),
    [](const testing::TestParamInfo<FormObject>& info) {
        std::string name;
        for (const char* c = info.param.name; *c; ++c)
            if (*c != '_')
                name += *c;
        return name;
    });

TEST(kaSnapshotProgressGUIForm, LaysOutTheWidgetsWithTheirSpacingsMarginsAndValues) {
    kaSnapshotProgressGUIW form;
    EXPECT_EQ(form.objectName(), "kaSnapshotProgressGUI");
    EXPECT_EQ(form.minimumSize(), QSize(640, 512));
    EXPECT_EQ(form.windowTitle(), "Cluster Snapshot");

    auto* vbox = qobject_cast<QVBoxLayout*>(form.layout());
    ASSERT_NE(vbox, nullptr);
    EXPECT_EQ(vbox, form.vboxLayout);
    EXPECT_EQ(vbox->spacing(), 5);
    EXPECT_EQ(vbox->contentsMargins(), QMargins(5, 5, 5, 5));
    ASSERT_EQ(vbox->count(), 4);
    EXPECT_EQ(vbox->itemAt(0)->widget(), form._frame);
    EXPECT_EQ(vbox->itemAt(1)->layout(), form.hboxLayout);
    EXPECT_EQ(vbox->itemAt(2)->widget(), form._movie_progress);
    EXPECT_EQ(vbox->itemAt(3)->layout(), form.hboxLayout1);

    EXPECT_EQ(form._frame->frameShape(), QFrame::Panel);
    EXPECT_EQ(form._frame->frameShadow(), QFrame::Sunken);

    EXPECT_EQ(form.hboxLayout->spacing(), 6);
    ASSERT_EQ(form.hboxLayout->count(), 3);
    EXPECT_EQ(form.hboxLayout->itemAt(0)->widget(), form._progress);
    QSpacerItem* small = form.hboxLayout->itemAt(1)->spacerItem();
    ASSERT_NE(small, nullptr);
    EXPECT_EQ(small->sizeHint(), QSize(7, 20));
    EXPECT_EQ(small->sizePolicy().horizontalPolicy(), QSizePolicy::Preferred);
    EXPECT_EQ(form.hboxLayout->itemAt(2)->widget(), form._render_update);

    EXPECT_EQ(form.hboxLayout1->spacing(), 6);
    ASSERT_EQ(form.hboxLayout1->count(), 3);
    QSpacerItem* wide = form.hboxLayout1->itemAt(0)->spacerItem();
    ASSERT_NE(wide, nullptr);
    EXPECT_EQ(wide->sizeHint(), QSize(201, 20));
    EXPECT_EQ(wide->sizePolicy().horizontalPolicy(), QSizePolicy::Expanding);
    EXPECT_EQ(form.hboxLayout1->itemAt(1)->widget(), form._save);
    EXPECT_EQ(form.hboxLayout1->itemAt(2)->widget(), form._cancel);

    EXPECT_EQ(form._progress->value(), 24);
    EXPECT_TRUE(form._progress->isTextVisible());
    EXPECT_EQ(form._movie_progress->value(), 24);
    EXPECT_FALSE(form._render_update->isChecked());
}

TEST_F(SnapshotProgress, IsAModalSnapshotDialogOfTheMainWindowWithThePreviewInItsFrame) {
    show();
    EXPECT_EQ(dialog->objectName(), "Snapshot");
    EXPECT_EQ(dialog->parentWidget(), &mainWindow);
    EXPECT_TRUE(dialog->isModal());
    EXPECT_EQ(int(dialog->windowFlags()), 0x0200F003);
    EXPECT_EQ(dialog->windowTitle(), "Cluster Snapshot");
    EXPECT_EQ(dialog->minimumSize(), QSize(640, 512));
    EXPECT_EQ(dialog->_progress->value(), 0);
    EXPECT_EQ(dialog->_movie_progress->value(), 24) << "not driven by the dialog";

    kaImageViewer* preview = viewer();
    ASSERT_NE(preview, nullptr);
    EXPECT_EQ(preview->parentWidget(), dialog->_frame);
    auto* frameLayout = qobject_cast<QVBoxLayout*>(dialog->_frame->layout());
    ASSERT_NE(frameLayout, nullptr);
    EXPECT_GE(frameLayout->indexOf(preview), 0);
    EXPECT_TRUE(preview->isVisible());

    EXPECT_FALSE(dialog->isCancel());
    EXPECT_FALSE(dialog->isSave());
    EXPECT_FALSE(dialog->isZooming());
    EXPECT_FALSE(dialog->getRenderUpdate());
    EXPECT_TRUE(dialog->isEnabled());
}

TEST_F(SnapshotProgress, PreviewShowsTheWindowsBufferAndStaysBlackWithoutAWindow) {
    show();
    dialog->setProgress(1, true);
    const QImage& image = viewer()->getImage();
    ASSERT_FALSE(image.isNull());
    // 64 x 48 scaled into the frame: the image's top-left pixel is the buffer's top-left.
    EXPECT_EQ(image.pixel(0, 0), patternPixel(0, 47));

    show(false);
    dialog->setProgress(1, true);
    EXPECT_TRUE(viewer()->getImage().isNull());
    const QImage screen = viewer()->grab().toImage();
    EXPECT_EQ(screen.pixel(screen.width() / 2, screen.height() / 2), 0xFF000000u);
}

TEST_F(SnapshotProgress, ProgressBarTakesTheStepsAndTheValue) {
    show();
    dialog->setTotalSteps(17);
    EXPECT_EQ(dialog->_progress->minimum(), 0);
    EXPECT_EQ(dialog->_progress->maximum(), 17);
    dialog->setProgress(9, false);
    EXPECT_EQ(dialog->_progress->value(), 9);
}

TEST_F(SnapshotProgress, AbortWithNoQueuedJobsAsksNothingAndCancelsOnlyThisSnapshot) {
    show();
    QuestionAnswerer user("Yes");
    QTest::mouseClick(dialog->_cancel, Qt::LeftButton);
    EXPECT_TRUE(user.questions.empty());
    expectStopped(true, false);
    EXPECT_FALSE(kaImageRenderWidget::wasAllAborted());
}

class SnapshotProgressAbortQuestion : public SnapshotProgress,
                                      public testing::WithParamInterface<bool> {};

TEST_P(SnapshotProgressAbortQuestion, AbortWithQueuedJobsAsksWhetherToAbortThemAll) {
    const bool yes = GetParam();
    show();
    kaImageRenderWidget::setNrOfQueuedRenderJobs(3);
    QuestionAnswerer user(yes ? "Yes" : "No");
    QTest::mouseClick(dialog->_cancel, Qt::LeftButton);
    ASSERT_EQ(user.questions.size(), 1u);
    const QuestionAnswerer::Question& q = user.questions[0];
    EXPECT_EQ(q.title, kaPlatform::getAppVersionName());
    EXPECT_EQ(q.text, kQuestion3);
    EXPECT_EQ(q.buttons, (QStringList{"Yes", "No"}));
    EXPECT_EQ(q.defaultButton, "No");
    EXPECT_FALSE(q.escapeAnswered) << "the question has no escape button";
    EXPECT_EQ(q.parent, &mainWindow) << "the dialog's parent";
    expectStopped(true, false);
    EXPECT_EQ(kaImageRenderWidget::wasAllAborted(), yes);
    EXPECT_FALSE(kaImageRenderWidget::wasAllAborted()) << "cleared by reading";
}

INSTANTIATE_TEST_SUITE_P(Answered, SnapshotProgressAbortQuestion, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& info) {
                             return std::string(info.param ? "Yes" : "No");
                         });

TEST_F(SnapshotProgress, BatchModeAnswersTheQuestionWithNoAndLogsIt) {
    show();
    kaImageRenderWidget::setNrOfQueuedRenderJobs(3);
    katest::LogCapture log;
    kaController::setNoGUI(true);
    // Would block forever without the host's answerer; the watchdog fails the test instead.
    bool timedOut = false;
    QTimer watchdog;
    watchdog.setSingleShot(true);
    QObject::connect(&watchdog, &QTimer::timeout, [&] {
        timedOut = true;
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget()))
            box->done(0);
    });
    watchdog.start(5000);
    dialog->clickedCancel();
    EXPECT_FALSE(timedOut);
    EXPECT_TRUE(log.contains(kaLog::Warning,
                             (kaPlatform::getAppVersionName() + ": " + kQuestion3).toStdString()));
    expectStopped(true, false);
    EXPECT_FALSE(kaImageRenderWidget::wasAllAborted());
}

TEST_F(SnapshotProgress, CloseBehavesAsAbortIncludingTheQuestion) {
    show();
    kaImageRenderWidget::setNrOfQueuedRenderJobs(3);
    QuestionAnswerer user("Yes");
    EXPECT_TRUE(dialog->close());
    ASSERT_EQ(user.questions.size(), 1u) << "asked once, not again by the close event";
    EXPECT_EQ(user.questions[0].text, kQuestion3);
    expectStopped(true, false);
    EXPECT_TRUE(kaImageRenderWidget::wasAllAborted());
    EXPECT_FALSE(dialog->isVisible());

    // Without queued jobs it cancels without asking.
    kaImageRenderWidget::setNrOfQueuedRenderJobs(0);
    show();
    QuestionAnswerer quiet("Yes");
    EXPECT_TRUE(dialog->close());
    EXPECT_TRUE(quiet.questions.empty());
    expectStopped(true, false);
}

TEST_F(SnapshotProgress, TheWindowsCloseButtonAndEscapeAbortToo) {
    kaImageRenderWidget::setNrOfQueuedRenderJobs(3);
    show();
    {
        QuestionAnswerer user("No");
        QCloseEvent close;
        QApplication::sendEvent(dialog.get(), &close);
        EXPECT_EQ(user.questions.size(), 1u);
        expectStopped(true, false);
        EXPECT_FALSE(kaImageRenderWidget::wasAllAborted());
        EXPECT_FALSE(dialog->isVisible());
    }
    show();
    {
        QuestionAnswerer user("Yes");
        QTest::keyClick(dialog.get(), Qt::Key_Escape);
        EXPECT_EQ(user.questions.size(), 1u);
        expectStopped(true, false);
        EXPECT_TRUE(kaImageRenderWidget::wasAllAborted());
    }
}

TEST_F(SnapshotProgress, CancelSaveNeverAsks) {
    show();
    kaImageRenderWidget::setNrOfQueuedRenderJobs(3);
    QuestionAnswerer user("Yes");
    dialog->clickedCancelSave();
    EXPECT_TRUE(user.questions.empty());
    expectStopped(true, false);
    EXPECT_FALSE(kaImageRenderWidget::wasAllAborted());
}

TEST_F(SnapshotProgress, SaveFreezesThePreviewUntilResetSave) {
    show();
    dialog->setProgress(1, true);
    const QRgb before = viewer()->getImage().pixel(0, 0);
    ASSERT_EQ(before, patternPixel(0, 47));
    QTest::mouseClick(viewer(), Qt::RightButton, Qt::NoModifier, QPoint(5, 5));
    ASSERT_TRUE(viewer()->isRepaintRequested());

    QTest::mouseClick(dialog->_save, Qt::LeftButton);
    expectStopped(false, true);
    fillBuffer(window, 10, 20, 30);
    viewer()->repaint();
    EXPECT_EQ(viewer()->getImage().pixel(0, 0), before) << "frozen";
    EXPECT_TRUE(dialog->isSave());

    dialog->resetSave();
    EXPECT_FALSE(dialog->isSave());
    EXPECT_FALSE(dialog->isCancel());
    EXPECT_TRUE(dialog->isEnabled());
    EXPECT_FALSE(viewer()->isFrozen());
    EXPECT_FALSE(viewer()->isRepaintRequested());
    EXPECT_FALSE(dialog->getRenderUpdate());
    dialog->setProgress(3, true);
    EXPECT_EQ(viewer()->getImage().pixel(0, 0), qRgb(10, 20, 30));
}

TEST_F(SnapshotProgress, RenderUpdateIsTrueAfterAnyMouseActionUntilSetProgressRepaints) {
    show();
    kaImageViewer* preview = viewer();
    const QPoint centre = preview->rect().center();
    EXPECT_FALSE(dialog->getRenderUpdate());
    dialog->_render_update->setChecked(true);
    EXPECT_TRUE(dialog->getRenderUpdate()) << "the switch";
    dialog->_render_update->setChecked(false);

    QTest::mousePress(preview, Qt::LeftButton, Qt::NoModifier, centre);
    EXPECT_TRUE(dialog->isZooming());
    EXPECT_TRUE(dialog->getRenderUpdate()) << "press";
    dialog->setProgress(1, false);
    EXPECT_FALSE(dialog->getRenderUpdate());

    QMouseEvent move(QEvent::MouseMove, centre + QPoint(4, 4), preview->mapToGlobal(centre),
                     Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(preview, &move);
    EXPECT_TRUE(dialog->getRenderUpdate()) << "move";
    dialog->setProgress(2, false);
    EXPECT_FALSE(dialog->getRenderUpdate());

    QTest::mouseRelease(preview, Qt::LeftButton, Qt::NoModifier, centre);
    EXPECT_FALSE(dialog->isZooming());
    EXPECT_TRUE(dialog->getRenderUpdate()) << "release";
    dialog->setProgress(3, true);
    EXPECT_FALSE(dialog->getRenderUpdate());
}

TEST_F(SnapshotProgress, SetProgressRepaintsThePreviewOnlyWhenForcedOrRequested) {
    show();
    dialog->setProgress(0, true);
    ASSERT_EQ(viewer()->getImage().pixel(0, 0), patternPixel(0, 47));
    fillBuffer(window, 200, 100, 50);
    dialog->setProgress(1, false);
    EXPECT_EQ(viewer()->getImage().pixel(0, 0), patternPixel(0, 47)) << "not repainted";
    dialog->setProgress(2, true);
    EXPECT_EQ(viewer()->getImage().pixel(0, 0), qRgb(200, 100, 50)) << "forced";

    // A request from the mouse: the press repaints at once, the next progress once more.
    QTest::mousePress(viewer(), Qt::RightButton, Qt::NoModifier, QPoint(2, 2));
    fillBuffer(window, 1, 2, 3);
    dialog->setProgress(3, false);
    EXPECT_EQ(viewer()->getImage().pixel(0, 0), qRgb(1, 2, 3)) << "requested";
}

TEST_F(SnapshotProgress, MessageIsDrawnCentredInWhiteOnBlackOverTheImage) {
    fillBuffer(window, 255, 0, 0);
    show();
    dialog->setProgress(0, true);
    kaImageViewer* preview = viewer();
    const QImage& image = preview->getImage();
    ASSERT_FALSE(image.isNull());
    const QRect area((preview->width() - image.width()) / 2,
                     (preview->height() - image.height()) / 2, image.width(), image.height());

    // Everything that is not the red picture, inside the picture's rectangle.
    auto caption = [&](bool& onlyGreys, bool& hasWhite, bool& hasBlack) {
        const QImage screen = preview->grab().toImage().convertToFormat(QImage::Format_RGB32);
        QRect box;
        onlyGreys = true;
        hasWhite = hasBlack = false;
        for (int y = area.top(); y <= area.bottom(); ++y)
            for (int x = area.left(); x <= area.right(); ++x) {
                const QRgb p = screen.pixel(x, y);
                if (p == qRgb(255, 0, 0))
                    continue;
                box |= QRect(x, y, 1, 1);
                onlyGreys &= qRed(p) == qGreen(p) && qGreen(p) == qBlue(p);
                hasWhite |= p == qRgb(255, 255, 255);
                hasBlack |= p == qRgb(0, 0, 0);
            }
        return box;
    };
    bool greys, white, black;
    EXPECT_TRUE(caption(greys, white, black).isEmpty()) << "no caption yet";

    dialog->setMessage("Intializing image buffers ...");
    EXPECT_EQ(preview->getText(), "Intializing image buffers ...");
    const QRect box = caption(greys, white, black);
    ASSERT_FALSE(box.isEmpty());
    EXPECT_TRUE(greys) << "white text on a black box";
    EXPECT_TRUE(white);
    EXPECT_TRUE(black);
    EXPECT_GT(box.width(), box.height());
    EXPECT_NEAR(box.center().x(), area.center().x(), 2);
    EXPECT_NEAR(box.center().y(), area.center().y(), 2);

    dialog->setMessage(QString());
    EXPECT_TRUE(caption(greys, white, black).isEmpty());
}

// The dialog on a real X server (Xvfb): shown, zoomed with the mouse, photographed from the
// server and checked. The work happens in a child process of this program, because the
// platform (xcb) is chosen once per process.
namespace {

// A run of 'length' pixels along a row where red counts up by one and green stays: buffer
// pixels shown 1:1.
bool hasOneToOneRun(const QImage& shot, int row, int length) {
    int run = 0;
    for (int x = 1; x < shot.width(); ++x) {
        const QRgb a = shot.pixel(x - 1, row), b = shot.pixel(x, row);
        if (qRed(b) == ((qRed(a) + 1) & 0xFF) && qGreen(b) == qGreen(a))
            ++run;
        else
            run = 0;
        if (run >= length)
            return true;
    }
    return false;
}

bool isUniform(const QImage& shot, const QRect& rect) {
    const QRgb first = shot.pixel(rect.topLeft());
    for (int y = rect.top(); y <= rect.bottom(); ++y)
        for (int x = rect.left(); x <= rect.right(); ++x)
            if (shot.pixel(x, y) != first)
                return false;
    return true;
}

} // namespace

TEST(kaSnapshotProgressOnX, DISABLED_ChildShowsTheZoomedPreview) {
    const QString screenshot = qEnvironmentVariable("KA_X11_SCREENSHOT");
    if (screenshot.isEmpty())
        GTEST_SKIP() << "run by kaSnapshotProgressOnX.ShowsAndZoomsThePreview";
    ASSERT_EQ(QGuiApplication::platformName(), "xcb");

    osg::NetWindowPtr window = byteWindow(1600, 1200);
    kaSnapshotProgressGUII dialog(1600, 1200, window);
    dialog.setTotalSteps(10);
    dialog.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&dialog));
    dialog.setProgress(4, true);
    auto* preview = dialog.findChild<kaImageViewer*>();
    ASSERT_NE(preview, nullptr);
    const QPoint centre = preview->rect().center();
    QTest::mousePress(preview, Qt::LeftButton, Qt::NoModifier, centre);
    ASSERT_TRUE(dialog.isZooming());
    dialog.setProgress(5, false);

    const QImage shot =
        dialog.screen()->grabWindow(dialog.winId()).toImage().convertToFormat(QImage::Format_RGB32);
    ASSERT_TRUE(shot.save(screenshot, "PNG"));
    ASSERT_EQ(shot.size(), dialog.size());

    // The preview on the server shows the buffer 1:1 around the mouse.
    const QImage& image = preview->getImage();
    ASSERT_FALSE(image.isNull());
    const QPoint origin = preview->mapTo(&dialog, QPoint(0, 0));
    const int w = image.width(), h = image.height();
    const int left = (preview->width() - w) / 2, top = (preview->height() - h) / 2;
    const int centreX = int(float(centre.x() - left) * (1600.0f / float(w)));
    const int centreY = int(float(preview->height() - centre.y() - top) * (1200.0f / float(h)));
    int wrong = 0;
    for (int r = 0; r < h; ++r)
        for (int i = 0; i < w; ++i) {
            const int column = centreX - w / 2 + i, row = centreY - h / 2 + (h - 1 - r);
            const bool outside = column < 1 || row < 1 || column >= 1600 || row >= 1200;
            const QRgb want = outside ? qRgb(0x64, 0x64, 0x64) : patternPixel(column, row);
            if (shot.pixel(origin.x() + left + i, origin.y() + top + r) != want)
                ++wrong;
        }
    EXPECT_EQ(wrong, 0);
    EXPECT_TRUE(hasOneToOneRun(shot, origin.y() + preview->height() / 2, 200));

    // The progress bar and the buttons are there and drawn.
    for (QWidget* widget : std::vector<QWidget*>{dialog._progress, dialog._save, dialog._cancel,
                                                 dialog._render_update}) {
        EXPECT_TRUE(widget->isVisible()) << widget->objectName().toStdString();
        const QRect rect(widget->mapTo(&dialog, QPoint(0, 0)), widget->size());
        EXPECT_TRUE(shot.rect().contains(rect)) << widget->objectName().toStdString();
        EXPECT_FALSE(isUniform(shot, rect)) << widget->objectName().toStdString();
    }
    EXPECT_EQ(dialog._progress->value(), 5);
    EXPECT_EQ(dialog._save->text(), "Save");
    EXPECT_EQ(dialog._cancel->text(), "Abort");
    QTest::mouseRelease(preview, Qt::LeftButton, Qt::NoModifier, centre);
}

class kaSnapshotProgressOnXServer : public katest::OnXServer {};

TEST_F(kaSnapshotProgressOnXServer, ShowsAndZoomsThePreview) {
    const QString screenshot = artefacts() + "/kaSnapshotProgressOnX.png";
    QFile::remove(screenshot);

    QProcessEnvironment env;
    env.insert("KA_X11_SCREENSHOT", screenshot);
    const katest::ChildRun run = katest::runTestOnDisplay(
        server().display(), "kaSnapshotProgressOnX.DISABLED_ChildShowsTheZoomedPreview", env,
        30000);
    ASSERT_TRUE(run.finished) << run.output;
    EXPECT_TRUE(run.passed()) << run.output;

    // The artefact, read back from the file.
    QImage shot(screenshot, "PNG");
    ASSERT_FALSE(shot.isNull()) << screenshot.toStdString();
    shot = shot.convertToFormat(QImage::Format_RGB32);
    EXPECT_GE(shot.width(), 640);
    EXPECT_GE(shot.height(), 512);
    bool oneToOne = false;
    for (int row = shot.height() / 4; row < shot.height() / 2 && !oneToOne; row += 8)
        oneToOne = hasOneToOneRun(shot, row, 200);
    EXPECT_TRUE(oneToOne) << "the zoomed preview shows consecutive buffer pixels";
}
