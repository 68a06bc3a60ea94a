#include "kaTestSupport.h"

#include "kaPreferences.h"

#include <mutex>

namespace katest {

namespace {
std::mutex g_mutex;
std::vector<LogCapture::Entry> g_entries;
} // namespace

TempDir::TempDir() {
    _dir.setAutoRemove(true);
}

LogCapture::LogCapture() {
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_entries.clear();
    }
    // Registered without holding g_mutex: the log calls the sink under its own lock.
    _sink = kaLog::addSink([](kaLog::Level level, const std::string& text) {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_entries.push_back({level, text});
    });
}

LogCapture::~LogCapture() {
    kaLog::removeSink(_sink);
}

std::vector<LogCapture::Entry> LogCapture::entries() const {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_entries;
}

std::vector<std::string> LogCapture::texts(kaLog::Level level) const {
    std::vector<std::string> result;
    for (const Entry& e : entries())
        if (e.level == level)
            result.push_back(e.text);
    return result;
}

bool LogCapture::contains(kaLog::Level level, const std::string& text) const {
    for (const Entry& e : entries())
        if (e.level == level && e.text == text)
            return true;
    return false;
}

PreferencesGuard::PreferencesGuard() {
    kaPreferences::resetToDefaults();
}
PreferencesGuard::~PreferencesGuard() {
    kaPreferences::resetToDefaults();
}

} // namespace katest
