#pragma once

#include "OSGViewport.h"
#include "kaRTPasses.h"
#include "kaRTScene_p.h"

#include <vector>

// The raytracer's one shading model. A sample follows the camera ray through see-through
// surfaces to the first opaque one (or the background) and splits the light it finds into
// the slots of kaRT::Sample: diffuse and glossy light from the lights and from the environment,
// light bounced once from other surfaces (indirect), mirror reflections, light coming through
// translucent surfaces, emission, the background, fog, plates and lens flare. The beauty slot
// is their sum, so the light passes always add up to the beauty pass. Thread-safe once built.
class kaRTIntegrator {
public:
    struct View {
        int fullWidth = 1, fullHeight = 1;
        kaRT::M4 viewing, viewProjection, inverseViewProjection;
    };
    // Rays that the raw illumination of a component needs where its colour is black, and the
    // light slots don't: traced only when a wanted pass shows that illumination.
    struct RawRays {
        bool glossy = false, specular = false, translucency = false, lightFromBehind = false;
    };
    kaRTIntegrator(const kaRTScene& scene, const View& view, const osg::Background* background,
                   RawRays raw, int frame);

    // Sample 'sampleIndex' of pixel (x, y) of the full picture (rows bottom-up). 'objectId' and
    // 'materialId' are the Cryptomatte ids of the first surface; 'hit' says whether there was
    // one.
    void sample(int x, int y, int sampleIndex, kaRT::Sample& out, float& objectId,
                float& materialId, bool& hit) const;

    // Rays traced so far by the calling thread (by every integrator): a render reads it before
    // and after its rows.
    static uint64_t raysTracedOnThisThread();

private:
    struct Hit {
        float t;
        const kaRTScene::Instance* instance;
        kaRT::V3 position, normal, geometricNormal; // normals face the incoming ray
        kaRT::V3 tint; // what the base colour is multiplied by: vertex colours, the picture
        float opacity; // the coverage there: the material's opacity, the picture's alpha
        // The material's, times its pictures there.
        float metallic, roughness;
        kaRT::V3 emission;
    };
    // A point of a surface as its material and pictures make it.
    struct Surface {
        kaRT::V3 tint;
        float coverage;
        float metallic, roughness;
        kaRT::V3 emission;
    };
    struct Lobes {
        kaRT::V3 diffuse, glossy, specular, translucency, base;
        float mirror, shininess;
    };
    // The instance of the nearest surface of 'scene' (the whole scene or a part of it) along
    // the ray, null when there is none, with Embree's record of the hit; intersect() also works
    // out what the shading needs.
    const kaRTScene::Instance* nearest(RTCScene scene, kaRT::V3 origin, kaRT::V3 direction,
                                       float tFar, RTCRayHit& hit, float tNear = 0) const;
    // The tint and coverage of triangle 'primitive' of 'instance' at barycentric (u, v).
    Surface surfaceAt(const kaRTScene::Instance& instance, unsigned primitive, float u,
                      float v) const;
    bool intersect(kaRT::V3 origin, kaRT::V3 direction, float tFar, Hit& hit) const;
    // Share of light that gets from 'origin' along 'direction' over 'distance' through
    // see-through surfaces.
    float transmittance(kaRT::V3 origin, kaRT::V3 direction, float distance) const;
    Lobes lobes(const Hit& hit) const;
    // Light leaving a surface that a bounce ray found, towards where the ray came from;
    // 'capped' limits it (for rays that find it by chance).
    kaRT::V3 bouncedLight(const Hit& hit, bool capped) const;
    // Direct light: diffuse, glossy and from-behind (translucency) illumination.
    void directLight(const Hit& hit, kaRT::V3 toViewer, float shininess, kaRT::V3& diffuse,
                     kaRT::V3& glossy, kaRT::V3& translucency, bool wantBack) const;
    // What a bounce ray finds: the environment when it escapes, a lit surface otherwise.
    kaRT::V3 trace(kaRT::V3 origin, kaRT::V3 direction, bool capped, bool& escaped) const;
    void shade(const Hit& hit, kaRT::V3 direction, kaRT::V3 weight, kaRT::Random& random,
               kaRT::Sample& out, float& occlusion) const;
    void background(float u, float v, kaRT::V3& color, float& alpha) const;

    const kaRTScene& _scene;
    View _view;
    const osg::Background* _background;
    RawRays _raw;
    int _frame;
    float _epsilon;
    struct Flare {
        float x, y; // in pixels of the full picture
        kaRT::V3 power;
    };
    std::vector<Flare> _flares;
};
