#pragma once

#include <QImage>
#include <QScrollArea>

class QLabel;

// The host's image viewer: a window that shows one QImage at its own size, scrolling when the
// window is smaller. GUI thread only.
class exImageViewer : public QScrollArea {
    Q_OBJECT
public:
    explicit exImageViewer(QWidget* parent = nullptr, const QImage& image = QImage());

    // Shows 'image' (a copy is kept).
    void set(const QImage& image);
    const QImage& getImage() const { return _image; }

private:
    QLabel* _label;
    QImage _image;
};
