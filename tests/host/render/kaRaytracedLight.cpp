#include "kaRaytracedLight.h"

#include "OSGNodeCores.h"
#include "kaOSGWidget.h"
#include "kaRenderPassCatalogue.h"
#include "kaSharedOffscreenRender.h"

#include <vector>

osg::ImagePtr raytracedDiffuseLight(const osg::NodePtr& scene, const osg::Matrix& cameraPose,
                                    int side) {
    kaOSGWidget view;
    view.setSceneRoot(scene);
    osg::dynamic_pointer_cast<osg::Transform>(view.getCameraBeacon()->getCore())
        ->setMatrix(cameraPose);
    view.getCamera()->setFov(30.0f);
    view.setSize(side, side);
    kaOSGWidget::setMainView(&view);
    kaOSGWidget::setRaytracing(true);
    std::vector<osg::ImagePtr> images(kaRenderPass::Count);
    osg::ImagePtr& diffuse = images[kaRenderPass::DiffuseLight];
    diffuse = osg::Image::create();
    diffuse->set(osg::Image::OSG_RGBA_PF, side, side, 1, 1, 1, 0.0, nullptr,
                 osg::Image::OSG_FLOAT32_IMAGEDATA);
    bool rendered = false;
    {
        kaSharedOffscreenRender renderer(&view, images, 0);
        rendered = renderer.updateGL();
    }
    kaOSGWidget::setRaytracing(false);
    kaOSGWidget::setMainView(nullptr);
    return rendered ? diffuse : osg::ImagePtr();
}
