#pragma once

#include "kaviewerExportDialog.h"

#include <QMainWindow>
#include <QString>

#include <functional>
#include <map>
#include <memory>

class QLabel;
class QMenu;
class QPlainTextEdit;
class QProgressBar;
class kaBuiltinScene;
class kaImageWriter;
class kaOSGWidget;

namespace kaviewer {

class Timeline;
class View;

// The application's main window and the host's (kaController::getMainWindow): the main view,
// the File and Export menus, the progress of renders in the status bar and the log in a dock.
// The library's own dialogs (the render dialog, its questions and warnings, the codec dialog)
// open over it.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    MainWindow();
    ~MainWindow() override;

    // Shows the built-in scene (empty name) or a scene file; false, with a message box, when
    // the file can't be read (the scene shown stays).
    bool openScene(const QString& fileName);
    const QString& sceneFile() const { return _sceneFile; }
    View& view() { return *_viewWidget; }
    kaOSGWidget& hostView() { return *_view; }
    Timeline& timeline() { return *_timeline; }

    // The export through the library with 'settings'.
    void runExport(ExportKind kind, const ExportSettings& settings);
    // The kind's dialog, then the export when it is accepted; what the dialog held is offered
    // again next time.
    void askForExport(ExportKind kind);
    // The preferences file: read at start, written by the Preferences dialog.
    void setPreferencesPath(const QString& path) { _preferencesPath = path; }
    const QString& preferencesPath() const { return _preferencesPath; }
    // The Preferences dialog; its values are taken when it is accepted.
    void askForPreferences();
    // The log as the dock shows it.
    QString logText() const;

private:
    void openFile();
    void rebuildRecentMenu();
    void rememberRecent(const QString& fileName);
    void showProgress(double progress);
    void appendLog(const QString& line);
    // Fast captures: false when the user keeps existing files.
    bool mayReplaceCaptures(const QStringList& names);
    void exportFastCaptures(kaImageWriter& writer, const ExportSettings& settings,
                            const std::function<bool()>& failed);

    std::unique_ptr<kaOSGWidget> _view;
    std::unique_ptr<kaBuiltinScene> _builtin;
    View* _viewWidget = nullptr;
    Timeline* _timeline = nullptr;
    QString _sceneFile, _preferencesPath;
    QMenu* _recentMenu = nullptr;
    QProgressBar* _progress = nullptr;
    QLabel* _status = nullptr;
    QPlainTextEdit* _log = nullptr;
    std::map<ExportKind, ExportSettings> _lastSettings;
    int _progressListener = 0, _logSink = 0, _clusterHandler = 0;
};

} // namespace kaviewer
