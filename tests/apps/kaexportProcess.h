#pragma once

// kaexport run as users run it: a separate process of the program under test. The tests'
// offscreen platform is taken out of its environment: the program needs no display.

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>

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
