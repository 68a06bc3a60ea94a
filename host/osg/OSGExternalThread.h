#pragma once

#include "OSGRefPtr.h"

#include <atomic>
#include <string>
#include <thread>

namespace osg {

class ExternalThread;
using ExternalThreadRefPtr = RefPtr<ExternalThread>;

// A thread that the scene graph did not start, made known to it by name so that it may touch
// scene-graph objects. get() finds or makes the record of that name; initialize() binds the
// calling OS thread to it (and names the OS thread, as debuggers and profilers show it).
// Records live while a handle refers to them. Thread-safe.
class ExternalThread {
public:
    static ExternalThreadRefPtr get(const char* name);
    // Null when no record of that name is alive.
    static ExternalThreadRefPtr find(const char* name);
    // get(name), bound to the calling thread unless a thread is bound already: what a worker
    // does before it touches the scene graph. The record lives while the handle does.
    static ExternalThreadRefPtr attachCurrentThread(const std::string& name);
    // The record the calling thread is bound to; null when none (or when it is gone).
    static ExternalThreadRefPtr getCurrent();

    // Binds the calling thread to this record; 'aspect' is the change-list aspect (0 for the
    // one the application uses). Returns false if another OS thread is bound already.
    bool initialize(uint32_t aspect);
    bool isInitialized() const { return _initialized.load(); }
    uint32_t getAspect() const { return _aspect; }
    const std::string& getName() const { return _name; }

    void addRef() const { _refCount.fetch_add(1); }
    void subRef() const;

private:
    explicit ExternalThread(std::string name)
        : _name(std::move(name)) {}

    std::string _name;
    std::atomic<bool> _initialized{false};
    std::thread::id _owner;
    std::atomic<uint32_t> _aspect{0};
    mutable std::atomic<int> _refCount{0};
};

} // namespace osg
