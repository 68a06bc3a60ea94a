#include "kaexportApp.h"

#include "kaController.h"
#include "kaHeap.h"
#include "kaLog.h"

#include <QApplication>
#include <QDir>
#include <QFile>

#include <ext/stdio_filebuf.h>
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
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

bool askedForVerbose(int argc, char** argv) {
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "--verbose") == 0 || std::strcmp(argv[i], "-v") == 0)
            return true;
    return false;
}

// A cluster render shows its progress dialog with the live preview on the user's display when
// there is one; everything else runs without a screen.
bool showsClusterDialog(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("DISPLAY"))
        return false;
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "--cluster") == 0 || std::strncmp(argv[i], "--cluster=", 10) == 0)
            return true;
    return false;
}

// Standard output is the program's own: "Wrote" lines, file lists and PNG streams. The
// library's diagnostic lines (which it prints there) go to standard error with --verbose and
// nowhere otherwise, so they never mix into what other programs read. Returns the descriptor
// that now stands for the real standard output.
int takeStandardOutput(bool verbose) {
    std::fflush(stdout);
    const int own = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    const int diagnostics = verbose ? ::dup(STDERR_FILENO) : ::open("/dev/null", O_WRONLY);
    if (own < 0 || diagnostics < 0)
        return STDOUT_FILENO;
    ::dup2(diagnostics, STDOUT_FILENO);
    ::close(diagnostics);
    return own;
}

// Warnings and errors always; the library's informational lines (its timings, for one, which
// kaexport sums up itself) only with --verbose.
void routeLog(bool verbose) {
    kaLog::setStandardErrorEnabled(false);
    kaLog::addSink([verbose](kaLog::Level level, const std::string& text) {
        if (level == kaLog::Info && !verbose)
            return;
        const bool hasNewline = !text.empty() && text.back() == '\n';
        std::fprintf(stderr, "%s: %s%s", kaLog::levelName(level), text.c_str(),
                     hasNewline ? "" : "\n");
        std::fflush(stderr);
    });
}

} // namespace

int main(int argc, char** argv) {
    kaHeap::keepFreedMemoryForReuse();
    // kaexport runs without a display (but for a cluster's preview): its dialogs live offscreen.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", showsClusterDialog(argc, argv) ? "xcb;offscreen" : "offscreen");
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
    // A reader that goes away (a closed pipe) is a write error to report, not a silent death.
    std::signal(SIGPIPE, SIG_IGN);
    const bool verbose = askedForVerbose(argc, argv);
    const int output = takeStandardOutput(verbose);
    __gnu_cxx::stdio_filebuf<char> outputBuffer(output, std::ios::out);
    std::ostream out(&outputBuffer);
    routeLog(verbose);

    g_qtHandler = qInstallMessageHandler(filterQtMessages);
    QApplication app(argc, argv);
    QApplication::setApplicationName("kaexport");
    kaController::setNoGUI(true);

    QStringList args = QApplication::arguments();
    args.removeFirst();
    kaexport::Streams io{out, std::cerr, output};
    int code = kaexport::run(args, io);
    out.flush();
    if (!out && code == kaexport::Done) {
        std::fprintf(stderr, "kaexport: couldn't write to standard output: %s\n",
                     std::strerror(errno));
        code = kaexport::Failed;
    }
    return code;
}
