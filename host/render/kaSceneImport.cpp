#include "kaSceneImport.h"

#include "OSGGeometry.h"
#include "OSGNodeCores.h"
#include "kaAssimpMatrix.h"
#include "kaColladaCameras.h"
#include "kaFbxFile.h"
#include "kaSceneAnimation.h"
#include "kaSceneTextures.h"
#include "kaSceneUnits.h"

#include <QFileInfo>

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <cmath>
#include <map>
#include <string>
#include <vector>

namespace {

osg::TextureWrap wrapOf(aiTextureMapMode mode) {
    switch (mode) {
    case aiTextureMapMode_Clamp:
    case aiTextureMapMode_Decal:
        return osg::TextureWrap::ClampToEdge;
    case aiTextureMapMode_Mirror:
        return osg::TextureWrap::MirroredRepeat;
    default:
        return osg::TextureWrap::Repeat;
    }
}

// The base colour picture of 'source' into 'material'; the number of the texture coordinate
// set that places it (0 without a picture).
unsigned readBaseColorMap(const aiMaterial* source, kaSceneTextures& textures,
                          osg::SimpleMaterial& material) {
    // glTF's base colour; every other format's diffuse picture.
    for (aiTextureType type : {aiTextureType_BASE_COLOR, aiTextureType_DIFFUSE}) {
        if (source->GetTextureCount(type) == 0)
            continue;
        aiString path;
        unsigned uvSet = 0;
        aiTextureMapMode modes[2] = {aiTextureMapMode_Wrap, aiTextureMapMode_Wrap};
        if (source->GetTexture(type, 0, &path, nullptr, &uvSet, nullptr, nullptr, modes) !=
            AI_SUCCESS)
            continue;
        material.baseColorMap = textures.get(path);
        if (!material.baseColorMap)
            return 0;
        material.wrapU = wrapOf(modes[0]);
        material.wrapV = wrapOf(modes[1]);
        return uvSet;
    }
    return 0;
}

// The first picture of any of 'types' in 'source'; null when there is none.
osg::ImagePtr firstPicture(const aiMaterial* source, kaSceneTextures& textures,
                           std::initializer_list<aiTextureType> types) {
    for (aiTextureType type : types) {
        aiString path;
        if (source->GetTextureCount(type) > 0 && source->GetTexture(type, 0, &path) == AI_SUCCESS)
            return textures.get(path);
    }
    return osg::ImagePtr();
}

// The emission picture, and glTF's metallic-roughness one, placed like the base colour's.
// Assimp gives glTF's packed metallic-roughness picture as metalness (and as its unknown kind).
void readOtherMaps(const aiMaterial* source, kaSceneTextures& textures, bool gltf,
                   osg::SimpleMaterial& material) {
    if (gltf)
        material.metallicRoughnessMap =
            firstPicture(source, textures, {aiTextureType_METALNESS, aiTextureType_UNKNOWN});
    material.emissionMap = firstPicture(source, textures, {aiTextureType_EMISSIVE});
}

osg::SimpleMaterialPtr toMaterial(const aiMaterial* source) {
    aiString name;
    source->Get(AI_MATKEY_NAME, name);
    auto material = osg::SimpleMaterial::create(name.C_Str());
    aiColor4D color;
    if (source->Get(AI_MATKEY_BASE_COLOR, color) == AI_SUCCESS ||
        source->Get(AI_MATKEY_COLOR_DIFFUSE, color) == AI_SUCCESS)
        material->baseColor = {color.r, color.g, color.b};
    aiColor3D emission;
    if (source->Get(AI_MATKEY_COLOR_EMISSIVE, emission) == AI_SUCCESS) {
        float intensity = 1.0f;
        source->Get(AI_MATKEY_EMISSIVE_INTENSITY, intensity);
        material->emission = {emission.r * intensity, emission.g * intensity,
                              emission.b * intensity};
    }
    float value = 0.0f;
    if (source->Get(AI_MATKEY_METALLIC_FACTOR, value) == AI_SUCCESS)
        material->metallic = value;
    if (source->Get(AI_MATKEY_ROUGHNESS_FACTOR, value) == AI_SUCCESS)
        material->roughness = value;
    if (source->Get(AI_MATKEY_OPACITY, value) == AI_SUCCESS)
        material->opacity = value;
    // glTF says how alpha covers the surface; other formats have a see-through material when
    // its opacity is below 1, and ignore their pictures' alpha.
    aiString alphaMode;
    if (source->Get("$mat.gltf.alphaMode", 0, 0, alphaMode) == AI_SUCCESS) {
        const std::string mode = alphaMode.C_Str();
        material->alphaMode = mode == "MASK"    ? osg::AlphaMode::Mask
                              : mode == "BLEND" ? osg::AlphaMode::Blend
                                                : osg::AlphaMode::Opaque;
        if (source->Get("$mat.gltf.alphaCutoff", 0, 0, value) == AI_SUCCESS)
            material->alphaCutoff = value;
    } else {
        material->alphaMode =
            material->opacity < 1.0f ? osg::AlphaMode::Blend : osg::AlphaMode::Opaque;
    }
    return material;
}

osg::GeometryPtr toGeometry(const aiMesh* mesh, const osg::MaterialPtr& material, unsigned uvSet) {
    if (!mesh->HasTextureCoords(uvSet))
        uvSet = 0;
    osg::Geometry::Mesh data;
    data.positions.reserve(mesh->mNumVertices);
    if (mesh->HasNormals())
        data.normals.reserve(mesh->mNumVertices);
    data.indices.reserve(size_t(mesh->mNumFaces) * 3);
    for (unsigned v = 0; v < mesh->mNumVertices; ++v) {
        const aiVector3D& p = mesh->mVertices[v];
        data.positions.push_back({p.x, p.y, p.z});
        if (mesh->HasNormals())
            data.normals.push_back({mesh->mNormals[v].x, mesh->mNormals[v].y, mesh->mNormals[v].z});
        if (mesh->HasTextureCoords(uvSet)) {
            data.texCoords.push_back(mesh->mTextureCoords[uvSet][v].x);
            data.texCoords.push_back(mesh->mTextureCoords[uvSet][v].y);
        }
        if (mesh->HasVertexColors(0)) {
            const aiColor4D& c = mesh->mColors[0][v];
            data.colors.push_back({c.r, c.g, c.b, c.a});
        }
    }
    for (unsigned f = 0; f < mesh->mNumFaces; ++f)
        if (mesh->mFaces[f].mNumIndices == 3)
            for (int k = 0; k < 3; ++k)
                data.indices.push_back(mesh->mFaces[f].mIndices[k]);
    osg::GeometryPtr geometry = osg::Geometry::create();
    geometry->setMesh(std::move(data));
    geometry->setMaterial(material);
    return geometry;
}

// How Assimp's reader of a format gives a camera's field of view (see the cameras below).
enum class FovFormat { HalfHorizontal, WholeHorizontal, VerticalTimesAspect };
// Formats whose readers need telling apart.
enum class Format { Gltf, Fbx, Collada, Other };

// 'thing' (a node with a camera or light core) below a transform that turns our axes for it
// (looking or shining down -Z, Y up) into 'ahead' and 'up' relative to its node; 'thing' itself
// when they agree or aren't given.
osg::NodePtr alignedFrame(aiVector3D ahead, aiVector3D up, const osg::NodePtr& thing) {
    if (ahead.SquareLength() <= 0 || up.SquareLength() <= 0)
        return thing;
    ahead.Normalize();
    up = up - ahead * (up * ahead); // square to the direction
    if (up.SquareLength() <= 1e-12f)
        return thing;
    up.Normalize();
    if ((ahead - aiVector3D(0, 0, -1)).SquareLength() < 1e-10f &&
        (up - aiVector3D(0, 1, 0)).SquareLength() < 1e-10f)
        return thing;
    const aiVector3D back = -ahead, side = up ^ back;
    // Columns: where our X, Y and Z axes point in the node's space.
    const aiMatrix4x4 frame(side.x, up.x, back.x, 0, side.y, up.y, back.y, 0, side.z, up.z, back.z,
                            0, 0, 0, 0, 1);
    osg::NodePtr place = osg::Node::create(osg::Transform::create(toOsgMatrix(frame)), "");
    place->addChild(thing);
    return place;
}

struct Converter {
    Converter(const aiScene* scene, FovFormat fovFormat, Format format, kaSceneUnits units)
        : scene(scene)
        , fovFormat(fovFormat)
        , format(format)
        , units(units) {}

    const aiScene* scene;
    FovFormat fovFormat;
    Format format;
    kaSceneUnits units;
    // Orthographic cameras Assimp doesn't report, by node name: COLLADA's picture heights (in
    // the file's units) and FBX's zooms.
    std::map<std::string, float> orthographicHeights;
    std::map<std::string, double> orthographicZooms;
    std::vector<osg::MaterialPtr> materials;
    std::vector<unsigned> uvSets; // of each material's picture
    std::map<std::string, const aiCamera*> cameras;
    std::map<std::string, const aiLight*> lights;
    // The transform of every named node, the first of a name, for the animation channels.
    std::map<std::string, osg::TransformPtr> transforms;

    // The height an orthographic camera 'c' on node 'name' shows, in the file's units; 0 for
    // a perspective camera.
    float orthographicHeightOf(const aiCamera& c, const std::string& name, float aspect) const {
        // glTF's through Assimp, which gives half the width.
        if (c.mOrthographicWidth > 0.0f)
            return 2.0f * c.mOrthographicWidth / aspect;
        auto height = orthographicHeights.find(name);
        if (height != orthographicHeights.end())
            return height->second;
        // An FBX zoom is the width of a landscape picture (the height of a portrait one) in
        // metres, whatever unit the file counts in, as Blender writes and reads it.
        auto zoom = orthographicZooms.find(name);
        if (zoom != orthographicZooms.end())
            return float(zoom->second) / std::max(aspect, 1.0f) / units.metres;
        return 0.0f;
    }

    // A spot light's cone from Assimp's angles, which its readers give differently: glTF's as
    // the file has them (from the axis), FBX's whole (across the cone), and COLLADA's inner one
    // as the whole cone, its outer one made up from the falloff exponent.
    void setCone(const aiLight& l, osg::PointLight& light) const {
        float inner = l.mAngleInnerCone, outer = l.mAngleOuterCone;
        if (format == Format::Fbx) {
            inner /= 2;
            outer /= 2;
        } else if (format == Format::Collada) {
            inner = outer = l.mAngleInnerCone / 2;
        }
        if (outer > 0.0f)
            light.setCone(std::min(inner, outer), outer);
    }

    osg::NodePtr convert(const aiNode* source) {
        osg::TransformPtr transform = osg::Transform::create(toOsgMatrix(source->mTransformation));
        osg::NodePtr node = osg::Node::create(transform, source->mName.C_Str());
        transforms.emplace(source->mName.C_Str(), transform);
        for (unsigned i = 0; i < source->mNumMeshes; ++i) {
            const aiMesh* mesh = scene->mMeshes[source->mMeshes[i]];
            const bool known = mesh->mMaterialIndex < materials.size();
            const osg::MaterialPtr& material =
                known ? materials[mesh->mMaterialIndex] : osg::MaterialPtr();
            const unsigned uvSet = known ? uvSets[mesh->mMaterialIndex] : 0;
            // Named after the object, not its mesh data: a Cryptomatte matte and the
            // metadata name what the author named ("Ground", not "Plane"), and an object of
            // several materials, split into several meshes, stays one object.
            node->addChild(
                osg::Node::create(toGeometry(mesh, material, uvSet), source->mName.C_Str()));
        }
        auto camera = cameras.find(source->mName.C_Str());
        if (camera != cameras.end()) {
            const aiCamera* c = camera->second;
            // Assimp's angle is meant to be half the horizontal one, and is for most formats;
            // its FBX and COLLADA readers give the whole angle the file holds, and its glTF
            // reader the file's vertical angle times the aspect ratio. Ours is the whole
            // vertical angle.
            const float aspect = c->mAspect > 0.0f ? c->mAspect : 1.0f;
            const float halfHorizontal =
                fovFormat == FovFormat::WholeHorizontal ? c->mHorizontalFOV / 2 : c->mHorizontalFOV;
            float vertical = fovFormat == FovFormat::VerticalTimesAspect
                                 ? c->mHorizontalFOV / aspect
                                 : 2.0f * std::atan(std::tan(halfHorizontal) / aspect);
            // Orthographic cameras have no angle; a view made from one later gets a usual one.
            if (!(vertical > 0.0f))
                vertical = float(M_PI) / 4.0f;
            osg::NodePtr cameraNode =
                osg::Node::create(osg::CameraCore::create(vertical * 180.0f / float(M_PI),
                                                          c->mClipPlaneNear * units.metres,
                                                          c->mClipPlaneFar * units.metres),
                                  c->mName.C_Str());
            // A camera may look along another axis of its node than ours (-Z, Y up): FBX
            // cameras look along +X.
            osg::dynamic_pointer_cast<osg::CameraCore>(cameraNode->getCore())
                ->setOrthographicHeight(orthographicHeightOf(*c, source->mName.C_Str(), aspect) *
                                        units.metres);
            node->addChild(alignedFrame(c->mLookAt, c->mUp, cameraNode));
        }
        auto light = lights.find(source->mName.C_Str());
        if (light != lights.end()) {
            const aiLight* l = light->second;
            osg::LightPtr core;
            if (l->mType == aiLightSource_DIRECTIONAL)
                core = osg::DirectionalLight::create();
            else if (l->mType == aiLightSource_AMBIENT)
                core = osg::EnvironmentLight::create();
            else
                core = osg::PointLight::create();
            const aiColor3D& c = l->mColorDiffuse;
            const float strength = std::max({c.r, c.g, c.b, 1e-6f});
            core->setColor({c.r / strength, c.g / strength, c.b / strength});
            if (l->mType == aiLightSource_SPOT)
                setCone(*l, static_cast<osg::PointLight&>(*core));
            const bool directional = l->mType == aiLightSource_DIRECTIONAL;
            const bool ambient = l->mType == aiLightSource_AMBIENT;
            core->setIntensity(strength * (ambient       ? 1.0f
                                           : directional ? units.sunLight
                                                         : units.pointLight));
            // Lights shine along their node's -Z in ours; FBX lights along its -Y.
            node->addChild(
                alignedFrame(l->mDirection, l->mUp, osg::Node::create(core, l->mName.C_Str())));
        }
        for (unsigned i = 0; i < source->mNumChildren; ++i)
            node->addChild(convert(source->mChildren[i]));
        return node;
    }

    // Node channels only: morph and mesh animations are not read.
    osg::AnimNodeBasePtr animation(const aiAnimation* source, unsigned index) const {
        std::string name = source->mName.C_Str();
        if (name.empty())
            name = "Animation " + std::to_string(index + 1);
        kaSceneAnimationPtr result = kaSceneAnimation::create(name);
        // Assimp counts in ticks; files that give no rate are taken at 25 ticks a second.
        const double ticks = source->mTicksPerSecond > 0.0 ? source->mTicksPerSecond : 25.0;
        for (unsigned i = 0; i < source->mNumChannels; ++i) {
            const aiNodeAnim* c = source->mChannels[i];
            auto target = transforms.find(c->mNodeName.C_Str());
            if (target == transforms.end())
                continue;
            kaSceneAnimation::Channel channel;
            channel.target = target->second;
            aiVector3D scale, position;
            aiQuaternion rotation;
            fromOsgMatrix(target->second->getLocalMatrix()).Decompose(scale, rotation, position);
            channel.restPosition = {position.x, position.y, position.z};
            channel.restScale = {scale.x, scale.y, scale.z};
            channel.restRotation = {rotation.w, rotation.x, rotation.y, rotation.z};
            for (unsigned k = 0; k < c->mNumPositionKeys; ++k) {
                const aiVectorKey& key = c->mPositionKeys[k];
                channel.positions.push_back(
                    {key.mTime / ticks, {key.mValue.x, key.mValue.y, key.mValue.z}});
            }
            for (unsigned k = 0; k < c->mNumScalingKeys; ++k) {
                const aiVectorKey& key = c->mScalingKeys[k];
                channel.scales.push_back(
                    {key.mTime / ticks, {key.mValue.x, key.mValue.y, key.mValue.z}});
            }
            for (unsigned k = 0; k < c->mNumRotationKeys; ++k) {
                const aiQuatKey& key = c->mRotationKeys[k];
                channel.rotations.push_back(
                    {key.mTime / ticks, {key.mValue.w, key.mValue.x, key.mValue.y, key.mValue.z}});
            }
            result->addChannel(std::move(channel));
        }
        return result;
    }
};

// True when some mesh of more than one face has no vertex that two corners share.
bool needsJoining(const aiScene& scene) {
    for (unsigned m = 0; m < scene.mNumMeshes; ++m) {
        const aiMesh& mesh = *scene.mMeshes[m];
        if (mesh.mNumFaces < 2)
            continue;
        std::vector<bool> used(mesh.mNumVertices, false);
        bool shared = false;
        for (unsigned f = 0; f < mesh.mNumFaces && !shared; ++f)
            for (unsigned k = 0; k < mesh.mFaces[f].mNumIndices && !shared; ++k) {
                const unsigned index = mesh.mFaces[f].mIndices[k];
                if (index < used.size()) {
                    shared = used[index];
                    used[index] = true;
                }
            }
        if (!shared)
            return true;
    }
    return false;
}

} // namespace

osg::NodePtr kaSceneImport::load(const QString& fileName, QString& error,
                                 std::vector<osg::AnimNodeBasePtr>* animations) {
    if (!QFileInfo(fileName).isFile()) {
        error = QString("The scene file '%1' doesn't exist.").arg(fileName);
        return osg::NodePtr();
    }
    Assimp::Importer importer;
    const aiScene* scene = importer.ReadFile(fileName.toStdString(),
                                             aiProcess_Triangulate | aiProcess_GenSmoothNormals |
                                                 aiProcess_ValidateDataStructure);
    // Formats that give every face its own corners need them joined; a mesh that already
    // shares vertices was indexed by its author, and joining a million triangles again costs
    // seconds for nothing.
    if (scene && needsJoining(*scene))
        scene = importer.ApplyPostProcessing(aiProcess_JoinIdenticalVertices);
    // A file that reads but holds no meshes comes back flagged incomplete, without a reason.
    if (scene && scene->mRootNode && scene->mNumMeshes == 0) {
        error = QString("The scene file '%1' has no geometry to render.").arg(fileName);
        return osg::NodePtr();
    }
    if (!scene || !scene->mRootNode || (scene->mFlags & AI_SCENE_FLAGS_INCOMPLETE)) {
        QString why = QString::fromUtf8(importer.GetErrorString());
        if (why.isEmpty())
            why = "the importer found the file incomplete";
        error = QString("Couldn't read the scene file '%1': %2").arg(fileName, why);
        return osg::NodePtr();
    }
    const QString suffix = QFileInfo(fileName).suffix().toLower();
    const bool gltf = suffix == "gltf" || suffix == "glb";
    const FovFormat fov = gltf                                 ? FovFormat::VerticalTimesAspect
                          : suffix == "fbx" || suffix == "dae" ? FovFormat::WholeHorizontal
                                                               : FovFormat::HalfHorizontal;
    const Format format = gltf              ? Format::Gltf
                          : suffix == "fbx" ? Format::Fbx
                          : suffix == "dae" ? Format::Collada
                                            : Format::Other;
    Converter converter(scene, fov, format, kaSceneUnits::of(*scene, suffix));
    if (format == Format::Collada)
        converter.orthographicHeights = kaColladaOrthographicHeights(fileName);
    if (format == Format::Fbx) {
        kaFbxFile fbx = kaFbxFile::read(fileName);
        converter.orthographicZooms = std::move(fbx.orthographicZooms);
    }
    kaSceneTextures textures(*scene, fileName);
    for (unsigned i = 0; i < scene->mNumMaterials; ++i) {
        osg::SimpleMaterialPtr material = toMaterial(scene->mMaterials[i]);
        converter.uvSets.push_back(readBaseColorMap(scene->mMaterials[i], textures, *material));
        readOtherMaps(scene->mMaterials[i], textures, gltf, *material);
        converter.materials.push_back(material);
    }
    for (unsigned i = 0; i < scene->mNumCameras; ++i)
        converter.cameras[scene->mCameras[i]->mName.C_Str()] = scene->mCameras[i];
    for (unsigned i = 0; i < scene->mNumLights; ++i)
        converter.lights[scene->mLights[i]->mName.C_Str()] = scene->mLights[i];
    osg::NodePtr root =
        osg::Node::create(osg::Group::create(), QFileInfo(fileName).fileName().toStdString());
    // Scenes are shown in metres, whatever unit the file counts in.
    const float metres = converter.units.metres;
    if (metres != 1.0f) {
        osg::NodePtr inMetres = osg::Node::create(
            osg::Transform::create(osg::Matrix::scale(metres, metres, metres)), "");
        inMetres->addChild(converter.convert(scene->mRootNode));
        root->addChild(inMetres);
    } else {
        root->addChild(converter.convert(scene->mRootNode));
    }
    if (animations)
        for (unsigned i = 0; i < scene->mNumAnimations; ++i)
            animations->push_back(converter.animation(scene->mAnimations[i], i));
    return root;
}
