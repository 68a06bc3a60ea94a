#include "kaController.h"

#include "kaBatchDialogAnswerer.h"
#include "kaPreferences.h"

#include <QPointer>
#include <QWidget>

#include <boost/any.hpp>

#include <atomic>
#include <map>
#include <mutex>

namespace {
std::mutex g_progressMutex;
std::map<int, kaController::ProgressListener>& progressListeners() {
    static std::map<int, kaController::ProgressListener> listeners;
    return listeners;
}
int g_nextListenerId = 1;
std::atomic<double> g_progress{0.0};
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
