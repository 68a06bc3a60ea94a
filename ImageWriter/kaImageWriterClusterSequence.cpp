// The cluster sequence export: the animation stepped frame by frame as the local sequence
// export steps it, each frame raytraced and written by the cluster snapshot export, with one
// progress dialog for all frames.
#include "kaImageWriter.h"

#include "kaExportSession_p.h"
#include "kaSnapshotProgressGUII.h"

#include "kaController.h"
#include "kaFile.h"
#include "kaImageOutStream.h"
#include "kaLog.h"
#include "kaOSGWidget.h"
#include "kaSimulationTime.h"

#include <QProgressBar>
#include <QRegExp>

#include <memory>

using kaExportSession::now;

bool kaImageWriter::exportRTClusterImages(const QString& filename, int width, int height, int eye,
                                          int fps, int startFrame, int stopFrame, int superSampling,
                                          bool alpha, bool exportRenderPasses, bool option,
                                          __int64 animationNodeId, int frameStep) {
    kaOSGWidget* view = kaOSGWidget::getMGLW(-1);
    if (!view)
        return false;
    const osg::NetWindowPtr window = view->getClusterWindow();
    const QString extension = QString::fromUtf8(kaFile::getExtension(filename).toUtf8());

    // A frame number left in the name ("shot_00012.png") is not repeated in the files.
    const int dot = filename.lastIndexOf('.');
    QString stem = dot >= 0 ? filename.left(dot) : filename;
    if (stem.length() >= 6 &&
        QRegExp("[0-9][0-9][0-9][0-9][0-9]", Qt::CaseSensitive, QRegExp::RegExp)
            .exactMatch(stem.right(5)))
        stem.chop(5);

    auto* dialog = new kaSnapshotProgressGUII(width, height, window);
    dialog->setTotalSteps((stopFrame - startFrame) / frameStep + 2);

    kaSimulationTime* timer = kaController::getSimulationTimer();
    double t = timer->get();

    const QString first =
        kaFile::expandFilename(stem + (exportRenderPasses ? getPassName(0) : QString()) +
                               getFrameName(0) + "." + extension);
    if (!kaImageOutStream::getImageWriteFunction()) {
        kaFile::createPath(kaFile::getFilePath(first));
        if (!_noOverwriteMessage && !kaFile::checkWrite(first, !kaController::isNoGUI(), true))
            return false; // the dialog made above stays as it is
    }

    const bool savedSnapshotMode = view->getSnapshotMode();
    const bool savedRenderEnabled = view->isRenderEnabled();
    view->enableRender(false);
    view->setSnapshotMode(true);
    const double start = now();
    const double increment = double(frameStep) / double(fps);
    const osg::AnimNodeBasePtr animation =
        animationNodeId ? kaExportSession::animationOf(animationNodeId) : osg::AnimNodeBasePtr();

    int framesDone = 0;
    int f = 0;
    while (f <= stopFrame) {
        timer->set(t);
        kaController::callLoopCBs();
        kaController::updateBehavior(true);
        if (f < startFrame) {
            // Frames before the start are stepped through so that the simulation arrives
            // where a run from frame 0 would have it. The last one leaves snapshot mode off
            // for the rendered frames, as it always did.
            kaExportSession::preRollFrame(*view);
            t += increment;
            f += 1;
            continue;
        }
        kaExportSession::showFrame(animationNodeId, animation, f, startFrame);
        kaController::forceRender(true);
        if (exportRTClusterImage(filename, width, height, eye, superSampling, alpha, -1.0f, false,
                                 exportRenderPasses, option, dialog, f))
            break;
        framesDone += 1;
        dialog->_progress->setValue(framesDone);
        kaController::setImageRenderProgress(double(framesDone) /
                                             double((stopFrame - startFrame) / frameStep + 1));
        t += increment;
        f += frameStep;
    }
    const bool leftEarly = f <= stopFrame;
    dialog->_progress->setValue(dialog->_progress->maximum());
    view->enableRender(savedRenderEnabled);
    view->setSnapshotMode(savedSnapshotMode);
    delete dialog;
    kaLog::info("movie render time %f seconds.", now() - start);
    return leftEarly;
}
