#pragma once

#include "ImageWriterExport.h"

#include <QImage>
#include <QString>
#include <QWidget>

class kaSnapshotProgressGUII;

// The live preview of a render cluster's frame buffer: at every paint it reads the beauty slot
// of the osg::NetWindow with the given field-container id, scales it into the widget with its
// aspect ratio kept and draws it centred on black. While the left mouse button is held it shows
// a 1:1 crop of the full-resolution buffer around the mouse instead. Every mouse event asks the
// owning dialog for a repaint (see isRepaintRequested).
//
// The window is looked up by id at every paint, so it may go away at any time: the preview then
// keeps its last picture. GUI thread only.
class IMAGEWRITER_EXPORT kaImageViewer : public QWidget {
    Q_OBJECT
public:
    // 'bufferWidth' x 'bufferHeight' is the size of the buffer the preview expects (the export's
    // resolution); a buffer of another size shows black. 'windowId' 0 shows black too.
    kaImageViewer(QWidget* parent, int bufferWidth, int bufferHeight, unsigned int windowId);
    ~kaImageViewer() override;

    // What the last paint drew in the image's rectangle (32-bit RGB, top row first).
    const QImage& getImage() const { return _image; }
    // The caption drawn centred over the image; empty draws none.
    const QString& getText() const { return _text; }
    bool isZooming() const { return _zooming; }
    // Set by every mouse event; the dialog clears it when it has repainted.
    bool isRepaintRequested() const { return _repaintRequested; }
    // While frozen the picture is not read from the buffer again.
    bool isFrozen() const { return _frozen; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;

private:
    // The progress dialog sets the caption and drives the repaint request and the frozen state.
    friend class kaSnapshotProgressGUII;

    void refresh();
    void fillZoomed(const unsigned char* buffer, size_t bytesPerPixel, bool transform);
    void fillScaled(const unsigned char* buffer, size_t bytesPerPixel, bool transform);

    int _bufferWidth;
    int _bufferHeight;
    unsigned int _windowId;
    QImage _image;
    QString _text;
    bool _zooming = false;
    int _mouseX = 0;
    int _mouseY = 0;
    bool _repaintRequested = false;
    bool _frozen = false;
};
