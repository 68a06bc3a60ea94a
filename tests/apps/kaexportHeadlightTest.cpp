// kaexport --headlight: a scene without lights is shown by the default lights unless told
// otherwise; a scene with lights of its own is lit by them alone unless told otherwise.
#include "kaTestSupport.h"
#include "kaexportProcess.h"

#include <QFile>

#include <gtest/gtest.h>

using katest::KaexportResult;
using katest::runKaexport;

namespace {

constexpr int W = 64, H = 48;

// The brightest channel of the picture's centre (3 channels a pixel).
float centre(const std::vector<float>& values) {
    const size_t at = (size_t(H / 2) * W + W / 2) * 3;
    return values.size() > at + 2 ? std::max({values[at], values[at + 1], values[at + 2]}) : -1;
}

} // namespace

class kaexportHeadlight : public testing::Test {
protected:
    void SetUp() override {
        // A cube as OBJ files come: no lights, no camera.
        QFile obj(dir.file("cube.obj"));
        ASSERT_TRUE(obj.open(QIODevice::WriteOnly));
        obj.write("o Cube\nv -1 -1 -1\nv 1 -1 -1\nv 1 1 -1\nv -1 1 -1\nv -1 -1 1\nv 1 -1 1\n"
                  "v 1 1 1\nv -1 1 1\nf 1 2 3 4\nf 5 8 7 6\nf 1 5 6 2\nf 2 6 7 3\nf 3 7 8 4\n"
                  "f 5 1 4 8\n");
    }
    // The pixels of a snapshot of 'scene' (empty: the built-in scene) with 'options'.
    std::vector<float> snapshot(const QString& scene, const QStringList& options) {
        const QString out = dir.file(QString("shot%1.png").arg(++count));
        QStringList args = options;
        if (!scene.isEmpty())
            args << "--scene" << scene;
        args << "snapshot" << out << "--width" << QString::number(W) << "--height"
             << QString::number(H) << "--ss"
             << "0";
        const KaexportResult r = runKaexport(args);
        EXPECT_EQ(r.code, 0) << r.err.toStdString();
        return katest::imagePixels(out);
    }
    katest::TempDir dir;
    int count = 0;
};

TEST_F(kaexportHeadlight, ASceneWithoutLightsIsShownUnlessTurnedOff) {
    const QString cube = dir.file("cube.obj");
    const std::vector<float> automatic = snapshot(cube, {});
    EXPECT_GT(centre(automatic), 0.2f) << "lit by the default lights";
    EXPECT_EQ(snapshot(cube, {"--headlight", "auto"}), automatic);
    EXPECT_EQ(snapshot(cube, {"--headlight", "on"}), automatic);
    EXPECT_EQ(centre(snapshot(cube, {"--headlight", "off"})), 0.0f) << "black without light";
    EXPECT_EQ(centre(snapshot(cube, {"--set", "Headlight=2"})), 0.0f) << "the preference";
    EXPECT_GT(centre(snapshot(cube, {"--set", "Headlight=2", "--headlight", "auto"})), 0.2f)
        << "the option wins over the preference";
}

TEST_F(kaexportHeadlight, ASceneWithLightsIsLitByThemAloneUnlessTurnedOn) {
    const std::vector<float> automatic = snapshot(QString(), {});
    ASSERT_FALSE(automatic.empty());
    EXPECT_EQ(snapshot(QString(), {"--headlight", "off"}), automatic);
    EXPECT_NE(snapshot(QString(), {"--headlight", "on"}), automatic);
}

TEST_F(kaexportHeadlight, AnUnknownChoiceIsAUsageError) {
    const KaexportResult r = runKaexport({"--headlight", "bright", "snapshot", dir.file("a.png")});
    EXPECT_EQ(r.code, 2);
    EXPECT_TRUE(r.err.contains("--headlight")) << r.err.toStdString();
    EXPECT_FALSE(QFile::exists(dir.file("a.png")));
}

TEST_F(kaexportHeadlight, ExposureBrightensTheLitScene) {
    const std::vector<float> plain = snapshot(QString(), {});
    const std::vector<float> brighter = snapshot(QString(), {"--exposure", "1"});
    ASSERT_EQ(plain.size(), brighter.size());
    ASSERT_FALSE(plain.empty());
    double sumPlain = 0, sumBrighter = 0;
    for (size_t i = 0; i < plain.size(); ++i)
        sumPlain += plain[i], sumBrighter += brighter[i];
    EXPECT_GT(sumBrighter, sumPlain * 1.1);
    EXPECT_EQ(snapshot(QString(), {"--set", "Exposure=1"}), brighter) << "the preference";
    EXPECT_EQ(runKaexport({"--exposure", "bright", "snapshot", dir.file("x.png")}).code, 2);
}
