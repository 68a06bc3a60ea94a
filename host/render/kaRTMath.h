#pragma once

#include "OSGBaseTypes.h"
#include "OSGMatrix.h"

#include <cmath>
#include <cstdint>

// Small vector, matrix and random-number helpers of the raytracer.
namespace kaRT {

struct V3 {
    float x = 0, y = 0, z = 0;
};
inline V3 v3(const osg::Color3f& c) {
    return {c.r, c.g, c.b};
}
inline V3 operator+(V3 a, V3 b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline V3 operator-(V3 a, V3 b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline V3 operator-(V3 a) {
    return {-a.x, -a.y, -a.z};
}
inline V3 operator*(V3 a, V3 b) {
    return {a.x * b.x, a.y * b.y, a.z * b.z};
}
inline V3 operator*(V3 a, float s) {
    return {a.x * s, a.y * s, a.z * s};
}
inline V3 operator*(float s, V3 a) {
    return a * s;
}
inline V3& operator+=(V3& a, V3 b) {
    a = a + b;
    return a;
}
inline V3& operator*=(V3& a, float s) {
    a = a * s;
    return a;
}
inline float dot(V3 a, V3 b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
inline float length(V3 a) {
    return std::sqrt(dot(a, a));
}
inline V3 normalize(V3 a) {
    const float l = length(a);
    return l > 0 ? a * (1.0f / l) : V3{0, 0, 1};
}
inline V3 lerp(V3 a, V3 b, float t) {
    return a + (b - a) * t;
}
inline float average(V3 a) {
    return (a.x + a.y + a.z) * (1.0f / 3.0f);
}
inline bool isZero(V3 a) {
    return a.x == 0 && a.y == 0 && a.z == 0;
}
// The mirror direction of 'd' about the normal 'n'.
inline V3 reflect(V3 d, V3 n) {
    return d - n * (2.0f * dot(d, n));
}

// 4x4 in double precision for the camera: unprojecting far planes in float loses the pixels.
struct M4 {
    double m[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};
    static M4 from(const osg::Matrix& matrix);
    M4 operator*(const M4& o) const;
    bool invert(M4& inverse) const;
    // The point's homogeneous transform, divided by w.
    V3 project(V3 p) const;
    V3 transformPoint(V3 p) const;
    V3 transformVector(V3 v) const;
    // Row r of M * (p, 1).
    double row(int r, V3 p) const {
        return m[r][0] * p.x + m[r][1] * p.y + m[r][2] * p.z + m[r][3];
    }
};

// Random numbers that depend only on the pixel, the sample and the frame: a picture is the same
// whatever the tile, the thread or the machine that made it.
class Random {
public:
    Random(uint32_t x, uint32_t y, uint32_t sample, uint32_t frame)
        : _state(mix(mix(mix(x * 0x9E3779B9u + 0x7F4A7C15u) ^ y) ^ sample) ^ mix(frame + 1u)) {}
    // Uniform in [0, 1).
    float next() {
        _state = _state * 747796405u + 2891336453u;
        uint32_t word = ((_state >> ((_state >> 28u) + 4u)) ^ _state) * 277803737u;
        word = (word >> 22u) ^ word;
        return float(word >> 8) * (1.0f / 16777216.0f);
    }
    static uint32_t mix(uint32_t v) {
        v ^= v >> 16;
        v *= 0x7feb352du;
        v ^= v >> 15;
        v *= 0x846ca68bu;
        v ^= v >> 16;
        return v;
    }

private:
    uint32_t _state;
};

// A direction around 'n', cosine-weighted (u1, u2 uniform in [0, 1)).
V3 cosineDirection(V3 n, float u1, float u2);
// A direction around 'axis' in a Phong lobe of the exponent.
V3 phongDirection(V3 axis, float exponent, float u1, float u2);

} // namespace kaRT
