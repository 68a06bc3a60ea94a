#include "OSGExternalThread.h"

#include <pthread.h>

#include <map>
#include <mutex>

namespace osg {

namespace {
std::mutex& registryMutex() {
    static std::mutex m;
    return m;
}
std::map<std::string, ExternalThread*>& registry() {
    static std::map<std::string, ExternalThread*> r;
    return r;
}
// By name, not by pointer: the record may go while the OS thread lives on.
thread_local std::string t_currentName;
thread_local bool t_bound = false;
} // namespace

ExternalThreadRefPtr ExternalThread::get(const char* name) {
    std::lock_guard<std::mutex> lock(registryMutex());
    ExternalThread*& slot = registry()[name ? name : ""];
    if (!slot)
        slot = new ExternalThread(name ? name : "");
    return ExternalThreadRefPtr(slot);
}

ExternalThreadRefPtr ExternalThread::find(const char* name) {
    std::lock_guard<std::mutex> lock(registryMutex());
    auto it = registry().find(name ? name : "");
    return it == registry().end() ? ExternalThreadRefPtr() : ExternalThreadRefPtr(it->second);
}

ExternalThreadRefPtr ExternalThread::getCurrent() {
    if (!t_bound)
        return ExternalThreadRefPtr();
    std::lock_guard<std::mutex> lock(registryMutex());
    auto it = registry().find(t_currentName);
    if (it == registry().end() || it->second->_owner != std::this_thread::get_id())
        return ExternalThreadRefPtr();
    return ExternalThreadRefPtr(it->second);
}

bool ExternalThread::initialize(uint32_t aspect) {
    std::lock_guard<std::mutex> lock(registryMutex());
    if (_initialized && _owner != std::this_thread::get_id())
        return false;
    _owner = std::this_thread::get_id();
    _aspect = aspect;
    _initialized = true;
    t_currentName = _name;
    t_bound = true;
    // Linux keeps thread names to 15 characters.
    pthread_setname_np(pthread_self(), _name.substr(0, 15).c_str());
    return true;
}

void ExternalThread::subRef() const {
    std::lock_guard<std::mutex> lock(registryMutex());
    if (_refCount.fetch_sub(1) != 1)
        return;
    registry().erase(_name);
    delete this;
}

ExternalThreadRefPtr ExternalThread::attachCurrentThread(const std::string& name) {
    ExternalThreadRefPtr thread = get(name.c_str());
    if (!thread->isInitialized())
        thread->initialize(0);
    return thread;
}

} // namespace osg
