#include "kaRTMath.h"

#include <algorithm>
#include <utility>

namespace kaRT {

M4 M4::from(const osg::Matrix& matrix) {
    M4 r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            r.m[i][j] = double(matrix.m[i][j]);
    return r;
}

M4 M4::operator*(const M4& o) const {
    M4 r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            double s = 0;
            for (int k = 0; k < 4; ++k)
                s += m[i][k] * o.m[k][j];
            r.m[i][j] = s;
        }
    return r;
}

bool M4::invert(M4& inverse) const {
    double a[4][8];
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            a[i][j] = m[i][j];
            a[i][j + 4] = i == j ? 1.0 : 0.0;
        }
    for (int c = 0; c < 4; ++c) {
        int pivot = c;
        for (int r = c + 1; r < 4; ++r)
            if (std::fabs(a[r][c]) > std::fabs(a[pivot][c]))
                pivot = r;
        if (std::fabs(a[pivot][c]) < 1e-300)
            return false;
        for (int j = 0; j < 8; ++j)
            std::swap(a[c][j], a[pivot][j]);
        const double scale = 1.0 / a[c][c];
        for (int j = 0; j < 8; ++j)
            a[c][j] *= scale;
        for (int r = 0; r < 4; ++r) {
            if (r == c)
                continue;
            const double f = a[r][c];
            for (int j = 0; j < 8; ++j)
                a[r][j] -= f * a[c][j];
        }
    }
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            inverse.m[i][j] = a[i][j + 4];
    return true;
}

V3 M4::project(V3 p) const {
    const double w = row(3, p);
    const double s = w != 0 ? 1.0 / w : 1.0;
    return {float(row(0, p) * s), float(row(1, p) * s), float(row(2, p) * s)};
}

V3 M4::transformPoint(V3 p) const {
    return {float(row(0, p)), float(row(1, p)), float(row(2, p))};
}

V3 M4::transformVector(V3 v) const {
    return {float(m[0][0] * v.x + m[0][1] * v.y + m[0][2] * v.z),
            float(m[1][0] * v.x + m[1][1] * v.y + m[1][2] * v.z),
            float(m[2][0] * v.x + m[2][1] * v.y + m[2][2] * v.z)};
}

namespace {
// Any two unit vectors that make a right-handed frame with 'n'.
void frame(V3 n, V3& t, V3& b) {
    const float sign = std::copysign(1.0f, n.z);
    const float a = -1.0f / (sign + n.z);
    const float c = n.x * n.y * a;
    t = {1.0f + sign * n.x * n.x * a, sign * c, -sign * n.x};
    b = {c, sign + n.y * n.y * a, -n.y};
}
V3 around(V3 axis, float cosTheta, float phi) {
    V3 t, b;
    frame(axis, t, b);
    const float sinTheta = std::sqrt(std::max(0.0f, 1.0f - cosTheta * cosTheta));
    return normalize(t * (std::cos(phi) * sinTheta) + b * (std::sin(phi) * sinTheta) +
                     axis * cosTheta);
}
constexpr float kTwoPi = 6.28318530718f;
} // namespace

V3 cosineDirection(V3 n, float u1, float u2) {
    return around(n, std::sqrt(1.0f - u1), kTwoPi * u2);
}

V3 phongDirection(V3 axis, float exponent, float u1, float u2) {
    return around(axis, std::pow(1.0f - u1, 1.0f / (exponent + 1.0f)), kTwoPi * u2);
}

} // namespace kaRT
