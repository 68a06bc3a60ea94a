#include "kaviewerExportDialog.h"

#include "kaExportFrames.h"
#include "kaFile.h"
#include "kaImageWriter.h"
#include "kaMessage.h"
#include "kaPreferences.h"
#include "kaRenderPasses.h"
#include "kaSnapshotFileNames.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include <boost/any.hpp>

#include <algorithm>
#include <initializer_list>
#include <iterator>

namespace kaviewer {

namespace {

struct Preset {
    const char* label;
    int width, height;
};
// Index 0 is the view's own size.
const Preset kPresets[] = {{"The view's size", 0, 0},
                           {"HD 1280 x 720", 1280, 720},
                           {"Full HD 1920 x 1080", 1920, 1080},
                           {"4K UHD 3840 x 2160", 3840, 2160},
                           {"8K UHD 7680 x 4320", 7680, 4320},
                           {"Square 4096", 4096, 4096},
                           {"Square 8192", 8192, 8192},
                           {"Square 16384", 16384, 16384},
                           {"Custom", -1, -1}};
constexpr int kCustom = int(std::size(kPresets)) - 1;

const char* titleOf(ExportKind kind) {
    switch (kind) {
    case ExportKind::Snapshot:
        return "Snapshot";
    case ExportKind::Sequence:
        return "Image Sequence";
    case ExportKind::Movie:
        return "Movie";
    case ExportKind::FastCapture:
        return "Fast Capture";
    }
    return "";
}

// Bytes a channel of a written picture takes while it is made: float for the formats that keep
// scene-linear values, a byte otherwise.
int bytesPerChannel(const QString& fileName) {
    const QString extension = kaFile::getExtension(fileName).toLower();
    return extension == "exr" || extension == "hdr" ? 4 : 1;
}

QString megabytes(double bytes) {
    const double mb = bytes / (1024.0 * 1024.0);
    return QString::number(mb, 'f', mb < 10.0 ? 1 : 0) + " MB";
}

// Runs 'ask' with the stereo mode chosen in the dialog as the preference the export reads,
// then puts the user's preference back.
template <typename Ask>
auto withStereoMode(int mode, Ask ask) {
    kaMessage& prefs = kaPreferences::getData();
    const boost::any saved = prefs.get("ImageExport stereo mode");
    prefs.set("ImageExport stereo mode", mode);
    auto result = ask();
    if (const int* old = boost::any_cast<int>(&saved))
        prefs.set("ImageExport stereo mode", *old);
    else
        prefs.remove("ImageExport stereo mode");
    return result;
}

QComboBox* comboBox(const char* name, const QStringList& items, int index) {
    auto* box = new QComboBox;
    box->setObjectName(name);
    box->addItems(items);
    box->setCurrentIndex(std::clamp(index, 0, int(items.size()) - 1));
    return box;
}

QCheckBox* checkBox(const char* name, const QString& text, bool checked) {
    auto* box = new QCheckBox(text);
    box->setObjectName(name);
    box->setChecked(checked);
    return box;
}

// Widgets side by side in one row of the form; null entries are stretches.
QWidget* row(std::initializer_list<QWidget*> widgets) {
    auto* holder = new QWidget;
    auto* layout = new QHBoxLayout(holder);
    layout->setContentsMargins(0, 0, 0, 0);
    for (QWidget* widget : widgets) {
        if (widget)
            layout->addWidget(widget);
        else
            layout->addStretch(1);
    }
    return holder;
}

// A row of the form, hidden (label and all) where the export has no such argument.
void addRow(QFormLayout* form, const QString& label, QWidget* field, bool shown) {
    form->addRow(label, field);
    if (shown)
        return;
    field->hide();
    if (QWidget* labelWidget = form->labelForField(field))
        labelWidget->hide();
}

QSpinBox* spinBox(const char* name, int low, int high, int value, const QString& suffix = {}) {
    auto* box = new QSpinBox;
    box->setObjectName(name);
    box->setRange(low, high);
    box->setValue(std::clamp(value, low, high));
    box->setSuffix(suffix);
    return box;
}

} // namespace

ExportDialog::ExportDialog(ExportKind kind, const ExportSettings& s, int viewWidth, int viewHeight,
                           QWidget* parent)
    : QDialog(parent)
    , _kind(kind)
    , _viewWidth(viewWidth)
    , _viewHeight(viewHeight) {
    setObjectName("ExportDialog");
    setWindowTitle(titleOf(kind));
    const bool snapshot = kind == ExportKind::Snapshot, sequence = kind == ExportKind::Sequence;
    const bool movie = kind == ExportKind::Movie, fast = kind == ExportKind::FastCapture;

    _file = new QLineEdit(s.fileName);
    _file->setObjectName("fileName");
    auto* browseButton = new QPushButton("Browse...");
    browseButton->setObjectName("browse");

    _preset = new QComboBox;
    _preset->setObjectName("preset");
    for (const Preset& p : kPresets)
        _preset->addItem(p.label);
    _width = spinBox("width", 1, 1048576, s.width, " px");
    _height = spinBox("height", 1, 1048576, s.height, " px");

    _superSampling =
        comboBox("superSampling", {"None", "Level 1", "Level 2", "Level 3"}, s.superSampling);
    _alpha = checkBox("alpha", "With an alpha channel", s.alpha);
    _dpi = new QDoubleSpinBox;
    _dpi->setObjectName("dpi");
    _dpi->setRange(1.0, 100000.0);
    _dpi->setValue(double(s.dpi));
    _renderer = comboBox("renderer", {"OpenGL", "Raytracer"}, s.raytracing ? 1 : 0);
    _samples = spinBox("samples", 1, 1000000, s.samples, " samples a pixel");
    _cluster = new QLineEdit(s.cluster);
    _cluster->setObjectName("cluster");
    _cluster->setPlaceholderText("render here (or hosts: localhost:3, nodeA:8,nodeB:8)");
    _stereo = comboBox("stereo", {"Mono", "Two eyes", "Five eyes", "Nine eyes"}, s.stereoMode);

    _exportPasses =
        checkBox("exportPasses", "Render passes, each to its own file (or layer)", s.exportPasses);
    _passes = new QListWidget;
    _passes->setObjectName("passes");
    for (unsigned int pass = 0; pass < kaRenderPassCount; ++pass) {
        auto* item = new QListWidgetItem(QString::fromStdString(kaRenderPassNames[pass]), _passes);
        item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
        const bool chosen = std::find(s.passes.begin(), s.passes.end(), pass) != s.passes.end();
        item->setCheckState(chosen ? Qt::Checked : Qt::Unchecked);
    }
    _passes->setMaximumHeight(120);

    _start = spinBox("startFrame", 0, 10000000, s.startFrame);
    _stop = spinBox("stopFrame", 0, 10000000, s.stopFrame);
    _step = spinBox("frameStep", 1, 10000000, s.frameStep);
    auto* every = new QLabel("every");
    _fps = spinBox("fps", 1, 1000, s.fps, " frames a second");
    _chooseCodec =
        checkBox("chooseCodec", "Choose the codec (else the platform's default)", s.chooseCodec);
    _captures = spinBox("captures", 1, 100000000, s.captures);

    _files = new QListWidget;
    _files->setObjectName("files");
    _files->setMaximumHeight(100);
    _memory = new QLabel;
    _memory->setObjectName("memory");

    auto* form = new QFormLayout;
    addRow(form, "File", row({_file, browseButton}), true);
    addRow(form, "Size", row({_width, new QLabel("x"), _height, _preset}), true);
    addRow(form, "", new QLabel("Width and height are cut to multiples of 40."), movie);
    addRow(form, "Supersampling", _superSampling, true);
    addRow(form, "", _alpha, snapshot || sequence);
    addRow(form, "Resolution (dpi)", _dpi, snapshot);
    addRow(form, "Renderer", row({_renderer, _samples}), snapshot || sequence);
    addRow(form, "Render cluster", _cluster, snapshot || sequence);
    addRow(form, "Stereo", _stereo, snapshot || sequence);
    addRow(form, "", _exportPasses, snapshot || sequence);
    addRow(form, "Passes", _passes, snapshot || sequence);
    addRow(form, "Frames",
           row({new QLabel("from"), _start, new QLabel("to"), _stop, every, _step, nullptr}),
           sequence || movie);
    every->setVisible(sequence);
    _step->setVisible(sequence);
    addRow(form, "Frame rate", _fps, sequence || movie);
    addRow(form, "Codec", _chooseCodec, movie);
    addRow(form, "Captures", _captures, fast);
    addRow(form, "Files written", _files, true);
    addRow(form, "Memory", _memory, true);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel);
    QPushButton* exportButton = buttons->addButton("Export", QDialogButtonBox::AcceptRole);
    exportButton->setObjectName("export");
    exportButton->setDefault(true);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(buttons);

    connect(buttons, &QDialogButtonBox::accepted, this, [this] {
        if (!_file->text().trimmed().isEmpty())
            accept();
    });
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(browseButton, &QPushButton::clicked, this, &ExportDialog::browse);
    connect(_preset, qOverload<int>(&QComboBox::activated), this, &ExportDialog::choosePreset);
    connect(_width, qOverload<int>(&QSpinBox::valueChanged), this, &ExportDialog::sizeEdited);
    connect(_height, qOverload<int>(&QSpinBox::valueChanged), this, &ExportDialog::sizeEdited);
    connect(_file, &QLineEdit::textChanged, this, &ExportDialog::refresh);
    for (QComboBox* box : {_stereo, _renderer, _superSampling})
        connect(box, qOverload<int>(&QComboBox::currentIndexChanged), this, &ExportDialog::refresh);
    for (QCheckBox* box : {_alpha, _exportPasses})
        connect(box, &QCheckBox::toggled, this, &ExportDialog::refresh);
    for (QSpinBox* box : {_start, _stop, _step, _captures})
        connect(box, qOverload<int>(&QSpinBox::valueChanged), this, &ExportDialog::refresh);
    connect(_passes, &QListWidget::itemChanged, this, &ExportDialog::refresh);
    sizeEdited();
}

void ExportDialog::sizeEdited() {
    {
        const QSignalBlocker block(_preset);
        _preset->setCurrentIndex(kCustom);
        for (int i = 0; i < kCustom; ++i) {
            const int w = kPresets[i].width > 0 ? kPresets[i].width : _viewWidth;
            const int h = kPresets[i].height > 0 ? kPresets[i].height : _viewHeight;
            if (w == _width->value() && h == _height->value()) {
                _preset->setCurrentIndex(i);
                break;
            }
        }
    }
    refresh();
}

void ExportDialog::choosePreset(int index) {
    if (index < 0 || index >= kCustom)
        return;
    const QSignalBlocker blockWidth(_width), blockHeight(_height);
    _width->setValue(kPresets[index].width > 0 ? kPresets[index].width : _viewWidth);
    _height->setValue(kPresets[index].height > 0 ? kPresets[index].height : _viewHeight);
    refresh();
}

void ExportDialog::browse() {
    const QString filter = _kind == ExportKind::Movie
                               ? "Movies (*.avi *.mp4 *.mkv *.mov);;All files (*)"
                               : "Images (*.png *.jpg *.tif *.exr *.hdr *.bmp *.tga *.webp);;"
                                 "All files (*)";
    const QString name = QFileDialog::getSaveFileName(this, windowTitle(), _file->text(), filter,
                                                      nullptr, QFileDialog::DontConfirmOverwrite);
    if (!name.isEmpty())
        _file->setText(name); // the export asks itself before it replaces a file
}

ExportSettings ExportDialog::settings() const {
    ExportSettings s;
    s.fileName = _file->text().trimmed();
    s.width = _width->value();
    s.height = _height->value();
    s.superSampling = _superSampling->currentIndex();
    s.alpha = _alpha->isChecked();
    s.dpi = float(_dpi->value());
    s.raytracing = _renderer->currentIndex() == 1;
    s.samples = _samples->value();
    s.cluster = _cluster->text().trimmed();
    s.stereoMode = _stereo->currentIndex();
    s.exportPasses = _exportPasses->isChecked();
    for (int i = 0; i < _passes->count(); ++i)
        if (_passes->item(i)->checkState() == Qt::Checked)
            s.passes.push_back(unsigned(i));
    s.startFrame = _start->value();
    s.stopFrame = _stop->value();
    s.frameStep = _step->value();
    s.fps = _fps->value();
    s.chooseCodec = _chooseCodec->isChecked();
    s.captures = _captures->value();
    return s;
}

QStringList ExportDialog::fileNames() const {
    const ExportSettings s = settings();
    if (s.fileName.isEmpty())
        return {};
    kaImageWriter writer;
    switch (_kind) {
    case ExportKind::Snapshot:
        return withStereoMode(s.stereoMode, [&] {
            return kaapps::snapshotFiles(writer, s.fileName, s.passes, s.exportPasses);
        });
    case ExportKind::Sequence:
        return withStereoMode(s.stereoMode, [&] {
            const kaapps::FrameWalk walk(writer, s.startFrame, s.stopFrame, s.frameStep);
            return kaapps::writtenFiles(writer, s.fileName,
                                        s.exportPasses ? s.passes : std::vector<unsigned int>(),
                                        writer.getExportMultiLayer(), walk);
        });
    case ExportKind::Movie: {
        const QString name = kaFile::expandFilename(s.fileName);
        return {kaFile::getExtension(name).isEmpty() ? name + ".avi" : name};
    }
    case ExportKind::FastCapture: {
        QStringList names;
        const QString out = kaFile::expandFilename(s.fileName);
        // A long run of captures is shown by its first and last names.
        for (int i = 0; i < s.captures; ++i) {
            if (s.captures > 6 && i == 3) {
                names << QString("... %1 more ...").arg(s.captures - 4);
                i = s.captures - 2;
                continue;
            }
            names << kaapps::captureName(out, i, s.captures);
        }
        return names;
    }
    }
    return {};
}

double ExportDialog::memoryEstimate() const {
    return picturesBytes(fileNames());
}

double ExportDialog::picturesBytes(const QStringList& names) const {
    const ExportSettings s = settings();
    if (names.isEmpty())
        return 0.0;
    const double pixels = double(s.width) * double(s.height);
    const int channels =
        s.alpha && (_kind == ExportKind::Snapshot || _kind == ExportKind::Sequence) ? 4 : 3;
    switch (_kind) {
    case ExportKind::Snapshot: {
        // Every file's picture is held at once while the export writes them.
        double bytes = 0.0;
        for (const QString& name : names)
            bytes += pixels * channels * bytesPerChannel(name);
        return bytes;
    }
    case ExportKind::Sequence: {
        // One frame's pictures at a time: every view and pass of it.
        const kaImageWriter writer;
        const kaapps::FrameWalk walk(writer, s.startFrame, s.stopFrame, s.frameStep);
        const size_t frames = std::max<size_t>(walk.written().size(), 1);
        return pixels * channels * bytesPerChannel(s.fileName) * double(names.size()) /
               double(frames);
    }
    case ExportKind::Movie:
    case ExportKind::FastCapture:
        return pixels * channels;
    }
    return 0.0;
}

double ExportDialog::tileEstimate() const {
    const ExportSettings s = settings();
    double images = 1.0;
    if (s.exportPasses && (_kind == ExportKind::Snapshot || _kind == ExportKind::Sequence))
        images = double(std::max<size_t>(s.passes.size(), 1));
    const double whole = double(s.width) * double(s.height) * images * 16.0;
    int budget = 2048;
    kaImageWriter::getFromMessage(kaPreferences::getData(), "Image Export Max Framebuffer Memory",
                                  budget);
    if (budget <= 0)
        return whole; // unlimited: the whole picture in one tile
    return std::min(whole, double(budget) * 1024.0 * 1024.0);
}

QString ExportDialog::memoryText(const QStringList& names) const {
    if (names.isEmpty())
        return "-";
    return QString("%1 of pictures at a time, and up to %2 of tiles while they render")
        .arg(megabytes(picturesBytes(names)), megabytes(tileEstimate()));
}

void ExportDialog::refresh() {
    _passes->setEnabled(_exportPasses->isChecked());
    _samples->setEnabled(_renderer->currentIndex() == 1);
    // Only the raytracer renders on a cluster.
    _cluster->setEnabled(_renderer->currentIndex() == 1);
    const QStringList names = fileNames();
    _files->clear();
    for (const QString& name : names) {
        const bool exists = !name.startsWith("...") && QFileInfo::exists(name);
        // Fast captures ask once for all of them, before the first.
        const QString mark =
            _kind == ExportKind::FastCapture ? "  (exists)" : "  (exists: you will be asked)";
        auto* item = new QListWidgetItem(exists ? name + mark : name, _files);
        if (exists)
            item->setForeground(Qt::darkRed);
    }
    _memory->setText(memoryText(names));
}

} // namespace kaviewer
