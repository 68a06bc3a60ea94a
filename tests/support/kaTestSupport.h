#pragma once

#include "kaLog.h"

#include <QByteArray>
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

// Every name in 'folder', hidden ones included, sorted.
std::vector<std::string> folderEntries(const QString& folder);
// The file's bytes; empty when it can't be read.
QByteArray fileBytes(const QString& path);
// Writes 'bytes' to 'path' whole; false when it can't.
bool writeFile(const QString& path, const QByteArray& bytes);
// An image file's pixels as floats, channel after channel, read with OpenImageIO; empty when
// the file does not read back whole.
std::vector<float> imagePixels(const QString& path);

// A glTF 2.0 file as an authoring tool exports a keyframed object: a triangle node "Mover" lit
// by nothing, that an animation "Move" carries from (0, 0, 0) to (2, 0, 0) while turning it a
// quarter turn about Y, over the first second (linear keys at 0 s and 1 s), and a still
// triangle node "Still" at (0, 0, -1); a camera node "Cam" at (1, 0.5, 6) looks at them.
QByteArray animatedGltf();

// A small file system of its own (tmpfs) that a test can fill up, for the real thing behind
// the injected faults. Mounting needs root and a machine that allows it: check isMounted()
// and skip otherwise. Unmounted and removed when the object goes.
class SmallDisk {
public:
    explicit SmallDisk(int kilobytes = 2048);
    ~SmallDisk();
    bool isMounted() const { return _mounted; }
    QString path() const { return _dir.path(); }
    QString file(const QString& name) const { return _dir.filePath(name); }
    // Fills the disk up to all but 'freeBytes' with a file named "filler".
    bool fill(qint64 freeBytes = 0);

private:
    QTemporaryDir _dir;
    bool _mounted = false;
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
