// The movie export: an animation into one movie file through kaAviWriter. Like the sequence
// export it walks from frame 0, pre-rolling the frames before the start, but it renders one
// eye without passes or alpha, and every frame goes into the same file.
#include "kaImageWriter.h"

#include "kaAviWriter.h"
#include "kaExportSession_p.h"

#include "kaConstraintManager.h"
#include "kaController.h"
#include "kaFile.h"
#include "kaImageOutStream.h"
#include "kaLog.h"
#include "kaOSGWidget.h"
#include "kaPlatform.h"
#include "kaPreferences.h"
#include "kaSimulationTime.h"
#include "kaUtils.h"

#include <QImage>
#include <QProgressBar>

#include <cstdio>
#include <memory>
#include <vector>

using kaExportSession::now;
using kaExportSession::refuse;
using kaExportSession::warn;

namespace {

// The QImage as the frame format wants it: blue, green, red, the bottom row first, rows padded
// to four bytes.
void toBottomUpBGR(const QImage& image, int width, int height, std::vector<uint8_t>& frame) {
    const size_t stride = size_t(((width * 24 + 31) / 32) * 4);
    const bool direct =
        image.width() >= width && image.height() >= height &&
        (image.format() == QImage::Format_RGB32 || image.format() == QImage::Format_ARGB32);
    for (int y = height - 1, row = 0; y >= 0; --y, ++row) {
        uint8_t* out = frame.data() + size_t(row) * stride;
        const QRgb* line = direct ? reinterpret_cast<const QRgb*>(image.constScanLine(y)) : nullptr;
        for (int x = 0; x < width; ++x) {
            const QRgb pixel = line ? line[x] : image.pixel(x, y);
            *out++ = uint8_t(qBlue(pixel));
            *out++ = uint8_t(qGreen(pixel));
            *out++ = uint8_t(qRed(pixel));
        }
    }
}

} // namespace

void kaImageWriter::exportAVI(const QString& filename, int width, int height, int fps,
                              int startFrame, int stopFrame, int superSampling,
                              __int64 animationNodeId, const QString& clusterSetup,
                              bool noCompressionDialog) {
    _exportCanceled = false;
    // Before the preference test: -39..-1 become 0 and read nothing.
    width = (width / 40) * 40;
    height = (height / 40) * 40;

    kaOSGWidget* view = kaOSGWidget::getMGLW(-1);
    if (!view) {
        refuse(QObject::tr("For a movie export at least one render window is necessary!"));
        return;
    }
    if (!clusterSetup.isEmpty() || bool(view->getClusterWindow())) {
        if (kaOSGWidget::getRaytracing()) {
            refuse(QObject::tr("Export in AVI format is not supported via movie raytracing "
                               "cluster, please enable export images in the movie preferences!"));
            return;
        }
        kaLog::warning("Snapshot: cluster rendering is not supported with OpenGL!");
    }

    const QString extension = kaFile::getExtension(filename);
    QString name = kaFile::expandFilename(filename);
    const bool toFiles = !kaImageOutStream::getImageWriteFunction();
    if (toFiles)
        kaFile::createPath(kaFile::getFilePath(name));
    if (extension.isEmpty())
        name += ".avi";
    if (toFiles)
        kaFile::createPath(kaFile::getFilePath(name));
    if (!kaFile::checkWrite(name, kaController::isNoGUI(), true))
        return;

    double time = kaController::getSimulationTimer()->get();
    const bool playSound = kaController::playSoundOnExport();
    const kaMessage& prefs = kaPreferences::getData();
    bool addSignature = false, ignoreAspect = false;
    getFromMessage(prefs, "ImageExport add sig", addSignature);
    if (startFrame < 0)
        getFromMessage(prefs, "MovieExport start frame", startFrame);
    if (stopFrame < 0)
        getFromMessage(prefs, "MovieExport stop frame", stopFrame);
    if (fps < 0)
        getFromMessage(prefs, "MovieExport fps", fps);
    if (width < 0)
        getFromMessage(prefs, "ImageExport width", width);
    if (height < 0)
        getFromMessage(prefs, "ImageExport height", height);
    if (superSampling < 0)
        getFromMessage(prefs, "MovieExport ssfactor", superSampling);
    getFromMessage(prefs, "ImageExport ignore aspect", ignoreAspect);

    const QByteArray movieName = name.toUtf8();
    kaAviWriter writer(movieName.toStdString(), width, height, uint32_t(fps));
    if (!writer.initialize(noCompressionDialog)) {
        writer.close();
        kaLog::error("Couldn't initialise avi writer!");
        return;
    }
    // The two exits below leave the movie open, as they always have; the platform drops what
    // such a file staged when the program ends.
    if (view->isStereoEnabled() && view->getStereoMode() != 2 && view->getStereoMode() != 3) {
        warn(kaPlatform::getAppVersionName(), QObject::tr("Please disable stereo rendering!"));
        return;
    }
    kaImageRenderWidget::setAlpha(false);
    auto widget = std::make_unique<kaImageRenderWidget>(
        kaController::getMainWindow(), width, height, kaImageRenderWidget::STEREO_NONE,
        addSignature, superSampling, true, ignoreAspect, 1u, false);
    if (!widget->isValid())
        return;
    widget->setAutoProgress(true);
    widget->setLabelText(QObject::tr("Rendering frame ..."));
    widget->setWindowTitle(QObject::tr("Movie Render"));
    widget->getTotalProgress()->setRange(0, stopFrame - startFrame + 2);
    widget->getTotalProgress()->setValue(0);
    widget->setShowTotalProgress(true);

    std::vector<uint8_t> frame(writer.getBitmapHeader().biSizeImage);
    kaExportSession::HiddenOverlays overlays(*view);
    kaController::setSnapshotRendering(true);
    const double renderStart = now();
    const double increment = double(1.0f / float(fps));

    const osg::AnimNodeBasePtr animation =
        animationNodeId ? kaExportSession::animationOf(animationNodeId) : osg::AnimNodeBasePtr();
    int added = 0;
    for (int f = 0; f <= stopFrame; ++f, time += increment) {
        kaController::getSimulationTimer()->set(time);
        kaController::callLoopCBs();
        kaController::updateBehavior(true);
        if (f < startFrame) {
            kaExportSession::preRollFrame(*view);
            continue;
        }
        kaExportSession::showFrame(animationNodeId, animation, f, startFrame);
        kaConstraintManager::evaluateConstraints();

        QImage picture;
        const std::vector<osg::ImagePtr> images = widget->render(&picture, 0, true, !_noProgress);
        if (!images.empty() && images[0] && addSignature)
            addImageSignature(picture, movieName.constData());
        kaController::forceRender(true);
        // A frame that did not render repeats the one before.
        if (!picture.isNull())
            toBottomUpBGR(picture, width, height, frame);
        if (!writer.addFrame(frame.data())) {
            kaLog::error("Couldn't add frame to avi, aborted!");
            break;
        }
        widget->getTotalProgress()->setValue(++added);
        widget->getProgress()->setValue(widget->getProgress()->value() + 1);
        kaImageRenderWidget::processEvents();
        if (widget->wasAborted()) {
            _exportCanceled = true;
            std::printf("aborted movie export!\n");
            std::fflush(stdout);
            break;
        }
    }

    widget->getTotalProgress()->setValue(widget->getTotalProgress()->maximum());
    kaController::setSnapshotRendering(false);
    overlays.restore();
    writer.close();
    frame.clear();
    frame.shrink_to_fit();
    kaLog::info("movie render time %f seconds.", now() - renderStart);
    if (playSound)
        kaUtils::beep();
    widget.reset();
}
