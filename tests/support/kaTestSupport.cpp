#include "kaTestSupport.h"

#include "kaPreferences.h"

#include <QDir>
#include <QFile>
#include <QProcess>

#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
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

std::vector<std::string> folderEntries(const QString& folder) {
    std::vector<std::string> names;
    for (const QString& name : QDir(folder).entryList(QDir::AllEntries | QDir::Hidden |
                                                      QDir::System | QDir::NoDotAndDotDot))
        names.push_back(name.toStdString());
    std::sort(names.begin(), names.end());
    return names;
}

QByteArray fileBytes(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

SmallDisk::SmallDisk(int kilobytes) {
    if (geteuid() != 0 || !_dir.isValid())
        return;
    const std::string options = "size=" + std::to_string(kilobytes) + "k";
    _mounted =
        ::mount("tmpfs", _dir.path().toLocal8Bit().constData(), "tmpfs", 0, options.c_str()) == 0;
}

SmallDisk::~SmallDisk() {
    if (_mounted)
        ::umount2(_dir.path().toLocal8Bit().constData(), MNT_DETACH);
}

bool SmallDisk::fill(qint64 freeBytes) {
    struct statvfs info;
    if (!_mounted || ::statvfs(_dir.path().toLocal8Bit().constData(), &info) != 0)
        return false;
    const qint64 available = qint64(info.f_bavail) * qint64(info.f_frsize);
    QFile filler(file("filler"));
    if (!filler.open(QIODevice::WriteOnly | QIODevice::Append))
        return false;
    const QByteArray block(4096, '\x5a');
    for (qint64 left = available - freeBytes; left > 0; left -= block.size())
        if (filler.write(block.constData(), std::min<qint64>(left, block.size())) <= 0)
            break;
    return filler.flush();
}

PreferencesGuard::PreferencesGuard() {
    kaPreferences::resetToDefaults();
}
PreferencesGuard::~PreferencesGuard() {
    kaPreferences::resetToDefaults();
}

} // namespace katest
