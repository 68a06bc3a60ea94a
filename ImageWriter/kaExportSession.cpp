#include "kaExportSession_p.h"

#include "OSGChangeList.h"
#include "kaAnimManager.h"
#include "kaController.h"
#include "kaImageWriter.h"
#include "kaLog.h"
#include "kaOSGWidget.h"
#include "kaPlatform.h"

#include <QMessageBox>

#include <chrono>

namespace kaExportSession {

double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void warn(const QString& title, const QString& text) {
    QMessageBox::warning(nullptr, title, text, QMessageBox::Ok);
}

void refuse(const QString& text) {
    warn(kaPlatform::getAppVersionName(), text);
    kaLog::error("%s", text.toUtf8().constData());
}

bool rendersOnCluster(const kaOSGWidget& view, const QString& clusterSetup) {
    if (clusterSetup.isEmpty() && !view.getClusterWindow())
        return false;
    if (kaOSGWidget::getRaytracing())
        return true;
    kaLog::warning("Snapshot: cluster rendering is not supported with OpenGL!");
    return false;
}

bool lacksAlpha(const QString& extension) {
    return extension == "jpg" || extension == "jpeg" || extension == "bmp";
}

osg::AnimNodeBasePtr animationOf(long long id) {
    osg::FieldContainerPtr container =
        osg::FieldContainerFactory::the().getContainer(uint32_t(uint64_t(id) & 0xffffffffu));
    return osg::AnimNodeBasePtr(dynamic_cast<osg::AnimNodeBase*>(container.get()));
}

void showFrame(long long animationId, const osg::AnimNodeBasePtr& animation, int frame,
               int startFrame) {
    if (animation) {
        if (frame == startFrame) {
            animation->setLastEvaluationTime(float(frame));
            osg::ChangeList::getCurrent()->addChanged(
                osg::FieldContainerPtr(animation.get()),
                osg::AnimNodeBase::LastEvaluationTimeFieldMask);
            animation->changed(osg::AnimNodeBase::LastEvaluationTimeFieldMask);
            kaAnimManager::updateCameraShotCurves(animation);
        }
        kaAnimManager::setCurrentFrameNoEvaluation(frame, false);
        kaAnimManager::evaluateByFrame(animation, frame, true, true, false);
    } else if (!animationId) {
        kaAnimManager::setCurrentFrame(frame, true, false);
    }
}

void preRollFrame(kaOSGWidget& view) {
    view.setSnapshotMode(true);
    kaController::forceRender(true);
    view.setSnapshotMode(false);
}

bool rendersFloat(const QString& format, bool tiffHDR) {
    return format == "HDR" || format == "EXR" ||
           (tiffHDR && (format == "TIF" || format == "TIFF" || format == "PSD" || format == "PSB"));
}

AwakeInExportColorSpace::AwakeInExportColorSpace(kaOSGWidget& view, int iccProfile)
    : _view(view)
    , _iccProfile(iccProfile)
    , _previousState(SetThreadExecutionState(ES_CONTINUOUS | ES_SYSTEM_REQUIRED))
    , _savedColorSpace(view.getDisplayColorspace()) {
    if (_iccProfile > 0)
        _view.setDisplayColorspace(unsigned(_iccProfile));
}

AwakeInExportColorSpace::~AwakeInExportColorSpace() {
    if (_iccProfile > 0)
        _view.setDisplayColorspace(_savedColorSpace);
    SetThreadExecutionState(_previousState);
}

HiddenOverlays::HiddenOverlays(kaOSGWidget& view)
    : _view(view)
    , _isolateOverlay(view.getDrawIsolateViewOverlay())
    , _lightsVisible(view.getLightsVisible())
    , _camerasVisible(view.getCamerasVisible()) {
    view.setDrawIsolateViewOverlay(false);
    view.setLightsVisible(false);
    view.setCamerasVisible(false);
}

void HiddenOverlays::restore() {
    _view.setDrawIsolateViewOverlay(_isolateOverlay);
    _view.setLightsVisible(_lightsVisible);
    _view.setCamerasVisible(_camerasVisible);
}

SavedViewportDisplay::SavedViewportDisplay(const osg::UberViewportPtr& v)
    : viewport(v) {
    if (viewport) {
        deepLearning = viewport->getDeepLearningSS();
        display = viewport->getDisplay();
        referenceWhite = viewport->getHdrReferenceWhite();
    }
}

void SavedViewportDisplay::restore(kaImageWriter& writer) const {
    writer.setupViewport(viewport, kaDisplay(display), referenceWhite, deepLearning);
    writer.setupBackground(viewport, 0.5f, 0.5f, 0.5f, 0.0f, false, false);
}

} // namespace kaExportSession
