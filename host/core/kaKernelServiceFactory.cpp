#include "kaKernelServiceFactory.h"

#include <map>
#include <mutex>

namespace {
std::mutex g_mutex;
std::map<std::string, std::shared_ptr<kaKernelService>>& services() {
    static std::map<std::string, std::shared_ptr<kaKernelService>> s;
    return s;
}
} // namespace

void kaKernelServiceFactory::registerService(const std::string& className,
                                             std::shared_ptr<kaKernelService> service) {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (service)
        services()[className] = std::move(service);
    else
        services().erase(className);
}

std::shared_ptr<kaKernelService> kaKernelServiceFactory::getService(const std::string& className) {
    std::lock_guard<std::mutex> lock(g_mutex);
    auto it = services().find(className);
    return it == services().end() ? nullptr : it->second;
}
