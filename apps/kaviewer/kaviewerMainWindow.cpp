#include "kaviewerMainWindow.h"

#include "kaviewerPreferencesDialog.h"
#include "kaviewerTimeline.h"
#include "kaviewerView.h"

#include "kaBuiltinScene.h"
#include "kaClusterService.h"
#include "kaController.h"
#include "kaExportFrames.h"
#include "kaFile.h"
#include "kaImageRenderWidget.h"
#include "kaImageWriter.h"
#include "kaLog.h"
#include "kaMessage.h"
#include "kaOSGWidget.h"
#include "kaPreferences.h"
#include "kaRenderParameter.h"
#include "kaRenderPasses.h"
#include "kaSceneImport.h"
#include "kaWriteRecord.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QDockWidget>
#include <QElapsedTimer>
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
#include <QVBoxLayout>

#include <boost/any.hpp>

#include <algorithm>
#include <cmath>

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

// The last frame of the timeline: the sequence's stop frame the user set, at least 100.
int preferredStopFrame() {
    int stop = 100;
    kaImageWriter::getFromMessage(kaPreferences::getData(), "MovieExport stop frame", stop);
    return std::max(stop, 100);
}

// What an export's dialog offers the first time: the user's preferences for it.
ExportSettings preferredSettings(ExportKind kind, int viewWidth, int viewHeight) {
    const kaMessage& prefs = kaPreferences::getData();
    ExportSettings s;
    const char* names[] = {"snapshot.png", "frame.png", "movie.avi", "capture.png"};
    s.fileName = QDir::homePath() + "/" + names[int(kind)];
    s.width = viewWidth;
    s.height = viewHeight;
    kaImageWriter::getFromMessage(prefs, "MovieExport ssfactor", s.superSampling);
    kaImageWriter::getFromMessage(prefs, "MovieExport alpha", s.alpha);
    kaImageWriter::getFromMessage(prefs, "MovieExport dpi", s.dpi);
    kaImageWriter::getFromMessage(prefs, "MovieExport start frame", s.startFrame);
    kaImageWriter::getFromMessage(prefs, "MovieExport stop frame", s.stopFrame);
    kaImageWriter::getFromMessage(prefs, "MovieExport fps", s.fps);
    kaImageWriter::getFromMessage(prefs, "ImageExport stereo mode", s.stereoMode);
    s.raytracing = kaOSGWidget::getRaytracing();
    s.samples = kaRenderParameter::getImageSamples();
    return s;
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
    _timeline = new Timeline;
    _timeline->setLastFrame(preferredStopFrame());
    connect(_timeline, &Timeline::changed, _viewWidget, &View::redraw);
    auto* centre = new QWidget;
    auto* centreLayout = new QVBoxLayout(centre);
    centreLayout->setContentsMargins(0, 0, 0, 0);
    centreLayout->setSpacing(0);
    centreLayout->addWidget(_viewWidget, 1);
    centreLayout->addWidget(_timeline);
    setCentralWidget(centre);

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

    QMenu* edit = menuBar()->addMenu("&Edit");
    QAction* preferences = edit->addAction("&Preferences...", this, &MainWindow::askForPreferences,
                                           QKeySequence::Preferences);
    preferences->setObjectName("preferences");

    QMenu* exports = menuBar()->addMenu("&Export");
    const struct {
        const char* label;
        const char* name;
        ExportKind kind;
        QKeySequence keys;
    } entries[] = {
        {"&Snapshot...", "snapshot", ExportKind::Snapshot,
         QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S)},
        {"&Image Sequence...", "sequence", ExportKind::Sequence,
         QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_I)},
        {"&Movie...", "movie", ExportKind::Movie, QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_M)},
        {"&Fast Capture...", "fastCapture", ExportKind::FastCapture,
         QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_F)},
    };
    for (const auto& entry : entries) {
        const ExportKind kind = entry.kind;
        QAction* action = exports->addAction(
            entry.label, this, [this, kind] { askForExport(kind); }, entry.keys);
        action->setObjectName(entry.name);
    }

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
    // The view gets the room; the log a few lines.
    resizeDocks({dock}, {110}, Qt::Vertical);

    _progressListener = kaController::addProgressListener([this](double progress) {
        onGuiThread(this, [this, progress] { showProgress(progress); });
    });
    _logSink = kaLog::addSink([this](kaLog::Level level, const std::string& text) {
        QString line = QString::fromStdString(text).trimmed();
        if (level != kaLog::Info)
            line = QString(kaLog::levelName(level)) + ": " + line;
        onGuiThread(this, [this, line] { appendLog(line); });
    });
    // The render cluster is the host's service: exports bring it up by its name. What it
    // can't handle itself (a node lost mid-render) is told the user here.
    kaClusterService::the();
    _clusterHandler = kaController::addCallHandler(
        "kaClusterClusterWindowException", [this](const kaMessage& message) {
            QString error = "unknown failure";
            const boost::any value = message.get("error");
            if (const QString* text = boost::any_cast<QString>(&value))
                error = *text;
            kaLog::error("The render cluster failed: %s", error.toUtf8().constData());
            if (!kaController::isNoGUI())
                QMessageBox::warning(this, "Render cluster", "The render cluster failed: " + error);
        });
    rebuildRecentMenu();
    resize(1100, 760);
}

MainWindow::~MainWindow() {
    kaController::removeCallHandler(_clusterHandler);
    kaClusterService::the()->stop();
    kaController::removeProgressListener(_progressListener);
    kaLog::removeSink(_logSink);
    if (kaController::getMainWindow() == this)
        kaController::setMainWindow(nullptr);
    _builtin.reset();
    kaOSGWidget::setMainView(nullptr);
}

bool MainWindow::openScene(const QString& fileName) {
    _timeline->pause();
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
    // A scene opened starts at the beginning of time: frame 0, the simulation at rest.
    _timeline->restore({});
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

void MainWindow::askForPreferences() {
    PreferencesDialog dialog(_preferencesPath, _view->getScreenImage(), this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    _timeline->setLastFrame(preferredStopFrame());
    // Lights and exposure are the view's too.
    _viewWidget->redraw();
}

void MainWindow::askForExport(ExportKind kind) {
    auto known = _lastSettings.find(kind);
    if (known == _lastSettings.end())
        known =
            _lastSettings.emplace(kind, preferredSettings(kind, _view->width(), _view->height()))
                .first;
    ExportDialog dialog(kind, known->second, _view->width(), _view->height(), this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    known->second = dialog.settings();
    runExport(kind, known->second);
}

bool MainWindow::mayReplaceCaptures(const QStringList& names) {
    int existing = 0;
    for (const QString& name : names)
        existing += QFileInfo::exists(name) ? 1 : 0;
    if (existing == 0)
        return true;
    return QMessageBox::question(
               this, "Fast Capture",
               QString("%1 of the %2 capture files already exist%3.\nDo you want to replace them?")
                   .arg(existing)
                   .arg(names.size())
                   .arg(existing == 1 ? "s" : ""),
               QMessageBox::Yes | QMessageBox::No, QMessageBox::No) == QMessageBox::Yes;
}

void MainWindow::exportFastCaptures(kaImageWriter& writer, const ExportSettings& s,
                                    const std::function<bool()>& failed) {
    QStringList names;
    const QString out = kaFile::expandFilename(s.fileName);
    for (int i = 0; i < s.captures; ++i)
        names << kaapps::captureName(out, i, s.captures);
    if (!mayReplaceCaptures(names))
        return;
    writer.setNoShowImage(true);
    writer.exportImageFastInit(s.width, s.height, s.superSampling);
    for (const QString& name : names) {
        writer.exportImageFast(name);
        QApplication::processEvents();
        // A capture that failed (the library has said why) ends the run.
        if (kaImageRenderWidget::wasCanceled() || failed())
            break;
    }
    writer.exportImageFastTerminate();
}

void MainWindow::runExport(ExportKind kind, const ExportSettings& s) {
    _timeline->pause();
    // Sequences and movies walk the timeline from its start: the scene is brought back to the
    // moment it showed, so the view is what it was.
    const Timeline::Moment moment = _timeline->moment();
    QElapsedTimer clock;
    clock.start();
    // The renderer and its samples are the export's: the view keeps its own.
    const bool viewRaytraces = kaOSGWidget::getRaytracing();
    const int viewSamples = kaRenderParameter::getImageSamples();
    kaOSGWidget::setRaytracing(s.raytracing);
    if (s.raytracing)
        kaRenderParameter::setImageSamples(s.samples);
    // Stereo eyes and render passes are chosen per snapshot and sequence; the library reads
    // the eyes from the preferences, which are the user's again afterwards.
    const bool eyesAndPasses = kind == ExportKind::Snapshot || kind == ExportKind::Sequence;
    kaMessage& prefs = kaPreferences::getData();
    const boost::any userStereo = prefs.get("ImageExport stereo mode");
    if (eyesAndPasses)
        prefs.set("ImageExport stereo mode", s.stereoMode);
    std::vector<bool> active(kaRenderPassCount, false);
    for (unsigned int pass : s.passes)
        if (pass < kaRenderPassCount)
            active[pass] = true;
    kaImageRenderWidget::setActiveRenderPasses(
        eyesAndPasses && s.exportPasses ? active : std::vector<bool>());

    _status->setText("Rendering " + s.fileName + " ...");
    // What the writers finished or failed, as they report it (from their threads).
    const kaapps::WriteRecord record;
    const QString cluster = s.raytracing ? s.cluster : QString();
    kaImageWriter writer;
    const ExportExtras extras = ExportExtras::load();
    writer.setICCProfile(extras.colorSpace);
    writer.setMetaDataFlags(extras.metadataFlags);
    switch (kind) {
    case ExportKind::Snapshot:
        writer.exportImage(s.fileName, s.width, s.height, s.superSampling, s.alpha ? 1 : 0, s.dpi,
                           s.exportPasses, cluster, false, false);
        break;
    case ExportKind::Sequence:
        kaapps::timelineRate(s.fps);
        writer.exportImages(s.fileName, s.width, s.height, s.fps, s.startFrame, s.stopFrame,
                            s.superSampling, s.alpha ? 1 : 0, s.exportPasses, 0, cluster,
                            s.frameStep, false);
        break;
    case ExportKind::Movie:
        kaapps::timelineRate(s.fps);
        writer.exportAVI(s.fileName, s.width, s.height, s.fps, s.startFrame, s.stopFrame,
                         s.superSampling, 0, QString(), !s.chooseCodec);
        break;
    case ExportKind::FastCapture:
        exportFastCaptures(writer, s, [&record] { return record.hasFailures(); });
        break;
    }
    if (eyesAndPasses) {
        if (const int* mode = boost::any_cast<int>(&userStereo))
            prefs.set("ImageExport stereo mode", *mode);
        else
            prefs.remove("ImageExport stereo mode");
    }
    kaOSGWidget::setRaytracing(viewRaytraces);
    kaRenderParameter::setImageSamples(viewSamples);
    if (kind == ExportKind::Sequence || kind == ExportKind::Movie)
        _timeline->restore(moment);
    QStringList failures;
    for (const kaWriteJournal::Entry& entry : record.entries())
        if (!entry.written)
            failures << QString::fromStdString(entry.fileName + ": " + entry.error);
    const QStringList written = record.written();
    QString status;
    if (!failures.isEmpty())
        status = "Couldn't write " + failures.join("; ");
    else if (writer.wasExportCanceled())
        status = "The export was aborted";
    else if (written.isEmpty())
        status = "Nothing was written";
    else
        status = QString("Wrote %1 in %2 s")
                     .arg(written.size() == 1 ? written.front()
                                              : QString("%1 files").arg(written.size()))
                     .arg(double(clock.elapsed()) / 1000.0, 0, 'f', 2);
    _status->setText(status);
    _progress->hide();
    // The export puts the view back; it is shown as it is now.
    _timeline->sync();
    _viewWidget->redraw();
}

} // namespace kaviewer
