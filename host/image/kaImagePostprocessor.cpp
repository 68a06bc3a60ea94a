#include "kaImagePostprocessor.h"

namespace {

// Bayer index of (x, y) in a 2^bits square: every value 0 .. 4^bits - 1 once, spread evenly.
unsigned bayer(unsigned x, unsigned y, unsigned bits) {
    unsigned v = 0;
    for (unsigned bit = 0; bit < bits; ++bit) {
        unsigned xb = (x >> bit) & 1u, yb = (y >> bit) & 1u;
        v = (v << 2) | ((xb ^ yb) << 1) | yb;
    }
    return v;
}

// An ordered dither whose channels use shifted patterns, so that the noise is not grey.
osg::ImagePtr makeDitherImage() {
    const int size = 64;
    osg::ImagePtr image = osg::Image::create();
    image->set(osg::Image::OSG_RGB_PF, size, size, 1, 1, 1, 0.0, nullptr,
               osg::Image::OSG_FLOAT32_IMAGEDATA);
    auto* v = reinterpret_cast<float*>(image->getData());
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x)
            for (int c = 0; c < 3; ++c) {
                unsigned index = bayer(unsigned(x + 21 * c) % size, unsigned(y + 37 * c) % size, 6);
                v[(y * size + x) * 3 + c] = (float(index) + 0.5f) / float(size * size);
            }
    return image;
}

} // namespace

kaImagePostprocessor::kaImagePostprocessor()
    : _ditherImage(makeDitherImage()) {}

kaImagePostprocessor* kaImagePostprocessor::getImagePostprocessor() {
    static kaImagePostprocessor postprocessor;
    return &postprocessor;
}

int kaImagePostprocessor::getMode() const {
    return _mode;
}
void kaImagePostprocessor::setMode(int mode) {
    _mode = mode;
}
float kaImagePostprocessor::getGamma() const {
    return _gamma;
}
void kaImagePostprocessor::setGamma(float gamma) {
    _gamma = gamma;
}
bool kaImagePostprocessor::getDithering() const {
    return _dithering;
}
void kaImagePostprocessor::setDithering(bool dithering) {
    _dithering = dithering;
}

osg::ImagePtr kaImagePostprocessor::getDitherImage() const {
    std::lock_guard<std::mutex> lock(_ditherMutex);
    return _ditherImage;
}

void kaImagePostprocessor::setDitherImage(const osg::ImagePtr& image) {
    std::lock_guard<std::mutex> lock(_ditherMutex);
    _ditherImage = image;
}
