#pragma once

// The raytracer's settings that exports change and read. Quality 1 is the full render quality
// (interactive quality is lower). Changes take effect when the change list is applied.
// GUI thread only.
class kaRaytracer {
public:
    static int getQuality();
    static void setQuality(int quality);
    // Hands pending setting changes to the raytracer; returns how many were applied.
    static int applyChangeList();
    // The quality the raytracer renders with (as of the last applyChangeList).
    static int getAppliedQuality();
    // Whether alpha is premultiplied into the colours of raytraced images.
    static bool getPremultiply();
    static void setPremultiply(bool premultiply);
};
