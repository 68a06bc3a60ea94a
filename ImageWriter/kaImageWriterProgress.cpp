// Progress of the running export, shared by all writers.
#include "kaImageWriter.h"

#include "kaController.h"

double kaImageWriter::s_lastRenderTime = 0.0;
double kaImageWriter::s_frameProgress = 0.0;
int kaImageWriter::s_progressFrames = 0;
int kaImageWriter::s_progressCurrentFrame = 0;

namespace {
// Also maps NaN (0 / 0 frames) to 0, so the host never sees it.
double clampProgress(double p) {
    if (!(p > 0.0))
        return 0.0;
    return p > 1.0 ? 1.0 : p;
}
} // namespace

void kaImageWriter::startProgress(int frames) {
    s_progressFrames = frames;
    s_progressCurrentFrame = 0;
    kaController::setImageRenderProgress(0.0);
}

void kaImageWriter::startFrameProgress() {
    const int current = s_progressCurrentFrame;
    s_progressCurrentFrame = current + 1;
    double p = current >= 0 ? double(current) / double(s_progressFrames) : 0.0;
    kaController::setImageRenderProgress(clampProgress(p));
}

void kaImageWriter::setFrameProgress(double fraction) {
    const int current = s_progressCurrentFrame;
    double p = current > 0 ? double(current - 1) / double(s_progressFrames) +
                                 fraction / double(s_progressFrames)
                           : 0.0;
    kaController::setImageRenderProgress(clampProgress(p));
}

double kaImageWriter::getLastRenderTime() {
    return s_lastRenderTime;
}
