#include "kaSceneImport.h"

#include "OSGGeometry.h"
#include "OSGNodeCores.h"
#include "kaAnimManager.h"
#include "kaRaytracedLight.h"
#include "kaSceneAnimation.h"
#include "kaTestSupport.h"

#include <QFile>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace {

// One triangle named "Panel" with a brass material, and a named camera.
QByteArray gltf() {
    const float positions[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    const uint16_t indices[3] = {0, 1, 2};
    QByteArray buffer(reinterpret_cast<const char*>(positions), sizeof positions);
    buffer.append(reinterpret_cast<const char*>(indices), sizeof indices);
    return QByteArray(R"({
  "asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0, 1]}],
  "nodes": [{"name": "Panel", "mesh": 0, "translation": [1, 2, 3]},
            {"name": "Front View", "camera": 0, "translation": [0, 0, 10]}],
  "meshes": [{"name": "PanelMesh", "primitives": [{"attributes": {"POSITION": 0}, "indices": 1, "material": 0}]}],
  "materials": [{"name": "Brass", "pbrMetallicRoughness": {"baseColorFactor": [0.8, 0.6, 0.2, 1],
                 "metallicFactor": 1.0, "roughnessFactor": 0.3}, "emissiveFactor": [0.5, 0, 0]}],
  "cameras": [{"type": "perspective", "perspective": {"yfov": 0.7, "znear": 0.1, "zfar": 100, "aspectRatio": 1.5}}],
  "buffers": [{"byteLength": 42, "uri": "data:application/octet-stream;base64,)") +
           buffer.toBase64() + R"("}],
  "bufferViews": [{"buffer": 0, "byteOffset": 0, "byteLength": 36}, {"buffer": 0, "byteOffset": 36, "byteLength": 6}],
  "accessors": [{"bufferView": 0, "componentType": 5126, "count": 3, "type": "VEC3", "min": [0, 0, 0], "max": [1, 1, 0]},
                {"bufferView": 1, "componentType": 5123, "count": 3, "type": "SCALAR"}]
})";
}

osg::NodePtr find(const osg::NodePtr& root, const std::string& name) {
    for (const osg::NodePtr& node : osg::collectNodes(root))
        if (node->getName() == name)
            return node;
    return osg::NodePtr();
}

} // namespace

TEST(kaSceneImport, GltfLoadsWithNamesMaterialsAndCameras) {
    katest::TempDir dir;
    QFile file(dir.file("panel.gltf"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(gltf());
    file.close();
    QString error;
    osg::NodePtr root = kaSceneImport::load(dir.file("panel.gltf"), error);
    ASSERT_TRUE(root) << error.toStdString();
    EXPECT_EQ(root->getName(), "panel.gltf");

    osg::NodePtr panel = find(root, "Panel");
    ASSERT_TRUE(panel);
    osg::Pnt3f where = panel->getToWorld().transformPoint({0, 0, 0});
    EXPECT_NEAR(where.y, 2.0f, 1e-5f);
    osg::GeometryPtr geometry;
    for (const osg::NodePtr& node : osg::collectNodes(panel))
        if (auto g = osg::dynamic_pointer_cast<osg::Geometry>(node->getCore())) {
            geometry = g;
            // Named after the object, as Cryptomatte mattes name it, not after its mesh data.
            EXPECT_EQ(node->getName(), "Panel");
        }
    ASSERT_TRUE(geometry);
    EXPECT_EQ(geometry->getMesh().indices.size(), 3u);
    auto brass = osg::dynamic_pointer_cast<osg::SimpleMaterial>(geometry->getMaterial());
    ASSERT_TRUE(brass);
    EXPECT_EQ(brass->getName(), "Brass");
    EXPECT_NEAR(brass->baseColor.g, 0.6f, 1e-5f);
    EXPECT_NEAR(brass->metallic, 1.0f, 1e-5f);
    EXPECT_NEAR(brass->roughness, 0.3f, 1e-5f);
    EXPECT_NEAR(brass->emission.r, 0.5f, 1e-5f);

    osg::CameraCorePtr camera;
    for (const osg::NodePtr& node : osg::collectNodes(find(root, "Front View")))
        if (auto c = osg::dynamic_pointer_cast<osg::CameraCore>(node->getCore()))
            camera = c;
    ASSERT_TRUE(camera);
    EXPECT_NEAR(camera->getFov(), 0.7f * 180.0f / float(M_PI), 1e-3f);
    EXPECT_NEAR(camera->getNear(), 0.1f, 1e-5f);
}

namespace {

osg::GeometryPtr onlyGeometry(const osg::NodePtr& root) {
    osg::GeometryPtr geometry;
    for (const osg::NodePtr& node : osg::collectNodes(root))
        if (auto g = osg::dynamic_pointer_cast<osg::Geometry>(node->getCore()))
            geometry = g;
    return geometry;
}

} // namespace

// STL gives every triangle its own three corners: two triangles of a square share two.
TEST(kaSceneImport, ATriangleSoupIsJoinedIntoSharedVertices) {
    katest::TempDir dir;
    ASSERT_TRUE(katest::writeFile(dir.file("square.stl"), R"(solid square
facet normal 0 0 1
 outer loop
  vertex 0 0 0
  vertex 1 0 0
  vertex 1 1 0
 endloop
endfacet
facet normal 0 0 1
 outer loop
  vertex 0 0 0
  vertex 1 1 0
  vertex 0 1 0
 endloop
endfacet
endsolid square
)"));
    QString error;
    osg::NodePtr root = kaSceneImport::load(dir.file("square.stl"), error);
    ASSERT_TRUE(root) << error.toStdString();
    osg::GeometryPtr geometry = onlyGeometry(root);
    ASSERT_TRUE(geometry);
    EXPECT_EQ(geometry->getMesh().indices.size(), 6u);
    EXPECT_EQ(geometry->getMesh().positions.size(), 4u);
}

// A PLY mesh is indexed by its author. Its two vertices at one place (a seam, as texture seams
// make them) stay two, and are still shaded as one smooth surface.
TEST(kaSceneImport, AnIndexedMeshKeepsItsVerticesAndIsSmoothAcrossSeams) {
    katest::TempDir dir;
    // A tent of two faces meeting at the ridge x = 0; the far ridge end is doubled: vertex 3
    // and vertex 5 are at one place, each used by one face.
    QByteArray ply("ply\nformat binary_little_endian 1.0\nelement vertex 6\n"
                   "property float x\nproperty float y\nproperty float z\n"
                   "element face 2\nproperty list uchar int vertex_indices\nend_header\n");
    const float positions[6][3] = {{-1, 0, 0}, {0, 1, 0},   {1, 0, 0},
                                   {0, 1, -1}, {-1, 0, -1}, {0, 1, -1}};
    ply.append(reinterpret_cast<const char*>(positions), sizeof positions);
    const int faces[2][3] = {{0, 1, 3}, {1, 2, 5}};
    for (const auto& face : faces) {
        ply.append(char(3));
        ply.append(reinterpret_cast<const char*>(face), sizeof face);
    }
    ASSERT_TRUE(katest::writeFile(dir.file("tent.ply"), ply));
    QString error;
    osg::NodePtr root = kaSceneImport::load(dir.file("tent.ply"), error);
    ASSERT_TRUE(root) << error.toStdString();
    osg::GeometryPtr geometry = onlyGeometry(root);
    ASSERT_TRUE(geometry);
    const osg::Geometry::Mesh& mesh = geometry->getMesh();
    ASSERT_EQ(mesh.indices.size(), 6u);
    // Vertex 4 is used by no face; the rest are as written.
    EXPECT_GE(mesh.positions.size(), 5u);
    EXPECT_NE(mesh.indices[2], mesh.indices[5]) << "the doubled ridge end stays doubled";
    ASSERT_EQ(mesh.normals.size(), mesh.positions.size());
    const osg::Vec3f a = mesh.normals[mesh.indices[2]], b = mesh.normals[mesh.indices[5]];
    EXPECT_NEAR(a.x, b.x, 1e-5f);
    EXPECT_NEAR(a.y, b.y, 1e-5f);
    EXPECT_NEAR(a.z, b.z, 1e-5f);
    EXPECT_NEAR(a.x, 0.0f, 1e-5f) << "the ridge's normal points straight up";
    EXPECT_GT(a.y, 0.99f);
}

TEST(kaSceneImport, MissingAndBrokenFilesSayWhy) {
    katest::TempDir dir;
    QString error;
    EXPECT_FALSE(kaSceneImport::load(dir.file("none.gltf"), error));
    EXPECT_TRUE(error.contains("doesn't exist")) << error.toStdString();
    QFile broken(dir.file("broken.gltf"));
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
    broken.write("{ \"asset\": ");
    broken.close();
    error.clear();
    EXPECT_FALSE(kaSceneImport::load(dir.file("broken.gltf"), error));
    EXPECT_TRUE(error.startsWith("Couldn't read the scene file")) << error.toStdString();
}

TEST(kaSceneImport, KeyframeAnimationsPlayOnTheTimeline) {
    katest::TempDir dir;
    QFile file(dir.file("moving.gltf"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(katest::animatedGltf());
    file.close();
    QString error;
    std::vector<osg::AnimNodeBasePtr> animations;
    osg::NodePtr root = kaSceneImport::load(dir.file("moving.gltf"), error, &animations);
    ASSERT_TRUE(root) << error.toStdString();
    ASSERT_EQ(animations.size(), 1u);
    EXPECT_EQ(animations[0]->getName(), "Move");
    auto* animation = dynamic_cast<kaSceneAnimation*>(animations[0].get());
    ASSERT_TRUE(animation);
    EXPECT_DOUBLE_EQ(animation->getDuration(), 1.0);
    const osg::NodePtr mover = find(root, "Mover"), still = find(root, "Still");
    ASSERT_TRUE(mover && still);
    auto at = [](const osg::NodePtr& node) { return node->getToWorld().transformPoint({0, 0, 0}); };
    auto xAxis = [](const osg::NodePtr& node) {
        return node->getToWorld().transformVector({1, 0, 0});
    };

    // At 25 frames a second, frame 12.5 is half a second: half way, an eighth of a turn.
    kaAnimManager::setFramesPerSecond(25.0);
    animation->evaluate(12.5f);
    EXPECT_NEAR(at(mover).x, 1.0f, 1e-5f);
    EXPECT_NEAR(xAxis(mover).x, std::cos(float(M_PI) / 4), 1e-4f);
    EXPECT_NEAR(xAxis(mover).z, -std::sin(float(M_PI) / 4), 1e-4f);
    // Held after the last key, and at another frame rate the same second is another frame.
    kaAnimManager::setCurrentFrame(100, true, false);
    EXPECT_NEAR(at(mover).x, 2.0f, 1e-5f);
    EXPECT_NEAR(xAxis(mover).z, -1.0f, 1e-4f);
    kaAnimManager::setFramesPerSecond(50.0);
    animation->evaluate(25.0f);
    EXPECT_NEAR(at(mover).x, 1.0f, 1e-5f);
    EXPECT_NEAR(at(still).z, -1.0f, 1e-6f) << "a node without keys keeps its place";
    kaAnimManager::setFramesPerSecond(25.0);
    kaAnimManager::setCurrentFrame(0, false, false);
}

namespace {

// A white, fully rough square of 20 x 20 on the ground, a point light 'candela' strong at
// 'height' above its middle and a sun of 'lux' shining straight down (KHR_lights_punctual).
QByteArray litFloorGltf(float candela, float height, float lux) {
    const float positions[12] = {-10, 0, -10, 10, 0, -10, 10, 0, 10, -10, 0, 10};
    const float normals[12] = {0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1, 0};
    const uint16_t indices[6] = {0, 2, 1, 0, 3, 2};
    QByteArray buffer(reinterpret_cast<const char*>(positions), sizeof positions);
    buffer.append(reinterpret_cast<const char*>(normals), sizeof normals);
    buffer.append(reinterpret_cast<const char*>(indices), sizeof indices);
    QByteArray lights = QString(R"([{"type": "point", "intensity": %1, "color": [1, 0.5, 0.25]})")
                            .arg(double(candela))
                            .toUtf8();
    if (lux > 0)
        lights +=
            QString(R"(, {"type": "directional", "intensity": %1})").arg(double(lux)).toUtf8();
    lights += "]";
    const QByteArray nodes = lux > 0 ? "[0, 1, 2]" : "[0, 1]";
    return QByteArray(R"({
  "asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": )") +
           nodes + R"(}],
  "extensionsUsed": ["KHR_lights_punctual"],
  "extensions": {"KHR_lights_punctual": {"lights": )" +
           lights + R"(}},
  "nodes": [{"name": "Floor", "mesh": 0},
            {"name": "Bulb", "translation": [0, )" +
           QByteArray::number(double(height)) +
           R"(, 0], "extensions": {"KHR_lights_punctual": {"light": 0}}},
            {"name": "Sun", "rotation": [-0.7071068, 0, 0, 0.7071068], "extensions": {"KHR_lights_punctual": {"light": 1}}}],
  "meshes": [{"primitives": [{"attributes": {"POSITION": 0, "NORMAL": 1}, "indices": 2, "material": 0}]}],
  "materials": [{"name": "White", "pbrMetallicRoughness": {"baseColorFactor": [1, 1, 1, 1],
                 "metallicFactor": 0.0, "roughnessFactor": 1.0}}],
  "buffers": [{"byteLength": 108, "uri": "data:application/octet-stream;base64,)" +
           buffer.toBase64() + R"("}],
  "bufferViews": [{"buffer": 0, "byteOffset": 0, "byteLength": 48}, {"buffer": 0, "byteOffset": 48, "byteLength": 48},
                  {"buffer": 0, "byteOffset": 96, "byteLength": 12}],
  "accessors": [{"bufferView": 0, "componentType": 5126, "count": 4, "type": "VEC3", "min": [-10, 0, -10], "max": [10, 0, 10]},
                {"bufferView": 1, "componentType": 5126, "count": 4, "type": "VEC3"},
                {"bufferView": 2, "componentType": 5123, "count": 6, "type": "SCALAR"}]
})";
}

template <typename Light>
osg::RefPtr<Light> onlyLight(const osg::NodePtr& root) {
    osg::RefPtr<Light> found;
    for (const osg::NodePtr& node : osg::collectNodes(root))
        if (auto light = osg::dynamic_pointer_cast<Light>(node->getCore()))
            found = light;
    return found;
}

// The light a white diffuse surface facing a light of 'lumens' per square metre (or per
// steradian at one metre) sends back, in the renderers' units: W/m² over pi.
double radianceOf(double photometric) {
    return photometric / 683.0 / M_PI;
}

} // namespace

// glTF's candela and lux arrive as the light they give: a point light of 1000 cd exported by an
// authoring package is not 1000 times as bright as white.
TEST(kaSceneImport, GltfLightUnitsBecomeTheRenderersUnits) {
    katest::TempDir dir;
    ASSERT_TRUE(katest::writeFile(dir.file("lit.gltf"), litFloorGltf(1000.0f, 1.5f, 3.0f)));
    QString error;
    osg::NodePtr root = kaSceneImport::load(dir.file("lit.gltf"), error);
    ASSERT_TRUE(root) << error.toStdString();
    auto bulb = onlyLight<osg::PointLight>(root);
    auto sun = onlyLight<osg::DirectionalLight>(root);
    ASSERT_TRUE(bulb && sun);
    EXPECT_NEAR(bulb->getIntensity(), radianceOf(1000.0), 1e-6);
    EXPECT_NEAR(bulb->getColor().g, 0.5f, 1e-6f) << "the colour stays the colour";
    EXPECT_NEAR(sun->getIntensity(), radianceOf(3.0), 1e-6);
}

// A light of known candela at a known distance above a white diffuse floor: the raytraced
// diffuse light right below it is what photometry says.
TEST(kaSceneImport, AGltfLightLightsAWhiteFloorAsPhotometrySays) {
    katest::TempDir dir;
    const float candela = 500.0f, height = 1.5f;
    ASSERT_TRUE(katest::writeFile(dir.file("lit.gltf"), litFloorGltf(candela, height, 0.0f)));
    QString error;
    osg::NodePtr root = kaSceneImport::load(dir.file("lit.gltf"), error);
    ASSERT_TRUE(root) << error.toStdString();

    constexpr int side = 33; // an odd size: the middle pixel looks straight down
    const osg::ImagePtr diffuse =
        raytracedDiffuseLight(root, osg::Matrix::lookAt({0, 4, 0}, {0, 0, 0}, {0, 0, -1}), side);
    ASSERT_TRUE(diffuse);

    const osg::Color4f below = diffuse->getPixel(side / 2, side / 2);
    const double expected = radianceOf(candela) / (double(height) * double(height));
    EXPECT_NEAR(below.r, expected, expected * 0.05);
    EXPECT_NEAR(below.g, expected * 0.5, expected * 0.5 * 0.05) << "the light's colour";
}
