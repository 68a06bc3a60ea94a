#pragma once

#include "OSGImage.h"

#include <QImage>

// Converts between scene-graph images (rows bottom-up, any data type) and QImages (rows
// top-down, 32-bit). Thread-safe.
class QImageConverter {
public:
    // Fills 'out' with 'image': into 'out' itself when it already has the image's size and a
    // 32-bit format, else into a new QImage (ARGB32 with alpha, RGB32 without). Float and half
    // values are clamped to 0..1. 'flags' is reserved and must be 0.
    static bool convertToQImage(QImage& out, const osg::ImagePtr& image, int flags = 0);

    // Fills 'out' with 'image': into out's own storage, keeping its pixel format (RGB or RGBA)
    // and data type (8-bit, half, float), when it exists with the QImage's size; else 'out'
    // becomes a new 8-bit RGBA image. False when 'image' is null.
    static bool convertToOSGImage(osg::ImagePtr& out, const QImage& image);
};
