#pragma once

#include "OSGAnimNodeBase.h"
#include "OSGNode.h"

#include <QString>

#include <vector>

// Scene files (glTF 2.0, OBJ, PLY, STL, FBX, COLLADA and the rest Assimp reads) as scene
// graphs: node names and transforms, meshes with their materials, cameras and lights.
class kaOSGWidget;

class kaSceneImport {
public:
    // The scene's root, named after the file; null with the reason in 'error' when the file
    // is missing or can't be read. Its keyframe animations (node transforms) are added to
    // 'animations' when given; they live while a handle refers to them.
    static osg::NodePtr load(const QString& fileName, QString& error,
                             std::vector<osg::AnimNodeBasePtr>* animations = nullptr);

    // Makes 'scene' (from 'fileName') what 'view' shows and the host works on, and looks
    // through its first camera; a scene without one gets an "Automatic Camera" node that sees
    // everything it holds. Either camera becomes the active one (kaCameraService), so that
    // exports record the camera the picture was taken with.
    // The scene's animations play on the host's timeline from then on (kaAnimManager keeps
    // them), starting at the current frame.
    static void show(kaOSGWidget& view, const osg::NodePtr& scene, const QString& fileName,
                     std::vector<osg::AnimNodeBasePtr> animations = {});
};
