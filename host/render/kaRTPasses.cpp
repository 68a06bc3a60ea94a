#include "kaRTPasses.h"

#include <array>

namespace kaRT {

namespace {
PassRule light(Slot s) {
    return {PassKind::Light, s};
}
PassRule illumination(Slot light, Slot colour, Slot raw) {
    return {PassKind::Illumination, light, colour, raw};
}
PassRule surface(Slot s, float empty = 0) {
    return {PassKind::Surface, s, kSlotCount, kSlotCount, empty};
}
PassRule crypto(PassKind kind, int layer) {
    return {kind, kCoverage, kSlotCount, kSlotCount, 0, layer};
}

using namespace kaRenderPass;

// Each pass by its name in the catalogue, so that the table's order can't slip.
std::array<PassRule, kPassCount> makeRules() {
    std::array<PassRule, kPassCount> r{};
    r[Beauty] = light(kBeauty);
    r[DiffuseIbl] = light(kDiffuseIbl);
    r[DiffuseLight] = light(kDiffuseLight);
    r[GlossyIbl] = light(kGlossyIbl);
    r[GlossyLight] = light(kGlossyLight);
    r[SpecularReflection] = light(kSpecular);
    r[Translucency] = light(kTranslucency);
    r[Incandescence] = light(kIncandescence);
    r[DiffuseIndirect] = light(kDiffuseIndirect);
    r[GlossyIndirect] = light(kGlossyIndirect);
    r[DiffuseColor] = light(kDiffuseColor);
    r[GlossyColor] = light(kGlossyColor);
    r[SpecularColor] = light(kSpecularColor);
    r[TranslucencyColor] = light(kTranslucencyColor);
    r[TransparencyColor] = light(kTransparencyColor);
    r[BackgroundColor] = light(kBackground);
    r[DiffuseIblIllumination] = illumination(kDiffuseIbl, kDiffuseColor, kRawDiffuseIbl);
    r[GlossyIblIllumination] = illumination(kGlossyIbl, kGlossyColor, kRawGlossyIbl);
    r[TranslucencyIblIllumination] =
        illumination(kTranslucencyIbl, kTranslucencyColor, kRawTranslucencyIbl);
    r[DiffuseLightIllumination] = illumination(kDiffuseLight, kDiffuseColor, kRawDiffuseLight);
    r[GlossyLightIllumination] = illumination(kGlossyLight, kGlossyColor, kRawGlossyLight);
    r[TranslucencyLightIllumination] =
        illumination(kTranslucencyLight, kTranslucencyColor, kRawTranslucencyLight);
    r[DiffuseIndirectIllumination] =
        illumination(kDiffuseIndirect, kDiffuseColor, kRawDiffuseIndirect);
    r[GlossyIndirectIllumination] = illumination(kGlossyIndirect, kGlossyColor, kRawGlossyIndirect);
    r[SpecularIndirectIllumination] = illumination(kSpecular, kSpecularColor, kRawSpecularIndirect);
    r[TranslucencyIndirectIllumination] =
        illumination(kTranslucencyIndirect, kTranslucencyColor, kRawTranslucencyIndirect);
    r[Fog] = light(kFog);
    r[LensFlare] = light(kLensFlare);
    r[Backplates] = light(kBackplate);
    r[Frontplates] = light(kFrontplate);
    r[Occlusion] = surface(kOcclusion);
    r[Albedo] = light(kAlbedo);
    r[Normal] = surface(kNormal);
    r[Depth] = surface(kDepth);
    for (int rank = 0; rank < kCryptomatteRanks; ++rank) {
        r[CryptoObject00 + rank] = crypto(PassKind::CryptoObject, rank);
        r[CryptoMaterial00 + rank] = crypto(PassKind::CryptoMaterial, rank);
    }
    r[MaterialID] = surface(kMaterialId);
    r[Mask] = {PassKind::Mask, kCoverage};
    r[Position] = surface(kPosition);
    r[View] = surface(kView);
    r[CameraNormal] = surface(kCameraNormal);
    r[MotionVector] = surface(kMotion);
    r[GpuDepth] = surface(kGpuDepth, 1.0f); // the depth buffer's clear value
    return r;
}

const std::array<PassRule, kPassCount> kRules = makeRules();
} // namespace

const PassRule& passRule(int pass) {
    return kRules[pass];
}

} // namespace kaRT
