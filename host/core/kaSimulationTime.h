#pragma once

// The time the host's simulations run at, in seconds. Exports set it frame by frame; the
// simulations step to it. Thread-safe.
class kaSimulationTime {
public:
    static double getTime();
    static void setTime(double seconds);
};
