#pragma once

#include <QDialog>
#include <QString>
#include <QStringList>

#include <vector>

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QListWidget;
class QSpinBox;

namespace kaviewer {

// The exports of the Export menu.
enum class ExportKind { Snapshot, Sequence, Movie, FastCapture };

// What an export is asked to do; each kind reads the fields it has.
struct ExportSettings {
    QString fileName;
    int width = 1920, height = 1080, superSampling = 0, stereoMode = 0, samples = 16;
    bool alpha = false, raytracing = false, exportPasses = false;
    float dpi = 72.0f;
    std::vector<unsigned int> passes;
    int startFrame = 0, stopFrame = 100, frameStep = 1, fps = 25;
    int captures = 10;
    // Movies: the system's codec dialog picks the codec (else the platform's default).
    bool chooseCodec = true;
    // Raytraced pictures on a render cluster: hosts with node counts ("localhost:3",
    // "nodeA:8,nodeB:8") or an Open MPI host file; empty renders here.
    QString cluster;
};

// An export's arguments - file, size with presets, supersampling, alpha, resolution, renderer,
// stereo eyes, render passes, frames, frame rate, codec or number of captures, as the kind
// has them - with the files the export will write (those that exist marked) and the memory
// its pictures take at a time.
class ExportDialog : public QDialog {
    Q_OBJECT
public:
    ExportDialog(ExportKind kind, const ExportSettings& settings, int viewWidth, int viewHeight,
                 QWidget* parent = nullptr);

    ExportKind kind() const { return _kind; }
    ExportSettings settings() const;
    // The files listed, as the export names them.
    QStringList fileNames() const;
    // The memory estimate shown, in bytes: the written pictures held at a time.
    double memoryEstimate() const;
    // The render dialog's tiles, in bytes: float RGBA for each render pass, the whole picture
    // when it fits the tile memory budget ("Image Export Max Framebuffer Memory"), else at
    // most the budget (the dialog halves tiles until they fit it).
    double tileEstimate() const;

private:
    void choosePreset(int index);
    void browse();
    void refresh();
    void sizeEdited();
    // The memory estimate of the pictures of 'names' (the files listed), and its text.
    double picturesBytes(const QStringList& names) const;
    QString memoryText(const QStringList& names) const;

    ExportKind _kind;
    int _viewWidth, _viewHeight;
    QLineEdit *_file, *_cluster;
    QComboBox* _preset;
    QSpinBox *_width, *_height, *_samples;
    QComboBox *_superSampling, *_renderer, *_stereo;
    QCheckBox *_alpha, *_exportPasses, *_chooseCodec;
    QDoubleSpinBox* _dpi;
    QSpinBox *_start, *_stop, *_step, *_fps, *_captures;
    QListWidget *_passes, *_files;
    QLabel* _memory;
};

} // namespace kaviewer
