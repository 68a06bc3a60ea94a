#pragma once

#include "OSGBaseTypes.h"
#include "OSGChangeList.h"
#include "OSGFieldContainer.h"
#include "OSGImage.h"

#include <string>
#include <vector>

namespace osg {

// How a surface looks. Materials have names users know them by.
class Material : public FieldContainer {
public:
    enum : BitVector { NameFieldMask = 1 << 0 };
    const std::string& getName() const { return _name; }
    void setName(const std::string& name);

private:
    std::string _name;
};
using MaterialPtr = RefPtr<Material>;

// How a texture repeats beyond its 0..1 coordinates, as glTF and OpenGL name it.
enum class TextureWrap { Repeat, ClampToEdge, MirroredRepeat };

// How much of a surface is there, as glTF's alpha modes say: all of it (alpha ignored), all or
// nothing by a cut-off (leaves, fences), or see-through by its alpha (glass, fades).
enum class AlphaMode { Opaque, Mask, Blend };

// The coverage of a point of the surface: its material's opacity times its picture's alpha
// under the alpha mode.
inline float surfaceCoverage(AlphaMode mode, float opacity, float cutoff, float pictureAlpha) {
    switch (mode) {
    case AlphaMode::Opaque:
        return 1.0f;
    case AlphaMode::Mask:
        return opacity * pictureAlpha >= cutoff ? 1.0f : 0.0f;
    default:
        return opacity * pictureAlpha;
    }
}

// A physically based surface: base colour, metallic, roughness, emission, opacity, and
// translucency (the share of the diffuse light that comes through from the back, as in paper
// or leaves).
class SimpleMaterial : public Material {
public:
    static RefPtr<SimpleMaterial> create(const std::string& name = "");
    const char* getTypeName() const override { return "SimpleMaterial"; }
    Color3f baseColor{0.8f, 0.8f, 0.8f};
    // A picture the base colour is multiplied by, placed by the mesh's texture coordinates:
    // RGBA of 8 bits, sRGB-encoded as painted, straight alpha, rows bottom-up (v = 0 is its
    // bottom). Null for a plain colour. One image may serve many materials.
    ImagePtr baseColorMap;
    // Pictures placed like the base colour's (the same coordinates and wrap modes): metallic
    // and roughness as glTF packs them (linear; roughness in green, metallic in blue), each
    // multiplying its factor; and one the emission is multiplied by, sRGB-encoded.
    ImagePtr metallicRoughnessMap, emissionMap;
    TextureWrap wrapU = TextureWrap::Repeat, wrapV = TextureWrap::Repeat;
    float metallic = 0.0f;
    float roughness = 0.5f;
    // Emitted radiance; may exceed 1.
    Color3f emission{0.0f, 0.0f, 0.0f};
    float opacity = 1.0f;
    // Opacity and the picture's alpha are blended by default; scene files say otherwise.
    AlphaMode alphaMode = AlphaMode::Blend;
    float alphaCutoff = 0.5f;
    float translucency = 0.0f;

private:
    SimpleMaterial() = default;
};
using SimpleMaterialPtr = RefPtr<SimpleMaterial>;

// One of several materials, chosen by index (a product's colour variants).
class SwitchMaterial : public Material {
public:
    enum : BitVector { ChoiceFieldMask = 1 << 1, MaterialsFieldMask = 1 << 2 };
    static RefPtr<SwitchMaterial> create(const std::string& name = "");
    const char* getTypeName() const override { return "SwitchMaterial"; }
    void addMaterial(const MaterialPtr& material);
    size_t getNMaterials() const { return _materials.size(); }
    const MaterialPtr& getMaterial(size_t index) const { return _materials.at(index); }
    // -1 when none is chosen.
    int getChoice() const { return _choice; }
    void setChoice(int choice);
    // Null when the choice is outside the list.
    MaterialPtr getCurrentMaterial() const;

private:
    SwitchMaterial() = default;
    std::vector<MaterialPtr> _materials;
    int _choice = -1;
};
using SwitchMaterialPtr = RefPtr<SwitchMaterial>;

// The surface a material shows: itself, or the current choice of a switch (of switches);
// null when nothing is chosen.
const SimpleMaterial* resolveSimpleMaterial(const Material* material);

} // namespace osg
