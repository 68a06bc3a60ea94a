#pragma once

#include "OSGImage.h"

namespace osg {

// Reconstruction filters for ImageScaler, sized in pixels of the destination image.
class ImageFilter {
public:
    virtual ~ImageFilter() = default;
    float getRadius() const { return _radius; }
    virtual const char* getName() const = 0;

protected:
    explicit ImageFilter(float radius)
        : _radius(radius) {}

private:
    float _radius;
};

// Averages everything within the radius: radius 0.5 is one destination pixel.
class ImageBoxFilter : public ImageFilter {
public:
    explicit ImageBoxFilter(float radius = 0.5f)
        : ImageFilter(radius) {}
    const char* getName() const override { return "box"; }
};

// Weights falling linearly to zero at the radius (a tent).
class ImageLinearFilter : public ImageFilter {
public:
    explicit ImageLinearFilter(float radius = 1.0f)
        : ImageFilter(radius) {}
    const char* getName() const override { return "triangle"; }
};

// Resamples images to another size. Thread-safe.
class ImageScaler {
public:
    // Fills 'destination', which must already be set with the wanted size, pixel format and
    // data type, with 'source' resized by 'filter' (the whole source maps onto the whole
    // destination). The pixel formats must match; data types are converted. False, with a
    // logged reason, when an image is empty or the formats differ.
    static bool scale(const ImagePtr& source, const ImagePtr& destination,
                      const ImageFilter& filter);
};

} // namespace osg
