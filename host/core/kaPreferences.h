#pragma once

#include "kaMessage.h"

#include <QString>

// The host's one preference store. getData() is the message every reader consults.
// Files are JSON with each value's type written beside it, so a float stays a float and an
// int list stays an int list across a save and a load.
// load(), save() and resetToDefaults() are for the GUI thread; getData() and reading or
// setting its values are safe from any thread (kaMessage).
class kaPreferences {
public:
    static kaMessage& getData();

    // Replaces the store by the host defaults (kaPreferenceKeys).
    static void resetToDefaults();

    // Reads 'path' over the host defaults into 'out' without touching the store; false with
    // the reason in 'error' (unreadable, malformed, a value of an unknown type).
    static bool read(const QString& path, kaMessage& out, QString& error);

    // Loads 'path' over the defaults. On failure (unreadable, malformed, a value of an unknown
    // type) the store holds the defaults, 'error' says what was wrong and the file is left
    // untouched; a later save() to the same path first moves the file aside to
    // "<path>.broken" (or .broken-N) so that nothing the user had is lost.
    static bool load(const QString& path, QString* error = nullptr);

    // Writes the store to 'path' through a temporary file that replaces it only when complete.
    static bool save(const QString& path, QString* error = nullptr);

    // Last path given to load() or save(); empty when none.
    static QString getPath();
};
