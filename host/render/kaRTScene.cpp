#include "kaRTScene_p.h"

#include "OSGNodeCores.h"
#include "kaExposure.h"
#include "kaRTCryptomatte.h"

#include <algorithm>
#include <cmath>
#include <mutex>

using kaRT::V3;

RTCDevice kaRTDevice(std::string& error) {
    static std::once_flag once;
    static RTCDevice device = nullptr;
    static std::string why;
    std::call_once(once, [] {
        device = rtcNewDevice(nullptr);
        if (!device)
            why = "Embree could not start (error " +
                  std::to_string(int(rtcGetDeviceError(nullptr))) + ")";
    });
    if (!device)
        error = why;
    return device;
}

bool kaRTScene::rayMasksWork() {
    static const bool work = [] {
        std::string error;
        RTCDevice device = kaRTDevice(error);
        return device && rtcGetDeviceProperty(device, RTC_DEVICE_PROPERTY_RAY_MASK_SUPPORTED) != 0;
    }();
    return work;
}

namespace {

// What users call the object: its node's name, or that of the nearest named ancestor.
std::string objectNameOf(const osg::Node* node) {
    for (const osg::Node* n = node; n; n = n->getParent())
        if (!n->getName().empty())
            return n->getName();
    return "unnamed";
}

kaRTScene::Material materialOf(const osg::Geometry& geometry) {
    kaRTScene::Material m;
    if (const osg::SimpleMaterial* s = osg::resolveSimpleMaterial(geometry.getMaterial().get())) {
        m.base = kaRT::v3(s->baseColor);
        m.baseColorMap = s->baseColorMap;
        m.metallicRoughnessMap = s->metallicRoughnessMap;
        m.emissionMap = s->emissionMap;
        m.wrapU = s->wrapU;
        m.wrapV = s->wrapV;
        m.emission = kaRT::v3(s->emission) * kaExposure::scale();
        m.metallic = std::min(std::max(s->metallic, 0.0f), 1.0f);
        m.roughness = std::min(std::max(s->roughness, 0.0f), 1.0f);
        m.alphaMode = s->alphaMode;
        m.alphaCutoff = s->alphaCutoff;
        m.opacity = m.alphaMode == osg::AlphaMode::Opaque
                        ? 1.0f
                        : std::min(std::max(s->opacity, 0.0f), 1.0f);
        m.translucency = std::min(std::max(s->translucency, 0.0f), 1.0f);
        m.name = s->getName();
    }
    if (m.name.empty())
        m.name = "default";
    m.cryptoId = kaRTCryptomatte::idOfName(m.name);
    const uint32_t bits = kaRTCryptomatte::hashName(m.name);
    m.idColor = {0.2f + 0.8f * float(bits & 0xff) / 255.0f,
                 0.2f + 0.8f * float((bits >> 8) & 0xff) / 255.0f,
                 0.2f + 0.8f * float((bits >> 16) & 0xff) / 255.0f};
    return m;
}

V3 toV3(const osg::Pnt3f& p) {
    return {p.x, p.y, p.z};
}

} // namespace

kaRTScene::kaRTScene() = default;

kaRTScene::~kaRTScene() {
    if (_lightThroughScene)
        rtcReleaseScene(_lightThroughScene);
    if (_scene)
        rtcReleaseScene(_scene);
}

void kaRTScene::addLight(const osg::WorldLight& l) {
    const V3 power = kaRT::v3(l.power) * kaExposure::scale();
    if (l.kind == osg::WorldLight::Directional)
        _lights.push_back({true, {-l.direction.x, -l.direction.y, -l.direction.z}, {}, power, l});
    else if (l.kind == osg::WorldLight::Point)
        _lights.push_back({false, {}, toV3(l.position), power, l});
    else
        _ambient += power;
}

void kaRTScene::collect(const osg::NodePtr& root, std::vector<Found>& found) {
    osg::forEachShownNode(root, [&](const osg::NodePtr& node, const osg::Matrix& world) {
        osg::NodeCore* core = node->getCore().get();
        if (auto* geometry = dynamic_cast<osg::Geometry*>(core))
            found.push_back(
                {node.get(), osg::GeometryPtr(geometry), geometry->getVersion(), world});
        if (auto* light = dynamic_cast<const osg::Light*>(core)) {
            addLight(osg::worldLightOf(*light, world));
            ++_sceneLights;
        }
        if (auto* fog = dynamic_cast<const osg::Fog*>(core)) {
            _fog.enabled = fog->getDensity() > 0;
            _fog.color = kaRT::v3(fog->getColor());
            _fog.density = fog->getDensity();
        }
        if (auto* plate = dynamic_cast<osg::ImagePlate*>(core))
            (plate->isFront() ? _frontplates : _backplates).push_back(osg::ImagePlatePtr(plate));
        if (auto* flare = dynamic_cast<const osg::LensFlare*>(core)) {
            _flareIntensity = flare->getIntensity();
            _flareSize = flare->getSize();
        }
    });
}

bool kaRTScene::update(const osg::NodePtr& root, int frame, std::string& error) {
    RTCDevice device = kaRTDevice(error);
    if (!device)
        return false;
    _lights.clear();
    _sceneLights = 0;
    _ambient = {};
    _fog = {};
    _backplates.clear();
    _frontplates.clear();
    _flareIntensity = 0;
    std::vector<Found> found;
    collect(root, found);
    // Meshes with broken indices are left out rather than read out of bounds.
    found.erase(std::remove_if(found.begin(), found.end(),
                               [](const Found& f) {
                                   const osg::Geometry::Mesh& mesh = f.geometry->getMesh();
                                   if (mesh.indices.size() < 3)
                                       return true;
                                   return std::any_of(
                                       mesh.indices.begin(), mesh.indices.end(),
                                       [&](uint32_t i) { return i >= mesh.positions.size(); });
                               }),
                found.end());

    // Placements seen at another frame become the previous ones, for motion vectors.
    if (!_hasFrame || frame != _frame) {
        _previousPlacements.clear();
        if (_hasFrame)
            for (const Found& f : _built)
                _previousPlacements[f.node] = f.world;
        _frame = frame;
        _hasFrame = true;
    }
    const bool same =
        _scene && found.size() == _built.size() &&
        std::equal(found.begin(), found.end(), _built.begin(), [](const Found& a, const Found& b) {
            return a.node == b.node && a.geometry == b.geometry && a.version == b.version &&
                   a.world.equals(b.world, 0.0f);
        });
    if (!same) {
        rebuild(found);
        _built = std::move(found);
    }
    // Materials, names and previous placements are cheap: read on every update. A surface
    // that starts or stops letting light through changes masks, and so the search structures.
    bool masksChanged = !same;
    for (size_t i = 0; i < _instances.size(); ++i) {
        Instance& instance = _instances[i];
        instance.material = materialOf(*instance.geometry);
        const bool blocks =
            instance.material.coversWhole() && kaRT::isZero(instance.material.emission);
        if (!same || blocks != instance.blocksLight) {
            RTCGeometry geometry = rtcGetGeometry(_scene, unsigned(i));
            rtcSetGeometryMask(geometry, blocks ? kBlocksLight : kLetsLightThrough);
            rtcCommitGeometry(geometry);
            instance.blocksLight = blocks;
            masksChanged = true;
        }
        instance.objectName = objectNameOf(instance.node);
        instance.cryptoId = kaRTCryptomatte::idOfName(instance.objectName);
        auto previous = _previousPlacements.find(instance.node);
        instance.previousWorld = previous != _previousPlacements.end()
                                     ? kaRT::M4::from(previous->second)
                                     : instance.world;
    }
    if (masksChanged) {
        rtcCommitScene(_scene);
        // Only an Embree with ray masks walks shadow rays through the see-through part alone.
        if (rayMasksWork())
            rebuildLightThrough();
    }
    return true;
}

void kaRTScene::rebuild(const std::vector<Found>& found) {
    std::string error;
    RTCDevice device = kaRTDevice(error);
    if (_lightThroughScene)
        rtcReleaseScene(_lightThroughScene);
    _lightThroughScene = nullptr;
    if (_scene)
        rtcReleaseScene(_scene);
    _scene = rtcNewScene(device);
    // Robust traversal: rays through shared edges never slip between two triangles.
    rtcSetSceneFlags(_scene, RTC_SCENE_FLAG_ROBUST);
    _instances.clear();
    V3 lo{1e30f, 1e30f, 1e30f}, hi{-1e30f, -1e30f, -1e30f};
    for (const Found& f : found) {
        const osg::Geometry::Mesh& mesh = f.geometry->getMesh();
        Instance instance;
        instance.node = f.node;
        instance.geometry = f.geometry;
        instance.world = kaRT::M4::from(f.world);
        instance.world.invert(instance.worldInverse);
        // Normals go by the inverse transpose, so that scaled objects keep them upright.
        kaRT::M4 normalMatrix;
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c)
                normalMatrix.m[r][c] = instance.worldInverse.m[c][r];
        RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
        auto* vertices = static_cast<float*>(
            rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3,
                                    3 * sizeof(float), mesh.positions.size()));
        instance.normals.resize(mesh.positions.size());
        for (size_t v = 0; v < mesh.positions.size(); ++v) {
            const V3 p = instance.world.transformPoint(toV3(mesh.positions[v]));
            vertices[3 * v] = p.x;
            vertices[3 * v + 1] = p.y;
            vertices[3 * v + 2] = p.z;
            lo = {std::min(lo.x, p.x), std::min(lo.y, p.y), std::min(lo.z, p.z)};
            hi = {std::max(hi.x, p.x), std::max(hi.y, p.y), std::max(hi.z, p.z)};
            const osg::Vec3f n = v < mesh.normals.size() ? mesh.normals[v] : osg::Vec3f{0, 1, 0};
            instance.normals[v] = kaRT::normalize(normalMatrix.transformVector({n.x, n.y, n.z}));
        }
        if (mesh.colors.size() == mesh.positions.size())
            for (const osg::Color4f& c : mesh.colors)
                instance.colors.push_back({c.r, c.g, c.b});
        instance.hasTexCoords =
            !mesh.positions.empty() && mesh.texCoords.size() == 2 * mesh.positions.size();
        const size_t triangles = mesh.indices.size() / 3;
        auto* indices = static_cast<uint32_t*>(rtcSetNewGeometryBuffer(
            geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 3 * sizeof(uint32_t), triangles));
        std::copy(mesh.indices.begin(), mesh.indices.begin() + long(triangles * 3), indices);
        rtcCommitGeometry(geometry);
        rtcAttachGeometryByID(_scene, geometry, unsigned(_instances.size()));
        rtcReleaseGeometry(geometry);
        _instances.push_back(std::move(instance));
    }
    _extent = _instances.empty() ? 1.0f : std::max(kaRT::length(hi - lo) * 0.5f, 1e-3f);
}

void kaRTScene::rebuildLightThrough() {
    if (_lightThroughScene)
        rtcReleaseScene(_lightThroughScene);
    _lightThroughScene = nullptr;
    std::string error;
    RTCDevice device = kaRTDevice(error);
    for (size_t i = 0; i < _instances.size(); ++i) {
        if (_instances[i].blocksLight)
            continue;
        if (!_lightThroughScene) {
            _lightThroughScene = rtcNewScene(device);
            rtcSetSceneFlags(_lightThroughScene, RTC_SCENE_FLAG_ROBUST);
        }
        // The same triangles as in the whole scene: its buffers are shared, not copied.
        RTCGeometry whole = rtcGetGeometry(_scene, unsigned(i));
        const osg::Geometry::Mesh& mesh = _instances[i].geometry->getMesh();
        RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
        rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3,
                                   rtcGetGeometryBufferData(whole, RTC_BUFFER_TYPE_VERTEX, 0), 0,
                                   3 * sizeof(float), mesh.positions.size());
        rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                                   rtcGetGeometryBufferData(whole, RTC_BUFFER_TYPE_INDEX, 0), 0,
                                   3 * sizeof(uint32_t), mesh.indices.size() / 3);
        rtcCommitGeometry(geometry);
        rtcAttachGeometryByID(_lightThroughScene, geometry, unsigned(i));
        rtcReleaseGeometry(geometry);
    }
    if (_lightThroughScene)
        rtcCommitScene(_lightThroughScene);
}
