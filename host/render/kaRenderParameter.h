#pragma once

#include <cstdint>

// The host's render settings that exports read. Thread-safe.
class kaRenderParameter {
public:
    // Time-based rendering: render for a fixed time instead of a fixed sample count.
    static bool getUseRenderTimeLimit();
    static void setUseRenderTimeLimit(bool on);
    static double getRenderTimeInSeconds();
    static void setRenderTimeInSeconds(double seconds);
    // 0 off, 1 light, 2 and above: a denoiser that needs the whole frame.
    static int getDenoiseFilter();
    static void setDenoiseFilter(int filter);
    // Extra images the denoiser reads (albedo, normal, ...).
    static int getDenoiserInput();
    static void setDenoiserInput(int images);
    static uint64_t getDenoiserPassesMask();
    static void setDenoiserPassesMask(uint64_t mask);
    // Supersampling of still frames, image samples, and the first sample index.
    static int getStillFrameSupersampling();
    static void setStillFrameSupersampling(int level);
    static int getImageSamples();
    static void setImageSamples(int samples);
    static int getSampleOffset();
    // The same first sample index, under the name raytracing exports read it by.
    static int getRaytracingSampleOffset() { return getSampleOffset(); }
    static void setSampleOffset(int offset);
};
