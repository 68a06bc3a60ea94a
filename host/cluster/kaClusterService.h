#pragma once

#include "OSGNetWindow.h"
#include "kaKernelServiceFactory.h"

#include <QString>

#include <memory>
#include <string>
#include <vector>

class kaClusterTransport;
class kaOSGWidget;

// The host's raytracing render cluster: render-node processes (ka-render-node) spawned with
// Open MPI on the hosts of a set-up string, and the network window (osg::NetWindow) through
// which the main view's scene is raytraced on them. Registered with kaKernelServiceFactory as
// "kaClusterService".
//
// The set-up string names hosts with process counts, "localhost:3" or "nodeA:8,nodeB:8" (a
// host without a count runs one node), or is the name of an Open MPI host file. Nodes are
// started with Open MPI's launch agents, so the same build runs on a multi-machine cluster
// (the node program must be at the same path there). Works whether or not the program was
// started by mpirun. GUI thread only.
class kaClusterService : public kaKernelService {
public:
    kaClusterService();
    ~kaClusterService() override;
    const char* getServiceName() const override { return "kaClusterService"; }

    // The service registered with the host (made and registered on first use).
    static std::shared_ptr<kaClusterService> the();

    void setSetup(const QString& setup) { _setup = setup; }
    const QString& getSetup() const { return _setup; }
    // When a node fails, the nodes on this machine are killed at once (on by default; off keeps
    // them for a debugger). Open MPI ends the node job on other machines when one node dies.
    void setStopNodesOnFailure(bool on) { _stopNodesOnFailure = on; }
    bool getStopNodesOnFailure() const { return _stopNodesOnFailure; }
    // start() returns only when every node has answered (otherwise the first frame waits).
    void setWaitForNodes(bool on) { _waitForNodes = on; }
    bool getWaitForNodes() const { return _waitForNodes; }
    // How long a node may stay silent before it counts as failed (30 s unless set).
    void setNodeTimeout(double seconds) { _timeout = seconds; }
    double getNodeTimeout() const { return _timeout; }
    // Threads each node renders with; 0 shares each machine's cores among its nodes.
    void setThreadsPerNode(int threads) { _threadsPerNode = threads; }

    // Spawns the nodes of the set-up string and gives the main view (kaOSGWidget::getMGLW(-1))
    // its cluster window. False, with the reason logged and in getLastError(), when the
    // string is empty or wrong, the node program is missing, or the nodes do not start.
    bool start();
    bool isRunning() const;
    // The nodes leave, the cluster window goes; nothing is left running.
    void stop();
    const std::string& getLastError() const { return _lastError; }

    const osg::NetWindowPtr& getClusterWindow() const { return _window; }

    struct NodeInfo {
        std::string host;
        int pid = 0;
        int cores = 0;
        int rows = 0;         // of the last sample's picture
        double seconds = 0.0; // the last sample took
    };
    std::vector<NodeInfo> getNodes() const;

    // What the last frame cost the master, for benchmarks and diagnostics.
    struct FrameStats {
        double seconds = 0.0;       // the whole frame, as the master waited for it
        double slowestNode = 0.0;   // the longest a node rendered
        double encodeSeconds = 0.0; // the change list (or the scene) made into a message
        double gatherSeconds = 0.0; // pixels received and copied into the buffer
        size_t sentBytes = 0;       // to every node together
        size_t receivedBytes = 0;   // pixels from every node together
    };
    FrameStats getLastFrameStats() const;

    // The hosts and counts of a set-up string ("a:2,b" -> {a,2},{b,1}) or of the host file it
    // names ("a slots=2" lines); empty (with the reason) when it cannot be read.
    static std::vector<std::pair<std::string, int>> parseSetup(const QString& setup,
                                                               std::string& error);
    // The node program this build runs (KA_RENDER_NODE, beside the program, installed, or in
    // the build tree).
    static std::string nodeProgram();

private:
    QString _setup;
    bool _stopNodesOnFailure = true, _waitForNodes = false;
    double _timeout = 30.0;
    int _threadsPerNode = 0;
    std::string _lastError;
    std::shared_ptr<kaClusterTransport> _transport;
    osg::NetWindowPtr _window;
    kaOSGWidget* _view = nullptr;
};
