#pragma once

namespace osg {

struct Vec3i {
    int x = 0, y = 0, z = 0;
};

struct Vec3f {
    float x = 0.0f, y = 0.0f, z = 0.0f;
};

struct Pnt3f {
    float x = 0.0f, y = 0.0f, z = 0.0f;
};

struct Color3f {
    float r = 0.0f, g = 0.0f, b = 0.0f;
};

struct Color4f {
    float r = 0.0f, g = 0.0f, b = 0.0f, a = 1.0f;
};

} // namespace osg
