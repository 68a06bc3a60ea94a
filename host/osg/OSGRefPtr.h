#pragma once

#include <cstddef>
#include <utility>

namespace osg {

// Counted handle to a scene-graph object. Copying a handle adds a reference, dropping it
// releases one; the object deletes itself with its last reference. T provides addRef() and
// subRef(); both are thread-safe, the handle itself is not.
template <typename T>
class RefPtr {
public:
    RefPtr() = default;
    RefPtr(std::nullptr_t) {}
    explicit RefPtr(T* object)
        : _object(object) {
        acquire();
    }
    RefPtr(const RefPtr& other)
        : _object(other._object) {
        acquire();
    }
    RefPtr(RefPtr&& other) noexcept
        : _object(std::exchange(other._object, nullptr)) {}
    template <typename U>
    RefPtr(const RefPtr<U>& other)
        : _object(other.get()) {
        acquire();
    }
    ~RefPtr() { release(); }

    RefPtr& operator=(const RefPtr& other) {
        RefPtr(other).swap(*this);
        return *this;
    }
    RefPtr& operator=(RefPtr&& other) noexcept {
        RefPtr(std::move(other)).swap(*this);
        return *this;
    }
    RefPtr& operator=(std::nullptr_t) {
        RefPtr().swap(*this);
        return *this;
    }

    T* get() const { return _object; }
    T* operator->() const { return _object; }
    T& operator*() const { return *_object; }
    explicit operator bool() const { return _object != nullptr; }
    void swap(RefPtr& other) noexcept { std::swap(_object, other._object); }

    friend bool operator==(const RefPtr& a, const RefPtr& b) { return a._object == b._object; }
    friend bool operator!=(const RefPtr& a, const RefPtr& b) { return a._object != b._object; }
    friend bool operator==(const RefPtr& a, std::nullptr_t) { return a._object == nullptr; }
    friend bool operator!=(const RefPtr& a, std::nullptr_t) { return a._object != nullptr; }

private:
    void acquire() {
        if (_object)
            _object->addRef();
    }
    void release() {
        if (_object)
            std::exchange(_object, nullptr)->subRef();
    }

    T* _object = nullptr;
};

// Cast of a handle down the class tree; null when the object is not a U.
template <typename U, typename T>
RefPtr<U> dynamic_pointer_cast(const RefPtr<T>& handle) {
    return RefPtr<U>(dynamic_cast<U*>(handle.get()));
}

} // namespace osg
