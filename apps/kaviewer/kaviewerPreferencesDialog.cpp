#include "kaviewerPreferencesDialog.h"

#include "kaImageWriter.h"
#include "kaMessage.h"
#include "kaPreferenceKeys.h"
#include "kaPreferences.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollArea>
#include <QSettings>
#include <QSpinBox>
#include <QStringList>
#include <QTemporaryDir>
#include <QVBoxLayout>

#include <algorithm>
#include <climits>
#include <cmath>

namespace kaviewer {

namespace {

const char* const kMetadataKinds[] = {"camera",    "visibility",    "switches",   "image settings",
                                      "animation", "render passes", "raytracing", "materials"};

bool isSignatureKey(const std::string& key) {
    return key.rfind("ImageExport sig", 0) == 0 || key == "ImageExport add sig";
}

// Which group of the dialog a preference belongs to.
QString groupOf(const std::string& key) {
    if (isSignatureKey(key))
        return "Signature";
    if (key == "Use System Monitor Profile" || key == "Monitorprofile" || key == "Imageprofile")
        return "Colour";
    if (key.rfind("MovieExport", 0) == 0)
        return "Sequences and movies";
    if (key.rfind("ImageExport", 0) == 0)
        return "Pictures";
    return "Rendering and host";
}

// An int list as the preferences file's text shows it: "10, 10".
QString listText(const std::vector<int>& values) {
    QStringList parts;
    for (int v : values)
        parts << QString::number(v);
    return parts.join(", ");
}

// Stores a value of one of the preference types.
void setValue(kaMessage& message, const std::string& key, const boost::any& value) {
    if (const bool* b = boost::any_cast<bool>(&value))
        message.set(key, *b);
    else if (const int* i = boost::any_cast<int>(&value))
        message.set(key, *i);
    else if (const float* f = boost::any_cast<float>(&value))
        message.set(key, *f);
    else if (const auto* list = boost::any_cast<std::vector<int>>(&value))
        message.set(key, *list);
    else if (const QString* text = boost::any_cast<QString>(&value))
        message.set(key, *text);
}

int clampedInt(double value) {
    return int(std::clamp(value, double(INT_MIN), double(INT_MAX)));
}

} // namespace

ExportExtras ExportExtras::load() {
    QSettings settings;
    ExportExtras extras;
    extras.colorSpace = std::clamp(settings.value("exportColorSpace", 0).toInt(), 0, 4);
    extras.metadataFlags = std::clamp(settings.value("exportMetadata", 0).toInt(), 0, 255);
    return extras;
}

void ExportExtras::save() const {
    QSettings settings;
    settings.setValue("exportColorSpace", colorSpace);
    settings.setValue("exportMetadata", metadataFlags);
}

PreferencesDialog::PreferencesDialog(const QString& path, const osg::ImagePtr& picture,
                                     QWidget* parent)
    : QDialog(parent)
    , _path(path)
    , _picture(picture) {
    setObjectName("PreferencesDialog");
    setWindowTitle("Preferences");

    std::map<QString, QFormLayout*> groups;
    const QStringList order{"Pictures", "Sequences and movies", "Colour", "Signature",
                            "Rendering and host"};
    auto* content = new QWidget;
    auto* contentLayout = new QVBoxLayout(content);
    for (const QString& name : order) {
        auto* box = new QGroupBox(name);
        groups[name] = new QFormLayout(box);
        contentLayout->addWidget(box);
    }
    for (const kaPreferenceKeys::Key& key : kaPreferenceKeys::all()) {
        QWidget* editor = makeEditor(key.name);
        editor->setToolTip(key.description);
        groups[groupOf(key.name)]->addRow(QString::fromUtf8(key.name), editor);
    }

    // The viewer's own settings for what its exports write.
    const ExportExtras extras = ExportExtras::load();
    _colorSpace = new QComboBox;
    _colorSpace->setObjectName("colorSpace");
    _colorSpace->addItems({"sRGB", "sRGB", "Adobe RGB (1998)", "The monitor's profile",
                           "The image profile (\"Imageprofile\")"});
    _colorSpace->setCurrentIndex(extras.colorSpace);
    groups["Colour"]->addRow("Colour space of exports", _colorSpace);
    auto* metadata = new QWidget;
    auto* metadataLayout = new QHBoxLayout(metadata);
    metadataLayout->setContentsMargins(0, 0, 0, 0);
    for (int i = 0; i < 8; ++i) {
        auto* box = new QCheckBox(kMetadataKinds[i]);
        box->setObjectName(QString("metadata%1").arg(1 << i));
        box->setChecked(extras.metadataFlags & (1 << i));
        metadataLayout->addWidget(box);
        _metadata.push_back(box);
    }
    groups["Pictures"]->addRow("Metadata of exports", metadata);

    _previewLabel = new QLabel;
    _previewLabel->setObjectName("signaturePreview");
    _previewLabel->setMinimumSize(320, 180);
    _previewLabel->setAlignment(Qt::AlignCenter);
    groups["Signature"]->addRow("Preview", _previewLabel);

    auto* scroll = new QScrollArea;
    scroll->setWidget(content);
    scroll->setWidgetResizable(true);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    buttons->button(QDialogButtonBox::Ok)->setObjectName("ok");
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(scroll, 1);
    layout->addWidget(buttons);
    resize(760, 680);

    _previewTimer.setSingleShot(true);
    _previewTimer.setInterval(150);
    connect(&_previewTimer, &QTimer::timeout, this, &PreferencesDialog::updatePreview);
    updatePreview();
}

QWidget* PreferencesDialog::makeEditor(const std::string& name) {
    const kaPreferenceKeys::Key* key = kaPreferenceKeys::find(name);
    const boost::any value = kaPreferences::getData().get(name);
    const boost::any fallback = kaPreferenceKeys::defaults().get(name);
    // A value of the wrong type in the store shows the default (and is replaced on OK).
    auto current = [&](auto typed) {
        using T = decltype(typed);
        if (const T* v = boost::any_cast<T>(&value))
            return *v;
        if (const T* v = boost::any_cast<T>(&fallback))
            return *v;
        return typed;
    };
    QWidget* editor = nullptr;
    const bool signature = isSignatureKey(name);
    auto changed = [this, signature] {
        if (signature)
            _previewTimer.start();
    };
    if (*key->type == typeid(bool)) {
        auto* box = new QCheckBox;
        box->setChecked(current(false));
        connect(box, &QCheckBox::toggled, this, changed);
        editor = box;
    } else if (*key->type == typeid(int)) {
        auto* box = new QSpinBox;
        box->setRange(clampedInt(key->minimum), clampedInt(key->maximum));
        box->setValue(current(0));
        connect(box, qOverload<int>(&QSpinBox::valueChanged), this, changed);
        editor = box;
    } else if (*key->type == typeid(float)) {
        auto* box = new QDoubleSpinBox;
        box->setDecimals(3);
        box->setRange(std::max(key->minimum, -1e9), std::min(key->maximum, 1e9));
        box->setValue(double(current(0.0f)));
        connect(box, qOverload<double>(&QDoubleSpinBox::valueChanged), this, changed);
        editor = box;
    } else if (*key->type == typeid(std::vector<int>)) {
        auto* line = new QLineEdit(listText(current(std::vector<int>())));
        connect(line, &QLineEdit::textChanged, this, changed);
        editor = line;
    } else {
        auto* line = new QLineEdit(current(QString()));
        connect(line, &QLineEdit::textChanged, this, changed);
        editor = line;
        if (name == "Monitorprofile" || name == "Imageprofile") {
            // Profiles are files: a button finds one.
            auto* holder = new QWidget;
            auto* row = new QHBoxLayout(holder);
            row->setContentsMargins(0, 0, 0, 0);
            auto* browse = new QPushButton("Browse...");
            row->addWidget(line, 1);
            row->addWidget(browse);
            connect(browse, &QPushButton::clicked, this, [this, line] {
                const QString file = QFileDialog::getOpenFileName(
                    this, "ICC profile", line->text(), "ICC profiles (*.icc *.icm);;All files (*)");
                if (!file.isEmpty())
                    line->setText(file);
            });
            line->setObjectName(QString::fromStdString(name));
            _editors[name] = line;
            return holder;
        }
    }
    editor->setObjectName(QString::fromStdString(name));
    _editors[name] = editor;
    return editor;
}

QWidget* PreferencesDialog::editor(const std::string& key) const {
    auto found = _editors.find(key);
    return found == _editors.end() ? nullptr : found->second;
}

boost::any PreferencesDialog::editedValue(const std::string& name, QString& error) const {
    const kaPreferenceKeys::Key* key = kaPreferenceKeys::find(name);
    QWidget* widget = editor(name);
    if (!key || !widget) {
        error = "unknown preference";
        return {};
    }
    boost::any value;
    if (auto* box = qobject_cast<QCheckBox*>(widget))
        value = box->isChecked();
    else if (auto* box = qobject_cast<QSpinBox*>(widget))
        value = box->value();
    else if (auto* box = qobject_cast<QDoubleSpinBox*>(widget))
        value = float(box->value());
    else if (auto* line = qobject_cast<QLineEdit*>(widget))
        value = kaPreferenceKeys::parseValue(*key, line->text(), error);
    if (value.empty() || !kaPreferenceKeys::check(*key, value, error))
        return {};
    return value;
}

ExportExtras PreferencesDialog::extras() const {
    ExportExtras extras;
    extras.colorSpace = _colorSpace->currentIndex();
    for (size_t i = 0; i < _metadata.size(); ++i)
        if (_metadata[i]->isChecked())
            extras.metadataFlags |= 1 << i;
    return extras;
}

bool PreferencesDialog::apply() {
    kaMessage edited = kaPreferences::getData();
    for (const kaPreferenceKeys::Key& key : kaPreferenceKeys::all()) {
        QString error;
        const boost::any value = editedValue(key.name, error);
        if (value.empty()) {
            QMessageBox::warning(this, windowTitle(),
                                 QString("\"%1\": %2").arg(QString::fromUtf8(key.name), error));
            return false;
        }
        setValue(edited, key.name, value);
    }
    kaPreferences::getData() = edited;
    extras().save();
    QString error;
    if (!_path.isEmpty() && !kaPreferences::save(_path, &error)) {
        QMessageBox::warning(
            this, windowTitle(),
            QString("Couldn't save the preferences to '%1': %2").arg(_path, error));
        return false;
    }
    return true;
}

void PreferencesDialog::accept() {
    if (apply())
        QDialog::accept();
}

void PreferencesDialog::updatePreview() {
    if (!_picture)
        return;
    // The library draws the signature as it reads it from the preferences: the edited values
    // are put there while it draws, then the user's are put back.
    kaMessage& prefs = kaPreferences::getData();
    const kaMessage saved = prefs;
    for (const kaPreferenceKeys::Key& key : kaPreferenceKeys::all()) {
        if (!isSignatureKey(key.name))
            continue;
        QString error;
        const boost::any value = editedValue(key.name, error);
        if (!value.empty())
            setValue(prefs, key.name, value);
    }
    QTemporaryDir dir;
    const QString file = dir.filePath("preview.png");
    osg::ImagePtr copy = _picture->clone();
    kaImageWriter writer;
    writer.setNoShowImage(true);
    const bool drawn = writer.saveImage(copy, file.toUtf8().constData(), "PNG", true, false, true,
                                        72.0f, false, true, "");
    prefs = saved;
    if (!drawn)
        return;
    _previewImage = QImage(file, "PNG");
    _previewLabel->setPixmap(QPixmap::fromImage(_previewImage.scaled(
        _previewLabel->minimumSize(), Qt::KeepAspectRatio, Qt::SmoothTransformation)));
}

} // namespace kaviewer
