#include "kaImageRenderWidget.h"

#include "QImageConverter.h"
#include "kaOSGWidget.h"

#include <QCoreApplication>

bool kaImageRenderWidget::_powerwall = false;
bool kaImageRenderWidget::_alpha = false;
float kaImageRenderWidget::_alpha_color[3] = {1.0f, 1.0f, 1.0f};
std::atomic<osg::Image::PixelFormat> kaImageRenderWidget::_pixel_format{osg::Image::OSG_RGB_PF};
std::atomic<osg::Image::Type> kaImageRenderWidget::_data_type{osg::Image::OSG_UINT8_IMAGEDATA};
bool kaImageRenderWidget::_cancel = false;
bool kaImageRenderWidget::_allAborted = false;
std::vector<bool> kaImageRenderWidget::_activePasses;
int kaImageRenderWidget::_nrOfQueuedRenderJobs = 0;

void kaImageRenderWidget::setPowerwall(bool powerwall) {
    _powerwall = powerwall;
}
bool kaImageRenderWidget::getPowerwall() {
    return _powerwall;
}

void kaImageRenderWidget::setAlpha(bool alpha) {
    _alpha = alpha;
    // The alpha switch decides the format: a format set before is replaced.
    _pixel_format = alpha ? osg::Image::OSG_RGBA_PF : osg::Image::OSG_RGB_PF;
}
bool kaImageRenderWidget::getAlpha() {
    return _alpha;
}

void kaImageRenderWidget::setAlphaColor(float r, float g, float b) {
    _alpha_color[0] = r;
    _alpha_color[1] = g;
    _alpha_color[2] = b;
}
void kaImageRenderWidget::getAlphaColor(float& r, float& g, float& b) {
    r = _alpha_color[0];
    g = _alpha_color[1];
    b = _alpha_color[2];
}

void kaImageRenderWidget::setPixelFormat(osg::Image::PixelFormat pixelFormat) {
    _pixel_format = pixelFormat;
}
osg::Image::PixelFormat kaImageRenderWidget::getPixelFormat() {
    return _pixel_format;
}

void kaImageRenderWidget::setDataType(osg::Image::Type dataType) {
    _data_type = dataType;
}
osg::Image::Type kaImageRenderWidget::getDataType() {
    return _data_type;
}

void kaImageRenderWidget::setActiveRenderPasses(const std::vector<bool>& passes) {
    if (&passes != &_activePasses)
        _activePasses = passes;
}
const std::vector<bool>& kaImageRenderWidget::getActiveRenderPasses() {
    return _activePasses;
}

int kaImageRenderWidget::getNrOfQueuedRenderJobs() {
    return _nrOfQueuedRenderJobs;
}
void kaImageRenderWidget::setNrOfQueuedRenderJobs(int jobs) {
    _nrOfQueuedRenderJobs = jobs;
}

bool kaImageRenderWidget::wasCanceled() {
    bool canceled = _cancel;
    _cancel = false;
    return canceled;
}

bool kaImageRenderWidget::wasAllAborted() {
    bool aborted = _allAborted;
    _allAborted = false;
    return aborted;
}

void kaImageRenderWidget::resetAbortAndCancelFlag() {
    _cancel = false;
    _allAborted = false;
}

void kaImageRenderWidget::abortAllRenderings() {
    _allAborted = true;
}

void kaImageRenderWidget::processEvents() {
    QCoreApplication::processEvents();
}

void kaImageRenderWidget::convertToQImage(QImage& out, const osg::ImagePtr& image) {
    QImageConverter::convertToQImage(out, image, 0);
}

void kaImageRenderWidget::convertToOSGImage(osg::ImagePtr& out, const QImage& image) {
    if (QImageConverter::convertToOSGImage(out, image))
        out->reformat(_pixel_format);
}

bool kaImageRenderWidget::hasActiveRenderPasses() {
    return !_activePasses.empty() && kaOSGWidget::getRaytracing();
}
