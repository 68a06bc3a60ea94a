#pragma once

// The display and colour-profile calls of the Windows API, with their Windows signatures.
// On Windows the system's own functions are used; elsewhere these answer from the display
// list of kaDisplayProfiles.
#ifdef _WIN32
#include <windows.h>
#else

#include <cstdint>

using BOOL = int;
using DWORD = uint32_t;
using LPDWORD = DWORD*;
using CHAR = char;
using LPSTR = char*;
using LPCSTR = const char*;
struct KA_HDC;
using HDC = KA_HDC*;
struct DEVMODEA;

#ifndef TRUE
#define TRUE 1
#define FALSE 0
#endif

// The display is part of the desktop.
constexpr DWORD DISPLAY_DEVICE_ATTACHED_TO_DESKTOP = 0x00000001;

struct DISPLAY_DEVICEA {
    DWORD cb;
    CHAR DeviceName[32];
    CHAR DeviceString[128];
    DWORD StateFlags;
    CHAR DeviceID[128];
    CHAR DeviceKey[128];
};

// Fills 'device' (whose cb must be sizeof(DISPLAY_DEVICEA)) with display number 'devNum';
// FALSE when there is no such display.
BOOL EnumDisplayDevicesA(LPCSTR device, DWORD devNum, DISPLAY_DEVICEA* displayDevice, DWORD flags);
// A device context for the display named 'device'; null when there is none.
HDC CreateDCA(LPCSTR driver, LPCSTR device, LPCSTR output, const DEVMODEA* initData);
// The file name of the display's colour profile into 'fileName' (*bufSize characters, set to
// the length needed); FALSE when the display has none or the buffer is too small.
BOOL GetICMProfileA(HDC hdc, LPDWORD bufSize, LPSTR fileName);
BOOL DeleteDC(HDC hdc);

#endif
