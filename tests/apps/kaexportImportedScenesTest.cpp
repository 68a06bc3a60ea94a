// Scenes from other programs' files rendered as their authors made them: vertex colours.
#include "kaTestSupport.h"
#include "kaexportProcess.h"

#include <gtest/gtest.h>

using katest::KaexportResult;
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
    if (GetParam())
        args << "--raytracing"
             << "--samples"
             << "4";
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

INSTANTIATE_TEST_SUITE_P(Renderers, kaexportImportedScenes, testing::Values(false, true),
                         [](const testing::TestParamInfo<bool>& info) {
                             return info.param ? "Raytracer" : "OpenGL";
                         });
