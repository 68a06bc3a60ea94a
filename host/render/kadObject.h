#pragma once

#include <cstdint>

// A scene object as the host's services hand it out: a handle by id (the scene-graph field
// container id). Id 0 is no object.
class kadObject {
public:
    kadObject() = default;
    explicit kadObject(uint64_t id)
        : _id(id) {}
    uint64_t getId() const { return _id; }
    bool isValid() const { return _id != 0; }

private:
    uint64_t _id = 0;
};
