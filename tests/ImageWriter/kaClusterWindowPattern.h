#pragma once

// A cluster window whose buffer holds a pattern that names every pixel's place, for the tests
// of the cluster's preview and dialog.

#include "OSGNetWindow.h"

#include <QColor>

#include <cstddef>
#include <cstdint>

namespace katest {

// A pixel that names its own position: red and green the low bytes of x and y, blue their high
// nibbles, alpha varying (never 255, so that a lost or misplaced alpha byte shows).
inline QRgb patternPixel(int x, int y) {
    return qRgba(x & 0xFF, y & 0xFF, ((x >> 8) << 4) | (y >> 8), 0x80 + (x * 3 + y) % 127);
}

// The pattern as an opaque picture shows it (QImage::pixel of an RGB32 image, a screenshot).
inline QRgb opaquePatternPixel(int x, int y) {
    return patternPixel(x, y) | 0xFF000000u;
}

// A cluster window in snapshot state with a byte buffer of 'width' x 'height' holding
// patternPixel (rows bottom-up, as the cluster delivers them).
inline osg::NetWindowPtr byteWindow(int width, int height) {
    osg::NetWindowPtr window = osg::NetWindow::create();
    window->setSize(uint32_t(width), uint32_t(height));
    window->setImageOps(0);
    window->setRenderPasses(1);
    window->setSnapshot(true);
    window->prepareBuffer();
    uint8_t* data = window->getBuffer();
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const QRgb p = patternPixel(x, y);
            uint8_t* out = data + (size_t(y) * size_t(width) + size_t(x)) * 4;
            out[0] = uint8_t(qRed(p));
            out[1] = uint8_t(qGreen(p));
            out[2] = uint8_t(qBlue(p));
            out[3] = uint8_t(qAlpha(p));
        }
    return window;
}

} // namespace katest
