#include "kaexportApp.h"

#include "kaController.h"

#include <QApplication>
#include <QDir>
#include <QFile>

#include <unistd.h>

#include <cstdlib>
#include <iostream>

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
