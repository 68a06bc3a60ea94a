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

    // The world-space box around every shown mesh below 'scene'; false when there is none.
    static bool bounds(const osg::NodePtr& scene, osg::Pnt3f& low, osg::Pnt3f& high);

    // Which camera the view looks through, when not the scene's first.
    struct CameraChoice {
        QString camera;    // a camera node's name, or its number (1 = the first)
        QString view;      // front, back, left, right, top, bottom or iso: from that side
        bool fit = false;  // the whole scene in the picture, seen from the camera's direction
        double aspect = 0; // width / height of the pictures to fit (0: the view's)
    };
    // Puts the view's camera where 'choice' says under 'scene' (shown by 'view') and makes that
    // camera the active one; a view or a fit is a new camera node ("Front View", "Fitted
    // Camera") beside the others. False with the reason in 'error' (a camera that isn't there
    // is named with those that are).
    static bool lookThrough(kaOSGWidget& view, const osg::NodePtr& scene,
                            const CameraChoice& choice, QString& error);
};
