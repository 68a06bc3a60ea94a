#include "kaRTRenderer.h"

#include "kaAnimManager.h"
#include "kaController.h"
#include "kaDefaultLights.h"
#include "kaPixelEncoder.h"
#include "kaRTCryptoAccumulator.h"
#include "kaRTCryptomatte.h"
#include "kaRTIntegrator_p.h"
#include "kaRTSceneHandler.h"
#include "kaRTScene_p.h"
#include "kaRaytracer.h"
#include "kaRenderParameter.h"

#include <embree3/rtcore_config.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>
#include <thread>

using namespace kaRT;

// The sums of the samples made so far for one region. A pixel's slots lie side by side: a
// sample adds to one short run of memory, and the passes of a row are read from the few rows of
// sums that cache holds, rather than from one picture-sized array per slot.
struct kaRTRenderer::Accumulation {
    const osg::Camera* camera = nullptr;
    int fullWidth = 0, fullHeight = 0, x = 0, y = 0, width = 0, height = 0, frame = 0;
    int samples = 0;
    std::vector<Slot> slots;
    int offsets[kSlotCount] = {}; // where a slot's three floats lie within a pixel's sums
    size_t stride = 0;            // floats a pixel
    std::vector<float> sums;
    bool crypto = false;
    kaRTCryptoAccumulator objects, materials;

    // Wanted slots that follow each other in a sample: added as one run of floats.
    struct Run {
        Slot first;
        int floats;
    };
    std::vector<Run> runs;

    void layOut(const std::vector<Slot>& wanted) {
        slots = wanted; // in slot order
        std::fill(std::begin(offsets), std::end(offsets), -1);
        runs.clear();
        for (size_t i = 0; i < slots.size(); ++i) {
            offsets[slots[i]] = int(i * 3);
            if (i > 0 && slots[i] == slots[i - 1] + 1)
                runs.back().floats += 3;
            else
                runs.push_back({slots[i], 3});
        }
        stride = slots.size() * 3;
    }
    const float* slot(Slot s, size_t pixel) const {
        return sums.data() + pixel * stride + size_t(offsets[s]);
    }
    void values(const PassRule& rule, size_t first, int count, float* rgba) const;

    bool matches(const osg::Camera* c, const Region& r, int f) const {
        return c == camera && r.fullWidth == fullWidth && r.fullHeight == fullHeight && r.x == x &&
               r.y == y && r.width == width && r.height == height && f == frame;
    }
};

// Pass 'rule' of 'count' pixels from 'first' on, as RGBA: the mean of the samples, read as the
// pass reads its slots. Light comes premultiplied (samples that hit nothing add none); the
// encoder makes it what each image holds. A row at a time: one call for a row of a pass.
void kaRTRenderer::Accumulation::values(const PassRule& rule, size_t first, int count,
                                        float* rgba) const {
    const float n = float(std::max(samples, 1));
    for (int i = 0; i < count; ++i, rgba += 4) {
        const size_t pixel = first + size_t(i);
        const float* coverage = slot(kCoverage, pixel);
        const float alpha = coverage[0] / n;
        const float hits = coverage[1];
        const float* s = slot(rule.slot, pixel);
        switch (rule.kind) {
        case PassKind::Light:
            rgba[0] = s[0] / n;
            rgba[1] = s[1] / n;
            rgba[2] = s[2] / n;
            rgba[3] = alpha;
            break;
        case PassKind::Illumination: {
            const float* colour = slot(rule.colour, pixel);
            const float* rawSum = slot(rule.raw, pixel);
            const float weight = coverage[2];
            for (int c = 0; c < 3; ++c)
                rgba[c] = colour[c] > 1e-6f * n ? s[c] / colour[c]
                          : weight > 0          ? rawSum[c] / weight
                                                : 0.0f;
            rgba[3] = alpha;
            break;
        }
        case PassKind::Surface:
            if (hits > 0) {
                rgba[0] = s[0] / hits;
                rgba[1] = s[1] / hits;
                rgba[2] = s[2] / hits;
                rgba[3] = hits / n;
            } else {
                rgba[0] = rgba[1] = rgba[2] = rule.empty;
                rgba[3] = 0.0f;
            }
            break;
        case PassKind::Mask:
            rgba[0] = rgba[1] = rgba[2] = rgba[3] = hits / n;
            break;
        case PassKind::CryptoObject:
        case PassKind::CryptoMaterial:
            (rule.kind == PassKind::CryptoObject ? objects : materials)
                .resolve(pixel, rule.cryptoLayer, n, rgba);
            break;
        }
    }
}

kaRTRenderer& kaRTRenderer::the() {
    static kaRTRenderer renderer;
    return renderer;
}

kaRTRenderer::kaRTRenderer()
    : _scene(std::make_unique<kaRTScene>())
    , _accumulation(std::make_unique<Accumulation>()) {}

kaRTRenderer::~kaRTRenderer() = default;

void kaRTRenderer::releaseBuffers() {
    _accumulation = std::make_unique<Accumulation>();
}

namespace {

// The slots that the wanted passes read, and the rays their raw illumination needs.
std::vector<Slot> slotsFor(const std::vector<osg::ImagePtr>& images, bool& crypto,
                           kaRTIntegrator::RawRays& raw) {
    std::set<Slot> slots{kCoverage};
    crypto = false;
    raw = {};
    for (int pass = 0; pass < kPassCount && pass < int(images.size()); ++pass) {
        if (!images[size_t(pass)])
            continue;
        const PassRule& rule = passRule(pass);
        slots.insert(rule.slot);
        if (rule.kind == PassKind::Illumination) {
            slots.insert(rule.colour);
            slots.insert(rule.raw);
            // Raw diffuse illumination comes from rays the diffuse light traces anyway.
            raw.glossy = raw.glossy || rule.raw == kRawGlossyIbl || rule.raw == kRawGlossyIndirect;
            raw.specular = raw.specular || rule.raw == kRawSpecularIndirect;
            raw.translucency = raw.translucency || rule.raw == kRawTranslucencyIbl ||
                               rule.raw == kRawTranslucencyIndirect;
            raw.lightFromBehind = raw.lightFromBehind || rule.raw == kRawTranslucencyLight;
        }
        crypto =
            crypto || rule.kind == PassKind::CryptoObject || rule.kind == PassKind::CryptoMaterial;
    }
    return {slots.begin(), slots.end()};
}

// Runs 'row' for rows 0 .. rows - 1 on 'threads' threads, each row once, until all are done or
// 'stop' says so (checked before every row). The calling thread only watches: every 50 ms it
// calls 'watch' with the rows done so far.
template <typename Stop>
void runRows(int threads, int rows, const Stop& stop, const std::function<void(int)>& row,
             const std::function<void(int)>& watch) {
    std::atomic<int> next{0}, done{0}, working{threads};
    std::mutex mutex;
    std::condition_variable finished;
    auto work = [&] {
        for (int r = next++; r < rows && !stop(); r = next++) {
            row(r);
            ++done;
        }
        std::lock_guard<std::mutex> lock(mutex);
        if (--working == 0)
            finished.notify_all();
    };
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back(work);
    {
        std::unique_lock<std::mutex> lock(mutex);
        while (
            !finished.wait_for(lock, std::chrono::milliseconds(50), [&] { return working == 0; })) {
            if (watch) {
                lock.unlock();
                watch(done);
                lock.lock();
            }
        }
    }
    for (std::thread& worker : workers)
        worker.join();
}

// What this render really used, for the scene's raytracing-settings attachment that exports
// record. A new map each time: readers on other threads keep the one they hold.
void publishSettings(int samples, int offset, int threads, bool premultiply, bool timeLimit,
                     double limit, size_t slots) {
    osg::StringAttributeMapPtr settings = osg::StringAttributeMap::create();
    settings->setAttribute("Renderer", "Embree " + std::to_string(RTC_VERSION_MAJOR) + "." +
                                           std::to_string(RTC_VERSION_MINOR));
    settings->setAttribute("Samples", std::to_string(samples));
    settings->setAttribute("SampleOffset", std::to_string(offset));
    settings->setAttribute("Threads", std::to_string(threads));
    settings->setAttribute("Premultiplied", premultiply ? "True" : "False");
    settings->setAttribute("TimeLimit", timeLimit ? "True" : "False");
    if (timeLimit)
        settings->setAttribute("TimeLimitSeconds", std::to_string(limit));
    settings->setAttribute("ShadingSlots", std::to_string(slots));
    kaRTSceneHandler::setRaytracingSettingsAttachment(settings);
}

} // namespace

bool kaRTRenderer::render(const osg::UberViewport& viewport, const osg::Camera& camera,
                          const Region& region, const std::vector<osg::ImagePtr>& images,
                          int samples, int onlySample, std::string& error) {
    // A time limit counts from the call: preparing the scene is part of the render's time.
    const auto start = std::chrono::steady_clock::now();
    error.clear();
    _lastSamples = 0;
    _lastRays = 0;
    if (region.width <= 0 || region.height <= 0 || region.fullWidth <= 0 ||
        region.fullHeight <= 0) {
        error = "nothing to render (empty target)";
        return false;
    }
    const int frame = kaAnimManager::getCurrentFrame();
    if (!_scene->update(viewport.getRoot(), frame, error))
        return false;
    if (kaDefaultLights::applies(_scene->sceneLightCount()))
        for (const osg::WorldLight& l : kaDefaultLights::rig(
                 camera.getViewing(uint32_t(region.fullWidth), uint32_t(region.fullHeight))))
            _scene->addLight(l);

    kaRTIntegrator::View view;
    view.fullWidth = region.fullWidth;
    view.fullHeight = region.fullHeight;
    view.viewing =
        M4::from(camera.getViewing(uint32_t(region.fullWidth), uint32_t(region.fullHeight)));
    view.viewProjection =
        M4::from(camera.getProjection(uint32_t(region.fullWidth), uint32_t(region.fullHeight))) *
        view.viewing;
    if (!view.viewProjection.invert(view.inverseViewProjection)) {
        error = "the camera's projection cannot be inverted";
        return false;
    }

    bool crypto = false;
    kaRTIntegrator::RawRays raw;
    const std::vector<Slot> slots = slotsFor(images, crypto, raw);
    const size_t pixels = size_t(region.width) * size_t(region.height);
    Accumulation& acc = *_accumulation;
    const bool restart = onlySample <= 0 || !acc.matches(&camera, region, frame) ||
                         acc.slots != slots || acc.crypto != crypto;
    if (restart) {
        acc.camera = &camera;
        acc.fullWidth = region.fullWidth;
        acc.fullHeight = region.fullHeight;
        acc.x = region.x;
        acc.y = region.y;
        acc.width = region.width;
        acc.height = region.height;
        acc.frame = frame;
        acc.samples = 0;
        acc.layOut(slots);
        // The sums are kept from render to render (tiles of one export have one size): fresh
        // memory costs more to map than to clear. A much smaller set of passes gives it back.
        // Clearing the sums of a large picture takes seconds: an interrupt goes first.
        if (kaController::rendersInterrupted()) {
            acc.camera = nullptr;
            return false; // stopped, as asked: nothing to report
        }
        const size_t floats = pixels * acc.stride;
        if (acc.sums.capacity() > 2 * floats)
            std::vector<float>().swap(acc.sums);
        acc.sums.assign(floats, 0.0f);
        acc.crypto = crypto;
        acc.objects.reset(crypto ? pixels : 0);
        acc.materials.reset(crypto ? pixels : 0);
    }

    const kaRTIntegrator integrator(*_scene, view, viewport.getBackground().get(), raw, frame);
    const bool timeLimit = onlySample < 0 && kaRenderParameter::getUseRenderTimeLimit();
    const double limit = kaRenderParameter::getRenderTimeInSeconds();
    const int offset = std::max(kaRenderParameter::getSampleOffset(), 0);
    const int first = onlySample >= 0 ? onlySample : 0;
    // A time limit renders as many samples as fit; the cap only keeps the count finite.
    const int last = onlySample >= 0 ? onlySample + 1
                     : timeLimit     ? (1 << 20)
                                     : std::max(samples, 1);
    int threads = kaRaytracer::getThreadCount();
    if (threads <= 0)
        threads = int(std::max(std::thread::hardware_concurrency(), 1u));
    threads = std::min(threads, region.height);

    auto callback = viewport.getEventProcessingCB();
    std::atomic<bool> stopping{false};
    auto stopRequested = [&] {
        return stopping.load(std::memory_order_relaxed) || kaController::rendersInterrupted();
    };
    std::atomic<uint64_t> rays{0};
    bool stopped = false;
    for (int k = first; k < last && !stopped; ++k) {
        runRows(
            threads, region.height, stopRequested,
            [&](int row) {
                const uint64_t raysBefore = kaRTIntegrator::raysTracedOnThisThread();
                Sample sample;
                for (int column = 0; column < region.width; ++column) {
                    float objectId = 0, materialId = 0;
                    bool hit = false;
                    integrator.sample(region.x + column, region.y + row, k + offset, sample,
                                      objectId, materialId, hit);
                    const size_t pixel = size_t(row) * size_t(region.width) + size_t(column);
                    float* sum = acc.sums.data() + pixel * acc.stride;
                    for (const Accumulation::Run& run : acc.runs) {
                        const float* add = sample.v[run.first];
                        for (int i = 0; i < run.floats; ++i)
                            sum[i] += add[i];
                        sum += run.floats;
                    }
                    if (crypto && hit) {
                        acc.objects.add(pixel, objectId, 1.0f);
                        acc.materials.add(pixel, materialId, 1.0f);
                    }
                }
                rays += kaRTIntegrator::raysTracedOnThisThread() - raysBefore;
            },
            [&](int rows) {
                // The GUI thread keeps the dialog alive and watches for Abort while a sample
                // renders: a sample of a large picture takes long.
                kaController::setRenderStepProgress(k - first, last - first,
                                                    double(rows) / double(region.height));
                if (callback && !callback(0, 0, false, viewport.getEventProcessingContext()))
                    stopping = true;
            });
        if (stopRequested()) {
            // Half a sample is in the sums: the next render of this region starts over.
            acc.camera = nullptr;
            stopped = true;
            break;
        }
        ++acc.samples;
        ++_lastSamples;
        _lastRays = rays;
        if (callback && !callback(0, 0, true, viewport.getEventProcessingContext()))
            stopped = true;
        if (timeLimit &&
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() > limit)
            break;
    }
    if (stopped && stopRequested())
        return false;

    // Hand the mean of the samples to every wanted pass image, as each image holds it.
    const bool premultiply = kaRaytracer::getPremultiply();
    const std::shared_ptr<const kaPixelEncoder> made =
        kaPixelEncoder::current(viewport.getBackground() ? viewport.getBackground()->getAlphaColor()
                                                         : osg::Color3f{0, 0, 0});
    const kaPixelEncoder& encoder = *made;
    std::vector<std::pair<int, const osg::ImagePtr*>> wanted; // (pass, image)
    for (int pass = 0; pass < kPassCount && pass < int(images.size()); ++pass) {
        const osg::ImagePtr& image = images[size_t(pass)];
        if (!image || !image->getData())
            continue;
        encoder.prepare(*image);
        wanted.emplace_back(pass, &image);
    }
    // Row by row, every pass: a row's sums are read from memory once, not once a pass.
    runRows(
        threads, region.height, stopRequested,
        [&](int row) {
            std::vector<float> rgba(size_t(region.width) * 4);
            const size_t firstPixel = size_t(row) * size_t(region.width);
            for (const auto& [pass, image] : wanted) {
                acc.values(passRule(pass), firstPixel, region.width, rgba.data());
                encoder.store(**image, region.imageX, region.imageY + row, region.width, 1,
                              rgba.data(), region.x, region.y + row);
            }
        },
        nullptr);
    if (stopRequested())
        return false;

    publishSettings(acc.samples, offset, threads, premultiply, timeLimit, limit, slots.size());

    std::vector<std::string> objects, materials;
    for (const kaRTScene::Instance& instance : _scene->instances()) {
        objects.push_back(instance.objectName);
        materials.push_back(instance.material.name);
    }
    kaRTCryptomatte::setRenderedNames("cryptoObject", std::move(objects));
    kaRTCryptomatte::setRenderedNames("cryptoMaterial", std::move(materials));
    return !stopped;
}
