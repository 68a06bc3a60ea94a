// The cluster snapshot export: one picture (one eye, or the mono picture) raytraced by the
// host's render cluster, sample after sample, with the progress dialog's live preview, then
// written from the cluster's buffer. The sequence export calls it once per frame.
#include "kaImageWriter.h"

#include "kaDisplayTransform_p.h"
#include "kaExportSession_p.h"
#include "kaSnapshotProgressGUII.h"

#include "OSGCameraDecorators.h"
#include "OSGNetWindow.h"
#include "kaAnimManager.h"
#include "kaConstraintManager.h"
#include "kaController.h"
#include "kaFile.h"
#include "kaLog.h"
#include "kaMessage.h"
#include "kaOSGWidget.h"
#include "kaRaytracer.h"
#include "kaRenderParameter.h"
#include "kaRenderPasses.h"
#include "kaThreadPool.h"
#include "kaUberCameraUtils.h"

#include <QProgressBar>

#include <algorithm>
#include <cstdio>
#include <memory>

using kaExportSession::now;

namespace {

// What the cluster window does with the pixels (the bits the cluster defines).
uint32_t imageOpsFor(bool forwarded, bool eightBit, bool alpha) {
    uint32_t ops = osg::NetWindow::ImageOpBottomUp | osg::NetWindow::ImageOpFloat;
    if (forwarded || eightBit)
        ops |= osg::NetWindow::ImageOpTonemapHDR;
    if (eightBit)
        ops |= osg::NetWindow::ImageOpQuantize8;
    if (!alpha || kaRaytracer::getPremultiply())
        ops |= osg::NetWindow::ImageOpPremultipliedAlpha;
    else
        ops |= osg::NetWindow::ImageOpStraightAlpha;
    return ops;
}

// The 8-bit picture of one pass slot: display transform and dithered quantisation of every
// float pixel; straight alpha, as 8-bit files hold it.
osg::ImagePtr quantizedImage(const float* slot, int width, int height, bool alpha,
                             bool premultiplied) {
    osg::ImagePtr image = osg::Image::create();
    if (!image->set(alpha ? osg::Image::OSG_RGBA_PF : osg::Image::OSG_RGB_PF, width, height, 1, 1,
                    1, 0.0, nullptr, osg::Image::OSG_UINT8_IMAGEDATA, true))
        return osg::ImagePtr();
    const int channels = alpha ? 4 : 3;
    uint8_t* out = image->getData();
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const size_t i = size_t(y) * size_t(width) + size_t(x);
            float pixel[4] = {slot[i * 4], slot[i * 4 + 1], slot[i * 4 + 2], slot[i * 4 + 3]};
            const float a = std::clamp(pixel[3], 0.0f, 1.0f);
            if (alpha && premultiplied && a > 0.0f)
                for (int c = 0; c < 3; ++c)
                    pixel[c] /= a;
            uint8_t* px = out + i * size_t(channels);
            kaDisplayTransform::quantizePixel(pixel, x, y, 2, px);
            if (alpha)
                px[3] = uint8_t(std::min(a * 256.0f, 255.0f));
        }
    return image;
}

} // namespace

// One cluster picture from its set-up to its files; the steps in the order they run.
class kaImageWriter::ClusterSnapshot {
public:
    struct Request {
        QString filename;
        int width, height, eye;
        bool alpha;
        float dpi;
        bool addSignature, exportRenderPasses, forwarded;
        int frame;
    };

    ClusterSnapshot(kaImageWriter& writer, kaOSGWidget& view, kaSnapshotProgressGUII* dialog,
                    Request request)
        : _writer(writer)
        , _view(view)
        , _dialog(dialog)
        , _r(std::move(request)) {}

    ~ClusterSnapshot() {
        if (_window)
            _window->setCancelCB(nullptr);
        if (_ownDialog)
            delete _dialog;
    }

    // True when the picture was cancelled or could not be made.
    bool run();

private:
    // Returns false when the export ends here ("No renderpass active").
    bool setUp();
    void firstSample();
    // False when the user cancelled.
    bool renderSamples();
    void write();
    void writeImages(std::vector<osg::ImagePtr>& images, const QString& name);
    void restore();
    void renderFrame();
    QString fileName() const;

    kaImageWriter& _writer;
    kaOSGWidget& _view;
    kaSnapshotProgressGUII* _dialog;
    bool _ownDialog = false;
    Request _r;

    osg::NetWindowPtr _window;
    osg::UberViewportPtr _viewport;
    std::vector<bool> _activePasses;
    bool _sceneplate = false, _floatOutput = false;
    QString _extension;
    int _savedSupersampling = 1, _savedImageSamples = 1, _totalSamples = 1, _samplesDone = 0;
    osg::CameraPtr _savedCamera;
    bool _savedRaytracing = false, _savedSnapshotMode = false, _savedRenderEnabled = true;
    uint64_t _passMask = 1;
    uint32_t _imageOps = 0;
    struct WindowFields {
        uint32_t imageOps, pixelFormat, debug;
        uint64_t renderPasses;
        int downscale;
        uint32_t width, height;
        bool snapshot;
    } _savedWindow{};
    int _savedViewportDownscale = 1, _savedViewportSample = -1;
    uint64_t _savedViewportPasses = 1;
    bool _savedTonemapHDR = false;
    osg::TonemappingSettingsPtr _tonemapping;
    std::unique_ptr<kaExportSession::SavedViewportDisplay> _savedDisplay;
    double _renderTime = 0.0;
};

bool kaImageWriter::exportRTClusterImage(const QString& filename, int width, int height, int eye,
                                         int superSampling, bool alpha, float dpi,
                                         bool addSignature, bool exportRenderPasses, bool forwarded,
                                         kaSnapshotProgressGUII* progress, int frame) {
    // The cluster renders every supersampling position as a sample of one full-size picture:
    // the host's still-frame supersampling, not this factor, decides how many.
    (void)superSampling;
    kaOSGWidget* view = kaOSGWidget::getMGLW(-1);
    if (!view)
        return true;
    ClusterSnapshot snapshot(*this, *view, progress,
                             {filename, width, height, eye, alpha, dpi, addSignature,
                              exportRenderPasses, forwarded, frame});
    try {
        return snapshot.run();
    } catch (const kaClusterClusterWindowException& e) {
        // The cluster failed (a node died or went silent): the host decides what to tell.
        kaMessage message(0);
        message.set("error", QString::fromUtf8(e.what()));
        kaController::call("kaClusterClusterWindowException", message);
        return true;
    }
}

bool kaImageWriter::ClusterSnapshot::run() {
    if (!setUp())
        return true;
    firstSample();
    if (!renderSamples()) {
        kaLog::warning("Cluster rendering aborted");
        return true;
    }
    const double writeStart = now();
    s_lastRenderTime = _renderTime;
    write();
    kaLog::info("Snapshot render time %f seconds (%d samples).", _renderTime, _samplesDone);
    kaLog::info("Snapshot image writing time %f seconds.", now() - writeStart);
    restore();
    return false;
}

bool kaImageWriter::ClusterSnapshot::setUp() {
    kaController::setImageRenderProgress(0.0);
    _sceneplate = _view.getBackplate() ? _view.getSceneplate() : false;
    _window = _view.getClusterWindow();
    _viewport = _view.getViewport();
    _activePasses = kaImageRenderWidget::getActiveRenderPasses();
    std::printf("exportRTClusterImage: %d x %d\n", _r.width, _r.height);
    std::fflush(stdout);
    if (!_window)
        throw kaClusterClusterWindowException("the host has no cluster window");

    _savedSupersampling = kaRenderParameter::getStillFrameSupersampling();
    _savedImageSamples = kaRenderParameter::getImageSamples();
    _totalSamples = std::max(_savedSupersampling, 1) * std::max(_savedSupersampling, 1) *
                    std::max(_savedImageSamples, 1);
    kaRenderParameter::setStillFrameSupersampling(1);
    kaRenderParameter::setImageSamples(_totalSamples);
    _view.setImageSamples(_totalSamples);

    _savedCamera = _viewport->getCamera();
    if (_r.eye == 1 || _r.eye == 2) {
        osg::RefPtr<osg::ShearedStereoCameraDecorator> stereo =
            osg::ShearedStereoCameraDecorator::create();
        stereo->setEyeSeparation(_view.getEyeSeparation());
        stereo->setZeroParallaxDistance(_view.getZeroParallaxDistance());
        stereo->setLeftEye(_r.eye == 1);
        stereo->setDecoratee(_savedCamera);
        _viewport->setCamera(stereo);
    }

    _window->clearBuffer();

    _extension = kaFile::getExtension(_r.filename);
    const QString lower = _extension.toLower();
    if (_r.alpha && lower == "hdr") {
        kaLog::warning("Snapshot: alpha channel is not supported in HDR image format disabled "
                       "alpha channel!");
        _r.alpha = false;
    }
    _floatOutput = lower == "exr" || lower == "hdr" ||
                   (_writer._exportTiffHDR &&
                    (lower == "tiff" || lower == "tif" || lower == "psd" || lower == "psb"));

    kaImageRenderWidget::setAlpha(_r.alpha);
    kaImageRenderWidget::setAlphaColor(_writer._alphaColor[0], _writer._alphaColor[1],
                                       _writer._alphaColor[2]);
    _savedRaytracing = kaOSGWidget::getRaytracing();
    _savedSnapshotMode = _view.getSnapshotMode();
    _savedRenderEnabled = _view.isRenderEnabled();
    kaOSGWidget::setRaytracing(true);
    _view.setSnapshotMode(true);
    _view.enableRender(true);
    kaController::setSnapshotRendering(true);

    if (!_dialog) {
        _dialog = new kaSnapshotProgressGUII(_r.width, _r.height, _window);
        _ownDialog = true;
    }
    _dialog->setMessage(QObject::tr("Intializing image buffers ..."));
    _dialog->repaint();
    kaImageRenderWidget::processEvents();
    _dialog->show();
    kaSnapshotProgressGUII* dialog = _dialog;
    _window->setCancelCB([dialog] {
        kaImageRenderWidget::processEvents();
        return dialog->isCancel();
    });

    if (_r.exportRenderPasses && !kaImageRenderWidget::hasActiveRenderPasses()) {
        kaLog::error("No renderpass active, exiting.\n");
        return false;
    }

    _passMask = 1;
    for (size_t pass = 0; pass < _activePasses.size() && pass < 64; ++pass)
        if (_activePasses[pass])
            _passMask |= uint64_t(1) << pass;
    _passMask |= kaRenderParameter::getDenoiserPassesMask();
    const bool eightBit = !_floatOutput;
    _imageOps = imageOpsFor(_r.forwarded, eightBit, _r.alpha);
    _savedWindow = {_window->getImageOps(),     _window->getPixelFormat(), _window->getDebug(),
                    _window->getRenderPasses(), _window->getDownscale(),   _window->getWidth(),
                    _window->getHeight(),       _window->getSnapshot()};
    _window->setRenderPasses(_passMask);
    _window->setImageOps(_imageOps);
    _window->setIsFinalRtSample(false);
    _window->setCopyPasses(1);
    _window->setDownscale(1);
    _window->setSize(uint32_t(_r.width), uint32_t(_r.height));
    _window->setSnapshot(true);
    _window->setPixelFormat(_r.alpha ? osg::Image::OSG_RGBA_PF : osg::Image::OSG_RGB_PF);
    _window->setDebug(0);
    _window->setOpenGL(false);
    _view.setNavigationEnabled(false);
    kaController::setTimerLoops(false);

    _savedViewportDownscale = _viewport->getDownscale();
    _savedViewportSample = _viewport->getRtSample();
    _savedViewportPasses = _viewport->getRenderPasses();
    _viewport->setDownscale(_view.isRaytracingDownscaleEnabled() ? 2 : 1);
    _viewport->setRenderPasses(_passMask);
    _tonemapping = kaUberCameraUtils::getTonemappingSettings(_viewport->getCamera());
    if (_tonemapping) {
        _savedTonemapHDR = _tonemapping->getTonemapHDR();
        _tonemapping->setTonemapHDR((_imageOps & osg::NetWindow::ImageOpTonemapHDR) != 0);
    }
    kaAnimManager::resetMotionBlur();
    _savedDisplay = std::make_unique<kaExportSession::SavedViewportDisplay>(_viewport);
    _writer.setupViewport(_viewport, kaDisplayStandard, 80.0f, 0);
    const float* color = _writer._alphaColor;
    _writer.setupBackground(_viewport, color[0], color[1], color[2], 0.0f, _sceneplate, _r.alpha);
    kaConstraintManager::evaluateConstraints();
    _window->setRendering(true);
    kaRaytracer::setQuality(1);
    kaRaytracer::setSnapshot(true);
    kaRaytracer::applyChangeList();
    return true;
}

void kaImageWriter::ClusterSnapshot::renderFrame() {
    _view.activateRenderRoots();
    try {
        _view.getRenderAction()->render();
    } catch (...) {
        _view.deactivateRenderRoots();
        throw;
    }
    _view.deactivateRenderRoots();
}

void kaImageWriter::ClusterSnapshot::firstSample() {
    _dialog->setMessage(QObject::tr("Rendering first sample ..."));
    kaAnimManager::applyMotionBlur(0, _totalSamples);
    _viewport->triggerMapUpdate();
    _viewport->setRtSample(0);
    _window->setRtSample(0);
    renderFrame();
}

bool kaImageWriter::ClusterSnapshot::renderSamples() {
    const double start = now();
    kaController::setRenderStartTime(start);
    const int total = _totalSamples;
    std::printf("rendering %d samples.\n", total);
    std::fflush(stdout);
    const bool useLimit = kaRenderParameter::getUseRenderTimeLimit();
    const double limit = useLimit ? kaRenderParameter::getRenderTimeInSeconds() : 0.0;
    if (_ownDialog)
        _dialog->setTotalSteps(total);
    const int dialogValue = _dialog->_progress->value();
    double lastShown = -1.0;
    bool stop = false;
    for (int sample = 0; sample < total && !stop; ++sample) {
        if (_dialog->isCancel())
            break;
        if (sample != 0 && _window->getRtSample() == osg::NetWindow::RestartedSample)
            sample = 0; // the cluster started its accumulation over
        if (useLimit && now() - start > limit)
            stop = true; // this sample is the last one
        const bool finishNow = _dialog->isSave();
        const bool final = sample == total - 1 || stop || finishNow;
        // Pixels come back for the preview at most once a second, and always for the
        // samples whose picture matters.
        bool rendering = sample == 1 || sample == total - 1 || final;
        if (!rendering && _dialog->getRenderUpdate() && (lastShown < 0 || now() - lastShown >= 1.0))
            rendering = true;
        if (rendering)
            lastShown = now();
        _window->setRendering(rendering);
        _window->setRtSample(sample);
        _window->setRtFilterOn(false);
        if (useLimit)
            kaController::setAASampleCounts(sample + 1);
        else
            kaController::setAAProgress(double(sample + 1) * (1.0 / double(total)));

        kaAnimManager::applyMotionBlur(sample, total);
        _viewport->triggerMapUpdate();
        _viewport->setRtSample(sample);
        _window->setIsFinalRtSample(final);
        _window->setCopyPasses(final ? _window->getRenderPasses() : 1);
        renderFrame();
        _samplesDone = sample + 1;
        if (final)
            stop = true;

        _dialog->setProgress(_ownDialog ? sample + 1 : dialogValue, rendering);
        // A sequence shows its frames as its progress; a snapshot its samples.
        if (_ownDialog)
            kaController::setImageRenderProgress(double(sample + 1) / double(total));
    }
    _renderTime = now() - start;
    return !_dialog->isCancel();
}

QString kaImageWriter::ClusterSnapshot::fileName() const {
    // The folder, a backslash and the base name: the host's path functions turn the backslash
    // into the platform's separator. A name without a folder stays in the current one.
    QString folder = kaFile::getFilePath(_r.filename);
    if (folder.isEmpty())
        folder = ".";
    QString name = folder + "\\" + kaFile::getBaseName(_r.filename);
    if (_r.frame >= 0)
        name += getFrameName(_r.frame);
    if (_r.eye == 1)
        name += "-left";
    else if (_r.eye == 2)
        name += "-right";
    return kaFile::expandFilename(name + "." + _extension);
}

void kaImageWriter::ClusterSnapshot::write() {
    _dialog->setMessage(_r.exportRenderPasses ? QObject::tr("Writing image files ...")
                                              : QObject::tr("Writing image file ..."));
    _dialog->repaint();
    kaImageRenderWidget::processEvents();

    _window->waitAllFrames();
    if (!_window || !_window->getBuffer()) {
        std::printf("cluster window or buffer is NULL!\n");
        std::fflush(stdout);
        return;
    }
    const int width = _window->getBufferWidth(), height = _window->getBufferHeight();
    size_t activeCount = 0;
    for (bool active : _activePasses)
        activeCount += active ? 1 : 0;
    const bool passes = _r.exportRenderPasses && activeCount >= 2;
    std::vector<osg::ImagePtr> images(passes ? size_t(kaRenderPassCount) : 1);
    for (size_t pass = 0; pass < images.size(); ++pass) {
        const bool wanted = passes ? (pass < _activePasses.size() && _activePasses[pass]) : true;
        uint8_t* slot = _window->getPassData(int(pass));
        if (!wanted || !slot)
            continue;
        const bool light = kaRenderPass::holdsLight((long long)(pass));
        osg::ImagePtr image;
        if (_floatOutput) {
            // A view of the cluster's buffer: written from there, without a copy.
            image = osg::Image::create();
            image->setExternalData(osg::Image::OSG_RGBA_PF, width, height,
                                   osg::Image::OSG_FLOAT32_IMAGEDATA, slot);
            if (!light)
                image->setAlphaMode(osg::Image::AlphaMode::Independent);
            if (!_r.alpha)
                image->reformat(osg::Image::OSG_RGB_PF);
            if (_extension.toLower() == "exr" && _writer._exportExrHalf &&
                _writer.allowPassConversionTo16Bit(pass))
                image->convertDataTypeTo(osg::Image::OSG_FLOAT16_IMAGEDATA);
        } else {
            image = quantizedImage(reinterpret_cast<const float*>(slot), width, height, _r.alpha,
                                   light && kaRaytracer::getPremultiply());
        }
        images[pass] = image;
    }
    writeImages(images, fileName());
}

void kaImageWriter::ClusterSnapshot::writeImages(std::vector<osg::ImagePtr>& images,
                                                 const QString& name) {
    QString format = _extension.toUpper();
    if (format == "JPG")
        format = "JPEG";
    const std::string type = format.toStdString();
    const bool layered = images.size() > 1 && _writer._exportMultiLayer &&
                         (format == "EXR" || format == "PSD" || format == "PSB");
    // Every file has its own result, so that a failure names its file.
    std::vector<std::pair<QString, osg::ImagePtr>> files;
    if (images.size() == 1 || layered) {
        files.emplace_back(name, images.size() == 1 ? images[0] : osg::ImagePtr());
    } else {
        const QString stem = name.left(name.lastIndexOf('.'));
        for (size_t pass = 0; pass < images.size(); ++pass)
            if (images[pass])
                files.emplace_back(stem + getPassName(int(pass)) + "." + _extension.toLower(),
                                   images[pass]);
    }
    std::vector<unsigned char> written(files.size(), 0);
    {
        kaThreadPool pool(-1, nullptr);
        for (size_t i = 0; i < files.size(); ++i)
            pool.run([&, i] {
                const QByteArray file = files[i].first.toUtf8();
                if (layered)
                    written[i] = _writer.saveImages(images, file.toStdString(), type.c_str(),
                                                    _r.addSignature, true, _writer._noShowImage,
                                                    _r.dpi, false, true, nullptr);
                else if (files[i].second)
                    written[i] = _writer.saveImage(files[i].second, file.constData(), type.c_str(),
                                                   _r.addSignature, true, true, _r.dpi, false, true,
                                                   nullptr);
            });
        waitForBackgroundJobs(pool);
    }
    bool all = !files.empty();
    for (size_t i = 0; i < files.size(); ++i)
        if (!written[i]) {
            all = false;
            kaLog::error("RT Cluster Snapshot: couldn't write '%s'!",
                         files[i].first.toUtf8().constData());
        }
    if (all)
        kaLog::info("Snapshot wrote image (%d samples).", _samplesDone);
}

void kaImageWriter::ClusterSnapshot::restore() {
    _window->setRendering(false);
    kaRaytracer::setSnapshot(false);
    _viewport->setDownscale(_savedViewportDownscale);
    // The sample the cluster rendered last would make the view's own renders that one sample.
    _viewport->setRtSample(_savedViewportSample);
    _viewport->setRenderPasses(_savedViewportPasses);
    if (_tonemapping)
        _tonemapping->setTonemapHDR(_savedTonemapHDR);
    _writer.setupViewport(_viewport, kaDisplay(_savedDisplay->display),
                          _savedDisplay->referenceWhite, _savedDisplay->deepLearning);
    _writer.setupBackground(_viewport, 0.5f, 0.5f, 0.5f, 0.0f, false, false);
    _view.setNavigationEnabled(true);
    kaController::setTimerLoops(true);
    kaController::setSnapshotRendering(false);
    _window->setCancelCB(nullptr);
    kaController::setAASampleCounts(0);
    kaController::setAAProgress(0.0);
    _window->setImageOps(_savedWindow.imageOps);
    _window->setRenderPasses(_savedWindow.renderPasses);
    _window->setDownscale(_savedWindow.downscale);
    _window->setSize(_savedWindow.width, _savedWindow.height);
    _window->setSnapshot(_savedWindow.snapshot);
    _window->setPixelFormat(_savedWindow.pixelFormat);
    _window->setDebug(_savedWindow.debug);
    _viewport->setCamera(_savedCamera);
    _dialog->_progress->setValue(_dialog->_progress->maximum());
    kaRenderParameter::setStillFrameSupersampling(_savedSupersampling);
    kaRenderParameter::setImageSamples(_savedImageSamples);
    _view.setImageSamples(_savedImageSamples);
    _view.enableRender(_savedRenderEnabled);
    _view.setSnapshotMode(_savedSnapshotMode);
    kaOSGWidget::setRaytracing(_savedRaytracing);
    if (_dialog->isSave())
        _dialog->resetSave();
}
