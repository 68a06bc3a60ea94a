// Scenes from other programs' files rendered as their authors made them: vertex colours and
// base-colour pictures.
#include "kaTestSupport.h"
#include "kaTexturedScenes.h"
#include "kaexportProcess.h"

#include <OpenImageIO/imageio.h>

#include <assimp/Exporter.hpp>
#include <assimp/Importer.hpp>
#include <assimp/scene.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <tuple>

using katest::KaexportResult;
using katest::raytracingArgs;
using katest::runKaexport;

namespace {

constexpr int W = 64, H = 48;

// A square facing +Z whose corners are all coloured orange, as scanners write PLY files.
const char* const kOrangeSquarePly = "ply\n"
                                     "format ascii 1.0\n"
                                     "element vertex 4\n"
                                     "property float x\n"
                                     "property float y\n"
                                     "property float z\n"
                                     "property uchar red\n"
                                     "property uchar green\n"
                                     "property uchar blue\n"
                                     "element face 2\n"
                                     "property list uchar int vertex_indices\n"
                                     "end_header\n"
                                     "-1 -1 0 255 128 0\n"
                                     "1 -1 0 255 128 0\n"
                                     "1 1 0 255 128 0\n"
                                     "-1 1 0 255 128 0\n"
                                     "3 0 1 2\n"
                                     "3 0 2 3\n";

} // namespace

class kaexportImportedScenes : public testing::TestWithParam<bool> {};

TEST_P(kaexportImportedScenes, VertexColoursReachThePixels) {
    katest::TempDir dir;
    ASSERT_TRUE(katest::writeFile(dir.file("square.ply"), kOrangeSquarePly));
    QStringList args{"--scene",  dir.file("square.ply"), "--view",  "front",
                     "snapshot", dir.file("square.png"), "--width", QString::number(W),
                     "--height", QString::number(H),     "--ss",    "0"};
    args << raytracingArgs(GetParam(), 4);
    const KaexportResult r = runKaexport(args);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const std::vector<float> pixels = katest::imagePixels(dir.file("square.png"));
    const size_t at = (size_t(H / 2) * W + W / 2) * 3;
    ASSERT_GT(pixels.size(), at + 2);
    const float red = pixels[at], green = pixels[at + 1], blue = pixels[at + 2];
    // Orange (1, 0.5, 0) lit by the default lights, with the headlight's white highlight on
    // top (the square faces the camera): red strongest, then green, then blue.
    EXPECT_GT(red, green + 0.1f) << red << " " << green << " " << blue;
    EXPECT_GT(green, blue + 0.1f) << red << " " << green << " " << blue;
}

namespace {

constexpr int kSide = 96;

// Renders 'scene' from the front into 'out' (kSide square), raytraced when asked.
KaexportResult renderFront(const QString& scene, const QString& out, bool raytraced,
                           const QStringList& more = {}) {
    QStringList args{"--scene",  scene,
                     "--view",   "front",
                     "snapshot", out,
                     "--width",  QString::number(kSide),
                     "--height", QString::number(kSide),
                     "--ss",     "0"};
    args << raytracingArgs(raytraced, 4);
    return runKaexport(args + more);
}

struct Rgb {
    float r, g, b;
};

// The pixel (x, y), y from the top, of a picture of 'channels' channels kSide wide.
Rgb pixelAt(const std::vector<float>& pixels, int channels, int x, int y) {
    const size_t at = (size_t(y) * kSide + size_t(x)) * size_t(channels);
    if (pixels.size() < at + 3)
        return {-1, -1, -1};
    return {pixels[at], pixels[at + 1], pixels[at + 2]};
}

std::string text(const Rgb& c) {
    return std::to_string(c.r) + " " + std::to_string(c.g) + " " + std::to_string(c.b);
}

// Where the square's quadrants show: a quarter of the way in from its corners.
constexpr int kLeft = kSide / 2 - 12, kRight = kSide / 2 + 12, kTop = kSide / 2 - 12,
              kBottom = kSide / 2 + 12;

} // namespace

// The quadrant picture on a square seen from the front shows upright, each quadrant in its
// colour, in both renderers; its sRGB grey is decoded, so it equals a plain material of the
// decoded value.
TEST_P(kaexportImportedScenes, BaseColourPicturesShowUprightAndDecoded) {
    katest::TempDir dir;
    ASSERT_TRUE(katest::writeQuadrantPicture(dir.file("quadrants.png")));
    ASSERT_TRUE(katest::writeFile(dir.file("square.gltf"),
                                  katest::texturedSquareGltf(katest::TexturedSquare())));
    katest::TexturedSquare plain;
    plain.textured = false;
    plain.baseColor = katest::kQuadrantGreyLinear;
    ASSERT_TRUE(katest::writeFile(dir.file("plain.gltf"), katest::texturedSquareGltf(plain)));
    KaexportResult r = renderFront(dir.file("square.gltf"), dir.file("square.png"), GetParam());
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    r = renderFront(dir.file("plain.gltf"), dir.file("plain.png"), GetParam());
    ASSERT_EQ(r.code, 0) << r.err.toStdString();

    const std::vector<float> pixels = katest::imagePixels(dir.file("square.png"));
    const Rgb topLeft = pixelAt(pixels, 3, kLeft, kTop),
              topRight = pixelAt(pixels, 3, kRight, kTop),
              bottomLeft = pixelAt(pixels, 3, kLeft, kBottom),
              bottomRight = pixelAt(pixels, 3, kRight, kBottom);
    // Lit colours, with the white sheen of the headlight's highlight on the other channels.
    EXPECT_GT(topLeft.r, 0.6f) << text(topLeft);
    EXPECT_LT(std::max(topLeft.g, topLeft.b), 0.35f) << text(topLeft);
    EXPECT_GT(topRight.g, 0.6f) << text(topRight);
    EXPECT_LT(std::max(topRight.r, topRight.b), 0.35f) << text(topRight);
    EXPECT_GT(bottomLeft.b, 0.6f) << text(bottomLeft);
    EXPECT_LT(std::max(bottomLeft.r, bottomLeft.g), 0.35f) << text(bottomLeft);

    // The grey quadrant is the plain grey material (a texel is decoded before it is lit).
    const Rgb grey = pixelAt(katest::imagePixels(dir.file("plain.png")), 3, kRight, kBottom);
    const float tolerance = GetParam() ? 0.03f : 2.5f / 255.0f;
    EXPECT_NEAR(bottomRight.r, grey.r, tolerance) << text(bottomRight) << " vs " << text(grey);
    EXPECT_NEAR(bottomRight.g, grey.g, tolerance) << text(bottomRight) << " vs " << text(grey);
    EXPECT_NEAR(bottomRight.b, grey.b, tolerance) << text(bottomRight) << " vs " << text(grey);

    // The three coloured quadrants cover the same area.
    int red = 0, green = 0, blue = 0;
    for (size_t i = 0; i + 2 < pixels.size(); i += 3) {
        const float r = pixels[i], g = pixels[i + 1], b = pixels[i + 2];
        red += r > 0.6f && g < 0.35f && b < 0.35f;
        green += g > 0.6f && r < 0.35f && b < 0.35f;
        blue += b > 0.6f && r < 0.35f && g < 0.35f;
    }
    EXPECT_GT(red, 200);
    EXPECT_NEAR(green, red, red / 10) << red << " red, " << green << " green";
    EXPECT_NEAR(blue, red, red / 10) << red << " red, " << blue << " blue";
}

// The halves picture's alpha under each of glTF's alpha modes: ignored, cutting its right half
// out, or letting the background show through it.
TEST_P(kaexportImportedScenes, AlphaModesCoverAsAuthored) {
    katest::TempDir dir;
    ASSERT_TRUE(katest::writeHalvesPicture(dir.file("quadrants.png")));
    const int middle = kSide / 2;
    struct Seen {
        Rgb left, right, background;
    };
    auto render = [&](const QByteArray& mode) {
        katest::TexturedSquare square;
        square.alphaMode = mode;
        const QString scene = dir.file(QString(mode) + ".gltf"),
                      out = dir.file(QString(mode) + ".png");
        EXPECT_TRUE(katest::writeFile(scene, katest::texturedSquareGltf(square)));
        const KaexportResult r = renderFront(scene, out, GetParam());
        EXPECT_EQ(r.code, 0) << r.err.toStdString();
        const std::vector<float> pixels = katest::imagePixels(out);
        // The background is a vertical gradient: its colour on the same row, left of the square.
        return Seen{pixelAt(pixels, 3, kLeft, middle), pixelAt(pixels, 3, kRight, middle),
                    pixelAt(pixels, 3, 2, middle)};
    };
    const Seen opaque = render("OPAQUE"), mask = render("MASK"), blend = render("BLEND");
    for (const Seen& seen : {opaque, mask, blend})
        EXPECT_GT(seen.left.g, seen.left.r + 0.5f) << "the left half is solid green";
    EXPECT_NEAR(opaque.right.g, opaque.left.g, 0.02f) << "alpha ignored";
    EXPECT_NEAR(opaque.right.r, opaque.left.r, 0.02f) << "alpha ignored";
    EXPECT_NEAR(mask.right.r, mask.background.r, 0.02f) << text(mask.right);
    EXPECT_NEAR(mask.right.g, mask.background.g, 0.02f) << text(mask.right);
    EXPECT_NEAR(mask.right.b, mask.background.b, 0.02f) << text(mask.right);
    // A quarter of green over the light grey background: red between the two.
    EXPECT_LT(blend.right.r, blend.background.r - 0.05f)
        << text(blend.right) << " over " << text(blend.background);
    EXPECT_GT(blend.right.r, opaque.right.r + 0.1f)
        << text(blend.right) << " vs green " << text(opaque.right);
}

// glTF's metallic-roughness picture multiplies the factors: a metal of roughness factor 1
// whose picture's green says 0.2 shines like a metal of roughness 0.2, with the headlight's
// highlight in the middle of the square.
TEST_P(kaexportImportedScenes, MetallicRoughnessPicturesMultiplyTheFactors) {
    katest::TempDir dir;
    ASSERT_TRUE(katest::writeFlatPicture(dir.file("metal-roughness.png"), 0, 51, 255));
    katest::TexturedSquare rough;
    rough.textured = false;
    rough.baseColor = 0.5f;
    rough.metallic = 1;
    katest::TexturedSquare smooth = rough, mapped = rough;
    smooth.roughness = 0.2f;
    mapped.metallicRoughnessUri = "metal-roughness.png";
    auto render = [&](const katest::TexturedSquare& square, const QString& name) {
        EXPECT_TRUE(
            katest::writeFile(dir.file(name + ".gltf"), katest::texturedSquareGltf(square)));
        const KaexportResult r =
            renderFront(dir.file(name + ".gltf"), dir.file(name + ".png"), GetParam());
        EXPECT_EQ(r.code, 0) << r.err.toStdString();
        return pixelAt(katest::imagePixels(dir.file(name + ".png")), 3, kSide / 2, kSide / 2);
    };
    const Rgb expected = render(smooth, "smooth"), got = render(mapped, "mapped"),
              unmapped = render(rough, "rough");
    const float tolerance = GetParam() ? 0.03f : 1.5f / 255.0f;
    EXPECT_NEAR(got.r, expected.r, tolerance) << text(got) << " vs " << text(expected);
    EXPECT_NEAR(got.g, expected.g, tolerance) << text(got) << " vs " << text(expected);
    EXPECT_GT(std::fabs(unmapped.r - expected.r), 0.1f)
        << "a rough metal looks otherwise: " << text(unmapped) << " vs " << text(expected);
}

// An emission picture multiplies the emissive colour, decoded from sRGB: a black square that
// glows with the quadrant picture (and no light) shows the picture itself.
TEST_P(kaexportImportedScenes, EmissionPicturesGlowAsPainted) {
    katest::TempDir dir;
    ASSERT_TRUE(katest::writeQuadrantPicture(dir.file("quadrants.png")));
    katest::TexturedSquare square;
    square.textured = false;
    square.baseColor = 0;
    square.emissive = 1;
    square.emissiveUri = "quadrants.png";
    ASSERT_TRUE(katest::writeFile(dir.file("glow.gltf"), katest::texturedSquareGltf(square)));
    const KaexportResult r = renderFront(dir.file("glow.gltf"), dir.file("glow.png"), GetParam(),
                                         {"--headlight", "off"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const std::vector<float> pixels = katest::imagePixels(dir.file("glow.png"));
    const Rgb red = pixelAt(pixels, 3, kLeft, kTop), grey = pixelAt(pixels, 3, kRight, kBottom);
    EXPECT_NEAR(red.r, 1.0f, 0.01f) << text(red);
    EXPECT_NEAR(red.g, 0.0f, 0.01f) << text(red);
    EXPECT_NEAR(grey.r, 128 / 255.0f, 0.01f) << text(grey);
    EXPECT_NEAR(grey.b, 128 / 255.0f, 0.01f) << text(grey);
}

// The quadrant square written by Assimp's own exporters (OBJ with MTL, FBX, COLLADA) keeps its
// picture upright in every format. (Its FBX is the text kind: Assimp 5.2 can't read back the
// binary FBX it writes; Blender's binary files read fine.)
TEST_P(kaexportImportedScenes, PicturesSurviveOtherFormats) {
    katest::TempDir dir;
    ASSERT_TRUE(katest::writeQuadrantPicture(dir.file("quadrants.png")));
    ASSERT_TRUE(katest::writeFile(dir.file("square.gltf"),
                                  katest::texturedSquareGltf(katest::TexturedSquare())));
    Assimp::Importer importer;
    const aiScene* scene = importer.ReadFile(dir.fileStd("square.gltf"), 0);
    ASSERT_TRUE(scene) << importer.GetErrorString();
    for (const auto& [format, suffix] :
         {std::pair<const char*, const char*>{"obj", "obj"}, {"fbxa", "fbx"}, {"collada", "dae"}}) {
        const QString file = dir.file(QString("square.") + suffix);
        Assimp::Exporter exporter;
        ASSERT_EQ(exporter.Export(scene, format, file.toStdString()), AI_SUCCESS)
            << exporter.GetErrorString();
        const QString out = dir.file(QString(suffix) + ".png");
        const KaexportResult r = renderFront(file, out, GetParam());
        ASSERT_EQ(r.code, 0) << suffix << ": " << r.err.toStdString();
        const std::vector<float> pixels = katest::imagePixels(out);
        const Rgb topLeft = pixelAt(pixels, 3, kLeft, kTop),
                  topRight = pixelAt(pixels, 3, kRight, kTop),
                  bottomLeft = pixelAt(pixels, 3, kLeft, kBottom);
        EXPECT_GT(topLeft.r, std::max(topLeft.g, topLeft.b) + 0.3f)
            << suffix << " " << text(topLeft);
        EXPECT_GT(topRight.g, std::max(topRight.r, topRight.b) + 0.3f)
            << suffix << " " << text(topRight);
        EXPECT_GT(bottomLeft.b, std::max(bottomLeft.r, bottomLeft.g) + 0.3f)
            << suffix << " " << text(bottomLeft);
    }
}

INSTANTIATE_TEST_SUITE_P(Renderers, kaexportImportedScenes, testing::Values(false, true),
                         [](const testing::TestParamInfo<bool>& info) {
                             return info.param ? "Raytracer" : "OpenGL";
                         });

// The raytracer's albedo pass is the picture itself, decoded to linear light.
TEST(kaexportImportedScenesAlbedo, TheAlbedoPassShowsThePicture) {
    katest::TempDir dir;
    ASSERT_TRUE(katest::writeQuadrantPicture(dir.file("quadrants.png")));
    ASSERT_TRUE(katest::writeFile(dir.file("square.gltf"),
                                  katest::texturedSquareGltf(katest::TexturedSquare())));
    const KaexportResult r =
        renderFront(dir.file("square.gltf"), dir.file("square.exr"), true, {"--passes", "albedo"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const std::vector<float> albedo = katest::imagePixels(dir.file("square-albedo.exr"));
    auto expectColour = [&](int x, int y, Rgb want, const char* where) {
        const Rgb got = pixelAt(albedo, 3, x, y);
        EXPECT_NEAR(got.r, want.r, 0.01f) << where << ": " << text(got);
        EXPECT_NEAR(got.g, want.g, 0.01f) << where << ": " << text(got);
        EXPECT_NEAR(got.b, want.b, 0.01f) << where << ": " << text(got);
    };
    const float grey = katest::kQuadrantGreyLinear;
    expectColour(kLeft, kTop, {1, 0, 0}, "top-left");
    expectColour(kRight, kTop, {0, 1, 0}, "top-right");
    expectColour(kLeft, kBottom, {0, 0, 1}, "bottom-left");
    expectColour(kRight, kBottom, {grey, grey, grey}, "bottom-right");
}

namespace {

// The mean Rec. 709 luminance of a linear picture of 'channels' channels.
double meanLuminance(const std::vector<float>& pixels, int channels) {
    double sum = 0;
    const size_t count = pixels.size() / size_t(channels);
    for (size_t i = 0; i < count; ++i) {
        const float* p = &pixels[i * size_t(channels)];
        sum += 0.2126 * p[0] + 0.7152 * p[1] + 0.0722 * p[2];
    }
    return count ? sum / double(count) : 0.0;
}

} // namespace

// A lit scene exported by an authoring package (Blender, tests/data/blender/makeLit.py) looks
// as bright as the package's own render of it (Cycles), through the scene's camera, whichever
// format carried it and whichever renderer draws it. (The FBX file's lights are 0.8 as bright:
// Blender's exporter writes its light template's colour as grey 0.8 and leaves a white light's
// own colour out, so the file says grey 0.8.)
class kaexportAuthoredExposure : public testing::TestWithParam<std::tuple<const char*, bool>> {};

TEST_P(kaexportAuthoredExposure, MeanLuminanceMatchesTheAuthoringPackagesRender) {
    const QString folder = QString(KA_TEST_SOURCE_DIR) + "/../data/blender/";
    const std::vector<float> cycles = katest::imagePixels(folder + "lit-cycles.exr");
    ASSERT_EQ(cycles.size(), size_t(160 * 120 * 3));
    const double expected = meanLuminance(cycles, 3);
    ASSERT_GT(expected, 0.1);

    katest::TempDir dir;
    const auto [format, raytraced] = GetParam();
    QStringList args{"--scene",   folder + "lit." + format,
                     "--camera",  "Shot",
                     "snapshot",  dir.file("ours.exr"),
                     "--width",   "160",
                     "--height",  "120",
                     "--no-alpha"};
    if (raytraced)
        args << "--raytracing"
             << "--samples"
             << "16"
             << "--ss"
             << "0";
    else
        args << "--ss"
             << "2";
    const KaexportResult r = runKaexport(args);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const std::vector<float> ours = katest::imagePixels(dir.file("ours.exr"));
    ASSERT_EQ(ours.size(), cycles.size());
    const double ratio = meanLuminance(ours, 3) / expected;
    EXPECT_GT(ratio, 0.75) << format;
    EXPECT_LT(ratio, 1.25) << format;
    std::printf("mean luminance of lit.%s (%s) / Cycles': %.3f\n", format,
                raytraced ? "raytraced" : "OpenGL", ratio);
}

INSTANTIATE_TEST_SUITE_P(FormatsAndRenderers, kaexportAuthoredExposure,
                         testing::Combine(testing::Values("glb", "fbx", "dae"),
                                          testing::Values(false, true)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param)) +
                                    (std::get<1>(info.param) ? "Raytracer" : "OpenGL");
                         });

// Cryptomatte mattes carry the names the author gave objects and materials ("Floor", "Box"),
// not those of the mesh data inside them (Blender's "Plane", "Cube"), whichever format carried
// them.
class kaexportAuthoredNames : public testing::TestWithParam<const char*> {};

TEST_P(kaexportAuthoredNames, CryptomatteManifestsNameObjectsAndMaterials) {
    katest::TempDir dir;
    const QString scene = QString(KA_TEST_SOURCE_DIR) + "/../data/blender/lit." + GetParam();
    const KaexportResult r = runKaexport(
        {"--scene", scene, "--camera", "Shot", "snapshot", dir.file("mattes.exr"), "--raytracing",
         "--passes", "cryptoObject00,cryptoMaterial00", "--width", "32", "--height", "24",
         "--samples", "1", "--set", "ImageExport multi layer exr=true"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    auto in = OIIO::ImageInput::open(dir.fileStd("mattes.exr"));
    ASSERT_TRUE(in);
    EXPECT_EQ(in->spec().get_string_attribute("cryptomatte/1a4aca8/manifest"),
              R"({"Box":"80bb1009","Floor":"6a2fb16e"})");
    EXPECT_EQ(in->spec().get_string_attribute("cryptomatte/6af633d/manifest"),
              R"({"Grey":"f970f186","Red":"6e1a9181"})");
}

INSTANTIATE_TEST_SUITE_P(Formats, kaexportAuthoredNames, testing::Values("glb", "fbx", "dae"));

// A textured poster as Blender exports it (tests/data/blender/makeTextured.py): the picture
// inside the glb and the FBX file, or beside the COLLADA and OBJ files, shows upright from the
// front in both renderers.
class kaexportAuthoredPicture : public testing::TestWithParam<std::tuple<const char*, bool>> {};

TEST_P(kaexportAuthoredPicture, ShowsUprightFromTheFront) {
    katest::TempDir dir;
    const auto [format, raytraced] = GetParam();
    const QString scene = QString(KA_TEST_SOURCE_DIR) + "/../data/blender/poster." + format;
    const KaexportResult r = renderFront(scene, dir.file("poster.png"), raytraced);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_FALSE(r.err.contains("isn't used")) << r.err.toStdString();
    const std::vector<float> pixels = katest::imagePixels(dir.file("poster.png"));
    const Rgb topLeft = pixelAt(pixels, 3, kLeft, kTop),
              topRight = pixelAt(pixels, 3, kRight, kTop),
              bottomLeft = pixelAt(pixels, 3, kLeft, kBottom),
              bottomRight = pixelAt(pixels, 3, kRight, kBottom);
    EXPECT_GT(topLeft.r, std::max(topLeft.g, topLeft.b) + 0.3f) << text(topLeft);
    EXPECT_GT(topRight.g, std::max(topRight.r, topRight.b) + 0.3f) << text(topRight);
    EXPECT_GT(bottomLeft.b, std::max(bottomLeft.r, bottomLeft.g) + 0.3f) << text(bottomLeft);
    EXPECT_LT(std::max({bottomRight.r, bottomRight.g, bottomRight.b}) -
                  std::min({bottomRight.r, bottomRight.g, bottomRight.b}),
              0.05f)
        << "grey: " << text(bottomRight);
}

INSTANTIATE_TEST_SUITE_P(FormatsAndRenderers, kaexportAuthoredPicture,
                         testing::Combine(testing::Values("glb", "fbx", "dae", "obj"),
                                          testing::Values(false, true)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param)) +
                                    (std::get<1>(info.param) ? "Raytracer" : "OpenGL");
                         });

// A spot light lights its cone only (tests/data/blender/makeSpot.py): seen from above, the lit
// disc on the floor is 2 x 4 tan(30 degrees) = 4.62 m across the 20 m floor, in every format and
// both renderers.
class kaexportAuthoredSpot : public testing::TestWithParam<std::tuple<const char*, bool>> {};

TEST_P(kaexportAuthoredSpot, LightsItsConeOnly) {
    katest::TempDir dir;
    const auto [format, raytraced] = GetParam();
    const QString scene = QString(KA_TEST_SOURCE_DIR) + "/../data/blender/spot." + format;
    constexpr int side = 200;
    QStringList args{"--scene",    scene,
                     "--view",     "top",
                     "--exposure", "-3",
                     "snapshot",   dir.file("spot.png"),
                     "--width",    QString::number(side),
                     "--height",   QString::number(side),
                     "--ss",       "0"};
    args << raytracingArgs(raytraced, 1);
    const KaexportResult r = runKaexport(args);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const std::vector<float> pixels = katest::imagePixels(dir.file("spot.png"));
    ASSERT_EQ(pixels.size(), size_t(side * side * 3));
    // Along the middle row: the grey background, the dark floor, the lit disc, the floor again.
    const int middle = side / 2;
    auto red = [&](int x) { return pixels[(size_t(middle) * side + size_t(x)) * 3]; };
    const float centre = red(side / 2);
    ASSERT_GT(centre, 0.2f);
    int floorLeft = -1, floorRight = -1, litLeft = -1, litRight = -1;
    for (int x = 0; x < side; ++x) {
        if (red(x) < 0.02f) {
            floorLeft = floorLeft < 0 ? x : floorLeft;
            floorRight = x;
        }
        if (red(x) > 0.01f * centre && std::abs(x - side / 2) < side / 4) {
            litLeft = litLeft < 0 ? x : litLeft;
            litRight = x;
        }
    }
    ASSERT_GE(floorLeft, 0);
    const double across = double(litRight - litLeft + 1) / double(floorRight - floorLeft + 1);
    EXPECT_NEAR(across, 4.62 / 20.0, 0.03) << format;
}

INSTANTIATE_TEST_SUITE_P(FormatsAndRenderers, kaexportAuthoredSpot,
                         testing::Combine(testing::Values("glb", "fbx", "dae"),
                                          testing::Values(false, true)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param)) +
                                    (std::get<1>(info.param) ? "Raytracer" : "OpenGL");
                         });
