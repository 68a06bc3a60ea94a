#pragma once

#include <QString>

struct aiScene;

// What a scene file's numbers mean in ours, as the program that wrote the file means them: its
// length unit, and its lights' intensities in our renderers' light (the radiance a white
// diffuse surface facing the light gives back, point lights at one metre).
struct kaSceneUnits {
    float metres = 1.0f;     // one length unit of the file
    float pointLight = 1.0f; // one unit of a point or spot light's intensity
    float sunLight = 1.0f;   // one unit of a directional light's intensity

    // The units of 'scene', read from a file with this suffix.
    static kaSceneUnits of(const aiScene& scene, const QString& suffix);
};
