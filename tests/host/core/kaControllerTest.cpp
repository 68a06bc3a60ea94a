#include "kaController.h"

#include "kaPreferences.h"
#include "kaSimulationTime.h"
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

TEST(kaController, HooksRunInOrderUntilRemoved) {
    std::vector<std::string> calls;
    int a = kaController::addLoopCallback([&](bool) { calls.push_back("loop a"); });
    int b = kaController::addLoopCallback([&](bool) { calls.push_back("loop b"); });
    int c = kaController::addBehavior(
        [&](bool force) { calls.push_back(force ? "behavior!" : "behavior"); });
    kaController::callLoopCBs();
    kaController::updateBehavior(true);
    kaController::removeHook(a);
    kaController::callLoopCBs();
    kaController::removeHook(b);
    kaController::removeHook(c);
    kaController::callLoopCBs();
    EXPECT_EQ(calls, (std::vector<std::string>{"loop a", "loop b", "behavior!", "loop b"}));
}

TEST(kaController, ForcedRendersAdvanceTheFrameId) {
    const uint64_t frame = kaController::getFrameId();
    int renders = 0;
    int hook = kaController::addRenderHook([&](bool) { ++renders; });
    kaController::forceRender(true);
    kaController::removeHook(hook);
    EXPECT_EQ(renders, 1);
    EXPECT_EQ(kaController::getFrameId(), frame + 1);
    kaController::increaseFrameId();
    EXPECT_EQ(kaController::getFrameId(), frame + 2);
}

TEST(kaController, TheSimulationTimerIsTheOneClockAndTellsEverySet) {
    kaSimulationTime* timer = kaController::getSimulationTimer();
    ASSERT_EQ(timer, &kaSimulationTime::instance());
    std::vector<double> seen;
    const int id = timer->addListener([&](double t) { seen.push_back(t); });
    timer->set(1.25);
    kaSimulationTime::setTime(1.25); // the shortcut, and the same time again
    EXPECT_EQ(kaController::getSimulationTime(), 1.25);
    EXPECT_EQ(timer->get(), 1.25);
    timer->removeListener(id);
    timer->set(0.0);
    EXPECT_EQ(seen, (std::vector<double>{1.25, 1.25}));
}
