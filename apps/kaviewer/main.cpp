// kaviewer: the 3D view with the export menus and the library's dialogs, on the desktop.
#include "kaviewerMainWindow.h"

#include "kaController.h"
#include "kaHeap.h"
#include "kaPreferences.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMessageBox>
#include <QStandardPaths>

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

    QStringList args = QApplication::arguments().mid(1);
    // The preferences file: --prefs FILE, else the one in the user's settings folder.
    QString prefs = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                    "/kaviewer/preferences.json";
    const int prefsAt = args.indexOf("--prefs");
    if (prefsAt >= 0 && prefsAt + 1 < args.size()) {
        prefs = QFileInfo(args[prefsAt + 1]).absoluteFilePath();
        args.removeAt(prefsAt);
        args.removeAt(prefsAt);
    }
    if (args.size() > 1 || args.contains("--help") || args.contains("-h") ||
        args.contains("--prefs")) {
        std::fprintf(stderr,
                     "usage: kaviewer [--prefs FILE] [SCENE]\n"
                     "Shows SCENE (glTF, FBX, COLLADA, OBJ, PLY, ...; the built-in scene "
                     "without one) with the export menus. The preferences are read from "
                     "FILE (default: %s) and saved there by Edit > Preferences.\n",
                     prefs.toLocal8Bit().constData());
        return args.contains("--help") || args.contains("-h") ? 0 : 2;
    }
    QString prefsError;
    QDir().mkpath(QFileInfo(prefs).path());
    const bool prefsRead = !QFileInfo::exists(prefs) || kaPreferences::load(prefs, &prefsError);

    kaviewer::MainWindow window;
    window.setPreferencesPath(prefs);
    window.show();
    if (!prefsRead)
        QMessageBox::warning(&window, "Preferences",
                             QString("The preferences in '%1' can't be read (%2); the defaults are "
                                     "used, and the file is kept as '%1.broken' when they are "
                                     "saved.")
                                 .arg(prefs, prefsError));
    if (!window.openScene(args.value(0)) && !args.isEmpty())
        window.openScene(QString());
    return QApplication::exec();
}
