#pragma once

#include "OSGCamera.h"
#include "OSGImage.h"
#include "OSGViewport.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class kaRTScene;
class kaRTCryptoAccumulator;

// Renders a region of a picture with the raytracer into render-pass images, sample after
// sample over all the machine's cores. Sample k of a pixel depends only on the pixel of the
// whole picture, k and the frame, so tiles, thread counts and machines agree. GUI thread only.
class kaRTRenderer {
public:
    static kaRTRenderer& the();

    struct Region {
        int fullWidth = 0, fullHeight = 0;       // the whole picture
        int x = 0, y = 0, width = 0, height = 0; // the part to render (rows bottom-up)
        int imageX = 0, imageY = 0;              // where the part goes in the images
    };
    // Renders samples 0 .. samples - 1 into 'images' (indexed by render pass; null entries are
    // not rendered), each image in its own pixel format and data type. With 'onlySample' >= 0
    // only that sample is made and added to the earlier samples of the same region (sample 0
    // starts over). The viewport's event-processing callback is told of every sample and stops
    // the render by returning false; with a render time limit the render goes on, sample after
    // sample, until the sample that passes it. The callback is also asked, with 'advance'
    // false, every 50 ms while a sample renders, and kaController::rendersInterrupted() is read
    // before every row: a stop inside a sample keeps none of it (the images stay as they were,
    // the next render of the region starts over) and is seen within a row. Progress inside a
    // sample goes to kaController::setRenderStepProgress. False on errors (with 'error') and
    // when stopped (without one).
    bool render(const osg::UberViewport& viewport, const osg::Camera& camera, const Region& region,
                const std::vector<osg::ImagePtr>& images, int samples, int onlySample,
                std::string& error);

    // Gives back the sums of the last region (an export calls it when its renders are done;
    // the next sample of that region then starts over).
    void releaseBuffers();

    // Samples made by the last render call (for diagnostics and tests).
    int getLastSampleCount() const { return _lastSamples; }
    // Rays (camera, bounce and shadow rays) the last render call traced.
    uint64_t getLastRayCount() const { return _lastRays; }

private:
    kaRTRenderer();
    ~kaRTRenderer();
    struct Accumulation;
    std::unique_ptr<kaRTScene> _scene;
    std::unique_ptr<Accumulation> _accumulation;
    int _lastSamples = 0;
    uint64_t _lastRays = 0;
};
