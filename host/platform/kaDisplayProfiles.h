#pragma once

#include <QString>
#include <QVector>

#include <functional>

// The displays of this machine and their colour profiles, as the display calls of
// kaWinDisplay.h report them on systems other than Windows. By default the list comes from
// colord (org.freedesktop.ColorManager on the system bus) when it runs, and is empty otherwise.
// Thread-safe.
class kaDisplayProfiles {
public:
    struct Display {
        QString name;        // "display0", or colord's device id
        bool attached;       // part of the desktop
        QString profileFile; // empty when the profile query fails
    };
    using Source = std::function<QVector<Display>()>;

    static QVector<Display> displays();

    // Replaces where the list comes from (an empty function restores colord): for machines
    // with a display server of their own, and for tests.
    static void setSource(Source source);
};
