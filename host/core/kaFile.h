#pragma once

#include <QString>

#include <string>

// File names and paths as the host handles them. All names are UTF-8 when narrow.
// Safe from any thread (background image writers expand names and create folders), except
// checkWrite, which may ask the user and belongs to the GUI thread.
class kaFile {
public:
    // Resolves "$NAME" and "${NAME}" (host path variables first, such as KALO_DATA, then the
    // environment; an unknown name is left as written), a leading "~", turns "\" into "/"
    // outside Windows and makes a relative name absolute against the current folder.
    // An empty name stays empty.
    static std::string expandFilename(const std::string& name);
    static QString expandFilename(const QString& name);

    // Host path variables that expandFilename resolves before the environment.
    static void setPathVariable(const QString& name, const QString& value);
    static QString getPathVariable(const QString& name);

    // Extension of the file-name part without its dot ("" when none): "a/b.tar.gz" -> "gz".
    static std::string getExtension(const std::string& name);
    static QString getExtension(const QString& name);
    // Folder part without the trailing "/" ("" for a bare file name, "/" for the root).
    static QString getFilePath(const QString& name);
    // File-name part: "a/b.png" -> "b.png".
    static QString getFileName(const QString& name);
    // File-name part without its extension: "a/b.png" -> "b".
    static QString getBaseName(const QString& name);

    // Creates the folder and its parents; true when it exists afterwards. An empty path is the
    // current folder and succeeds.
    static bool createPath(const QString& path);
    static bool exists(const QString& name);

    // Whether 'name' may be written: false when its folder is missing or not writable or the
    // file exists and is not writable (logged as an error when 'report'). When the file exists
    // and 'ask' is true the user is asked whether to overwrite it; without a GUI the answer is
    // kaController::getBatchOverwrite() and is logged.
    static bool checkWrite(const QString& name, bool ask, bool report);
};
