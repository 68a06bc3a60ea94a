#include "kaWinPower.h"

#ifndef _WIN32

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusReply>
#include <QDBusUnixFileDescriptor>

#include <mutex>
#include <unistd.h>

namespace {

std::mutex g_mutex;
EXECUTION_STATE g_state = ES_CONTINUOUS;
int g_inhibitor = -1;

// A "sleep:idle" block lock from logind: held while the descriptor is open.
int takeInhibitor() {
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected())
        return -1;
    QDBusInterface logind("org.freedesktop.login1", "/org/freedesktop/login1",
                          "org.freedesktop.login1.Manager", bus);
    if (!logind.isValid())
        return -1;
    // logind shows "who" to the user (e.g. in "systemd-inhibit --list"): name the program.
    QString who = QCoreApplication::applicationName();
    if (who.isEmpty())
        who = "image export";
    QDBusReply<QDBusUnixFileDescriptor> reply =
        logind.call("Inhibit", "sleep:idle", who, "Image export in progress", "block");
    if (!reply.isValid() || !reply.value().isValid())
        return -1;
    return ::dup(reply.value().fileDescriptor());
}

} // namespace

EXECUTION_STATE SetThreadExecutionState(EXECUTION_STATE state) {
    std::lock_guard<std::mutex> lock(g_mutex);
    const EXECUTION_STATE previous = g_state;
    const bool keepAwake = (state & (ES_SYSTEM_REQUIRED | ES_DISPLAY_REQUIRED)) != 0;
    // Without ES_CONTINUOUS the request is a one-off reset of the idle timer: nothing to hold.
    if (state & ES_CONTINUOUS) {
        if (keepAwake && g_inhibitor < 0)
            g_inhibitor = takeInhibitor();
        if (!keepAwake && g_inhibitor >= 0) {
            ::close(g_inhibitor);
            g_inhibitor = -1;
        }
        g_state = state;
    }
    return previous;
}

bool kaIsSleepInhibited() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_inhibitor >= 0;
}

#endif
