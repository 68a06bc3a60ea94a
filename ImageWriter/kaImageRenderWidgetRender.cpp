// The render loop: one image per active pass, tile by tile through the tile decorators and the
// shared offscreen renderer, with progress, GUI events and Abort; the aspect correction and
// the conversions.
#include "kaImageRenderWidget.h"

#include "OSGImageScaler.h"
#include "QImageConverter.h"
#include "kaController.h"
#include "kaImageWriter.h"
#include "kaLog.h"
#include "kaOSGWidget.h"
#include "kaRaytracer.h"
#include "kaRenderParameter.h"
#include "kaSharedOffscreenRender.h"
#include "kaUberCameraUtils.h"

#include <QCoreApplication>
#include <QImage>
#include <QProgressBar>
#include <QPushButton>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace {
int64_t performanceCounter() {
    return std::chrono::steady_clock::now().time_since_epoch().count();
}
constexpr double kCounterFrequency =
    double(std::chrono::steady_clock::period::den) / double(std::chrono::steady_clock::period::num);
} // namespace

std::vector<osg::ImagePtr> kaImageRenderWidget::render(QImage* preview, int eye,
                                                       bool noEventProcessing, bool showDialog) {
    if (!_valid)
        return {};
    const int quality = kaRaytracer::getQuality();
    kaController::increaseFrameId();
    kaRaytracer::setQuality(1);
    kaRaytracer::applyChangeList();
    if (showDialog)
        show();
    selectEye(eye);

    kaOSGWidget* view = kaOSGWidget::getMGLW(-1);
    auto gradient = view ? osg::dynamic_pointer_cast<osg::Gradient2Background>(
                               view->getViewport()->getBackground())
                         : osg::Gradient2BackgroundPtr();
    if (_alpha && gradient) {
        gradient->setAlpha(0.0f);
        gradient->setAlphaColor({_alpha_color[0], _alpha_color[1], _alpha_color[2]});
    }

    renderSingleSampled(noEventProcessing, showDialog);

    if (quality != 1) {
        kaRaytracer::setQuality(quality);
        kaRaytracer::applyChangeList();
    }
    if (_alpha && gradient) {
        gradient->setAlpha(1.0f);
        gradient->setAlphaColor({1.0f, 1.0f, 1.0f});
    }
    if (_sharedOffscreen && view)
        kaMaterials::reinitCamera();

    if (_aborted)
        return _images;
    for (osg::ImagePtr& image : _images)
        if (!modifyAspectRatio(image))
            return {};
    if (!_images.empty() && _images[0] && preview) {
        *preview = QImage(_images[0]->getWidth(), _images[0]->getHeight(), QImage::Format_RGB32);
        if (preview->isNull()) {
            kaLog::error("kaImageRenderWidget: Couldn't get enough memory to convert the image!");
            return {};
        }
        QImageConverter::convertToQImage(*preview, _images[0], 0);
    }
    return _images;
}

void kaImageRenderWidget::reportProgress(int value) {
    _progress->setValue(value);
    const int maximum = _progress->maximum();
    kaImageWriter::setFrameProgress(maximum > 0 ? double(_progress->value()) / double(maximum)
                                                : 0.0);
}

void kaImageRenderWidget::renderSingleSampled(bool noEventProcessing, bool showDialog) {
    kaImageWriter::startFrameProgress();
    RenderProgressContext context{noEventProcessing, showDialog, 0, this, performanceCounter()};
    kaOSGWidget* view = kaOSGWidget::getMGLW(-1);
    const osg::UberViewportPtr viewport = view ? view->getViewport() : osg::UberViewportPtr();
    if (viewport)
        viewport->setEventProcessingCB(eventProcessingCB, &context);

    int py = 0;
    for (double y = 0.0; y < 1.0; y += _tileFractionY, py += _tileHeight) {
        int px = 0;
        for (double x = 0.0; x < 1.0; x += _tileFractionX, px += _tileWidth) {
            for (int i = 0; i < _eyeViewports; ++i) {
                if (!_tileCameras[i])
                    continue;
                _tileCameras[i]->setSize(float(x), float(y),
                                         float(std::min(x + _tileFractionX, 1.0)),
                                         float(std::min(y + _tileFractionY, 1.0)));
                osg::recordChange(_tileCameras[i], osg::TileCameraDecorator::SizeFieldMask);
            }
            const int before = context.counter;
            // The renderer may draw the tile straight into its place in the images; else it
            // is copied there from the tile images.
            if (_offscreenRender)
                _offscreenRender->offerPicture(_images, px, py);
            if (getFirstActivePass() >= 0) {
                renderGL();
                // Without callbacks from the renderer a tile counts once.
                if (context.counter == before)
                    ++context.counter;
            } else {
                ++context.counter;
            }
            const bool placed = _offscreenRender && _offscreenRender->drewIntoPicture();
            for (size_t i = 0; i < _images.size() && i < _tileImages.size() && !placed; ++i)
                if (_images[i] && _tileImages[i])
                    _images[i]->setSubData(px, py, 0, _tileWidth, _tileHeight, 1,
                                           _tileImages[i]->getData());
            if (showDialog) {
                if (_autoProgress)
                    reportProgress(context.counter);
                if (!noEventProcessing)
                    QCoreApplication::processEvents();
                if (_aborted)
                    break;
            }
        }
        if (_aborted)
            break;
    }
    if (_offscreenRender)
        _offscreenRender->offerPicture({}, 0, 0);
    if (viewport)
        viewport->setEventProcessingCB(nullptr, nullptr);
}

bool kaImageRenderWidget::eventProcessingCB(int, int, bool advance, void* data) {
    auto* context = static_cast<RenderProgressContext*>(data);
    kaImageRenderWidget* widget = context->widget;
    if (advance) {
        if (kaRenderParameter::getUseRenderTimeLimit())
            context->counter =
                int(double(performanceCounter() - context->startTime) / kCounterFrequency * 100.0);
        else
            ++context->counter;
    }
    if (!context->showDialog)
        return true;
    if (widget->_autoProgress)
        widget->reportProgress(context->counter);
    if (widget->_abortButton && widget->_abortButton->isVisible())
        QCoreApplication::processEvents();
    return !widget->_aborted;
}

void kaImageRenderWidget::calcTotalProgress() {
    if (!_autoProgress)
        return;
    int steps = 0;
    if (kaRenderParameter::getUseRenderTimeLimit()) {
        steps = int(kaRenderParameter::getRenderTimeInSeconds() * 100.0);
    } else {
        steps = int(std::ceil(1.0f / (_tileFractionX * _tileFractionY)));
        kaOSGWidget* view = kaOSGWidget::getMGLW(-1);
        if (view && view->getWindow()->getNViewports() > 0)
            steps *= view->getWindow()->getViewport(0)->getSamples(_sampleQuality);
    }
    _progress->setValue(0);
    _progress->setRange(0, steps + 1);
}

bool kaImageRenderWidget::modifyAspectRatio(osg::ImagePtr& image) {
    if (!image || _aspectRatio == 1.0f)
        return true;
    const int height = image->getHeight();
    const float newHeight = float(height) / _aspectRatio;
    const float change = std::fabs(float(height) - newHeight);
    if (change < 2.0f || float(height / 1000) > change)
        return true;
    std::printf("kaImageRenderWidget::modifyAspectRatio: resizing image to %f %d %d\n",
                double(_aspectRatio), image->getWidth(), int(newHeight));
    std::fflush(stdout);
    osg::ImagePtr scaled = osg::Image::create();
    const bool made = scaled->set(image->getPixelFormat(), image->getWidth(), int(newHeight), 1, 1,
                                  1, 0.0, nullptr, osg::Image::OSG_UINT8_IMAGEDATA, true);
    if (!made || !osg::ImageScaler::scale(image, scaled, osg::ImageBoxFilter(0.5f)) ||
        // The scaled copy is 8-bit; it goes back in the image's own data type.
        !scaled->convertDataTypeTo(image->getDataType())) {
        kaLog::error("kaImageRenderWidget: Couldn't get enough memory to correct the image aspect "
                     "ratio!");
        return false;
    }
    image->clear(0);
    image->setSubData(0, (height - int(newHeight)) / 2, 0, scaled->getWidth(), scaled->getHeight(),
                      1, scaled->getData());
    return true;
}

int kaImageRenderWidget::getFirstActivePass() const {
    for (size_t i = 0; i < _tileImages.size(); ++i)
        if (_tileImages[i])
            return int(i);
    return -1;
}

void kaImageRenderWidget::renderGL() {
    if (getFirstActivePass() < 0 || !_offscreenRender)
        return;
    _offscreenRender->setRtSample(-1);
    _offscreenRender->updateGL();
}

void kaImageRenderWidget::addTileImage(QImage& image, const QImage& tile, int x, int y) {
    // Row by row; parts outside the image are cut off rather than written past it.
    for (int row = 0; row < tile.height() && y + row < image.height(); ++row) {
        if (y + row < 0)
            continue;
        const int from = std::max(0, -x), to = std::min(tile.width(), image.width() - x);
        if (to <= from)
            return;
        std::memcpy(image.scanLine(y + row) + size_t(x + from) * 4,
                    tile.constScanLine(row) + size_t(from) * 4, size_t(to - from) * 4);
    }
}

void kaImageRenderWidget::applyGamma(QImage& image, float gamma) {
    if (image.isNull() || image.depth() != 32)
        return;
    const double e = 1.0 / double(gamma);
    // The pixels as one run from the first scan line.
    auto* pixels = reinterpret_cast<QRgb*>(image.bits());
    const qsizetype count = qsizetype(image.width()) * image.height();
    for (qsizetype i = 0; i < count; ++i) {
        const QRgb c = pixels[i];
        pixels[i] = qRgba(int(std::pow(qRed(c) / 255.0, e) * 255.0),
                          int(std::pow(qGreen(c) / 255.0, e) * 255.0),
                          int(std::pow(qBlue(c) / 255.0, e) * 255.0), 255);
    }
}

void kaImageRenderWidget::clickedAbort() {
    _aborted = true;
    _cancel = true;
    kaLog::info("Render job cancelled.");
}

void kaImageRenderWidget::reject() {
    _aborted = true;
    _cancel = true;
    kaLog::info("Render job cancelled.");
    QDialog::reject();
}
