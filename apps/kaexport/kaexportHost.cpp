#include "kaexportHost.h"

#include "kaexportApp.h"

#include "kaADPInterface.h"
#include "kaAnimManager.h"
#include "kaAtomicFile.h"
#include "kaBuiltinScene.h"
#include "kaClusterService.h"
#include "kaConstraintManager.h"
#include "kaController.h"
#include "kaInterfaceFactory.h"
#include "kaMessage.h"
#include "kaOSGWidget.h"
#include "kaSceneImport.h"
#include "kaSimulationTime.h"
#include "kaSnapshotProgressGUII.h"
#include "kaWriteJournal.h"

#include <QApplication>

#include <QDialog>
#include <QSocketNotifier>
#include <QWidget>
#include <boost/any.hpp>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kaexport {

namespace {

int g_signalPipe[2] = {-1, -1};
int g_watchPipe[2] = {-1, -1};
std::atomic<bool> g_interrupted{false};
std::atomic<bool> g_commandDone{false};
std::mutex g_writtenMutex;
std::vector<std::string> g_written;

void onSigint(int) {
    // Only async-signal-safe calls here. Renders that keep the GUI thread busy stop on the flag;
    // the GUI thread reads the first pipe and closes the render dialog, the watch the second.
    kaController::interruptRenders();
    const char byte = 1;
    [[maybe_unused]] ssize_t written = ::write(g_signalPipe[1], &byte, 1);
    written = ::write(g_watchPipe[1], &byte, 1);
}

// Ctrl-C must end the program at once, whatever the library does after a render stops (it
// pastes the last tile of every pass and puts the view back: seconds for large pictures). After
// a moment's grace no new file is begun, the writes under way finish (a file is complete under
// its name or not there at all), and the program ends with "cancelled".
void watchForInterrupts() {
    char byte;
    while (::read(g_watchPipe[0], &byte, 1) < 0 && errno == EINTR) {
    }
    g_interrupted = true;
    for (int wait = 0; wait < 20 && !g_commandDone; ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (g_commandDone)
        return;
    kaAtomicFile::refuseNewFiles();
    while (kaAtomicFile::inProgress() > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::string text = "\nkaexport: interrupted; ";
    {
        std::lock_guard<std::mutex> lock(g_writtenMutex);
        if (g_written.empty()) {
            text += "cancelled, nothing was written\n";
        } else {
            text += "cancelled; written before the interrupt:\n";
            for (const std::string& name : g_written)
                text += "  " + name + "\n";
        }
    }
    [[maybe_unused]] ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
    ::_exit(Cancelled);
}

// The progress display: a bar on a terminal, a line per whole percent otherwise. While one step
// of a render takes long (a raytraced sample of a large picture), its own progress follows.
int g_lastPercent = -1;
int g_lastStep = -1;
std::string g_stepText;
size_t g_barLength = 0;
bool g_barOpen = false; // a bar is on the terminal's last line, without its line break

bool onTerminal() {
    return isatty(fileno(stderr));
}

void drawBar() {
    const int percent = std::max(g_lastPercent, 0);
    const int filled = percent / 5;
    char bar[64];
    std::snprintf(bar, sizeof bar, "[%.*s%.*s] %3d%%", filled, "####################", 20 - filled,
                  "....................", percent);
    std::string line = bar;
    if (!g_stepText.empty())
        line += "  " + g_stepText;
    // Spaces wipe out what a longer line left.
    const size_t length = line.size();
    if (length < g_barLength)
        line.append(g_barLength - length, ' ');
    g_barLength = length;
    std::fprintf(stderr, "\r%s", line.c_str());
    g_barOpen = true;
}

std::atomic<bool> g_totalProgressOnly{false};

void showProgress(double progress) {
    const int percent = std::clamp(int(progress * 100.0 + 0.5), 0, 100);
    if (percent == g_lastPercent)
        return;
    g_lastPercent = percent;
    g_stepText.clear();
    g_lastStep = -1;
    if (onTerminal())
        drawBar();
    else
        std::fprintf(stderr, "progress %d%%\n", percent);
    std::fflush(stderr);
}

void showStep(int step, int steps, double fraction) {
    // A terminal shows every percent of the step, a log every tenth.
    const int scale = onTerminal() ? 100 : 10;
    const int part = std::clamp(int(fraction * scale), 0, scale);
    const int key = step * (scale + 1) + part;
    if (key == g_lastStep)
        return;
    g_lastStep = key;
    g_stepText = "sample " + std::to_string(step + 1) + " of " + std::to_string(steps) + ": " +
                 std::to_string(part * 100 / scale) + "%";
    if (onTerminal())
        drawBar();
    else
        std::fprintf(stderr, "progress %d%% (%s)\n", std::max(g_lastPercent, 0),
                     g_stepText.c_str());
    std::fflush(stderr);
}

// Aborts the render dialog that is running, as its Abort button would.
void abortRunningRender() {
    g_interrupted = true;
    std::fprintf(stderr, "%skaexport: interrupted, stopping the render\n", g_barOpen ? "\n" : "");
    g_barOpen = false;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (widget->objectName() == "ImageRenderWidget" && widget->isVisible())
            static_cast<QDialog*>(widget)->reject();
        // The cluster's dialog stops its picture without asking about other jobs.
        if (auto* cluster = qobject_cast<kaSnapshotProgressGUII*>(widget))
            cluster->clickedCancelSave();
    }
}

std::string g_clusterFailure;

} // namespace

// The render dialog's total progress, as the host's application framework is told of it.
class TotalProgress : public kaADPInterface {
public:
    explicit TotalProgress(int images)
        : _images(std::max(images, 1)) {
        g_totalProgressOnly = true;
        kaInterfaceFactory::registerInterface("kaADPInterface", this);
    }
    ~TotalProgress() override {
        kaInterfaceFactory::registerInterface("kaADPInterface", nullptr);
        g_totalProgressOnly = false;
    }
    void imageRenderTotalProgressChanged(int value) override {
        showProgress(double(value) / double(_images));
    }

private:
    int _images;
};

Host::Host()
    : _view(std::make_unique<kaOSGWidget>()) {
    kaOSGWidget::setMainView(_view.get());
    _view->setSize(1280, 720);
    _progressListener = kaController::addProgressListener([](double progress) {
        if (!g_totalProgressOnly)
            showProgress(progress);
    });
    _stepListener = kaController::addStepListener(showStep);
    if (g_signalPipe[0] < 0 && ::pipe(g_signalPipe) == 0 && ::pipe(g_watchPipe) == 0) {
        auto* notifier = new QSocketNotifier(g_signalPipe[0], QSocketNotifier::Read, qApp);
        QObject::connect(notifier, &QSocketNotifier::activated, [] {
            char byte;
            [[maybe_unused]] ssize_t read = ::read(g_signalPipe[0], &byte, 1);
            abortRunningRender();
        });
        std::thread(watchForInterrupts).detach();
        kaWriteJournal::addListener([](const kaWriteJournal::Entry& entry) {
            std::lock_guard<std::mutex> lock(g_writtenMutex);
            if (entry.written)
                g_written.push_back(entry.fileName);
        });
        std::signal(SIGINT, onSigint);
    }
    g_commandDone = false;
    // The cluster service is the host's: exports bring it up by its class name.
    kaClusterService::the();
    g_clusterFailure.clear();
    _clusterHandler = kaController::addCallHandler(
        "kaClusterClusterWindowException", [](const kaMessage& message) {
            g_clusterFailure = message.has("error")
                                   ? boost::any_cast<QString>(message.get("error")).toStdString()
                                   : std::string("unknown failure");
            std::fprintf(stderr, "%skaexport: the render cluster failed: %s\n",
                         g_barOpen ? "\n" : "", g_clusterFailure.c_str());
            g_barOpen = false;
        });
}

const std::string& Host::clusterFailure() {
    return g_clusterFailure;
}

void Host::showTotalProgress(int images) {
    _totalProgress = std::make_unique<TotalProgress>(images);
}

Host::~Host() {
    g_commandDone = true;
    kaController::removeCallHandler(_clusterHandler);
    kaClusterService::the()->stop();
    _totalProgress.reset();
    kaController::removeProgressListener(_progressListener);
    kaController::removeStepListener(_stepListener);
    _builtin.reset();
    kaOSGWidget::setMainView(nullptr);
}

bool Host::loadScene(const QString& sceneFile, QString& error) {
    if (sceneFile.isEmpty()) {
        _builtin = std::make_unique<kaBuiltinScene>(*_view);
        return true;
    }
    std::vector<osg::AnimNodeBasePtr> animations;
    osg::NodePtr scene = kaSceneImport::load(sceneFile, error, &animations);
    if (!scene)
        return false;
    kaSceneImport::show(*_view, scene, sceneFile, std::move(animations));
    return true;
}

bool Host::lookThrough(const kaSceneImport::CameraChoice& choice, QString& error) {
    if (choice.camera.isEmpty() && choice.view.isEmpty() && !choice.fit)
        return true;
    return kaSceneImport::lookThrough(*_view, _view->getSceneRoot(), choice, error);
}

void Host::stepToFrame(int frame, int fps) {
    // Nobody sees this host's view: the frames are stepped, not drawn (as while an export's
    // render dialog holds the view).
    const bool redraw = _view->isRedrawEnabled();
    _view->setRedrawEnabled(false);
    // The clock advances as the sequence export advances it, to the last bit.
    kaSimulationTime* timer = kaController::getSimulationTimer();
    double time = timer->get();
    for (int f = 0; f <= frame && !interrupted(); ++f, time += 1.0 / double(fps)) {
        timer->set(time);
        kaController::callLoopCBs();
        kaController::updateBehavior(true);
        if (f == frame)
            break;
        _view->setSnapshotMode(true);
        kaController::forceRender(true);
        _view->setSnapshotMode(false);
    }
    kaAnimManager::setCurrentFrame(frame, true, false);
    kaConstraintManager::evaluateConstraints();
    _view->setRedrawEnabled(redraw);
}

bool Host::interrupted() {
    return g_interrupted || kaController::rendersInterrupted();
}

void Host::finishProgress(bool complete) {
    if (complete && g_lastPercent >= 0 && g_lastPercent < 100)
        showProgress(1.0);
    if (g_barOpen)
        std::fputc('\n', stderr);
    g_barOpen = false;
    g_barLength = 0;
    g_lastPercent = -1;
    g_lastStep = -1;
    g_stepText.clear();
    std::fflush(stderr);
}

} // namespace kaexport
