#include "kaUtils.h"

#include "kaController.h"

#include <QApplication>

#include <cstdio>
#include <unistd.h>

void kaUtils::beep() {
    if (!kaController::isNoGUI() && qobject_cast<QApplication*>(QCoreApplication::instance())) {
        QApplication::beep();
        return;
    }
    if (isatty(fileno(stderr))) {
        std::fputc('\a', stderr);
        std::fflush(stderr);
    }
}
