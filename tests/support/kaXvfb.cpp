#include "kaXvfb.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QStandardPaths>
#include <QThread>

namespace katest {

bool XvfbServer::isInstalled() {
    return !QStandardPaths::findExecutable("Xvfb").isEmpty();
}

XvfbServer::XvfbServer() {
    const QString xvfb = QStandardPaths::findExecutable("Xvfb");
    if (xvfb.isEmpty()) {
        _error = "Xvfb is not installed (scripts/bootstrap installs it)";
        return;
    }
    _server.setProcessChannelMode(QProcess::SeparateChannels);
    // Xvfb writes the display's number once it accepts clients.
    _server.start(xvfb, {"-displayfd", "1", "-screen", "0", "1280x1024x24", "-nolisten", "tcp"});
    if (!_server.waitForStarted(5000)) {
        _error = "Xvfb did not start";
        return;
    }
    QByteArray number;
    QElapsedTimer clock;
    clock.start();
    while (!number.contains('\n') && clock.elapsed() < 10000 &&
           _server.state() == QProcess::Running) {
        _server.waitForReadyRead(100);
        number += _server.readAllStandardOutput();
    }
    if (!number.contains('\n')) {
        _error = "Xvfb gave no display: " + _server.readAllStandardError().toStdString();
        return;
    }
    _display = ":" + QString::fromLatin1(number).trimmed();
}

XvfbServer::~XvfbServer() {
    if (_server.state() == QProcess::NotRunning)
        return;
    _server.terminate();
    if (!_server.waitForFinished(3000)) {
        _server.kill();
        _server.waitForFinished(3000);
    }
}

namespace {

ChildRun runOnce(const QString& display, const QString& test,
                 const QProcessEnvironment& environment, int timeoutMs) {
    QProcess child;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("QT_QPA_PLATFORM", "xcb");
    env.insert("DISPLAY", display);
    for (const QString& key : environment.keys())
        env.insert(key, environment.value(key));
    child.setProcessEnvironment(env);
    child.setProcessChannelMode(QProcess::MergedChannels);
    child.start(QCoreApplication::applicationFilePath(),
                {"--gtest_also_run_disabled_tests", "--gtest_filter=" + test});
    ChildRun run;
    if (!child.waitForStarted(5000))
        return run;
    run.finished = child.waitForFinished(timeoutMs);
    if (!run.finished)
        child.kill();
    child.waitForFinished(3000);
    run.code = child.exitCode();
    run.output = child.readAll().toStdString();
    return run;
}

} // namespace

ChildRun runTestOnDisplay(const QString& display, const QString& test,
                          const QProcessEnvironment& environment, int timeoutMs) {
    // While many tests start at once, a fresh Xvfb now and then refuses the first client
    // although it has announced its display: such a start is tried again, a few times.
    ChildRun run;
    for (int attempt = 0; attempt < 3; ++attempt) {
        run = runOnce(display, test, environment, timeoutMs);
        if (run.output.find("could not connect to display") == std::string::npos)
            break;
        QThread::msleep(500);
    }
    return run;
}

void OnXServer::SetUp() {
    if (!XvfbServer::isInstalled())
        GTEST_SKIP() << "Xvfb is not installed (scripts/bootstrap installs it)";
    _server = std::make_unique<XvfbServer>();
    ASSERT_TRUE(_server->isRunning()) << _server->error();
    _artefacts = QStringLiteral(KA_TEST_ARTEFACT_DIR);
    ASSERT_TRUE(QDir().mkpath(_artefacts));
}

} // namespace katest
