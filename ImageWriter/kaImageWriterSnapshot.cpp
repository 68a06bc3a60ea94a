// The snapshot export: the main view into one image file, one file per stereo eye, or one file
// (or layer) per render pass. exportImage reads as its steps: the request is completed and
// checked, the host is kept awake in the export's colour space, and the view is prepared,
// rendered eye by eye, written and given back.
#include "kaImageWriter.h"

#include "kaExportSession_p.h"

#include "kaClusterService.h"
#include "kaController.h"
#include "kaFile.h"
#include "kaImage.h"
#include "kaImageMetaData.h"
#include "kaImageOutStream.h"
#include "kaLog.h"
#include "kaOSGWidget.h"
#include "kaPlatform.h"
#include "kaPreferences.h"
#include "kaRaytracer.h"
#include "kaRenderPasses.h"
#include "kaScopedRenderInProgress.h"
#include "kaUtils.h"

#include <QProgressBar>

#include <cstdio>
#include <optional>
#include <tuple>

using kaExportSession::now;
using kaExportSession::refuse;
using kaExportSession::warn;

namespace {

// The name without its extension; only a dot in the file-name part counts, so that folders
// with dots in their names stay whole.
QString withoutExtension(const QString& name) {
    const int dot = name.lastIndexOf('.');
    return dot > name.lastIndexOf('/') ? name.left(dot) : name;
}

// Cryptomatte passes carry coverage in their alpha.
bool coverageActive(const std::vector<bool>& active) {
    for (size_t pass = 0; pass < active.size(); ++pass)
        if (active[pass] && kaRenderPass::carriesCoverage((long long)(pass)))
            return true;
    return false;
}

} // namespace

// One snapshot export from its request to its files.
class kaImageWriter::SnapshotExport {
public:
    struct Request {
        QString filename;
        int width, height, superSampling, alpha;
        float dpi;
        bool exportRenderPasses;
        QString clusterSetup;
        bool appendRenderTime, tonemapHDR;
    };

    SnapshotExport(kaImageWriter& writer, kaOSGWidget& view, Request request)
        : _writer(writer)
        , _view(view)
        , _r(std::move(request)) {}

    // Decides where to render, fills the arguments from the preferences and checks that the
    // request can be done; false (after the refusal's box or the file check's report) when not.
    bool completeRequest();
    // Renders and writes, on the cluster or here.
    void run();

private:
    // The view as the export renders it: set up here, given back by restoreOverlays() (after a
    // render dialog that could not be made) or restore() (after the render).
    class ViewSession;

    void renderLocally();
    void renderOnCluster();
    QString eyeFile(int eye) const {
        return _stem + getStereoName(_stereoMode, eye) + "." + _fileExtension;
    }
    // The format as the file types name it, for one eye's file.
    QString formatOf() const;
    void useFloatFor(const QString& format) const;
    void writePasses(std::vector<osg::ImagePtr>& images, const QString& name, const QString& format,
                     kaImageRenderWidget& widget);
    void writeImage(const osg::ImagePtr& image, QString name, const QString& format,
                    double totalRenderTime, kaImageRenderWidget& widget);

    kaImageWriter& _writer;
    kaOSGWidget& _view;
    Request _r;
    bool _localRender = true;
    bool _playSound = false;
    kaImageRenderWidget::StereoMode _stereoMode = kaImageRenderWidget::STEREO_NONE;
    int _eyeCount = 1;
    bool _addSignature = false, _alphaOn = false, _ignoreAspect = false;
    QString _fileExtension, _stem;
};

class kaImageWriter::SnapshotExport::ViewSession {
public:
    ViewSession(kaImageWriter& writer, kaOSGWidget& view, bool alpha)
        : _writer(writer)
        , _view(view) {
        _hadPowerwall = view.isPowerwallEnabled();
        if (_hadPowerwall) {
            view.enablePowerwall(false);
            kaImageRenderWidget::setPowerwall(true);
        }
        _overlays.emplace(view);
        kaController::setSnapshotRendering(true);
        raytracing = kaOSGWidget::getRaytracing();
        const bool sceneplate = view.getBackplate() ? view.getSceneplate() : false;
        const float* color = writer._alphaColor;
        kaImageRenderWidget::setAlpha(alpha);
        kaImageRenderWidget::setAlphaColor(color[0], color[1], color[2]);

        _viewport.emplace(view.getViewport());
        writer.setupViewport(_viewport->viewport, kaDisplayStandard, 80.0f, 0);
        writer.setupBackground(_viewport->viewport, color[0], color[1], color[2], 0.0f, sceneplate,
                               alpha);
    }

    // What an export that could not make its render dialog gives back: only overlays, lights
    // and cameras; the snapshot flag, powerwall, viewport and background stay as set.
    void restoreOverlays() { _overlays->restore(); }

    // Everything, in this order, after the render.
    void restore() {
        kaController::setSnapshotRendering(false);
        kaImageRenderWidget::setPixelFormat(osg::Image::OSG_RGB_PF);
        kaImageRenderWidget::setDataType(osg::Image::OSG_UINT8_IMAGEDATA);
        restoreOverlays();
        if (_hadPowerwall) {
            _view.enablePowerwall(true);
            kaImageRenderWidget::setPowerwall(false);
        }
        _viewport->restore(_writer);
    }

    bool raytracing = false;

private:
    kaImageWriter& _writer;
    kaOSGWidget& _view;
    bool _hadPowerwall = false;
    std::optional<kaExportSession::HiddenOverlays> _overlays;
    std::optional<kaExportSession::SavedViewportDisplay> _viewport;
};

void kaImageWriter::exportImage(const QString& filename, int width, int height, int superSampling,
                                int alpha, float dpi, bool exportRenderPasses,
                                const QString& clusterSetup, bool appendRenderTime,
                                bool tonemapHDR) {
    s_progressFrames = 1;
    s_progressCurrentFrame = 0;
    kaController::setImageRenderProgress(0.0);
    _exportCanceled = false;

    kaOSGWidget* view = kaOSGWidget::getMGLW(-1);
    if (!view) {
        refuse(QObject::tr("For an image export at least one render window is necessary!"));
        return;
    }
    kaScopedRenderInProgress guard;
    SnapshotExport snapshot(*this, *view,
                            {filename, width, height, superSampling, alpha, dpi, exportRenderPasses,
                             clusterSetup, appendRenderTime, tonemapHDR});
    if (snapshot.completeRequest())
        snapshot.run();
}

bool kaImageWriter::SnapshotExport::completeRequest() {
    _localRender = !kaExportSession::rendersOnCluster(_view, _r.clusterSetup);

    const kaMessage& prefs = kaPreferences::getData();
    _playSound = kaController::playSoundOnExport();
    std::tie(_stereoMode, _eyeCount) = _writer.getStereoMode();
    if (!_localRender && _eyeCount >= 3) {
        refuse(
            QObject::tr("Stereo rendering is not supported in raytracing cluster image export!"));
        return false;
    }

    getFromMessage(prefs, "ImageExport add sig", _addSignature);
    if (_r.width < 0) {
        _r.width = 800;
        getFromMessage(prefs, "ImageExport width", _r.width);
    }
    if (_r.height < 0) {
        _r.height = 600;
        getFromMessage(prefs, "ImageExport height", _r.height);
    }
    if (_r.superSampling < 0)
        getFromMessage(prefs, "MovieExport ssfactor", _r.superSampling);
    _alphaOn = _r.alpha > 0;
    if (_r.alpha < 0)
        getFromMessage(prefs, "MovieExport alpha", _alphaOn);
    const std::vector<bool>& active = kaImageRenderWidget::getActiveRenderPasses();
    if (_r.exportRenderPasses && !active.empty() && coverageActive(active))
        _alphaOn = true;
    if (_r.dpi < 0.0f) {
        _r.dpi = 72.0f;
        getFromMessage(prefs, "MovieExport dpi", _r.dpi);
    }
    getFromMessage(prefs, "ImageExport ignore aspect", _ignoreAspect);

    const QString extension = kaFile::getExtension(_r.filename).toLower();
    if (_alphaOn && kaExportSession::lacksAlpha(extension)) {
        warn(QObject::tr("Snapshot"),
             QObject::tr("The chosen image format doesn't support an alpha channel!\nChoose "
                         "another image format, e.g. png, or disable the alpha channel export."));
        return false;
    }
    if (_writer._metaDataFlags != 0 && kaImageMetaData::isXMPSupported() &&
        !_writer.imageFormatHasMetaDataSupport(extension))
        _writer.logMetaDataUnsupported();

    _fileExtension = kaFile::getExtension(_r.filename);
    if (_fileExtension.isEmpty())
        _fileExtension = QString::fromStdString(kaImage::getDefaultImageFormat());
    _stem = withoutExtension(kaFile::expandFilename(_r.filename));
    for (int eye = 0; eye < _eyeCount; ++eye) {
        if (kaImageOutStream::getImageWriteFunction())
            break; // a stream takes the images: no files to check
        const QString name = eyeFile(eye);
        kaFile::createPath(kaFile::getFilePath(name));
        if (!kaFile::checkWrite(name, false, true))
            return false;
        if (!_writer._noOverwriteMessage &&
            !kaFile::checkWrite(name, !kaController::isNoGUI(), false))
            return false;
    }

    if (_view.isStereoEnabled() && _view.getStereoMode() != 2 && _view.getStereoMode() != 3) {
        warn(kaPlatform::getAppVersionName(), QObject::tr("Please disable stereo rendering!"));
        return false;
    }
    return true;
}

void kaImageWriter::SnapshotExport::run() {
    const kaExportSession::AwakeInExportColorSpace awake(_view, _writer._iccProfile);

    if (_writer._metaDataFlags != 0 && kaImageMetaData::isXMPSupported() &&
        (_writer._metaDataFlags & 8))
        _writer._metaData->setFileOutputImageSettings(
            float(_r.width), float(_r.height), _r.dpi, _r.superSampling, _r.tonemapHDR, _alphaOn,
            kaRaytracer::getPremultiply(), _writer._alphaColor, _writer._iccProfile,
            _writer._metaDataFlags);

    if (_localRender)
        renderLocally();
    else
        renderOnCluster();
}

void kaImageWriter::SnapshotExport::renderOnCluster() {
    QString name = _r.filename;
    if (kaFile::getExtension(name).isEmpty())
        name += "." + QString::fromStdString(kaImage::getDefaultImageFormat());
    const std::shared_ptr<kaClusterService> service =
        kaKernelServiceFactory::get<kaClusterService>("kaClusterService");
    const bool simulation = kaController::isSimulationEnable();
    const bool startHere = !_view.getClusterWindow() && !_r.clusterSetup.isEmpty();
    if (startHere) {
        if (service) {
            service->setSetup(_r.clusterSetup);
            service->setStopNodesOnFailure(true);
            service->setWaitForNodes(true);
            service->start();
        }
        if (!service || !service->isRunning())
            return;
    }
    const bool signature = _addSignature;
    if (_stereoMode == kaImageRenderWidget::STEREO_NONE) {
        _writer._exportCanceled = _writer.exportRTClusterImage(
            name, _r.width, _r.height, 0, _r.superSampling, _alphaOn, _r.dpi, signature,
            _r.exportRenderPasses, _r.tonemapHDR, nullptr, -1);
    } else if (int(_stereoMode) == 1) {
        const bool left = _writer.exportRTClusterImage(
            name, _r.width, _r.height, 1, _r.superSampling, _alphaOn, _r.dpi, signature,
            _r.exportRenderPasses, _r.tonemapHDR, nullptr, -1);
        _writer._exportCanceled = left;
        const bool right = _writer.exportRTClusterImage(
            name, _r.width, _r.height, 2, _r.superSampling, _alphaOn, _r.dpi, signature,
            _r.exportRenderPasses, _r.tonemapHDR, nullptr, -1);
        _writer._exportCanceled = left || right;
    }
    if (startHere && service) {
        service->stop();
        if (simulation)
            kaController::enableSimulation(true);
    }
    kaController::changeScenegraph();
    kaController::forceRender(true);
    if (_playSound)
        kaUtils::beep();
}

QString kaImageWriter::SnapshotExport::formatOf() const {
    const QString format = _fileExtension.toUpper();
    return format == "JPG" ? QString("JPEG") : format;
}

void kaImageWriter::SnapshotExport::useFloatFor(const QString& format) const {
    if (kaExportSession::rendersFloat(format, _writer._exportTiffHDR))
        kaImageRenderWidget::setDataType(osg::Image::OSG_FLOAT32_IMAGEDATA);
}

void kaImageWriter::SnapshotExport::renderLocally() {
    const double exportStart = now();
    ViewSession session(_writer, _view, _alphaOn);

    std::unique_ptr<kaImageRenderWidget> widget;
    double totalRenderTime = 0.0;
    bool aborted = false;
    for (int eye = 0; eye < _eyeCount; ++eye) {
        const QString name = eyeFile(eye);
        const QString format = formatOf();
        useFloatFor(format);
        if (eye == 0) {
            widget = std::make_unique<kaImageRenderWidget>(
                kaController::getMainWindow(), _r.width, _r.height, _stereoMode, _addSignature,
                _r.superSampling, true, _ignoreAspect, _r.exportRenderPasses ? 0x2fu : 1u,
                _r.tonemapHDR);
            if (!widget->isValid()) {
                widget.reset();
                session.restoreOverlays();
                return;
            }
        }
        widget->setLabelText(QObject::tr("Creating image ..."));
        if (_alphaOn && !session.raytracing)
            widget->setLabelText(QObject::tr("Creating image"));
        const double renderStart = now();
        std::vector<osg::ImagePtr> images =
            widget->render(nullptr, eye, false, !_writer._noProgress);
        const double renderTime = now() - renderStart;
        aborted = widget->wasAborted();
        if (_r.exportRenderPasses && !aborted)
            writePasses(images, name, format, *widget);
        if (aborted) {
            _writer._exportCanceled = true;
            std::printf("Image export aborted!\n");
            std::fflush(stdout);
        }
        totalRenderTime += renderTime;
        if (!_r.exportRenderPasses && !images.empty() && images[0] && !aborted)
            writeImage(images[0], name, format, totalRenderTime, *widget);
        if (aborted)
            break;
    }
    if (!aborted && widget)
        widget->getProgress()->setValue(widget->getProgress()->maximum());
    widget.reset();

    session.restore();
    s_lastRenderTime = totalRenderTime;
    kaLog::info("Snapshot render time %f seconds.", totalRenderTime);
    kaLog::info("Snapshot export time %f seconds.", now() - exportStart);
    if (_playSound)
        kaUtils::beep();
}

void kaImageWriter::SnapshotExport::writePasses(std::vector<osg::ImagePtr>& images,
                                                const QString& name, const QString& format,
                                                kaImageRenderWidget& widget) {
    widget.setLabelText(QObject::tr("Writing images ..."));
    for (size_t pass = 0; pass < images.size(); ++pass) {
        osg::ImagePtr& image = images[pass];
        if (!image)
            continue;
        if (!_alphaOn)
            image->reformat(osg::Image::OSG_RGB_PF);
        if (format == "EXR" && _writer._exportExrHalf &&
            image->getDataType() == osg::Image::OSG_FLOAT32_IMAGEDATA &&
            _writer.allowPassConversionTo16Bit(pass))
            image->convertDataTypeTo(osg::Image::OSG_FLOAT16_IMAGEDATA);
    }
    _writer.saveImages(images, name.toUtf8().toStdString(), format.toUtf8().constData(),
                       _addSignature, true, _writer._noShowImage, _r.dpi, false, false, nullptr);
}

void kaImageWriter::SnapshotExport::writeImage(const osg::ImagePtr& image, QString name,
                                               const QString& format, double totalRenderTime,
                                               kaImageRenderWidget& widget) {
    widget.setLabelText(QObject::tr("Writing image ..."));
    kaImageRenderWidget::processEvents();
    if (_r.appendRenderTime)
        name = withoutExtension(name) + "__" + QString::number(totalRenderTime, 'g', 6) + "." +
               _fileExtension;
    _writer.saveImage(image, name.toUtf8().constData(), format.toUtf8().constData(), _addSignature,
                      false, _writer._noShowImage, _r.dpi, false, false, nullptr);
    if (!_writer._noProgress) {
        widget.getProgress()->setValue(widget.getProgress()->value() + 1);
        kaImageRenderWidget::processEvents();
    }
}
