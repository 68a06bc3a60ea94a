// kaexport --camera, --view and --fit: which camera a picture is taken with.
#include "kaTestSupport.h"
#include "kaexportProcess.h"

#include <QFile>

#include <gtest/gtest.h>

#include <tuple>

using katest::KaexportResult;
using katest::raytracingArgs;
using katest::runKaexport;

namespace {

constexpr int W = 64, H = 48;

// Whether the picture's middle shows the red cube (3 channels a pixel).
bool redInTheMiddle(const std::vector<float>& values) {
    const size_t at = (size_t(H / 2) * W + W / 2) * 3;
    return values.size() > at + 2 && values[at] > values[at + 1] + 0.2f;
}

// A red cube 20 units behind a camera "Ahead" that looks down -Z from the origin, and a second
// camera "Behind" at z = 30 that looks at the cube; no lights (the default lights show it).
QByteArray cubeBehindTheCamera() {
    const float p[24] = {-1, -1, -1, 1, -1, -1, 1, 1, -1, -1, 1, -1,
                         -1, -1, 1,  1, -1, 1,  1, 1, 1,  -1, 1, 1};
    const uint16_t i[36] = {0, 2, 1, 0, 3, 2, 4, 5, 6, 4, 6, 7, 0, 1, 5, 0, 5, 4,
                            1, 2, 6, 1, 6, 5, 2, 3, 7, 2, 7, 6, 3, 0, 4, 3, 4, 7};
    QByteArray buffer(reinterpret_cast<const char*>(p), sizeof p);
    buffer.append(reinterpret_cast<const char*>(i), sizeof i);
    return QByteArray(R"({
  "asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0, 1, 2]}],
  "nodes": [{"name": "Cube", "mesh": 0, "translation": [0, 0, 20]},
            {"name": "Ahead", "camera": 0},
            {"name": "Behind", "camera": 1, "translation": [0, 0, 30]}],
  "meshes": [{"primitives": [{"attributes": {"POSITION": 0}, "indices": 1, "material": 0}]}],
  "materials": [{"name": "Red", "pbrMetallicRoughness": {"baseColorFactor": [0.9, 0.05, 0.05, 1],
                 "metallicFactor": 0.0, "roughnessFactor": 1.0}}],
  "cameras": [{"type": "perspective", "perspective": {"yfov": 0.6, "znear": 0.1, "zfar": 200}},
              {"type": "perspective", "perspective": {"yfov": 0.6, "znear": 0.1, "zfar": 200}}],
  "buffers": [{"byteLength": 168, "uri": "data:application/octet-stream;base64,)") +
           buffer.toBase64() + R"("}],
  "bufferViews": [{"buffer": 0, "byteOffset": 0, "byteLength": 96}, {"buffer": 0, "byteOffset": 96, "byteLength": 72}],
  "accessors": [{"bufferView": 0, "componentType": 5126, "count": 8, "type": "VEC3", "min": [-1, -1, -1], "max": [1, 1, 1]},
                {"bufferView": 1, "componentType": 5123, "count": 36, "type": "SCALAR"}]
})";
}

} // namespace

class kaexportCamera : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(katest::writeFile(scene, cubeBehindTheCamera())); }
    std::vector<float> snapshot(const QStringList& options) {
        const QString out = dir.file(QString("shot%1.png").arg(++count));
        const KaexportResult r = runKaexport(
            options + QStringList{"--scene", scene, "snapshot", out, "--width", QString::number(W),
                                  "--height", QString::number(H), "--ss", "0"});
        EXPECT_EQ(r.code, 0) << r.err.toStdString();
        return katest::imagePixels(out);
    }
    katest::TempDir dir;
    const QString scene = dir.file("cube.gltf");
    int count = 0;
};

TEST_F(kaexportCamera, TheFirstCameraUnlessNamedOrNumbered) {
    const std::vector<float> first = snapshot({});
    ASSERT_FALSE(first.empty());
    EXPECT_FALSE(redInTheMiddle(first)) << "the first camera looks away from the cube";
    EXPECT_EQ(snapshot({"--camera", "1"}), first);
    const std::vector<float> behind = snapshot({"--camera", "Behind"});
    EXPECT_TRUE(redInTheMiddle(behind));
    EXPECT_EQ(snapshot({"--camera", "2"}), behind) << "by its number";
}

TEST_F(kaexportCamera, ACameraThatIsntThereIsNamedWithThoseThatAre) {
    const KaexportResult r =
        runKaexport({"--scene", scene, "--camera", "Side", "snapshot", dir.file("a.png")});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err.toStdString(),
              "kaexport: The scene has no camera 'Side'; its cameras: 'Ahead', 'Behind'.\n");
    EXPECT_FALSE(QFile::exists(dir.file("a.png")));
    EXPECT_EQ(runKaexport({"--scene", scene, "--view", "up", "snapshot", dir.file("a.png")}).code,
              2);
}

TEST_F(kaexportCamera, FitAndViewsShowTheWholeScene) {
    // Along the first camera's direction, moved back until the cube is in the picture.
    EXPECT_TRUE(redInTheMiddle(snapshot({"--fit"})));
    for (const char* side : {"front", "back", "left", "right", "top", "bottom", "iso"})
        EXPECT_TRUE(redInTheMiddle(snapshot({"--view", side}))) << side;
}

namespace {

// The box around the red pixels of a 320 x 240 RGB picture (rows from the top).
struct RedBox {
    int left = 320, right = -1, top = 240, bottom = -1;
};
RedBox redBox(const std::vector<float>& values) {
    RedBox box;
    for (int y = 0; y < 240; ++y)
        for (int x = 0; x < 320; ++x) {
            const float* p = &values[(size_t(y) * 320 + size_t(x)) * 3];
            if (p[0] > p[1] + 0.2f) {
                box.left = std::min(box.left, x), box.right = std::max(box.right, x);
                box.top = std::min(box.top, y), box.bottom = std::max(box.bottom, y);
            }
        }
    return box;
}

} // namespace

// Cameras as an authoring package writes them (files Blender made, tests/data/blender): the
// cube it looked at covers the pixels its camera projects it to. (The FBX camera looks along
// its node's +X, in a file scaled to centimetres; COLLADA and FBX give the whole horizontal
// angle.)
class kaexportAuthoredCamera : public testing::TestWithParam<const char*> {};

TEST_P(kaexportAuthoredCamera, FramesTheSceneAsItsAuthorDid) {
    katest::TempDir dir;
    const QString scene = QString(KA_TEST_SOURCE_DIR) + "/../data/blender/" + GetParam();
    const KaexportResult r = runKaexport({"--scene", scene, "snapshot", dir.file("shot.png"),
                                          "--width", "320", "--height", "240", "--ss", "0"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const std::vector<float> values = katest::imagePixels(dir.file("shot.png"));
    ASSERT_EQ(values.size(), size_t(320 * 240 * 3));
    const RedBox box = redBox(values);
    // The cube's corners projected through Blender's camera: x from 118.9 to 199.8, y from
    // 80.8 to 164.0 (rows from the top).
    EXPECT_NEAR(box.left, 119, 1);
    EXPECT_NEAR(box.right, 199, 1);
    EXPECT_NEAR(box.top, 81, 1);
    EXPECT_NEAR(box.bottom, 163, 1);
}

INSTANTIATE_TEST_SUITE_P(Formats, kaexportAuthoredCamera,
                         testing::Values("shot.fbx", "shot.dae", "shot.glb"),
                         [](const testing::TestParamInfo<const char*>& info) {
                             return std::string(info.param).substr(5);
                         });

// Orthographic cameras (files Blender made, tests/data/blender/makeOrtho.py): the red cube of
// side 1 seen from above through a picture 4 units wide is 80 x 80 pixels in the middle of
// 320 x 240, in both renderers. (Assimp reads COLLADA's and FBX's orthographic cameras as
// perspective ones; the files' own camera records say what they are.)
class kaexportOrthographicCamera : public testing::TestWithParam<std::tuple<const char*, bool>> {};

TEST_P(kaexportOrthographicCamera, ShowsTheScaleItsAuthorChose) {
    katest::TempDir dir;
    const auto [file, raytraced] = GetParam();
    const QString scene = QString(KA_TEST_SOURCE_DIR) + "/../data/blender/" + file;
    QStringList args{"--scene", scene, "--camera", "Plan", "snapshot", dir.file("plan.png"),
                     "--width", "320", "--height", "240",  "--ss",     "0"};
    args << raytracingArgs(raytraced, 1);
    const KaexportResult r = runKaexport(args);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const std::vector<float> values = katest::imagePixels(dir.file("plan.png"));
    ASSERT_EQ(values.size(), size_t(320 * 240 * 3));
    const RedBox box = redBox(values);
    EXPECT_EQ(box.left, 120);
    EXPECT_EQ(box.right, 199);
    EXPECT_EQ(box.top, 80);
    EXPECT_EQ(box.bottom, 159);
}

// Fitting with an orthographic camera keeps it orthographic: the sphere around the cube
// (radius 0.866) fills the picture's height, so the cube's top is 240 / 1.732 = 138.6 pixels.
TEST(kaexportOrthographicFit, FillsThePictureWithTheScene) {
    katest::TempDir dir;
    const QString scene = QString(KA_TEST_SOURCE_DIR) + "/../data/blender/ortho.glb";
    const KaexportResult r =
        runKaexport({"--scene", scene, "--camera", "Plan", "--fit", "snapshot", dir.file("fit.png"),
                     "--width", "320", "--height", "240", "--ss", "0"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const std::vector<float> values = katest::imagePixels(dir.file("fit.png"));
    ASSERT_EQ(values.size(), size_t(320 * 240 * 3));
    const RedBox box = redBox(values);
    EXPECT_NEAR(box.bottom - box.top + 1, 138.6, 1.0);
    EXPECT_NEAR(box.right - box.left + 1, 138.6, 1.0);
}

INSTANTIATE_TEST_SUITE_P(FormatsAndRenderers, kaexportOrthographicCamera,
                         testing::Combine(testing::Values("ortho.dae", "ortho.fbx", "ortho.glb"),
                                          testing::Values(false, true)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param)).substr(6) +
                                    (std::get<1>(info.param) ? "Raytracer" : "OpenGL");
                         });
