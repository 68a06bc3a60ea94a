#include "kaWinDisplay.h"

#ifndef _WIN32

#include "kaDisplayProfiles.h"

#include <cstring>

// A device context remembers which display it was made for.
struct KA_HDC {
    QString device;
};

namespace {
void copyText(char* target, size_t size, const QString& text) {
    const QByteArray bytes = text.toLocal8Bit();
    std::strncpy(target, bytes.constData(), size - 1);
    target[size - 1] = '\0';
}
} // namespace

BOOL EnumDisplayDevicesA(LPCSTR, DWORD devNum, DISPLAY_DEVICEA* displayDevice, DWORD) {
    if (!displayDevice || displayDevice->cb != sizeof(DISPLAY_DEVICEA))
        return FALSE;
    const QVector<kaDisplayProfiles::Display> displays = kaDisplayProfiles::displays();
    if (devNum >= DWORD(displays.size()))
        return FALSE;
    const kaDisplayProfiles::Display& display = displays[int(devNum)];
    const DWORD cb = displayDevice->cb;
    std::memset(displayDevice, 0, sizeof *displayDevice);
    displayDevice->cb = cb;
    copyText(displayDevice->DeviceName, sizeof displayDevice->DeviceName, display.name);
    copyText(displayDevice->DeviceString, sizeof displayDevice->DeviceString, display.name);
    displayDevice->StateFlags = display.attached ? DISPLAY_DEVICE_ATTACHED_TO_DESKTOP : 0;
    return TRUE;
}

HDC CreateDCA(LPCSTR, LPCSTR device, LPCSTR, const DEVMODEA*) {
    return device ? new KA_HDC{QString::fromLocal8Bit(device)} : nullptr;
}

BOOL GetICMProfileA(HDC hdc, LPDWORD bufSize, LPSTR fileName) {
    if (!hdc || !bufSize)
        return FALSE;
    for (const kaDisplayProfiles::Display& display : kaDisplayProfiles::displays()) {
        if (display.name != hdc->device || display.profileFile.isEmpty())
            continue;
        const QByteArray name = display.profileFile.toLocal8Bit();
        const DWORD needed = DWORD(name.size()) + 1;
        if (!fileName || *bufSize < needed) {
            *bufSize = needed;
            return FALSE;
        }
        std::memcpy(fileName, name.constData(), needed);
        return TRUE;
    }
    return FALSE;
}

BOOL DeleteDC(HDC hdc) {
    if (!hdc)
        return FALSE;
    delete hdc;
    return TRUE;
}

#endif
