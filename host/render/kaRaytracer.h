#pragma once

#include "OSGViewport.h"

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
    // Whether alpha is premultiplied into the colours of rendered float images, by both
    // renderers (integer images always hold straight colour); exports record it.
    static bool getPremultiply();
    static void setPremultiply(bool premultiply);
    // Threads a render uses; 0 (the default) uses every core of the machine.
    // Whether the raytracer renders for a snapshot (the full picture, no interactive shortcuts).
    static bool getSnapshot();
    static void setSnapshot(bool on);
    static int getThreadCount();
    static void setThreadCount(int threads);
    // Samples a pixel gets at a sample-quality index: the viewport's samples for it, times the
    // image samples and the still-frame supersampling of the render parameters.
    static int getSamples(const osg::UberViewport& viewport, int quality);
};
