// The sequence export: an animation into one file per frame (per stereo eye, per render pass).
// The walk always starts at frame 0: frames before the start are stepped through without being
// written, so that simulations, which depend on every step before, show at the start frame what
// a user playing the animation would see. The pass files of a frame are written on background
// jobs while the next pass is queued, and all of them are on disk before the next frame renders.
#include "kaImageWriter.h"

#include "kaExportSession_p.h"

#include "OSGAnimNodeBase.h"
#include "OSGExternalThread.h"
#include "kaClusterService.h"
#include "kaConstraintManager.h"
#include "kaController.h"
#include "kaFile.h"
#include "kaImageMetaData.h"
#include "kaImageOutStream.h"
#include "kaKernelServiceFactory.h"
#include "kaLog.h"
#include "kaNodeUtils.h"
#include "kaOSGWidget.h"
#include "kaPlatform.h"
#include "kaPreferences.h"
#include "kaRaytracer.h"
#include "kaRenderPasses.h"
#include "kaScopedRenderInProgress.h"
#include "kaSimulationTime.h"
#include "kaThreadPool.h"
#include "kaUtils.h"

#include <QDateTime>
#include <QProgressBar>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <tuple>

using kaExportSession::now;
using kaExportSession::refuse;
using kaExportSession::warn;

namespace {

// The date, the clocks and the frame that each file of a sequence records about itself.
QString annotationText(int frame, const osg::AnimNodeBasePtr& animation) {
    QString text = "Date: " + QDateTime::currentDateTime().toString("yyyy/MM/dd hh:mm:ss") + "\n";
    text += "Simulation time: " + QString::number(kaController::getSimulationTime(), 'g', 6) + "\n";
    text += "System time: " + QString::number(now(), 'g', 6) + "\n";
    text += "Frame: " + QString::number(frame) + "\n";
    if (animation)
        text +=
            "Animation object: " +
            QString::fromStdString(kaNodeUtils::getName(osg::FieldContainerPtr(animation.get()))) +
            "\n";
    return text;
}

} // namespace

// One sequence export from its request to its files.
class kaImageWriter::SequenceExport {
public:
    struct Request {
        QString filename;
        int width, height, fps, start, stop, superSampling, alpha;
        bool exportRenderPasses;
        __int64 animationNodeId;
        QString clusterSetup;
        int step;
        bool tonemapHDR;
    };

    SequenceExport(kaImageWriter& writer, kaOSGWidget& view, Request request)
        : _writer(writer)
        , _view(view)
        , _r(std::move(request)) {}

    // Decides where to render, names the files, fills the arguments from the preferences and
    // checks that the request can be done (up to the machine being kept awake).
    bool completeRequest();
    // The rest: the checks that need the machine awake, then the render.
    void run();

private:
    bool completeArguments();
    void storeMetaDataSettings();
    void renderLocally();
    void renderOnCluster();
    // Steps one frame (or eye) through the host's loop without rendering or writing it.
    void preRoll();
    // Renders and writes frame 'frame' of eye 'eye' to 'file'; false when the user aborted.
    bool renderFrame(int frame, int eye, const QString& file, const QString& frameName);
    void writePasses(std::vector<osg::ImagePtr>& images, int eye, const QString& frameName,
                     const QString& annotation);
    // The upper-case format name that saving expects ("JPG" as "JPEG").
    QString format() const;

    kaImageWriter& _writer;
    kaOSGWidget& _view;
    Request _r;
    bool _localRender = true;
    bool _playSound = false;
    bool _addSignature = false, _alphaOn = false, _ignoreAspect = false;
    kaImageRenderWidget::StereoMode _stereoMode = kaImageRenderWidget::STEREO_NONE;
    int _eyeCount = 1;
    int _steps = 0;
    double _simulationStart = 0.0;
    QString _expanded, _extension, _base, _namingExtension;

    // While the frames render.
    std::unique_ptr<kaImageRenderWidget> _widget;
    std::unique_ptr<kaThreadPool> _pool;
    int _renderedImages = 0;
};

void kaImageWriter::exportImages(const QString& filename, int width, int height, int fps,
                                 int startFrame, int stopFrame, int superSampling, int alpha,
                                 bool exportRenderPasses, __int64 animationNodeId,
                                 const QString& clusterSetup, int frameStep, bool tonemapHDR) {
    kaScopedRenderInProgress guard;
    _exportCanceled = false;
    // From the arguments as they came; a step below 1 counts as 1 here too.
    startProgress((stopFrame - startFrame) / std::max(frameStep, 1) + 1);

    kaOSGWidget* view = kaOSGWidget::getMGLW(-1);
    if (!view) {
        refuse(QObject::tr("For a image export at least one render window is necessary!"));
        return;
    }
    SequenceExport sequence(*this, *view,
                            {filename, width, height, fps, startFrame, stopFrame, superSampling,
                             alpha, exportRenderPasses, animationNodeId, clusterSetup, frameStep,
                             tonemapHDR});
    if (sequence.completeRequest())
        sequence.run();
}

bool kaImageWriter::SequenceExport::completeRequest() {
    _localRender = !kaExportSession::rendersOnCluster(_view, _r.clusterSetup);

    _expanded = QString::fromStdString(kaFile::expandFilename(_r.filename.toUtf8().toStdString()));
    _extension = kaFile::getExtension(_expanded);
    _writer.cleanupFileExtension(_expanded, _extension);
    if (!kaImageOutStream::getImageWriteFunction()) {
        kaFile::createPath(kaFile::getFilePath(_expanded));
        if (!kaFile::checkWrite(_expanded, false, true))
            return false;
    }

    _simulationStart = kaController::getSimulationTimer()->get();

    std::tie(_stereoMode, _eyeCount) = _writer.getStereoMode();
    if (!_localRender && _eyeCount >= 3) {
        const QString text =
            QObject::tr("Stereo rendering is not supported in raytracing cluster movie export!");
        if (!kaController::isNoGUI())
            warn(kaPlatform::getAppVersionName(), text);
        kaLog::error("%s", text.toUtf8().constData());
        return false;
    }
    return completeArguments();
}

bool kaImageWriter::SequenceExport::completeArguments() {
    const kaMessage& prefs = kaPreferences::getData();
    getFromMessage(prefs, "ImageExport add sig", _addSignature);
    _writer.validateStartAndStop(_r.start, _r.stop);
    if (_r.fps < 0)
        getFromMessage(prefs, "MovieExport fps", _r.fps);
    if (_r.width < 0)
        getFromMessage(prefs, "ImageExport width", _r.width);
    if (_r.height < 0)
        getFromMessage(prefs, "ImageExport height", _r.height);
    if (_r.superSampling < 0)
        getFromMessage(prefs, "MovieExport ssfactor", _r.superSampling);
    getFromMessage(prefs, "ImageExport ignore aspect", _ignoreAspect);

    _alphaOn = _r.alpha > 0;
    if (_r.alpha < 0)
        getFromMessage(prefs, "MovieExport alpha", _alphaOn);
    // Cryptomatte mattes carry their coverage in the alpha channel.
    if (_r.exportRenderPasses && kaImageRenderWidget::hasActiveRenderPasses()) {
        const std::vector<bool>& active = kaImageRenderWidget::getActiveRenderPasses();
        for (int pass : {int(kaRenderPass::CryptoObject00), int(kaRenderPass::CryptoMaterial00)})
            if (size_t(pass) < active.size() && active[size_t(pass)])
                _alphaOn = true;
    }

    _playSound = kaController::playSoundOnExport();

    const QString lower = _extension.toLower();
    if (_alphaOn && kaExportSession::lacksAlpha(lower)) {
        warn(QObject::tr("Movie Export"),
             QObject::tr("The chosen image format doesn't support an alpha channel!\nChoose "
                         "another image format, e.g. png, or disable the alpha channel export."));
        return false;
    }
    if (_writer._metaDataFlags != 0 && kaImageMetaData::isXMPSupported() &&
        !_writer.imageFormatHasMetaDataSupport(_extension))
        _writer.logMetaDataUnsupported();

    _base = _writer.getBaseFilename(_expanded);
    // The base name has no extension: names take the one of the cleaned name.
    _namingExtension = kaFile::getExtension(_expanded);
    _writer.validateFrameStep(_r.step);
    _steps = (_r.stop - _r.start) / _r.step;

    if (_view.isStereoEnabled() && _view.getStereoMode() != 2 && _view.getStereoMode() != 3) {
        warn(kaPlatform::getAppVersionName(), QObject::tr("Please disable stereo rendering!"));
        return false;
    }
    return true;
}

void kaImageWriter::SequenceExport::run() {
    const kaExportSession::AwakeInExportColorSpace awake(_view, _writer._iccProfile);

    if (!kaImageOutStream::getImageWriteFunction()) {
        kaFile::createPath(kaFile::getFilePath(_base));
        if (!kaFile::checkWrite(_base, false, true))
            return;
    }
    storeMetaDataSettings();

    if (_localRender)
        renderLocally();
    else
        renderOnCluster();
}

void kaImageWriter::SequenceExport::renderOnCluster() {
    const bool simulation = kaController::isSimulationEnable();
    const std::shared_ptr<kaClusterService> service =
        kaKernelServiceFactory::get<kaClusterService>("kaClusterService");
    const bool startHere = !_view.getClusterWindow() && !_r.clusterSetup.isEmpty();
    if (startHere) {
        if (!service)
            return;
        service->setSetup(_r.clusterSetup);
        service->setStopNodesOnFailure(true);
        service->setWaitForNodes(true);
        if (!service->start())
            return;
    }
    // The base name has no extension: the cluster export names its files from the one the
    // names take.
    const QString base = _base + "." + _namingExtension;
    if (_stereoMode == kaImageRenderWidget::STEREO_NONE) {
        _writer._exportCanceled = _writer.exportRTClusterImages(
            base, _r.width, _r.height, 0, _r.fps, _r.start, _r.stop, _r.superSampling, _alphaOn,
            _r.exportRenderPasses, _r.tonemapHDR, _r.animationNodeId, _r.step);
    } else if (int(_stereoMode) == 1) {
        const bool left = _writer.exportRTClusterImages(
            base, _r.width, _r.height, 1, _r.fps, _r.start, _r.stop, _r.superSampling, _alphaOn,
            _r.exportRenderPasses, _r.tonemapHDR, _r.animationNodeId, _r.step);
        const bool right = _writer.exportRTClusterImages(
            base, _r.width, _r.height, 2, _r.fps, _r.start, _r.stop, _r.superSampling, _alphaOn,
            _r.exportRenderPasses, _r.tonemapHDR, _r.animationNodeId, _r.step);
        _writer._exportCanceled = left || right;
    }
    if (startHere) {
        service->stop();
        if (simulation)
            kaController::enableSimulation(true);
    }
    if (_playSound)
        kaUtils::beep();
}

void kaImageWriter::SequenceExport::storeMetaDataSettings() {
    const int flags = _writer._metaDataFlags;
    if (flags == 0 || !kaImageMetaData::isXMPSupported())
        return;
    if (flags & 8)
        _writer._metaData->setFileOutputImageSettings(
            float(_r.width), float(_r.height), 72.0f, _r.superSampling, _r.tonemapHDR, _alphaOn,
            kaRaytracer::getPremultiply(), _writer._alphaColor, _writer._iccProfile, flags);
    if (flags & 16) {
        const osg::AnimNodeBasePtr animation =
            _r.animationNodeId ? kaExportSession::animationOf(_r.animationNodeId)
                               : osg::AnimNodeBasePtr();
        const QString name = animation ? QString::fromStdString(kaNodeUtils::getName(
                                             osg::FieldContainerPtr(animation.get())))
                                       : QString();
        _writer._metaData->setFileOutputAnimationSettings(true, animation ? 0 : 1, 0, name,
                                                          _r.start, _r.stop, _r.step, _r.fps);
    }
}

QString kaImageWriter::SequenceExport::format() const {
    const QString upper = _namingExtension.toUpper();
    return upper == "JPG" ? QString("JPEG") : upper;
}

void kaImageWriter::SequenceExport::renderLocally() {
    const bool plate = _view.getBackplate() ? _view.getSceneplate() : false;
    const float* color = _writer._alphaColor;
    kaImageRenderWidget::setAlpha(_alphaOn);
    kaImageRenderWidget::setAlphaColor(color[0], color[1], color[2]);

    const kaExportSession::SavedViewportDisplay viewport(_view.getViewport());
    _writer.setupViewport(viewport.viewport, kaDisplayStandard, 80.0f, 0);
    _writer.setupBackground(viewport.viewport, color[0], color[1], color[2], 0.0f, plate, _alphaOn);

    if (kaExportSession::rendersFloat(_namingExtension.toUpper(), _writer._exportTiffHDR))
        kaImageRenderWidget::setDataType(osg::Image::OSG_FLOAT32_IMAGEDATA);

    _widget = std::make_unique<kaImageRenderWidget>(
        kaController::getMainWindow(), _r.width, _r.height, _stereoMode, _addSignature,
        _r.superSampling, true, _ignoreAspect, _r.exportRenderPasses ? 47u : 1u, _r.tonemapHDR);
    if (!_widget->isValid()) {
        _widget.reset();
        return;
    }
    _widget->setAutoProgress(true);
    _widget->setLabelText(QObject::tr("Rendering frame ..."));
    _widget->setWindowTitle(QObject::tr("Movie Render"));
    _widget->getTotalProgress()->setRange(0, (_steps + 1) * _eyeCount + 1);
    _widget->getTotalProgress()->setValue(0);
    if (!_writer._noProgress) {
        _widget->setShowTotalProgress(true);
        _widget->getProgress()->show();
    }

    kaExportSession::HiddenOverlays overlays(_view);
    const double renderStart = now();
    kaController::setSnapshotRendering(true);
    _pool = std::make_unique<kaThreadPool>(-1, nullptr);

    double time = _simulationStart;
    bool firstFile = true;
    bool aborted = false;
    for (int frame = 0; frame <= _r.stop && !aborted;) {
        const QString frameName = getFrameName(frame);
        kaController::getSimulationTimer()->set(time);
        time += double(_r.step) / double(_r.fps);
        for (int eye = 0; eye < _eyeCount; ++eye) {
            _widget->setLabelText(QObject::tr("Rendering frame ..."));
            const QString file =
                _writer.getFilename(_base, _stereoMode, eye, frameName, _namingExtension);
            if (firstFile) {
                // Asked once, about the first file of the walk, even when the start is later.
                firstFile = false;
                if (!kaImageOutStream::getImageWriteFunction())
                    kaFile::createPath(kaFile::getFilePath(file));
                if (!_writer._noOverwriteMessage &&
                    !kaFile::checkWrite(file, !kaController::isNoGUI(), true)) {
                    overlays.restore();
                    _pool.reset();
                    _widget.reset();
                    return;
                }
            }
            kaController::callLoopCBs();
            kaController::updateBehavior(true);
            if (frame < _r.start) {
                preRoll();
                continue;
            }
            if (!renderFrame(frame, eye, file, frameName)) {
                aborted = true;
                break;
            }
        }
        if (!aborted && _widget->wasAborted()) {
            _writer._exportCanceled = true;
            aborted = true;
        }
        const int advance = frame < _r.start ? 1 : _r.step;
        if (frame > _r.stop - advance)
            break; // the next frame would pass the stop (or overflow)
        frame += advance;
    }

    _widget->getTotalProgress()->setValue(_widget->getTotalProgress()->maximum());
    kaController::setSnapshotRendering(false);
    kaImageRenderWidget::setPixelFormat(osg::Image::OSG_RGB_PF);
    kaImageRenderWidget::setDataType(osg::Image::OSG_UINT8_IMAGEDATA);
    overlays.restore();
    viewport.restore(_writer);
    kaLog::info("movie render time %f seconds.", now() - renderStart);
    if (_playSound)
        kaUtils::beep();
    _pool.reset();
    _widget.reset();
}

void kaImageWriter::SequenceExport::preRoll() {
    kaExportSession::preRollFrame(_view);
    waitForBackgroundJobs(*_pool);
}

bool kaImageWriter::SequenceExport::renderFrame(int frame, int eye, const QString& file,
                                                const QString& frameName) {
    osg::AnimNodeBasePtr animation;
    if (_r.animationNodeId)
        animation = kaExportSession::animationOf(_r.animationNodeId);
    const QString annotation = annotationText(frame, animation);

    kaExportSession::showFrame(_r.animationNodeId, animation, frame, _r.start);
    kaConstraintManager::evaluateConstraints();

    std::vector<osg::ImagePtr> images = _widget->render(nullptr, eye, true, !_writer._noProgress);
    const bool rendered = !images.empty() && images[0];
    kaController::forceRender(true);

    if (!_r.exportRenderPasses) {
        if (rendered && !_widget->wasAborted()) {
            const QByteArray name = file.toUtf8(), type = format().toUtf8(),
                             comment = annotation.toUtf8();
            _writer.saveImage(images[0], name.constData(), type.constData(), _addSignature, false,
                              true, 72.0f, false, false, comment.constData());
        }
        ++_renderedImages;
        _widget->getTotalProgress()->setValue(_renderedImages);
    } else {
        writePasses(images, eye, frameName, annotation);
    }

    if (!_writer._noProgress || !_r.exportRenderPasses) {
        _widget->getProgress()->setValue(_widget->getProgress()->value() + 1);
        kaImageRenderWidget::processEvents();
    }
    if (_widget->wasAborted()) {
        // The jobs already queued finish when the pool goes, at the end of the export.
        _writer._exportCanceled = true;
        std::printf("aborted images export!\n");
        std::fflush(stdout);
        return false;
    }
    // No frame begins before the previous frame's files are written.
    waitForBackgroundJobs(*_pool);
    return true;
}

void kaImageWriter::SequenceExport::writePasses(std::vector<osg::ImagePtr>& images, int eye,
                                                const QString& frameName,
                                                const QString& annotation) {
    _widget->setLabelText(QObject::tr("Writing images ..."));
    const QString stereo = getStereoName(_stereoMode, eye);
    const QString lowerExtension = _namingExtension.toLower();
    const QString type = format();
    if (isMultilayerSupported(_expanded) && _writer._exportMultiLayer) {
        const QString name = _base + stereo + frameName + "." + lowerExtension;
        // Passes that need their precision (depth, mattes, position) stay 32-bit.
        std::vector<osg::ImagePtr> halved;
        if (_namingExtension == "EXR" && _writer._exportExrHalf) {
            for (size_t pass = 0; pass < images.size(); ++pass) {
                osg::ImagePtr& image = images[pass];
                if (image && image->getDataType() == osg::Image::OSG_FLOAT32_IMAGEDATA &&
                    _writer.allowPassConversionTo16Bit(pass)) {
                    image->convertDataTypeTo(osg::Image::OSG_FLOAT16_IMAGEDATA);
                    halved.push_back(image);
                }
            }
        }
        _writer.saveImages(images, name.toUtf8().toStdString(), type.toUtf8().constData(),
                           _addSignature, true, _writer._noShowImage, 72.0f, false, true,
                           annotation.toUtf8().constData());
        for (const osg::ImagePtr& image : halved)
            image->convertDataTypeTo(osg::Image::OSG_FLOAT32_IMAGEDATA);
    } else {
        for (size_t pass = 0; pass < images.size(); ++pass) {
            if (_widget->wasAborted())
                break;
            if (!images[pass])
                continue;
            kaImageRenderWidget::processEvents();
            const std::string passFile =
                (_base + stereo + getPassName(int(pass)) + frameName + "." + lowerExtension)
                    .toUtf8()
                    .toStdString();
            // The job owns what it uses: the writer, every image of this render (the handles
            // keep them alive), the names and the annotation.
            _pool->run([pass, writer = _writer, images, passFile,
                        type = type.toUtf8().toStdString(), addSignature = _addSignature,
                        renderPasses = _r.exportRenderPasses,
                        comment = annotation.toUtf8().toStdString()]() mutable {
                const osg::ExternalThreadRefPtr thread =
                    osg::ExternalThread::attachCurrentThread("imagewriter" + std::to_string(pass));
                writer.saveImage(images[pass], passFile.c_str(), type.c_str(), addSignature,
                                 renderPasses, true, 72.0f, false, true, comment.c_str());
            });
        }
    }
    if (!_writer._noProgress)
        _widget->getTotalProgress()->setValue(_widget->getTotalProgress()->value() + 1);
}
