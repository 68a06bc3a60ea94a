// Stereo set-up: a multi-eye decorator (or the powerwall projection) between the tile
// decorator and the saved camera, and the eye a render selects.
#include "kaImageRenderWidget.h"

#include "kaLog.h"
#include "kaOSGWidget.h"

namespace {
const float kTwoEyes[] = {-0.5f, 0.5f};
const float kFiveEyes[] = {-1.0f, -0.5f, 0.0f, 0.5f, 1.0f};
const float kNineEyes[] = {-2.0f, -1.5f, -1.0f, -0.5f, 0.0f, 0.5f, 1.0f, 1.5f, 2.0f};

template <size_t N>
float offsetOf(const float (&row)[N], int eye) {
    // Callers pass 0 .. eyes - 1; out-of-row eyes are clamped rather than read past the row.
    return row[eye < 0 ? 0 : size_t(eye) >= N ? N - 1 : size_t(eye)];
}
} // namespace

void kaImageRenderWidget::initStereo() {
    if (_stereoMode == STEREO_NONE)
        return;
    kaOSGWidget* view = kaOSGWidget::getMGLW(-1);
    if (!view)
        view = _glWidget;
    if (!view)
        return;
    const float separation = view->getEyeSeparation();
    const float zeroParallax = view->getZeroParallaxDistance();
    osg::CameraPtr decorator;
    if (!_powerwall) {
        _multiStereoCamera = osg::MultiStereoCameraDecorator::create();
        _multiStereoCamera->setEyeSeparation(separation);
        _multiStereoCamera->setZeroParallaxDistance(zeroParallax);
        _multiStereoCamera->setDecoratee(_savedCameras[0]);
        osg::recordChange(_multiStereoCamera, osg::CameraDecorator::DecorateeFieldMask);
        decorator = _multiStereoCamera;
    } else {
        osg::Pnt3f corners[4];
        view->getPowerwallWindow(corners);
        _projectionCamera = osg::ProjectionCameraDecorator::create();
        _projectionCamera->setEyeSeparation(separation);
        _projectionCamera->setLeftEye(true);
        _projectionCamera->setDecoratee(_savedCameras[0]);
        for (const osg::Pnt3f& corner : corners)
            _projectionCamera->editSurface().push_back(corner);
        osg::recordChange(_projectionCamera, osg::ProjectionCameraDecorator::SurfaceFieldMask);
        decorator = _projectionCamera;
    }
    if (_tileCameras[0]) {
        _tileCameras[0]->setDecoratee(decorator);
        osg::recordChange(_tileCameras[0], osg::CameraDecorator::DecorateeFieldMask);
    }
}

void kaImageRenderWidget::selectEye(int eye) {
    switch (_stereoMode) {
    case STEREO_TWO_EYES:
        if (_powerwall && _projectionCamera) {
            _projectionCamera->setLeftEye(eye == 0);
            osg::recordChange(_projectionCamera, osg::ProjectionCameraDecorator::LeftEyeFieldMask);
        } else if (_multiStereoCamera) {
            _multiStereoCamera->setEyeOffset(offsetOf(kTwoEyes, eye));
            osg::recordChange(_multiStereoCamera,
                              osg::MultiStereoCameraDecorator::EyeOffsetFieldMask);
        }
        break;
    case STEREO_FIVE_EYES:
        if (_powerwall) {
            kaLog::error("5 eye stereo not supported in powerwall mode!");
        } else if (_multiStereoCamera) {
            _multiStereoCamera->setEyeOffset(offsetOf(kFiveEyes, eye));
            osg::recordChange(_multiStereoCamera,
                              osg::MultiStereoCameraDecorator::EyeOffsetFieldMask);
        }
        break;
    case STEREO_NINE_EYES:
        if (_powerwall) {
            kaLog::error("9 eye stereo not supported in powerwall mode!");
        } else if (_multiStereoCamera) {
            _multiStereoCamera->setEyeOffset(offsetOf(kNineEyes, eye));
            osg::recordChange(_multiStereoCamera,
                              osg::MultiStereoCameraDecorator::EyeOffsetFieldMask);
        }
        break;
    default:
        break;
    }
}
