#include "kaClusterTransport_p.h"

#include "OSGCamera.h"
#include "kaAnimManager.h"
#include "kaColor.h"
#include "kaDefaultLights.h"
#include "kaExposure.h"
#include "kaRTCryptomatte.h"
#include "kaRTSceneHandler.h"
#include "kaRaytracer.h"
#include "kaRenderParameter.h"

#include <QDataStream>
#include <QMap>
#include <QStringList>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>
#include <unistd.h>

using namespace kaClusterProtocol;

namespace {

double now() {
    using Clock = std::chrono::steady_clock;
    return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
}

std::string localHostName() {
    char name[256] = {};
    gethostname(name, sizeof name - 1);
    return name;
}

bool isLocal(const std::string& host) {
    return host == localHostName() || host == "localhost" || host == "127.0.0.1";
}

// Waiting by polling with short sleeps: Open MPI's blocking calls spin on a core, and the
// nodes on this machine need every core for their rendering.
void waitAMoment() {
    std::this_thread::sleep_for(std::chrono::microseconds(500));
}

std::string mpiError(int code) {
    char text[MPI_MAX_ERROR_STRING] = {};
    int length = 0;
    MPI_Error_string(code, text, &length);
    return std::string(text, size_t(length));
}

} // namespace

// What the master still waits for from one node in a frame.
struct kaClusterTransport::Pending {
    bool done = false;
    uint32_t pixelMessages = 0, pixelsReceived = 0;
    bool expectsNames = false, namesReceived = false;
    FrameReply reply{};
    bool finished() const {
        return done && pixelsReceived >= pixelMessages && (!expectsNames || namesReceived);
    }
};

kaClusterTransport::kaClusterTransport(double timeoutSeconds, int threadsPerNode,
                                       bool stopNodesOnFailure)
    : _timeout(timeoutSeconds > 0 ? timeoutSeconds : 30.0)
    , _threadsPerNode(threadsPerNode)
    , _stopNodesOnFailure(stopNodesOnFailure) {}

kaClusterTransport::~kaClusterTransport() {
    if (_nodesComm != MPI_COMM_NULL)
        quit();
}

// One call of MPI_Comm_spawn, on a thread of its own: a node that dies while Open MPI starts it
// leaves the call waiting forever, and the master must not wait with it.
struct kaClusterTransport::SpawnCall {
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    int rc = MPI_SUCCESS;
    MPI_Comm comm = MPI_COMM_NULL;
    std::vector<int> errors;
};

bool kaClusterTransport::spawn(const std::string& program,
                               const std::vector<std::string>& arguments, const std::string& hosts,
                               bool hostFile, int count, std::string& error) {
    auto call = std::make_shared<SpawnCall>();
    call->errors.assign(size_t(count), MPI_SUCCESS);
    MPI_Comm_set_errhandler(MPI_COMM_SELF, MPI_ERRORS_RETURN);
    std::thread([call, program, arguments, hosts, hostFile, count] {
        MPI_Info info;
        MPI_Info_create(&info);
        MPI_Info_set(info, hostFile ? "hostfile" : "host", hosts.c_str());
        // More nodes than cores on a machine is a choice of the set-up string, not an error.
        MPI_Info_set(info, "map_by", ":OVERSUBSCRIBE");
        std::vector<char*> argv;
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        MPI_Comm comm = MPI_COMM_NULL;
        std::vector<int> errors(size_t(count), MPI_SUCCESS);
        const int rc = MPI_Comm_spawn(program.c_str(), argv.data(), count, info, 0, MPI_COMM_SELF,
                                      &comm, errors.data());
        MPI_Info_free(&info);
        std::lock_guard<std::mutex> lock(call->mutex);
        call->rc = rc;
        call->comm = comm;
        call->errors = errors;
        call->done = true;
        call->finished.notify_all();
    }).detach();

    // Starting takes longer than answering: processes are launched (over ssh on other hosts).
    const double bound = _timeout + 10.0;
    std::unique_lock<std::mutex> lock(call->mutex);
    if (!call->finished.wait_for(lock, std::chrono::duration<double>(bound),
                                 [&] { return call->done; })) {
        error = "the render nodes did not start within " + std::to_string(int(bound)) +
                " s (a node failed while it started)";
        _broken = true;
        s_spawnStuck = true;
        return false;
    }
    if (call->rc != MPI_SUCCESS) {
        error = "the render nodes could not be started (" + mpiError(call->rc) + ")";
        return false;
    }
    _nodesComm = call->comm;
    for (int e : call->errors)
        if (e != MPI_SUCCESS) {
            error = "a render node could not be started (" + mpiError(e) + ")";
            _broken = true;
            return false;
        }
    MPI_Comm_set_errhandler(_nodesComm, MPI_ERRORS_RETURN);
    _nodes.assign(size_t(count), Node());
    _lastHeard.assign(size_t(count), now());
    return true;
}

std::atomic<bool> kaClusterTransport::s_spawnStuck{false};

bool kaClusterTransport::waitForNodes(std::string& error) {
    const double start = now();
    for (;;) {
        bool all = true;
        for (const Node& node : _nodes)
            all = all && node.greeted;
        if (all)
            return true;
        int flag = 0;
        MPI_Status status;
        MPI_Iprobe(MPI_ANY_SOURCE, kHello, _nodesComm, &flag, &status);
        if (flag) {
            Hello hello{};
            MPI_Recv(&hello, sizeof hello, MPI_BYTE, status.MPI_SOURCE, kHello, _nodesComm,
                     MPI_STATUS_IGNORE);
            Node& node = _nodes[size_t(status.MPI_SOURCE)];
            node.pid = hello.pid;
            node.cores = std::max(hello.cores, 1);
            node.host = std::string(hello.host, strnlen(hello.host, sizeof hello.host));
            node.greeted = true;
            _lastHeard[size_t(status.MPI_SOURCE)] = now();
            continue;
        }
        if (now() - start > _timeout) {
            error = "render nodes did not answer within " + std::to_string(int(_timeout)) + " s";
            _broken = true;
            killLocalNodes();
            return false;
        }
        waitAMoment();
    }
}

void kaClusterTransport::send(int node, int tag, const void* data, size_t bytes) {
    // Never a blocking send: a node that stopped answering would hold the master forever
    // (even a small message waits for the connection to a new peer).
    MPI_Request request;
    int rc = MPI_Isend(data, int(bytes), MPI_BYTE, node, tag, _nodesComm, &request);
    const double start = now();
    int done = 0;
    while (rc == MPI_SUCCESS && !done) {
        rc = MPI_Test(&request, &done, MPI_STATUS_IGNORE);
        if (done || rc != MPI_SUCCESS)
            break;
        if (now() - start > _timeout)
            fail("render node " + std::to_string(node) + " (process " +
                 std::to_string(_nodes[size_t(node)].pid) + " on " + _nodes[size_t(node)].host +
                 ") did not answer within " + std::to_string(int(_timeout)) + " s");
        waitAMoment();
    }
    if (rc != MPI_SUCCESS)
        fail("render node " + std::to_string(node) + " cannot be reached (" + mpiError(rc) + ")");
}

void kaClusterTransport::balanceBands(int height) {
    // Rows in proportion to each node's speed in the last picture; equal shares until known.
    std::vector<double> speed(_nodes.size(), 1.0);
    bool measured = true;
    for (const Node& node : _nodes)
        measured = measured && node.seconds > 0.0 && node.rows > 0;
    if (measured)
        for (size_t i = 0; i < _nodes.size(); ++i)
            speed[i] = double(_nodes[i].rows) / _nodes[i].seconds;
    double total = 0;
    for (double s : speed)
        total += s;
    double before = 0;
    int y = 0;
    for (size_t i = 0; i < _nodes.size(); ++i) {
        before += speed[i];
        const int end = i + 1 == _nodes.size() ? height : int(std::lround(height * before / total));
        _nodes[i].bandY = y;
        _nodes[i].bandHeight = std::max(end - y, 0);
        y += _nodes[i].bandHeight;
    }
}

void kaClusterTransport::renderFrame(osg::NetWindow& window) {
    if (_broken || _nodesComm == MPI_COMM_NULL)
        throw kaClusterClusterWindowException("the render cluster is not running");
    std::string error;
    if (!waitForNodes(error))
        fail(error);
    const osg::UberViewportPtr& viewport = window.getClusterViewport();
    if (!viewport || !viewport->getCamera() || !viewport->getRoot())
        throw kaClusterClusterWindowException("the cluster window has no scene to render");
    const int width = int(window.getWidth()), height = int(window.getHeight());
    const double frameStart = now();
    _stats = kaClusterService::FrameStats();

    // The scene goes once; afterwards only what changed since the last frame.
    osg::ChangeList& changes = *osg::ChangeList::getCurrent();
    if (!_encoder.hasScene()) {
        const QByteArray scene = _encoder.encodeScene(*viewport);
        changes.clear();
        for (int i = 0; i < int(_nodes.size()); ++i)
            send(i, kScene, scene.constData(), size_t(scene.size()));
        _stats.sentBytes += size_t(scene.size()) * _nodes.size();
    }
    const QByteArray changed = _encoder.encodeChanges(*viewport, changes.getChanged());
    changes.clear();
    _stats.encodeSeconds = now() - frameStart;

    const int sample = window.getRtSample();
    if (sample <= 0 || sample == osg::NetWindow::RestartedSample)
        balanceBands(height);

    FrameHeader header{};
    header.serial = ++_serial;
    header.sample = sample;
    header.final = window.getIsFinalRtSample();
    header.sendPixels = window.getRendering() && window.getCopyPasses() != 0;
    header.premultiply = kaRaytracer::getPremultiply();
    header.defaultLights = uint8_t(kaDefaultLights::use());
    header.exposure = kaExposure::stops();
    header.renderPasses = window.getRenderPasses();
    header.copyPasses = window.getCopyPasses() & window.getRenderPasses();
    header.imageOps = window.getImageOps();
    header.width = width;
    header.height = height;
    header.sampleOffset = std::max(kaRenderParameter::getSampleOffset(), 0);
    header.animationFrame = kaAnimManager::getCurrentFrame();
    header.colorSpace = kaColor::getActiveColorSpace();
    const osg::Matrix viewing =
        viewport->getCamera()->getViewing(uint32_t(width), uint32_t(height));
    const osg::Matrix projection =
        viewport->getCamera()->getProjection(uint32_t(width), uint32_t(height));
    std::memcpy(header.viewing, viewing.m, sizeof header.viewing);
    std::memcpy(header.projection, projection.m, sizeof header.projection);
    if (header.sendPixels)
        window.prepareBuffer();

    std::vector<int> nodesOnHost(_nodes.size(), 0);
    for (size_t i = 0; i < _nodes.size(); ++i)
        for (const Node& other : _nodes)
            nodesOnHost[i] += other.host == _nodes[i].host;
    std::vector<Pending> pending(_nodes.size());
    QByteArray message;
    for (size_t i = 0; i < _nodes.size(); ++i) {
        header.bandY = _nodes[i].bandY;
        header.bandHeight = _nodes[i].bandHeight;
        header.threads = _threadsPerNode > 0
                             ? _threadsPerNode
                             : std::max(1, _nodes[i].cores / std::max(nodesOnHost[i], 1));
        message = QByteArray(reinterpret_cast<const char*>(&header), sizeof header) + changed;
        send(int(i), kFrame, message.constData(), size_t(message.size()));
        _stats.sentBytes += size_t(message.size());
        pending[i].expectsNames = header.final && i == 0;
        _lastHeard[i] = now();
    }

    bool canceled = false;
    for (;;) {
        bool all = true;
        for (const Pending& p : pending)
            all = all && p.finished();
        if (all)
            break;
        if (receiveOne(window, pending))
            continue;
        if (!canceled && window.isCanceled()) {
            canceled = true;
            for (size_t i = 0; i < _nodes.size(); ++i)
                send(int(i), kCancel, &header.serial, sizeof header.serial);
        }
        const double t = now();
        for (size_t i = 0; i < _nodes.size(); ++i) {
            if (pending[i].finished())
                continue;
            if (isLocal(_nodes[i].host) && _nodes[i].pid > 0 && kill(_nodes[i].pid, 0) != 0 &&
                errno == ESRCH)
                fail("render node " + std::to_string(i) + " (process " +
                     std::to_string(_nodes[i].pid) + " on " + _nodes[i].host + ") died");
            if (t - _lastHeard[i] > _timeout)
                fail("render node " + std::to_string(i) + " (process " +
                     std::to_string(_nodes[i].pid) + " on " + _nodes[i].host +
                     ") did not answer within " + std::to_string(int(_timeout)) + " s");
        }
        waitAMoment();
    }

    _stats.seconds = now() - frameStart;
    bool restarted = false;
    for (size_t i = 0; i < _nodes.size(); ++i) {
        const FrameReply& reply = pending[i].reply;
        _stats.slowestNode = std::max(_stats.slowestNode, reply.seconds);
        if (reply.status == kFailed)
            fail("render node " + std::to_string(i) + " on " + _nodes[i].host + ": " +
                 std::string(reply.error, strnlen(reply.error, sizeof reply.error)));
        restarted = restarted || reply.restarted;
        if (reply.status == kRendered && _nodes[i].bandHeight > 0) {
            _nodes[i].seconds = reply.seconds;
            _nodes[i].rows = _nodes[i].bandHeight;
        }
    }
    if (restarted)
        window.setRtSample(osg::NetWindow::RestartedSample);
}

bool kaClusterTransport::receiveOne(osg::NetWindow& window, std::vector<Pending>& pending) {
    int flag = 0;
    MPI_Status status;
    MPI_Iprobe(MPI_ANY_SOURCE, MPI_ANY_TAG, _nodesComm, &flag, &status);
    if (!flag)
        return false;
    const int source = status.MPI_SOURCE;
    int bytes = 0;
    MPI_Get_count(&status, MPI_BYTE, &bytes);
    const double receiveStart = now();
    std::vector<char> data(size_t(std::max(bytes, 1)));
    MPI_Recv(data.data(), bytes, MPI_BYTE, source, status.MPI_TAG, _nodesComm, MPI_STATUS_IGNORE);
    _lastHeard[size_t(source)] = now();
    Pending& p = pending[size_t(source)];
    switch (status.MPI_TAG) {
    case kDone:
        if (size_t(bytes) >= sizeof(FrameReply)) {
            std::memcpy(&p.reply, data.data(), sizeof(FrameReply));
            if (p.reply.serial == _serial) {
                p.done = true;
                p.pixelMessages = p.reply.pixelMessages;
                p.expectsNames = p.expectsNames && p.reply.sendsNames;
            }
        }
        break;
    case kPixels: {
        PixelsHeader h{};
        if (size_t(bytes) < sizeof h)
            break;
        std::memcpy(&h, data.data(), sizeof h);
        ++p.pixelsReceived;
        uint8_t* slot = window.getPassData(h.pass);
        const size_t rowBytes = size_t(window.getBufferWidth()) * window.getBytesPerPixel();
        if (slot && size_t(h.bytesPerPixel) == window.getBytesPerPixel() && h.row >= 0 &&
            h.row + h.rows <= window.getBufferHeight() &&
            size_t(bytes) - sizeof h >= size_t(h.rows) * rowBytes)
            std::memcpy(slot + size_t(h.row) * rowBytes, data.data() + sizeof h,
                        size_t(h.rows) * rowBytes);
        _stats.gatherSeconds += now() - receiveStart;
        _stats.receivedBytes += size_t(bytes);
        break;
    }
    case kNames: {
        QDataStream in(QByteArray::fromRawData(data.data(), bytes));
        QMap<QString, QString> settings;
        QStringList objects, materials;
        in >> objects >> materials >> settings;
        std::vector<std::string> objectNames, materialNames;
        for (const QString& name : objects)
            objectNames.push_back(name.toStdString());
        for (const QString& name : materials)
            materialNames.push_back(name.toStdString());
        kaRTCryptomatte::setRenderedNames("cryptoObject", std::move(objectNames));
        kaRTCryptomatte::setRenderedNames("cryptoMaterial", std::move(materialNames));
        osg::StringAttributeMapPtr map = osg::StringAttributeMap::create();
        for (auto it = settings.begin(); it != settings.end(); ++it)
            map->setAttribute(it.key().toStdString(), it.value().toStdString());
        map->setAttribute("ClusterNodes", std::to_string(_nodes.size()));
        kaRTSceneHandler::setRaytracingSettingsAttachment(map);
        p.namesReceived = true;
        break;
    }
    default:
        break; // kAlive: being heard is all it says
    }
    return true;
}

void kaClusterTransport::waitAllFrames(osg::NetWindow&) {
    // Frames are answered before renderFrame returns: nothing is in flight.
    if (_broken)
        throw kaClusterClusterWindowException("the render cluster failed");
}

void kaClusterTransport::killLocalNodes() {
    if (!_stopNodesOnFailure)
        return;
    for (const Node& node : _nodes)
        if (node.pid > 0 && isLocal(node.host))
            ::kill(node.pid, SIGKILL);
}

void kaClusterTransport::fail(const std::string& reason) {
    _broken = true;
    // A node that hangs keeps its processes: the local ones go now, and Open MPI ends the rest
    // of the nodes' job when one of them dies.
    killLocalNodes();
    throw kaClusterClusterWindowException(reason);
}

void kaClusterTransport::quit() {
    if (_nodesComm == MPI_COMM_NULL)
        return;
    if (!_broken) {
        try {
            for (size_t i = 0; i < _nodes.size(); ++i)
                send(int(i), kQuit, nullptr, 0);
        } catch (const kaClusterClusterWindowException&) {
            // fail() has killed the local nodes; the rest ends with them
        }
    }
    if (!_broken) {
        // Disconnecting waits for the nodes to disconnect too, which they do right after
        // reading the request (they are idle between frames).
        MPI_Comm_disconnect(&_nodesComm);
    } else {
        _nodesComm = MPI_COMM_NULL; // the communicator's peers are gone; it is left as is
        if (!_stopNodesOnFailure)
            return; // kept as they are, for a debugger
        killLocalNodes();
    }
    // The local node processes are gone before the service reports the cluster stopped.
    const double start = now();
    for (const Node& node : _nodes) {
        if (node.pid <= 0 || !isLocal(node.host))
            continue;
        while (::kill(node.pid, 0) == 0 && now() - start < 10.0)
            waitAMoment();
        if (::kill(node.pid, 0) == 0)
            ::kill(node.pid, SIGKILL);
    }
    _nodesComm = MPI_COMM_NULL;
}
