#pragma once

#include <string>

// A host interface that other parts find by name (hooks the host offers, such as
// "kaADPInterface").
class kaInterface {
public:
    virtual ~kaInterface() = default;
};

// The registry of host interfaces by name. The host registers them at start-up and keeps them
// alive; callers check for null. Thread-safe.
class kaInterfaceFactory {
public:
    // Null removes the entry.
    static void registerInterface(const std::string& name, kaInterface* instance);
    static kaInterface* getInterface(const std::string& name);

    template <typename T>
    static T* get(const std::string& name) {
        return dynamic_cast<T*>(getInterface(name));
    }
};
