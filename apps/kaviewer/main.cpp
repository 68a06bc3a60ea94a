// kaviewer: the 3D view with the export menus and the library's dialogs, on the desktop.
#include "kaviewerMainWindow.h"

#include "kaController.h"
#include "kaHeap.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <unistd.h>

#include <cstdio>

int main(int argc, char** argv) {
    kaHeap::keepFreedMemoryForReuse();
    // Qt wants a private runtime folder and complains on every start when none is set.
    if (qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR")) {
        const QString runtime = QDir::tempPath() + "/runtime-" + QString::number(getuid());
        QDir().mkpath(runtime);
        QFile::setPermissions(runtime, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                           QFileDevice::ExeOwner);
        qputenv("XDG_RUNTIME_DIR", runtime.toLocal8Bit());
    }
    QApplication app(argc, argv);
    QApplication::setApplicationName("kaviewer");
    QApplication::setOrganizationName("kaviewer");
    kaController::setNoGUI(false);

    const QStringList args = QApplication::arguments().mid(1);
    if (args.size() > 1 || args.contains("--help") || args.contains("-h")) {
        std::fprintf(stderr, "usage: kaviewer [SCENE]\n"
                             "Shows SCENE (glTF, FBX, COLLADA, OBJ, PLY, ...; the built-in scene "
                             "without one) with the export menus.\n");
        return args.contains("--help") || args.contains("-h") ? 0 : 2;
    }
    kaviewer::MainWindow window;
    window.show();
    if (!window.openScene(args.value(0)) && !args.isEmpty())
        window.openScene(QString());
    return QApplication::exec();
}
