#pragma once

#include <string>

// The render passes by index, the index being the pass's identifier everywhere (pass image
// vectors, active-pass flags, pass masks). Each file that includes this header holds its own
// copy of the table.
static const unsigned int kaRenderPassCount = 47;
static const std::string kaRenderPassNames[kaRenderPassCount] = {
    "beauty",
    "diffuse_ibl",
    "diffuse_light",
    "glossy_ibl",
    "glossy_light",
    "specular_reflection",
    "translucency",
    "incandescence",
    "diffuse_indirect",
    "glossy_indirect",
    "diffuse_color",
    "glossy_color",
    "specular_color",
    "translucency_color",
    "transparency_color",
    "background_color",
    "diffuse_ibl_illumination",
    "glossy_ibl_illumination",
    "translucency_ibl_illumination",
    "diffuse_light_illumination",
    "glossy_light_illumination",
    "translucency_light_illumination",
    "diffuse_indirect_illumination",
    "glossy_indirect_illumination",
    "specular_indirect_illumination",
    "translucency_indirect_illumination",
    "fog",
    "lens_flare",
    "backplates",
    "frontplates",
    "occlusion",
    "albedo",
    "normal",
    "depth",
    "cryptoObject00",
    "cryptoObject01",
    "cryptoObject02",
    "cryptoMaterial00",
    "cryptoMaterial01",
    "cryptoMaterial02",
    "materialID",
    "mask",
    "position",
    "view",
    "camera_normal",
    "motion_vector",
    "gpu_depth",
};

// Passes that exports treat apart, by their place in the table above.
static const unsigned int kaRenderPassDepth = 33;          // "depth"
static const unsigned int kaRenderPassCryptoObject = 34;   // "cryptoObject00" .. "02"
static const unsigned int kaRenderPassCryptoMaterial = 37; // "cryptoMaterial00" .. "02"
static const unsigned int kaRenderPassCryptoRanks = 3;     // layers of each Cryptomatte pass
static const unsigned int kaRenderPassPosition = 42;       // "position"

