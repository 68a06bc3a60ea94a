#pragma once

#include "OSGImage.h"

#include <atomic>
#include <mutex>

// How the host turns linear float pictures into display values: the display-transform mode
// (0 gamma, 1 sRGB, 2 Adobe RGB, 3 active profile, 4 image profile, 5 none), the gamma
// exponent of mode 0, and dithering with a dither image (float RGB, values 0..1, tiled).
// One per process. Thread-safe.
class kaImagePostprocessor {
public:
    static kaImagePostprocessor* getImagePostprocessor();

    int getMode() const;
    void setMode(int mode);
    // The exponent applied in mode 0 (1/2.2 at start).
    float getGamma() const;
    void setGamma(float gamma);
    bool getDithering() const;
    void setDithering(bool dithering);
    // A 64 x 64 ordered-dither image at start; null switches dithering off in effect.
    osg::ImagePtr getDitherImage() const;
    void setDitherImage(const osg::ImagePtr& image);

private:
    kaImagePostprocessor();

    // Read for every pixel a display transform makes: plain atomics, no lock.
    std::atomic<int> _mode{1};
    std::atomic<float> _gamma{1.0f / 2.2f};
    std::atomic<bool> _dithering{true};
    mutable std::mutex _ditherMutex;
    osg::ImagePtr _ditherImage;
};
