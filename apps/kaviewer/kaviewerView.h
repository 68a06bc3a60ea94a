#pragma once

#include "kaviewerNavigator.h"

#include <QImage>
#include <QPoint>
#include <QStringList>
#include <QWidget>

class kaOSGWidget;

namespace kaviewer {

// The main view on the screen: the host's view (which renders offscreen, with the renderer the
// exports use) drawn into this widget at the widget's size, so that what it shows is what a
// snapshot of that size writes. The mouse moves the camera: the left button turns around the
// point looked at, the middle button (or Shift with the left) slides, the right button and the
// wheel move closer and further.
class View : public QWidget {
    Q_OBJECT
public:
    explicit View(kaOSGWidget& view, QWidget* parent = nullptr);
    ~View() override;

    kaOSGWidget& hostView() { return _view; }
    // Renders the host's view again and shows it.
    void redraw();
    // The picture shown (the host's screen image, top row first); null before the first render.
    const QImage& picture() const { return _picture; }
    // Takes the camera where the host's view has it now, pivoting around 'distance' ahead.
    void resetNavigation(float distance);
    // The view's switches that differ from how it normally shows the scene (snapshot mode,
    // stereo, powerwall, overlays, a viewport not covering the window, the background's alpha
    // or backplate, another display colour space), one line each; drawn over the picture so
    // that a switch an export forgot to put back shows.
    QStringList unusualState() const;
    // How many times the picture was taken from the host's view.
    int pictureCount() const { return _pictures; }

    QSize sizeHint() const override { return {960, 540}; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;

private:
    enum class Drag { None, Orbit, Pan, Dolly };
    void takePicture();
    void applyPose();

    kaOSGWidget& _view;
    Navigator _navigator;
    QImage _picture;
    Drag _drag = Drag::None;
    QPoint _last;
    int _renderHook = 0;
    int _pictures = 0;
};

} // namespace kaviewer
