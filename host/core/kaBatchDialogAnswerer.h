#pragma once

#include <QObject>

// In batch mode nobody can click a message box. This application-wide event filter answers
// every QMessageBox as soon as it is shown, with its default button (else its escape button,
// else its first button), and writes the box's title and text to the log.
class kaBatchDialogAnswerer : public QObject {
    Q_OBJECT
public:
    // Installs or removes the one answerer on the running QApplication (no-op without one).
    static void setInstalled(bool installed);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
};
