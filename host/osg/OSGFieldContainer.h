#pragma once

#include "OSGRefPtr.h"

#include <atomic>
#include <cstdint>
#include <vector>

namespace osg {

// Base of every scene-graph object: a reference count and a process-wide id by which the
// FieldContainerFactory finds it. Objects are made with create() functions of the derived
// classes and live while a RefPtr refers to them.
class FieldContainer {
public:
    FieldContainer(const FieldContainer&) = delete;
    FieldContainer& operator=(const FieldContainer&) = delete;

    uint32_t getId() const { return _id; }
    // The class name, for messages and type checks in tests.
    virtual const char* getTypeName() const = 0;
    void addRef() const { _refCount.fetch_add(1, std::memory_order_relaxed); }
    void subRef() const;
    int getRefCount() const { return _refCount.load(std::memory_order_relaxed); }

protected:
    FieldContainer();
    virtual ~FieldContainer();

private:
    friend class FieldContainerFactory;
    // Adds a reference unless the object is already on its way out (count 0).
    bool tryAddRef() const;

    mutable std::atomic<int> _refCount{0};
    uint32_t _id;
};

using FieldContainerPtr = RefPtr<FieldContainer>;

// Finds live field containers by id. Thread-safe.
class FieldContainerFactory {
public:
    static FieldContainerFactory& the();
    // Null when no live container has that id.
    FieldContainerPtr getContainer(uint32_t id) const;
    // Every live container of class T (or derived from it), in id order.
    template <typename T>
    std::vector<RefPtr<T>> getContainersOfType() const {
        std::vector<RefPtr<T>> result;
        for (const FieldContainerPtr& c : getContainers())
            if (auto* typed = dynamic_cast<T*>(c.get()))
                result.push_back(RefPtr<T>(typed));
        return result;
    }
    std::vector<FieldContainerPtr> getContainers() const;
    size_t getNumContainers() const;

private:
    friend class FieldContainer;
    uint32_t registerContainer(FieldContainer* container);
    void unregisterContainer(uint32_t id);
};

} // namespace osg
