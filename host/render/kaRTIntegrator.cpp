#include "kaRTIntegrator_p.h"

#include "kaGLSceneRenderer.h"
#include "kaRTTexture.h"

#include <algorithm>
#include <cmath>

using namespace kaRT;

namespace {
// See-through layers a ray passes before it gives up (and counts as blocked).
constexpr int kMaxLayers = 8;
// Holes of cut-outs a ray passes through before it gives up (and goes on to the background):
// foliage puts many in a row.
constexpr int kMaxCutOuts = 256;
// Below this roughness a surface is a mirror: its reflections are traced exactly.
constexpr float kMirrorRoughness = 0.3f;
// The brightest light a bounce may bring back.
constexpr float kMaxBouncedLight = 1.0f;
} // namespace

kaRTIntegrator::kaRTIntegrator(const kaRTScene& scene, const View& view,
                               const osg::Background* background, RawRays raw, int frame)
    : _scene(scene)
    , _view(view)
    , _background(background)
    , _raw(raw)
    , _frame(frame)
    , _epsilon(2e-4f * std::max(scene.extent(), 1.0f)) {
    if (!scene.hasLensFlare())
        return;
    // A flare shows for each point light in front of the camera that the camera sees.
    M4 eyeToWorld;
    view.viewing.invert(eyeToWorld);
    const V3 eye = eyeToWorld.transformPoint({0, 0, 0});
    for (const kaRTScene::Light& light : scene.lights()) {
        if (light.directional || view.viewProjection.row(3, light.position) <= 0)
            continue;
        const V3 ndc = view.viewProjection.project(light.position);
        const V3 toLight = light.position - eye;
        const float distance = length(toLight);
        const float seen = transmittance(eye, toLight * (1.0f / distance), distance - _epsilon);
        if (seen <= 0)
            continue;
        _flares.push_back({(ndc.x * 0.5f + 0.5f) * float(view.fullWidth),
                           (ndc.y * 0.5f + 0.5f) * float(view.fullHeight),
                           light.power * (seen * scene.lensFlareIntensity())});
    }
}

namespace {
// Counted where Embree is asked: one count a ray, nothing shared between threads.
thread_local uint64_t tRaysTraced = 0;

RTCRay embreeRay(V3 origin, V3 direction, float tFar, unsigned mask = ~0u) {
    RTCRay ray;
    ray.org_x = origin.x;
    ray.org_y = origin.y;
    ray.org_z = origin.z;
    ray.dir_x = direction.x;
    ray.dir_y = direction.y;
    ray.dir_z = direction.z;
    ray.tnear = 0.0f;
    ray.tfar = tFar;
    ray.time = 0.0f;
    ray.mask = mask;
    ray.id = 0;
    ray.flags = 0;
    return ray;
}
} // namespace

uint64_t kaRTIntegrator::raysTracedOnThisThread() {
    return tRaysTraced;
}

const kaRTScene::Instance* kaRTIntegrator::nearest(RTCScene scene, V3 origin, V3 direction,
                                                   float tFar, RTCRayHit& rh, float tNear) const {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    rh.ray = embreeRay(origin, direction, tFar);
    rh.ray.tnear = tNear;
    rh.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    rh.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(scene, &context, &rh);
    ++tRaysTraced;
    return rh.hit.geomID == RTC_INVALID_GEOMETRY_ID ? nullptr : &_scene.instances()[rh.hit.geomID];
}

kaRTIntegrator::Surface kaRTIntegrator::surfaceAt(const kaRTScene::Instance& instance,
                                                  unsigned primitive, float u, float v) const {
    const uint32_t* triangle = instance.geometry->getMesh().indices.data() + 3 * primitive;
    const float w = 1.0f - u - v;
    const kaRTScene::Material& m = instance.material;
    Surface surface{instance.colors.empty()
                        ? V3{1, 1, 1}
                        : instance.colors[triangle[0]] * w + instance.colors[triangle[1]] * u +
                              instance.colors[triangle[2]] * v,
                    1.0f, m.metallic, m.roughness, m.emission};
    float alpha = 1.0f;
    if (instance.hasTexCoords && (m.baseColorMap || m.metallicRoughnessMap || m.emissionMap)) {
        const float* uv = instance.geometry->getMesh().texCoords.data();
        const float s = uv[2 * triangle[0]] * w + uv[2 * triangle[1]] * u + uv[2 * triangle[2]] * v;
        const float t =
            uv[2 * triangle[0] + 1] * w + uv[2 * triangle[1] + 1] * u + uv[2 * triangle[2] + 1] * v;
        if (m.baseColorMap) {
            const kaRTTexel texel = kaRTSample(*m.baseColorMap, m.wrapU, m.wrapV, s, t);
            surface.tint = surface.tint * texel.color;
            alpha = texel.alpha;
        }
        if (m.metallicRoughnessMap) {
            const V3 packed =
                kaRTSample(*m.metallicRoughnessMap, m.wrapU, m.wrapV, s, t, false).color;
            surface.roughness *= packed.y;
            surface.metallic *= packed.z;
        }
        if (m.emissionMap)
            surface.emission =
                surface.emission * kaRTSample(*m.emissionMap, m.wrapU, m.wrapV, s, t).color;
    }
    surface.coverage = osg::surfaceCoverage(m.alphaMode, m.opacity, m.alphaCutoff, alpha);
    return surface;
}

bool kaRTIntegrator::intersect(V3 origin, V3 direction, float tFar, Hit& hit) const {
    // Points a cut-out leaves uncovered (a leaf's outline) are not there: the ray goes on.
    float tNear = 0.0f;
    for (int cut = 0; cut <= kMaxCutOuts; ++cut) {
        RTCRayHit rh;
        const kaRTScene::Instance* found =
            nearest(_scene.embree(), origin, direction, tFar, rh, tNear);
        if (!found)
            return false;
        const Surface surface = surfaceAt(*found, rh.hit.primID, rh.hit.u, rh.hit.v);
        if (surface.coverage <= 0.0f) {
            tNear = rh.ray.tfar + _epsilon;
            continue;
        }
        const kaRTScene::Instance& instance = *found;
        const uint32_t* triangle = instance.geometry->getMesh().indices.data() + 3 * rh.hit.primID;
        const float u = rh.hit.u, v = rh.hit.v, w = 1.0f - u - v;
        hit.t = rh.ray.tfar;
        hit.instance = &instance;
        hit.position = origin + direction * hit.t;
        V3 ng = normalize({rh.hit.Ng_x, rh.hit.Ng_y, rh.hit.Ng_z});
        V3 n = normalize(instance.normals[triangle[0]] * w + instance.normals[triangle[1]] * u +
                         instance.normals[triangle[2]] * v);
        // Surfaces are two-sided: both normals face the ray.
        if (dot(ng, direction) > 0)
            ng = -ng;
        if (dot(n, ng) < 0)
            n = -n;
        hit.normal = n;
        hit.geometricNormal = ng;
        hit.tint = surface.tint;
        hit.opacity = surface.coverage;
        hit.metallic = surface.metallic;
        hit.roughness = surface.roughness;
        hit.emission = surface.emission;
        return true;
    }
    return false;
}

float kaRTIntegrator::transmittance(V3 origin, V3 direction, float distance) const {
    if (distance <= 0)
        return 1.0f;
    // Anything opaque in the way blocks the light whole: any hit answers that, and Embree stops
    // at the first. (An Embree without ray masks walks through the whole scene instead.)
    RTCScene lightThrough = _scene.embree();
    if (kaRTScene::rayMasksWork()) {
        RTCIntersectContext context;
        rtcInitIntersectContext(&context);
        RTCRay ray = embreeRay(origin, direction, distance, kaRTScene::kBlocksLight);
        rtcOccluded1(_scene.embree(), &context, &ray);
        ++tRaysTraced;
        if (ray.tfar < 0)
            return 0.0f;
        lightThrough = _scene.lightThroughEmbree();
        if (!lightThrough)
            return 1.0f;
    }
    float through = 1.0f;
    // Layers that take some of the light count against kMaxLayers; the holes of cut-outs
    // against kMaxCutOuts.
    for (int layer = 0, holes = 0; layer < kMaxLayers && holes <= kMaxCutOuts && distance > 0;) {
        RTCRayHit rh;
        const kaRTScene::Instance* found = nearest(lightThrough, origin, direction, distance, rh);
        if (!found)
            return through;
        // Glowing surfaces are light fittings: they don't block the lights inside them.
        const float coverage = isZero(found->material.emission)
                                   ? surfaceAt(*found, rh.hit.primID, rh.hit.u, rh.hit.v).coverage
                                   : 0.0f;
        ++(coverage > 0.0f ? layer : holes);
        through *= 1.0f - coverage;
        if (through <= 0.0f)
            return 0.0f;
        origin = origin + direction * rh.ray.tfar + direction * _epsilon;
        distance -= rh.ray.tfar + _epsilon;
    }
    return distance > 0 ? 0.0f : through;
}

kaRTIntegrator::Lobes kaRTIntegrator::lobes(const Hit& hit) const {
    const kaRTScene::Material& m = hit.instance->material;
    Lobes l;
    l.base = m.base * hit.tint;
    const V3 nonMetal = l.base * (1.0f - hit.metallic);
    l.diffuse = nonMetal * (1.0f - m.translucency);
    l.translucency = nonMetal * m.translucency;
    const V3 f0 = lerp({0.04f, 0.04f, 0.04f}, l.base, hit.metallic);
    l.mirror = std::min(std::max(1.0f - hit.roughness / kMirrorRoughness, 0.0f), 1.0f);
    l.glossy = f0 * (1.0f - l.mirror);
    l.specular = f0 * l.mirror;
    // The OpenGL view's highlight exponent, so that both renderers show the same highlights.
    l.shininess = std::max(2.0f / std::max(std::pow(hit.roughness, 4.0f), 1e-4f) - 2.0f, 1.0f);
    return l;
}

void kaRTIntegrator::directLight(const Hit& hit, V3 toViewer, float shininess, V3& diffuse,
                                 V3& glossy, V3& translucency, bool wantBack) const {
    const V3 front = hit.position + hit.geometricNormal * _epsilon;
    const V3 back = hit.position - hit.geometricNormal * _epsilon;
    for (const kaRTScene::Light& light : _scene.lights()) {
        V3 l = light.direction, power = light.power;
        float distance = 1e30f;
        if (!light.directional) {
            const V3 toLight = light.position - hit.position;
            const float d2 = std::max(dot(toLight, toLight), 1e-6f);
            distance = std::sqrt(d2);
            l = toLight * (1.0f / distance);
            power = power * (osg::coneFactor(light.placed, {-l.x, -l.y, -l.z}) / d2);
        }
        const float ndl = dot(hit.normal, l);
        if (ndl > 0) {
            const float seen = transmittance(front, l, distance);
            if (seen <= 0)
                continue;
            const float highlight =
                std::pow(std::max(dot(hit.normal, normalize(l + toViewer)), 0.0f), shininess) *
                (shininess + 8.0f) / 8.0f;
            diffuse += power * (ndl * seen);
            glossy += power * (ndl * seen * highlight);
        } else if (ndl < 0 && wantBack) {
            const float seen = transmittance(back, l, distance);
            translucency += power * (-ndl * seen);
        }
    }
}

V3 kaRTIntegrator::trace(V3 origin, V3 direction, bool capped, bool& escaped) const {
    Hit hit;
    escaped = !intersect(origin, direction, 1e30f, hit);
    if (escaped)
        return _scene.ambient();
    return bouncedLight(hit, capped);
}

V3 kaRTIntegrator::bouncedLight(const Hit& hit, bool capped) const {
    const Lobes l = lobes(hit);
    // One bounce: the surface lit directly and by the unshadowed environment.
    V3 diffuse, glossy, back;
    const V3 toViewer = hit.normal; // the highlight is seen head-on
    directLight(hit, toViewer, l.shininess, diffuse, glossy, back, !isZero(l.translucency));
    const V3 ambient = _scene.ambient();
    V3 light = hit.emission + l.diffuse * (diffuse + ambient) + l.glossy * (glossy + ambient) +
               l.specular * ambient + l.translucency * (back + ambient);
    // What is behind a see-through surface is taken to be the environment.
    light = light * hit.opacity + ambient * (1.0f - hit.opacity);
    // Small bright surfaces (lamps) found by chance would speckle the picture for hundreds of
    // samples; bounced light is capped instead, a little darker but smooth.
    const float brightest = std::max({light.x, light.y, light.z});
    return capped && brightest > kMaxBouncedLight ? light * (kMaxBouncedLight / brightest) : light;
}

void kaRTIntegrator::shade(const Hit& hit, V3 direction, V3 weight, Random& random, Sample& out,
                           float& occlusion) const {
    const Lobes l = lobes(hit);
    const V3 toViewer = -direction;
    const V3 front = hit.position + hit.geometricNormal * _epsilon;
    const V3 back = hit.position - hit.geometricNormal * _epsilon;
    const float surfaceWeight = average(weight);

    V3 diffuseLight, glossyLight, translucencyLight;
    const bool translucent = !isZero(l.translucency);
    const bool wantBack = _raw.lightFromBehind || translucent;
    directLight(hit, toViewer, l.shininess, diffuseLight, glossyLight, translucencyLight, wantBack);

    // Diffuse: one cosine-weighted ray finds the environment or another surface; it also says
    // whether the point is occluded.
    V3 diffuseIbl, diffuseIndirect;
    {
        const float u1 = random.next(), u2 = random.next();
        bool escaped = false;
        const V3 found = trace(front, cosineDirection(hit.normal, u1, u2), true, escaped);
        (escaped ? diffuseIbl : diffuseIndirect) = found;
        occlusion = escaped ? 1.0f : 0.0f;
    }
    // Glossy: a ray in the highlight's lobe around the mirror direction.
    V3 glossyIbl, glossyIndirect;
    const float g1 = random.next(), g2 = random.next();
    if (_raw.glossy || !isZero(l.glossy)) {
        const V3 d = phongDirection(reflect(direction, hit.normal), l.shininess, g1, g2);
        if (dot(d, hit.geometricNormal) > 0) {
            bool escaped = false;
            const V3 found = trace(front, d, true, escaped);
            (escaped ? glossyIbl : glossyIndirect) = found;
        }
    }
    // Mirror: the exact reflection, the environment included.
    V3 specular;
    if (_raw.specular || !isZero(l.specular)) {
        V3 d = reflect(direction, hit.normal);
        if (dot(d, hit.geometricNormal) <= 0)
            d = reflect(direction, hit.geometricNormal);
        bool escaped = false;
        // A mirror shows what it reflects as it is: one ray, no noise to tame.
        specular = trace(front, d, false, escaped);
    }
    // Translucency: light arriving at the back, from the environment or from surfaces.
    V3 translucencyIbl, translucencyIndirect;
    const float t1 = random.next(), t2 = random.next();
    if (_raw.translucency || translucent) {
        bool escaped = false;
        const V3 found = trace(back, cosineDirection(-hit.normal, t1, t2), true, escaped);
        (escaped ? translucencyIbl : translucencyIndirect) = found;
    }

    out.add(kDiffuseIbl, weight * l.diffuse * diffuseIbl);
    out.add(kDiffuseLight, weight * l.diffuse * diffuseLight);
    out.add(kDiffuseIndirect, weight * l.diffuse * diffuseIndirect);
    out.add(kGlossyIbl, weight * l.glossy * glossyIbl);
    out.add(kGlossyLight, weight * l.glossy * glossyLight);
    out.add(kGlossyIndirect, weight * l.glossy * glossyIndirect);
    out.add(kSpecular, weight * l.specular * specular);
    const V3 tIbl = weight * l.translucency * translucencyIbl;
    const V3 tLight = weight * l.translucency * translucencyLight;
    const V3 tIndirect = weight * l.translucency * translucencyIndirect;
    out.add(kTranslucencyIbl, tIbl);
    out.add(kTranslucencyLight, tLight);
    out.add(kTranslucencyIndirect, tIndirect);
    out.add(kTranslucency, tIbl + tLight + tIndirect);
    out.add(kIncandescence, weight * hit.emission);

    out.add(kDiffuseColor, weight * l.diffuse);
    out.add(kGlossyColor, weight * l.glossy);
    out.add(kSpecularColor, weight * l.specular);
    out.add(kTranslucencyColor, weight * l.translucency);
    out.add(kAlbedo, weight * l.base);

    out.add(kRawDiffuseIbl, diffuseIbl * surfaceWeight);
    out.add(kRawGlossyIbl, glossyIbl * surfaceWeight);
    out.add(kRawTranslucencyIbl, translucencyIbl * surfaceWeight);
    out.add(kRawDiffuseLight, diffuseLight * surfaceWeight);
    out.add(kRawGlossyLight, glossyLight * surfaceWeight);
    out.add(kRawTranslucencyLight, translucencyLight * surfaceWeight);
    out.add(kRawDiffuseIndirect, diffuseIndirect * surfaceWeight);
    out.add(kRawGlossyIndirect, glossyIndirect * surfaceWeight);
    out.add(kRawSpecularIndirect, specular * surfaceWeight);
    out.add(kRawTranslucencyIndirect, translucencyIndirect * surfaceWeight);
    out.v[kCoverage][2] += surfaceWeight;
}

void kaRTIntegrator::background(float, float v, V3& color, float& alpha) const {
    color = {0, 0, 0};
    alpha = 1.0f;
    if (auto* gradient = dynamic_cast<const osg::Gradient2Background*>(_background)) {
        const float t = std::min(std::max(v, 0.0f), 1.0f);
        color = lerp(v3(gradient->getBottomColor()), v3(gradient->getTopColor()), t);
        alpha = gradient->getAlpha();
    } else if (auto* solid = dynamic_cast<const osg::SolidBackground*>(_background)) {
        color = v3(solid->getColor());
        alpha = solid->getAlpha();
    } else if (_background) {
        const osg::Color4f c = _background->colorAt(v);
        color = {c.r, c.g, c.b};
        alpha = c.a;
    }
}

void kaRTIntegrator::sample(int x, int y, int sampleIndex, Sample& out, float& objectId,
                            float& materialId, bool& firstHit) const {
    out.clear();
    objectId = materialId = 0;
    firstHit = false;
    Random random{uint32_t(x), uint32_t(y), uint32_t(sampleIndex), uint32_t(_frame)};
    float dx = 0, dy = 0;
    kaGLSceneRenderer::sampleOffset(sampleIndex, dx, dy);
    const float px = float(x) + 0.5f + dx, py = float(y) + 0.5f + dy;
    const float u = px / float(_view.fullWidth), v = py / float(_view.fullHeight);
    const V3 nearPoint = _view.inverseViewProjection.project({2 * u - 1, 2 * v - 1, -1});
    const V3 farPoint = _view.inverseViewProjection.project({2 * u - 1, 2 * v - 1, 1});
    float remaining = length(farPoint - nearPoint);
    const V3 direction = (farPoint - nearPoint) * (1.0f / std::max(remaining, 1e-20f));

    V3 origin = nearPoint, weight{1, 1, 1};
    V3 seenThrough; // the share of what lies behind see-through surfaces that shows
    bool blocked = false;
    for (int layer = 0; layer < kMaxLayers; ++layer) {
        Hit hit;
        if (!intersect(origin, direction, remaining, hit))
            break;
        const kaRTScene::Material& m = hit.instance->material;
        if (layer == 0) {
            firstHit = true;
            objectId = hit.instance->cryptoId;
            materialId = m.cryptoId;
            out.v[kCoverage][1] = 1.0f;
            out.set(kNormal, hit.normal);
            out.set(kCameraNormal, normalize(_view.viewing.transformVector(hit.normal)));
            out.set(kView, direction);
            out.set(kPosition, hit.position);
            const float depth = -float(_view.viewing.row(2, hit.position));
            out.set(kDepth, {depth, depth, depth});
            const V3 ndc = _view.viewProjection.project(hit.position);
            const float windowDepth = ndc.z * 0.5f + 0.5f;
            out.set(kGpuDepth, {windowDepth, windowDepth, windowDepth});
            out.set(kMaterialId, m.idColor);
            // Where this point was at the previous frame, seen by this camera: in pixels.
            const V3 before = hit.instance->previousWorld.transformPoint(
                hit.instance->worldInverse.transformPoint(hit.position));
            const V3 ndcBefore = _view.viewProjection.project(before);
            out.set(kMotion, {(ndc.x - ndcBefore.x) * 0.5f * float(_view.fullWidth),
                              (ndc.y - ndcBefore.y) * 0.5f * float(_view.fullHeight), 0.0f});
        }
        if (_scene.hasFog()) {
            const float fog = 1.0f - std::exp(-_scene.fogDensity() * hit.t);
            out.add(kFog, weight * _scene.fogColor() * fog);
            weight *= 1.0f - fog;
        }
        float occlusion = 0;
        shade(hit, direction, weight * hit.opacity, random, out, occlusion);
        if (layer == 0) {
            out.set(kOcclusion, {occlusion, occlusion, occlusion});
        }
        weight *= 1.0f - hit.opacity;
        if (hit.opacity >= 1.0f || isZero(weight)) {
            blocked = true;
            break;
        }
        seenThrough = weight;
        origin = hit.position + direction * _epsilon;
        remaining -= hit.t + _epsilon;
    }
    out.add(kTransparencyColor, seenThrough);

    float backgroundAlpha = 1.0f;
    if (!blocked) {
        V3 color;
        background(u, v, color, backgroundAlpha);
        // Backplates hide the background where they are opaque.
        float plateAlpha = 0.0f;
        V3 plate;
        for (const osg::ImagePlatePtr& p : _scene.backplates()) {
            const osg::Color4f c = p->sample(u, v);
            plate = plate * (1.0f - c.a) + V3{c.r, c.g, c.b} * c.a;
            plateAlpha = c.a + plateAlpha * (1.0f - c.a);
        }
        out.add(kBackplate, weight * plate);
        out.add(kBackground, weight * color * (backgroundAlpha * (1.0f - plateAlpha)));
    }

    for (const Flare& flare : _flares) {
        const float ddx = (px - flare.x) / float(_view.fullHeight);
        const float ddy = (py - flare.y) / float(_view.fullHeight);
        const float s = _scene.lensFlareSize();
        out.add(kLensFlare, flare.power * std::exp(-(ddx * ddx + ddy * ddy) / (s * s)));
    }

    // Frontplates lie over everything, the lens included.
    for (const osg::ImagePlatePtr& p : _scene.frontplates()) {
        const osg::Color4f c = p->sample(u, v);
        if (c.a <= 0)
            continue;
        const float keep = 1.0f - c.a;
        for (int s = kDiffuseIbl; s <= kAlbedo; ++s)
            for (float& value : out.v[s])
                value *= keep;
        out.add(kFrontplate, V3{c.r, c.g, c.b} * c.a);
    }

    // Alpha is the coverage of geometry: a sample that hits a surface counts whole, one that
    // hits nothing has the background's alpha. Colour is premultiplied by it, so a sample that
    // shows a transparent background adds nothing (no plates, no flare).
    // (The background's own colour is weighted by its alpha already.)
    const float alpha = firstHit ? 1.0f : backgroundAlpha;
    if (alpha < 1.0f)
        for (int s = kDiffuseIbl; s <= kAlbedo; ++s)
            if (s != kBackground)
                for (float& value : out.v[s])
                    value *= alpha;

    V3 beauty;
    for (Slot s : {kDiffuseIbl, kDiffuseLight, kGlossyIbl, kGlossyLight, kSpecular, kTranslucency,
                   kIncandescence, kDiffuseIndirect, kGlossyIndirect, kBackground, kFog, kLensFlare,
                   kBackplate, kFrontplate})
        beauty += out.get(s);
    out.set(kBeauty, beauty);
    out.v[kCoverage][0] = alpha;
}
