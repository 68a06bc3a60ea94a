#pragma once

#include "kaColorMatrix.h"

#include <QByteArray>
#include <QString>

#include <array>
#include <vector>

// An ICC profile file and what the display transform needs from it: the matrix from linear
// sRGB into the profile's linear RGB, and per channel a table from linear value to encoded
// value. Only RGB matrix/shaper profiles give these; others load their bytes (for embedding)
// but do not count as loaded. Read-only after load: thread-safe to share; load() itself is safe
// from any thread (one lcms2 context per call).
class kaICCProfile {
public:
    static constexpr int kTableSize = 1024;

    kaICCProfile() = default;
    explicit kaICCProfile(const QString& fileName) { load(fileName); }

    // Reads the file; false (and not loaded) when it is missing, no ICC profile, or not an
    // RGB matrix/shaper profile. The file's bytes are kept whenever it is an ICC profile.
    bool load(const QString& fileName);
    bool isLoaded() const { return _loaded; }
    const QString& getFileName() const { return _fileName; }
    const QByteArray& getData() const { return _data; }
    QString getDescription() const { return _description; }

    kaColorMatrix getConversionMatrix() const { return _matrix; }
    // Entry i is the encoded value (0..1) of the linear value (i + 0.5) / kTableSize.
    const std::array<float, kTableSize>& getOutputTable(int channel) const {
        return _tables[channel];
    }

    // For pictures of linear values: the profile 'bytes' with its tone curves made linear (the
    // same primaries and white), and in 'chromaticities' the primaries' and white's x, y
    // (red, green, blue, white) as they are before the profile's adaptation to D50. Empty for
    // profiles that are no RGB matrix/shaper profile. Safe from any thread.
    static QByteArray linearized(const QByteArray& bytes, std::array<float, 8>* chromaticities);

private:
    QString _fileName;
    QByteArray _data;
    QString _description;
    bool _loaded = false;
    kaColorMatrix _matrix;
    std::array<std::array<float, kTableSize>, 3> _tables{};
};
