#pragma once

#include "ImageWriterExport.h"

#include "ui_kaSnapshotProgressGUI.h"

#include <QDialog>

// The cluster snapshot dialog as the form kaSnapshotProgressGUI lays it out: its widgets are
// public members under their object names (_frame, _progress, _render_update, _movie_progress,
// _save, _cancel). Behaviour lives in kaSnapshotProgressGUII. GUI thread only.
class IMAGEWRITER_EXPORT kaSnapshotProgressGUIW : public QDialog, public Ui::kaSnapshotProgressGUI {
    Q_OBJECT
public:
    explicit kaSnapshotProgressGUIW(QWidget* parent = nullptr, Qt::WindowFlags flags = {});
    ~kaSnapshotProgressGUIW() override;
};
