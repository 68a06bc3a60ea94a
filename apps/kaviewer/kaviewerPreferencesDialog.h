#pragma once

#include "OSGImage.h"

#include <QDialog>
#include <QImage>
#include <QString>
#include <QTimer>

#include <boost/any.hpp>

#include <map>
#include <string>
#include <vector>

class QCheckBox;
class QComboBox;
class QLabel;

namespace kaviewer {

// The viewer's own export settings, kept with its other settings: the colour space of
// exported pictures and the metadata written into them.
struct ExportExtras {
    int colorSpace = 0;    // 0/1 sRGB, 2 Adobe RGB, 3 monitor, 4 image profile
    int metadataFlags = 0; // the sum of the kinds of metadata written
    static ExportExtras load();
    void save() const;
};

// Every preference the library reads, edited by type (switches, numbers within their ranges,
// lists, texts, profile files), the viewer's colour space and metadata of exports, and a live
// preview of the signature drawn on the current view by the library. OK checks every value,
// stores them and saves the preferences file.
class PreferencesDialog : public QDialog {
    Q_OBJECT
public:
    // 'picture' is the view as it is shown (a copy is drawn on); 'path' the preferences file.
    PreferencesDialog(const QString& path, const osg::ImagePtr& picture, QWidget* parent = nullptr);

    // The editor of a preference; null for a key the dialog doesn't know.
    QWidget* editor(const std::string& key) const;
    // The value the editor holds, or empty with 'error' when it isn't one the key takes.
    boost::any editedValue(const std::string& key, QString& error) const;
    // Checks and stores every value and saves the file; false, with a message box saying
    // which value or what about the file, when it can't.
    bool apply();
    ExportExtras extras() const;
    // The signature preview as it is shown.
    QImage preview() const { return _previewImage; }
    // Draws the preview again now (it follows edits by itself a moment after them).
    void updatePreview();

    void accept() override;

private:
    QWidget* makeEditor(const std::string& key);

    QString _path;
    osg::ImagePtr _picture;
    std::map<std::string, QWidget*> _editors;
    QComboBox* _colorSpace = nullptr;
    std::vector<QCheckBox*> _metadata;
    QLabel* _previewLabel = nullptr;
    QImage _previewImage;
    QTimer _previewTimer;
};

} // namespace kaviewer
