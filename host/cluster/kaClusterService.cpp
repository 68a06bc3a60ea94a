#include "kaClusterService.h"

#include "kaClusterTransport_p.h"
#include "kaLog.h"
#include "kaOSGWidget.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <cstdlib>
#include <mutex>

namespace {

// MPI starts once per process and ends when the process does: it cannot start again after
// MPI_Finalize, and several clusters may come and go in one session.
bool ensureMpi(std::string& error) {
    int initialized = 0;
    MPI_Initialized(&initialized);
    if (initialized)
        return true;
    int provided = 0;
    // Nodes are spawned on a thread of their own (see kaClusterTransport::spawn).
    if (MPI_Init_thread(nullptr, nullptr, MPI_THREAD_MULTIPLE, &provided) != MPI_SUCCESS ||
        provided < MPI_THREAD_MULTIPLE) {
        error = "Open MPI could not start (with threads)";
        return false;
    }
    std::atexit([] {
        int finalized = 0;
        MPI_Finalized(&finalized);
        // A start that never came back holds Open MPI: finishing it would wait with it.
        if (!finalized && !kaClusterTransport::spawnStuck())
            MPI_Finalize();
    });
    return true;
}

} // namespace

kaClusterService::kaClusterService() = default;

kaClusterService::~kaClusterService() {
    if (_transport)
        stop();
}

std::shared_ptr<kaClusterService> kaClusterService::the() {
    static std::mutex mutex;
    std::lock_guard<std::mutex> lock(mutex);
    auto service = kaKernelServiceFactory::get<kaClusterService>("kaClusterService");
    if (!service) {
        service = std::make_shared<kaClusterService>();
        kaKernelServiceFactory::registerService("kaClusterService", service);
    }
    return service;
}

std::vector<std::pair<std::string, int>> kaClusterService::parseSetup(const QString& setup,
                                                                      std::string& error) {
    std::vector<std::pair<std::string, int>> hosts;
    const QString trimmed = setup.trimmed();
    if (trimmed.isEmpty()) {
        error = "the cluster set-up is empty";
        return hosts;
    }
    static const QRegularExpression entry("^([A-Za-z0-9_.\\-]+)(?::([0-9]+))?$");
    QStringList parts = trimmed.split(',', Qt::SkipEmptyParts);
    if (QFileInfo(trimmed).isFile()) {
        // An Open MPI host file: "host slots=N" lines, '#' comments.
        QFile file(trimmed);
        if (!file.open(QIODevice::ReadOnly)) {
            error = "cannot read the host file '" + trimmed.toStdString() + "'";
            return hosts;
        }
        parts.clear();
        static const QRegularExpression line("^\\s*([^\\s#]+)(?:\\s+slots\\s*=\\s*([0-9]+))?");
        for (const QString& text : QString::fromUtf8(file.readAll()).split('\n')) {
            const QRegularExpressionMatch match = line.match(text);
            if (match.hasMatch())
                parts << match.captured(1) +
                             (match.captured(2).isEmpty() ? QString() : ":" + match.captured(2));
        }
    }
    for (const QString& part : parts) {
        const QRegularExpressionMatch match = entry.match(part.trimmed());
        const int count = match.captured(2).isEmpty() ? 1 : match.captured(2).toInt();
        if (!match.hasMatch() || count < 1 || count > 4096) {
            error = "cannot read '" + part.trimmed().toStdString() +
                    "' of the cluster set-up (expected HOST or HOST:COUNT, or a host file)";
            return {};
        }
        hosts.emplace_back(match.captured(1).toStdString(), count);
    }
    if (hosts.empty())
        error = "the cluster set-up names no host";
    return hosts;
}

std::string kaClusterService::nodeProgram() {
    if (const char* path = std::getenv("KA_RENDER_NODE"))
        if (*path)
            return path;
    QStringList candidates;
    if (QCoreApplication::instance())
        candidates << QCoreApplication::applicationDirPath() + "/ka-render-node";
    candidates << QStringLiteral(KA_RENDER_NODE_INSTALLED) << QStringLiteral(KA_RENDER_NODE_BUILT);
    for (const QString& candidate : candidates)
        if (QFileInfo(candidate).isExecutable())
            return candidate.toStdString();
    return {};
}

bool kaClusterService::start() {
    _lastError.clear();
    if (isRunning())
        return true;
    stop();
    std::string error;
    const auto hosts = parseSetup(_setup, error);
    const std::string program = nodeProgram();
    if (error.empty() && program.empty())
        error = "the render node program ka-render-node was not found";
    if (error.empty())
        ensureMpi(error);
    std::string hostList;
    int count = 0;
    for (const auto& [host, n] : hosts) {
        hostList += (hostList.empty() ? "" : ",") + host + ":" + std::to_string(n);
        count += n;
    }
    auto transport =
        std::make_shared<kaClusterTransport>(_timeout, _threadsPerNode, _stopNodesOnFailure);
    if (error.empty()) {
        if (!transport->spawn(program, {}, hostList, false, count, error))
            transport.reset();
    }
    if (error.empty() && _waitForNodes && !transport->waitForNodes(error))
        transport->quit();
    if (!error.empty()) {
        _lastError = error;
        kaLog::error("kaClusterService: %s", error.c_str());
        return false;
    }
    _transport = transport;
    _window = osg::NetWindow::create();
    _window->setTransport(_transport);
    _view = kaOSGWidget::getMGLW(-1);
    if (_view) {
        _window->setClusterViewport(_view->getViewport());
        _window->setSize(uint32_t(_view->width()), uint32_t(_view->height()));
        _view->setClusterWindow(_window);
    }
    kaLog::info("kaClusterService: %d render nodes on %s", count, hostList.c_str());
    return true;
}

bool kaClusterService::isRunning() const {
    return _transport && !_transport->isBroken();
}

void kaClusterService::stop() {
    if (_view && kaOSGWidget::getMGLW(-1) == _view && _view->getClusterWindow() == _window)
        _view->setClusterWindow(osg::NetWindowPtr());
    _view = nullptr;
    if (_window)
        _window->setTransport(nullptr);
    _window = osg::NetWindowPtr();
    if (_transport)
        _transport->quit();
    _transport.reset();
}

std::vector<kaClusterService::NodeInfo> kaClusterService::getNodes() const {
    std::vector<NodeInfo> nodes;
    if (!_transport)
        return nodes;
    for (const kaClusterTransport::Node& node : _transport->nodes()) {
        NodeInfo info;
        info.host = node.host;
        info.pid = node.pid;
        info.cores = node.cores;
        info.rows = node.rows;
        info.seconds = node.seconds;
        nodes.push_back(info);
    }
    return nodes;
}

kaClusterService::FrameStats kaClusterService::getLastFrameStats() const {
    return _transport ? _transport->lastFrame() : FrameStats();
}
