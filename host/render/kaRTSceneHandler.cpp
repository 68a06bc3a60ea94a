#include "kaRTSceneHandler.h"

#include <mutex>

namespace {
std::mutex g_mutex;
osg::StringAttributeMapPtr& settings() {
    static osg::StringAttributeMapPtr s = osg::StringAttributeMap::create();
    return s;
}
} // namespace

osg::StringAttributeMapPtr kaRTSceneHandler::getRaytracingSettingsAttachment() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return settings();
}

void kaRTSceneHandler::setRaytracingSettingsAttachment(const osg::StringAttributeMapPtr& s) {
    std::lock_guard<std::mutex> lock(g_mutex);
    settings() = s ? s : osg::StringAttributeMap::create();
}
