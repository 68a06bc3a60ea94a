#pragma once

#include "OSGImage.h"

#include <QString>

#include <map>
#include <string>

struct aiScene;
struct aiString;

// The pictures a scene file's materials use, decoded once each however many materials share
// them: embedded in the file (glb, data URIs, FBX) or files beside it, in any format the image
// readers know. Each comes as RGBA of 8 bits, rows bottom-up, values as stored (sRGB for
// colour pictures).
class kaSceneTextures {
public:
    kaSceneTextures(const aiScene& scene, const QString& sceneFileName);

    // The picture 'path' (as the material gives it) names; null when it can't be had, with the
    // file and the reason logged as a warning once: the scene still renders, in plain colour.
    osg::ImagePtr get(const aiString& path);

private:
    osg::ImagePtr load(const std::string& path, QString& why) const;
    osg::ImagePtr embedded(const std::string& path, QString& why) const;
    QString fileFor(const std::string& path) const;

    const aiScene& _scene;
    QString _sceneFile;
    std::map<std::string, osg::ImagePtr> _loaded; // nulls too: a failure is told once
};
