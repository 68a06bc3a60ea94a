#include "kaSceneTextures.h"

#include "OSGImageFileHandler.h"
#include "kaLog.h"

#include <QDir>
#include <QFileInfo>
#include <QUrl>

#include <assimp/scene.h>

#include <cstring>

namespace {

// RGBA of 8 bits: what renderers sample, whatever the file held (grey, 16 bits, no alpha).
osg::ImagePtr asRgba8(osg::ImagePtr image, QString& why) {
    if (!image || image->getWidth() <= 0 || image->getHeight() <= 0) {
        why = "it holds no picture";
        return osg::ImagePtr();
    }
    if ((image->getDataType() != osg::Image::OSG_UINT8_IMAGEDATA &&
         !image->convertDataTypeTo(osg::Image::OSG_UINT8_IMAGEDATA)) ||
        (image->getPixelFormat() != osg::Image::OSG_RGBA_PF &&
         !image->reformat(osg::Image::OSG_RGBA_PF))) {
        why = "its pixels can't be converted to RGBA";
        return osg::ImagePtr();
    }
    return image;
}

} // namespace

kaSceneTextures::kaSceneTextures(const aiScene& scene, const QString& sceneFileName)
    : _scene(scene)
    , _sceneFile(sceneFileName) {}

osg::ImagePtr kaSceneTextures::get(const aiString& path) {
    const std::string key = path.C_Str();
    auto found = _loaded.find(key);
    if (found != _loaded.end())
        return found->second;
    QString why;
    osg::ImagePtr image = load(key, why);
    if (!image)
        kaLog::warning("The texture '%s' of the scene file '%s' isn't used: %s.", key.c_str(),
                       qUtf8Printable(_sceneFile), qUtf8Printable(why));
    _loaded.emplace(key, image);
    return image;
}

osg::ImagePtr kaSceneTextures::load(const std::string& path, QString& why) const {
    if (path.empty()) {
        why = "it has no name";
        return osg::ImagePtr();
    }
    if (_scene.GetEmbeddedTexture(path.c_str()))
        return embedded(path, why);
    const QString file = fileFor(path);
    if (file.isEmpty()) {
        why = "no such file beside the scene";
        return osg::ImagePtr();
    }
    osg::ImagePtr image;
    if (!osg::ImageFileHandler::the().read(image, QFile::encodeName(file).constData())) {
        why = QString("'%1' can't be read as a picture").arg(file);
        return osg::ImagePtr();
    }
    return asRgba8(image, why);
}

osg::ImagePtr kaSceneTextures::embedded(const std::string& path, QString& why) const {
    const aiTexture* texture = _scene.GetEmbeddedTexture(path.c_str());
    if (texture->mHeight == 0) {
        // A whole image file in memory, its format hinted ("png", "jpg").
        std::string hint(texture->achFormatHint, strnlen(texture->achFormatHint, 4));
        if (hint == "jpeg")
            hint = "jpg";
        osg::ImagePtr image;
        if (!osg::ImageFileHandler::the().restore(image, hint.c_str(),
                                                  reinterpret_cast<const uint8_t*>(texture->pcData),
                                                  texture->mWidth)) {
            why = QString("the embedded %1 picture can't be decoded")
                      .arg(hint.empty() ? QString("image") : QString::fromStdString(hint));
            return osg::ImagePtr();
        }
        return asRgba8(image, why);
    }
    // Raw texels, BGRA, the top row first.
    const int width = int(texture->mWidth), height = int(texture->mHeight);
    osg::ImagePtr image = osg::Image::create();
    if (!image->set(osg::Image::OSG_RGBA_PF, width, height)) {
        why = "there is no memory for it";
        return osg::ImagePtr();
    }
    uint8_t* out = image->getData();
    for (int y = 0; y < height; ++y) {
        const aiTexel* row = texture->pcData + size_t(height - 1 - y) * size_t(width);
        for (int x = 0; x < width; ++x, out += 4) {
            out[0] = row[x].r;
            out[1] = row[x].g;
            out[2] = row[x].b;
            out[3] = row[x].a;
        }
    }
    return image;
}

// The file 'path' names: relative to the scene's folder unless absolute; written with
// backslashes by programs on Windows, or percent-encoded as in glTF's URIs.
QString kaSceneTextures::fileFor(const std::string& path) const {
    const QDir folder = QFileInfo(_sceneFile).absoluteDir();
    QString name = QString::fromStdString(path);
    name.replace('\\', '/');
    for (const QString& candidate : {name, QUrl::fromPercentEncoding(name.toUtf8())}) {
        const QString file =
            QFileInfo(candidate).isAbsolute() ? candidate : folder.filePath(candidate);
        if (QFileInfo(file).isFile())
            return file;
    }
    // Files moved with the scene but referred to by an old folder: the name alone, beside it.
    const QString beside = folder.filePath(QFileInfo(name).fileName());
    return QFileInfo(beside).isFile() ? beside : QString();
}
