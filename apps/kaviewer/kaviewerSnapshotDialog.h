#pragma once

#include <QDialog>
#include <QString>

#include <vector>

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QSpinBox;

namespace kaviewer {

// What a snapshot export is asked to do.
struct SnapshotSettings {
    QString fileName;
    int width = 1920, height = 1080, superSampling = 0, stereoMode = 0, samples = 16;
    bool alpha = false, raytracing = false, exportPasses = false;
    float dpi = 72.0f;
    std::vector<unsigned int> passes;
};

// The snapshot's arguments: file, size (with presets), supersampling, alpha, resolution,
// renderer, stereo eyes and render passes, with the files the export will write (those that
// exist marked) and the memory its pictures take.
class SnapshotDialog : public QDialog {
    Q_OBJECT
public:
    SnapshotDialog(const SnapshotSettings& settings, int viewWidth, int viewHeight,
                   QWidget* parent = nullptr);

    SnapshotSettings settings() const;
    // The files listed, as the export names them.
    QStringList fileNames() const;

private:
    void choosePreset(int index);
    void browse();
    void refresh();

    int _viewWidth, _viewHeight;
    QLineEdit* _file;
    QComboBox* _preset;
    QSpinBox *_width, *_height, *_samples;
    QComboBox *_superSampling, *_renderer, *_stereo;
    QCheckBox *_alpha, *_exportPasses;
    QDoubleSpinBox* _dpi;
    QListWidget *_passes, *_files;
    QLabel* _memory;
};

} // namespace kaviewer
