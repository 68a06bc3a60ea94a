#pragma once

#include "kaviewerSnapshotDialog.h"

#include <QMainWindow>
#include <QString>

#include <memory>

class QLabel;
class QMenu;
class QPlainTextEdit;
class QProgressBar;
class kaBuiltinScene;
class kaOSGWidget;

namespace kaviewer {

class View;

// The application's main window and the host's (kaController::getMainWindow): the main view,
// the File and Export menus, the progress of renders in the status bar and the log in a dock.
// The library's own dialogs (the render dialog, its questions and warnings) open over it.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    MainWindow();
    ~MainWindow() override;

    // Shows the built-in scene (empty name) or a scene file; false, with a message box (the
    // log in batch mode), when the file can't be read.
    bool openScene(const QString& fileName);
    const QString& sceneFile() const { return _sceneFile; }
    View& view() { return *_viewWidget; }
    kaOSGWidget& hostView() { return *_view; }

    // The snapshot through the library's export with 'settings'; what the last dialog held
    // is offered again next time.
    void exportSnapshot(const SnapshotSettings& settings);
    // The dialog, then the export when it is accepted.
    void askForSnapshot();
    // The log as the dock shows it.
    QString logText() const;

private:
    void openFile();
    void rebuildRecentMenu();
    void rememberRecent(const QString& fileName);
    void showProgress(double progress);
    void appendLog(const QString& line);

    std::unique_ptr<kaOSGWidget> _view;
    std::unique_ptr<kaBuiltinScene> _builtin;
    View* _viewWidget = nullptr;
    QString _sceneFile;
    QMenu* _recentMenu = nullptr;
    QProgressBar* _progress = nullptr;
    QLabel* _status = nullptr;
    QPlainTextEdit* _log = nullptr;
    SnapshotSettings _snapshot;
    int _progressListener = 0, _logSink = 0;
};

} // namespace kaviewer
