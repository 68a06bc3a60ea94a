#include "kaDefaultLights.h"

#include "kaPreferences.h"

#include <boost/any.hpp>

namespace kaDefaultLights {

namespace {
constexpr const char* kKey = "Headlight";
// A white surface facing the camera comes out a little below white: 0.8 from the headlight
// and 0.25 from the environment, times a typical albedo of 0.8.
constexpr float kHeadlight = 0.8f, kEnvironment = 0.25f;
} // namespace

Use use() {
    const boost::any value = kaPreferences::getData().get(kKey);
    const int* chosen = boost::any_cast<int>(&value);
    return chosen && *chosen >= 0 && *chosen <= 2 ? Use(*chosen) : Use::WithoutSceneLights;
}

void setUse(Use use) {
    kaPreferences::getData().set(kKey, int(use));
}

bool applies(size_t sceneLights) {
    switch (use()) {
    case Use::Always:
        return true;
    case Use::Never:
        return false;
    case Use::WithoutSceneLights:
        break;
    }
    return sceneLights == 0;
}

std::vector<osg::WorldLight> rig(const osg::Matrix& viewing) {
    osg::Matrix eyeToWorld;
    osg::Vec3f ahead{0, 0, -1};
    if (viewing.invert(eyeToWorld)) {
        const osg::Vec3f v = osg::normalize(eyeToWorld.transformVector({0, 0, -1}));
        if (osg::dot(v, v) > 0)
            ahead = v;
    }
    osg::WorldLight headlight{osg::WorldLight::Directional, ahead, {}, {}};
    headlight.power = {kHeadlight, kHeadlight, kHeadlight};
    osg::WorldLight environment{osg::WorldLight::Environment, {}, {}, {}};
    environment.power = {kEnvironment, kEnvironment, kEnvironment};
    return {headlight, environment};
}

} // namespace kaDefaultLights
