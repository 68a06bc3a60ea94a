#pragma once

#include "OSGBaseTypes.h"
#include "OSGCamera.h"
#include "OSGImage.h"
#include "OSGNetWindow.h"
#include "OSGRenderAction.h"

#include "OSGViewport.h"
#include <memory>

// The host's main 3D view, usable without any display: a window of a size in pixels with its
// viewport, main camera, background and scene root, and the view's switches (stereo, overlays,
// snapshot mode, redraw, culling, raytracing, powerwall, display colour space, plates).
// GUI thread only.
class kaOSGWidget {
public:
    kaOSGWidget();
    ~kaOSGWidget();
    kaOSGWidget(const kaOSGWidget&) = delete;
    kaOSGWidget& operator=(const kaOSGWidget&) = delete;

    // The view with that index; -1 is the main view. Null when there is none.
    static kaOSGWidget* getMGLW(int index);
    // Makes 'view' the main view (null: none).
    static void setMainView(kaOSGWidget* view);

    const osg::WindowPtr& getWindow() const { return _window; }
    const osg::UberViewportPtr& getViewport() const { return _viewport; }
    const osg::PerspectiveCameraPtr& getCamera() const { return _camera; }
    const osg::Gradient2BackgroundPtr& getBackground() const { return _background; }
    // The root the viewport draws: the scene root with the camera's beacon.
    const osg::NodePtr& getRoot() const { return _root; }
    // The user's scene below the root; empty at start.
    const osg::NodePtr& getSceneRoot() const { return _sceneRoot; }
    void setSceneRoot(const osg::NodePtr& scene);
    const osg::NodePtr& getCameraBeacon() const { return _beacon; }

    int width() const;
    int height() const;
    void setSize(int width, int height);

    bool isStereoEnabled() const { return _stereo; }
    void setStereoEnabled(bool on) { _stereo = on; }
    // The view's own stereo mode (2 and 3 show stereo in one viewport).
    int getStereoMode() const { return _stereoMode; }
    void setStereoMode(int mode) { _stereoMode = mode; }
    float getEyeSeparation() const { return _eyeSeparation; }
    void setEyeSeparation(float separation) { _eyeSeparation = separation; }
    float getZeroParallaxDistance() const { return _zeroParallax; }
    void setZeroParallaxDistance(float distance) { _zeroParallax = distance; }
    void getPowerwallWindow(osg::Pnt3f (&corners)[4]) const;
    void setPowerwallWindow(const osg::Pnt3f (&corners)[4]);
    bool isPowerwallEnabled() const { return _powerwall; }
    void enablePowerwall(bool on) { _powerwall = on; }

    bool getDrawIsolateViewOverlay() const { return _isolateOverlay; }
    void setDrawIsolateViewOverlay(bool on) { _isolateOverlay = on; }
    bool getLightsVisible() const { return _lightsVisible; }
    void setLightsVisible(bool on) { _lightsVisible = on; }
    bool getCamerasVisible() const { return _camerasVisible; }
    void setCamerasVisible(bool on) { _camerasVisible = on; }
    bool getSnapshotMode() const { return _snapshotMode; }
    void setSnapshotMode(bool on) { _snapshotMode = on; }
    bool isRedrawEnabled() const { return _redraw; }
    void setRedrawEnabled(bool on) { _redraw = on; }
    bool getOcclusionCulling() const { return _occlusionCulling; }
    void setOcclusionCulling(bool on) { _occlusionCulling = on; }

    // Whether the host renders with its raytracer instead of OpenGL (for every view).
    static bool getRaytracing();
    static void setRaytracing(bool on);
    static bool getGpuRaytracing();
    static void setGpuRaytracing(bool on);

    // The colour space the view displays in (kaColor's active colour space).
    unsigned int getDisplayColorspace() const;
    void setDisplayColorspace(unsigned int colorSpace);
    bool getBackplate() const { return _backplate; }
    void setBackplate(bool on) { _backplate = on; }
    bool getSceneplate() const { return _sceneplate; }
    void setSceneplate(bool on) { _sceneplate = on; }
    // The render cluster's window; none until a cluster is connected (the cluster service
    // sets it while its nodes run).
    const osg::NetWindowPtr& getClusterWindow() const { return _clusterWindow; }
    void setClusterWindow(const osg::NetWindowPtr& window) { _clusterWindow = window; }

    // Whether the view draws on its own (timer-driven redraws); forced renders still draw.
    bool isRenderEnabled() const { return _renderEnabled; }
    void enableRender(bool on) { _renderEnabled = on; }
    // Whether mouse and keyboard move the camera.
    bool isNavigationEnabled() const { return _navigation; }
    void setNavigationEnabled(bool on) { _navigation = on; }
    // Image samples of the view's progressive raytracing (the viewport's).
    void setImageSamples(int samples);
    // Interactive raytracing at a reduced resolution while the camera moves.
    bool isRaytracingDownscaleEnabled() const { return _raytracingDownscale; }
    void enableRaytracingDownscale(bool on) { _raytracingDownscale = on; }
    // The windows the render action draws: the cluster window while a cluster runs, else the
    // view's own window. Exports draw one frame between activate and deactivate.
    void activateRenderRoots();
    osg::RenderAction* getRenderAction() { return _renderAction.get(); }
    void deactivateRenderRoots();

    // Draws the view at its window size into the screen image, as a window would show it
    // (kaController::forceRender does this for the main view).
    bool render();
    const osg::ImagePtr& getScreenImage() const { return _screen; }

private:
    osg::WindowPtr _window;
    osg::UberViewportPtr _viewport;
    osg::PerspectiveCameraPtr _camera;
    osg::Gradient2BackgroundPtr _background;
    osg::NodePtr _root, _sceneRoot, _beacon;
    bool _stereo = false, _powerwall = false;
    int _stereoMode = 0;
    float _eyeSeparation = 0.065f, _zeroParallax = 10.0f;
    osg::Pnt3f _powerwallCorners[4] = {{-2, 0, 0}, {2, 0, 0}, {2, 2, 0}, {-2, 2, 0}};
    bool _isolateOverlay = false, _lightsVisible = false, _camerasVisible = false;
    bool _snapshotMode = false, _redraw = true, _occlusionCulling = false;
    bool _backplate = false, _sceneplate = false;
    osg::ImagePtr _screen;
    osg::NetWindowPtr _clusterWindow;
    bool _renderEnabled = true, _navigation = true, _raytracingDownscale = false;
    std::unique_ptr<osg::RenderAction> _renderAction;
    int _renderHook = 0;
};
