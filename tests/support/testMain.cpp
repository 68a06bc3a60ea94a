// Every test program runs inside a QApplication on the offscreen platform, as the host's
// widgets and dialogs need one.
#include <QApplication>
#include <QDir>
#include <QFile>

#include <unistd.h>

#include <gmock/gmock.h>

int main(int argc, char** argv) {
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
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
