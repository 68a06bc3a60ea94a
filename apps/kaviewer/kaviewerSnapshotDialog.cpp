#include "kaviewerSnapshotDialog.h"

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

// Bytes a channel of the written picture takes while it is made: float for the formats that
// keep scene-linear values, a byte otherwise.
int bytesPerChannel(const QString& fileName) {
    const QString extension = kaFile::getExtension(fileName).toLower();
    return extension == "exr" || extension == "hdr" ? 4 : 1;
}

QString megabytes(double bytes) {
    return QString::number(bytes / (1024.0 * 1024.0), 'f', bytes < 10 * 1024 * 1024 ? 1 : 0) +
           " MB";
}

} // namespace

SnapshotDialog::SnapshotDialog(const SnapshotSettings& s, int viewWidth, int viewHeight,
                               QWidget* parent)
    : QDialog(parent)
    , _viewWidth(viewWidth)
    , _viewHeight(viewHeight) {
    setObjectName("SnapshotDialog");
    setWindowTitle("Snapshot");

    _file = new QLineEdit(s.fileName);
    _file->setObjectName("fileName");
    auto* browseButton = new QPushButton("Browse...");
    browseButton->setObjectName("browse");
    auto* fileRow = new QHBoxLayout;
    fileRow->addWidget(_file, 1);
    fileRow->addWidget(browseButton);

    _preset = new QComboBox;
    _preset->setObjectName("preset");
    for (const Preset& p : kPresets)
        _preset->addItem(p.label);
    _width = new QSpinBox;
    _width->setObjectName("width");
    _height = new QSpinBox;
    _height->setObjectName("height");
    for (QSpinBox* side : {_width, _height}) {
        side->setRange(1, 1048576);
        side->setSuffix(" px");
    }
    _width->setValue(s.width);
    _height->setValue(s.height);
    auto* sizeRow = new QHBoxLayout;
    sizeRow->addWidget(_width);
    sizeRow->addWidget(new QLabel("x"));
    sizeRow->addWidget(_height);
    sizeRow->addWidget(_preset, 1);

    _superSampling = new QComboBox;
    _superSampling->setObjectName("superSampling");
    _superSampling->addItems({"None", "Level 1", "Level 2", "Level 3"});
    _superSampling->setCurrentIndex(std::clamp(s.superSampling, 0, 3));
    _alpha = new QCheckBox("With an alpha channel");
    _alpha->setObjectName("alpha");
    _alpha->setChecked(s.alpha);
    _dpi = new QDoubleSpinBox;
    _dpi->setObjectName("dpi");
    _dpi->setRange(1.0, 100000.0);
    _dpi->setValue(double(s.dpi));
    _renderer = new QComboBox;
    _renderer->setObjectName("renderer");
    _renderer->addItems({"OpenGL", "Raytracer"});
    _renderer->setCurrentIndex(s.raytracing ? 1 : 0);
    _samples = new QSpinBox;
    _samples->setObjectName("samples");
    _samples->setRange(1, 1000000);
    _samples->setValue(s.samples);
    _samples->setSuffix(" samples a pixel");
    auto* rendererRow = new QHBoxLayout;
    rendererRow->addWidget(_renderer);
    rendererRow->addWidget(_samples, 1);
    _stereo = new QComboBox;
    _stereo->setObjectName("stereo");
    _stereo->addItems({"Mono", "Two eyes", "Five eyes", "Nine eyes"});
    _stereo->setCurrentIndex(std::clamp(s.stereoMode, 0, 3));

    _exportPasses = new QCheckBox("Render passes, each to its own file (or layer)");
    _exportPasses->setObjectName("exportPasses");
    _exportPasses->setChecked(s.exportPasses);
    _passes = new QListWidget;
    _passes->setObjectName("passes");
    for (unsigned int pass = 0; pass < kaRenderPassCount; ++pass) {
        auto* item = new QListWidgetItem(kaImageWriter::getPassName(int(pass)), _passes);
        item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
        const bool chosen = std::find(s.passes.begin(), s.passes.end(), pass) != s.passes.end();
        item->setCheckState(chosen ? Qt::Checked : Qt::Unchecked);
    }
    _passes->setMaximumHeight(120);

    _files = new QListWidget;
    _files->setObjectName("files");
    _files->setMaximumHeight(100);
    _memory = new QLabel;
    _memory->setObjectName("memory");

    auto* form = new QFormLayout;
    form->addRow("File", fileRow);
    form->addRow("Size", sizeRow);
    form->addRow("Supersampling", _superSampling);
    form->addRow("", _alpha);
    form->addRow("Resolution (dpi)", _dpi);
    form->addRow("Renderer", rendererRow);
    form->addRow("Stereo", _stereo);
    form->addRow("", _exportPasses);
    form->addRow("Passes", _passes);
    form->addRow("Files written", _files);
    form->addRow("Memory", _memory);

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
    connect(browseButton, &QPushButton::clicked, this, &SnapshotDialog::browse);
    connect(_preset, qOverload<int>(&QComboBox::activated), this, &SnapshotDialog::choosePreset);
    auto custom = [this] {
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
        refresh();
    };
    connect(_width, qOverload<int>(&QSpinBox::valueChanged), this, custom);
    connect(_height, qOverload<int>(&QSpinBox::valueChanged), this, custom);
    connect(_file, &QLineEdit::textChanged, this, &SnapshotDialog::refresh);
    connect(_stereo, qOverload<int>(&QComboBox::currentIndexChanged), this,
            &SnapshotDialog::refresh);
    connect(_alpha, &QCheckBox::toggled, this, &SnapshotDialog::refresh);
    connect(_exportPasses, &QCheckBox::toggled, this, &SnapshotDialog::refresh);
    connect(_renderer, qOverload<int>(&QComboBox::currentIndexChanged), this,
            &SnapshotDialog::refresh);
    connect(_passes, &QListWidget::itemChanged, this, &SnapshotDialog::refresh);
    custom();
}

void SnapshotDialog::choosePreset(int index) {
    if (index < 0 || index >= kCustom)
        return;
    const QSignalBlocker blockWidth(_width), blockHeight(_height);
    _width->setValue(kPresets[index].width > 0 ? kPresets[index].width : _viewWidth);
    _height->setValue(kPresets[index].height > 0 ? kPresets[index].height : _viewHeight);
    refresh();
}

void SnapshotDialog::browse() {
    const QString name = QFileDialog::getSaveFileName(
        this, "Snapshot", _file->text(),
        "Images (*.png *.jpg *.tif *.exr *.hdr *.bmp *.tga *.webp);;All files (*)", nullptr,
        QFileDialog::DontConfirmOverwrite); // the export asks itself
    if (!name.isEmpty())
        _file->setText(name);
}

SnapshotSettings SnapshotDialog::settings() const {
    SnapshotSettings s;
    s.fileName = _file->text().trimmed();
    s.width = _width->value();
    s.height = _height->value();
    s.superSampling = _superSampling->currentIndex();
    s.alpha = _alpha->isChecked();
    s.dpi = float(_dpi->value());
    s.raytracing = _renderer->currentIndex() == 1;
    s.samples = _samples->value();
    s.stereoMode = _stereo->currentIndex();
    s.exportPasses = _exportPasses->isChecked();
    for (int i = 0; i < _passes->count(); ++i)
        if (_passes->item(i)->checkState() == Qt::Checked)
            s.passes.push_back(unsigned(i));
    return s;
}

QStringList SnapshotDialog::fileNames() const {
    const SnapshotSettings s = settings();
    if (s.fileName.isEmpty())
        return {};
    // The names depend on the stereo mode the export reads from the preferences: asked with
    // the mode chosen here, then put back.
    kaMessage& prefs = kaPreferences::getData();
    const boost::any saved = prefs.get("ImageExport stereo mode");
    prefs.set("ImageExport stereo mode", s.stereoMode);
    kaImageWriter writer;
    const QStringList names = kaapps::snapshotFiles(writer, s.fileName, s.passes, s.exportPasses);
    if (const int* mode = boost::any_cast<int>(&saved))
        prefs.set("ImageExport stereo mode", *mode);
    else
        prefs.remove("ImageExport stereo mode");
    return names;
}

void SnapshotDialog::refresh() {
    _passes->setEnabled(_exportPasses->isChecked());
    _samples->setEnabled(_renderer->currentIndex() == 1);
    const QStringList names = fileNames();
    _files->clear();
    for (const QString& name : names) {
        const bool exists = QFileInfo::exists(name);
        auto* item =
            new QListWidgetItem(exists ? name + "  (exists: you will be asked)" : name, _files);
        if (exists)
            item->setForeground(Qt::darkRed);
    }
    // Every file's picture is held in memory at once while the export writes them.
    const SnapshotSettings s = settings();
    const int channels = s.alpha ? 4 : 3;
    double bytes = 0;
    for (const QString& name : names)
        bytes += double(s.width) * double(s.height) * channels * bytesPerChannel(name);
    _memory->setText(names.isEmpty() ? QString("-")
                                     : QString("%1 for %2 picture%3")
                                           .arg(megabytes(bytes))
                                           .arg(names.size())
                                           .arg(names.size() == 1 ? "" : "s"));
}

} // namespace kaviewer
