#pragma once

#include "kaICCProfile.h"

#include <QString>

#include <memory>

// The colour space the host displays in, and the ICC profiles that go with the colour spaces:
// 0 and 1 sRGB, 2 Adobe RGB, 3 the monitor ("Monitorprofile"), 4 the image profile
// ("Imageprofile"), anything else sRGB. Profiles are loaded on first use and reloaded when
// their file changes. Thread-safe.
class kaColor {
public:
    static unsigned int getActiveColorSpace();
    static void setActiveColorSpace(unsigned int colorSpace);

    // The stock profile files under $KALO_DATA/MonitorProfiles (expanded).
    static QString getSRGBProfileFileName();
    static QString getAdobeRGBProfileFileName();

    // Never null; check isLoaded().
    static std::shared_ptr<const kaICCProfile> getSRGBICCProfile();
    static std::shared_ptr<const kaICCProfile> getAdobeRGBICCProfile();
    // The active colour space's profile: for the monitor's (3) the display's own when it reports
    // one that exists and "Use System Monitor Profile" is on, else "Monitorprofile"; asks the
    // displays each time, so callers take it once per picture, not per pixel.
    static std::shared_ptr<const kaICCProfile> getActiveICCProfile();
    static std::shared_ptr<const kaICCProfile> getICCProfile(unsigned int colorSpace);
    static std::shared_ptr<const kaICCProfile> getImageICCProfile();
};
