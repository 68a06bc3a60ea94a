#pragma once

// The picture's exposure in stops, as authoring packages set it: every light and every glowing
// surface of the scene comes 2^stops as bright in both renderers (the background behind the
// scene stays as it is). The "Exposure" preference holds the stops, 0 by default.
namespace kaExposure {

float stops();
void setStops(float stops);
// What light is multiplied by: 2^stops.
float scale();

} // namespace kaExposure
