#pragma once

#include <array>

// The render passes: the one table that the export library, the renderers and the tests read.
// A pass is known by its index everywhere (pass image vectors, active-pass flags, 64-bit pass
// masks); its name names its file and its layer. Nothing else lists pass numbers.
namespace kaRenderPass {

enum Index : int {
    Beauty,
    DiffuseIbl,
    DiffuseLight,
    GlossyIbl,
    GlossyLight,
    SpecularReflection,
    Translucency,
    Incandescence,
    DiffuseIndirect,
    GlossyIndirect,
    DiffuseColor,
    GlossyColor,
    SpecularColor,
    TranslucencyColor,
    TransparencyColor,
    BackgroundColor,
    DiffuseIblIllumination,
    GlossyIblIllumination,
    TranslucencyIblIllumination,
    DiffuseLightIllumination,
    GlossyLightIllumination,
    TranslucencyLightIllumination,
    DiffuseIndirectIllumination,
    GlossyIndirectIllumination,
    SpecularIndirectIllumination,
    TranslucencyIndirectIllumination,
    Fog,
    LensFlare,
    Backplates,
    Frontplates,
    Occlusion,
    Albedo,
    Normal,
    Depth,
    CryptoObject00,
    CryptoObject01,
    CryptoObject02,
    CryptoMaterial00,
    CryptoMaterial01,
    CryptoMaterial02,
    MaterialID,
    Mask,
    Position,
    View,
    CameraNormal,
    MotionVector,
    GpuDepth,
    Count
};

struct Pass {
    const char* name;
    // Holds light, in the alpha convention of the picture (straight or premultiplied colour);
    // the other passes hold data whose alpha channel stands on its own.
    bool light;
    // Kept in 32-bit floats in files: depths, positions and Cryptomatte ids lose what they say
    // in half floats.
    bool keepsFullFloat;
    // Carries coverage in its alpha: exporting it switches alpha on.
    bool carriesCoverage;
};

// Row i describes pass i.
constexpr std::array<Pass, Count> kTable = {{
    {"beauty", true, false, false},
    {"diffuse_ibl", true, false, false},
    {"diffuse_light", true, false, false},
    {"glossy_ibl", true, false, false},
    {"glossy_light", true, false, false},
    {"specular_reflection", true, false, false},
    {"translucency", true, false, false},
    {"incandescence", true, false, false},
    {"diffuse_indirect", true, false, false},
    {"glossy_indirect", true, false, false},
    {"diffuse_color", true, false, false},
    {"glossy_color", true, false, false},
    {"specular_color", true, false, false},
    {"translucency_color", true, false, false},
    {"transparency_color", true, false, false},
    {"background_color", true, false, false},
    {"diffuse_ibl_illumination", false, false, false},
    {"glossy_ibl_illumination", false, false, false},
    {"translucency_ibl_illumination", false, false, false},
    {"diffuse_light_illumination", false, false, false},
    {"glossy_light_illumination", false, false, false},
    {"translucency_light_illumination", false, false, false},
    {"diffuse_indirect_illumination", false, false, false},
    {"glossy_indirect_illumination", false, false, false},
    {"specular_indirect_illumination", false, false, false},
    {"translucency_indirect_illumination", false, false, false},
    {"fog", true, false, false},
    {"lens_flare", true, false, false},
    {"backplates", true, false, false},
    {"frontplates", true, false, false},
    {"occlusion", false, false, false},
    {"albedo", true, false, false},
    {"normal", false, false, false},
    {"depth", false, true, false},
    {"cryptoObject00", false, true, true},
    {"cryptoObject01", false, true, false},
    {"cryptoObject02", false, true, false},
    {"cryptoMaterial00", false, true, true},
    {"cryptoMaterial01", false, true, false},
    {"cryptoMaterial02", false, true, false},
    {"materialID", false, false, false},
    {"mask", false, false, false},
    {"position", false, true, false},
    {"view", false, false, false},
    {"camera_normal", false, false, false},
    {"motion_vector", false, false, false},
    {"gpu_depth", false, false, false},
}};

// Ranks of each Cryptomatte pass (three layers of two id/coverage pairs each).
constexpr int kCryptomatteRanks = 3;

constexpr bool isValid(long long pass) {
    return pass >= 0 && pass < Count;
}
constexpr const char* name(int pass) {
    return isValid(pass) ? kTable[size_t(pass)].name : "";
}
constexpr bool keepsFullFloat(long long pass) {
    return isValid(pass) && kTable[size_t(pass)].keepsFullFloat;
}
constexpr bool holdsLight(long long pass) {
    return isValid(pass) && kTable[size_t(pass)].light;
}
constexpr bool carriesCoverage(long long pass) {
    return isValid(pass) && kTable[size_t(pass)].carriesCoverage;
}

} // namespace kaRenderPass
