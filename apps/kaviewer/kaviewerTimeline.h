#pragma once

#include <QTimer>
#include <QWidget>

class QLabel;
class QSlider;
class QToolButton;

namespace kaviewer {

// The animation timeline under the view: play and pause, the current frame, a slider to go to
// any frame. Playing steps the simulation clock a frame's time per frame, as the host's main
// loop does; moving the slider shows the animations at that frame without simulating.
class Timeline : public QWidget {
    Q_OBJECT
public:
    explicit Timeline(QWidget* parent = nullptr);

    int frame() const;
    int lastFrame() const;
    void setLastFrame(int frame);
    bool isPlaying() const { return _timer.isActive(); }
    void play();
    void pause();
    // Shows 'frame' (the animations evaluated there, constraints applied).
    void goTo(int frame);
    // Plays one frame: the next one, with the clock a frame's time further (back to the first
    // after the last, with the clock going on).
    void step();

    // Where the scene is in time: the frame shown and the simulation clock.
    struct Moment {
        int frame = 0;
        double time = 0.0;
    };
    Moment moment() const;
    // Brings the scene back to 'moment': the frame, and the simulation replayed from its start
    // frame by frame to the clock's time, so that it is where playing left it.
    void restore(const Moment& moment);
    // Takes the frame the host shows now into the controls.
    void sync();

signals:
    // The scene changed in time: the view should be drawn again.
    void changed();

private:
    void showFrame(int frame);

    QTimer _timer;
    QToolButton* _play;
    QSlider* _slider;
    QLabel* _label;
};

} // namespace kaviewer
