// The render cluster on this machine: real ka-render-node processes spawned through Open MPI,
// checked against the local raytracer.
#include "kaClusterService.h"

#include "OSGNodeCores.h"
#include "kaBuiltinScene.h"
#include "kaKernelServiceFactory.h"
#include "kaOSGWidget.h"
#include "kaRTRenderer.h"
#include "kaRenderPassCatalogue.h"
#include "kaTestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

constexpr int W = 61, H = 37; // odd sizes: bands of unequal rows

uint64_t allPasses() {
    return (uint64_t(1) << kaRenderPass::Count) - 1;
}

bool processGone(int pid) {
    return ::kill(pid, 0) != 0 && errno == ESRCH;
}

bool waitGone(int pid, double seconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!processGone(pid) && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return processGone(pid);
}

class Cluster : public ::testing::Test {
protected:
    void SetUp() override {
        // The tests may run as root, which Open MPI refuses unless told.
        setenv("OMPI_ALLOW_RUN_AS_ROOT", "1", 1);
        setenv("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "1", 1);
        kaOSGWidget::setMainView(&view);
        kaOSGWidget::setRaytracing(true);
        view.setSize(W, H);
    }
    void TearDown() override {
        if (service)
            service->stop();
        kaOSGWidget::setRaytracing(false);
        kaOSGWidget::setMainView(nullptr);
    }

    bool start(const char* setup, double timeout = 30.0) {
        service = std::make_shared<kaClusterService>();
        service->setSetup(setup);
        service->setStopNodesOnFailure(true);
        service->setWaitForNodes(true);
        service->setNodeTimeout(timeout);
        return service->start();
    }

    // Renders samples 0 .. samples - 1 on the cluster and brings every pass back with the last.
    void renderOnCluster(int samples, uint64_t passes) {
        const osg::NetWindowPtr& window = service->getClusterWindow();
        window->setSize(W, H);
        window->setRenderPasses(passes);
        window->setImageOps(osg::NetWindow::ImageOpFloat | osg::NetWindow::ImageOpBottomUp);
        for (int k = 0; k < samples; ++k) {
            const bool last = k == samples - 1;
            window->setRtSample(k);
            window->setIsFinalRtSample(last);
            window->setRendering(last);
            window->setCopyPasses(last ? passes : 1);
            window->render();
            ASSERT_EQ(window->getRtSample(), k) << "the cluster started over";
        }
        window->waitAllFrames();
    }

    std::vector<osg::ImagePtr> renderLocally(int samples, uint64_t passes) {
        std::vector<osg::ImagePtr> images(size_t(kaRenderPass::Count));
        for (int pass = 0; pass < kaRenderPass::Count; ++pass)
            if (passes & (uint64_t(1) << pass)) {
                images[size_t(pass)] = osg::Image::create();
                images[size_t(pass)]->set(osg::Image::OSG_RGBA_PF, W, H, 1, 1, 1, 0.0, nullptr,
                                          osg::Image::OSG_FLOAT32_IMAGEDATA, true);
                if (!kaRenderPass::holdsLight(pass))
                    images[size_t(pass)]->setAlphaMode(osg::Image::AlphaMode::Independent);
            }
        kaRTRenderer::Region region;
        region.fullWidth = region.width = W;
        region.fullHeight = region.height = H;
        std::string error;
        EXPECT_TRUE(kaRTRenderer::the().render(*view.getViewport(),
                                               *view.getViewport()->getCamera(), region, images,
                                               samples, -1, error))
            << error;
        kaRTRenderer::the().releaseBuffers();
        return images;
    }

    // Passes whose floats differ between the cluster's buffer and the local images.
    std::vector<int> differingPasses(const std::vector<osg::ImagePtr>& local, uint64_t passes) {
        std::vector<int> differing;
        const osg::NetWindowPtr& window = service->getClusterWindow();
        for (int pass = 0; pass < kaRenderPass::Count; ++pass) {
            if (!(passes & (uint64_t(1) << pass)))
                continue;
            const uint8_t* slot = window->getPassData(pass);
            if (!slot || std::memcmp(slot, local[size_t(pass)]->getData(), size_t(W) * H * 16) != 0)
                differing.push_back(pass);
        }
        return differing;
    }

    kaOSGWidget view;
    kaBuiltinScene scene{view};
    std::shared_ptr<kaClusterService> service;
};

} // namespace

TEST(ClusterSetup, ReadsHostsWithCounts) {
    std::string error;
    const auto hosts = kaClusterService::parseSetup("nodeA:8, nodeB:8,nodeC", error);
    EXPECT_TRUE(error.empty());
    ASSERT_EQ(hosts.size(), 3u);
    EXPECT_EQ(hosts[0], std::make_pair(std::string("nodeA"), 8));
    EXPECT_EQ(hosts[1], std::make_pair(std::string("nodeB"), 8));
    EXPECT_EQ(hosts[2], std::make_pair(std::string("nodeC"), 1));
}

TEST(ClusterSetup, ReadsOpenMpiHostFiles) {
    katest::TempDir dir;
    QFile file(dir.file("hosts"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("# render farm\nnodeA slots=4\nnodeB\n\n");
    file.close();
    std::string error;
    const auto hosts = kaClusterService::parseSetup(dir.file("hosts"), error);
    ASSERT_EQ(hosts.size(), 2u) << error;
    EXPECT_EQ(hosts[0], std::make_pair(std::string("nodeA"), 4));
    EXPECT_EQ(hosts[1], std::make_pair(std::string("nodeB"), 1));
}

TEST(ClusterSetup, RefusesWhatItCannotRead) {
    for (const char* setup : {"", "  ", "node:0", "node:x", "a b:2", "node:-1"}) {
        std::string error;
        EXPECT_TRUE(kaClusterService::parseSetup(setup, error).empty()) << setup;
        EXPECT_FALSE(error.empty()) << setup;
    }
}

TEST(ClusterSetup, TheServiceIsFoundByItsClassName) {
    const auto service = kaClusterService::the();
    EXPECT_EQ(kaKernelServiceFactory::get<kaClusterService>("kaClusterService"), service);
    EXPECT_STREQ(service->getServiceName(), "kaClusterService");
}

TEST_F(Cluster, AWrongSetupDoesNotStart) {
    katest::LogCapture log;
    EXPECT_FALSE(start("localhost:x"));
    EXPECT_FALSE(service->isRunning());
    EXPECT_FALSE(view.getClusterWindow());
    EXPECT_FALSE(service->getLastError().empty());
}

TEST_F(Cluster, StartsNodesAndStopsThemWithoutLeavingProcesses) {
    ASSERT_TRUE(start("localhost:2")) << service->getLastError();
    EXPECT_TRUE(service->isRunning());
    EXPECT_EQ(view.getClusterWindow(), service->getClusterWindow());
    const auto nodes = service->getNodes();
    ASSERT_EQ(nodes.size(), 2u);
    for (const auto& node : nodes) {
        EXPECT_GT(node.pid, 0);
        EXPECT_FALSE(processGone(node.pid));
    }
    service->stop();
    EXPECT_FALSE(service->isRunning());
    EXPECT_FALSE(view.getClusterWindow());
    for (const auto& node : nodes)
        EXPECT_TRUE(waitGone(node.pid, 5.0)) << "node " << node.pid << " still runs";
}

class ClusterNodes : public Cluster, public ::testing::WithParamInterface<int> {};

TEST_P(ClusterNodes, RenderEqualsTheLocalRaytracerInEveryPass) {
    const std::string setup = "localhost:" + std::to_string(GetParam());
    ASSERT_TRUE(start(setup.c_str())) << service->getLastError();
    renderOnCluster(4, allPasses());
    const std::vector<osg::ImagePtr> local = renderLocally(4, allPasses());
    EXPECT_EQ(differingPasses(local, allPasses()), std::vector<int>());
    // Something was rendered: the scene's colours, not an empty buffer.
    const float* beauty =
        reinterpret_cast<const float*>(service->getClusterWindow()->getPassData(0));
    float sum = 0;
    for (int i = 0; i < W * H * 4; ++i)
        sum += beauty[i];
    EXPECT_GT(sum, float(W * H) * 0.1f);
}

INSTANTIATE_TEST_SUITE_P(OneTwoThree, ClusterNodes, ::testing::Values(1, 2, 3));

TEST_F(Cluster, NodesFollowTheMastersChangesBetweenFrames) {
    ASSERT_TRUE(start("localhost:2")) << service->getLastError();
    renderOnCluster(2, 1);
    // Move everything: the nodes learn it from the change list alone.
    for (const osg::NodePtr& node : osg::collectNodes(view.getSceneRoot()))
        if (auto* transform = dynamic_cast<osg::Transform*>(node->getCore().get())) {
            osg::Matrix m = transform->getMatrix();
            m.m[1][3] += 0.25f;
            transform->setMatrix(m);
        }
    renderOnCluster(2, 1);
    const std::vector<osg::ImagePtr> local = renderLocally(2, 1);
    EXPECT_EQ(differingPasses(local, 1), std::vector<int>());
}

TEST_F(Cluster, ASampleOutOfTurnRestartsTheAccumulation) {
    ASSERT_TRUE(start("localhost:2")) << service->getLastError();
    const osg::NetWindowPtr& window = service->getClusterWindow();
    window->setSize(W, H);
    window->setImageOps(osg::NetWindow::ImageOpFloat);
    window->setRtSample(0);
    window->render();
    EXPECT_EQ(window->getRtSample(), 0);
    window->setRtSample(5); // samples 1 to 4 never came
    window->render();
    EXPECT_EQ(window->getRtSample(), osg::NetWindow::RestartedSample);
}

TEST_F(Cluster, AKilledNodeEndsTheFrameWithTheClusterExceptionAndNothingRuns) {
    ASSERT_TRUE(start("localhost:2", 5.0)) << service->getLastError();
    const osg::NetWindowPtr window = service->getClusterWindow();
    window->setSize(W, H);
    window->setImageOps(osg::NetWindow::ImageOpFloat);
    window->setRtSample(0);
    window->render();
    const auto nodes = service->getNodes();
    ::kill(nodes[1].pid, SIGKILL);
    window->setRtSample(1);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THROW(window->render(), kaClusterClusterWindowException);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(7));
    EXPECT_FALSE(service->isRunning());
    service->stop();
    for (const auto& node : nodes)
        EXPECT_TRUE(waitGone(node.pid, 5.0)) << "node " << node.pid << " still runs";
}

TEST_F(Cluster, ASilentNodeCountsAsFailedAfterTheTimeout) {
    ASSERT_TRUE(start("localhost:2", 2.0)) << service->getLastError();
    const osg::NetWindowPtr window = service->getClusterWindow();
    window->setSize(W, H);
    window->setImageOps(osg::NetWindow::ImageOpFloat);
    const auto nodes = service->getNodes();
    ::kill(nodes[0].pid, SIGSTOP);
    window->setRtSample(0);
    const auto start = std::chrono::steady_clock::now();
    try {
        window->render();
        ADD_FAILURE() << "a stopped node went unnoticed";
    } catch (const kaClusterClusterWindowException& e) {
        EXPECT_NE(std::string(e.what()).find("did not answer within 2 s"), std::string::npos)
            << e.what();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    service->stop();
    for (const auto& node : nodes)
        EXPECT_TRUE(waitGone(node.pid, 5.0)) << "node " << node.pid << " still runs";
}

TEST_F(Cluster, CancelStopsTheNodesInTheMiddleOfASample) {
    view.setSize(640, 480);
    ASSERT_TRUE(start("localhost:2")) << service->getLastError();
    const osg::NetWindowPtr window = service->getClusterWindow();
    window->setSize(640, 480);
    window->setRenderPasses(allPasses());
    window->setImageOps(osg::NetWindow::ImageOpFloat);
    int asked = 0;
    window->setCancelCB([&] { return ++asked >= 2; });
    window->setRtSample(0);
    const auto start = std::chrono::steady_clock::now();
    window->render();
    EXPECT_TRUE(window->isCanceled());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    // The cluster goes on with the next frame; the broken sample is rendered again.
    window->setCancelCB(nullptr);
    window->setSize(W, H);
    window->setRenderPasses(1);
    window->setRtSample(0);
    window->render();
    EXPECT_TRUE(service->isRunning());
}

TEST_F(Cluster, NodesStayForADebuggerWhenAskedNotToStopThem) {
    service = std::make_shared<kaClusterService>();
    service->setSetup("localhost:2");
    service->setWaitForNodes(true);
    service->setNodeTimeout(2.0);
    service->setStopNodesOnFailure(false);
    ASSERT_TRUE(service->start()) << service->getLastError();
    const osg::NetWindowPtr window = service->getClusterWindow();
    window->setSize(W, H);
    window->setImageOps(osg::NetWindow::ImageOpFloat);
    const auto nodes = service->getNodes();
    ::kill(nodes[0].pid, SIGSTOP);
    window->setRtSample(0);
    EXPECT_THROW(window->render(), kaClusterClusterWindowException);
    service->stop();
    EXPECT_FALSE(processGone(nodes[0].pid)) << "the silent node was stopped all the same";
    for (const auto& node : nodes)
        ::kill(node.pid, SIGKILL);
    for (const auto& node : nodes)
        EXPECT_TRUE(waitGone(node.pid, 5.0));
}
