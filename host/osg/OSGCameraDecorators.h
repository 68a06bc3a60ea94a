#pragma once

#include "OSGCamera.h"

#include <vector>

namespace osg {

// One rectangle of a larger image: the decoratee's frustum for the full image, cut to the part
// from (left, bottom) to (right, top), given as fractions 0..1 of the full width and height.
// Rendering every tile and putting them together gives the full image.
class TileCameraDecorator : public CameraDecorator {
public:
    enum : BitVector { SizeFieldMask = 1 << 6, FullSizeFieldMask = 1 << 7 };
    static RefPtr<TileCameraDecorator> create();
    const char* getTypeName() const override { return "TileCameraDecorator"; }

    void setSize(float left, float bottom, float right, float top);
    float getLeft() const { return _left; }
    float getBottom() const { return _bottom; }
    float getRight() const { return _right; }
    float getTop() const { return _top; }
    // The size in pixels of the whole image the tiles make up.
    void setFullSize(uint32_t width, uint32_t height);
    uint32_t getFullWidth() const { return _fullWidth; }
    uint32_t getFullHeight() const { return _fullHeight; }

    // The tile's part of the decoratee's full-image projection; 'width' and 'height' (the tile
    // in pixels) do not change it.
    Matrix getProjection(uint32_t width, uint32_t height) const override;
    Matrix getViewing(uint32_t width, uint32_t height) const override;

private:
    TileCameraDecorator() = default;
    float _left = 0.0f, _bottom = 0.0f, _right = 1.0f, _top = 1.0f;
    uint32_t _fullWidth = 1, _fullHeight = 1;
};
using TileCameraDecoratorPtr = RefPtr<TileCameraDecorator>;

// One eye of a row of eyes: the decoratee moved sideways by eye offset x eye separation, its
// frustum sheared so that the plane at the zero-parallax distance stays where it is.
class MultiStereoCameraDecorator : public CameraDecorator {
public:
    enum : BitVector {
        EyeSeparationFieldMask = 1 << 6,
        ZeroParallaxFieldMask = 1 << 7,
        EyeOffsetFieldMask = 1 << 8
    };
    static RefPtr<MultiStereoCameraDecorator> create();
    const char* getTypeName() const override { return "MultiStereoCameraDecorator"; }

    void setEyeSeparation(float separation);
    float getEyeSeparation() const { return _eyeSeparation; }
    void setZeroParallaxDistance(float distance);
    float getZeroParallaxDistance() const { return _zeroParallax; }
    // In eye separations: -0.5 and 0.5 for two eyes, 0 for the centre.
    void setEyeOffset(float offset);
    float getEyeOffset() const { return _eyeOffset; }

    Matrix getProjection(uint32_t width, uint32_t height) const override;
    Matrix getViewing(uint32_t width, uint32_t height) const override;

protected:
    MultiStereoCameraDecorator() = default;
    float _eyeSeparation = 0.065f, _zeroParallax = 10.0f, _eyeOffset = 0.0f;
};
using MultiStereoCameraDecoratorPtr = RefPtr<MultiStereoCameraDecorator>;

// The left or right eye of a two-eye pair, as a multi-eye decorator at -0.5 or +0.5.
class ShearedStereoCameraDecorator : public MultiStereoCameraDecorator {
public:
    static RefPtr<ShearedStereoCameraDecorator> create();
    const char* getTypeName() const override { return "ShearedStereoCameraDecorator"; }
    void setLeftEye(bool left) { setEyeOffset(left ? -0.5f : 0.5f); }
    bool getLeftEye() const { return _eyeOffset < 0.0f; }

private:
    ShearedStereoCameraDecorator() = default;
};
using ShearedStereoCameraDecoratorPtr = RefPtr<ShearedStereoCameraDecorator>;

// A viewer in front of a real screen (a powerwall): an off-axis projection from the eye, at the
// decoratee's beacon position moved half an eye separation left or right, through the
// rectangle of the four surface corners (world space, lower left, lower right, upper right,
// upper left).
class ProjectionCameraDecorator : public CameraDecorator {
public:
    enum : BitVector {
        EyeSeparationFieldMask = 1 << 6,
        LeftEyeFieldMask = 1 << 7,
        SurfaceFieldMask = 1 << 8
    };
    static RefPtr<ProjectionCameraDecorator> create();
    const char* getTypeName() const override { return "ProjectionCameraDecorator"; }

    void setEyeSeparation(float separation);
    float getEyeSeparation() const { return _eyeSeparation; }
    void setLeftEye(bool left);
    bool getLeftEye() const { return _leftEye; }
    std::vector<Pnt3f>& editSurface() { return _surface; }
    const std::vector<Pnt3f>& getSurface() const { return _surface; }
    // The eye position in world space.
    Pnt3f getEyePosition() const;

    // Without four corners these are the decoratee's.
    Matrix getProjection(uint32_t width, uint32_t height) const override;
    Matrix getViewing(uint32_t width, uint32_t height) const override;

private:
    ProjectionCameraDecorator() = default;
    float _eyeSeparation = 0.065f;
    bool _leftEye = true;
    std::vector<Pnt3f> _surface;
};
using ProjectionCameraDecoratorPtr = RefPtr<ProjectionCameraDecorator>;

} // namespace osg
