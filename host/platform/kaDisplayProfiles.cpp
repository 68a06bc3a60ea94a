#include "kaDisplayProfiles.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusObjectPath>
#include <QDBusReply>

#include <mutex>

namespace {

const char* const kService = "org.freedesktop.ColorManager";

QVariant property(const QString& path, const char* interface, const char* name) {
    QDBusInterface object(kService, path, interface, QDBusConnection::systemBus());
    return object.isValid() ? object.property(name) : QVariant();
}

QVector<kaDisplayProfiles::Display> fromColord() {
    QVector<kaDisplayProfiles::Display> result;
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected())
        return result;
    QDBusInterface manager(kService, "/org/freedesktop/ColorManager", kService, bus);
    if (!manager.isValid())
        return result;
    QDBusReply<QList<QDBusObjectPath>> devices = manager.call("GetDevicesByKind", "display");
    if (!devices.isValid())
        return result;
    for (const QDBusObjectPath& device : devices.value()) {
        kaDisplayProfiles::Display display;
        display.name =
            property(device.path(), "org.freedesktop.ColorManager.Device", "DeviceId").toString();
        display.attached = true;
        const QVariant profiles =
            property(device.path(), "org.freedesktop.ColorManager.Device", "Profiles");
        QList<QDBusObjectPath> paths;
        if (profiles.canConvert<QDBusArgument>())
            profiles.value<QDBusArgument>() >> paths;
        if (!paths.isEmpty())
            display.profileFile =
                property(paths.first().path(), "org.freedesktop.ColorManager.Profile", "Filename")
                    .toString();
        result.push_back(display);
    }
    return result;
}

std::mutex g_mutex;
kaDisplayProfiles::Source g_source;

} // namespace

QVector<kaDisplayProfiles::Display> kaDisplayProfiles::displays() {
    Source source;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        source = g_source;
    }
    return source ? source() : fromColord();
}

void kaDisplayProfiles::setSource(Source source) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_source = std::move(source);
}
