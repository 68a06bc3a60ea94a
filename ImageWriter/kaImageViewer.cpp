#include "kaImageViewer.h"

#include "kaDisplayTransform_p.h"

#include "OSGFieldContainer.h"
#include "OSGNetWindow.h"

#include <QMouseEvent>
#include <QPainter>

#include <cstring>

namespace {

// Where a zoomed crop leaves the buffer.
constexpr QRgb kOutsideGrey = 0xFF646464;

// Buffer pixel (x, y) (row y counted from the bottom) as a QImage pixel.
//
// Float buffers carry scene-linear light. They go through quantizePixel with flags 2 (display
// transform on) and so with the postprocessor's own gamma, colour space and dithering: the
// preview shows what the 8-bit file of the export will hold, not the raw linear values, which
// would look far too dark. The dither is anchored to the buffer's coordinates so that a pixel
// keeps its value between the scaled and the 1:1 view.
inline QRgb toPixel(const unsigned char* pixel, bool transform, int x, int y) {
    if (!transform)
        return qRgba(pixel[0], pixel[1], pixel[2], pixel[3]);
    float value[4];
    std::memcpy(value, pixel, sizeof(value));
    unsigned char rgb[3];
    kaDisplayTransform::quantizePixel(value, x, y, 2, rgb);
    // Written so that a NaN alpha becomes 0.
    const float alpha = value[3] > 0.0f ? (value[3] < 1.0f ? value[3] : 1.0f) : 0.0f;
    return qRgba(rgb[0], rgb[1], rgb[2], int(alpha * 255.0f));
}

} // namespace

kaImageViewer::kaImageViewer(QWidget* parent, int bufferWidth, int bufferHeight,
                             unsigned int windowId)
    : QWidget(parent)
    , _bufferWidth(bufferWidth)
    , _bufferHeight(bufferHeight)
    , _windowId(windowId) {
    setObjectName("Snapshot");
    setCursor(Qt::CrossCursor);
    // Every paint covers the whole widget (bands and image). Being opaque also keeps Qt from
    // compositing the image onto a transparent surface, where the buffer's alpha byte, which
    // rides along in the RGB32 image, would be taken for real transparency.
    setAttribute(Qt::WA_OpaquePaintEvent);
}

kaImageViewer::~kaImageViewer() = default;

void kaImageViewer::refresh() {
    if (_frozen)
        return;
    const osg::FieldContainerPtr container =
        osg::FieldContainerFactory::the().getContainer(_windowId);
    auto* window = dynamic_cast<osg::NetWindow*>(container.get());
    if (!window)
        return;

    const QSize target = QSize(_bufferWidth, _bufferHeight).scaled(size(), Qt::KeepAspectRatio);
    if (_image.size() != target) {
        _image = QImage(target, QImage::Format_RGB32);
        _image.fill(0);
    }
    if (_image.isNull())
        return;

    const unsigned char* buffer = window->getBuffer();
    if (!buffer || !window->getSnapshot() || window->getBufferWidth() != _bufferWidth ||
        window->getBufferHeight() != _bufferHeight) {
        _image.fill(0);
        return;
    }
    // The beauty slot comes first. Only float pixels can go through the display transform; a
    // byte buffer is already display-ready whatever the operations say.
    const size_t bytesPerPixel = window->getBytesPerPixel();
    const bool transform = window->getImageOps() != 0 && bytesPerPixel == 4 * sizeof(float);
    if (_zooming)
        fillZoomed(buffer, bytesPerPixel, transform);
    else
        fillScaled(buffer, bytesPerPixel, transform);
}

// The buffer is bottom-up and the image top-down: both fills write their j-th row from the
// bottom into image row h - 1 - j, the vertical mirror done while copying.
void kaImageViewer::fillZoomed(const unsigned char* buffer, size_t bytesPerPixel, bool transform) {
    const int w = _image.width(), h = _image.height();
    const int W = width(), H = height();
    const int centreX = int(float(_mouseX - (W - w) / 2) * (float(_bufferWidth) / float(w)));
    const int centreY = int(float((H - _mouseY) - (H - h) / 2) * (float(_bufferHeight) / float(h)));
    const int left = centreX - w / 2, bottom = centreY - h / 2;
    for (int j = 0; j < h; ++j) {
        const int row = bottom + j;
        auto* out = reinterpret_cast<QRgb*>(_image.scanLine(h - 1 - j));
        for (int i = 0; i < w; ++i) {
            const int column = left + i;
            // Column 0 and row 0 are drawn grey too. The preview has always done so, and it is
            // kept on purpose: do not "fix" the bounds to >= 0.
            if (column < 1 || row < 1 || column >= _bufferWidth || row >= _bufferHeight) {
                out[i] = kOutsideGrey;
                continue;
            }
            const size_t offset = (size_t(row) * size_t(_bufferWidth) + size_t(column));
            out[i] = toPixel(buffer + offset * bytesPerPixel, transform, column, row);
        }
    }
}

// Nearest neighbour with integer steps: source = floor(target * bufferSize / imageSize), kept
// as quotient and remainder so that no rounding of a float step can pick the wrong row at the
// far edge of a large buffer.
void kaImageViewer::fillScaled(const unsigned char* buffer, size_t bytesPerPixel, bool transform) {
    const int w = _image.width(), h = _image.height();
    const int stepX = _bufferWidth / w, restX = _bufferWidth % w;
    const int stepY = _bufferHeight / h, restY = _bufferHeight % h;
    const size_t rowBytes = size_t(_bufferWidth) * bytesPerPixel;
    int row = 0, errorY = 0, previousRow = -1;
    for (int j = 0; j < h; ++j) {
        auto* out = reinterpret_cast<QRgb*>(_image.scanLine(h - 1 - j));
        if (row == previousRow) {
            std::memcpy(out, _image.constScanLine(h - j), size_t(w) * sizeof(QRgb));
        } else {
            const unsigned char* line = buffer + size_t(row) * rowBytes;
            int column = 0, errorX = 0;
            for (int i = 0; i < w; ++i) {
                out[i] = toPixel(line + size_t(column) * bytesPerPixel, transform, column, row);
                column += stepX;
                errorX += restX;
                if (errorX >= w) {
                    errorX -= w;
                    ++column;
                }
            }
        }
        previousRow = row;
        row += stepY;
        errorY += restY;
        if (errorY >= h) {
            errorY -= h;
            ++row;
        }
    }
}

void kaImageViewer::paintEvent(QPaintEvent*) {
    refresh();
    QPainter painter(this);
    const int W = width(), H = height();
    const int w = _image.width(), h = _image.height();
    const int x = (W - w) / 2, y = (H - h) / 2;
    // A frozen image may be larger than the widget has become: skip the bands that vanish.
    auto band = [&painter](int left, int top, int bandWidth, int bandHeight) {
        if (bandWidth > 0 && bandHeight > 0)
            painter.fillRect(left, top, bandWidth, bandHeight, QColor(0, 0, 0));
    };
    band(0, 0, W, y);
    band(0, y + h, W, H - y - h);
    band(0, y, x, h);
    band(x + w, y, W - x - w, h);
    if (!_image.isNull())
        painter.drawImage(x, y, _image);

    if (!_text.isEmpty()) {
        const QRect area = _image.isNull() ? rect() : QRect(x, y, w, h);
        painter.fillRect(painter.boundingRect(area, Qt::AlignCenter, _text), QColor(0, 0, 0));
        painter.setPen(QColor(255, 255, 255));
        painter.drawText(area, Qt::AlignCenter, _text);
    }
}

void kaImageViewer::mousePressEvent(QMouseEvent* event) {
    _zooming = (event->buttons() & Qt::LeftButton) != 0;
    _mouseX = event->x();
    _mouseY = event->y();
    repaint();
    _repaintRequested = true;
}

void kaImageViewer::mouseMoveEvent(QMouseEvent* event) {
    _mouseX = event->x();
    _mouseY = event->y();
    repaint();
    _repaintRequested = true;
}

void kaImageViewer::mouseReleaseEvent(QMouseEvent*) {
    _zooming = false;
    _mouseX = 0;
    _mouseY = 0;
    repaint();
    _repaintRequested = true;
}
