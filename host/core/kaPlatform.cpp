#include "kaPlatform.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QScreen>

QString kaPlatform::getAppVersionName() {
    return QStringLiteral("KALO " KA_APP_VERSION);
}

float kaPlatform::getDpiScaleX() {
    auto* app = qobject_cast<QGuiApplication*>(QCoreApplication::instance());
    if (!app)
        return 1.0f;
    QScreen* screen = QGuiApplication::primaryScreen();
    if (!screen)
        return 1.0f;
    return float(screen->logicalDotsPerInchX() / 96.0);
}

QString kaPlatform::getDataDir() {
    if (QCoreApplication::instance()) {
        QDir installed(QCoreApplication::applicationDirPath() + "/../" KA_INSTALL_DATA_SUBDIR);
        if (installed.exists())
            return QDir::cleanPath(installed.absolutePath());
    }
    return QStringLiteral(KA_BUILD_DATA_DIR);
}
