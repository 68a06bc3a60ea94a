#include "kaSceneUnits.h"

#include <assimp/scene.h>

#include <cmath>
#include <string>

namespace {

// glTF gives lights in photometric units: candela for point and spot lights, lux for
// directional ones. lux / 683 lm/W is the irradiance in W/m², over pi the radiance of a white
// diffuse surface. Blender's own renders agree: its sun of strength S (exported as 683 S lux)
// makes such a surface S / pi.
constexpr double kPhotometric = 1.0 / (683.0 * M_PI);
// Blender's light units, as its FBX and COLLADA exporters write them unchanged: a point light
// of P watts makes a white diffuse surface d metres away facing it P / (4 pi² d²); a sun of
// strength S (W/m²) makes it S / pi. (Measured with Blender's Cycles.)
constexpr double kBlenderWatt = 1.0 / (4.0 * M_PI * M_PI);
constexpr double kBlenderSun = 1.0 / M_PI;

std::string metadataText(const aiScene& scene, const char* key) {
    aiString value;
    return scene.mMetaData && scene.mMetaData->Get(key, value) ? value.C_Str() : std::string();
}

} // namespace

kaSceneUnits kaSceneUnits::of(const aiScene& scene, const QString& suffix) {
    kaSceneUnits units;
    if (suffix == "gltf" || suffix == "glb") {
        units.pointLight = units.sunLight = float(kPhotometric);
        return units;
    }
    const bool blender = metadataText(scene, "SourceAsset_Generator").rfind("Blender", 0) == 0;
    if (suffix == "fbx") {
        // FBX counts in centimetres times its unit scale factor. (Assimp's COLLADA reader
        // applies the file's own unit itself.)
        double centimetres = 1.0;
        if (scene.mMetaData && scene.mMetaData->Get("UnitScaleFactor", centimetres) &&
            centimetres > 0.0)
            units.metres = float(centimetres / 100.0);
        else
            units.metres = 0.01f;
        // A point light's falloff was counted in the file's units: the same light in metres.
        units.pointLight = units.metres * units.metres;
    }
    if (blender && (suffix == "fbx" || suffix == "dae")) {
        units.pointLight = float(kBlenderWatt);
        units.sunLight = float(kBlenderSun);
    }
    return units;
}
