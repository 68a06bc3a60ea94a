#include "kaSharedOffscreenRender.h"

#include "OSGCameraDecorators.h"
#include "kaGLSceneRenderer.h"
#include "kaLog.h"
#include "kaOSGWidget.h"
#include "kaPixelEncoder.h"
#include "kaRTRenderer.h"
#include "kaRTSceneHandler.h"
#include "kaRaytracer.h"

#include <cmath>

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
        // The renderer writes the picture from its one thread, which also feeds the GL.
        if (_drewIntoPicture)
            for (const osg::ImagePtr& image : targets)
                if (image)
                    image->prepareToOverwrite(imageX, imageY, width, height);
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
