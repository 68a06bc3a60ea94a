// kaexport info: what a scene file holds, word for word, from files made here.
#include "kaTestSupport.h"
#include "kaTexturedScenes.h"
#include "kaexportProcess.h"

#include <QFile>

#include <gtest/gtest.h>

using katest::KaexportResult;
using katest::runKaexport;

namespace {

// One triangle in a node "Panel" with the material "Brass", a camera and a point light.
QByteArray panelGltf() {
    const float positions[9] = {0, 0, 0, 2, 0, 0, 0, 1, 0};
    const uint16_t indices[3] = {0, 1, 2};
    QByteArray buffer(reinterpret_cast<const char*>(positions), sizeof positions);
    buffer.append(reinterpret_cast<const char*>(indices), sizeof indices);
    return QByteArray(R"({
  "asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0, 1, 2]}],
  "extensionsUsed": ["KHR_lights_punctual"],
  "extensions": {"KHR_lights_punctual": {"lights": [{"type": "point", "intensity": 683}]}},
  "nodes": [{"name": "Panel", "mesh": 0, "translation": [1, 2, 3]},
            {"name": "Front View", "camera": 0, "translation": [0, 0, 10]},
            {"name": "Bulb", "translation": [0, 5, 0], "extensions": {"KHR_lights_punctual": {"light": 0}}}],
  "meshes": [{"name": "PanelMesh", "primitives": [{"attributes": {"POSITION": 0}, "indices": 1, "material": 0}]}],
  "materials": [{"name": "Brass", "pbrMetallicRoughness": {"baseColorFactor": [0.8, 0.6, 0.2, 1],
                 "metallicFactor": 1.0, "roughnessFactor": 0.3}}],
  "cameras": [{"type": "perspective", "perspective": {"yfov": 0.5, "znear": 0.1, "zfar": 100, "aspectRatio": 1.5}}],
  "buffers": [{"byteLength": 42, "uri": "data:application/octet-stream;base64,)") +
           buffer.toBase64() + R"("}],
  "bufferViews": [{"buffer": 0, "byteOffset": 0, "byteLength": 36}, {"buffer": 0, "byteOffset": 36, "byteLength": 6}],
  "accessors": [{"bufferView": 0, "componentType": 5126, "count": 3, "type": "VEC3", "min": [0, 0, 0], "max": [2, 1, 0]},
                {"bufferView": 1, "componentType": 5123, "count": 3, "type": "SCALAR"}]
})";
}

} // namespace

TEST(kaexportInfo, ListsWhatAGltfFileHolds) {
    katest::TempDir dir;
    ASSERT_TRUE(katest::writeFile(dir.file("panel.gltf"), panelGltf()));
    const KaexportResult r = runKaexport({"info", dir.file("panel.gltf")});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(r.out.toStdString(),
              "Scene: panel.gltf\n"
              "Objects: 1 (1 triangles)\n"
              "  \"Panel\": 1 triangles, material \"Brass\"\n"
              "Materials: 1\n"
              "  \"Brass\": base colour 0.8 0.6 0.2, metallic 1, roughness 0.3, opacity 1\n"
              "Cameras: 1\n"
              "  \"Front View\": at 0 0 10, vertical field of view 28.65 degrees, near 0.1, far "
              "100\n"
              "Lights: 1\n"
              "  \"Bulb\": point, at 0 5 0, power 0.3183 0.3183 0.3183\n"
              "Animations: 0\n"
              "Bounding box: from 1 2 3 to 3 3 3 (size 2 1 0)\n");
}

TEST(kaexportInfo, ASceneWithoutLightsOrCameraSaysHowItWillBeShown) {
    katest::TempDir dir;
    ASSERT_TRUE(katest::writeFile(dir.file("cube.obj"),
                                  "o Cube\nv -1 -1 -1\nv 1 -1 -1\nv 1 1 -1\nv -1 1 -1\nv -1 -1 1\n"
                                  "v 1 -1 1\nv 1 1 1\nv -1 1 1\nf 1 2 3 4\nf 5 8 7 6\nf 1 5 6 2\n"
                                  "f 2 6 7 3\nf 3 7 8 4\nf 5 1 4 8\n"));
    // The scene may also come from the program's --scene.
    KaexportResult r = runKaexport({"--scene", dir.file("cube.obj"), "info"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.contains("Objects: 1 (12 triangles)\n")) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains("Cameras: 0 (a camera is made that frames the whole scene)\n"));
    EXPECT_TRUE(r.out.contains("Lights: 0 (shown by the default lights: --headlight)\n"));
    EXPECT_TRUE(r.out.contains("Bounding box: from -1 -1 -1 to 1 1 1 (size 2 2 2)\n"));

    r = runKaexport({"--headlight", "off", "info", dir.file("cube.obj")});
    EXPECT_TRUE(r.out.contains("Lights: 0 (the default lights are off: black)\n"))
        << r.out.toStdString();
}

// Materials say what pictures they show and how their alpha covers the surface.
TEST(kaexportInfo, MaterialsNameTheirPicturesAndAlphaModes) {
    katest::TempDir dir;
    ASSERT_TRUE(katest::writeHalvesPicture(dir.file("quadrants.png")));
    katest::TexturedSquare square;
    square.alphaMode = "MASK";
    square.alphaCutoff = 0.25f;
    ASSERT_TRUE(katest::writeFile(dir.file("mask.gltf"), katest::texturedSquareGltf(square)));
    square.alphaMode = "BLEND";
    square.metallicRoughnessUri = "flat.png";
    square.emissive = 1;
    square.emissiveUri = "flat.png";
    ASSERT_TRUE(katest::writeFlatPicture(dir.file("flat.png"), 0, 255, 255));
    ASSERT_TRUE(katest::writeFile(dir.file("blend.gltf"), katest::texturedSquareGltf(square)));
    KaexportResult r = runKaexport({"info", dir.file("mask.gltf")});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.contains("  \"Painted\": base colour 1 1 1, metallic 0, roughness 1, "
                               "opacity 1, picture 64 x 64, alpha cut-off 0.25\n"))
        << r.out.toStdString();
    r = runKaexport({"info", dir.file("blend.gltf")});
    EXPECT_TRUE(r.out.contains("  \"Painted\": base colour 1 1 1, metallic 0, roughness 1, "
                               "opacity 1, emission 1 1 1, picture 64 x 64, metallic-roughness "
                               "picture 4 x 4, emission picture 4 x 4, picture's alpha blended\n"))
        << r.out.toStdString();
}

// Orthographic cameras say how much they show instead of an angle.
TEST(kaexportInfo, OrthographicCamerasSayTheirHeight) {
    const QString scene = QString(KA_TEST_SOURCE_DIR) + "/../data/blender/ortho.dae";
    const KaexportResult r = runKaexport({"info", scene});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.contains("Cameras: 1\n  \"Plan\": at 0 10 0, orthographic, 3 high, near "
                               "0.1, far 1000\n"))
        << r.out.toStdString();
}

// Spot lights say where they shine and how wide (tests/data/blender/makeSpot.py).
TEST(kaexportInfo, SpotLightsSayTheirCone) {
    const QString scene = QString(KA_TEST_SOURCE_DIR) + "/../data/blender/spot.glb";
    const KaexportResult r = runKaexport({"info", scene});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.contains("Lights: 1\n  \"Spot\": spot, at 0 4 0, shining along 0 -1 0, cone "
                               "22.5 to 30 degrees, power 25.33 25.33 25.33\n"))
        << r.out.toStdString();
}

TEST(kaexportInfo, AFileThatCantBeReadIsNamedWithTheCause) {
    katest::TempDir dir;
    KaexportResult r = runKaexport({"info", dir.file("missing.gltf")});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err.toStdString(), "kaexport info: The scene file '" +
                                       dir.file("missing.gltf").toStdString() +
                                       "' doesn't exist.\n");
    ASSERT_TRUE(katest::writeFile(dir.file("empty.obj"), "# nothing\n"));
    r = runKaexport({"info", dir.file("empty.obj")});
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.err.contains("empty.obj")) << r.err.toStdString();
    EXPECT_TRUE(r.out.isEmpty());
}
