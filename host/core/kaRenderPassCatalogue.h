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
    // Kept in 32-bit floats in files: depths, positions and Cryptomatte ids lose what they say
    // in half floats.
    bool keepsFullFloat;
    // Carries coverage in its alpha: exporting it switches alpha on.
    bool carriesCoverage;
};

// Row i describes pass i.
constexpr std::array<Pass, Count> kTable = {{
    {"beauty", false, false},
    {"diffuse_ibl", false, false},
    {"diffuse_light", false, false},
    {"glossy_ibl", false, false},
    {"glossy_light", false, false},
    {"specular_reflection", false, false},
    {"translucency", false, false},
    {"incandescence", false, false},
    {"diffuse_indirect", false, false},
    {"glossy_indirect", false, false},
    {"diffuse_color", false, false},
    {"glossy_color", false, false},
    {"specular_color", false, false},
    {"translucency_color", false, false},
    {"transparency_color", false, false},
    {"background_color", false, false},
    {"diffuse_ibl_illumination", false, false},
    {"glossy_ibl_illumination", false, false},
    {"translucency_ibl_illumination", false, false},
    {"diffuse_light_illumination", false, false},
    {"glossy_light_illumination", false, false},
    {"translucency_light_illumination", false, false},
    {"diffuse_indirect_illumination", false, false},
    {"glossy_indirect_illumination", false, false},
    {"specular_indirect_illumination", false, false},
    {"translucency_indirect_illumination", false, false},
    {"fog", false, false},
    {"lens_flare", false, false},
    {"backplates", false, false},
    {"frontplates", false, false},
    {"occlusion", false, false},
    {"albedo", false, false},
    {"normal", false, false},
    {"depth", true, false},
    {"cryptoObject00", true, true},
    {"cryptoObject01", true, false},
    {"cryptoObject02", true, false},
    {"cryptoMaterial00", true, true},
    {"cryptoMaterial01", true, false},
    {"cryptoMaterial02", true, false},
    {"materialID", false, false},
    {"mask", false, false},
    {"position", true, false},
    {"view", false, false},
    {"camera_normal", false, false},
    {"motion_vector", false, false},
    {"gpu_depth", false, false},
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
constexpr bool carriesCoverage(long long pass) {
    return isValid(pass) && kTable[size_t(pass)].carriesCoverage;
}

} // namespace kaRenderPass
