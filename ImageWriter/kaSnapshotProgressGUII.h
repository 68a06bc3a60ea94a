#pragma once

#include "ImageWriterExport.h"

#include "OSGNetWindow.h"
#include "kaSnapshotProgressGUIW.h"

class kaImageViewer;

// The modal dialog shown while the render cluster raytraces a snapshot: a live preview of the
// cluster's buffer (kaImageViewer), a progress bar, an "Update preview" switch, Save and Abort.
// The cluster driver polls it between samples (isCancel, isSave, getRenderUpdate, isZooming)
// and deletes it when done. Abort, and closing the dialog, ask whether the other queued render
// jobs should go too; in batch mode the host answers that question with "No".
//
// Running -> Abort/close -> cancelled; Running -> Save -> saving -> resetSave() -> running.
// Cancelled and saving disable the dialog and freeze the preview. GUI thread only.
class IMAGEWRITER_EXPORT kaSnapshotProgressGUII : public kaSnapshotProgressGUIW {
    Q_OBJECT
public:
    // A child of the host's main window. The preview expects a 'width' x 'height' buffer from
    // 'window' (null: the preview stays black); the window is found again by its id at every
    // paint, so it need not outlive the dialog.
    kaSnapshotProgressGUII(int width, int height, const osg::NetWindowPtr& window);
    ~kaSnapshotProgressGUII() override;

    // The caption over the preview (empty: none); repaints and processes events.
    void setMessage(const QString& text);
    // Sets the progress bar; repaints the preview when 'forceRepaint' or when the preview asked
    // for it (which clears the request). Always processes events.
    void setProgress(int value, bool forceRepaint);
    // The progress bar's range becomes 0..'steps'.
    void setTotalSteps(int steps);
    // The user aborted or closed the dialog.
    bool isCancel();
    // The user pressed Save.
    bool isSave();
    // Back to running after a save: enabled, preview live, no repaint pending.
    void resetSave();
    // The user holds the left mouse button on the preview.
    bool isZooming();
    // Whether the driver should bring the cluster's pixels back for the next sample: the
    // preview asked for a repaint, else the "Update preview" switch.
    bool getRenderUpdate();

public slots:
    // Aborts as the Abort button does (including its question), then closes.
    bool close();
    // Abort: asks whether to abort all queued render jobs when there are any, then cancels.
    void clickedCancel();
    // Cancels without asking.
    void clickedCancelSave();
    void clickedSave();

protected:
    // Escape and the window's close button.
    void reject() override;

private:
    void stop();

    kaImageViewer* _viewer = nullptr;
    // Not _cancel and _save: those are the form's buttons.
    bool _cancelled = false;
    bool _saveRequested = false;
    bool _closing = false;
};
