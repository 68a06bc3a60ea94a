#include "OSGMatrix.h"

#include <cmath>

namespace osg {

Matrix::Matrix()
    : m{{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}} {}

Matrix Matrix::translation(float x, float y, float z) {
    Matrix t;
    t.m[0][3] = x;
    t.m[1][3] = y;
    t.m[2][3] = z;
    return t;
}

Matrix Matrix::rotation(const Vec3f& axis, float radians) {
    const Vec3f a = normalize(axis);
    const float c = std::cos(radians), s = std::sin(radians), t = 1.0f - c;
    Matrix r;
    r.m[0][0] = t * a.x * a.x + c;
    r.m[0][1] = t * a.x * a.y - s * a.z;
    r.m[0][2] = t * a.x * a.z + s * a.y;
    r.m[1][0] = t * a.x * a.y + s * a.z;
    r.m[1][1] = t * a.y * a.y + c;
    r.m[1][2] = t * a.y * a.z - s * a.x;
    r.m[2][0] = t * a.x * a.z - s * a.y;
    r.m[2][1] = t * a.y * a.z + s * a.x;
    r.m[2][2] = t * a.z * a.z + c;
    return r;
}

Matrix Matrix::scale(float x, float y, float z) {
    Matrix r;
    r.m[0][0] = x;
    r.m[1][1] = y;
    r.m[2][2] = z;
    return r;
}

Matrix Matrix::lookAt(const Pnt3f& eye, const Pnt3f& target, const Vec3f& up) {
    const Vec3f back = normalize({eye.x - target.x, eye.y - target.y, eye.z - target.z});
    const Vec3f right = normalize(cross(up, back));
    const Vec3f trueUp = cross(back, right);
    Matrix r;
    const Vec3f columns[3] = {right, trueUp, back};
    for (int c = 0; c < 3; ++c) {
        r.m[0][c] = columns[c].x;
        r.m[1][c] = columns[c].y;
        r.m[2][c] = columns[c].z;
    }
    r.m[0][3] = eye.x;
    r.m[1][3] = eye.y;
    r.m[2][3] = eye.z;
    return r;
}

Matrix Matrix::operator*(const Matrix& o) const {
    Matrix r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            float sum = 0.0f;
            for (int k = 0; k < 4; ++k)
                sum += m[i][k] * o.m[k][j];
            r.m[i][j] = sum;
        }
    return r;
}

Pnt3f Matrix::transformPoint(const Pnt3f& p) const {
    const float x = m[0][0] * p.x + m[0][1] * p.y + m[0][2] * p.z + m[0][3];
    const float y = m[1][0] * p.x + m[1][1] * p.y + m[1][2] * p.z + m[1][3];
    const float z = m[2][0] * p.x + m[2][1] * p.y + m[2][2] * p.z + m[2][3];
    const float w = m[3][0] * p.x + m[3][1] * p.y + m[3][2] * p.z + m[3][3];
    return w != 0.0f && w != 1.0f ? Pnt3f{x / w, y / w, z / w} : Pnt3f{x, y, z};
}

Vec3f Matrix::transformVector(const Vec3f& v) const {
    return {m[0][0] * v.x + m[0][1] * v.y + m[0][2] * v.z,
            m[1][0] * v.x + m[1][1] * v.y + m[1][2] * v.z,
            m[2][0] * v.x + m[2][1] * v.y + m[2][2] * v.z};
}

bool Matrix::invert(Matrix& inverse) const {
    // Gauss-Jordan with partial pivoting, in double precision.
    double a[4][8];
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 8; ++j)
            a[i][j] = j < 4 ? m[i][j] : (j - 4 == i ? 1.0 : 0.0);
    for (int col = 0; col < 4; ++col) {
        int pivot = col;
        for (int row = col + 1; row < 4; ++row)
            if (std::fabs(a[row][col]) > std::fabs(a[pivot][col]))
                pivot = row;
        if (std::fabs(a[pivot][col]) < 1e-12) {
            inverse = Matrix();
            return false;
        }
        for (int j = 0; j < 8; ++j)
            std::swap(a[col][j], a[pivot][j]);
        const double d = a[col][col];
        for (int j = 0; j < 8; ++j)
            a[col][j] /= d;
        for (int row = 0; row < 4; ++row) {
            if (row == col)
                continue;
            const double f = a[row][col];
            for (int j = 0; j < 8; ++j)
                a[row][j] -= f * a[col][j];
        }
    }
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            inverse.m[i][j] = float(a[i][j + 4]);
    return true;
}

bool Matrix::equals(const Matrix& o, float tolerance) const {
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            if (std::fabs(m[i][j] - o.m[i][j]) > tolerance)
                return false;
    return true;
}

Vec3f normalize(const Vec3f& v) {
    const float length = std::sqrt(dot(v, v));
    return length > 0.0f ? Vec3f{v.x / length, v.y / length, v.z / length} : v;
}

Vec3f cross(const Vec3f& a, const Vec3f& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

float dot(const Vec3f& a, const Vec3f& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

} // namespace osg
