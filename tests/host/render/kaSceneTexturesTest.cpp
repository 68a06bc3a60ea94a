// Base-colour pictures of scene files: found wherever authoring tools put them, decoded once,
// placed by the right coordinates, and sampled as OpenGL samples them.
#include "kaSceneImport.h"

#include "OSGGeometry.h"
#include "OSGNodeCores.h"
#include "kaRTTexture.h"
#include "kaTestSupport.h"
#include "kaTexturedScenes.h"

#include <QDir>

#include <gtest/gtest.h>

namespace {

osg::GeometryPtr onlyGeometry(const osg::NodePtr& root) {
    osg::GeometryPtr geometry;
    for (const osg::NodePtr& node : osg::collectNodes(root))
        if (auto g = osg::dynamic_pointer_cast<osg::Geometry>(node->getCore()))
            geometry = g;
    return geometry;
}

const osg::SimpleMaterial* materialOf(const osg::GeometryPtr& geometry) {
    return geometry ? osg::resolveSimpleMaterial(geometry->getMaterial().get()) : nullptr;
}

osg::NodePtr loadScene(const QString& file) {
    QString error;
    osg::NodePtr root = kaSceneImport::load(file, error);
    EXPECT_TRUE(root) << error.toStdString();
    return root;
}

// The picture arrived whole and upright: stored bottom-up, its bottom-left quadrant (blue) at
// row 0 and its top-left one (red) at the last row. 'lossy' allows a JPEG's error.
void expectQuadrants(const osg::SimpleMaterial* material, bool lossy = false) {
    ASSERT_TRUE(material);
    ASSERT_TRUE(material->baseColorMap);
    const osg::Image& map = *material->baseColorMap;
    EXPECT_EQ(map.getWidth(), 64);
    EXPECT_EQ(map.getHeight(), 64);
    EXPECT_EQ(map.getPixelFormat(), uint32_t(osg::Image::OSG_RGBA_PF));
    EXPECT_EQ(map.getDataType(), osg::Image::OSG_UINT8_IMAGEDATA);
    const float tolerance = lossy ? 0.04f : 0.002f;
    auto expectAt = [&](int x, int y, float r, float g, float b, const char* where) {
        const osg::Color4f c = map.getPixel(x, y);
        EXPECT_NEAR(c.r, r, tolerance) << where;
        EXPECT_NEAR(c.g, g, tolerance) << where;
        EXPECT_NEAR(c.b, b, tolerance) << where;
        EXPECT_NEAR(c.a, 1.0f, 0.002f) << where;
    };
    expectAt(8, 8, 0, 0, 1, "bottom-left");
    expectAt(8, 56, 1, 0, 0, "top-left");
    expectAt(56, 56, 0, 1, 0, "top-right");
    expectAt(56, 8, 128 / 255.0f, 128 / 255.0f, 128 / 255.0f, "bottom-right");
}

// The mesh's coordinates put the picture's top-left corner at the square's (-1, 1) in our
// bottom-up convention: v = 1 is the picture's top.
void expectUprightCoordinates(const osg::GeometryPtr& geometry) {
    ASSERT_TRUE(geometry);
    const osg::Geometry::Mesh& mesh = geometry->getMesh();
    ASSERT_EQ(mesh.texCoords.size(), 2 * mesh.positions.size());
    for (size_t v = 0; v < mesh.positions.size(); ++v) {
        const osg::Pnt3f& p = mesh.positions[v];
        EXPECT_NEAR(mesh.texCoords[2 * v], (p.x + 1) / 2, 1e-6f) << v;
        EXPECT_NEAR(mesh.texCoords[2 * v + 1], (p.y + 1) / 2, 1e-6f) << v;
    }
}

} // namespace

TEST(kaSceneTextures, AGltfPictureBesideTheFileIsReadUpright) {
    katest::TempDir dir;
    ASSERT_TRUE(katest::writeQuadrantPicture(dir.file("quadrants.png")));
    ASSERT_TRUE(katest::writeFile(dir.file("square.gltf"),
                                  katest::texturedSquareGltf(katest::TexturedSquare())));
    osg::GeometryPtr geometry = onlyGeometry(loadScene(dir.file("square.gltf")));
    expectQuadrants(materialOf(geometry));
    expectUprightCoordinates(geometry);
    EXPECT_EQ(materialOf(geometry)->wrapU, osg::TextureWrap::Repeat);
}

TEST(kaSceneTextures, PicturesInsideTheFileAreDecoded) {
    katest::TempDir dir;
    ASSERT_TRUE(katest::writeQuadrantPicture(dir.file("picture.png")));
    const QByteArray png = katest::fileBytes(dir.file("picture.png"));
    ASSERT_FALSE(png.isEmpty());
    QDir(dir.path()).remove("picture.png"); // nothing to find beside the scenes

    katest::TexturedSquare dataUri;
    dataUri.imageUri = "data:image/png;base64," + png.toBase64();
    ASSERT_TRUE(katest::writeFile(dir.file("inline.gltf"), katest::texturedSquareGltf(dataUri)));
    expectQuadrants(materialOf(onlyGeometry(loadScene(dir.file("inline.gltf")))));

    ASSERT_TRUE(katest::writeFile(dir.file("binary.glb"),
                                  katest::texturedSquareGlb(katest::TexturedSquare(), png)));
    osg::GeometryPtr geometry = onlyGeometry(loadScene(dir.file("binary.glb")));
    expectQuadrants(materialOf(geometry));
    expectUprightCoordinates(geometry);
}

TEST(kaSceneTextures, AnObjPictureInAFolderBesideItIsRead) {
    katest::TempDir dir;
    ASSERT_TRUE(QDir(dir.path()).mkdir("maps"));
    ASSERT_TRUE(katest::writeQuadrantPicture(dir.file("maps/quadrants.jpg")));
    ASSERT_TRUE(katest::writeFile(dir.file("square.obj"), katest::texturedSquareObj()));
    ASSERT_TRUE(katest::writeFile(dir.file("square.mtl"),
                                  katest::texturedSquareMtl("maps\\quadrants.jpg")));
    osg::GeometryPtr geometry = onlyGeometry(loadScene(dir.file("square.obj")));
    expectQuadrants(materialOf(geometry), true);
    expectUprightCoordinates(geometry);
}

// A material may read its picture through the second coordinate set (a light-map layout, a
// decal): the mesh carries that set.
TEST(kaSceneTextures, ThePictureIsPlacedByTheCoordinateSetItNames) {
    katest::TempDir dir;
    ASSERT_TRUE(katest::writeQuadrantPicture(dir.file("quadrants.png")));
    katest::TexturedSquare second;
    second.texCoord = 1;
    ASSERT_TRUE(katest::writeFile(dir.file("square.gltf"), katest::texturedSquareGltf(second)));
    expectUprightCoordinates(onlyGeometry(loadScene(dir.file("square.gltf"))));
}

TEST(kaSceneTextures, WrapModesComeFromTheSampler) {
    katest::TempDir dir;
    ASSERT_TRUE(katest::writeQuadrantPicture(dir.file("quadrants.png")));
    katest::TexturedSquare square;
    square.wrapS = 33071;
    square.wrapT = 33648;
    ASSERT_TRUE(katest::writeFile(dir.file("square.gltf"), katest::texturedSquareGltf(square)));
    const osg::SimpleMaterial* material =
        materialOf(onlyGeometry(loadScene(dir.file("square.gltf"))));
    ASSERT_TRUE(material);
    EXPECT_EQ(material->wrapU, osg::TextureWrap::ClampToEdge);
    EXPECT_EQ(material->wrapV, osg::TextureWrap::MirroredRepeat);
}

// A missing picture doesn't stop the scene: it renders in plain colour, and the log names the
// picture and the scene.
TEST(kaSceneTextures, AMissingPictureIsNamedAndTheSceneStillLoads) {
    katest::TempDir dir;
    ASSERT_TRUE(katest::writeFile(dir.file("square.gltf"),
                                  katest::texturedSquareGltf(katest::TexturedSquare())));
    katest::LogCapture log;
    osg::NodePtr root = loadScene(dir.file("square.gltf"));
    const osg::SimpleMaterial* material = materialOf(onlyGeometry(root));
    ASSERT_TRUE(material);
    EXPECT_FALSE(material->baseColorMap);
    const std::vector<std::string> warnings = log.texts(kaLog::Warning);
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_EQ(warnings[0], "The texture 'quadrants.png' of the scene file '" +
                               dir.fileStd("square.gltf") +
                               "' isn't used: no such file beside the scene.");
}

namespace {

// A 2 x 1 picture: a black texel and an sRGB-128 one.
osg::ImagePtr twoTexels() {
    const uint8_t texels[8] = {0, 0, 0, 255, 128, 128, 128, 255};
    osg::ImagePtr image = osg::Image::create();
    image->set(osg::Image::OSG_RGBA_PF, 2, 1, 1, 1, 1, 0.0, texels);
    return image;
}

} // namespace

TEST(kaRTSampleColor, DecodesSrgbAndFiltersBetweenTexelCentres) {
    osg::ImagePtr image = twoTexels();
    const auto repeat = osg::TextureWrap::Repeat, clamp = osg::TextureWrap::ClampToEdge;
    EXPECT_NEAR(kaRTSampleColor(*image, clamp, clamp, 0.75f, 0.5f).x, katest::kQuadrantGreyLinear,
                1e-4f)
        << "a texel's centre is its decoded value";
    EXPECT_NEAR(kaRTSampleColor(*image, clamp, clamp, 0.25f, 0.5f).y, 0.0f, 1e-6f);
    EXPECT_NEAR(kaRTSampleColor(*image, clamp, clamp, 0.5f, 0.5f).z,
                katest::kQuadrantGreyLinear / 2, 1e-4f)
        << "halfway is the mean of the decoded values, not the decoded mean";
    EXPECT_NEAR(kaRTSampleColor(*image, clamp, clamp, 0.0f, 0.5f).x, 0.0f, 1e-6f)
        << "clamped at the edge";
    EXPECT_NEAR(kaRTSampleColor(*image, repeat, clamp, 0.0f, 0.5f).x,
                katest::kQuadrantGreyLinear / 2, 1e-4f)
        << "repeating: the edge lies between the last texel and the first";
}

TEST(kaRTSampleColor, WrapModesRepeatMirrorAndClamp) {
    osg::ImagePtr image = twoTexels();
    const float grey = katest::kQuadrantGreyLinear;
    auto at = [&](osg::TextureWrap wrap, float u) {
        return kaRTSampleColor(*image, wrap, osg::TextureWrap::Repeat, u, 0.5f).x;
    };
    EXPECT_NEAR(at(osg::TextureWrap::Repeat, 1.25f), 0.0f, 1e-6f);
    EXPECT_NEAR(at(osg::TextureWrap::Repeat, -0.25f), grey, 1e-4f);
    EXPECT_NEAR(at(osg::TextureWrap::Repeat, 1000.75f), grey, 1e-4f);
    EXPECT_NEAR(at(osg::TextureWrap::MirroredRepeat, 1.25f), grey, 1e-4f);
    EXPECT_NEAR(at(osg::TextureWrap::MirroredRepeat, 1.75f), 0.0f, 1e-6f);
    EXPECT_NEAR(at(osg::TextureWrap::MirroredRepeat, -0.25f), 0.0f, 1e-6f);
    EXPECT_NEAR(at(osg::TextureWrap::ClampToEdge, 7.0f), grey, 1e-4f);
    EXPECT_NEAR(at(osg::TextureWrap::ClampToEdge, -7.0f), 0.0f, 1e-6f);
}
