#pragma once

#include "OSGBaseTypes.h"
#include "OSGMaterial.h"
#include "OSGNode.h"

#include <vector>

namespace osg {

// A triangle mesh: positions with optional normals, texture coordinates and colours (one per
// position), triangles as index triples, and the material it is drawn with. Renderers keep
// their copies up to date through getVersion(), which grows with every edit.
class Geometry : public NodeCore {
public:
    enum : BitVector { MeshFieldMask = 1 << 0, MaterialFieldMask = 1 << 1 };
    static RefPtr<Geometry> create();
    const char* getTypeName() const override { return "Geometry"; }

    struct Mesh {
        std::vector<Pnt3f> positions;
        std::vector<Vec3f> normals;
        std::vector<float> texCoords; // two per position
        std::vector<Color4f> colors;
        std::vector<uint32_t> indices; // three per triangle
    };
    const Mesh& getMesh() const { return _mesh; }
    // Replaces the mesh; normals are computed (smooth) when none are given.
    void setMesh(Mesh mesh);
    const MaterialPtr& getMaterial() const { return _material; }
    void setMaterial(const MaterialPtr& material);
    uint64_t getVersion() const { return _version; }

private:
    Geometry() = default;
    Mesh _mesh;
    MaterialPtr _material;
    uint64_t _version = 0;
};
using GeometryPtr = RefPtr<Geometry>;

// Shapes made as geometry, centred at the origin.
GeometryPtr makeBox(float sizeX, float sizeY, float sizeZ, const MaterialPtr& material);
GeometryPtr makeSphere(float radius, int segments, const MaterialPtr& material);
GeometryPtr makePlane(float sizeX, float sizeZ, const MaterialPtr& material);

// Lights; the node's world pose places them (directional lights shine down their -Z).
class Light : public NodeCore {
public:
    enum : BitVector { ColorFieldMask = 1 << 0, IntensityFieldMask = 1 << 1 };
    const Color3f& getColor() const { return _color; }
    void setColor(const Color3f& color);
    float getIntensity() const { return _intensity; }
    void setIntensity(float intensity);

private:
    Color3f _color{1.0f, 1.0f, 1.0f};
    float _intensity = 1.0f;
};
using LightPtr = RefPtr<Light>;

class DirectionalLight : public Light {
public:
    static RefPtr<DirectionalLight> create();
    const char* getTypeName() const override { return "DirectionalLight"; }

private:
    DirectionalLight() = default;
};

// A light from a point, in every direction or, as a spot light, in a cone down its node's -Z:
// whole within the inner angle, fading to nothing at the outer one (both from the axis, in
// radians; an outer angle of pi or more is no cone).
class PointLight : public Light {
public:
    enum : BitVector { ConeFieldMask = 1 << 2 };
    static RefPtr<PointLight> create();
    const char* getTypeName() const override { return "PointLight"; }
    float getInnerConeAngle() const { return _inner; }
    float getOuterConeAngle() const { return _outer; }
    void setCone(float inner, float outer);

private:
    PointLight() = default;
    float _inner = 3.14159265f, _outer = 3.14159265f;
};

// Light from every direction (the sky): its colour times intensity lights every surface.
class EnvironmentLight : public Light {
public:
    static RefPtr<EnvironmentLight> create();
    const char* getTypeName() const override { return "EnvironmentLight"; }

private:
    EnvironmentLight() = default;
};

// A light as renderers use it: placed in world space, its colour times its intensity.
struct WorldLight {
    enum Kind { Directional, Point, Environment } kind;
    Vec3f direction; // where a directional or spot light shines (unit length)
    Pnt3f position;  // of a point light
    Color3f power;
    // A spot light's cone as cosines of its angles: whole where the angle's cosine is at least
    // coneInner, none below coneOuter. -1 and -1 for a light in every direction.
    float coneInner = -1.0f, coneOuter = -1.0f;
};
// How much of a point light's power goes towards the unit vector 'towardsPoint'.
float coneFactor(const WorldLight& light, const Vec3f& towardsPoint);
WorldLight worldLightOf(const Light& light, const Matrix& world);

} // namespace osg
