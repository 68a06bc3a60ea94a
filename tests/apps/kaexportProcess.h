#pragma once

// kaexport run as users run it: a separate process of the program under test. The tests'
// offscreen platform is taken out of its environment: the program needs no display.

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
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

// The environment kaexport runs in: the tests' own, less their offscreen platform.
inline QProcessEnvironment kaexportEnvironment() {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("QT_QPA_PLATFORM");
    return env;
}

// The same, with the fault library failing the 'nth' 'operation' ("write", "fsync", "close",
// "rename") on files under 'folder' with 'error' ("ENOSPC", "EIO"), as a full or broken disk.
inline QProcessEnvironment failingDiskEnvironment(const QString& folder, const char* operation,
                                                  int nth, const char* error) {
    QProcessEnvironment env = kaexportEnvironment();
    env.insert("LD_PRELOAD", KA_FAULT_INJECTION_PATH);
    env.insert("KA_FAULT_DIR", folder);
    env.insert("KA_FAULT_OP", operation);
    env.insert("KA_FAULT_NTH", QString::number(nth));
    env.insert("KA_FAULT_ERRNO", error);
    // A sanitizer's runtime must come first; the fault library goes after it all the same.
    env.insert("ASAN_OPTIONS", env.value("ASAN_OPTIONS") + ":verify_asan_link_order=0");
    return env;
}

// Starts kaexport with 'args' in 'process' (for tests that signal it while it runs).
inline void startKaexport(QProcess& process, const QStringList& args,
                          const QProcessEnvironment& env = kaexportEnvironment()) {
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

// The options that make a render raytrace with 'samples' samples a pixel; none when it is
// not 'raytraced' (OpenGL).
inline QStringList raytracingArgs(bool raytraced, int samples) {
    if (!raytraced)
        return {};
    return {"--raytracing", "--samples", QString::number(samples)};
}

// Runs kaexport to its end (or 'timeoutMs').
inline KaexportResult runKaexport(const QStringList& args, int timeoutMs = 300000,
                                  const QProcessEnvironment& env = kaexportEnvironment()) {
    QProcess process;
    startKaexport(process, args, env);
    process.waitForFinished(timeoutMs);
    const QByteArray out = process.readAllStandardOutput();
    return {process.exitCode(), QString::fromUtf8(out),
            QString::fromUtf8(process.readAllStandardError()), out};
}

} // namespace katest
