#include "kaviewerMainWindow.h"

#include "kaviewerView.h"

#include "kaBuiltinScene.h"
#include "kaController.h"
#include "kaImageRenderWidget.h"
#include "kaImageWriter.h"
#include "kaLog.h"
#include "kaMessage.h"
#include "kaOSGWidget.h"
#include "kaPreferences.h"
#include "kaRenderParameter.h"
#include "kaRenderPasses.h"
#include "kaSceneImport.h"
#include "kaWriteJournal.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QDockWidget>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QSettings>
#include <QStatusBar>
#include <QThread>

#include <algorithm>
#include <cmath>
#include <memory>
#include <mutex>

namespace kaviewer {

namespace {

constexpr int kRecentFiles = 8;

// Runs 'work' on the GUI thread: at once when called there, else queued.
template <typename Work>
void onGuiThread(QObject* receiver, Work work) {
    if (QThread::currentThread() == receiver->thread())
        work();
    else
        QMetaObject::invokeMethod(receiver, work, Qt::QueuedConnection);
}

// How far ahead of the camera the point it turns around lies: the centre of what it sees.
float pivotDistance(kaOSGWidget& view) {
    osg::Pnt3f low, high;
    if (!kaSceneImport::bounds(view.getSceneRoot(), low, high))
        return 10.0f;
    const osg::Pnt3f centre{(low.x + high.x) / 2, (low.y + high.y) / 2, (low.z + high.z) / 2};
    auto beacon = osg::dynamic_pointer_cast<osg::Transform>(view.getCameraBeacon()->getCore());
    const osg::Matrix pose = beacon ? beacon->getMatrix() : osg::Matrix();
    const osg::Pnt3f eye = pose.transformPoint({0, 0, 0});
    const osg::Vec3f ahead = osg::normalize(pose.transformVector({0, 0, -1}));
    const float along = osg::dot(ahead, {centre.x - eye.x, centre.y - eye.y, centre.z - eye.z});
    const osg::Vec3f size{high.x - low.x, high.y - low.y, high.z - low.z};
    // Behind the camera or beside it: a tenth of the scene's size ahead.
    return along > 1e-3f ? along : std::max(0.1f * std::sqrt(osg::dot(size, size)), 0.1f);
}

} // namespace

MainWindow::MainWindow()
    : _view(std::make_unique<kaOSGWidget>()) {
    setObjectName("MainWindow");
    kaOSGWidget::setMainView(_view.get());
    kaController::setMainWindow(this);

    _viewWidget = new View(*_view);
    setCentralWidget(_viewWidget);

    QMenu* file = menuBar()->addMenu("&File");
    QAction* open = file->addAction("&Open...", this, &MainWindow::openFile, QKeySequence::Open);
    open->setObjectName("open");
    _recentMenu = file->addMenu("Open &Recent");
    _recentMenu->setObjectName("recent");
    QAction* builtin = file->addAction("&Built-in Scene", this, [this] { openScene(QString()); });
    builtin->setObjectName("builtinScene");
    file->addSeparator();
    QAction* quit = file->addAction("&Quit", this, &QWidget::close, QKeySequence::Quit);
    quit->setObjectName("quit");

    QMenu* exports = menuBar()->addMenu("&Export");
    QAction* snapshot = exports->addAction("&Snapshot...", this, &MainWindow::askForSnapshot,
                                           QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S));
    snapshot->setObjectName("snapshot");

    _status = new QLabel;
    _status->setObjectName("status");
    _progress = new QProgressBar;
    _progress->setObjectName("progress");
    _progress->setRange(0, 1000);
    _progress->setMaximumWidth(240);
    _progress->hide();
    statusBar()->addWidget(_status, 1);
    statusBar()->addPermanentWidget(_progress);

    _log = new QPlainTextEdit;
    _log->setObjectName("log");
    _log->setReadOnly(true);
    _log->setMaximumBlockCount(5000);
    auto* dock = new QDockWidget("Log", this);
    dock->setObjectName("logDock");
    dock->setWidget(_log);
    addDockWidget(Qt::BottomDockWidgetArea, dock);

    _progressListener = kaController::addProgressListener([this](double progress) {
        onGuiThread(this, [this, progress] { showProgress(progress); });
    });
    _logSink = kaLog::addSink([this](kaLog::Level level, const std::string& text) {
        QString line = QString::fromStdString(text).trimmed();
        if (level != kaLog::Info)
            line = QString(kaLog::levelName(level)) + ": " + line;
        onGuiThread(this, [this, line] { appendLog(line); });
    });
    rebuildRecentMenu();
    resize(1100, 760);
}

MainWindow::~MainWindow() {
    kaController::removeProgressListener(_progressListener);
    kaLog::removeSink(_logSink);
    if (kaController::getMainWindow() == this)
        kaController::setMainWindow(nullptr);
    _builtin.reset();
    kaOSGWidget::setMainView(nullptr);
}

bool MainWindow::openScene(const QString& fileName) {
    if (fileName.isEmpty()) {
        _builtin.reset();
        _builtin = std::make_unique<kaBuiltinScene>(*_view);
        _sceneFile.clear();
        setWindowTitle("kaviewer - built-in scene");
    } else {
        QString error;
        std::vector<osg::AnimNodeBasePtr> animations;
        osg::NodePtr scene = kaSceneImport::load(fileName, error, &animations);
        if (!scene) {
            const QString text = QString("Couldn't open '%1': %2").arg(fileName, error);
            kaLog::error("%s", text.toUtf8().constData());
            if (!kaController::isNoGUI())
                QMessageBox::warning(this, "Open", text);
            return false;
        }
        _builtin.reset();
        kaSceneImport::show(*_view, scene, fileName, std::move(animations));
        _sceneFile = QFileInfo(fileName).absoluteFilePath();
        rememberRecent(_sceneFile);
        setWindowTitle("kaviewer - " + QFileInfo(fileName).fileName());
    }
    _viewWidget->resetNavigation(pivotDistance(*_view));
    _viewWidget->redraw();
    _status->setText(_sceneFile.isEmpty() ? "The built-in scene" : _sceneFile);
    return true;
}

void MainWindow::openFile() {
    const QString name = QFileDialog::getOpenFileName(
        this, "Open a scene", QFileInfo(_sceneFile).path(),
        "Scenes (*.gltf *.glb *.fbx *.dae *.obj *.ply *.stl *.3ds *.blend);;All files (*)");
    if (!name.isEmpty())
        openScene(name);
}

void MainWindow::rememberRecent(const QString& fileName) {
    QSettings settings;
    QStringList recent = settings.value("recentFiles").toStringList();
    recent.removeAll(fileName);
    recent.prepend(fileName);
    while (recent.size() > kRecentFiles)
        recent.removeLast();
    settings.setValue("recentFiles", recent);
    rebuildRecentMenu();
}

void MainWindow::rebuildRecentMenu() {
    _recentMenu->clear();
    const QStringList recent = QSettings().value("recentFiles").toStringList();
    for (const QString& name : recent)
        _recentMenu->addAction(QFileInfo(name).fileName(), this, [this, name] { openScene(name); })
            ->setToolTip(name);
    _recentMenu->setEnabled(!recent.isEmpty());
}

void MainWindow::showProgress(double progress) {
    _progress->setValue(int(std::lround(std::clamp(progress, 0.0, 1.0) * 1000.0)));
    _progress->setVisible(progress > 0.0 && progress < 1.0);
}

void MainWindow::appendLog(const QString& line) {
    _log->appendPlainText(line);
}

QString MainWindow::logText() const {
    return _log->toPlainText();
}

void MainWindow::askForSnapshot() {
    if (_snapshot.fileName.isEmpty()) {
        _snapshot.fileName = QDir::homePath() + "/snapshot.png";
        _snapshot.width = _view->width();
        _snapshot.height = _view->height();
    }
    SnapshotDialog dialog(_snapshot, _view->width(), _view->height(), this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    _snapshot = dialog.settings();
    exportSnapshot(_snapshot);
}

void MainWindow::exportSnapshot(const SnapshotSettings& s) {
    // The renderer and its samples are the export's: the view keeps its own.
    const bool viewRaytraces = kaOSGWidget::getRaytracing();
    const int viewSamples = kaRenderParameter::getImageSamples();
    kaOSGWidget::setRaytracing(s.raytracing);
    if (s.raytracing)
        kaRenderParameter::setImageSamples(s.samples);
    kaPreferences::getData().set("ImageExport stereo mode", s.stereoMode);
    std::vector<bool> active(kaRenderPassCount, false);
    for (unsigned int pass : s.passes)
        if (pass < kaRenderPassCount)
            active[pass] = true;
    kaImageRenderWidget::setActiveRenderPasses(s.exportPasses ? active : std::vector<bool>());

    _status->setText("Rendering " + s.fileName + " ...");
    // What the writers finished or failed, as they report it (from their threads).
    auto journal = std::make_shared<std::pair<QStringList, QStringList>>();
    auto mutex = std::make_shared<std::mutex>();
    const int listener = kaWriteJournal::addListener([journal, mutex](const auto& entry) {
        std::lock_guard<std::mutex> lock(*mutex);
        const QString name = QString::fromStdString(entry.fileName);
        if (entry.written)
            journal->first << name;
        else
            journal->second << name + ": " + QString::fromStdString(entry.error);
    });
    kaImageWriter writer;
    writer.exportImage(s.fileName, s.width, s.height, s.superSampling, s.alpha ? 1 : 0, s.dpi,
                       s.exportPasses, QString(), false, false);
    kaWriteJournal::removeListener(listener);
    kaOSGWidget::setRaytracing(viewRaytraces);
    kaRenderParameter::setImageSamples(viewSamples);
    std::lock_guard<std::mutex> lock(*mutex);
    QString status;
    if (!journal->second.isEmpty())
        status = "Couldn't write " + journal->second.join("; ");
    else if (writer.wasExportCanceled())
        status = "The snapshot was aborted";
    else if (journal->first.isEmpty())
        status = "Nothing was written";
    else
        status =
            QString("Wrote %1 (%2 s)")
                .arg(journal->first.size() == 1 ? journal->first.front()
                                                : QString("%1 files").arg(journal->first.size()))
                .arg(kaImageWriter::getLastRenderTime(), 0, 'f', 2);
    _status->setText(status);
    _progress->hide();
    // The export puts the view back; it is shown as it is now.
    _viewWidget->redraw();
}

} // namespace kaviewer
