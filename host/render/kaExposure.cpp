#include "kaExposure.h"

#include "kaPreferences.h"

#include <boost/any.hpp>

#include <cmath>

namespace kaExposure {

namespace {
constexpr const char* kKey = "Exposure";
}

float stops() {
    const boost::any value = kaPreferences::getData().get(kKey);
    const float* chosen = boost::any_cast<float>(&value);
    return chosen && std::isfinite(*chosen) ? *chosen : 0.0f;
}

void setStops(float stops) {
    kaPreferences::getData().set(kKey, stops);
}

float scale() {
    return std::exp2(stops());
}

} // namespace kaExposure
