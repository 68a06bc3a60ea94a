// What Assimp reads wrong of FBX and COLLADA files, read from the files themselves (files
// Blender made, tests/data/blender/): orthographic cameras.
#include "kaColladaCameras.h"
#include "kaFbxFile.h"
#include "kaTestSupport.h"

#include <gtest/gtest.h>

namespace {

QString blenderFile(const char* name) {
    return QString(KA_TEST_SOURCE_DIR) + "/../data/blender/" + name;
}

} // namespace

TEST(kaFbxFile, OrthographicCamerasAreFoundByTheirModelsName) {
    const auto zooms = kaFbxFile::read(blenderFile("ortho.fbx")).orthographicZooms;
    ASSERT_EQ(zooms.size(), 1u);
    EXPECT_EQ(zooms.begin()->first, "Plan");
    EXPECT_DOUBLE_EQ(zooms.begin()->second, 4.0);
    EXPECT_TRUE(kaFbxFile::read(blenderFile("shot.fbx")).orthographicZooms.empty())
        << "perspective";
}

TEST(kaFbxFile, BrokenAndOtherFilesGiveNothing) {
    const QByteArray whole = katest::fileBytes(blenderFile("ortho.fbx"));
    ASSERT_GT(whole.size(), 1000);
    katest::TempDir dir;
    for (int size : {0, 20, 27, 40, 200, whole.size() / 3, whole.size() / 2, whole.size() - 200}) {
        ASSERT_TRUE(katest::writeFile(dir.file("cut.fbx"), whole.left(size)));
        const kaFbxFile cut = kaFbxFile::read(dir.file("cut.fbx"));
        EXPECT_LE(cut.orthographicZooms.size(), 1u) << size;
    }
    QByteArray scrambled = whole;
    for (int i = 27; i < scrambled.size(); i += 97)
        scrambled[i] = char(0xff);
    ASSERT_TRUE(katest::writeFile(dir.file("scrambled.fbx"), scrambled));
    EXPECT_LE(kaFbxFile::read(dir.file("scrambled.fbx")).orthographicZooms.size(), 1u);
    ASSERT_TRUE(katest::writeFile(dir.file("text.fbx"), "; FBX 7.4.0 project file\n"));
    for (const QString& other :
         {dir.file("text.fbx"), dir.file("missing.fbx"), blenderFile("ortho.dae")}) {
        const kaFbxFile nothing = kaFbxFile::read(other);
        EXPECT_TRUE(nothing.orthographicZooms.empty()) << other.toStdString();
    }
}

TEST(kaColladaCameras, OrthographicCamerasAreFoundByTheirNodesName) {
    const auto heights = kaColladaOrthographicHeights(blenderFile("ortho.dae"));
    ASSERT_EQ(heights.size(), 1u);
    EXPECT_EQ(heights.begin()->first, "Plan");
    EXPECT_NEAR(heights.begin()->second, 3.0f, 1e-5f) << "xmag 2 over an aspect of 4:3";
    EXPECT_TRUE(kaColladaOrthographicHeights(blenderFile("shot.dae")).empty()) << "perspective";
    EXPECT_TRUE(kaColladaOrthographicHeights(blenderFile("ortho.fbx")).empty());
}
