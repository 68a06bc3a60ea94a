// The fast export: one render dialog kept for repeated captures at one resolution; and the two
// viewport set-up steps every export driver runs.
#include "kaImageWriter.h"

#include "OSGImageFileHandler.h"
#include "kaController.h"
#include "kaFile.h"
#include "kaImage.h"
#include "kaLog.h"
#include "kaOSGWidget.h"
#include "kaPlatform.h"
#include "kaPreferences.h"
#include "kaScopedRenderInProgress.h"

#include <QMessageBox>

#include <cstdlib>

namespace {
void setSnapshotMode(bool on) {
    if (kaOSGWidget* view = kaOSGWidget::getMGLW(-1))
        view->setSnapshotMode(on);
}

// Fast captures are single images: a view in stereo mode is refused with a warning.
bool refusedForStereo() {
    kaOSGWidget* view = kaOSGWidget::getMGLW(-1);
    if (!view || !view->isStereoEnabled())
        return false;
    QMessageBox::warning(nullptr, kaPlatform::getAppVersionName(),
                         QObject::tr("Please disable stereo rendering!"), QMessageBox::Ok);
    return true;
}

osg::ImagePtr captureOnce(kaImageRenderWidget& widget, bool showProgress) {
    std::vector<osg::ImagePtr> images = widget.render(nullptr, 0, false, showProgress);
    if (images.empty() || !images[0]) {
        kaLog::error("kaImageWriter::exportImageFast: created empty or no image!");
        return nullptr;
    }
    return images[0];
}

} // namespace

void kaImageWriter::exportImageFastInit(int width, int height, int superSampling) {
    kaScopedRenderInProgress guard;
    if (_fastRenderWidget) {
        _fastRenderWidget.reset();
        setSnapshotMode(false);
    }
    bool ignoreAspect = false;
    getFromMessage(kaPreferences::getData(), "ImageExport ignore aspect", ignoreAspect);
    kaImageRenderWidget::setAlpha(false);
    _fastRenderWidget = std::make_shared<kaImageRenderWidget>(
        kaController::getMainWindow(), width, height, kaImageRenderWidget::STEREO_NONE, false,
        std::abs(superSampling), true, ignoreAspect, 1u, false);
    _fastRenderWidget->setFastMode(superSampling < 0);
    if (!_fastRenderWidget->isValid()) {
        _fastRenderWidget.reset();
        kaLog::error("Couldn't initialize kaImageRenderWidget!");
        return;
    }
    setSnapshotMode(true);
}

void kaImageWriter::exportImageFast(const QString& filename) {
    if (refusedForStereo())
        return;
    if (!_fastRenderWidget) {
        kaLog::error("Missing exportImageFastInit() call!");
        return;
    }
    QString name = filename;
    QString format = kaFile::getExtension(name);
    if (format.isEmpty()) {
        format = QString::fromStdString(kaImage::getDefaultImageFormat());
        name += "." + format;
    }
    format = format.toUpper();
    if (format.compare("JPG", Qt::CaseInsensitive) == 0)
        format = "JPEG";
    osg::ImagePtr image = captureOnce(*_fastRenderWidget, !_noProgress);
    if (!image)
        return;
    saveImage(image, name.toUtf8().constData(), format.toUtf8().constData(), false, false,
              _noShowImage, -1.0f, false, false, nullptr);
}

std::string kaImageWriter::exportImageFast() {
    if (refusedForStereo())
        return std::string();
    if (!_fastRenderWidget)
        return std::string();
    osg::ImagePtr image = captureOnce(*_fastRenderWidget, !_noProgress);
    std::vector<uint8_t> bytes;
    if (!image || !osg::ImageFileHandler::the().store(image, "image/png", bytes))
        return std::string();
    return std::string(bytes.begin(), bytes.end());
}

void kaImageWriter::exportImageFastTerminate() {
    _fastRenderWidget.reset();
    setSnapshotMode(false);
}

void kaImageWriter::setupViewport(osg::UberViewportPtr viewport, kaDisplay display,
                                  float hdrReferenceWhite, int deepLearningSS) {
    if (!viewport)
        return;
    viewport->setDisplay(display);
    viewport->setHdrReferenceWhite(hdrReferenceWhite);
    // Written without being recorded: only the display fields count as a change.
    viewport->setDeepLearningSSUnrecorded(deepLearningSS);
    osg::recordChange(viewport, osg::UberViewport::DisplayFieldMask);
}

void kaImageWriter::setupBackground(osg::UberViewportPtr viewport, float r, float g, float b,
                                    float a, bool backplate, bool alpha) const {
    if (!viewport)
        return;
    const osg::Color3f color{r, g, b};
    const float backgroundAlpha = alpha ? a : 1.0f;
    if (auto gradient =
            osg::dynamic_pointer_cast<osg::Gradient2Background>(viewport->getBackground())) {
        gradient->setBackplateMode(backplate && alpha);
        gradient->setAlphaColor(color);
        gradient->setAlpha(backgroundAlpha);
    } else if (auto solid =
                   osg::dynamic_pointer_cast<osg::SolidBackground>(viewport->getBackground())) {
        solid->setBackplateMode(backplate && alpha);
        solid->setAlphaColor(color, backgroundAlpha);
    }
}
