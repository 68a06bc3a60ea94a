#pragma once

#include "kaRTMath.h"
#include "kaRenderPassCatalogue.h"

#include <cstring>

// What one raytraced sample of a pixel yields: a colour (three floats) per slot. Render passes
// are read from the slots once the samples are summed.
namespace kaRT {

enum Slot {
    // Light reaching the camera, split by where it comes from; they add up to kBeauty.
    kBeauty,
    kDiffuseIbl,
    kDiffuseLight,
    kGlossyIbl,
    kGlossyLight,
    kSpecular,
    kTranslucency,
    kTranslucencyIbl,
    kTranslucencyLight,
    kTranslucencyIndirect,
    kIncandescence,
    kDiffuseIndirect,
    kGlossyIndirect,
    kBackground,
    kFog,
    kLensFlare,
    kBackplate,
    kFrontplate,
    // Surface colours as seen (the light slots are these times their illumination).
    kDiffuseColor,
    kGlossyColor,
    kSpecularColor,
    kTranslucencyColor,
    kTransparencyColor,
    kAlbedo,
    // Illumination weighted by surface weight only: shown where a surface colour is black.
    kRawDiffuseIbl,
    kRawGlossyIbl,
    kRawTranslucencyIbl,
    kRawDiffuseLight,
    kRawGlossyLight,
    kRawTranslucencyLight,
    kRawDiffuseIndirect,
    kRawGlossyIndirect,
    kRawSpecularIndirect,
    kRawTranslucencyIndirect,
    // Of the first surface a sample hits; averaged over the samples that hit one.
    kOcclusion,
    kMaterialId,
    kNormal,
    kCameraNormal,
    kView,
    kPosition,
    kDepth,
    kGpuDepth,
    kMotion,
    // x: alpha, y: samples that hit a surface, z: surface weight of the raw illumination.
    kCoverage,
    kSlotCount
};

struct Sample {
    float v[kSlotCount][3];
    void clear() { std::memset(v, 0, sizeof v); }
    void add(Slot s, V3 c) {
        v[s][0] += c.x;
        v[s][1] += c.y;
        v[s][2] += c.z;
    }
    void set(Slot s, V3 c) {
        v[s][0] = c.x;
        v[s][1] = c.y;
        v[s][2] = c.z;
    }
    V3 get(Slot s) const { return {v[s][0], v[s][1], v[s][2]}; }
};

constexpr int kPassCount = kaRenderPass::Count;

enum class PassKind {
    Light,        // premultiplied (or straight) colour from its slot
    Illumination, // its light slot over its colour slot; the raw slot where the colour is black
    Surface,      // a value of the first surface, averaged over the samples that hit
    Mask,         // the share of samples that hit a surface
    CryptoObject,
    CryptoMaterial,
};

struct PassRule {
    PassKind kind;
    Slot slot;
    Slot colour = kSlotCount;
    Slot raw = kSlotCount;
    float empty = 0; // a surface value where no sample hit
    int cryptoLayer = 0;
};

// How render pass 'pass' (a kaRenderPass index) is read from the slots.
const PassRule& passRule(int pass);

} // namespace kaRT
