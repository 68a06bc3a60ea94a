#pragma once

// A real X server (Xvfb) for tests of windows as users see them, and this test program run
// again on it: the platform (xcb) is chosen once per process, so the work on the server
// happens in a child that runs one disabled test of the same program.

#include <gtest/gtest.h>

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>

#include <memory>
#include <string>

namespace katest {

class XvfbServer {
public:
    // Starts Xvfb on a free display (it picks the number itself); check isRunning().
    XvfbServer();
    ~XvfbServer();
    XvfbServer(const XvfbServer&) = delete;
    XvfbServer& operator=(const XvfbServer&) = delete;

    static bool isInstalled();
    bool isRunning() const { return !_display.isEmpty(); }
    // ":<number>"; empty when the server did not start.
    const QString& display() const { return _display; }
    const std::string& error() const { return _error; }

private:
    QProcess _server;
    QString _display;
    std::string _error;
};

struct ChildRun {
    bool finished = false;
    int code = -1;
    std::string output;
    bool passed() const {
        return finished && code == 0 && output.find("[  PASSED  ] 1 test") != std::string::npos;
    }
};

// Runs the disabled test 'test' ("Suite.DISABLED_Name") of this program on 'display' with the
// xcb platform and 'environment' added.
ChildRun runTestOnDisplay(const QString& display, const QString& test,
                          const QProcessEnvironment& environment, int timeoutMs = 60000);

// The parent side of a test on a real X server: skipped where Xvfb is not installed, failed
// where it does not start. Screenshots for a person to look at go to artefacts().
class OnXServer : public testing::Test {
protected:
    void SetUp() override;
    const XvfbServer& server() const { return *_server; }
    // The build's folder of test artefacts, made if need be.
    const QString& artefacts() const { return _artefacts; }

private:
    std::unique_ptr<XvfbServer> _server;
    QString _artefacts;
};

} // namespace katest
