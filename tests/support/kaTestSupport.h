#pragma once

#include "kaLog.h"

#include <QString>
#include <QTemporaryDir>

#include <string>
#include <vector>

namespace katest {

// A fresh folder for one test, removed afterwards.
class TempDir {
public:
    TempDir();
    QString path() const { return _dir.path(); }
    // Absolute path of 'name' inside the folder.
    QString file(const QString& name) const { return _dir.filePath(name); }
    std::string fileStd(const QString& name) const { return file(name).toStdString(); }

private:
    QTemporaryDir _dir;
};

// Collects the host log while it lives.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    struct Entry {
        kaLog::Level level;
        std::string text;
    };
    std::vector<Entry> entries() const;
    std::vector<std::string> texts(kaLog::Level level) const;
    bool contains(kaLog::Level level, const std::string& text) const;

private:
    int _sink;
};

// Restores the preference store to the host defaults when a test ends.
class PreferencesGuard {
public:
    PreferencesGuard();
    ~PreferencesGuard();
};

} // namespace katest
