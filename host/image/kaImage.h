#pragma once

#include <string>

// Host image helpers.
class kaImage {
public:
    // Suffix of the format used when a file name has none ("png" unless the host changes it).
    static std::string getDefaultImageFormat();
    static void setDefaultImageFormat(const std::string& suffix);
};
