#include "kaexportApp.h"

#include "kaController.h"

#include <QApplication>
#include <QDir>
#include <QFile>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace {
QtMessageHandler g_qtHandler = nullptr;

// The offscreen platform reports window features it lacks; nothing a user can act on.
void filterQtMessages(QtMsgType type, const QMessageLogContext& context, const QString& text) {
    if (text.contains("does not support propagateSizeHints"))
        return;
    if (g_qtHandler) {
        g_qtHandler(type, context, text);
    } else {
        std::fprintf(stderr, "%s\n",
                     qFormatLogMessage(type, context, text).toLocal8Bit().constData());
        std::fflush(stderr);
    }
}
} // namespace

int main(int argc, char** argv) {
    // kaexport runs without a display: its dialogs and viewers live offscreen.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // Qt wants a private runtime folder and complains on every start when none is set.
    if (qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR")) {
        QByteArray runtime =
            QDir::tempPath().toLocal8Bit() + "/runtime-" + QByteArray::number(getuid());
        QDir().mkpath(QString::fromLocal8Bit(runtime));
        QFile::setPermissions(QString::fromLocal8Bit(runtime), QFileDevice::ReadOwner |
                                                                   QFileDevice::WriteOwner |
                                                                   QFileDevice::ExeOwner);
        qputenv("XDG_RUNTIME_DIR", runtime);
    }
    g_qtHandler = qInstallMessageHandler(filterQtMessages);
    QApplication app(argc, argv);
    QApplication::setApplicationName("kaexport");
    kaController::setNoGUI(true);

    QStringList args = QApplication::arguments();
    args.removeFirst();
    kaexport::Streams io{std::cout, std::cerr};
    int code = kaexport::run(args, io);
    std::cout.flush();
    return code;
}
