#include "kaController.h"

#include "kaBatchDialogAnswerer.h"
#include "kaLog.h"
#include "kaMessage.h"
#include "kaPreferences.h"
#include "kaSimulationTime.h"

#include <QPointer>
#include <QWidget>

#include <boost/any.hpp>

#include <atomic>
#include <map>
#include <mutex>
#include <vector>

namespace {
std::mutex g_progressMutex;
std::map<int, kaController::ProgressListener>& progressListeners() {
    static std::map<int, kaController::ProgressListener> listeners;
    return listeners;
}
std::map<int, kaController::StepListener>& stepListeners() {
    static std::map<int, kaController::StepListener> listeners;
    return listeners;
}
int g_nextListenerId = 1;
std::atomic<double> g_progress{0.0};
// Lock-free, so that a signal handler may set it.
std::atomic<bool> g_interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free);
bool g_noGUI = false;
bool g_batchOverwrite = false;
QPointer<QWidget> g_mainWindow;
} // namespace

void kaController::setImageRenderProgress(double progress) {
    g_progress = progress;
    std::lock_guard<std::mutex> lock(g_progressMutex);
    for (auto& [id, listener] : progressListeners())
        listener(progress);
}

double kaController::getImageRenderProgress() {
    return g_progress;
}

int kaController::addProgressListener(ProgressListener listener) {
    std::lock_guard<std::mutex> lock(g_progressMutex);
    int id = g_nextListenerId++;
    progressListeners()[id] = std::move(listener);
    return id;
}

void kaController::removeProgressListener(int id) {
    std::lock_guard<std::mutex> lock(g_progressMutex);
    progressListeners().erase(id);
}

void kaController::setRenderStepProgress(int step, int steps, double fraction) {
    std::lock_guard<std::mutex> lock(g_progressMutex);
    for (auto& [id, listener] : stepListeners())
        listener(step, steps, fraction);
}

int kaController::addStepListener(StepListener listener) {
    std::lock_guard<std::mutex> lock(g_progressMutex);
    int id = g_nextListenerId++;
    stepListeners()[id] = std::move(listener);
    return id;
}

void kaController::removeStepListener(int id) {
    std::lock_guard<std::mutex> lock(g_progressMutex);
    stepListeners().erase(id);
}

void kaController::interruptRenders() {
    g_interrupted.store(true, std::memory_order_relaxed);
}

bool kaController::rendersInterrupted() {
    return g_interrupted.load(std::memory_order_relaxed);
}

void kaController::clearRenderInterrupt() {
    g_interrupted.store(false, std::memory_order_relaxed);
}

bool kaController::isNoGUI() {
    return g_noGUI;
}

void kaController::setNoGUI(bool noGUI) {
    g_noGUI = noGUI;
    kaBatchDialogAnswerer::setInstalled(noGUI);
}

bool kaController::getBatchOverwrite() {
    return g_batchOverwrite;
}
void kaController::setBatchOverwrite(bool overwrite) {
    g_batchOverwrite = overwrite;
}

QWidget* kaController::getMainWindow() {
    return g_mainWindow.data();
}
void kaController::setMainWindow(QWidget* window) {
    g_mainWindow = window;
}

bool kaController::playSoundOnExport() {
    boost::any value = kaPreferences::getData().get("Play Sound On Export");
    const bool* play = boost::any_cast<bool>(&value);
    return play && *play;
}

namespace {
struct Hooks {
    std::mutex mutex;
    int nextId = 1;
    std::map<int, kaController::Hook> loop, behavior, render;
};
Hooks& hooks() {
    static Hooks h;
    return h;
}
std::atomic<uint64_t> g_frameId{0};
std::atomic<int> g_forcedRenders{0};
std::atomic<int> g_scenegraphChanges{0};
std::atomic<bool> g_simulation{true};
std::atomic<bool> g_snapshotRendering{false};

int addTo(std::map<int, kaController::Hook>& table, kaController::Hook hook) {
    std::lock_guard<std::mutex> lock(hooks().mutex);
    int id = hooks().nextId++;
    table[id] = std::move(hook);
    return id;
}

void runAll(std::map<int, kaController::Hook>& table, bool argument) {
    std::vector<kaController::Hook> calls;
    {
        std::lock_guard<std::mutex> lock(hooks().mutex);
        for (auto& [id, hook] : table)
            calls.push_back(hook);
    }
    for (auto& hook : calls)
        hook(argument);
}
} // namespace

uint64_t kaController::getFrameId() {
    return g_frameId;
}
void kaController::increaseFrameId() {
    ++g_frameId;
}

int kaController::addLoopCallback(Hook hook) {
    return addTo(hooks().loop, std::move(hook));
}
int kaController::addBehavior(Hook hook) {
    return addTo(hooks().behavior, std::move(hook));
}
int kaController::addRenderHook(Hook hook) {
    return addTo(hooks().render, std::move(hook));
}

void kaController::removeHook(int id) {
    std::lock_guard<std::mutex> lock(hooks().mutex);
    hooks().loop.erase(id);
    hooks().behavior.erase(id);
    hooks().render.erase(id);
}

void kaController::callLoopCBs() {
    runAll(hooks().loop, false);
}
void kaController::updateBehavior(bool force) {
    runAll(hooks().behavior, force);
}
void kaController::forceRender(bool wait) {
    ++g_forcedRenders;
    increaseFrameId();
    runAll(hooks().render, wait);
}
int kaController::getForcedRenderCount() {
    return g_forcedRenders;
}

kaSimulationTime* kaController::getSimulationTimer() {
    return &kaSimulationTime::instance();
}
double kaController::getSimulationTime() {
    return kaSimulationTime::getTime();
}

bool kaController::isSimulationEnable() {
    return g_simulation;
}
void kaController::enableSimulation(bool on) {
    g_simulation = on;
}
bool kaController::isSnapshotRendering() {
    return g_snapshotRendering;
}
void kaController::setSnapshotRendering(bool on) {
    g_snapshotRendering = on;
}
void kaController::changeScenegraph() {
    ++g_scenegraphChanges;
}
int kaController::getScenegraphChangeCount() {
    return g_scenegraphChanges;
}

namespace {

struct CallHandlers {
    std::mutex mutex;
    int nextId = 1;
    std::map<int, std::pair<std::string, kaController::CallHandler>> handlers;
};
CallHandlers& callHandlers() {
    static CallHandlers handlers;
    return handlers;
}

std::atomic<bool> g_timerLoops{true};
std::atomic<double> g_renderStartTime{0.0};
std::atomic<int> g_aaSamples{0};
std::atomic<double> g_aaProgress{0.0};

} // namespace

int kaController::addCallHandler(const std::string& name, CallHandler handler) {
    CallHandlers& c = callHandlers();
    std::lock_guard<std::mutex> lock(c.mutex);
    const int id = c.nextId++;
    c.handlers[id] = {name, std::move(handler)};
    return id;
}

void kaController::removeCallHandler(int id) {
    CallHandlers& c = callHandlers();
    std::lock_guard<std::mutex> lock(c.mutex);
    c.handlers.erase(id);
}

void kaController::call(const std::string& name, const kaMessage& message) {
    std::vector<CallHandler> matching;
    {
        CallHandlers& c = callHandlers();
        std::lock_guard<std::mutex> lock(c.mutex);
        for (const auto& [id, entry] : c.handlers)
            if (entry.first == name)
                matching.push_back(entry.second);
    }
    if (matching.empty()) {
        QString text;
        if (message.has("error"))
            text = boost::any_cast<QString>(message.get("error"));
        kaLog::error("%s: %s", name.c_str(), text.toUtf8().constData());
        return;
    }
    for (const CallHandler& handler : matching)
        handler(message);
}

bool kaController::getTimerLoops() {
    return g_timerLoops;
}
void kaController::setTimerLoops(bool on) {
    g_timerLoops = on;
}
void kaController::setRenderStartTime(double seconds) {
    g_renderStartTime = seconds;
}
double kaController::getRenderStartTime() {
    return g_renderStartTime;
}
void kaController::setAASampleCounts(int samples) {
    g_aaSamples = samples;
}
int kaController::getAASampleCounts() {
    return g_aaSamples;
}
void kaController::setAAProgress(double progress) {
    g_aaProgress = progress;
}
double kaController::getAAProgress() {
    return g_aaProgress;
}
