#pragma once

#include <QString>

// The scene file the host has open. GUI thread writes, any thread reads.
class kaFileIO {
public:
    // Empty when the scene was not loaded from a file (the built-in scene).
    static QString getFilename();
    static void setFilename(const QString& fileName);
};
