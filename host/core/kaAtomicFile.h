#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Writes one file so that its final name only ever holds the old file or the complete new one,
// also after a crash or a power cut. Everything is written into a private staging folder beside
// the final name (same file system, so the final move is a rename); every write, flush and close
// is checked; commit() flushes the file to the disk, renames it into place and flushes the
// folder. Whatever is not committed, the staging folder with all that other code put in it
// included, is removed when the object goes, on every path out, exceptions included.
//
// One object is used by one thread at a time; the class-wide setting is safe from any thread.
class kaAtomicFile {
public:
    explicit kaAtomicFile(std::string finalName);
    ~kaAtomicFile();
    kaAtomicFile(const kaAtomicFile&) = delete;
    kaAtomicFile& operator=(const kaAtomicFile&) = delete;

    // Makes the staging folder and creates the staged file in it, open for writing. False, with
    // error(), when the folder is not writable.
    bool open();

    const std::string& finalName() const { return _finalName; }
    // The staged file: the final file name inside the staging folder, so that writers that go
    // by the extension see the right one. Empty before open().
    const std::string& stagedName() const { return _stagedName; }
    // The staged file's descriptor; -1 before open() and after close().
    int descriptor() const { return _fd; }

    // All of 'data' after what write() wrote before, or at 'offset'; false on any failure (the
    // first failure is kept in error()).
    bool write(const void* data, size_t size);
    bool writeAt(const void* data, size_t size, uint64_t offset);
    // Bytes read from 'offset' of the staged file (-1 on failure).
    long long readAt(void* data, size_t size, uint64_t offset);

    // Closes the staged file, checked. Other code may then rewrite it by its staged name.
    bool close();

    // Flushes the staged file to the disk, moves it to the final name and flushes the folder.
    // When replacing is off, a file that exists under the final name at that moment is kept
    // and commit() fails. A replaced file's permissions carry over to the new one.
    bool commit();
    bool committed() const { return _committed; }

    // Other code that wrote into the staging folder and failed without saying why (an XMP
    // toolkit, say): tries a small write, flush and rename there and returns what went wrong
    // ("No space left on device"), or "" when the disk takes them.
    std::string probeStagingFolder() const;

    // Records a failure found by the caller (a codec's error); the first failure is kept.
    void fail(const std::string& reason);
    bool failed() const { return !_error.empty(); }
    const std::string& error() const { return _error; }

    // Whether commit() replaces a file that exists under the final name. On by default: a
    // desktop asks the user before it exports; a command line without "replace" turns it off,
    // so that two programs writing one name can never silently overwrite each other.
    static void setReplaceExisting(bool replace);
    static bool replaceExisting();
    // The error of a commit that found the final name taken while replacing was off.
    static const char* existsError();

    // Files opened and not yet committed or given up, in the whole process.
    static int inProgress();
    // From now on open() fails ("the program is stopping"): a program that must end at once
    // closes the gate, waits until inProgress() is 0 and can then end without leaving anything
    // staged behind.
    static void refuseNewFiles();

private:
    bool failWithErrno(const char* what);
    void removeStaged();

    std::string _finalName;
    std::string _stagingFolder;
    std::string _stagedName;
    std::string _error;
    int _fd = -1;
    uint64_t _position = 0; // where write() goes on
    bool _committed = false;
    bool _counted = false;
};
