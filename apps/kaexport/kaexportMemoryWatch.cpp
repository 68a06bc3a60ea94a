#include "kaexportMemoryWatch.h"

#include <QString>

#include <fstream>
#include <sstream>

namespace kaexport {

namespace {

// A "Vm..." line of /proc/self/status in MB; -1 when there is none.
double statusMB(const char* key) {
    std::ifstream status("/proc/self/status");
    std::string line;
    const std::string prefix = std::string(key) + ":";
    while (std::getline(status, line)) {
        if (line.compare(0, prefix.size(), prefix) != 0)
            continue;
        std::istringstream value(line.substr(prefix.size()));
        double kB = -1.0;
        value >> kB;
        return kB < 0.0 ? -1.0 : kB / 1024.0;
    }
    return -1.0;
}

} // namespace

MemoryWatch::MemoryWatch() {
    const double current = statusMB("VmRSS");
    std::ofstream reset("/proc/self/clear_refs");
    reset << "5"; // the peak ("VmHWM") starts again from the current size
    reset.flush();
    if (current >= 0.0 && reset)
        _startMB = current;
}

std::string MemoryWatch::grownText() const {
    const double peak = statusMB("VmHWM");
    if (_startMB < 0.0 || peak < 0.0)
        return {};
    const double grown = peak > _startMB ? peak - _startMB : 0.0;
    return "memory at most +" + QString::number(grown, 'f', 0).toStdString() + " MB over " +
           QString::number(_startMB, 'f', 0).toStdString() + " MB";
}

} // namespace kaexport
