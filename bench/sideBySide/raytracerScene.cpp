// Our side of the raytracer comparison, on the built-in scene:
//   benchRaytracerScene export SCENE.glb SCENE.json
//       writes the scene's meshes and materials as glTF (through Assimp), and what glTF can't
//       carry in Assimp's writer (lights, the camera, the environment, glow strengths) as JSON,
//       for the other renderer to set up the same scene;
//   benchRaytracerScene render SAMPLES...
//       renders the beauty pass at 1920 x 1080 with each sample count, once the scene is
//       prepared, and prints one line of JSON: {"samples": [...], "seconds": [...],
//       "rays": [...]}. Fog, plates and lens flare are left out: the other renderer has none.
#include "OSGGeometry.h"
#include "OSGMaterial.h"
#include "OSGNodeCores.h"
#include "OSGSceneEffects.h"
#include "kaBuiltinScene.h"
#include "kaOSGWidget.h"
#include "kaRTMath.h"
#include "kaRTRenderer.h"
#include "kaRaytracer.h"
#include "kaRenderParameter.h"
#include "kaSharedOffscreenRender.h"

#include <assimp/Exporter.hpp>
#include <assimp/material.h>
#include <assimp/scene.h>

#include <QApplication>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kWidth = 1920, kHeight = 1080;

std::string json(const kaRT::V3& v) {
    char text[96];
    std::snprintf(text, sizeof text, "[%.6g, %.6g, %.6g]", v.x, v.y, v.z);
    return text;
}

std::string quoted(const std::string& s) {
    std::string out = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += c;
    }
    return out + "\"";
}

// Meshes in world space (one node each), so that placements need no translation.
bool exportScene(const kaBuiltinScene& builtin, const kaOSGWidget& view, const char* glbPath,
                 const char* jsonPath) {
    auto scene = std::make_unique<aiScene>();
    scene->mRootNode = new aiNode("Built-in Scene");
    std::vector<aiMesh*> meshes;
    std::vector<aiMaterial*> materials;
    std::vector<aiNode*> nodes;
    std::map<const osg::SimpleMaterial*, unsigned> materialIndex;
    std::string lights, glow;
    kaRT::V3 ambient;

    osg::forEachShownNode(builtin.getRoot(), [&](const osg::NodePtr& node,
                                                 const osg::Matrix& world) {
        osg::NodeCore* core = node->getCore().get();
        if (auto* light = dynamic_cast<const osg::Light*>(core)) {
            const osg::WorldLight l = osg::worldLightOf(*light, world);
            const kaRT::V3 power = kaRT::v3(l.power);
            if (l.kind == osg::WorldLight::Environment) {
                ambient += power;
                return;
            }
            lights +=
                std::string(lights.empty() ? "" : ", ") +
                "{\"type\": " + (l.kind == osg::WorldLight::Directional ? "\"sun\"" : "\"point\"") +
                ", \"power\": " + json(power) +
                ", \"position\": " + json({l.position.x, l.position.y, l.position.z}) +
                ", \"direction\": " + json({l.direction.x, l.direction.y, l.direction.z}) + "}";
        }
        auto* geometry = dynamic_cast<osg::Geometry*>(core);
        if (!geometry)
            return;
        const osg::Geometry::Mesh& source = geometry->getMesh();
        const osg::SimpleMaterial* simple =
            osg::resolveSimpleMaterial(geometry->getMaterial().get());
        if (!simple || source.indices.size() < 3)
            return;
        if (!materialIndex.count(simple)) {
            auto* m = new aiMaterial();
            const aiString name(simple->getName());
            m->AddProperty(&name, AI_MATKEY_NAME);
            const aiColor4D base(simple->baseColor.r, simple->baseColor.g, simple->baseColor.b,
                                 simple->opacity);
            m->AddProperty(&base, 1, AI_MATKEY_BASE_COLOR);
            m->AddProperty(&base, 1, AI_MATKEY_COLOR_DIFFUSE);
            m->AddProperty(&simple->metallic, 1, AI_MATKEY_METALLIC_FACTOR);
            m->AddProperty(&simple->roughness, 1, AI_MATKEY_ROUGHNESS_FACTOR);
            m->AddProperty(&simple->opacity, 1, AI_MATKEY_OPACITY);
            if (simple->opacity < 1.0f) {
                const aiString blend("BLEND");
                m->AddProperty(&blend, "$mat.gltf.alphaMode", 0, 0);
            }
            const kaRT::V3 emission = kaRT::v3(simple->emission);
            if (!kaRT::isZero(emission))
                glow += std::string(glow.empty() ? "" : ", ") + quoted(simple->getName()) + ": " +
                        json(emission);
            materialIndex[simple] = unsigned(materials.size());
            materials.push_back(m);
        }
        const kaRT::M4 toWorld = kaRT::M4::from(world);
        kaRT::M4 inverse;
        toWorld.invert(inverse);
        auto* mesh = new aiMesh();
        mesh->mName = node->getName();
        mesh->mPrimitiveTypes = aiPrimitiveType_TRIANGLE;
        mesh->mMaterialIndex = materialIndex[simple];
        mesh->mNumVertices = unsigned(source.positions.size());
        mesh->mVertices = new aiVector3D[mesh->mNumVertices];
        mesh->mNormals = new aiVector3D[mesh->mNumVertices];
        for (unsigned v = 0; v < mesh->mNumVertices; ++v) {
            const osg::Pnt3f& p = source.positions[v];
            const kaRT::V3 w = toWorld.transformPoint({p.x, p.y, p.z});
            mesh->mVertices[v] = {w.x, w.y, w.z};
            const osg::Vec3f n =
                v < source.normals.size() ? source.normals[v] : osg::Vec3f{0, 1, 0};
            // Normals by the inverse transpose.
            const kaRT::V3 wn = kaRT::normalize(
                {float(inverse.m[0][0] * n.x + inverse.m[1][0] * n.y + inverse.m[2][0] * n.z),
                 float(inverse.m[0][1] * n.x + inverse.m[1][1] * n.y + inverse.m[2][1] * n.z),
                 float(inverse.m[0][2] * n.x + inverse.m[1][2] * n.y + inverse.m[2][2] * n.z)});
            mesh->mNormals[v] = {wn.x, wn.y, wn.z};
        }
        mesh->mNumFaces = unsigned(source.indices.size() / 3);
        mesh->mFaces = new aiFace[mesh->mNumFaces];
        for (unsigned f = 0; f < mesh->mNumFaces; ++f) {
            aiFace& face = mesh->mFaces[f];
            face.mNumIndices = 3;
            face.mIndices = new unsigned[3]{source.indices[3 * f], source.indices[3 * f + 1],
                                            source.indices[3 * f + 2]};
        }
        auto* meshNode = new aiNode(node->getName());
        meshNode->mParent = scene->mRootNode;
        meshNode->mNumMeshes = 1;
        meshNode->mMeshes = new unsigned[1]{unsigned(meshes.size())};
        meshes.push_back(mesh);
        nodes.push_back(meshNode);
    });

    scene->mNumMeshes = unsigned(meshes.size());
    scene->mMeshes = new aiMesh*[meshes.size()];
    std::copy(meshes.begin(), meshes.end(), scene->mMeshes);
    scene->mNumMaterials = unsigned(materials.size());
    scene->mMaterials = new aiMaterial*[materials.size()];
    std::copy(materials.begin(), materials.end(), scene->mMaterials);
    scene->mRootNode->mNumChildren = unsigned(nodes.size());
    scene->mRootNode->mChildren = new aiNode*[nodes.size()];
    std::copy(nodes.begin(), nodes.end(), scene->mRootNode->mChildren);

    Assimp::Exporter exporter;
    if (exporter.Export(scene.get(), "glb2", glbPath) != AI_SUCCESS) {
        std::fprintf(stderr, "benchRaytracerScene: %s: %s\n", glbPath, exporter.GetErrorString());
        return false;
    }

    // The camera: where the view's beacon puts it, looking down its -Z.
    const osg::Matrix beacon =
        osg::dynamic_pointer_cast<osg::Transform>(view.getCameraBeacon()->getCore())->getMatrix();
    const kaRT::M4 pose = kaRT::M4::from(beacon);
    const kaRT::V3 eye = pose.transformPoint({0, 0, 0});
    const kaRT::V3 ahead = pose.transformPoint({0, 0, -1});
    const kaRT::V3 up = pose.transformPoint({0, 1, 0});
    std::ofstream out(jsonPath);
    out << "{\n  \"width\": " << kWidth << ", \"height\": " << kHeight
        << ",\n  \"camera\": {\"position\": " << json(eye) << ", \"target\": " << json(ahead)
        << ", \"up\": " << json(up - eye) << ", \"fov_y_degrees\": " << view.getCamera()->getFov()
        << ", \"near\": " << view.getCamera()->getNear()
        << ", \"far\": " << view.getCamera()->getFar() << "},\n  \"lights\": [" << lights
        << "],\n  \"ambient\": " << json(ambient) << ",\n  \"emission\": {" << glow << "}\n}\n";
    out.close();
    if (!out) {
        std::fprintf(stderr, "benchRaytracerScene: %s: could not be written\n", jsonPath);
        return false;
    }
    return true;
}

// Seconds for a render of the beauty pass at each quality, the scene and images prepared by
// one render of a single sample first.
bool timeRenders(kaOSGWidget& view, const std::vector<int>& samples) {
    view.setSize(kWidth, kHeight);
    kaOSGWidget::setMainView(&view);
    kaOSGWidget::setRaytracing(true);
    std::vector<osg::ImagePtr> images(47);
    images[0] = osg::Image::create();
    images[0]->set(osg::Image::OSG_RGBA_PF, kWidth, kHeight, 1, 1, 1, 0.0, nullptr,
                   osg::Image::OSG_FLOAT32_IMAGEDATA);
    for (const osg::NodePtr& node : osg::collectNodes(view.getSceneRoot()))
        if (dynamic_cast<osg::Fog*>(node->getCore().get()) ||
            dynamic_cast<osg::ImagePlate*>(node->getCore().get()) ||
            dynamic_cast<osg::LensFlare*>(node->getCore().get()))
            node->setActive(false);
    std::string seconds, rays;
    for (size_t i = 0; i < samples.size(); ++i) {
        // Quality 0 renders one sample; the image samples multiply it to the count wanted.
        kaRenderParameter::setImageSamples(samples[i]);
        kaSharedOffscreenRender renderer(&view, images, 0);
        renderer.setRtSample(0);
        renderer.updateGL();
        renderer.setRtSample(-1);
        const auto start = std::chrono::steady_clock::now();
        if (!renderer.updateGL()) {
            std::fprintf(stderr, "benchRaytracerScene: the render failed\n");
            return false;
        }
        const double s =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        seconds += (i ? ", " : "") + std::to_string(s);
        rays += (i ? ", " : "") + std::to_string(kaRTRenderer::the().getLastRayCount());
    }
    kaRenderParameter::setImageSamples(1);
    kaOSGWidget::setRaytracing(false);
    kaOSGWidget::setMainView(nullptr);
    std::string counts;
    for (size_t i = 0; i < samples.size(); ++i)
        counts += (i ? ", " : "") + std::to_string(samples[i]);
    std::printf("{\"samples\": [%s], \"seconds\": [%s], \"rays\": [%s]}\n", counts.c_str(),
                seconds.c_str(), rays.c_str());
    return true;
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM",
            qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen" : qgetenv("QT_QPA_PLATFORM"));
    QApplication app(argc, argv);
    const std::string mode = argc > 1 ? argv[1] : "";
    kaOSGWidget view;
    kaBuiltinScene scene{view};
    if (mode == "export" && argc == 4)
        return exportScene(scene, view, argv[2], argv[3]) ? 0 : 1;
    if (mode == "render" && argc > 2) {
        std::vector<int> samples;
        for (int i = 2; i < argc; ++i)
            samples.push_back(std::max(std::atoi(argv[i]), 1));
        return timeRenders(view, samples) ? 0 : 1;
    }
    std::fprintf(stderr, "usage: benchRaytracerScene export SCENE.glb SCENE.json\n"
                         "       benchRaytracerScene render SAMPLES...\n");
    return 2;
}
