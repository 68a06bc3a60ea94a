#pragma once

#include <cstdint>
#include <functional>
#include <string>

class QWidget;
class kaMessage;
class kaSimulationTime;

// The host's application controller: progress display, GUI or batch mode, the main window.
// GUI thread only, except the progress calls and the render interrupt, which may be called
// from any thread.
class kaController {
public:
    // Shows the progress of a running image render (0..1) in the host's display: every
    // installed listener is called with the value.
    static void setImageRenderProgress(double progress);
    static double getImageRenderProgress();
    using ProgressListener = std::function<void(double)>;
    static int addProgressListener(ProgressListener listener);
    static void removeProgressListener(int id);

    // Progress inside one step of a long render, such as raytraced sample 'step' (0-based) of
    // 'steps', 'fraction' of it done: a display can show that work goes on while the export's
    // own progress waits for the step to end. Listeners are called on the calling thread.
    using StepListener = std::function<void(int step, int steps, double fraction)>;
    static void setRenderStepProgress(int step, int steps, double fraction);
    static int addStepListener(StepListener listener);
    static void removeStepListener(int id);

    // Asks every running render to stop as soon as it can (within a row of pixels); renders
    // started afterwards stop at once until it is cleared. Safe from any thread and from a
    // signal handler.
    static void interruptRenders();
    static bool rendersInterrupted();
    static void clearRenderInterrupt();

    // Batch mode (no GUI): no modal box may block. Switching it on installs an answerer on the
    // application that closes every message box with its default button and logs its text.
    static bool isNoGUI();
    static void setNoGUI(bool noGUI);

    // The answer to "overwrite?" questions in batch mode (a command-line switch); false by default.
    static bool getBatchOverwrite();
    static void setBatchOverwrite(bool overwrite);

    // The host's main window; null when there is none (batch mode, tests).
    static QWidget* getMainWindow();
    static void setMainWindow(QWidget* window);

    // Whether the user wants a beep when an export has finished ("Play Sound On Export").
    static bool playSoundOnExport();

    // A number that grows with every frame the host draws.
    static uint64_t getFrameId();
    static void increaseFrameId();

    // The host's main loop, run by exports frame by frame: loop callbacks, behaviour updates
    // (simulations stepping to the simulation time) and a render of the view. Other modules
    // register what they do; each call runs every registered function in registration order.
    using Hook = std::function<void(bool)>;
    static int addLoopCallback(Hook hook);
    static int addBehavior(Hook hook);
    static int addRenderHook(Hook hook);
    static void removeHook(int id);
    static void callLoopCBs();
    static void updateBehavior(bool force);
    static void forceRender(bool wait);
    static int getForcedRenderCount();

    // The clock the simulations run at; getSimulationTime() reads it.
    // Named calls into the host: a part that cannot handle a situation itself hands it over
    // by name (for example "kaClusterClusterWindowException" with the error text in "error").
    // Without a handler for the name the message is logged as an error.
    using CallHandler = std::function<void(const kaMessage& message)>;
    static int addCallHandler(const std::string& name, CallHandler handler);
    static void removeCallHandler(int id);
    static void call(const std::string& name, const kaMessage& message);

    // The host's own timers (animation playback, interactive redraws); exports stop them.
    static bool getTimerLoops();
    static void setTimerLoops(bool on);
    // Progress of a progressive (sample by sample) render: when it started, the samples done
    // (renders with a time limit) or the share done (renders with a sample count).
    static void setRenderStartTime(double seconds);
    static double getRenderStartTime();
    static void setAASampleCounts(int samples);
    static int getAASampleCounts();
    static void setAAProgress(double progress);
    static double getAAProgress();

    static kaSimulationTime* getSimulationTimer();
    static double getSimulationTime();

    // Whether simulations run.
    static bool isSimulationEnable();
    static void enableSimulation(bool on);
    // Set while a snapshot renders (the view then skips interactive helpers).
    static bool isSnapshotRendering();
    static void setSnapshotRendering(bool on);
    // Tells the host that the scene graph changed as a whole.
    static void changeScenegraph();
    static int getScenegraphChangeCount();
};
