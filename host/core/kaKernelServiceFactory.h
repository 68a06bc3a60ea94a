#pragma once

#include <memory>
#include <string>

// A host service that other parts find by its class name.
class kaKernelService {
public:
    virtual ~kaKernelService() = default;
    virtual const char* getServiceName() const = 0;
};

// The registry of host services by class name ("kaCameraService", "kaClusterService"). The
// host registers its services at start-up; callers check for null, as a service may be absent.
// Thread-safe.
class kaKernelServiceFactory {
public:
    // Replaces a service of the same name; null removes it.
    static void registerService(const std::string& className,
                                std::shared_ptr<kaKernelService> service);
    static std::shared_ptr<kaKernelService> getService(const std::string& className);

    // The service cast to its class; null when absent or of another class.
    template <typename T>
    static std::shared_ptr<T> get(const std::string& className) {
        return std::dynamic_pointer_cast<T>(getService(className));
    }
};
