// kaexport info: what a scene file holds, before rendering it: objects, materials, cameras,
// lights, animations and the bounding box.
#include "kaexportApp.h"
#include "kaexportOptions.h"

#include "OSGAnimNodeBase.h"
#include "OSGGeometry.h"
#include "OSGMaterial.h"
#include "OSGNodeCores.h"
#include "kaAnimManager.h"
#include "kaBuiltinScene.h"
#include "kaDefaultLights.h"
#include "kaOSGWidget.h"
#include "kaSceneAnimation.h"
#include "kaSceneImport.h"

#include <CLI/CLI.hpp>

#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <memory>
#include <ostream>
#include <set>
#include <sstream>

namespace kaexport {

namespace {

std::string number(double value) {
    std::ostringstream out;
    // Rounding left in transformed directions and positions (1e-7 for 0) is shown as 0.
    out << std::setprecision(4) << (std::fabs(value) < 1e-5 ? 0.0 : value);
    return out.str();
}

std::string triple(float a, float b, float c) {
    return number(a) + " " + number(b) + " " + number(c);
}

std::string quotedName(const std::string& name) {
    return name.empty() ? "<unnamed>" : "\"" + name + "\"";
}

// "Name" or, for a node without one, its kind in angle brackets.
std::string nameOf(const osg::Node& node, const char* kind) {
    return node.getName().empty() ? std::string("<") + kind + ">" : "\"" + node.getName() + "\"";
}

void listScene(const osg::NodePtr& root, const std::vector<osg::AnimNodeBasePtr>& animations,
               const std::string& title, std::ostream& out) {
    std::ostringstream objects, materials, cameras, lights;
    int objectCount = 0, cameraCount = 0, lightCount = 0;
    std::set<const osg::SimpleMaterial*> seen;
    int materialCount = 0;
    size_t triangles = 0;
    osg::forEachShownNode(root, [&](const osg::NodePtr& node, const osg::Matrix& world) {
        osg::NodeCore* core = node->getCore().get();
        if (auto* geometry = dynamic_cast<osg::Geometry*>(core)) {
            const osg::Geometry::Mesh& mesh = geometry->getMesh();
            const osg::SimpleMaterial* material =
                osg::resolveSimpleMaterial(geometry->getMaterial().get());
            ++objectCount;
            triangles += mesh.indices.size() / 3;
            objects << "  " << nameOf(*node, "mesh");
            // Imported meshes hang below the node the author named (and placed).
            const osg::Node* parent = node->getParent();
            if (parent && !parent->getName().empty() && parent != root.get() &&
                parent->getName() != node->getName())
                objects << " in \"" << parent->getName() << "\"";
            objects << ": " << mesh.indices.size() / 3 << " triangles"
                    << (mesh.colors.size() == mesh.positions.size() && !mesh.colors.empty()
                            ? ", vertex colours"
                            : "")
                    << (material ? ", material " + quotedName(material->getName()) : "") << "\n";
            if (material && seen.insert(material).second) {
                ++materialCount;
                materials << "  " << quotedName(material->getName()) << ": base colour "
                          << triple(material->baseColor.r, material->baseColor.g,
                                    material->baseColor.b)
                          << ", metallic " << number(material->metallic) << ", roughness "
                          << number(material->roughness) << ", opacity "
                          << number(material->opacity);
                if (material->emission.r > 0 || material->emission.g > 0 ||
                    material->emission.b > 0)
                    materials << ", emission "
                              << triple(material->emission.r, material->emission.g,
                                        material->emission.b);
                if (const osg::Image* picture = material->baseColorMap.get())
                    materials << ", picture " << picture->getWidth() << " x "
                              << picture->getHeight();
                if (const osg::Image* picture = material->metallicRoughnessMap.get())
                    materials << ", metallic-roughness picture " << picture->getWidth() << " x "
                              << picture->getHeight();
                if (const osg::Image* picture = material->emissionMap.get())
                    materials << ", emission picture " << picture->getWidth() << " x "
                              << picture->getHeight();
                if (material->alphaMode == osg::AlphaMode::Mask)
                    materials << ", alpha cut-off " << number(material->alphaCutoff);
                else if (material->alphaMode == osg::AlphaMode::Blend && material->baseColorMap)
                    materials << ", picture's alpha blended";
                materials << "\n";
            }
        }
        if (auto* camera = dynamic_cast<const osg::CameraCore*>(core)) {
            const osg::Pnt3f at = world.transformPoint({0, 0, 0});
            cameras << "  " << nameOf(*node, "camera") << ": at " << triple(at.x, at.y, at.z);
            if (camera->getOrthographicHeight() > 0)
                cameras << ", orthographic, " << number(camera->getOrthographicHeight()) << " high";
            else
                cameras << ", vertical field of view " << number(camera->getFov()) << " degrees";
            cameras << ", near " << number(camera->getNear()) << ", far "
                    << number(camera->getFar()) << "\n";
            ++cameraCount;
        }
        if (auto* light = dynamic_cast<const osg::Light*>(core)) {
            const osg::WorldLight l = osg::worldLightOf(*light, world);
            lights << "  " << nameOf(*node, "light") << ": ";
            if (l.kind == osg::WorldLight::Directional)
                lights << "directional, shining along "
                       << triple(l.direction.x, l.direction.y, l.direction.z);
            else if (l.kind == osg::WorldLight::Point && l.coneOuter > -1.0f)
                lights << "spot, at " << triple(l.position.x, l.position.y, l.position.z)
                       << ", shining along " << triple(l.direction.x, l.direction.y, l.direction.z)
                       << ", cone " << number(std::acos(l.coneInner) * 180.0 / M_PI) << " to "
                       << number(std::acos(l.coneOuter) * 180.0 / M_PI) << " degrees";
            else if (l.kind == osg::WorldLight::Point)
                lights << "point, at " << triple(l.position.x, l.position.y, l.position.z);
            else
                lights << "environment";
            lights << ", power " << triple(l.power.r, l.power.g, l.power.b) << "\n";
            ++lightCount;
        }
    });

    out << "Scene: " << title << "\n";
    out << "Objects: " << objectCount << " (" << triangles << " triangles)\n" << objects.str();
    out << "Materials: " << materialCount << "\n" << materials.str();
    out << "Cameras: " << cameraCount
        << (cameraCount == 0 ? " (a camera is made that frames the whole scene)" : "") << "\n"
        << cameras.str();
    out << "Lights: " << lightCount;
    if (lightCount == 0)
        out << (kaDefaultLights::applies(0) ? " (shown by the default lights: --headlight)"
                                            : " (the default lights are off: black)");
    out << "\n" << lights.str();
    out << "Animations: " << animations.size() << "\n";
    const double fps = kaAnimManager::getFramesPerSecond();
    for (const osg::AnimNodeBasePtr& animation : animations) {
        out << "  \"" << animation->getName() << "\"";
        if (auto* keyed = dynamic_cast<const kaSceneAnimation*>(animation.get()))
            out << ": " << number(keyed->getDuration()) << " s, "
                << std::lround(keyed->getDuration() * fps) << " frames at " << number(fps)
                << " frames per second, " << keyed->getChannels().size() << " channels";
        out << "\n";
    }
    osg::Pnt3f low, high;
    if (kaSceneImport::bounds(root, low, high))
        out << "Bounding box: from " << triple(low.x, low.y, low.z) << " to "
            << triple(high.x, high.y, high.z) << " (size "
            << triple(high.x - low.x, high.y - low.y, high.z - low.z) << ")\n";
    else
        out << "Bounding box: empty\n";
}

} // namespace

Runner defineInfo(CLI::App& command) {
    auto scene = std::make_shared<std::string>();
    describe(command,
             "Lists what a scene holds: objects with their triangles and materials, cameras, "
             "lights, animations with their length, and the bounding box. SCENE is a file "
             "(glTF, OBJ, FBX, ...); without it, the scene of --scene or the built-in scene.");
    command.add_option("scene", *scene, "the scene file")->type_name("SCENE");
    return [scene](Streams& io, Host*) {
        if (scene->empty())
            *scene = sceneOption();
        if (scene->empty()) {
            kaOSGWidget view;
            kaBuiltinScene builtin(view);
            listScene(builtin.getRoot(), {builtin.getAnimation()}, "the built-in scene", io.out);
            return int(Done);
        }
        QString error;
        std::vector<osg::AnimNodeBasePtr> animations;
        const QString file = QString::fromStdString(*scene);
        osg::NodePtr root = kaSceneImport::load(file, error, &animations);
        if (!root) {
            io.err << "kaexport info: " << error.toStdString() << "\n";
            return int(Failed);
        }
        listScene(root, animations, QFileInfo(file).fileName().toStdString(), io.out);
        return int(Done);
    };
}

} // namespace kaexport
