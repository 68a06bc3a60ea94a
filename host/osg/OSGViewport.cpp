#include "OSGViewport.h"

#include <algorithm>

namespace osg {

RefPtr<SolidBackground> SolidBackground::create(const Color3f& color) {
    RefPtr<SolidBackground> b(new SolidBackground());
    b->_color = color;
    return b;
}
void SolidBackground::setColor(const Color3f& color) {
    _color = color;
    recordChange(BackgroundPtr(this), ColorFieldMask);
}
void SolidBackground::setAlphaColor(const Color3f& color, float alpha) {
    _alphaColor = color;
    _alpha = alpha;
    recordChange(BackgroundPtr(this), ColorFieldMask);
}
void SolidBackground::setBackplateMode(bool on) {
    _backplate = on;
    recordChange(BackgroundPtr(this), ColorFieldMask);
}
Color4f SolidBackground::colorAt(float) const {
    const float a = _alpha;
    return {_color.r * a + _alphaColor.r * (1 - a), _color.g * a + _alphaColor.g * (1 - a),
            _color.b * a + _alphaColor.b * (1 - a), a};
}

RefPtr<Gradient2Background> Gradient2Background::create() {
    return RefPtr<Gradient2Background>(new Gradient2Background());
}
void Gradient2Background::setColors(const Color3f& bottom, const Color3f& top) {
    _bottom = bottom;
    _top = top;
    recordChange(BackgroundPtr(this), ColorsFieldMask);
}
void Gradient2Background::setAlpha(float alpha) {
    _alpha = alpha;
    recordChange(BackgroundPtr(this), AlphaFieldMask);
}
void Gradient2Background::setAlphaColor(const Color3f& color) {
    _alphaColor = color;
    recordChange(BackgroundPtr(this), AlphaColorFieldMask);
}
void Gradient2Background::setBackplateMode(bool on) {
    _backplate = on;
    recordChange(BackgroundPtr(this), BackplateFieldMask);
}
Color4f Gradient2Background::colorAt(float v) const {
    const float t = std::min(std::max(v, 0.0f), 1.0f), a = _alpha;
    const Color3f g{_bottom.r + (_top.r - _bottom.r) * t, _bottom.g + (_top.g - _bottom.g) * t,
                    _bottom.b + (_top.b - _bottom.b) * t};
    return {g.r * a + _alphaColor.r * (1 - a), g.g * a + _alphaColor.g * (1 - a),
            g.b * a + _alphaColor.b * (1 - a), a};
}

RefPtr<TonemappingSettings> TonemappingSettings::create() {
    return RefPtr<TonemappingSettings>(new TonemappingSettings());
}
void TonemappingSettings::setTonemapHDR(bool on) {
    _tonemapHDR = on;
    recordChange(RefPtr<TonemappingSettings>(this), TonemapHDRFieldMask);
}
void TonemappingSettings::setPostprocessingFlags(uint32_t flags) {
    _postprocessing = flags;
    recordChange(RefPtr<TonemappingSettings>(this), PostprocessingFieldMask);
}

RefPtr<UberViewport> UberViewport::create() {
    return RefPtr<UberViewport>(new UberViewport());
}

void UberViewport::setCamera(const CameraPtr& camera) {
    _camera = camera;
    recordChange(RefPtr<UberViewport>(this), CameraFieldMask);
}
void UberViewport::setBackground(const BackgroundPtr& background) {
    _background = background;
    recordChange(RefPtr<UberViewport>(this), BackgroundFieldMask);
}
void UberViewport::setRoot(const NodePtr& root) {
    _root = root;
    recordChange(RefPtr<UberViewport>(this), RootFieldMask);
}
void UberViewport::setSize(float left, float bottom, float right, float top) {
    _left = left;
    _bottom = bottom;
    _right = right;
    _top = top;
    recordChange(RefPtr<UberViewport>(this), SizeFieldMask);
}
void UberViewport::setDisplay(int display) {
    _display = display;
    recordChange(RefPtr<UberViewport>(this), DisplayFieldMask);
}
void UberViewport::setHdrReferenceWhite(float white) {
    _hdrReferenceWhite = white;
    recordChange(RefPtr<UberViewport>(this), DisplayFieldMask);
}
void UberViewport::setDeepLearningSS(int level) {
    _deepLearningSS = level;
    recordChange(RefPtr<UberViewport>(this), SettingsFieldMask);
}
int UberViewport::getSamples(int quality) const {
    static const int samples[] = {1, 2, 4, 9, 16};
    return quality <= 0 ? 1 : quality >= 4 ? 16 : samples[quality];
}
void UberViewport::setEventProcessingCB(EventProcessingCB callback, void* context) {
    _callback = callback;
    _callbackContext = context;
}
void UberViewport::setRenderPasses(uint64_t mask) {
    _renderPasses = mask;
    recordChange(RefPtr<UberViewport>(this), SettingsFieldMask);
}
void UberViewport::setDownscale(int factor) {
    _downscale = factor;
    recordChange(RefPtr<UberViewport>(this), SettingsFieldMask);
}
void UberViewport::setRtSample(int sample) {
    _rtSample = sample;
    recordChange(RefPtr<UberViewport>(this), SettingsFieldMask);
}
void UberViewport::setImageSamples(int samples) {
    _imageSamples = samples;
    recordChange(RefPtr<UberViewport>(this), SettingsFieldMask);
}

RefPtr<Window> Window::create() {
    return RefPtr<Window>(new Window());
}
void Window::setSize(uint32_t width, uint32_t height) {
    _width = width;
    _height = height;
    recordChange(RefPtr<Window>(this), SizeFieldMask);
}
void Window::addViewport(const UberViewportPtr& viewport) {
    _viewports.push_back(viewport);
    recordChange(RefPtr<Window>(this), ViewportsFieldMask);
}

void UberViewport::triggerMapUpdate() {
    recordChange(RefPtr<UberViewport>(this), SettingsFieldMask);
}

} // namespace osg
