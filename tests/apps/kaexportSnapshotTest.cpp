// kaexport as users run it: a separate process rendering the built-in scene, its files read
// back with OpenImageIO and exiv2, its exit codes and messages.
#include "kaTestSupport.h"
#include "kaexportProcess.h"

#include <OpenImageIO/imageio.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <map>

using katest::KaexportResult;
using katest::runKaexport;

namespace {

std::unique_ptr<OIIO::ImageInput> open(const QString& path) {
    return OIIO::ImageInput::open(path.toStdString());
}

} // namespace

class kaexportSnapshot : public testing::Test {
protected:
    katest::TempDir dir;
};

TEST_F(kaexportSnapshot, WritesTheBuiltInSceneWithEverythingInIt) {
    KaexportResult r = runKaexport({"--set",
                                    "ImageExport sig color=255,0,255",
                                    "--set",
                                    "ImageExport sig comment=HHHHHHHH",
                                    "--set",
                                    "ImageExport sig font size=20",
                                    "snapshot",
                                    dir.file("shot.png"),
                                    "--width",
                                    "320",
                                    "--height",
                                    "180",
                                    "--ss",
                                    "1",
                                    "--dpi",
                                    "300",
                                    "--metadata",
                                    "8",
                                    "--signature",
                                    "--icc",
                                    "2"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.startsWith("Wrote " + dir.file("shot.png"))) << r.out.toStdString();
    auto in = open(dir.file("shot.png"));
    ASSERT_TRUE(in);
    const OIIO::ImageSpec& spec = in->spec();
    EXPECT_EQ(spec.width, 320);
    EXPECT_EQ(spec.height, 180);
    EXPECT_EQ(spec.nchannels, 3);
    EXPECT_EQ(spec.format, OIIO::TypeDesc::UINT8);
    EXPECT_NEAR(spec.get_float_attribute("XResolution"), 300.0f, 0.1f);
    EXPECT_EQ(spec.get_string_attribute("ICCProfile:profile_description"), "Adobe RGB (1998)");
    std::vector<uint8_t> pixels(320 * 180 * 3);
    ASSERT_TRUE(in->read_image(0, 0, 0, 3, OIIO::TypeDesc::UINT8, pixels.data()));
    int magenta = 0;
    for (size_t i = 0; i < pixels.size(); i += 3)
        magenta += pixels[i] == 255 && pixels[i + 1] == 0 && pixels[i + 2] == 255;
    EXPECT_GT(magenta, 30) << "the signature is drawn";

    QProcess exiv2;
    exiv2.start("exiv2", {"-PX", dir.file("shot.png")});
    exiv2.waitForFinished(30000);
    EXPECT_TRUE(
        QString::fromUtf8(exiv2.readAllStandardOutput()).contains("Xmp.kaExport.ImageWidth"));
}

// The timings line also says what the export added to the process's memory at its peak: at
// least the picture, which is all there at the end.
TEST_F(kaexportSnapshot, TheTimingsLineSaysWhatTheExportTookInMemory) {
    KaexportResult r = runKaexport(
        {"snapshot", dir.file("big.png"), "--width", "4096", "--height", "4096", "--ss", "0"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const QRegularExpression timings("\\nRender [0-9.]+ s, export [0-9.]+ s, memory at most "
                                     "\\+([0-9]+) MB over ([0-9]+) MB\\n$");
    const QRegularExpressionMatch match = timings.match(r.out);
    ASSERT_TRUE(match.hasMatch()) << r.out.toStdString();
    const int grown = match.captured(1).toInt(), before = match.captured(2).toInt();
    EXPECT_GE(grown, 4096 * 4096 * 3 / 1048576) << "the 48 MB picture";
    EXPECT_LT(grown, 1024) << r.out.toStdString();
    EXPECT_GT(before, 20) << "the program and its scene";
}

TEST_F(kaexportSnapshot, FloatAlphaExrAndStereoNames) {
    KaexportResult r =
        runKaexport({"--set", "ImageExport stereo mode=1", "snapshot", dir.file("eyes.exr"),
                     "--width", "96", "--height", "64", "--alpha"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    for (const char* name : {"eyes-left.exr", "eyes-right.exr"}) {
        auto in = open(dir.file(name));
        ASSERT_TRUE(in) << name;
        EXPECT_EQ(in->spec().nchannels, 4);
        EXPECT_EQ(in->spec().format, OIIO::TypeDesc::FLOAT);
    }
}

// A snapshot keeps a name that ends in five digits, as sequences' names do not, and says so.
TEST_F(kaexportSnapshot, ANameEndingInFiveDigitsIsWrittenAndReportedAsItself) {
    KaexportResult r =
        runKaexport({"snapshot", dir.file("scan16384.png"), "--width", "32", "--height", "24"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.contains("Wrote " + dir.file("scan16384.png"))) << r.out.toStdString();
    EXPECT_TRUE(open(dir.file("scan16384.png")));
    EXPECT_FALSE(QFileInfo::exists(dir.file("scan.png")));
    // Asked again, it is the file that exists.
    r = runKaexport({"snapshot", dir.file("scan16384.png"), "--width", "32", "--height", "24"});
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.err.contains("scan16384.png' exists")) << r.err.toStdString();
}

TEST_F(kaexportSnapshot, PassesAsFilesAndAsOneLayeredExr) {
    KaexportResult files = runKaexport(
        {"snapshot", dir.file("p.png"), "--width", "64", "--height", "48", "--passes", "beauty"});
    ASSERT_EQ(files.code, 0) << files.err.toStdString();
    EXPECT_TRUE(open(dir.file("p-beauty.png")));
    KaexportResult layered =
        runKaexport({"--set", "ImageExport multi layer exr=true", "snapshot", dir.file("l.exr"),
                     "--width", "64", "--height", "48", "--passes", "beauty"});
    ASSERT_EQ(layered.code, 0) << layered.err.toStdString();
    auto in = open(dir.file("l.exr"));
    ASSERT_TRUE(in);
    EXPECT_EQ(in->spec().channelnames[0].substr(0, 7), "beauty.");
}

TEST_F(kaexportSnapshot, RaytracedPassesIntoOneLayeredExr) {
    // The program's own options may follow the command's.
    KaexportResult r =
        runKaexport({"snapshot", dir.file("out.exr"), "--raytracing", "--passes", "all", "--width",
                     "64", "--height", "48", "--set", "ImageExport multi layer exr=true"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"out.exr"});
    auto in = open(dir.file("out.exr"));
    ASSERT_TRUE(in);
    const OIIO::ImageSpec& spec = in->spec();
    EXPECT_EQ(spec.nchannels, 47 * 4);
    for (const char* layer : {"beauty.R", "diffuse_ibl_illumination.G", "cryptoMaterial02.A",
                              "motion_vector.R", "gpu_depth.B", "lens_flare.R"})
        EXPECT_NE(std::find(spec.channelnames.begin(), spec.channelnames.end(), layer),
                  spec.channelnames.end())
            << layer;
    bool cryptoObject = false;
    for (const OIIO::ParamValue& attribute : spec.extra_attribs)
        cryptoObject = cryptoObject || (attribute.name().string().rfind("cryptomatte/", 0) == 0 &&
                                        attribute.get_string() == "cryptoObject");
    EXPECT_TRUE(cryptoObject);
}

// Every layer of a raytraced all-pass file rendered in many tiles equals the one-tile file.
TEST_F(kaexportSnapshot, RaytracedLayeredExrInTilesEqualsTheWholeOne) {
    auto render = [&](const char* name, const char* budget) {
        KaexportResult r =
            runKaexport({"snapshot", dir.file(name), "--raytracing", "--passes", "all", "--width",
                         "389", "--height", "263", "--set", "ImageExport multi layer exr=true",
                         "--set", QString("Image Export Max Framebuffer Memory=") + budget});
        EXPECT_EQ(r.code, 0) << r.err.toStdString();
        std::vector<float> pixels;
        auto in = open(dir.file(name));
        if (!in)
            return pixels;
        const OIIO::ImageSpec& spec = in->spec();
        pixels.resize(spec.image_pixels() * size_t(spec.nchannels));
        EXPECT_TRUE(in->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, pixels.data()))
            << in->geterror();
        return pixels;
    };
    const std::vector<float> whole = render("whole.exr", "0");
    const std::vector<float> tiled = render("tiled.exr", "1");
    ASSERT_EQ(whole.size(), size_t(389) * 263 * 47 * 4);
    ASSERT_EQ(tiled.size(), whole.size());
    size_t differing = 0;
    for (size_t i = 0; i < whole.size(); ++i)
        differing += std::memcmp(&whole[i], &tiled[i], sizeof(float)) != 0;
    EXPECT_EQ(differing, 0u) << "channel values differ between the tiled and the whole file";
}

TEST_F(kaexportSnapshot, RaytracedPassesAsOneFileEach) {
    KaexportResult r = runKaexport({"snapshot", dir.file("out.exr"), "--raytracing", "--passes",
                                    "all", "--width", "64", "--height", "48"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const QStringList files = QDir(dir.path()).entryList(QDir::Files);
    EXPECT_EQ(files.size(), 47);
    for (const char* name : {"out-beauty.exr", "out-cryptoObject00.exr", "out-gpu_depth.exr",
                             "out-translucency_indirect_illumination.exr"})
        EXPECT_TRUE(files.contains(name)) << name;
    auto depth = open(dir.file("out-depth.exr"));
    ASSERT_TRUE(depth);
    EXPECT_EQ(depth->spec().format, OIIO::TypeDesc::FLOAT);
}

TEST_F(kaexportSnapshot, FastToFilesAndToMemory) {
    KaexportResult files =
        runKaexport({"fast", dir.file("f.png"), "--count", "3", "--width", "64", "--height", "48"});
    ASSERT_EQ(files.code, 0) << files.err.toStdString();
    for (const char* name : {"f-00000.png", "f-00001.png", "f-00002.png"})
        EXPECT_TRUE(open(dir.file(name))) << name;
    KaexportResult memory =
        runKaexport({"fast", "-", "--count", "2", "--width", "64", "--height", "48"});
    ASSERT_EQ(memory.code, 0);
    EXPECT_EQ(memory.bytes.count(QByteArray("\x89"
                                            "PNG\r\n")),
              2)
        << "two PNG files one after the other";
    // Streamed captures carry what files carry: the colour profile of their pixels.
    EXPECT_EQ(memory.bytes.count("iCCP"), 2);
}

TEST_F(kaexportSnapshot, ExistingFilesNeedForce) {
    QFile existing(dir.file("taken.png"));
    ASSERT_TRUE(existing.open(QIODevice::WriteOnly));
    existing.write("old");
    existing.close();
    KaexportResult refused =
        runKaexport({"snapshot", dir.file("taken.png"), "--width", "32", "--height", "32"});
    EXPECT_EQ(refused.code, 1);
    EXPECT_TRUE(refused.err.contains("exists; not overwriting it (use --force)"));
    EXPECT_EQ(QFileInfo(dir.file("taken.png")).size(), 3);
    KaexportResult forced = runKaexport(
        {"snapshot", dir.file("taken.png"), "--width", "32", "--height", "32", "--force"});
    EXPECT_EQ(forced.code, 0) << forced.err.toStdString();
    EXPECT_TRUE(open(dir.file("taken.png")));
}

TEST_F(kaexportSnapshot, BadInputGetsAClearMessageAndNoFile) {
    struct Case {
        QStringList args;
        int code;
        const char* says;
    };
    QFile broken(dir.file("broken.gltf"));
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
    broken.write("{ nonsense");
    broken.close();
    const Case cases[] = {
        {{"snapshot", "/proc/self/x.png", "--width", "32", "--height", "32"},
         1,
         "'/proc/self/x.png' was not written"},
        {{"snapshot", dir.file("a.jpg"), "--alpha", "--width", "32", "--height", "32"},
         1,
         "doesn't support an alpha channel"},
        {{"snapshot", dir.file("a.png"), "--width", "0"},
         2,
         "--width: Value 0 is not in 1..1048576"},
        {{"snapshot", dir.file("a.png"), "--height", "-4"},
         2,
         "--height: Value -4 is not in 1..1048576"},
        {{"snapshot", dir.file("a.xyz")}, 2, "no image file type writes '.xyz' files"},
        {{"snapshot", dir.file("a.png"), "--width", "1000000", "--height", "1000000"},
         1,
         "Couldn't allocate enough memory"},
        {{"--scene", dir.file("broken.gltf"), "snapshot", dir.file("a.png")},
         1,
         "Couldn't read the scene file"},
        {{"snapshot", dir.file("a.png"), "--passes", "beauty,glow"}, 2, "glow"},
    };
    for (const Case& c : cases) {
        KaexportResult r = runKaexport(c.args);
        EXPECT_EQ(r.code, c.code) << c.args.join(' ').toStdString() << "\n" << r.err.toStdString();
        EXPECT_TRUE(r.err.contains(c.says)) << c.args.join(' ').toStdString() << "\n"
                                            << r.err.toStdString();
    }
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"broken.gltf"})
        << "no image file, not even half of one";
}

TEST_F(kaexportSnapshot, CtrlCCancelsCleanly) {
    QProcess process;
    katest::startKaexport(process, {"--set", "Image Export Max Framebuffer Memory=4", "snapshot",
                                    dir.file("long.png"), "--width", "3000", "--height", "3000",
                                    "--ss", "3"});
    ASSERT_TRUE(process.waitForStarted());
    // Wait until the render shows progress, then interrupt it.
    QByteArray err;
    while (!err.contains("progress") && process.state() == QProcess::Running) {
        process.waitForReadyRead(200);
        err += process.readAllStandardError();
    }
    ASSERT_TRUE(katest::interruptKaexport(process)) << "it ended before the interrupt";
    ASSERT_TRUE(process.waitForFinished(60000));
    err += process.readAllStandardError();
    EXPECT_EQ(process.exitCode(), 3) << err.toStdString();
    EXPECT_TRUE(err.contains("cancelled"));
    EXPECT_TRUE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).isEmpty())
        << "nothing written, not even a temporary file";
}

TEST_F(kaexportSnapshot, CtrlCStopsARaytracedAllPassRenderWithinASecond) {
#ifdef KA_SANITIZED_BUILD
    // Sanitizers multiply memory and time: a smaller picture, the same behaviour.
    const QStringList size = {"--width", "1000", "--height", "700"};
    const double limit = 3.0;
#else
    const QStringList size = {"--width", "3000", "--height", "2000"};
    const double limit = 1.0;
#endif
    QProcess process;
    katest::startKaexport(
        process,
        QStringList{"snapshot", dir.file("rt.exr"), "--raytracing", "--passes", "all"} + size);
    ASSERT_TRUE(process.waitForStarted());
    // Progress moves inside the first sample; the interrupt comes there.
    QByteArray err;
    while (!err.contains("(sample 1 of ") && process.state() == QProcess::Running) {
        process.waitForReadyRead(100);
        err += process.readAllStandardError();
    }
    ASSERT_TRUE(err.contains("progress 0% (sample 1 of ")) << err.toStdString();
    const auto interrupted = std::chrono::steady_clock::now();
    ASSERT_TRUE(katest::interruptKaexport(process)) << "it ended before the interrupt";
    ASSERT_TRUE(process.waitForFinished(60000));
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - interrupted).count();
    err += process.readAllStandardError();
    EXPECT_EQ(process.exitCode(), 3) << err.toStdString();
    EXPECT_LT(seconds, limit);
    EXPECT_TRUE(err.contains("cancelled")) << err.toStdString();
    EXPECT_TRUE(QDir(dir.path())
                    .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)
                    .isEmpty())
        << "nothing written, not even a temporary file";
}

namespace {
// The file's XMP fields of the export's own namespace, read by exiv2: key -> value.
std::map<QString, QString> exportXmp(const QString& file) {
    QProcess exiv2;
    exiv2.start("exiv2", {"-PXkv", file});
    exiv2.waitForFinished(30000);
    std::map<QString, QString> fields;
    for (const QString& line : QString::fromUtf8(exiv2.readAllStandardOutput()).split('\n')) {
        const QString key = line.section(' ', 0, 0);
        if (key.startsWith("Xmp.kaExport."))
            fields[key.mid(13)] = line.section(' ', 1).trimmed();
    }
    return fields;
}
} // namespace

TEST_F(kaexportSnapshot, EveryMetadataFlagWritesItsPartWhenTheSceneHasIt) {
    // The built-in scene has a camera, a switch and a material switch; raytraced with a pass.
    KaexportResult r =
        runKaexport({"snapshot", dir.file("all.png"), "--width", "64", "--height", "48",
                     "--metadata", "255", "--raytracing", "--passes", "beauty"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    auto fields = exportXmp(dir.file("all-beauty.png"));
    EXPECT_EQ(fields["CameraName"], "Camera 1");
    EXPECT_EQ(fields["CameraFieldOfView"], "40");
    EXPECT_EQ(fields["SwitchChoices"], "Sphere Variants=0");
    EXPECT_EQ(fields["SwitchMaterialChoices"], "Box Paint=0");
    EXPECT_TRUE(fields["RaytracingSettings"].contains("Renderer=Embree"))
        << fields["RaytracingSettings"].toStdString();
    EXPECT_TRUE(fields["RaytracingSettings"].contains("Samples="));
    EXPECT_EQ(fields["RenderPasses"], "beauty");
    EXPECT_EQ(fields["ImageWidth"], "64");
    EXPECT_TRUE(fields["NodeVisibility"].contains("Chrome Cube=1"));

    // Rendered with OpenGL, nothing was raytraced: no raytracing settings to record.
    r = runKaexport(
        {"snapshot", dir.file("gl.png"), "--width", "64", "--height", "48", "--metadata", "72"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    fields = exportXmp(dir.file("gl.png"));
    EXPECT_EQ(fields.count("RaytracingSettings"), 0u);
    EXPECT_EQ(fields["ImageWidth"], "64");

    // A scene file without a camera: the camera made for it is the one recorded.
    QFile obj(dir.file("cube.obj"));
    ASSERT_TRUE(obj.open(QIODevice::WriteOnly));
    obj.write("o Cube\nv -1 -1 -1\nv 1 -1 -1\nv 1 1 -1\nv -1 1 -1\nv -1 -1 1\nv 1 -1 1\n"
              "v 1 1 1\nv -1 1 1\nf 1 2 3 4\nf 5 8 7 6\nf 1 5 6 2\nf 2 6 7 3\nf 3 7 8 4\n"
              "f 5 1 4 8\n");
    obj.close();
    r = runKaexport({"--scene", dir.file("cube.obj"), "snapshot", dir.file("cube.jpg"), "--width",
                     "64", "--height", "48", "--metadata", "1"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    fields = exportXmp(dir.file("cube.jpg"));
    EXPECT_EQ(fields["CameraName"], "Automatic Camera");
    EXPECT_FALSE(fields["CameraPosition"].isEmpty());
}

TEST_F(kaexportSnapshot, FastFilesCarryTheProfileAndTheMetadataLikeEveryFile) {
    KaexportResult r = runKaexport({"fast", dir.file("f.png"), "--count", "1", "--width", "64",
                                    "--height", "48", "--metadata", "1", "--icc", "2"});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(exportXmp(dir.file("f.png"))["CameraName"], "Camera 1");
    auto in = open(dir.file("f.png"));
    ASSERT_TRUE(in);
    EXPECT_EQ(in->spec().get_string_attribute("ICCProfile:profile_description"),
              "Adobe RGB (1998)");
}
