#pragma once

// Keeping the machine awake while an export runs, with the Windows call's signature. On
// Windows the system's own function is used; elsewhere ES_CONTINUOUS | ES_SYSTEM_REQUIRED takes
// a login-manager inhibitor (systemd-logind over D-Bus, "sleep:idle") that is released when the
// state goes back to ES_CONTINUOUS alone; without a system bus nothing is held, but the states
// are still kept and returned.
#ifdef _WIN32
#include <windows.h>
#else

#include <cstdint>

using EXECUTION_STATE = uint32_t;
constexpr EXECUTION_STATE ES_SYSTEM_REQUIRED = 0x00000001;
constexpr EXECUTION_STATE ES_DISPLAY_REQUIRED = 0x00000002;
constexpr EXECUTION_STATE ES_CONTINUOUS = 0x80000000;

// Sets the thread's execution state; returns the previous one (0 on failure, as Windows does).
EXECUTION_STATE SetThreadExecutionState(EXECUTION_STATE state);

// Whether a login-manager inhibitor is held now (for tests and diagnostics).
bool kaIsSleepInhibited();

#endif
