#include "kaInterfaceFactory.h"

#include <map>
#include <mutex>

namespace {
std::mutex g_mutex;
std::map<std::string, kaInterface*>& interfaces() {
    static std::map<std::string, kaInterface*> i;
    return i;
}
} // namespace

void kaInterfaceFactory::registerInterface(const std::string& name, kaInterface* instance) {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (instance)
        interfaces()[name] = instance;
    else
        interfaces().erase(name);
}

kaInterface* kaInterfaceFactory::getInterface(const std::string& name) {
    std::lock_guard<std::mutex> lock(g_mutex);
    auto it = interfaces().find(name);
    return it == interfaces().end() ? nullptr : it->second;
}
