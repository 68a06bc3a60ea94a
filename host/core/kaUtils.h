#pragma once

namespace kaUtils {
// An audible signal: the desktop's bell in a GUI, the terminal bell on standard error when
// that is a terminal, nothing otherwise.
void beep();
} // namespace kaUtils
