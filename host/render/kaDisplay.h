#pragma once

// The kind of display a viewport's picture is made for.
enum kaDisplay : int {
    kaDisplayStandard = 0, // standard dynamic range (sRGB monitors, files)
    kaDisplayHDR10 = 1,    // high dynamic range, PQ encoded
    kaDisplayScRGB = 2,    // high dynamic range, linear extended sRGB
};
