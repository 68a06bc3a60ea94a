// The ICC profile that goes into every exported image: the one of the host's active colour
// space, so that other programs show the file as the user saw it.
#include "kaImageWriter.h"

#include "kaColor.h"
#include "kaFile.h"
#include "kaImage.h"
#include "kaLog.h"
#include "kaPreferences.h"
#include "kaWinDisplay.h"

namespace {

const char* const kSRGBProfile =
    "$KALO_DATA\\MonitorProfiles\\sRGB_IEC61966-2-1_no_black_scaling.icc";
const char* const kAdobeRGBProfile = "$KALO_DATA\\MonitorProfiles\\AdobeRGB1998.icc";

void embedIfPresent(osg::ImagePtr& image, const QString& name) {
    const QString expanded = kaFile::expandFilename(name);
    if (kaFile::exists(expanded))
        kaImage::embedActiveICCProfile(image, expanded.toUtf8().toStdString());
}

// The profile of the first attached display whose profile query succeeds; empty when none.
QString systemMonitorProfile() {
    QString profile;
    DISPLAY_DEVICEA device;
    device.cb = sizeof(DISPLAY_DEVICEA);
    for (DWORD number = 0; EnumDisplayDevicesA(nullptr, number, &device, 0); ++number) {
        if (profile.isEmpty() && (device.StateFlags & DISPLAY_DEVICE_ATTACHED_TO_DESKTOP)) {
            HDC dc = CreateDCA(nullptr, device.DeviceName, nullptr, nullptr);
            char fileName[2048] = {0};
            DWORD size = sizeof fileName;
            if (dc && GetICMProfileA(dc, &size, fileName))
                profile = QString::fromLocal8Bit(fileName);
            if (dc)
                DeleteDC(dc);
        }
        device.cb = sizeof(DISPLAY_DEVICEA);
    }
    return profile;
}

} // namespace

void kaImageWriter::embedColorProfile(osg::ImagePtr& image) {
    const kaMessage& prefs = kaPreferences::getData();
    switch (kaColor::getActiveColorSpace()) {
    case 2:
        embedIfPresent(image, kAdobeRGBProfile);
        return;
    case 3: {
        QString profile;
        bool useSystemProfile = true;
        getFromMessage(prefs, "Use System Monitor Profile", useSystemProfile);
        if (useSystemProfile) {
            profile = systemMonitorProfile();
            if (!profile.isEmpty()) {
                if (kaFile::exists(profile)) {
                    kaImage::embedActiveICCProfile(image, profile.toUtf8().toStdString());
                    return;
                }
                kaLog::error("Couldn't find system monitor profile '%s'!",
                             profile.toUtf8().constData());
            }
        }
        getFromMessage(prefs, "Monitorprofile", profile);
        embedIfPresent(image, profile);
        return;
    }
    case 4: {
        QString profile;
        getFromMessage(prefs, "Imageprofile", profile);
        embedIfPresent(image, profile);
        return;
    }
    default: // 0, 1, and anything unknown
        embedIfPresent(image, kSRGBProfile);
        return;
    }
}
