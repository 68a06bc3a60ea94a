#pragma once

#include "OSGBaseTypes.h"

namespace osg {

// A 4x4 transformation for column vectors: p' = M * p. m[row][column].
class Matrix {
public:
    Matrix(); // identity
    static Matrix translation(float x, float y, float z);
    // Rotation by 'radians' about 'axis' (normalised here).
    static Matrix rotation(const Vec3f& axis, float radians);
    static Matrix scale(float x, float y, float z);
    // The pose of something at 'eye' looking at 'target' with 'up' roughly up: its local -Z
    // points at the target, +Y up.
    static Matrix lookAt(const Pnt3f& eye, const Pnt3f& target, const Vec3f& up);

    Matrix operator*(const Matrix& other) const;
    Pnt3f transformPoint(const Pnt3f& p) const;
    Vec3f transformVector(const Vec3f& v) const;
    // False (and identity) when the matrix is singular.
    bool invert(Matrix& inverse) const;
    bool equals(const Matrix& other, float tolerance) const;

    float m[4][4];
};

Vec3f normalize(const Vec3f& v);
Vec3f cross(const Vec3f& a, const Vec3f& b);
float dot(const Vec3f& a, const Vec3f& b);

} // namespace osg
