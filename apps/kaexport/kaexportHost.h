#pragma once

#include "kaSceneImport.h"

#include <QString>

#include <memory>
#include <string>

class kaOSGWidget;
class kaBuiltinScene;

namespace kaexport {

class TotalProgress;

// The host a render command runs in: the main view with the built-in scene or a scene file,
// a progress display on standard error, and Ctrl-C turned into an abort of the running render.
class Host {
public:
    Host();
    ~Host();
    // Loads 'sceneFile' (empty: the built-in scene); false with the reason in 'error'.
    bool loadScene(const QString& sceneFile, QString& error);
    // Looks through the camera 'choice' names (nothing to do when it names none); false with
    // the reason in 'error'.
    bool lookThrough(const kaSceneImport::CameraChoice& choice, QString& error);
    // Steps the animation and the simulation from frame 0 to 'frame' at 'fps' as a sequence
    // export with step 1 does (the frames before it through the host's loop without being
    // drawn into files), so that the view shows 'frame' as that sequence would. 'fps' is the
    // timeline's rate (timelineRate()), which keyframed animations already play at.
    void stepToFrame(int frame, int fps);
    // From now on the progress display follows the render dialog's total progress (images
    // rendered out of 'images'), not the library's per-frame progress: a sequence with several
    // stereo eyes counts its frames in the one and its images in the other.
    void showTotalProgress(int images);
    // Whether Ctrl-C was pressed since the host was made.
    static bool interrupted();
    // What the render cluster reported when it failed during this run (empty: it did not).
    static const std::string& clusterFailure();
    // Ends the progress display on its own line: at 100 % when the work is 'complete'.
    static void finishProgress(bool complete);

private:
    std::unique_ptr<kaOSGWidget> _view;
    std::unique_ptr<kaBuiltinScene> _builtin;
    int _progressListener = 0;
    std::unique_ptr<TotalProgress> _totalProgress;
    int _stepListener = 0;
    int _clusterHandler = 0;
};

} // namespace kaexport
