#include "kaBatchDialogAnswerer.h"

#include "kaLog.h"

#include <QAbstractButton>
#include <QApplication>
#include <QEvent>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>

namespace {
QPointer<kaBatchDialogAnswerer> g_answerer;

QAbstractButton* answerOf(QMessageBox* box) {
    if (box->defaultButton())
        return box->defaultButton();
    if (box->escapeButton())
        return box->escapeButton();
    const QList<QAbstractButton*> buttons = box->buttons();
    return buttons.isEmpty() ? nullptr : buttons.first();
}
} // namespace

void kaBatchDialogAnswerer::setInstalled(bool installed) {
    auto* app = qobject_cast<QApplication*>(QCoreApplication::instance());
    if (installed && !g_answerer && app) {
        g_answerer = new kaBatchDialogAnswerer;
        g_answerer->setParent(app);
        app->installEventFilter(g_answerer);
    } else if (!installed && g_answerer) {
        delete g_answerer.data();
    }
}

bool kaBatchDialogAnswerer::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Show) {
        if (auto* box = qobject_cast<QMessageBox*>(watched)) {
            QString title = box->windowTitle();
            QString text = box->text();
            kaLog::warning("%s%s%s", title.toUtf8().constData(), title.isEmpty() ? "" : ": ",
                           text.toUtf8().constData());
            QPointer<QMessageBox> target(box);
            // Answer from the box's own event loop, once it runs.
            QMetaObject::invokeMethod(
                box,
                [target] {
                    if (!target)
                        return;
                    if (QAbstractButton* button = answerOf(target))
                        button->click();
                    else
                        target->reject();
                },
                Qt::QueuedConnection);
        }
    }
    return QObject::eventFilter(watched, event);
}
