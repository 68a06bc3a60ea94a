#pragma once

// kaexport run as users run it: a separate process of the program under test. The tests'
// offscreen platform is taken out of its environment: the program needs no display.

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <csignal>
#include <sys/types.h>

namespace katest {

struct KaexportResult {
    int code;
    QString out, err;
    QByteArray bytes; // standard output as it came
};

// Starts kaexport with 'args' in 'process' (for tests that signal it while it runs).
inline void startKaexport(QProcess& process, const QStringList& args) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("QT_QPA_PLATFORM");
    process.setProcessEnvironment(env);
    process.start(KAEXPORT_PATH, args);
}

// Ctrl-C for a kaexport that still runs; false (and nothing sent) when it has ended, so that a
// finished process never turns the signal onto the test's own process group.
inline bool interruptKaexport(QProcess& process) {
    const qint64 pid = process.processId();
    if (process.state() != QProcess::Running || pid <= 0)
        return false;
    return ::kill(pid_t(pid), SIGINT) == 0;
}

// Runs kaexport to its end (or 'timeoutMs').
inline KaexportResult runKaexport(const QStringList& args, int timeoutMs = 300000) {
    QProcess process;
    startKaexport(process, args);
    process.waitForFinished(timeoutMs);
    const QByteArray out = process.readAllStandardOutput();
    return {process.exitCode(), QString::fromUtf8(out),
            QString::fromUtf8(process.readAllStandardError()), out};
}

} // namespace katest
