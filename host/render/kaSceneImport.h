#pragma once

#include "OSGNode.h"

#include <QString>

// Scene files (glTF 2.0, OBJ, PLY, STL, FBX, COLLADA and the rest Assimp reads) as scene
// graphs: node names and transforms, meshes with their materials, cameras and lights.
class kaSceneImport {
public:
    // The scene's root, named after the file; null with the reason in 'error' when the file
    // is missing or can't be read.
    static osg::NodePtr load(const QString& fileName, QString& error);
};
