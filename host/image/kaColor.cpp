#include "kaColor.h"

#include "kaDisplayProfiles.h"
#include "kaFile.h"
#include "kaPreferences.h"

#include <QDateTime>
#include <QFileInfo>

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>

namespace {

std::atomic<unsigned int> g_activeColorSpace{0};

// One loaded profile per file, read again when the file's time stamp or size changes. The file
// is looked at no more than once a second: display transforms ask for every pixel.
std::shared_ptr<const kaICCProfile> profileFor(const QString& fileName) {
    using Clock = std::chrono::steady_clock;
    static std::mutex mutex;
    struct Entry {
        std::shared_ptr<const kaICCProfile> profile;
        QDateTime modified;
        qint64 size = -1;
        Clock::time_point checked;
    };
    static std::map<QString, Entry> cache;
    std::lock_guard<std::mutex> lock(mutex);
    Entry& entry = cache[fileName];
    const Clock::time_point now = Clock::now();
    if (entry.profile && now - entry.checked < std::chrono::seconds(1))
        return entry.profile;
    entry.checked = now;
    QFileInfo info(fileName);
    if (!entry.profile || entry.modified != info.lastModified() || entry.size != info.size()) {
        entry.profile = std::make_shared<kaICCProfile>(fileName);
        entry.modified = info.lastModified();
        entry.size = info.size();
    }
    return entry.profile;
}

QString preferenceFile(const char* key) {
    boost::any value = kaPreferences::getData().get(key);
    const QString* name = boost::any_cast<QString>(&value);
    return name && !name->isEmpty() ? kaFile::expandFilename(*name) : QString();
}

// The monitor's colour space is the profile that exports embed for it: the first attached display
// that reports a profile, when the system's profile is used and that file exists, else the
// "Monitorprofile" preference. Pixels are encoded for that same profile, so they match it.
QString monitorProfileFile() {
    bool useSystemProfile = true;
    boost::any use = kaPreferences::getData().get("Use System Monitor Profile");
    if (const bool* b = boost::any_cast<bool>(&use))
        useSystemProfile = *b;
    if (useSystemProfile)
        for (const kaDisplayProfiles::Display& display : kaDisplayProfiles::displays())
            if (display.attached && !display.profileFile.isEmpty()) {
                if (kaFile::exists(display.profileFile))
                    return display.profileFile;
                break;
            }
    return preferenceFile("Monitorprofile");
}

} // namespace

unsigned int kaColor::getActiveColorSpace() {
    return g_activeColorSpace;
}
void kaColor::setActiveColorSpace(unsigned int colorSpace) {
    g_activeColorSpace = colorSpace;
}

QString kaColor::getSRGBProfileFileName() {
    return kaFile::expandFilename(
        QString("$KALO_DATA/MonitorProfiles/sRGB_IEC61966-2-1_no_black_scaling.icc"));
}

QString kaColor::getAdobeRGBProfileFileName() {
    return kaFile::expandFilename(QString("$KALO_DATA/MonitorProfiles/AdobeRGB1998.icc"));
}

std::shared_ptr<const kaICCProfile> kaColor::getSRGBICCProfile() {
    return profileFor(getSRGBProfileFileName());
}

std::shared_ptr<const kaICCProfile> kaColor::getAdobeRGBICCProfile() {
    return profileFor(getAdobeRGBProfileFileName());
}

std::shared_ptr<const kaICCProfile> kaColor::getImageICCProfile() {
    return profileFor(preferenceFile("Imageprofile"));
}

std::shared_ptr<const kaICCProfile> kaColor::getActiveICCProfile() {
    return getICCProfile(getActiveColorSpace());
}

std::shared_ptr<const kaICCProfile> kaColor::getICCProfile(unsigned int colorSpace) {
    switch (colorSpace) {
    case 2:
        return getAdobeRGBICCProfile();
    case 3:
        return profileFor(monitorProfileFile());
    case 4:
        return getImageICCProfile();
    default:
        return getSRGBICCProfile();
    }
}
