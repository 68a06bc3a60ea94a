// The snapshot export: the main view into one image file, one file per stereo eye, or one file
// (or layer) per render pass.
#include "kaImageWriter.h"

#include "kaController.h"
#include "kaFile.h"
#include "kaImage.h"
#include "kaImageMetaData.h"
#include "kaImageOutStream.h"
#include "kaKernelServiceFactory.h"
#include "kaLog.h"
#include "kaOSGWidget.h"
#include "kaPlatform.h"
#include "kaPreferences.h"
#include "kaRaytracer.h"
#include "kaScopedRenderInProgress.h"
#include "kaUtils.h"
#include "kaWinPower.h"

#include <QMessageBox>
#include <QProgressBar>

#include <chrono>
#include <cstdio>

namespace {

double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// The name without its extension; only a dot in the file-name part counts, so that folders
// with dots in their names stay whole.
QString withoutExtension(const QString& name) {
    const int dot = name.lastIndexOf('.');
    return dot > name.lastIndexOf('/') ? name.left(dot) : name;
}

void warn(const QString& title, const QString& text) {
    QMessageBox::warning(nullptr, title, text, QMessageBox::Ok);
}

} // namespace

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
        const QString text =
            QObject::tr("For an image export at least one render window is necessary!");
        warn(kaPlatform::getAppVersionName(), text);
        kaLog::error("%s", text.toUtf8().constData());
        return;
    }
    kaScopedRenderInProgress guard;

    bool localRender = true;
    if (!clusterSetup.isEmpty() || view->getClusterWindow()) {
        if (kaOSGWidget::getRaytracing())
            localRender = false;
        else
            kaLog::warning("Snapshot: cluster rendering is not supported with OpenGL!");
    }

    const kaMessage& prefs = kaPreferences::getData();
    const bool playSound = kaController::playSoundOnExport();
    const auto [stereoMode, eyeCount] = getStereoMode();
    if (!localRender && eyeCount >= 3) {
        const QString text =
            QObject::tr("Stereo rendering is not supported in raytracing cluster image export!");
        warn(kaPlatform::getAppVersionName(), text);
        kaLog::error("%s", text.toUtf8().constData());
        return;
    }

    bool addSignature = false;
    getFromMessage(prefs, "ImageExport add sig", addSignature);
    if (width < 0) {
        width = 800;
        getFromMessage(prefs, "ImageExport width", width);
    }
    if (height < 0) {
        height = 600;
        getFromMessage(prefs, "ImageExport height", height);
    }
    if (superSampling < 0)
        getFromMessage(prefs, "MovieExport ssfactor", superSampling);
    bool alphaOn = alpha > 0;
    if (alpha < 0)
        getFromMessage(prefs, "MovieExport alpha", alphaOn);
    // Cryptomatte passes carry coverage in their alpha.
    const std::vector<bool>& active = kaImageRenderWidget::getActiveRenderPasses();
    if (exportRenderPasses && !active.empty() &&
        ((active.size() > 34 && active[34]) || (active.size() > 37 && active[37])))
        alphaOn = true;
    if (dpi < 0.0f) {
        dpi = 72.0f;
        getFromMessage(prefs, "MovieExport dpi", dpi);
    }
    bool ignoreAspect = false;
    getFromMessage(prefs, "ImageExport ignore aspect", ignoreAspect);

    const QString extension = kaFile::getExtension(filename).toLower();
    if (alphaOn && (extension == "jpg" || extension == "jpeg" || extension == "bmp")) {
        warn(QObject::tr("Snapshot"),
             QObject::tr("The chosen image format doesn't support an alpha channel!\nChoose "
                         "another image format, e.g. png, or disable the alpha channel export."));
        return;
    }
    if (_metaDataFlags != 0 && kaImageMetaData::isXMPSupported() &&
        !imageFormatHasMetaDataSupport(extension))
        logMetaDataUnsupported();

    QString fileExtension = kaFile::getExtension(filename);
    if (fileExtension.isEmpty())
        fileExtension = QString::fromStdString(kaImage::getDefaultImageFormat());
    const QString stem = withoutExtension(kaFile::expandFilename(filename));
    auto eyeFile = [&](int eye) {
        return stem + getStereoName(stereoMode, eye) + "." + fileExtension;
    };
    for (int eye = 0; eye < eyeCount; ++eye) {
        if (kaImageOutStream::getImageWriteFunction())
            break; // a stream takes the images: no files to check
        const QString name = eyeFile(eye);
        kaFile::createPath(kaFile::getFilePath(name));
        if (!kaFile::checkWrite(name, false, true))
            return;
        if (!_noOverwriteMessage && !kaFile::checkWrite(name, !kaController::isNoGUI(), false))
            return;
    }

    if (view->isStereoEnabled() && view->getStereoMode() != 2 && view->getStereoMode() != 3) {
        warn(kaPlatform::getAppVersionName(), QObject::tr("Please disable stereo rendering!"));
        return;
    }

    const EXECUTION_STATE previousState =
        SetThreadExecutionState(ES_CONTINUOUS | ES_SYSTEM_REQUIRED);
    const unsigned int savedColorSpace = view->getDisplayColorspace();
    if (_iccProfile > 0)
        view->setDisplayColorspace(unsigned(_iccProfile));

    if (_metaDataFlags != 0 && kaImageMetaData::isXMPSupported() && (_metaDataFlags & 8))
        _metaData->setFileOutputImageSettings(float(width), float(height), dpi, superSampling,
                                              tonemapHDR, alphaOn, kaRaytracer::getPremultiply(),
                                              _alphaColor, _iccProfile, _metaDataFlags);

    if (!localRender) {
        // The raytracing cluster is not part of this host yet: say so and render nothing.
        kaLog::error("Snapshot: no raytracing cluster is available; nothing was rendered.");
    } else {
        const double exportStart = now();
        const bool hadPowerwall = view->isPowerwallEnabled();
        if (hadPowerwall) {
            view->enablePowerwall(false);
            kaImageRenderWidget::setPowerwall(true);
        }
        const bool isolateOverlay = view->getDrawIsolateViewOverlay();
        const bool lightsVisible = view->getLightsVisible();
        const bool camerasVisible = view->getCamerasVisible();
        view->setDrawIsolateViewOverlay(false);
        view->setLightsVisible(false);
        view->setCamerasVisible(false);
        auto restoreOverlays = [&] {
            view->setDrawIsolateViewOverlay(isolateOverlay);
            view->setLightsVisible(lightsVisible);
            view->setCamerasVisible(camerasVisible);
        };
        kaController::setSnapshotRendering(true);
        const bool raytracing = kaOSGWidget::getRaytracing();
        const bool sceneplate = view->getBackplate() ? view->getSceneplate() : false;
        kaImageRenderWidget::setAlpha(alphaOn);
        kaImageRenderWidget::setAlphaColor(_alphaColor[0], _alphaColor[1], _alphaColor[2]);

        const osg::UberViewportPtr viewport = view->getViewport();
        const int savedDeepLearning = viewport ? viewport->getDeepLearningSS() : 0;
        const int savedDisplay = viewport ? viewport->getDisplay() : 0;
        const float savedReferenceWhite = viewport ? viewport->getHdrReferenceWhite() : 80.0f;
        setupViewport(viewport, kaDisplayStandard, 80.0f, 0);
        setupBackground(viewport, _alphaColor[0], _alphaColor[1], _alphaColor[2], 0.0f, sceneplate,
                        alphaOn);

        std::unique_ptr<kaImageRenderWidget> widget;
        double totalRenderTime = 0.0;
        bool aborted = false;
        bool invalid = false;
        for (int eye = 0; eye < eyeCount; ++eye) {
            QString name = eyeFile(eye);
            QString format = fileExtension.toUpper();
            if (format == "JPG")
                format = "JPEG";
            if ((_exportTiffHDR &&
                 (format == "TIF" || format == "TIFF" || format == "PSD" || format == "PSB")) ||
                format == "HDR" || format == "EXR")
                kaImageRenderWidget::setDataType(osg::Image::OSG_FLOAT32_IMAGEDATA);
            if (eye == 0) {
                widget = std::make_unique<kaImageRenderWidget>(
                    kaController::getMainWindow(), width, height, stereoMode, addSignature,
                    superSampling, true, ignoreAspect, exportRenderPasses ? 0x2fu : 1u, tonemapHDR);
                if (!widget->isValid()) {
                    widget.reset();
                    restoreOverlays();
                    invalid = true;
                    break;
                }
            }
            widget->setLabelText(QObject::tr("Creating image ..."));
            if (alphaOn && !raytracing)
                widget->setLabelText(QObject::tr("Creating image"));
            const double renderStart = now();
            std::vector<osg::ImagePtr> images = widget->render(nullptr, eye, false, !_noProgress);
            const double renderTime = now() - renderStart;
            aborted = widget->wasAborted();
            if (exportRenderPasses && !aborted) {
                widget->setLabelText(QObject::tr("Writing images ..."));
                for (size_t pass = 0; pass < images.size(); ++pass) {
                    osg::ImagePtr& image = images[pass];
                    if (!image)
                        continue;
                    if (!alphaOn)
                        image->reformat(osg::Image::OSG_RGB_PF);
                    if (format == "EXR" && _exportExrHalf &&
                        image->getDataType() == osg::Image::OSG_FLOAT32_IMAGEDATA &&
                        allowPassConversionTo16Bit(pass))
                        image->convertDataTypeTo(osg::Image::OSG_FLOAT16_IMAGEDATA);
                }
                saveImages(images, name.toUtf8().toStdString(), format.toUtf8().constData(),
                           addSignature, true, _noShowImage, dpi, false, false, nullptr);
            }
            if (aborted) {
                _exportCanceled = true;
                std::printf("Image export aborted!\n");
                std::fflush(stdout);
            }
            totalRenderTime += renderTime;
            if (!exportRenderPasses && !images.empty() && images[0] && !aborted) {
                widget->setLabelText(QObject::tr("Writing image ..."));
                kaImageRenderWidget::processEvents();
                if (appendRenderTime)
                    name = withoutExtension(name) + "__" +
                           QString::number(totalRenderTime, 'g', 6) + "." + fileExtension;
                saveImage(images[0], name.toUtf8().constData(), format.toUtf8().constData(),
                          addSignature, false, _noShowImage, dpi, false, false, nullptr);
                if (!_noProgress) {
                    widget->getProgress()->setValue(widget->getProgress()->value() + 1);
                    kaImageRenderWidget::processEvents();
                }
            }
            if (aborted)
                break;
        }
        if (!invalid) {
            if (!aborted && widget)
                widget->getProgress()->setValue(widget->getProgress()->maximum());
            widget.reset();

            kaController::setSnapshotRendering(false);
            kaImageRenderWidget::setPixelFormat(osg::Image::OSG_RGB_PF);
            kaImageRenderWidget::setDataType(osg::Image::OSG_UINT8_IMAGEDATA);
            restoreOverlays();
            if (hadPowerwall) {
                view->enablePowerwall(true);
                kaImageRenderWidget::setPowerwall(false);
            }
            setupViewport(viewport, kaDisplay(savedDisplay), savedReferenceWhite,
                          savedDeepLearning);
            setupBackground(viewport, 0.5f, 0.5f, 0.5f, 0.0f, false, false);

            s_lastRenderTime = totalRenderTime;
            kaLog::info("Snapshot render time %f seconds.", totalRenderTime);
            kaLog::info("Snapshot export time %f seconds.", now() - exportStart);
            if (playSound)
                kaUtils::beep();
        }
    }

    if (_iccProfile > 0)
        view->setDisplayColorspace(savedColorSpace);
    SetThreadExecutionState(previousState);
}
