#pragma once

// Assimp's matrices as the scene graph's. Internal to the scene import.

#include "OSGMatrix.h"

#include <assimp/matrix4x4.h>

inline osg::Matrix toOsgMatrix(const aiMatrix4x4& m) {
    // Both are row-major for column vectors.
    osg::Matrix r;
    const float* values = &m.a1;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            r.m[i][j] = values[i * 4 + j];
    return r;
}

inline aiMatrix4x4 fromOsgMatrix(const osg::Matrix& m) {
    aiMatrix4x4 r;
    float* values = &r.a1;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            values[i * 4 + j] = m.m[i][j];
    return r;
}
