#pragma once

#include "OSGNetWindow.h"
#include "kaClusterProtocol_p.h"
#include "kaClusterSceneCodec.h"
#include "kaClusterService.h"

#include <mpi.h>

#include <atomic>
#include <string>
#include <vector>

// The master's end of the cluster: the spawned nodes behind one intercommunicator, the scene
// they know, and the frames sent to them. Used by kaClusterService and, as the network
// window's transport, by osg::NetWindow. GUI thread only.
class kaClusterTransport : public osg::NetWindowTransport {
public:
    struct Node {
        std::string host;
        int pid = 0, cores = 1;
        bool greeted = false;
        int bandY = 0, bandHeight = 0;
        double seconds = 0.0; // the last sample's render time
        int rows = 0;         // the rows it was for
    };

    // 'stopNodesOnFailure': kill the nodes on this machine when one fails.
    kaClusterTransport(double timeoutSeconds, int threadsPerNode, bool stopNodesOnFailure);
    ~kaClusterTransport() override;

    // Spawns 'count' nodes running 'program' on the hosts of 'hosts' (Open MPI's "host" info,
    // or a host file). False with the reason.
    bool spawn(const std::string& program, const std::vector<std::string>& arguments,
               const std::string& hosts, bool hostFile, int count, std::string& error);
    // Waits for every node's greeting; false (with the reason) when one does not come in time.
    bool waitForNodes(std::string& error);
    // Asks the nodes to leave and waits for them; kills the local ones that do not.
    void quit();
    bool isBroken() const { return _broken; }
    // Whether a start of nodes never came back: Open MPI can then not be finished at exit.
    static bool spawnStuck() { return s_spawnStuck; }
    const std::vector<Node>& nodes() const { return _nodes; }
    const kaClusterService::FrameStats& lastFrame() const { return _stats; }

    void renderFrame(osg::NetWindow& window) override;
    void waitAllFrames(osg::NetWindow& window) override;

private:
    struct Pending;
    struct SpawnCall;
    static std::atomic<bool> s_spawnStuck;
    void send(int node, int tag, const void* data, size_t bytes);
    // Handles one message that arrived, if any; false when none was waiting.
    bool receiveOne(osg::NetWindow& window, std::vector<Pending>& pending);
    void balanceBands(int height);
    [[noreturn]] void fail(const std::string& reason);
    void killLocalNodes();

    MPI_Comm _nodesComm = MPI_COMM_NULL;
    std::vector<Node> _nodes;
    kaClusterSceneEncoder _encoder;
    double _timeout;
    int _threadsPerNode;
    bool _stopNodesOnFailure;
    uint32_t _serial = 0;
    bool _broken = false;
    std::vector<double> _lastHeard;
    kaClusterService::FrameStats _stats;
};
