// Files that tell the truth about their pixels, read back with independent tools: float files
// hold scene-linear values, 8-bit files the encoding of their colour space (converted, not
// re-tagged), alpha is the coverage of geometry in the convention the format defines, and the
// XMP packet says which.
#include "kaTestSupport.h"
#include "kaexportProcess.h"

#include <OpenImageIO/imageio.h>

#include <QFile>
#include <QProcess>

#include <gtest/gtest.h>

#include <lcms2.h>

#include <cmath>

using katest::KaexportResult;
using katest::runKaexport;

namespace {

struct Picture {
    int width = 0, height = 0, channels = 0;
    std::vector<float> pixels; // top row first, as files are
    std::string icc;           // the embedded profile's bytes
    std::string xmp;           // the XMP packet as text
    float at(int x, int y, int c) const {
        return pixels[(size_t(y) * size_t(width) + size_t(x)) * size_t(channels) + size_t(c)];
    }
};

Picture read(const QString& path) {
    Picture p;
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1); // as the file holds them
    auto in = OIIO::ImageInput::open(path.toStdString(), &config);
    if (!in)
        return p;
    const OIIO::ImageSpec& spec = in->spec();
    p.width = spec.width;
    p.height = spec.height;
    p.channels = spec.nchannels;
    p.pixels.resize(size_t(p.width) * size_t(p.height) * size_t(p.channels));
    in->read_image(0, 0, 0, p.channels, OIIO::TypeDesc::FLOAT, p.pixels.data());
    if (const OIIO::ParamValue* icc = spec.find_attribute("ICCProfile"))
        p.icc.assign(static_cast<const char*>(icc->data()), icc->type().size());
    p.xmp = spec.get_string_attribute("xmp");
    if (p.xmp.empty()) {
        QProcess exiv2;
        exiv2.start("exiv2", {"-eX-", "ex", path});
        exiv2.waitForFinished(30000);
        p.xmp = exiv2.readAllStandardOutput().toStdString();
    }
    return p;
}

// The sRGB transfer function of IEC 61966-2-1, written down here independently of the program.
float srgbEncode(float linear) {
    const float c = std::min(std::max(linear, 0.0f), 1.0f);
    return c <= 0.0031308f ? 12.92f * c : 1.055f * std::pow(c, 1.0f / 2.4f) - 0.055f;
}

const QStringList kSize = {"--width", "96", "--height", "72"};

// Whether the XMP packet gives the export field 'name' the value 'value', in either of the
// forms XMP writes (an element or an attribute).
bool xmpSays(const std::string& xmp, const std::string& name, const std::string& value) {
    return xmp.find("kaExport:" + name + ">" + value + "<") != std::string::npos ||
           xmp.find("kaExport:" + name + "=\"" + value + "\"") != std::string::npos;
}

} // namespace

class kaexportColour : public testing::Test {
protected:
    katest::TempDir dir;
};

TEST_F(kaexportColour, FloatFilesAreLinearAndEightBitFilesTheirEncodingWithinOneCodeValue) {
    ASSERT_EQ(runKaexport(QStringList{"snapshot", dir.file("a.exr")} + kSize).code, 0);
    ASSERT_EQ(runKaexport(QStringList{"snapshot", dir.file("a.png")} + kSize).code, 0);
    const Picture linear = read(dir.file("a.exr")), encoded = read(dir.file("a.png"));
    ASSERT_EQ(linear.width, encoded.width);
    int worst = 0;
    double linearMean = 0, encodedMean = 0;
    for (int y = 0; y < linear.height; ++y)
        for (int x = 0; x < linear.width; ++x)
            for (int c = 0; c < 3; ++c) {
                const int expected = int(std::lround(srgbEncode(linear.at(x, y, c)) * 255.0f));
                const int got = int(std::lround(encoded.at(x, y, c) * 255.0f));
                worst = std::max(worst, std::abs(got - expected));
                linearMean += linear.at(x, y, c);
                encodedMean += encoded.at(x, y, c);
            }
    EXPECT_LE(worst, 1) << "the 8-bit file is the float file through the sRGB curve";
    // Not the same numbers over again: mid-tones encode brighter.
    EXPECT_GT(encodedMean, linearMean * 1.1);
}

TEST_F(kaexportColour, AnotherColourSpaceConvertsThePixelsAndItsProfileDescribesThem) {
    ASSERT_EQ(runKaexport(QStringList{"snapshot", dir.file("srgb.png")} + kSize).code, 0);
    ASSERT_EQ(
        runKaexport(QStringList{"snapshot", dir.file("adobe.png"), "--icc", "2"} + kSize).code, 0);
    const Picture srgb = read(dir.file("srgb.png")), adobe = read(dir.file("adobe.png"));
    ASSERT_FALSE(adobe.icc.empty());
    // lcms2 takes the file's own profile back to sRGB.
    cmsHPROFILE from = cmsOpenProfileFromMem(adobe.icc.data(), cmsUInt32Number(adobe.icc.size()));
    cmsHPROFILE to = cmsCreate_sRGBProfile();
    ASSERT_TRUE(from);
    cmsHTRANSFORM transform =
        cmsCreateTransform(from, TYPE_RGB_FLT, to, TYPE_RGB_FLT, INTENT_RELATIVE_COLORIMETRIC, 0);
    int worst = 0, differing = 0, compared = 0;
    for (int y = 0; y < srgb.height; ++y)
        for (int x = 0; x < srgb.width; ++x) {
            float in[3] = {adobe.at(x, y, 0), adobe.at(x, y, 1), adobe.at(x, y, 2)}, out[3];
            cmsDoTransform(transform, in, out, 1);
            // Colours a file clips (beyond its range, such as the lamp's glow) differ by how
            // each space clips them: only colours inside both count.
            bool clipped = false;
            for (int c = 0; c < 3; ++c)
                clipped = clipped || srgb.at(x, y, c) <= 0.0f || srgb.at(x, y, c) >= 1.0f ||
                          in[c] <= 0.0f || in[c] >= 1.0f;
            if (clipped)
                continue;
            ++compared;
            for (int c = 0; c < 3; ++c) {
                const int expected = int(std::lround(srgb.at(x, y, c) * 255.0f));
                worst = std::max(worst, std::abs(int(std::lround(out[c] * 255.0f)) - expected));
                differing += std::lround(adobe.at(x, y, c) * 255.0f) != expected;
            }
        }
    cmsDeleteTransform(transform);
    cmsCloseProfile(from);
    cmsCloseProfile(to);
    // Two roundings (the file's and this one's) and the dither.
    EXPECT_GT(compared, srgb.width * srgb.height / 2);
    EXPECT_LE(worst, 2) << "lcms2 gives the sRGB render back";
    EXPECT_GT(differing, srgb.width * srgb.height) << "the pixels were converted, not re-tagged";
}

TEST_F(kaexportColour, PremultipliedExrCompositesOverABackground) {
    ASSERT_EQ(
        runKaexport(QStringList{"snapshot", dir.file("shot.exr"), "--alpha", "--metadata", "8"} +
                    kSize)
            .code,
        0);
    const Picture shot = read(dir.file("shot.exr"));
    ASSERT_EQ(shot.channels, 4);
    EXPECT_TRUE(xmpSays(shot.xmp, "PremultipliedAlpha", "True")) << shot.xmp;
    QProcess oiiotool;
    oiiotool.start("oiiotool", {"--pattern", "constant:color=0.2,0.4,0.6,1", "96x72", "4", "-o",
                                dir.file("bg.exr")});
    ASSERT_TRUE(oiiotool.waitForFinished(30000));
    oiiotool.start("oiiotool", {dir.file("shot.exr"), dir.file("bg.exr"), "--over", "-o",
                                dir.file("comp.exr")});
    ASSERT_TRUE(oiiotool.waitForFinished(30000));
    const Picture comp = read(dir.file("comp.exr"));
    ASSERT_EQ(comp.width, shot.width);
    int uncovered = 0;
    for (int y = 0; y < shot.height; ++y)
        for (int x = 0; x < shot.width; ++x) {
            const float a = shot.at(x, y, 3);
            for (int c = 0; c < 3; ++c) {
                const float bg = c == 0 ? 0.2f : c == 1 ? 0.4f : 0.6f;
                // Colour times alpha: the background shows as much as alpha leaves.
                EXPECT_NEAR(comp.at(x, y, c), shot.at(x, y, c) + bg * (1.0f - a), 1e-3f)
                    << x << "," << y;
                if (a == 0.0f) {
                    EXPECT_EQ(shot.at(x, y, c), 0.0f) << "nothing where nothing is covered";
                }
            }
            uncovered += a == 0.0f;
        }
    EXPECT_GT(uncovered, shot.width * 4) << "the sky is not covered";
}

TEST_F(kaexportColour, StraightPngShowsTheAlphaColourWhereNothingIsCovered) {
    ASSERT_EQ(
        runKaexport(QStringList{"snapshot", dir.file("shot.png"), "--alpha", "--metadata", "8"} +
                    kSize)
            .code,
        0);
    const Picture shot = read(dir.file("shot.png"));
    ASSERT_EQ(shot.channels, 4);
    EXPECT_TRUE(xmpSays(shot.xmp, "PremultipliedAlpha", "False")) << shot.xmp;
    int uncovered = 0;
    for (int y = 0; y < shot.height; ++y)
        for (int x = 0; x < shot.width; ++x)
            if (shot.at(x, y, 3) == 0.0f) {
                ++uncovered;
                for (int c = 0; c < 3; ++c)
                    EXPECT_EQ(shot.at(x, y, c), 1.0f) << "the alpha colour, white";
            }
    EXPECT_GT(uncovered, shot.width * 4);
}

TEST_F(kaexportColour, AlphaIsTheCoverageOfGeometryInBothRenderers) {
    ASSERT_EQ(runKaexport(QStringList{"snapshot", dir.file("gl.exr"), "--alpha"} + kSize).code, 0);
    ASSERT_EQ(
        runKaexport(QStringList{"snapshot", dir.file("rt.exr"), "--alpha", "--raytracing"} + kSize)
            .code,
        0);
    const Picture gl = read(dir.file("gl.exr")), rt = read(dir.file("rt.exr"));
    ASSERT_EQ(gl.width, rt.width);
    int fractional = 0, disagree = 0;
    for (int y = 0; y < gl.height; ++y)
        for (int x = 0; x < gl.width; ++x) {
            for (const Picture* p : {&gl, &rt}) {
                const float a = p->at(x, y, 3);
                fractional += a > 0.0f && a < 1.0f;
            }
            disagree += std::fabs(gl.at(x, y, 3) - rt.at(x, y, 3)) > 0.5f;
        }
    // Whole on surfaces (the ground, the glass ball), nothing on the sky, fractions at edges.
    EXPECT_EQ(gl.at(gl.width / 2, gl.height - 1, 3), 1.0f) << "the ground (bottom row)";
    EXPECT_EQ(rt.at(rt.width / 2, rt.height - 1, 3), 1.0f);
    EXPECT_EQ(gl.at(2, 0, 3), 0.0f) << "the sky (top row)";
    EXPECT_EQ(rt.at(2, 0, 3), 0.0f);
    EXPECT_LT(fractional, gl.width * gl.height / 10);
    EXPECT_LT(disagree, gl.width * gl.height / 100);
}

TEST_F(kaexportColour, TheBeautyOfAllPassesIsTheBeautyAlone) {
    ASSERT_EQ(
        runKaexport(
            QStringList{"snapshot", dir.file("all.exr"), "--raytracing", "--passes", "all"} + kSize)
            .code,
        0);
    ASSERT_EQ(runKaexport(QStringList{"snapshot", dir.file("one.exr"), "--raytracing", "--passes",
                                      "beauty", "--alpha"} +
                          kSize)
                  .code,
              0);
    const Picture all = read(dir.file("all-beauty.exr")), one = read(dir.file("one-beauty.exr"));
    ASSERT_EQ(all.pixels.size(), one.pixels.size());
    EXPECT_EQ(all.pixels, one.pixels);
}

TEST_F(kaexportColour, AColourSpaceWithoutAProfileSaysSoAndTheFileCarriesNone) {
    KaexportResult r =
        runKaexport(QStringList{"snapshot", dir.file("x.png"), "--icc", "4"} + kSize);
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains("kaexport snapshot: colour space 4 has no profile (\"Imageprofile\" "
                               "names none); the file carries none"))
        << r.err.toStdString();
    EXPECT_TRUE(read(dir.file("x.png")).icc.empty());
}
