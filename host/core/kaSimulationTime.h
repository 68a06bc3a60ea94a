#pragma once

#include <functional>

// The time the host's simulations run at, in seconds. Exports set it frame by frame; the
// simulations step to it. There is one clock per process (kaController::getSimulationTimer());
// the static calls are shortcuts to it. Safe from any thread.
class kaSimulationTime {
public:
    double get() const;
    // Sets the time and tells every listener, on the calling thread, in the order they were
    // added.
    void set(double seconds);

    // Called with the new time on every set(), also when the time does not change: a frame
    // that is stepped twice to the same time shows as two calls.
    using Listener = std::function<void(double seconds)>;
    int addListener(Listener listener);
    void removeListener(int id);

    // The process's clock.
    static kaSimulationTime& instance();
    static double getTime() { return instance().get(); }
    static void setTime(double seconds) { instance().set(seconds); }

private:
    kaSimulationTime() = default;
};
