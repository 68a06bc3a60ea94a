// kaexport cluster-check: brings a render cluster up, raytraces one sample of the scene on it
// and tells how fast each node was.
#include "kaexportApp.h"
#include "kaexportOptions.h"

#include "kaClusterService.h"
#include "kaOSGWidget.h"
#include "kaRaytracer.h"

#include <CLI/CLI.hpp>

#include <QString>

#include <chrono>
#include <cstdio>
#include <memory>
#include <ostream>

namespace kaexport {

namespace {
struct ClusterCheckOptions {
    std::string setup;
    int width = 640, height = 360;
    double timeout = 30.0;
};
} // namespace

Runner defineClusterCheck(CLI::App& command) {
    auto o = std::make_shared<ClusterCheckOptions>();
    describe(command, "Starts the render nodes of SETUP (\"localhost:3\", \"nodeA:8,nodeB:8\" or "
                      "an Open MPI host file), raytraces one sample of the scene on them, prints "
                      "each node's share and speed, and stops them.");
    command.add_option("SETUP", o->setup, "the cluster set-up")->required()->type_name("SETUP");
    command.add_option("--width", o->width, "width of the test picture")
        ->type_name("W")
        ->check(rangeCheck(1, 65536));
    command.add_option("--height", o->height, "height of the test picture")
        ->type_name("H")
        ->check(rangeCheck(1, 65536));
    command
        .add_option("--cluster-timeout", o->timeout,
                    "seconds a render node may stay silent before it counts as failed")
        ->type_name("SECONDS")
        ->check(rangeCheck(1.0, 86400.0));
    return [o](Streams& io, Host*) {
        const std::shared_ptr<kaClusterService> service = kaClusterService::the();
        service->setSetup(QString::fromStdString(o->setup));
        service->setStopNodesOnFailure(true);
        service->setWaitForNodes(true);
        service->setNodeTimeout(o->timeout);
        const auto startClock = std::chrono::steady_clock::now();
        if (!service->start()) {
            io.err << "kaexport cluster-check: the cluster did not start: "
                   << service->getLastError() << "\n";
            return int(Failed);
        }
        const double startSeconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - startClock).count();
        kaOSGWidget* view = kaOSGWidget::getMGLW(-1);
        const osg::NetWindowPtr window = service->getClusterWindow();
        window->setClusterViewport(view->getViewport());
        window->setSize(uint32_t(o->width), uint32_t(o->height));
        window->setImageOps(osg::NetWindow::ImageOpFloat | osg::NetWindow::ImageOpBottomUp);
        window->setRenderPasses(1);
        window->setCopyPasses(1);
        window->setRendering(true);
        window->setIsFinalRtSample(true);
        const auto renderClock = std::chrono::steady_clock::now();
        try {
            // The first picture shares the rows equally; the second, a new picture, shares them
            // by the speeds the first measured.
            for (int picture = 0; picture < 2; ++picture) {
                window->setRtSample(0);
                window->render();
            }
        } catch (const kaClusterClusterWindowException& e) {
            io.err << "kaexport cluster-check: the render cluster failed: " << e.what() << "\n";
            service->stop();
            return int(Failed);
        }
        const double renderSeconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - renderClock).count();
        const auto nodes = service->getNodes();
        io.out << nodes.size() << " render nodes started in "
               << QString::number(startSeconds, 'f', 2).toStdString() << " s; 2 pictures of "
               << o->width << " x " << o->height << " in "
               << QString::number(renderSeconds, 'f', 2).toStdString() << " s\n";
        for (size_t i = 0; i < nodes.size(); ++i) {
            const auto& node = nodes[i];
            const double speed = node.seconds > 0 ? double(node.rows) / node.seconds : 0.0;
            char line[256];
            std::snprintf(line, sizeof line,
                          "node %zu: %s, process %d, %d cores: %d rows in %.3f s (%.1f rows/s)\n",
                          i, node.host.c_str(), node.pid, node.cores, node.rows, node.seconds,
                          speed);
            io.out << line;
        }
        service->stop();
        return int(Done);
    };
}

} // namespace kaexport
