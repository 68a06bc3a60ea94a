#pragma once

#include <QString>

// Facts about the running application and the machine.
class kaPlatform {
public:
    // "KALO <version>": the title of the host's message boxes and the files' creator.
    static QString getAppVersionName();
    // Horizontal scale of the primary screen against 96 dpi; 1.0 without a GUI application.
    static float getDpiScaleX();
    // The data folder behind $KALO_DATA: "<executable>/../share/kalo" when it exists (installed
    // tree), else the build tree's data folder.
    static QString getDataDir();
};
