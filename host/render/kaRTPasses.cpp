#include "kaRTPasses.h"

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

const PassRule kRules[kPassCount] = {
    light(kBeauty),
    light(kDiffuseIbl),
    light(kDiffuseLight),
    light(kGlossyIbl),
    light(kGlossyLight),
    light(kSpecular),
    light(kTranslucency),
    light(kIncandescence),
    light(kDiffuseIndirect),
    light(kGlossyIndirect),
    light(kDiffuseColor),
    light(kGlossyColor),
    light(kSpecularColor),
    light(kTranslucencyColor),
    light(kTransparencyColor),
    light(kBackground),
    illumination(kDiffuseIbl, kDiffuseColor, kRawDiffuseIbl),
    illumination(kGlossyIbl, kGlossyColor, kRawGlossyIbl),
    illumination(kTranslucencyIbl, kTranslucencyColor, kRawTranslucencyIbl),
    illumination(kDiffuseLight, kDiffuseColor, kRawDiffuseLight),
    illumination(kGlossyLight, kGlossyColor, kRawGlossyLight),
    illumination(kTranslucencyLight, kTranslucencyColor, kRawTranslucencyLight),
    illumination(kDiffuseIndirect, kDiffuseColor, kRawDiffuseIndirect),
    illumination(kGlossyIndirect, kGlossyColor, kRawGlossyIndirect),
    illumination(kSpecular, kSpecularColor, kRawSpecularIndirect),
    illumination(kTranslucencyIndirect, kTranslucencyColor, kRawTranslucencyIndirect),
    light(kFog),
    light(kLensFlare),
    light(kBackplate),
    light(kFrontplate),
    surface(kOcclusion),
    light(kAlbedo),
    surface(kNormal),
    surface(kDepth),
    crypto(PassKind::CryptoObject, 0),
    crypto(PassKind::CryptoObject, 1),
    crypto(PassKind::CryptoObject, 2),
    crypto(PassKind::CryptoMaterial, 0),
    crypto(PassKind::CryptoMaterial, 1),
    crypto(PassKind::CryptoMaterial, 2),
    surface(kMaterialId),
    {PassKind::Mask, kCoverage},
    surface(kPosition),
    surface(kView),
    surface(kCameraNormal),
    surface(kMotion),
    surface(kGpuDepth, 1.0f), // the depth buffer's clear value
};
} // namespace

const PassRule& passRule(int pass) {
    return kRules[pass];
}

} // namespace kaRT
