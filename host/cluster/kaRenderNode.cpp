#include "kaRenderNode.h"

#include "OSGCamera.h"
#include "kaAnimManager.h"
#include "kaClusterProtocol_p.h"
#include "kaClusterSceneCodec.h"
#include "kaColor.h"
#include "kaDefaultLights.h"
#include "kaExposure.h"
#include "kaRTCryptomatte.h"
#include "kaRTRenderer.h"
#include "kaRTSceneHandler.h"
#include "kaRaytracer.h"
#include "kaRenderParameter.h"
#include "kaRenderPassCatalogue.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDataStream>
#include <QMap>
#include <QStringList>

#include <mpi.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <unistd.h>

using namespace kaClusterProtocol;

namespace {

double now() {
    using Clock = std::chrono::steady_clock;
    return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
}

// The master's camera as it sent it: the matrices of the whole picture.
class MatrixCamera : public osg::Camera {
public:
    static osg::RefPtr<MatrixCamera> create() {
        return osg::RefPtr<MatrixCamera>(new MatrixCamera());
    }
    const char* getTypeName() const override { return "MatrixCamera"; }
    osg::Matrix getProjection(uint32_t, uint32_t) const override { return projection; }
    osg::Matrix getViewing(uint32_t, uint32_t) const override { return viewing; }
    osg::NodePtr getBeacon() const override { return osg::NodePtr(); }
    float getNear() const override { return 0.1f; }
    float getFar() const override { return 1000.0f; }
    osg::Matrix viewing, projection;

private:
    MatrixCamera() = default;
};

class Node {
public:
    explicit Node(MPI_Comm master)
        : _master(master) {
        _camera = MatrixCamera::create();
        _viewport = osg::UberViewport::create();
        _viewport->setCamera(_camera);
        _viewport->setEventProcessingCB(&Node::duringRender, this);
        MPI_Comm_rank(MPI_COMM_WORLD, &_rank);
    }

    void greet() {
        Hello hello{};
        hello.pid = int32_t(getpid());
        hello.cores = int32_t(std::max(std::thread::hardware_concurrency(), 1u));
        gethostname(hello.host, sizeof hello.host - 1);
        MPI_Send(&hello, sizeof hello, MPI_BYTE, 0, kHello, _master);
    }

    // Serves the master until it says to leave (true) or cannot be heard (false).
    bool serve() {
        for (;;) {
            int flag = 0;
            MPI_Status status;
            if (MPI_Iprobe(0, MPI_ANY_TAG, _master, &flag, &status) != MPI_SUCCESS)
                return false;
            if (!flag) {
                // Polled with sleeps: a blocking receive would spin on a core that the
                // nodes sharing this machine render on.
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                continue;
            }
            int bytes = 0;
            MPI_Get_count(&status, MPI_BYTE, &bytes);
            QByteArray message(std::max(bytes, 0), Qt::Uninitialized);
            MPI_Recv(message.data(), bytes, MPI_BYTE, 0, status.MPI_TAG, _master,
                     MPI_STATUS_IGNORE);
            switch (status.MPI_TAG) {
            case kScene:
                takeScene(message);
                break;
            case kFrame:
                renderFrame(message);
                break;
            case kQuit:
                return true;
            default:
                break; // a cancel for a frame already answered
            }
        }
    }

private:
    void takeScene(const QByteArray& message) {
        std::string error;
        _sceneError.clear();
        if (!_scene.apply(message, error))
            _sceneError = error;
        _viewport->setRoot(_scene.getRoot());
        _viewport->setBackground(_scene.getBackground());
        osg::ChangeList::getCurrent()->clear();
        _lastSample = -1;
    }

    void renderFrame(const QByteArray& message) {
        FrameReply reply{};
        if (size_t(message.size()) < sizeof(FrameHeader)) {
            std::snprintf(reply.error, sizeof reply.error, "a frame message is cut short");
            reply.status = kFailed;
            MPI_Send(&reply, sizeof reply, MPI_BYTE, 0, kDone, _master);
            return;
        }
        FrameHeader h{};
        std::memcpy(&h, message.constData(), sizeof h);
        reply.serial = h.serial;
        reply.sample = h.sample;
        _serial = h.serial;
        _canceled = false;
        _lastAlive = now();

        std::string error = _sceneError;
        if (error.empty() && !_scene.apply(message.mid(int(sizeof h)), error))
            _sceneError = error;
        _viewport->setRoot(_scene.getRoot());
        _viewport->setBackground(_scene.getBackground());
        osg::ChangeList::getCurrent()->clear();

        kaRaytracer::setPremultiply(h.premultiply != 0);
        kaDefaultLights::setUse(kaDefaultLights::Use(std::min<int>(h.defaultLights, 2)));
        kaExposure::setStops(h.exposure);
        kaRaytracer::setThreadCount(h.threads);
        kaRenderParameter::setSampleOffset(h.sampleOffset);
        kaAnimManager::setCurrentFrameNoEvaluation(h.animationFrame, false);
        kaColor::setActiveColorSpace(h.colorSpace);
        std::memcpy(_camera->viewing.m, h.viewing, sizeof h.viewing);
        std::memcpy(_camera->projection.m, h.projection, sizeof h.projection);

        // Samples add up only while the picture stays the same one: anything else, or a
        // sample that does not follow the last, starts the accumulation over.
        const QByteArray key =
            QByteArray(reinterpret_cast<const char*>(&h.renderPasses),
                       int(offsetof(FrameHeader, threads) - offsetof(FrameHeader, renderPasses))) +
            QByteArray(reinterpret_cast<const char*>(h.viewing),
                       int(sizeof h.viewing + sizeof h.projection));
        QByteArray stableKey = key;
        // The copy mask changes from sample to sample and does not change the picture.
        std::memset(stableKey.data() +
                        (offsetof(FrameHeader, copyPasses) - offsetof(FrameHeader, renderPasses)),
                    0, sizeof h.copyPasses);
        int sample = std::max(h.sample, 0);
        if (sample > 0 && (_lastSample != sample - 1 || stableKey != _key)) {
            sample = 0;
            reply.restarted = 1;
        }
        _key = stableKey;

        const bool floatPixels = (h.imageOps & 0x80u) != 0;
        const int bpp = floatPixels ? 16 : 4;
        prepareImages(h, floatPixels);
        const double start = now();
        bool rendered = error.empty();
        if (rendered && h.bandHeight > 0) {
            kaRTRenderer::Region region;
            region.fullWidth = h.width;
            region.fullHeight = h.height;
            region.x = 0;
            region.y = h.bandY;
            region.width = h.width;
            region.height = h.bandHeight;
            rendered = kaRTRenderer::the().render(*_viewport, *_camera, region, _images, sample + 1,
                                                  sample, error);
        }
        reply.seconds = now() - start;
        if (_canceled) {
            reply.status = kCanceled;
            _lastSample = -1;
        } else if (!rendered) {
            reply.status = kFailed;
            std::snprintf(reply.error, sizeof reply.error, "%s",
                          error.empty() ? "the raytracer stopped" : error.c_str());
            _lastSample = -1;
        } else {
            reply.status = kRendered;
            _lastSample = sample;
        }

        // Pixels, in pieces that MPI's int counts can carry.
        std::vector<QByteArray> pieces;
        if (reply.status == kRendered && h.sendPixels && h.bandHeight > 0) {
            const size_t rowBytes = size_t(h.width) * size_t(bpp);
            const int rowsPerPiece = int(
                std::max<int64_t>(1, kMaxPixelMessage / int64_t(std::max<size_t>(rowBytes, 1))));
            for (int pass = 0; pass < 64; ++pass) {
                if (!(h.copyPasses & (uint64_t(1) << pass)) || size_t(pass) >= _images.size() ||
                    !_images[size_t(pass)])
                    continue;
                const uint8_t* data = _images[size_t(pass)]->getData();
                for (int row = 0; row < h.bandHeight; row += rowsPerPiece) {
                    PixelsHeader ph{pass, h.bandY + row, std::min(rowsPerPiece, h.bandHeight - row),
                                    bpp};
                    QByteArray piece(reinterpret_cast<const char*>(&ph), sizeof ph);
                    piece.append(reinterpret_cast<const char*>(data + size_t(row) * rowBytes),
                                 int(size_t(ph.rows) * rowBytes));
                    pieces.push_back(std::move(piece));
                }
            }
        }
        reply.pixelMessages = uint32_t(pieces.size());
        reply.sendsNames = reply.status == kRendered && h.final && _rank == 0;
        MPI_Send(&reply, sizeof reply, MPI_BYTE, 0, kDone, _master);
        for (const QByteArray& piece : pieces)
            MPI_Send(piece.constData(), piece.size(), MPI_BYTE, 0, kPixels, _master);
        if (reply.sendsNames)
            sendNames();
    }

    void prepareImages(const FrameHeader& h, bool floatPixels) {
        const int32_t type =
            floatPixels ? osg::Image::OSG_FLOAT32_IMAGEDATA : osg::Image::OSG_UINT8_IMAGEDATA;
        _images.resize(64);
        for (int pass = 0; pass < 64; ++pass) {
            osg::ImagePtr& image = _images[size_t(pass)];
            if (!(h.renderPasses & (uint64_t(1) << pass)) || pass >= kaRenderPass::Count) {
                image = osg::ImagePtr();
                continue;
            }
            if (image && image->getWidth() == h.width && image->getHeight() == h.bandHeight &&
                image->getDataType() == type && _imagesPremultiply == h.premultiply)
                continue;
            image = osg::Image::create();
            image->set(osg::Image::OSG_RGBA_PF, h.width, std::max(h.bandHeight, 1), 1, 1, 1, 0.0,
                       nullptr, type, true);
            // Passes of data keep their values as they are, as in the master's own renders.
            if (!kaRenderPass::holdsLight(pass))
                image->setAlphaMode(osg::Image::AlphaMode::Independent);
        }
        _images.resize(size_t(kaRenderPass::Count));
        _imagesPremultiply = h.premultiply;
    }

    void sendNames() {
        QStringList objects, materials;
        for (const std::string& name : kaRTCryptomatte::getRenderedNames("cryptoObject"))
            objects << QString::fromStdString(name);
        for (const std::string& name : kaRTCryptomatte::getRenderedNames("cryptoMaterial"))
            materials << QString::fromStdString(name);
        QMap<QString, QString> settings;
        if (osg::StringAttributeMapPtr map = kaRTSceneHandler::getRaytracingSettingsAttachment())
            for (const auto& [key, value] : map->getAttributes())
                settings.insert(QString::fromStdString(key), QString::fromStdString(value));
        QByteArray bytes;
        QDataStream out(&bytes, QIODevice::WriteOnly);
        out << objects << materials << settings;
        MPI_Send(bytes.constData(), bytes.size(), MPI_BYTE, 0, kNames, _master);
    }

    // Called by the raytracer every 50 ms of a sample: says the node is alive once a second
    // and stops the sample when the master cancels it.
    static bool duringRender(int, int, bool, void* context) {
        Node& node = *static_cast<Node*>(context);
        int flag = 0;
        MPI_Status status;
        MPI_Iprobe(0, kCancel, node._master, &flag, &status);
        if (flag) {
            uint32_t serial = 0;
            MPI_Recv(&serial, sizeof serial, MPI_BYTE, 0, kCancel, node._master, MPI_STATUS_IGNORE);
            if (serial == node._serial)
                node._canceled = true;
        }
        if (now() - node._lastAlive >= 1.0) {
            node._lastAlive = now();
            MPI_Send(&node._serial, sizeof node._serial, MPI_BYTE, 0, kAlive, node._master);
        }
        return !node._canceled;
    }

    MPI_Comm _master;
    int _rank = 0;
    kaClusterSceneDecoder _scene;
    std::string _sceneError;
    osg::RefPtr<MatrixCamera> _camera;
    osg::UberViewportPtr _viewport;
    std::vector<osg::ImagePtr> _images;
    uint8_t _imagesPremultiply = 2; // the alpha convention the images were made with
    QByteArray _key;
    int _lastSample = -1;
    uint32_t _serial = 0;
    bool _canceled = false;
    double _lastAlive = 0.0;
};

} // namespace

int kaRenderNodeMain(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    int provided = 0;
    MPI_Init_thread(&argc, &argv, MPI_THREAD_FUNNELED, &provided);
    MPI_Comm master = MPI_COMM_NULL;
    MPI_Comm_get_parent(&master);
    if (master == MPI_COMM_NULL) {
        std::fprintf(stderr, "ka-render-node: this program is started by a render cluster's "
                             "master (kaexport --cluster), not by hand.\n");
        MPI_Finalize();
        return 2;
    }
    MPI_Comm_set_errhandler(master, MPI_ERRORS_RETURN);
    Node node(master);
    node.greet();
    const bool told = node.serve();
    if (told)
        MPI_Comm_disconnect(&master);
    MPI_Finalize();
    return told ? 0 : 1;
}
