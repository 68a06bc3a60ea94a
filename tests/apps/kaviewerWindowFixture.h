#pragma once

// The desktop program's main window with the built-in scene, shown (offscreen) and drawn, in
// GUI mode: the test answers the library's boxes as a person would.

#include "kaviewerMainWindow.h"
#include "kaviewerTestSupport.h"
#include "kaviewerView.h"

#include "kaController.h"
#include "kaOSGWidget.h"
#include "kaTestSupport.h"

#include <QSettings>
#include <QtTest/QTest>

#include <gtest/gtest.h>

#include <memory>

class ViewerWindowTest : public ::testing::Test {
protected:
    void SetUp() override {
        // Recent files go to this test's folder, not the user's settings.
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, _settings.path());
        _wasNoGUI = kaController::isNoGUI();
        kaController::setNoGUI(false);
        _window = std::make_unique<kaviewer::MainWindow>();
        // Small, so that every redraw is quick: the view gets what the docks leave.
        _window->resize(640, 520);
        _window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(_window.get()));
        ASSERT_TRUE(_window->openScene(QString()));
        ASSERT_TRUE(kaviewertest::waitUntil(
            [this] { return !picture().isNull() && picture().size() == _window->view().size(); }));
    }
    void TearDown() override {
        _window.reset();
        kaOSGWidget::setRaytracing(false);
        kaController::setNoGUI(_wasNoGUI);
    }

    const QImage& picture() { return _window->view().picture(); }
    // A PNG of the view's size.
    kaviewer::ExportSettings pngOfTheView(const QString& file) {
        kaviewer::ExportSettings s;
        s.fileName = file;
        s.width = _window->hostView().width();
        s.height = _window->hostView().height();
        return s;
    }

    katest::PreferencesGuard _prefs;
    katest::TempDir _settings, _dir;
    std::unique_ptr<kaviewer::MainWindow> _window;
    bool _wasNoGUI = true;
};
