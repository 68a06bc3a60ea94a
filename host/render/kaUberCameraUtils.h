#pragma once

#include "OSGCamera.h"
#include "OSGViewport.h"

// Camera helpers of the host.
class kaUberCameraUtils {
public:
    // The camera's tone-mapping settings (through any decorators); null when it has none.
    static osg::TonemappingSettingsPtr getTonemappingSettings(const osg::CameraPtr& camera);
    // The camera at the end of the viewport's decorator chain (tile, stereo, projection).
    static osg::CameraPtr getNonDecoratedUberCamera(const osg::UberViewportPtr& viewport);
};

// Material-side render state tied to the camera.
class kaMaterials {
public:
    // Makes the main render action take the current camera afresh (after exports changed
    // the viewport's camera chain): clears what was derived from the old camera.
    static void reinitCamera();
    // How often reinitCamera ran.
    static int getCameraGeneration();
};
