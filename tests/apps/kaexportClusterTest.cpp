// kaexport on a render cluster of real ka-render-node processes on this machine: the pictures
// equal the local raytracer's, and failures end the run cleanly.
#include "kaTestSupport.h"
#include "kaTexturedScenes.h"
#include "kaexportProcess.h"

#include <OpenImageIO/imageio.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QThread>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

// The environment of a kaexport that starts cluster nodes: tests may run as root, which Open
// MPI refuses unless told.
QProcessEnvironment clusterEnvironment() {
    QProcessEnvironment env = katest::kaexportEnvironment();
    env.insert("OMPI_ALLOW_RUN_AS_ROOT", "1");
    env.insert("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "1");
    return env;
}

katest::KaexportResult runOnCluster(const QStringList& args) {
    return katest::runKaexport(args, 300000, clusterEnvironment());
}

// Every subimage's channels as floats, and the header attributes of the first.
struct ExrContent {
    std::vector<std::vector<float>> subimages;
    std::map<std::string, std::string> attributes;
};

ExrContent readExr(const QString& file) {
    ExrContent content;
    auto in = OIIO::ImageInput::open(file.toStdString());
    if (!in)
        return content;
    for (int sub = 0; in->seek_subimage(sub, 0); ++sub) {
        const OIIO::ImageSpec& spec = in->spec();
        std::vector<float> values(size_t(spec.width) * spec.height * spec.nchannels);
        in->read_image(sub, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, values.data());
        content.subimages.push_back(std::move(values));
        if (sub == 0)
            for (const OIIO::ParamValue& p : spec.extra_attribs)
                content.attributes[p.name().string()] = p.get_string();
    }
    return content;
}

// The ka-render-node processes below 'ancestor' (kaexport starts Open MPI's daemon, which
// starts the nodes); other tests' nodes are left alone.
std::vector<int> renderNodesBelow(int ancestor) {
    std::map<int, int> parents;
    std::map<int, std::string> names;
    for (const QString& entry : QDir("/proc").entryList(QDir::Dirs)) {
        bool number = false;
        const int pid = entry.toInt(&number);
        if (!number)
            continue;
        std::ifstream stat("/proc/" + entry.toStdString() + "/stat");
        std::string line;
        std::getline(stat, line);
        const size_t open = line.find('('), close = line.rfind(')');
        if (open == std::string::npos || close == std::string::npos)
            continue;
        names[pid] = line.substr(open + 1, close - open - 1);
        std::istringstream rest(line.substr(close + 2));
        char state = 0;
        int parent = 0;
        rest >> state >> parent;
        if (state != 'Z')
            parents[pid] = parent;
    }
    std::vector<int> nodes;
    for (const auto& [pid, parent] : parents) {
        if (names[pid].rfind("ka-render-node", 0) != 0)
            continue;
        for (int p = parent; p > 1; p = parents.count(p) ? parents[p] : 0)
            if (p == ancestor) {
                nodes.push_back(pid);
                break;
            }
    }
    return nodes;
}

bool allGone(const std::vector<int>& pids, double seconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    for (;;) {
        bool gone = true;
        for (int pid : pids)
            gone = gone && (::kill(pid, 0) != 0 && errno == ESRCH);
        if (gone || std::chrono::steady_clock::now() > end)
            return gone;
        QThread::msleep(50);
    }
}

// Starts a long cluster render and waits until its nodes render.
std::vector<int> startLongClusterRender(QProcess& process, const QString& out) {
    katest::startKaexport(process,
                          {"snapshot", out, "--raytracing", "--cluster", "localhost:2",
                           "--cluster-timeout", "4", "--width", "320", "--height", "200",
                           "--samples", "100000", "--ss", "0"},
                          clusterEnvironment());
    process.waitForStarted();
    std::vector<int> nodes;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (nodes.size() < 2 && std::chrono::steady_clock::now() < end &&
           process.state() == QProcess::Running) {
        QThread::msleep(50);
        nodes = renderNodesBelow(int(process.processId()));
    }
    // Into the samples: the progress display runs once the nodes have started (a node killed
    // while Open MPI still starts it is another matter: see the cluster's start-up).
    QByteArray err;
    process.setReadChannel(QProcess::StandardError);
    while (!err.contains("progress") && std::chrono::steady_clock::now() < end &&
           process.state() == QProcess::Running) {
        process.waitForReadyRead(100);
        err += process.readAllStandardError();
    }
    process.setReadChannel(QProcess::StandardOutput);
    QThread::msleep(500);
    return nodes;
}

} // namespace

class ClusterNodeCount : public ::testing::TestWithParam<int> {};

TEST_P(ClusterNodeCount, ClusterSnapshotEqualsTheLocalRaytracedSnapshotInEveryPass) {
    katest::TempDir dir;
    const QStringList common{"--raytracing",
                             "--width",
                             "97",
                             "--height",
                             "61",
                             "--samples",
                             "6",
                             "--ss",
                             "0",
                             "--passes",
                             "all",
                             "--set",
                             "ImageExport multi layer exr=true"};
    const QString setup = "localhost:" + QString::number(GetParam());
    const auto cluster =
        runOnCluster(QStringList{"snapshot", dir.file("cluster.exr"), "--cluster", setup} + common);
    ASSERT_EQ(cluster.code, 0) << cluster.err.toStdString();
    const auto local = katest::runKaexport(QStringList{"snapshot", dir.file("local.exr")} + common);
    ASSERT_EQ(local.code, 0) << local.err.toStdString();

    const ExrContent a = readExr(dir.file("cluster.exr")), b = readExr(dir.file("local.exr"));
    ASSERT_EQ(a.subimages.size(), 1u);
    ASSERT_EQ(b.subimages.size(), 1u);
    // One layer per pass, each with its channels.
    EXPECT_GE(a.subimages[0].size(), size_t(97 * 61) * 47 * 3);
    EXPECT_TRUE(a.subimages[0] == b.subimages[0]) << "the layers differ";
    // The Cryptomatte description: names, hashes and manifests of the scene's objects.
    int cryptoAttributes = 0;
    for (const auto& [name, value] : b.attributes)
        if (name.rfind("cryptomatte/", 0) == 0) {
            ++cryptoAttributes;
            EXPECT_EQ(a.attributes.count(name) ? a.attributes.at(name) : "", value) << name;
        }
    EXPECT_GT(cryptoAttributes, 4);
}

INSTANTIATE_TEST_SUITE_P(TwoAndThree, ClusterNodeCount, ::testing::Values(2, 3));

TEST(KaexportCluster, ClusterSequenceWithSimulationEqualsTheLocalOne) {
    katest::TempDir dir;
    const QStringList common{
        "--raytracing", "--width", "64",     "--height", "40",    "--samples", "3", "--ss", "0",
        "--start",      "0",       "--stop", "4",        "--fps", "10"};
    const auto cluster = runOnCluster(
        QStringList{"sequence", dir.file("c.exr"), "--cluster", "localhost:2"} + common);
    ASSERT_EQ(cluster.code, 0) << cluster.err.toStdString();
    const auto local = katest::runKaexport(QStringList{"sequence", dir.file("l.exr")} + common);
    ASSERT_EQ(local.code, 0) << local.err.toStdString();
    std::vector<float> previous;
    for (int frame = 0; frame <= 4; ++frame) {
        const QString number = QString("-%1.exr").arg(frame, 5, 10, QChar('0'));
        const ExrContent c = readExr(dir.file("c" + number)), l = readExr(dir.file("l" + number));
        ASSERT_EQ(c.subimages.size(), 1u) << number.toStdString();
        ASSERT_EQ(l.subimages.size(), 1u) << number.toStdString();
        EXPECT_TRUE(c.subimages[0] == l.subimages[0]) << "frame " << frame;
        // The balls fall: every frame is a picture of its own.
        EXPECT_NE(c.subimages[0], previous) << "frame " << frame;
        previous = c.subimages[0];
    }
}

TEST(KaexportCluster, Cluster8BitPicturesAreWithinTwoCodeValuesOfTheLocalOnes) {
    katest::TempDir dir;
    const QStringList common{"--raytracing", "--width", "80",   "--height", "50",
                             "--samples",    "4",       "--ss", "0",        "--alpha"};
    ASSERT_EQ(runOnCluster(QStringList{"snapshot", dir.file("c.png"), "--cluster", "localhost:2"} +
                           common)
                  .code,
              0);
    ASSERT_EQ(katest::runKaexport(QStringList{"snapshot", dir.file("l.png")} + common).code, 0);
    const ExrContent c = readExr(dir.file("c.png")), l = readExr(dir.file("l.png"));
    ASSERT_EQ(c.subimages.size(), 1u);
    ASSERT_EQ(c.subimages[0].size(), l.subimages[0].size());
    ASSERT_EQ(c.subimages[0].size(), size_t(80 * 50 * 4));
    float worst = 0;
    for (size_t i = 0; i < c.subimages[0].size(); ++i)
        worst = std::max(worst, std::abs(c.subimages[0][i] - l.subimages[0][i]));
    EXPECT_LE(worst, 2.0f / 255.0f + 1e-6f);
}

// The nodes light the scene as the master says: here with the default lights besides the
// scene's own, a stop up.
TEST(KaexportCluster, TheNodesLightTheSceneAsTheMasterDoes) {
    katest::TempDir dir;
    const QStringList common{"--raytracing", "--width", "48",   "--height", "32",
                             "--samples",    "2",       "--ss", "0"};
    const QStringList headlight{"--headlight", "on", "--exposure", "1"};
    const auto cluster =
        runOnCluster(QStringList{"snapshot", dir.file("c.exr"), "--cluster", "localhost:2"} +
                     common + headlight);
    ASSERT_EQ(cluster.code, 0) << cluster.err.toStdString();
    ASSERT_EQ(
        katest::runKaexport(QStringList{"snapshot", dir.file("l.exr")} + common + headlight).code,
        0);
    ASSERT_EQ(katest::runKaexport(QStringList{"snapshot", dir.file("p.exr")} + common).code, 0);
    const ExrContent c = readExr(dir.file("c.exr")), l = readExr(dir.file("l.exr")),
                     plain = readExr(dir.file("p.exr"));
    ASSERT_EQ(c.subimages.size(), 1u);
    ASSERT_EQ(l.subimages.size(), 1u);
    ASSERT_EQ(plain.subimages.size(), 1u);
    EXPECT_TRUE(c.subimages[0] == l.subimages[0]);
    EXPECT_FALSE(plain.subimages[0] == l.subimages[0]) << "the lights differ";
}

namespace {

// A small raytraced snapshot of the scene 'scene' chooses (program options) on a cluster of
// two nodes equals the local one, to the bit.
void expectClusterEqualsLocal(const katest::TempDir& dir, const QStringList& scene) {
    const QStringList options{"--raytracing", "--width", "48",   "--height", "32",
                              "--samples",    "2",       "--ss", "0"};
    const auto cluster = runOnCluster(
        scene + QStringList{"snapshot", dir.file("c.exr"), "--cluster", "localhost:2"} + options);
    ASSERT_EQ(cluster.code, 0) << cluster.err.toStdString();
    ASSERT_EQ(
        katest::runKaexport(scene + QStringList{"snapshot", dir.file("l.exr")} + options).code, 0);
    const ExrContent c = readExr(dir.file("c.exr")), l = readExr(dir.file("l.exr"));
    ASSERT_EQ(c.subimages.size(), 1u);
    ASSERT_EQ(l.subimages.size(), 1u);
    EXPECT_TRUE(c.subimages[0] == l.subimages[0]);
}

} // namespace

// A scene file's pictures (base colour, metallic-roughness, emission) travel to the nodes with
// its materials, and so do their alpha modes: the nodes' picture is the local one.
TEST(KaexportCluster, TheNodesShowTheScenesPictures) {
    katest::TempDir dir;
    ASSERT_TRUE(katest::writeHalvesPicture(dir.file("quadrants.png")));
    ASSERT_TRUE(katest::writeFlatPicture(dir.file("flat.png"), 0, 51, 255));
    katest::TexturedSquare square;
    square.alphaMode = "MASK";
    square.metallic = 1;
    square.metallicRoughnessUri = "flat.png";
    square.emissive = 0.5f;
    square.emissiveUri = "quadrants.png";
    ASSERT_TRUE(katest::writeFile(dir.file("square.gltf"), katest::texturedSquareGltf(square)));
    expectClusterEqualsLocal(dir, {"--scene", dir.file("square.gltf"), "--view", "front"});
}

// Spot lights keep their cones on the nodes (tests/data/blender/makeSpot.py).
TEST(KaexportCluster, TheNodesLightSpotConesAsTheMasterDoes) {
    katest::TempDir dir;
    expectClusterEqualsLocal(
        dir,
        {"--scene", QString(KA_TEST_SOURCE_DIR) + "/../data/blender/spot.glb", "--view", "top"});
}

TEST(KaexportCluster, AKilledNodeFailsTheRunWithinTheTimeoutAndLeavesNothing) {
    katest::TempDir dir;
    QProcess process;
    const std::vector<int> nodes = startLongClusterRender(process, dir.file("x.exr"));
    ASSERT_EQ(nodes.size(), 2u) << process.readAllStandardError().toStdString();
    const auto killed = std::chrono::steady_clock::now();
    ::kill(nodes[1], SIGKILL);
    ASSERT_TRUE(process.waitForFinished(60000));
    // Within the 4 s a node may stay silent, or, when the node was still starting, the 4 + 10 s
    // a start may take.
    EXPECT_LT(std::chrono::steady_clock::now() - killed, std::chrono::seconds(20));
    const QString err = QString::fromUtf8(process.readAllStandardError());
    EXPECT_EQ(process.exitCode(), 1) << err.toStdString();
    EXPECT_TRUE(err.contains("kaexport: the render cluster failed: render node 1") ||
                err.contains("the render nodes did not start within 14 s"))
        << err.toStdString();
    EXPECT_EQ(katest::folderEntries(dir.path()), std::vector<std::string>());
    EXPECT_TRUE(allGone(nodes, 10.0)) << "render nodes were left running";
}

TEST(KaexportCluster, CtrlCStopsTheNodesAndWritesNothing) {
    katest::TempDir dir;
    QProcess process;
    const std::vector<int> nodes = startLongClusterRender(process, dir.file("x.png"));
    ASSERT_EQ(nodes.size(), 2u) << process.readAllStandardError().toStdString();
    const auto interrupted = std::chrono::steady_clock::now();
    ASSERT_TRUE(katest::interruptKaexport(process));
    ASSERT_TRUE(process.waitForFinished(30000));
    EXPECT_LT(std::chrono::steady_clock::now() - interrupted, std::chrono::seconds(5));
    EXPECT_EQ(process.exitCode(), 3) << process.readAllStandardError().toStdString();
    EXPECT_EQ(katest::folderEntries(dir.path()), std::vector<std::string>());
    EXPECT_TRUE(allGone(nodes, 10.0)) << "render nodes were left running";
}

TEST(KaexportCluster, ClusterNeedsTheRaytracer) {
    katest::TempDir dir;
    const auto run = runOnCluster({"snapshot", dir.file("x.png"), "--cluster", "localhost:2"});
    EXPECT_EQ(run.code, 2);
    EXPECT_TRUE(run.err.contains("--raytracing")) << run.err.toStdString();
}

TEST(KaexportCluster, AnUnreadableSetupFailsWithItsReason) {
    katest::TempDir dir;
    const auto run = runOnCluster(
        {"snapshot", dir.file("x.png"), "--raytracing", "--cluster", "localhost:many"});
    EXPECT_EQ(run.code, 1);
    EXPECT_TRUE(run.err.contains("cannot read 'localhost:many' of the cluster set-up"))
        << run.err.toStdString();
    EXPECT_EQ(katest::folderEntries(dir.path()), std::vector<std::string>());
}

TEST(KaexportCluster, ClusterCheckReportsEveryNode) {
    const auto run =
        runOnCluster({"cluster-check", "localhost:3", "--width", "64", "--height", "48"});
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    EXPECT_TRUE(run.out.startsWith("3 render nodes started in ")) << run.out.toStdString();
    for (int node = 0; node < 3; ++node)
        EXPECT_TRUE(run.out.contains(QString("node %1: ").arg(node))) << run.out.toStdString();
    // The rows of the picture are shared out whole.
    int rows = 0;
    for (const QString& line : run.out.split('\n'))
        if (line.startsWith("node "))
            rows += line.section(": ", 2).section(' ', 0, 0).toInt();
    EXPECT_EQ(rows, 48) << run.out.toStdString();
}

TEST(KaexportCluster, WorksWhenStartedByMpirun) {
    katest::TempDir dir;
    const QStringList common{"--raytracing", "--width", "48",   "--height", "32",
                             "--samples",    "3",       "--ss", "0"};
    QProcess process;
    process.setProcessEnvironment(clusterEnvironment());
    process.start("mpirun", QStringList{"--oversubscribe", "-np", "1", KAEXPORT_PATH, "snapshot",
                                        dir.file("m.exr"), "--cluster", "localhost:2"} +
                                common);
    ASSERT_TRUE(process.waitForFinished(120000));
    ASSERT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    ASSERT_EQ(katest::runKaexport(QStringList{"snapshot", dir.file("l.exr")} + common).code, 0);
    const ExrContent m = readExr(dir.file("m.exr")), l = readExr(dir.file("l.exr"));
    ASSERT_EQ(m.subimages.size(), 1u);
    ASSERT_EQ(l.subimages.size(), 1u);
    EXPECT_TRUE(m.subimages[0] == l.subimages[0]);
}
