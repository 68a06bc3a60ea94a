#include "kaUberCameraUtils.h"

#include "OSGChangeList.h"
#include "kaOSGWidget.h"

osg::TonemappingSettingsPtr
kaUberCameraUtils::getTonemappingSettings(const osg::CameraPtr& camera) {
    return camera ? osg::dynamic_pointer_cast<osg::TonemappingSettings>(
                        camera->getTonemappingSettings())
                  : osg::TonemappingSettingsPtr();
}

namespace {
int g_generation = 0;
} // namespace

void kaMaterials::reinitCamera() {
    ++g_generation;
    if (kaOSGWidget* view = kaOSGWidget::getMGLW(-1))
        osg::recordChange(view->getViewport(), osg::UberViewport::CameraFieldMask);
}

int kaMaterials::getCameraGeneration() {
    return g_generation;
}

osg::CameraPtr kaUberCameraUtils::getNonDecoratedUberCamera(const osg::UberViewportPtr& viewport) {
    osg::CameraPtr camera = viewport ? viewport->getCamera() : osg::CameraPtr();
    while (auto* decorator = dynamic_cast<osg::CameraDecorator*>(camera.get()))
        camera = decorator->getDecoratee();
    return camera;
}
