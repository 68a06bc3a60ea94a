#pragma once

#include "OSGBaseTypes.h"
#include "OSGCamera.h"
#include "OSGChangeList.h"
#include "OSGNode.h"

#include <cstdint>
#include <vector>

namespace osg {

// What is behind the scene: every pixel no surface covers gets the background's colour and
// alpha.
class Background : public FieldContainer {
public:
    // The colour (linear) and alpha at vertical position 'v' (0 bottom, 1 top).
    virtual Color4f colorAt(float v) const = 0;
    // The colour shown behind transparent pixels of pictures with straight alpha (linear).
    virtual const Color3f& getAlphaColor() const = 0;
};
using BackgroundPtr = RefPtr<Background>;

class SolidBackground : public Background {
public:
    enum : BitVector { ColorFieldMask = 1 << 0 };
    static RefPtr<SolidBackground> create(const Color3f& color = {0, 0, 0});
    const char* getTypeName() const override { return "SolidBackground"; }
    void setColor(const Color3f& color);
    const Color3f& getColor() const { return _color; }
    // With an alpha below 1 the background shows the alpha colour, weighted by the alpha.
    void setAlphaColor(const Color3f& color, float alpha);
    const Color3f& getAlphaColor() const override { return _alphaColor; }
    float getAlpha() const { return _alpha; }
    void setBackplateMode(bool on);
    bool getBackplateMode() const { return _backplate; }
    Color4f colorAt(float) const override;

private:
    SolidBackground() = default;
    Color3f _color, _alphaColor{1, 1, 1};
    float _alpha = 1.0f;
    bool _backplate = false;
};

// A vertical gradient from a bottom to a top colour. With alpha below 1 the background shows
// the alpha colour, weighted by the alpha: exports with alpha set alpha 0, so transparent
// pixels carry the chosen colour.
class Gradient2Background : public Background {
public:
    enum : BitVector {
        ColorsFieldMask = 1 << 0,
        AlphaFieldMask = 1 << 1,
        AlphaColorFieldMask = 1 << 2,
        BackplateFieldMask = 1 << 3
    };
    static RefPtr<Gradient2Background> create();
    const char* getTypeName() const override { return "Gradient2Background"; }
    void setColors(const Color3f& bottom, const Color3f& top);
    const Color3f& getBottomColor() const { return _bottom; }
    const Color3f& getTopColor() const { return _top; }
    void setAlpha(float alpha);
    float getAlpha() const { return _alpha; }
    void setAlphaColor(const Color3f& color);
    const Color3f& getAlphaColor() const override { return _alphaColor; }
    // Whether a backplate image is shown instead of the gradient.
    void setBackplateMode(bool on);
    bool getBackplateMode() const { return _backplate; }
    Color4f colorAt(float v) const override;

private:
    Gradient2Background() = default;
    Color3f _bottom{0.5f, 0.5f, 0.5f}, _top{0.5f, 0.5f, 0.5f}, _alphaColor{1, 1, 1};
    float _alpha = 1.0f;
    bool _backplate = false;
};
using Gradient2BackgroundPtr = RefPtr<Gradient2Background>;

// How a camera's high-dynamic-range image becomes a display image.
class TonemappingSettings : public FieldContainer {
public:
    enum : BitVector { TonemapHDRFieldMask = 1 << 0, PostprocessingFieldMask = 1 << 1 };
    static RefPtr<TonemappingSettings> create();
    const char* getTypeName() const override { return "TonemappingSettings"; }
    void setTonemapHDR(bool on);
    bool getTonemapHDR() const { return _tonemapHDR; }
    // Post-processing steps that need the whole frame (bloom 1, glare 2, ...).
    void setPostprocessingFlags(uint32_t flags);
    uint32_t getPostprocessingFlags() const { return _postprocessing; }
    bool hasPostprocessingFlag(uint32_t flag) const { return (_postprocessing & flag) != 0; }

private:
    TonemappingSettings() = default;
    bool _tonemapHDR = false;
    uint32_t _postprocessing = 0;
};
using TonemappingSettingsPtr = RefPtr<TonemappingSettings>;

// A rectangle of a window that shows a scene through a camera in front of a background, with
// the settings of the host's renderers.
class UberViewport : public FieldContainer {
public:
    enum : BitVector {
        CameraFieldMask = 1 << 0,
        BackgroundFieldMask = 1 << 1,
        RootFieldMask = 1 << 2,
        SizeFieldMask = 1 << 3,
        DisplayFieldMask = 1 << 4,
        SettingsFieldMask = 1 << 5
    };
    // Called by renderers during long renders, once per sample with advance = true; returning
    // false stops the render.
    using EventProcessingCB = bool (*)(int, int, bool advance, void* context);

    static RefPtr<UberViewport> create();
    const char* getTypeName() const override { return "UberViewport"; }

    const CameraPtr& getCamera() const { return _camera; }
    void setCamera(const CameraPtr& camera);
    const BackgroundPtr& getBackground() const { return _background; }
    void setBackground(const BackgroundPtr& background);
    const NodePtr& getRoot() const { return _root; }
    void setRoot(const NodePtr& root);
    // The part of the window, as fractions 0..1.
    void setSize(float left, float bottom, float right, float top);
    float getLeft() const { return _left; }
    float getBottom() const { return _bottom; }
    float getRight() const { return _right; }
    float getTop() const { return _top; }

    int getDisplay() const { return _display; }
    void setDisplay(int display);
    float getHdrReferenceWhite() const { return _hdrReferenceWhite; }
    void setHdrReferenceWhite(float white);
    int getDeepLearningSS() const { return _deepLearningSS; }
    void setDeepLearningSS(int level);
    // Sets the level without recording a change (renderers see it at their next full update).
    void setDeepLearningSSUnrecorded(int level) { _deepLearningSS = level; }

    // Samples per pixel for a sample-quality index: 1, 2, 4, 9, 16 for 0..4 (16 above).
    int getSamples(int quality) const;
    void setEventProcessingCB(EventProcessingCB callback, void* context);
    EventProcessingCB getEventProcessingCB() const { return _callback; }
    void* getEventProcessingContext() const { return _callbackContext; }

    uint64_t getRenderPasses() const { return _renderPasses; }
    void setRenderPasses(uint64_t mask);
    int getDownscale() const { return _downscale; }
    void setDownscale(int factor);
    // The one sample a render should make (-1: all).
    int getRtSample() const { return _rtSample; }
    void setRtSample(int sample);
    int getImageSamples() const { return _imageSamples; }
    void setImageSamples(int samples);
    // Says that lights or animated objects moved for the next frame (a motion-blur sample):
    // recorded as a change of the viewport's settings for the renderers that keep maps.
    void triggerMapUpdate();

private:
    UberViewport() = default;
    CameraPtr _camera;
    BackgroundPtr _background;
    NodePtr _root;
    float _left = 0, _bottom = 0, _right = 1, _top = 1;
    int _display = 0;
    float _hdrReferenceWhite = 80.0f;
    int _deepLearningSS = 0;
    EventProcessingCB _callback = nullptr;
    void* _callbackContext = nullptr;
    uint64_t _renderPasses = 1;
    int _downscale = 1, _rtSample = -1, _imageSamples = 1;
};
using UberViewportPtr = RefPtr<UberViewport>;

// A drawing surface of a size in pixels with its viewports.
class Window : public FieldContainer {
public:
    enum : BitVector { SizeFieldMask = 1 << 0, ViewportsFieldMask = 1 << 1 };
    static RefPtr<Window> create();
    const char* getTypeName() const override { return "Window"; }
    void setSize(uint32_t width, uint32_t height);
    uint32_t getWidth() const { return _width; }
    uint32_t getHeight() const { return _height; }
    void addViewport(const UberViewportPtr& viewport);
    size_t getNViewports() const { return _viewports.size(); }
    const UberViewportPtr& getViewport(size_t index) const { return _viewports.at(index); }

protected:
    Window() = default;

private:
    uint32_t _width = 640, _height = 480;
    std::vector<UberViewportPtr> _viewports;
};
using WindowPtr = RefPtr<Window>;

} // namespace osg
