#include "kaSharedOffscreenRender.h"

#include "OSGCameraDecorators.h"
#include "kaGLSceneRenderer.h"
#include "kaLog.h"
#include "kaOSGWidget.h"
#include "kaPixelEncoder.h"
#include "kaRTRenderer.h"
#include "kaRTSceneHandler.h"
#include "kaRaytracer.h"

#include <algorithm>
#include <cmath>
#include <thread>

namespace {

// Faults the pages of a picture's region in on every core before the renderer writes it from
// its one thread: a large picture's memory is fresh, and the first write of each page costs a
// fault. The renderer then draws over the whole region.
void faultIn(osg::Image& image, int x, int y, int w, int h) {
    const int x0 = std::max(x, 0), x1 = std::min(x + w, int(image.getWidth()));
    const int y0 = std::max(y, 0), y1 = std::min(y + h, int(image.getHeight()));
    uint8_t* data = image.getData();
    if (!data || x0 >= x1 || y0 >= y1)
        return;
    const size_t bpp = size_t(image.getBpp()), rowBytes = size_t(image.getWidth()) * bpp;
    const size_t segment = size_t(x1 - x0) * bpp;
    const unsigned cores = std::max(std::thread::hardware_concurrency(), 1u);
    if (segment * size_t(y1 - y0) < (size_t(4) << 20) || cores < 2)
        return;
    constexpr uintptr_t kPage = 4096;
    auto touch = [&](int from, int to) {
        for (int row = from; row < to; ++row) {
            uint8_t* begin = data + size_t(row) * rowBytes + size_t(x0) * bpp;
            uint8_t* end = begin + segment;
            for (uint8_t* p = begin; p < end;
                 p = reinterpret_cast<uint8_t*>((reinterpret_cast<uintptr_t>(p) | (kPage - 1)) + 1))
                *p = 0;
        }
    };
    const int rows = y1 - y0, threads = int(std::min<unsigned>(cores, unsigned(rows)));
    std::vector<std::thread> helpers;
    for (int t = 1; t < threads; ++t)
        helpers.emplace_back(touch, y0 + rows * t / threads, y0 + rows * (t + 1) / threads);
    touch(y0, y0 + rows / threads);
    for (std::thread& helper : helpers)
        helper.join();
}

} // namespace

kaSharedOffscreenRender::kaSharedOffscreenRender(kaOSGWidget* view,
                                                 const std::vector<osg::ImagePtr>& tileImages,
                                                 int sampleQuality)
    : _view(view)
    , _tileImages(tileImages)
    , _sampleQuality(sampleQuality) {
    if (_view)
        for (size_t v = 0; v < _view->getWindow()->getNViewports(); ++v)
            _viewCameras.push_back(_view->getWindow()->getViewport(v)->getCamera());
}

kaSharedOffscreenRender::~kaSharedOffscreenRender() {
    // The raytracer's sums of a large picture take more memory than its images.
    kaRTRenderer::the().releaseBuffers();
    if (!_view || kaOSGWidget::getMGLW(-1) != _view)
        return;
    const osg::WindowPtr& window = _view->getWindow();
    for (size_t v = 0; v < _viewCameras.size() && v < window->getNViewports(); ++v) {
        if (window->getViewport(v)->getCamera() != _viewCameras[v]) {
            window->getViewport(v)->setCamera(_viewCameras[v]);
            osg::recordChange(window->getViewport(v), osg::UberViewport::CameraFieldMask);
        }
    }
}

void kaSharedOffscreenRender::offerPicture(const std::vector<osg::ImagePtr>& images, int x, int y) {
    _picture = images;
    _pictureX = x;
    _pictureY = y;
}

bool kaSharedOffscreenRender::pictureTakesTheView() const {
    if (_picture.size() != _tileImages.size() || kaOSGWidget::getRaytracing())
        return false;
    // One viewport over the whole tile: nothing of the tile image is left undrawn, so the
    // picture gets exactly what a copy of the tile would give it.
    const osg::WindowPtr& window = _view->getWindow();
    if (window->getNViewports() != 1)
        return false;
    const osg::UberViewport& viewport = *window->getViewport(0);
    if (!viewport.getCamera() || viewport.getLeft() != 0.0f || viewport.getBottom() != 0.0f ||
        viewport.getRight() != 1.0f || viewport.getTop() != 1.0f)
        return false;
    for (size_t i = 0; i < _tileImages.size(); ++i) {
        const osg::ImagePtr &tile = _tileImages[i], &picture = _picture[i];
        if (!tile != !picture)
            return false;
        if (tile && (!tile->getData() || !picture->getData() ||
                     tile->getPixelFormat() != picture->getPixelFormat() ||
                     tile->getDataType() != picture->getDataType() ||
                     tile->getAlphaMode() != picture->getAlphaMode()))
            return false;
    }
    return true;
}

bool kaSharedOffscreenRender::updateGL() {
    _drewIntoPicture = false;
    const osg::ImagePtr* first = nullptr;
    for (const osg::ImagePtr& image : _tileImages)
        if (image && image->getData()) {
            first = &image;
            break;
        }
    if (!_view || !first)
        return false;
    const int imageWidth = (*first)->getWidth(), imageHeight = (*first)->getHeight();
    const osg::WindowPtr& window = _view->getWindow();
    bool ok = true;
    for (size_t v = 0; v < window->getNViewports() && ok; ++v) {
        const osg::UberViewport& viewport = *window->getViewport(v);
        if (!viewport.getCamera())
            continue;
        // The viewport's rectangle of the image is the picture its camera sees.
        const int x0 = int(std::lround(viewport.getLeft() * imageWidth));
        const int y0 = int(std::lround(viewport.getBottom() * imageHeight));
        int width = int(std::lround(viewport.getRight() * imageWidth)) - x0;
        int height = int(std::lround(viewport.getTop() * imageHeight)) - y0;
        const osg::Camera* camera = viewport.getCamera().get();
        int fullWidth = width, fullHeight = height, regionX = 0, regionY = 0;
        if (auto* tile = dynamic_cast<const osg::TileCameraDecorator*>(camera)) {
            // A tile is its region of the decoratee's whole picture, at the pixel size it has
            // there: a clamped last tile is drawn narrower, not stretched.
            if (!tile->getDecoratee())
                continue;
            camera = tile->getDecoratee().get();
            fullWidth = int(tile->getFullWidth());
            fullHeight = int(tile->getFullHeight());
            regionX = int(std::lround(tile->getLeft() * float(fullWidth)));
            regionY = int(std::lround(tile->getBottom() * float(fullHeight)));
            width =
                std::min(width, int(std::lround(tile->getRight() * float(fullWidth))) - regionX);
            height =
                std::min(height, int(std::lround(tile->getTop() * float(fullHeight))) - regionY);
        }
        if (width <= 0 || height <= 0)
            continue;
        std::string error;
        if (kaOSGWidget::getRaytracing()) {
            kaRTRenderer::Region region;
            region.fullWidth = fullWidth;
            region.fullHeight = fullHeight;
            region.x = regionX;
            region.y = regionY;
            region.width = width;
            region.height = height;
            region.imageX = x0;
            region.imageY = y0;
            const int only = _rtSample >= 0 ? _rtSample : viewport.getRtSample();
            ok = kaRTRenderer::the().render(viewport, *camera, region, _tileImages,
                                            kaRaytracer::getSamples(viewport, _sampleQuality), only,
                                            error);
            if (!ok && !error.empty())
                kaLog::error("kaSharedOffscreenRender: %s", error.c_str());
            continue;
        }
        // The picture is not raytraced: no raytracing settings describe it.
        kaRTSceneHandler::setRaytracingSettingsAttachment(nullptr);
        const int samples = viewport.getSamples(_sampleQuality);
        const std::shared_ptr<const kaPixelEncoder> made = kaPixelEncoder::current(
            viewport.getBackground() ? viewport.getBackground()->getAlphaColor()
                                     : osg::Color3f{0, 0, 0});
        const kaPixelEncoder& encoder = *made;
        for (const osg::ImagePtr& image : _tileImages)
            if (image)
                encoder.prepare(*image);
        // Checked with the tile images prepared: the picture then holds what they would.
        _drewIntoPicture = pictureTakesTheView();
        const std::vector<osg::ImagePtr>& targets = _drewIntoPicture ? _picture : _tileImages;
        const int imageX = x0 + (_drewIntoPicture ? _pictureX : 0);
        const int imageY = y0 + (_drewIntoPicture ? _pictureY : 0);
        if (_drewIntoPicture)
            for (const osg::ImagePtr& image : targets)
                if (image)
                    faultIn(*image, imageX, imageY, width, height);
        // 8-bit images of colour, all alike, are encoded on the GPU and read straight into
        // place: no float pixels cross to the CPU.
        std::vector<osg::Image*> encoded;
        bool allEncoded = true;
        for (const osg::ImagePtr& image : targets) {
            if (!image || !image->getData())
                continue;
            allEncoded =
                allEncoded && encoder.encodesSeparably(*image) &&
                (encoded.empty() || image->getPixelFormat() == encoded.front()->getPixelFormat());
            encoded.push_back(image.get());
        }
        if (allEncoded && !encoded.empty()) {
            ok = kaGLSceneRenderer::the().renderEncoded(
                viewport, *camera, fullWidth, fullHeight, regionX, regionY, width, height, samples,
                _rtSample, encoder, encoded, imageX, imageY, error);
            if (!ok && !error.empty())
                kaLog::error("kaSharedOffscreenRender: %s", error.c_str());
            continue;
        }
        // Each finished piece goes straight into every image (rows bottom-up in both), as each
        // image holds it.
        auto sink = [&](int px, int py, int pw, int ph, const float* rgba) {
            for (const osg::ImagePtr& image : targets)
                if (image)
                    encoder.store(*image, imageX + px, imageY + py, pw, ph, rgba, regionX + px,
                                  regionY + py);
        };
        ok = kaGLSceneRenderer::the().render(viewport, *camera, fullWidth, fullHeight, regionX,
                                             regionY, width, height, samples, _rtSample, sink,
                                             error);
        if (!ok && !error.empty())
            kaLog::error("kaSharedOffscreenRender: %s", error.c_str());
    }
    return ok;
}
