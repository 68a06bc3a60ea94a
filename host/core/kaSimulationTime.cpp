#include "kaSimulationTime.h"

#include <atomic>
#include <map>
#include <mutex>

namespace {
std::atomic<double> g_time{0.0};

struct Listeners {
    std::mutex mutex;
    std::map<int, kaSimulationTime::Listener> byId;
    int nextId = 1;
};
Listeners& listeners() {
    static Listeners l;
    return l;
}
} // namespace

kaSimulationTime& kaSimulationTime::instance() {
    static kaSimulationTime clock;
    return clock;
}

double kaSimulationTime::get() const {
    return g_time;
}

void kaSimulationTime::set(double seconds) {
    g_time = seconds;
    // A copy, so that a listener may add or remove listeners.
    std::map<int, Listener> toCall;
    {
        std::lock_guard<std::mutex> lock(listeners().mutex);
        toCall = listeners().byId;
    }
    for (auto& entry : toCall)
        entry.second(seconds);
}

int kaSimulationTime::addListener(Listener listener) {
    std::lock_guard<std::mutex> lock(listeners().mutex);
    const int id = listeners().nextId++;
    listeners().byId.emplace(id, std::move(listener));
    return id;
}

void kaSimulationTime::removeListener(int id) {
    std::lock_guard<std::mutex> lock(listeners().mutex);
    listeners().byId.erase(id);
}
