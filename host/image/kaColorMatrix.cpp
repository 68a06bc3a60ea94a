#include "kaColorMatrix.h"

kaColorMatrix::kaColorMatrix()
    : _m{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}} {}

kaColorMatrix::kaColorMatrix(const float (&rows)[3][3]) {
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            _m[r][c] = rows[r][c];
}

void kaColorMatrix::apply(KA_RGBA32F& p) const {
    const float r = p.r, g = p.g, b = p.b;
    p.r = _m[0][0] * r + _m[0][1] * g + _m[0][2] * b;
    p.g = _m[1][0] * r + _m[1][1] * g + _m[1][2] * b;
    p.b = _m[2][0] * r + _m[2][1] * g + _m[2][2] * b;
}

bool kaColorMatrix::isIdentity() const {
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            if (_m[r][c] != (r == c ? 1.0f : 0.0f))
                return false;
    return true;
}
