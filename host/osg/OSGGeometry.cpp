#include "OSGGeometry.h"

#include <algorithm>
#include <cmath>

namespace osg {

RefPtr<Geometry> Geometry::create() {
    return RefPtr<Geometry>(new Geometry());
}

void Geometry::setMesh(Mesh mesh) {
    if (mesh.normals.size() != mesh.positions.size()) {
        // Smooth normals: the area-weighted face normals around each position.
        mesh.normals.assign(mesh.positions.size(), Vec3f{0.0f, 0.0f, 0.0f});
        for (size_t t = 0; t + 2 < mesh.indices.size(); t += 3) {
            const Pnt3f& a = mesh.positions[mesh.indices[t]];
            const Pnt3f& b = mesh.positions[mesh.indices[t + 1]];
            const Pnt3f& c = mesh.positions[mesh.indices[t + 2]];
            const Vec3f n =
                cross({b.x - a.x, b.y - a.y, b.z - a.z}, {c.x - a.x, c.y - a.y, c.z - a.z});
            for (int k = 0; k < 3; ++k) {
                Vec3f& target = mesh.normals[mesh.indices[t + k]];
                target = {target.x + n.x, target.y + n.y, target.z + n.z};
            }
        }
        for (Vec3f& n : mesh.normals)
            n = normalize(n);
    }
    _mesh = std::move(mesh);
    ++_version;
    recordChange(RefPtr<Geometry>(this), MeshFieldMask);
}

void Geometry::setMaterial(const MaterialPtr& material) {
    _material = material;
    ++_version;
    recordChange(RefPtr<Geometry>(this), MaterialFieldMask);
}

namespace {

GeometryPtr geometryOf(Geometry::Mesh mesh, const MaterialPtr& material) {
    GeometryPtr geometry = Geometry::create();
    geometry->setMesh(std::move(mesh));
    geometry->setMaterial(material);
    return geometry;
}

} // namespace

GeometryPtr makeBox(float sx, float sy, float sz, const MaterialPtr& material) {
    Geometry::Mesh mesh;
    const float hx = sx / 2, hy = sy / 2, hz = sz / 2;
    // Each face has its own four corners, so that the edges stay sharp.
    const Vec3f normals[6] = {{1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}, {0, 0, -1}};
    for (const Vec3f& n : normals) {
        // Two axes across the face.
        const Vec3f u = std::fabs(n.y) > 0.5f ? Vec3f{1, 0, 0} : Vec3f{0, 1, 0};
        const Vec3f v = cross(n, u);
        const uint32_t base = uint32_t(mesh.positions.size());
        const float corners[4][2] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}};
        for (const auto& c : corners) {
            const Vec3f p{n.x + u.x * c[0] + v.x * c[1], n.y + u.y * c[0] + v.y * c[1],
                          n.z + u.z * c[0] + v.z * c[1]};
            mesh.positions.push_back({p.x * hx, p.y * hy, p.z * hz});
            mesh.normals.push_back(n);
            mesh.texCoords.push_back((c[0] + 1) / 2);
            mesh.texCoords.push_back((c[1] + 1) / 2);
        }
        // Counter-clockwise seen from outside.
        const bool flip = dot(cross(u, v), n) < 0.0f;
        const uint32_t order[6] = {0, 1, 2, 0, 2, 3};
        for (int k = 0; k < 6; ++k)
            mesh.indices.push_back(base + (flip ? order[5 - k] : order[k]));
    }
    return geometryOf(std::move(mesh), material);
}

GeometryPtr makeSphere(float radius, int segments, const MaterialPtr& material) {
    Geometry::Mesh mesh;
    const int rings = std::max(segments / 2, 2);
    for (int r = 0; r <= rings; ++r) {
        const float theta = float(M_PI) * float(r) / float(rings);
        for (int s = 0; s <= segments; ++s) {
            const float phi = 2.0f * float(M_PI) * float(s) / float(segments);
            const Vec3f n{std::sin(theta) * std::cos(phi), std::cos(theta),
                          std::sin(theta) * std::sin(phi)};
            mesh.positions.push_back({n.x * radius, n.y * radius, n.z * radius});
            mesh.normals.push_back(n);
            mesh.texCoords.push_back(float(s) / float(segments));
            mesh.texCoords.push_back(float(r) / float(rings));
        }
    }
    const uint32_t row = uint32_t(segments + 1);
    for (int r = 0; r < rings; ++r)
        for (int s = 0; s < segments; ++s) {
            const uint32_t a = uint32_t(r) * row + uint32_t(s), b = a + row;
            mesh.indices.insert(mesh.indices.end(), {a, a + 1, b, a + 1, b + 1, b});
        }
    return geometryOf(std::move(mesh), material);
}

GeometryPtr makePlane(float sx, float sz, const MaterialPtr& material) {
    Geometry::Mesh mesh;
    const float hx = sx / 2, hz = sz / 2;
    mesh.positions = {{-hx, 0, hz}, {hx, 0, hz}, {hx, 0, -hz}, {-hx, 0, -hz}};
    mesh.normals.assign(4, Vec3f{0, 1, 0});
    mesh.texCoords = {0, 0, 1, 0, 1, 1, 0, 1};
    mesh.indices = {0, 1, 2, 0, 2, 3};
    return geometryOf(std::move(mesh), material);
}

void Light::setColor(const Color3f& color) {
    _color = color;
    recordChange(LightPtr(this), ColorFieldMask);
}

void Light::setIntensity(float intensity) {
    _intensity = intensity;
    recordChange(LightPtr(this), IntensityFieldMask);
}

RefPtr<DirectionalLight> DirectionalLight::create() {
    return RefPtr<DirectionalLight>(new DirectionalLight());
}
RefPtr<PointLight> PointLight::create() {
    return RefPtr<PointLight>(new PointLight());
}
RefPtr<EnvironmentLight> EnvironmentLight::create() {
    return RefPtr<EnvironmentLight>(new EnvironmentLight());
}

WorldLight worldLightOf(const Light& light, const Matrix& world) {
    WorldLight w{WorldLight::Environment, {}, {}, {}};
    const Color3f& c = light.getColor();
    w.power = {c.r * light.getIntensity(), c.g * light.getIntensity(), c.b * light.getIntensity()};
    if (dynamic_cast<const DirectionalLight*>(&light)) {
        w.kind = WorldLight::Directional;
        w.direction = normalize(world.transformVector({0, 0, -1}));
    } else if (auto* point = dynamic_cast<const PointLight*>(&light)) {
        w.kind = WorldLight::Point;
        w.position = world.transformPoint({0, 0, 0});
        if (point->getOuterConeAngle() < 3.14159f) {
            w.direction = normalize(world.transformVector({0, 0, -1}));
            const float outer = std::max(point->getOuterConeAngle(), 0.0f);
            const float inner = std::min(std::max(point->getInnerConeAngle(), 0.0f), outer);
            w.coneOuter = std::cos(outer);
            w.coneInner = std::cos(inner);
        }
    }
    return w;
}

// glTF's falloff between the cone's angles: the square of the linear step of the cosines.
float coneFactor(const WorldLight& light, const Vec3f& towardsPoint) {
    if (light.coneOuter <= -1.0f)
        return 1.0f;
    const float c = light.direction.x * towardsPoint.x + light.direction.y * towardsPoint.y +
                    light.direction.z * towardsPoint.z;
    if (c <= light.coneOuter)
        return 0.0f;
    if (c >= light.coneInner)
        return 1.0f;
    const float t = (c - light.coneOuter) / (light.coneInner - light.coneOuter);
    return t * t;
}

void PointLight::setCone(float inner, float outer) {
    _inner = inner;
    _outer = outer;
    recordChange(RefPtr<PointLight>(this), ConeFieldMask);
}

} // namespace osg
