#pragma once

#include "OSGStringAttributeMap.h"

// The raytracing settings of the scene (quality, samples, bounces ...), as named values the
// raytracer reads and exports record. Thread-safe.
class kaRTSceneHandler {
public:
    // Never null; empty when the scene has no raytracing settings.
    static osg::StringAttributeMapPtr getRaytracingSettingsAttachment();
    static void setRaytracingSettingsAttachment(const osg::StringAttributeMapPtr& settings);
};
