#include "kaSimulationTime.h"

#include <atomic>

namespace {
std::atomic<double> g_time{0.0};
}

double kaSimulationTime::getTime() {
    return g_time;
}
void kaSimulationTime::setTime(double seconds) {
    g_time = seconds;
}
