#pragma once

#include "OSGStringAttributeMap.h"

// The raytracing settings of the scene as named values that exports record: what the raytracer
// used for the last picture it rendered (samples, threads, alpha, time limit ...); empty after
// a picture rendered with OpenGL. A published map is never changed afterwards. Thread-safe.
class kaRTSceneHandler {
public:
    // Never null; empty when the scene has no raytracing settings.
    static osg::StringAttributeMapPtr getRaytracingSettingsAttachment();
    static void setRaytracingSettingsAttachment(const osg::StringAttributeMapPtr& settings);
};
