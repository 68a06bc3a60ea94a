// Base-colour pictures of scene files: found wherever authoring tools put them, decoded once,
// placed by the right coordinates, and sampled as OpenGL samples them.
#include "kaSceneImport.h"

#include "OSGGeometry.h"
#include "OSGImageFileHandler.h"
#include "OSGNodeCores.h"
#include "kaRTTexture.h"
#include "kaRaytracedLight.h"
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

// A 2 x 1 picture: an opaque black texel and an sRGB-128 one of alpha 0.2.
osg::ImagePtr twoTexels() {
    const uint8_t texels[8] = {0, 0, 0, 255, 128, 128, 128, 51};
    osg::ImagePtr image = osg::Image::create();
    image->set(osg::Image::OSG_RGBA_PF, 2, 1, 1, 1, 1, 0.0, texels);
    return image;
}

} // namespace

TEST(kaRTSample, DecodesSrgbAndFiltersBetweenTexelCentres) {
    osg::ImagePtr image = twoTexels();
    const auto repeat = osg::TextureWrap::Repeat, clamp = osg::TextureWrap::ClampToEdge;
    EXPECT_NEAR(kaRTSample(*image, clamp, clamp, 0.75f, 0.5f).color.x, katest::kQuadrantGreyLinear,
                1e-4f)
        << "a texel's centre is its decoded value";
    EXPECT_NEAR(kaRTSample(*image, clamp, clamp, 0.25f, 0.5f).color.y, 0.0f, 1e-6f);
    EXPECT_NEAR(kaRTSample(*image, clamp, clamp, 0.5f, 0.5f).color.z,
                katest::kQuadrantGreyLinear / 2, 1e-4f)
        << "halfway is the mean of the decoded values, not the decoded mean";
    EXPECT_NEAR(kaRTSample(*image, clamp, clamp, 0.0f, 0.5f).color.x, 0.0f, 1e-6f)
        << "clamped at the edge";
    EXPECT_NEAR(kaRTSample(*image, repeat, clamp, 0.0f, 0.5f).color.x,
                katest::kQuadrantGreyLinear / 2, 1e-4f)
        << "repeating: the edge lies between the last texel and the first";
    EXPECT_NEAR(kaRTSample(*image, clamp, clamp, 0.75f, 0.5f).alpha, 0.2f, 1e-6f)
        << "alpha is straight: the colour stays";
    EXPECT_NEAR(kaRTSample(*image, clamp, clamp, 0.5f, 0.5f).alpha, 0.6f, 1e-6f)
        << "alpha is linear";
}

TEST(kaRTSample, WrapModesRepeatMirrorAndClamp) {
    osg::ImagePtr image = twoTexels();
    const float grey = katest::kQuadrantGreyLinear;
    auto at = [&](osg::TextureWrap wrap, float u) {
        return kaRTSample(*image, wrap, osg::TextureWrap::Repeat, u, 0.5f).color.x;
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

// glTF's alpha modes arrive as they are written; a file that writes none is opaque, and other
// formats are see-through when their opacity says so.
TEST(kaSceneTextures, AlphaModesAndCutoffsAreRead) {
    katest::TempDir dir;
    ASSERT_TRUE(katest::writeHalvesPicture(dir.file("quadrants.png")));
    auto modeOf = [&](const QByteArray& mode, float cutoff) {
        katest::TexturedSquare square;
        square.alphaMode = mode;
        square.alphaCutoff = cutoff;
        const QString file = dir.file("square-" + QString(mode) + ".gltf");
        EXPECT_TRUE(katest::writeFile(file, katest::texturedSquareGltf(square)));
        const osg::SimpleMaterial* material = materialOf(onlyGeometry(loadScene(file)));
        return material ? std::make_pair(material->alphaMode, material->alphaCutoff)
                        : std::make_pair(osg::AlphaMode::Blend, -1.0f);
    };
    EXPECT_EQ(modeOf("", 0.5f).first, osg::AlphaMode::Opaque);
    EXPECT_EQ(modeOf("OPAQUE", 0.5f).first, osg::AlphaMode::Opaque);
    EXPECT_EQ(modeOf("BLEND", 0.5f).first, osg::AlphaMode::Blend);
    const auto mask = modeOf("MASK", 0.3f);
    EXPECT_EQ(mask.first, osg::AlphaMode::Mask);
    EXPECT_NEAR(mask.second, 0.3f, 1e-6f);

    ASSERT_TRUE(katest::writeFile(dir.file("square.obj"), katest::texturedSquareObj()));
    ASSERT_TRUE(katest::writeFile(dir.file("square.mtl"), "newmtl Painted\nKd 1 1 1\nd 0.5\n"));
    const osg::SimpleMaterial* glass = materialOf(onlyGeometry(loadScene(dir.file("square.obj"))));
    ASSERT_TRUE(glass);
    EXPECT_EQ(glass->alphaMode, osg::AlphaMode::Blend);
    EXPECT_NEAR(glass->opacity, 0.5f, 1e-6f);
    ASSERT_TRUE(katest::writeFile(dir.file("square.mtl"), "newmtl Painted\nKd 1 1 1\n"));
    const osg::SimpleMaterial* solid = materialOf(onlyGeometry(loadScene(dir.file("square.obj"))));
    ASSERT_TRUE(solid);
    EXPECT_EQ(solid->alphaMode, osg::AlphaMode::Opaque);
}

namespace {

// A white, opaque material for floors.
osg::MaterialPtr whiteFloor() {
    auto white = osg::SimpleMaterial::create("White");
    white->baseColor = {1, 1, 1};
    white->alphaMode = osg::AlphaMode::Opaque;
    return white;
}

// A material showing the halves picture (opaque left half, alpha 0.25 right half) under 'mode'.
osg::MaterialPtr halvesLeaf(osg::AlphaMode mode) {
    katest::TempDir dir;
    EXPECT_TRUE(katest::writeHalvesPicture(dir.file("halves.png")));
    auto leaf = osg::SimpleMaterial::create("Leaf");
    leaf->baseColorMap = osg::ImageFileHandler::the().read(dir.fileStd("halves.png").c_str());
    EXPECT_TRUE(leaf->baseColorMap && leaf->baseColorMap->reformat(osg::Image::OSG_RGBA_PF));
    leaf->alphaMode = mode;
    return leaf;
}

// The raytraced direct light on a white floor below a 1 x 1 square at height 1, lit by a sun
// shining down at 45 degrees towards +X, seen from straight above: the square's shadow falls
// 1 to the +X side of it. The square shows the halves picture under 'mode'.
osg::ImagePtr shadowOfHalves(osg::AlphaMode mode) {
    const osg::MaterialPtr white = whiteFloor(), leaf = halvesLeaf(mode);
    osg::NodePtr root = osg::Node::create(osg::Group::create(), "scene");
    root->addChild(osg::Node::create(osg::makePlane(8, 8, white), "Floor"));
    osg::NodePtr raised =
        osg::Node::create(osg::Transform::create(osg::Matrix::translation(0, 1, 0)), "Raised");
    raised->addChild(osg::Node::create(osg::makePlane(1, 1, leaf), "Leaf"));
    root->addChild(raised);
    osg::NodePtr sun = osg::Node::create(
        osg::Transform::create(osg::Matrix::lookAt({0, 0, 0}, {1, -1, 0}, {0, 1, 0})), "Sun");
    sun->addChild(osg::Node::create(osg::DirectionalLight::create(), "SunLight"));
    root->addChild(sun);

    return raytracedDiffuseLight(root, osg::Matrix::lookAt({1, 5, 0}, {1, 0, 0}, {0, 0, -1}), 65);
}

} // namespace

// Light passes where a cut-out has no surface: the shadow of the halves square is that of its
// opaque half only.
TEST(kaSceneTextures, CutOutsCastTheShadowOfWhatIsLeft) {
    // Floor x = 0.75 lies in the shadow of the opaque half, x = 1.25 in that of the cut half.
    constexpr int opaqueShadow = 26, cutShadow = 38, middle = 32, lit = 55;
    const osg::ImagePtr cut = shadowOfHalves(osg::AlphaMode::Mask);
    const osg::ImagePtr whole = shadowOfHalves(osg::AlphaMode::Opaque);
    ASSERT_TRUE(cut && whole);
    const float sunlit = cut->getPixel(lit, middle).r;
    EXPECT_GT(sunlit, 0.05f);
    EXPECT_LT(cut->getPixel(opaqueShadow, middle).r, sunlit * 0.01f);
    EXPECT_NEAR(cut->getPixel(cutShadow, middle).r, sunlit, sunlit * 0.01f);
    // The same square without its cut-out shades both.
    EXPECT_LT(whole->getPixel(opaqueShadow, middle).r, sunlit * 0.01f);
    EXPECT_LT(whole->getPixel(cutShadow, middle).r, sunlit * 0.01f);
}

namespace {

// The raytraced direct light, seen from straight above, on the middle of a white floor lit by
// a sun from straight above, under 'layers' cut-out squares of 4 x 4 stacked from height 1 up,
// whose right halves are holes (the halves picture, cut at 0.5).
osg::ImagePtr floorUnderCutOuts(int layers) {
    const osg::MaterialPtr white = whiteFloor(), leaf = halvesLeaf(osg::AlphaMode::Mask);
    osg::NodePtr root = osg::Node::create(osg::Group::create(), "scene");
    root->addChild(osg::Node::create(osg::makePlane(8, 8, white), "Floor"));
    for (int i = 0; i < layers; ++i) {
        osg::NodePtr raised = osg::Node::create(
            osg::Transform::create(osg::Matrix::translation(0, float(1 + i), 0)), "");
        raised->addChild(osg::Node::create(osg::makePlane(4, 4, leaf), "Leaf"));
        root->addChild(raised);
    }
    osg::NodePtr sun = osg::Node::create(
        osg::Transform::create(osg::Matrix::lookAt({0, 0, 0}, {0, -1, 0}, {0, 0, -1})), "Sun");
    sun->addChild(osg::Node::create(osg::DirectionalLight::create(), "SunLight"));
    root->addChild(sun);

    return raytracedDiffuseLight(root, osg::Matrix::lookAt({0, 30, 0}, {0, 0, 0}, {0, 0, -1}), 65);
}

} // namespace

// Foliage puts many holes in a row: through forty of them the camera still sees the floor, and
// the sun still lights it.
TEST(kaSceneTextures, ManyCutOutsInARowLetRaysAndLightThrough) {
    // The floor at x = 1, seen through the squares' right halves at every height.
    constexpr int throughHoles = 36, middle = 32;
    const osg::ImagePtr bare = floorUnderCutOuts(0), stacked = floorUnderCutOuts(40);
    ASSERT_TRUE(bare && stacked);
    const float sunlit = bare->getPixel(throughHoles, middle).r;
    EXPECT_GT(sunlit, 0.05f);
    EXPECT_NEAR(stacked->getPixel(throughHoles, middle).r, sunlit, sunlit * 0.01f);
}
