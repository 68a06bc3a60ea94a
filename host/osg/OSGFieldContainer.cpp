#include "OSGFieldContainer.h"

#include <map>
#include <mutex>

namespace osg {

namespace {
std::mutex& registryMutex() {
    static std::mutex m;
    return m;
}
std::map<uint32_t, FieldContainer*>& registry() {
    static std::map<uint32_t, FieldContainer*> r;
    return r;
}
// Id 0 stays free so that it can mean "none".
uint32_t g_nextId = 1;
} // namespace

FieldContainer::FieldContainer()
    : _id(FieldContainerFactory::the().registerContainer(this)) {}

FieldContainer::~FieldContainer() {
    FieldContainerFactory::the().unregisterContainer(_id);
}

void FieldContainer::subRef() const {
    if (_refCount.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete this;
}

bool FieldContainer::tryAddRef() const {
    int count = _refCount.load(std::memory_order_relaxed);
    while (count > 0) {
        if (_refCount.compare_exchange_weak(count, count + 1, std::memory_order_acq_rel))
            return true;
    }
    return false;
}

FieldContainerFactory& FieldContainerFactory::the() {
    static FieldContainerFactory factory;
    return factory;
}

uint32_t FieldContainerFactory::registerContainer(FieldContainer* container) {
    std::lock_guard<std::mutex> lock(registryMutex());
    uint32_t id = g_nextId++;
    registry()[id] = container;
    return id;
}

void FieldContainerFactory::unregisterContainer(uint32_t id) {
    std::lock_guard<std::mutex> lock(registryMutex());
    registry().erase(id);
}

FieldContainerPtr FieldContainerFactory::getContainer(uint32_t id) const {
    std::lock_guard<std::mutex> lock(registryMutex());
    auto it = registry().find(id);
    if (it == registry().end() || !it->second->tryAddRef())
        return FieldContainerPtr();
    FieldContainerPtr handle(it->second);
    it->second->subRef(); // the handle holds its own reference now
    return handle;
}

std::vector<FieldContainerPtr> FieldContainerFactory::getContainers() const {
    std::vector<FieldContainerPtr> result;
    std::lock_guard<std::mutex> lock(registryMutex());
    for (auto& [id, container] : registry()) {
        if (!container->tryAddRef())
            continue; // on its way out
        result.emplace_back(container);
        container->subRef(); // the handle holds its own reference now
    }
    return result;
}

size_t FieldContainerFactory::getNumContainers() const {
    std::lock_guard<std::mutex> lock(registryMutex());
    return registry().size();
}

} // namespace osg
