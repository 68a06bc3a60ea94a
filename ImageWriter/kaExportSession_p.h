#pragma once

// What the exports share while they run: their clock, their refusals, and the host state they
// change and give back. Internal to the library; GUI thread only.

#include "OSGAnimNodeBase.h"
#include "OSGViewport.h"
#include "kaWinPower.h"

#include <QString>

class kaImageWriter;
class kaOSGWidget;

namespace kaExportSession {

// Seconds of a monotonic clock, for render times.
double now();

// A warning box without parent and with an Ok button.
void warn(const QString& title, const QString& text);
// A warning box titled with the application's name whose text also goes to the error log.
void refuse(const QString& text);

// Whether an export asked for the cluster (a set-up string, or a cluster already running)
// renders there: only with the raytracer; with OpenGL it says so and renders here.
bool rendersOnCluster(const kaOSGWidget& view, const QString& clusterSetup);

// Whether a file of this lower-case extension can't hold an alpha channel (JPEG, BMP).
bool lacksAlpha(const QString& lowerExtension);

// The animation that a field-container id names, when it names one: ids are 32 bits wide
// inside the scene graph.
osg::AnimNodeBasePtr animationOf(long long id);
// Moves the scene to 'frame' of an export that started at 'startFrame': with an animation id
// that animation alone (told at the start frame that its evaluation starts there), without
// one the host's whole timeline; an id that names no animation moves nothing.
void showFrame(long long animationId, const osg::AnimNodeBasePtr& animation, int frame,
               int startFrame);

// Draws the view once for a frame before an export's start (the host's loop has stepped the
// animation and simulation to it): in snapshot mode, which the view leaves afterwards.
void preRollFrame(kaOSGWidget& view);

// Whether a file of this upper-case extension is rendered in 32-bit float: HDR and EXR always,
// TIFF and Photoshop files with the writer's TIFF HDR flag.
bool rendersFloat(const QString& upperExtension, bool tiffHDR);

// Keeps the machine awake and the view in the export's colour space while it lives; gives
// the colour space back, then the machine's previous state.
class AwakeInExportColorSpace {
public:
    AwakeInExportColorSpace(kaOSGWidget& view, int iccProfile);
    ~AwakeInExportColorSpace();
    AwakeInExportColorSpace(const AwakeInExportColorSpace&) = delete;
    AwakeInExportColorSpace& operator=(const AwakeInExportColorSpace&) = delete;

private:
    kaOSGWidget& _view;
    int _iccProfile;
    EXECUTION_STATE _previousState;
    unsigned int _savedColorSpace;
};

// The isolate-view overlay, lights and cameras of the view: switched off while an export
// renders, given back by restore().
class HiddenOverlays {
public:
    explicit HiddenOverlays(kaOSGWidget& view);
    void restore();

private:
    kaOSGWidget& _view;
    bool _isolateOverlay, _lightsVisible, _camerasVisible;
};

// The viewport's display settings as an export found them; a viewport that is not an
// UberViewport counts as display 0, white 80 and no deep-learning supersampling.
struct SavedViewportDisplay {
    explicit SavedViewportDisplay(const osg::UberViewportPtr& viewport);
    // Sets them again and the background to the host's grey without plate or alpha.
    void restore(kaImageWriter& writer) const;

    osg::UberViewportPtr viewport;
    int deepLearning = 0, display = 0;
    float referenceWhite = 80.0f;
};

} // namespace kaExportSession
