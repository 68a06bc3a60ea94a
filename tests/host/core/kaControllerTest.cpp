#include "kaController.h"

#include "kaPreferences.h"
#include "kaTestSupport.h"

#include <QApplication>
#include <QMessageBox>
#include <QTimer>

#include <gtest/gtest.h>

TEST(kaController, ProgressReachesEveryListenerUntilRemoved) {
    std::vector<double> a, b;
    int ida = kaController::addProgressListener([&](double p) { a.push_back(p); });
    int idb = kaController::addProgressListener([&](double p) { b.push_back(p); });
    kaController::setImageRenderProgress(0.25);
    kaController::removeProgressListener(ida);
    kaController::setImageRenderProgress(0.5);
    kaController::removeProgressListener(idb);
    EXPECT_EQ(a, std::vector<double>{0.25});
    EXPECT_EQ(b, (std::vector<double>{0.25, 0.5}));
    EXPECT_EQ(kaController::getImageRenderProgress(), 0.5);
}

TEST(kaController, BatchModeAnswersMessageBoxesWithTheirDefaultAndLogsThem) {
    katest::LogCapture log;
    kaController::setNoGUI(true);
    // Would block forever without the answerer; the watchdog fails the test instead.
    bool timedOut = false;
    QTimer watchdog;
    watchdog.setSingleShot(true);
    QObject::connect(&watchdog, &QTimer::timeout, [&] {
        timedOut = true;
        if (QWidget* w = QApplication::activeModalWidget())
            w->close();
    });
    watchdog.start(5000);
    auto answer = QMessageBox::warning(nullptr, "Snapshot", "Please disable stereo rendering!",
                                       QMessageBox::Ok);
    auto question = QMessageBox::question(nullptr, "Title", "Overwrite?",
                                          QMessageBox::Yes | QMessageBox::No, QMessageBox::No);
    kaController::setNoGUI(false);
    EXPECT_FALSE(timedOut);
    EXPECT_EQ(answer, QMessageBox::Ok);
    EXPECT_EQ(question, QMessageBox::No);
    EXPECT_TRUE(log.contains(kaLog::Warning, "Snapshot: Please disable stereo rendering!"));
    EXPECT_TRUE(log.contains(kaLog::Warning, "Title: Overwrite?"));
}

TEST(kaController, PlaySoundOnExportFollowsThePreference) {
    katest::PreferencesGuard guard;
    EXPECT_FALSE(kaController::playSoundOnExport());
    kaPreferences::getData().set("Play Sound On Export", true);
    EXPECT_TRUE(kaController::playSoundOnExport());
    kaPreferences::getData().set("Play Sound On Export", 1);
    EXPECT_FALSE(kaController::playSoundOnExport()) << "a value of the wrong type is ignored";
}

TEST(kaController, MainWindowIsForgottenWhenDeleted) {
    auto* window = new QWidget;
    kaController::setMainWindow(window);
    EXPECT_EQ(kaController::getMainWindow(), window);
    delete window;
    EXPECT_EQ(kaController::getMainWindow(), nullptr);
}
