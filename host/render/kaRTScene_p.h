#pragma once

#include "OSGGeometry.h"
#include "OSGSceneEffects.h"
#include "kaRTMath.h"

#include <embree3/rtcore.h>

#include <map>
#include <string>
#include <vector>

// The raytracer's copy of a scene: every shown mesh in world space in an Embree scene, with its
// object and material, the lights, the environment and the frame effects (fog, plates, lens
// flare). The meshes are rebuilt only when the geometry or its placement changed. Updated on
// the GUI thread; read by the render threads while no update runs.
class kaRTScene {
public:
    struct Material {
        kaRT::V3 base{0.8f, 0.8f, 0.8f}, emission;
        osg::ImagePtr baseColorMap;                      // sRGB RGBA 8-bit; null for a plain colour
        osg::ImagePtr metallicRoughnessMap, emissionMap; // placed like the base colour's
        osg::TextureWrap wrapU = osg::TextureWrap::Repeat, wrapV = osg::TextureWrap::Repeat;
        float metallic = 0, roughness = 0.5f, opacity = 1, translucency = 0;
        osg::AlphaMode alphaMode = osg::AlphaMode::Blend;
        float alphaCutoff = 0.5f;
        // Covers every point whole: no picture or opacity can make any of it see-through.
        bool coversWhole() const {
            return alphaMode == osg::AlphaMode::Opaque ||
                   (!baseColorMap && osg::surfaceCoverage(alphaMode, opacity, alphaCutoff, 1) >= 1);
        }
        std::string name;
        float cryptoId = 0;
        kaRT::V3 idColor; // a colour of its own, for the material-ID pass
    };
    struct Instance {
        const osg::Node* node = nullptr;
        osg::GeometryPtr geometry;
        std::string objectName;
        float cryptoId = 0;
        Material material;
        kaRT::M4 world, worldInverse, previousWorld;
        std::vector<kaRT::V3> normals; // world space, one per vertex
        std::vector<kaRT::V3> colors;  // empty without vertex colours
        bool hasTexCoords = false;     // the geometry's mesh has a pair for every vertex
        bool blocksLight = true;       // as the Embree scene's mask says
    };
    // Embree masks of the surfaces: opaque ones block light whole; see-through ones and glowing
    // light fittings (which don't block the lights inside them) let some or all through.
    static constexpr unsigned kBlocksLight = 1, kLetsLightThrough = 2;
    // Whether this Embree honours ray masks (a build option of Embree's).
    static bool rayMasksWork();
    struct Light {
        bool directional = false;
        kaRT::V3 direction; // towards the light, for directional lights
        kaRT::V3 position;
        kaRT::V3 power;
        osg::WorldLight placed; // as the scene gives it (a spot light's cone)
    };

    kaRTScene();
    ~kaRTScene();
    kaRTScene(const kaRTScene&) = delete;
    kaRTScene& operator=(const kaRTScene&) = delete;

    // Reads the scene below 'root' as it is at animation frame 'frame'. Placements seen at the
    // previously rendered frame become the previous placements (for motion vectors).
    bool update(const osg::NodePtr& root, int frame, std::string& error);

    RTCScene embree() const { return _scene; }
    // The surfaces that let light through, alone (null when there are none): a shadow ray that
    // nothing opaque stops walks through these, not through the whole scene. Geometry ids are
    // those of embree().
    RTCScene lightThroughEmbree() const { return _lightThroughScene; }
    const std::vector<Instance>& instances() const { return _instances; }
    const std::vector<Light>& lights() const { return _lights; }
    // Lights of every kind the scene itself brings (the environment included).
    size_t sceneLightCount() const { return _sceneLights; }
    // A light besides the scene's, until the next update.
    void addLight(const osg::WorldLight& light);
    kaRT::V3 ambient() const { return _ambient; }
    bool hasFog() const { return _fog.enabled; }
    kaRT::V3 fogColor() const { return _fog.color; }
    float fogDensity() const { return _fog.density; }
    const std::vector<osg::ImagePlatePtr>& backplates() const { return _backplates; }
    const std::vector<osg::ImagePlatePtr>& frontplates() const { return _frontplates; }
    bool hasLensFlare() const { return _flareIntensity > 0; }
    float lensFlareIntensity() const { return _flareIntensity; }
    float lensFlareSize() const { return _flareSize; }
    // Half the size of the scene's bounds: the scale of ray offsets.
    float extent() const { return _extent; }

private:
    // A shown mesh: its node, geometry (at a version) and placement.
    struct Found {
        const osg::Node* node;
        osg::GeometryPtr geometry;
        uint64_t version;
        osg::Matrix world;
    };
    void collect(const osg::NodePtr& root, std::vector<Found>& found);
    // A new Embree scene of 'found', committed by update() once the masks are set.
    void rebuild(const std::vector<Found>& found);
    void rebuildLightThrough();

    RTCScene _scene = nullptr;
    RTCScene _lightThroughScene = nullptr;
    std::vector<Instance> _instances;
    std::vector<Light> _lights;
    size_t _sceneLights = 0;
    kaRT::V3 _ambient;
    struct {
        bool enabled = false;
        kaRT::V3 color;
        float density = 0;
    } _fog;
    std::vector<osg::ImagePlatePtr> _backplates, _frontplates;
    float _flareIntensity = 0, _flareSize = 0.05f;
    float _extent = 1;
    // What the Embree scene was built from (the scene as it is since the last update).
    std::vector<Found> _built;
    int _frame = 0;
    bool _hasFrame = false;
    std::map<const osg::Node*, osg::Matrix> _previousPlacements;
};

// The process-wide Embree device; null (with the reason) when Embree cannot start.
RTCDevice kaRTDevice(std::string& error);
