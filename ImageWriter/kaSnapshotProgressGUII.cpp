#include "kaSnapshotProgressGUII.h"

#include "kaImageRenderWidget.h"
#include "kaImageViewer.h"

#include "kaController.h"
#include "kaPlatform.h"

#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

kaSnapshotProgressGUII::kaSnapshotProgressGUII(int width, int height,
                                               const osg::NetWindowPtr& window)
    : kaSnapshotProgressGUIW(kaController::getMainWindow()) {
    setObjectName("Snapshot");
    setModal(true);
    // A dialog that can still be minimised and maximised: the preview is worth a large window
    // while a long cluster render runs.
    setWindowFlags(Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                   Qt::WindowSystemMenuHint | Qt::WindowMinimizeButtonHint |
                   Qt::WindowMaximizeButtonHint);

    // The preview fills the frame up to its sunken border.
    auto* layout = new QVBoxLayout(_frame);
    layout->setContentsMargins(0, 0, 0, 0);
    _viewer = new kaImageViewer(_frame, width, height, window ? window->getId() : 0u);
    layout->addWidget(_viewer);

    _progress->setValue(0);
    connect(_cancel, &QPushButton::clicked, this, &kaSnapshotProgressGUII::clickedCancel);
    connect(_save, &QPushButton::clicked, this, &kaSnapshotProgressGUII::clickedSave);
}

kaSnapshotProgressGUII::~kaSnapshotProgressGUII() = default;

void kaSnapshotProgressGUII::setMessage(const QString& text) {
    _viewer->_text = text;
    _viewer->repaint();
    kaImageRenderWidget::processEvents();
}

void kaSnapshotProgressGUII::setProgress(int value, bool forceRepaint) {
    _progress->setValue(value);
    if (forceRepaint || _viewer->_repaintRequested) {
        _viewer->repaint();
        _viewer->_repaintRequested = false;
    }
    kaImageRenderWidget::processEvents();
}

void kaSnapshotProgressGUII::setTotalSteps(int steps) {
    _progress->setRange(0, steps);
}

bool kaSnapshotProgressGUII::isCancel() {
    return _cancelled;
}

bool kaSnapshotProgressGUII::isSave() {
    return _saveRequested;
}

void kaSnapshotProgressGUII::resetSave() {
    _saveRequested = false;
    setEnabled(true);
    _viewer->_repaintRequested = false;
    _viewer->_frozen = false;
}

bool kaSnapshotProgressGUII::isZooming() {
    return _viewer->_zooming;
}

bool kaSnapshotProgressGUII::getRenderUpdate() {
    if (_viewer->_repaintRequested)
        return true;
    return _render_update->isChecked();
}

bool kaSnapshotProgressGUII::close() {
    // The close event goes through reject(), which must not ask a second time.
    _closing = true;
    clickedCancel();
    const bool closed = QDialog::close();
    _closing = false;
    return closed;
}

void kaSnapshotProgressGUII::reject() {
    if (!_closing && !_cancelled)
        clickedCancel();
    QDialog::reject();
}

void kaSnapshotProgressGUII::clickedCancel() {
    const int queued = kaImageRenderWidget::getNrOfQueuedRenderJobs();
    if (queued > 0) {
        // Buttons of the action role: a box with Yes and No roles would make "No" its escape
        // button, and this question has none (Escape must not answer it by accident).
        QMessageBox box(QMessageBox::Question, kaPlatform::getAppVersionName(),
                        tr("Abort all %1 remaining render jobs?\n").arg(queued),
                        QMessageBox::NoButton, parentWidget());
        QPushButton* yes = box.addButton(tr("Yes"), QMessageBox::ActionRole);
        QPushButton* no = box.addButton(tr("No"), QMessageBox::ActionRole);
        box.setDefaultButton(no);
        box.setEscapeButton(nullptr);
        // In batch mode the host's answerer clicks the default button and logs the text.
        box.exec();
        if (box.clickedButton() == yes)
            kaImageRenderWidget::abortAllRenderings();
    }
    stop();
    _cancelled = true;
}

void kaSnapshotProgressGUII::clickedCancelSave() {
    stop();
    _cancelled = true;
}

void kaSnapshotProgressGUII::clickedSave() {
    stop();
    _saveRequested = true;
}

// Keeps the picture the user decided on, and the buttons from being pressed twice.
void kaSnapshotProgressGUII::stop() {
    _viewer->_frozen = true;
    setEnabled(false);
}
