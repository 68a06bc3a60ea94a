// The kaviewer program's command line.
#include <QProcess>
#include <QProcessEnvironment>

#include <gtest/gtest.h>

namespace {

struct ViewerRun {
    int code = -1;
    QString err;
};

ViewerRun runViewer(const QStringList& args) {
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("QT_QPA_PLATFORM", "offscreen");
    env.insert("XDG_CONFIG_HOME", "/nonexistent-config");
    process.setProcessEnvironment(env);
    process.start(KAVIEWER_PATH, args);
    process.waitForFinished(30000);
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromLocal8Bit(process.readAllStandardError())};
}

TEST(ViewerProgram, HelpSaysHowToStartIt) {
    const ViewerRun run = runViewer({"--help"});
    EXPECT_EQ(run.code, 0);
    EXPECT_TRUE(run.err.contains("usage: kaviewer [--prefs FILE] [SCENE]"));
    EXPECT_TRUE(run.err.contains("/nonexistent-config/kaviewer/preferences.json"))
        << run.err.toStdString();
}

TEST(ViewerProgram, MoreThanOneSceneIsAUsageError) {
    const ViewerRun run = runViewer({"a.glb", "b.glb"});
    EXPECT_EQ(run.code, 2);
    EXPECT_TRUE(run.err.contains("usage: kaviewer")) << run.err.toStdString();
    EXPECT_EQ(runViewer({"--prefs"}).code, 2);
}

} // namespace
