// The cluster preview: what it reads from a real cluster window's buffer and how it draws it,
// scaled, mirrored and zoomed 1:1 under the mouse, checked pixel by pixel on the widget's own
// image and on what the widget actually paints.
#include "kaImageViewer.h"

#include "kaClusterWindowPattern.h"

#include "kaDisplayTransform_p.h"

#include "OSGNetWindow.h"
#include "kaImagePostprocessor.h"

#include <QApplication>
#include <QMouseEvent>
#include <QPixmap>
#include <QTest>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <ostream>
#include <string>

namespace {

constexpr QRgb kGrey = 0xFF646464;

using katest::byteWindow;
using katest::patternPixel;

// The image's pixel as stored (alpha byte included).
QRgb stored(const QImage& image, int x, int y) {
    return reinterpret_cast<const QRgb*>(image.constScanLine(y))[x];
}

// What the widget paints, as opaque RGB.
QImage painted(QWidget& widget) {
    return widget.grab().toImage().convertToFormat(QImage::Format_RGB32);
}

QRgb rgbOf(QRgb pixel) {
    return pixel | 0xFF000000u;
}

// Sends a move with the left button held (QTest moves the cursor instead, which the offscreen
// platform does not turn into widget events).
void dragTo(QWidget& widget, QPoint pos) {
    QMouseEvent move(QEvent::MouseMove, pos, widget.mapToGlobal(pos), Qt::NoButton, Qt::LeftButton,
                     Qt::NoModifier);
    QApplication::sendEvent(&widget, &move);
}

struct Viewer {
    Viewer(const osg::NetWindowPtr& window, int bufferWidth, int bufferHeight, int width,
           int height)
        : widget(nullptr, bufferWidth, bufferHeight, window ? window->getId() : 0u) {
        widget.resize(width, height);
        widget.show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(&widget));
    }
    kaImageViewer widget;
};

} // namespace

TEST(kaImageViewer, IsNamedSnapshotWithACrossCursorAndStartsIdle) {
    kaImageViewer viewer(nullptr, 64, 48, 0);
    EXPECT_EQ(viewer.objectName(), "Snapshot");
    EXPECT_EQ(viewer.cursor().shape(), Qt::CrossCursor);
    EXPECT_FALSE(viewer.isZooming());
    EXPECT_FALSE(viewer.isRepaintRequested());
    EXPECT_FALSE(viewer.isFrozen());
    EXPECT_TRUE(viewer.getText().isEmpty());
    EXPECT_TRUE(viewer.getImage().isNull());
}

// Buffer size x widget size: shrinking, growing, odd ratios, and a widget of the buffer's size.
struct ScaleCase {
    int bufferWidth, bufferHeight, width, height;
};

void PrintTo(const ScaleCase& c, std::ostream* os) {
    *os << c.bufferWidth << "x" << c.bufferHeight << " in " << c.width << "x" << c.height;
}

class kaImageViewerScaling : public testing::TestWithParam<ScaleCase> {};

TEST_P(kaImageViewerScaling, ScalesByNearestNeighbourMirroredAndCentredOnBlack) {
    const ScaleCase c = GetParam();
    osg::NetWindowPtr window = byteWindow(c.bufferWidth, c.bufferHeight);
    Viewer v(window, c.bufferWidth, c.bufferHeight, c.width, c.height);
    const QImage screen = painted(v.widget);
    const QImage& image = v.widget.getImage();

    const QSize expected =
        QSize(c.bufferWidth, c.bufferHeight).scaled(QSize(c.width, c.height), Qt::KeepAspectRatio);
    ASSERT_EQ(image.size(), expected);
    EXPECT_EQ(image.format(), QImage::Format_RGB32);
    const int w = image.width(), h = image.height();
    const int left = (c.width - w) / 2, top = (c.height - h) / 2;
    int wrong = 0;
    for (int r = 0; r < h; ++r) {
        // Image row r shows buffer row counted from the bottom: the mirror.
        const int sourceRow = int((int64_t(h - 1 - r) * c.bufferHeight) / h);
        for (int i = 0; i < w; ++i) {
            const int sourceColumn = int((int64_t(i) * c.bufferWidth) / w);
            const QRgb want = patternPixel(sourceColumn, sourceRow);
            if (stored(image, i, r) != want || screen.pixel(left + i, top + r) != rgbOf(want))
                if (++wrong <= 5)
                    ADD_FAILURE() << "pixel (" << i << ", " << r << ") should be buffer ("
                                  << sourceColumn << ", " << sourceRow << ")";
        }
    }
    EXPECT_EQ(wrong, 0);
    // The bands around the image are opaque black.
    int notBlack = 0;
    for (int y = 0; y < c.height; ++y)
        for (int x = 0; x < c.width; ++x)
            if (!QRect(left, top, w, h).contains(x, y) && screen.pixel(x, y) != 0xFF000000u)
                ++notBlack;
    EXPECT_EQ(notBlack, 0);
}

std::string scaleCaseName(const testing::TestParamInfo<ScaleCase>& info) {
    const ScaleCase& c = info.param;
    return "Buffer" + std::to_string(c.bufferWidth) + "x" + std::to_string(c.bufferHeight) +
           "InWidget" + std::to_string(c.width) + "x" + std::to_string(c.height);
}

INSTANTIATE_TEST_SUITE_P(BufferAndWidgetSizes, kaImageViewerScaling,
                         testing::Values(ScaleCase{37, 23, 25, 25}, ScaleCase{7, 5, 70, 64},
                                         ScaleCase{640, 480, 333, 333},
                                         ScaleCase{100, 300, 120, 80}, ScaleCase{64, 48, 64, 48},
                                         ScaleCase{1001, 30, 97, 40}),
                         scaleCaseName);

TEST(kaImageViewer, CopiesByteBufferPixelsAsARGB) {
    osg::NetWindowPtr window = byteWindow(4, 2);
    uint8_t* p = window->getBuffer();
    const uint8_t first[4] = {0x11, 0x22, 0x33, 0x44};
    std::memcpy(p, first, 4);
    Viewer v(window, 4, 2, 4, 2);
    painted(v.widget);
    // Buffer (0, 0) is the bottom-left pixel: the image's last row.
    EXPECT_EQ(stored(v.widget.getImage(), 0, 1), 0x44112233u);
}

TEST(kaImageViewer, ImageOperationsOnAByteBufferStillCopyThePixels) {
    osg::NetWindowPtr window = byteWindow(8, 6);
    window->setImageOps(osg::NetWindow::ImageOpQuantize8 | osg::NetWindow::ImageOpBottomUp);
    ASSERT_EQ(window->getBytesPerPixel(), 4u);
    Viewer v(window, 8, 6, 8, 6);
    painted(v.widget);
    EXPECT_EQ(stored(v.widget.getImage(), 3, 0), patternPixel(3, 5));
}

TEST(kaImageViewer, FloatBufferWithImageOperationsGoesThroughTheDisplayTransform) {
    kaImagePostprocessor* post = kaImagePostprocessor::getImagePostprocessor();
    const int savedMode = post->getMode();
    post->setMode(1);
    kaDisplayTransform::forgetProfiles();

    const int width = 16, height = 8;
    osg::NetWindowPtr window = osg::NetWindow::create();
    window->setSize(width, height);
    window->setImageOps(osg::NetWindow::ImageOpFloat | osg::NetWindow::ImageOpQuantize8);
    window->setRenderPasses(1);
    window->setSnapshot(true);
    window->prepareBuffer();
    ASSERT_EQ(window->getBytesPerPixel(), 16u);
    auto* data = reinterpret_cast<float*>(window->getBuffer());
    const float alphas[] = {1.0f, 0.5f, 2.0f, -1.0f, std::numeric_limits<float>::quiet_NaN()};
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            float* px = data + (size_t(y) * width + x) * 4;
            px[0] = float(x) / float(width - 1);
            px[1] = float(y) / float(height - 1) * 1.5f;
            px[2] = 0.2f;
            px[3] = alphas[(x + y) % 5];
        }

    Viewer v(window, width, height, width, height);
    painted(v.widget);
    const QImage& image = v.widget.getImage();
    ASSERT_EQ(image.size(), QSize(width, height));
    int wrong = 0, transformed = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const float* px = data + (size_t(y) * width + x) * 4;
            unsigned char rgb[3];
            kaDisplayTransform::quantizePixel(px, x, y, 2, rgb);
            const float a = px[3];
            const int alpha = a > 0.0f ? int(std::min(a, 1.0f) * 255.0f) : 0;
            const QRgb want = qRgba(rgb[0], rgb[1], rgb[2], alpha);
            if (stored(image, x, height - 1 - y) != want)
                ++wrong;
            unsigned char plain[3];
            kaDisplayTransform::quantizePixel(px, x, y, 0, plain);
            if (plain[2] != rgb[2])
                ++transformed;
        }
    post->setMode(savedMode);
    kaDisplayTransform::forgetProfiles();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(transformed, width * height) << "linear 0.2 must not display as 0.2 * 256";
    EXPECT_EQ(qAlpha(stored(image, 0, height - 1)), 255) << "alpha 1";
    EXPECT_EQ(qAlpha(stored(image, 1, height - 1)), 127) << "alpha 0.5";
    EXPECT_EQ(qAlpha(stored(image, 2, height - 1)), 255) << "alpha 2 clamps";
    EXPECT_EQ(qAlpha(stored(image, 3, height - 1)), 0) << "alpha -1 clamps";
    EXPECT_EQ(qAlpha(stored(image, 4, height - 1)), 0) << "NaN alpha";
}

TEST(kaImageViewer, BufferOfAnotherSizeShowsBlack) {
    osg::NetWindowPtr window = byteWindow(80, 60);
    Viewer v(window, 40, 30, 40, 30);
    const QImage screen = painted(v.widget);
    const QImage& image = v.widget.getImage();
    ASSERT_EQ(image.size(), QSize(40, 30));
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 40; ++x) {
            ASSERT_EQ(image.pixel(x, y), qRgb(0, 0, 0));
            ASSERT_EQ(screen.pixel(x, y), 0xFF000000u);
        }
}

TEST(kaImageViewer, WindowOutOfSnapshotStateOrWithoutBufferShowsBlack) {
    osg::NetWindowPtr window = byteWindow(40, 30);
    Viewer v(window, 40, 30, 40, 30);
    painted(v.widget);
    ASSERT_EQ(stored(v.widget.getImage(), 5, 5), patternPixel(5, 24));

    window->setSnapshot(false);
    painted(v.widget);
    EXPECT_EQ(v.widget.getImage().pixel(5, 5), qRgb(0, 0, 0));

    window = byteWindow(40, 30);
    Viewer fresh(window, 40, 30, 40, 30);
    painted(fresh.widget);
    ASSERT_EQ(stored(fresh.widget.getImage(), 5, 5), patternPixel(5, 24));
    window->clearBuffer();
    painted(fresh.widget);
    EXPECT_EQ(fresh.widget.getImage().pixel(5, 5), qRgb(0, 0, 0));
}

TEST(kaImageViewer, KeepsItsLastPictureWhenTheWindowIsGoneOrNotANetWindow) {
    osg::NetWindowPtr window = byteWindow(40, 30);
    Viewer v(window, 40, 30, 40, 30);
    painted(v.widget);
    const QImage before = v.widget.getImage().copy();
    window = nullptr; // the last reference: the window is deleted
    const QImage screen = painted(v.widget);
    EXPECT_EQ(v.widget.getImage(), before);
    EXPECT_EQ(screen.pixel(7, 3), rgbOf(patternPixel(7, 26)));

    osg::WindowPtr plain = osg::Window::create();
    Viewer other(nullptr, 40, 30, 40, 30);
    kaImageViewer notNet(nullptr, 40, 30, plain->getId());
    notNet.resize(40, 30);
    const QImage black = painted(notNet);
    EXPECT_TRUE(notNet.getImage().isNull());
    EXPECT_EQ(black.pixel(20, 15), 0xFF000000u) << "no image: all bands";
    painted(other.widget);
    EXPECT_TRUE(other.widget.getImage().isNull()) << "window id 0";
}

TEST(kaImageViewer, LeftPressAtTheCentreShowsTheCentralPixelsOneToOne) {
    osg::NetWindowPtr window = byteWindow(4000, 3000);
    Viewer v(window, 4000, 3000, 400, 300);
    QTest::mousePress(&v.widget, Qt::LeftButton, Qt::NoModifier, QPoint(200, 150));
    EXPECT_TRUE(v.widget.isZooming());
    EXPECT_TRUE(v.widget.isRepaintRequested());
    const QImage screen = painted(v.widget);
    const QImage& image = v.widget.getImage();
    ASSERT_EQ(image.size(), QSize(400, 300));
    int wrong = 0;
    // The central 400 x 300 of the buffer: columns 1800..2199, rows 1350..1649 (bottom-up).
    for (int r = 0; r < 300; ++r)
        for (int i = 0; i < 400; ++i) {
            const QRgb want = patternPixel(1800 + i, 1350 + (299 - r));
            if (stored(image, i, r) != want || screen.pixel(i, r) != rgbOf(want))
                ++wrong;
        }
    EXPECT_EQ(wrong, 0);
    QTest::mouseRelease(&v.widget, Qt::LeftButton, Qt::NoModifier, QPoint(200, 150));
}

TEST(kaImageViewer, ZoomNearACornerShowsGreyWhereTheCropLeavesTheBuffer) {
    osg::NetWindowPtr window = byteWindow(4000, 3000);
    Viewer v(window, 4000, 3000, 400, 300);

    // Top-left corner: buffer point (0, 3000), crop columns -200..199, rows 2850..3149. Sent
    // by hand: QTest takes the point (0, 0) for "the widget's centre".
    QMouseEvent press(QEvent::MouseButtonPress, QPointF(0, 0), v.widget.mapToGlobal(QPoint(0, 0)),
                      Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&v.widget, &press);
    ASSERT_TRUE(v.widget.isZooming());
    QImage image = v.widget.getImage().copy();
    QImage screen = painted(v.widget);
    int wrong = 0;
    for (int r = 0; r < 300; ++r)
        for (int i = 0; i < 400; ++i) {
            const int column = -200 + i, row = 2850 + (299 - r);
            const bool outside = column < 1 || row >= 3000;
            const QRgb want = outside ? kGrey : patternPixel(column, row);
            if (stored(image, i, r) != want || screen.pixel(i, r) != rgbOf(want))
                ++wrong;
        }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(stored(image, 200, 299), kGrey) << "column 0 counts as outside";
    EXPECT_EQ(stored(image, 201, 299), patternPixel(1, 2850));
    EXPECT_EQ(stored(image, 201, 149), kGrey) << "row 3000 is outside";
    EXPECT_EQ(stored(image, 201, 150), patternPixel(1, 2999));
    QTest::mouseRelease(&v.widget, Qt::LeftButton, Qt::NoModifier, QPoint(1, 1));

    // Bottom-left: buffer point (0, 10), rows -140..159: row 0 is grey too.
    QTest::mousePress(&v.widget, Qt::LeftButton, Qt::NoModifier, QPoint(0, 299));
    image = v.widget.getImage().copy();
    EXPECT_EQ(stored(image, 250, 299 - 140), kGrey) << "row 0 counts as outside";
    EXPECT_EQ(stored(image, 250, 299 - 141), patternPixel(50, 1));
    EXPECT_EQ(stored(image, 250, 0), patternPixel(50, 159));
    QTest::mouseRelease(&v.widget, Qt::LeftButton, Qt::NoModifier, QPoint(0, 299));

    // Bottom-right: buffer point (4000, 10): column 4000 on is grey.
    QTest::mousePress(&v.widget, Qt::LeftButton, Qt::NoModifier, QPoint(400, 299));
    image = v.widget.getImage().copy();
    EXPECT_EQ(stored(image, 199, 0), patternPixel(3999, 159));
    EXPECT_EQ(stored(image, 200, 0), kGrey);
}

TEST(kaImageViewer, ZoomFollowsTheMouseInALetterboxedWidget) {
    // 4000 x 3000 in 500 x 300: the image is 400 x 300 with 50-pixel bands left and right.
    osg::NetWindowPtr window = byteWindow(4000, 3000);
    Viewer v(window, 4000, 3000, 500, 300);
    QTest::mousePress(&v.widget, Qt::LeftButton, Qt::NoModifier, QPoint(250, 150));
    EXPECT_EQ(stored(v.widget.getImage(), 0, 299), patternPixel(1800, 1350));
    dragTo(v.widget, QPoint(260, 140));
    EXPECT_TRUE(v.widget.isZooming());
    // (260 - 50) * 10 = 2100, (300 - 140) * 10 = 1600: crop from (1900, 1450).
    EXPECT_EQ(stored(v.widget.getImage(), 0, 299), patternPixel(1900, 1450));
    EXPECT_EQ(stored(v.widget.getImage(), 399, 0), patternPixel(2299, 1749));
    const QImage screen = painted(v.widget);
    EXPECT_EQ(screen.pixel(50, 299), rgbOf(patternPixel(1900, 1450)));
    EXPECT_EQ(screen.pixel(49, 299), 0xFF000000u);
    EXPECT_EQ(screen.pixel(450, 0), 0xFF000000u);
}

TEST(kaImageViewer, ReleaseEndsTheZoomAndEveryMouseEventRequestsARepaint) {
    osg::NetWindowPtr window = byteWindow(400, 300);
    Viewer v(window, 400, 300, 200, 150);
    painted(v.widget);
    const QImage scaled = v.widget.getImage().copy();
    QTest::mousePress(&v.widget, Qt::LeftButton, Qt::NoModifier, QPoint(100, 75));
    EXPECT_NE(v.widget.getImage(), scaled);
    QTest::mouseRelease(&v.widget, Qt::LeftButton, Qt::NoModifier, QPoint(100, 75));
    EXPECT_FALSE(v.widget.isZooming());
    EXPECT_TRUE(v.widget.isRepaintRequested());
    EXPECT_EQ(v.widget.getImage(), scaled);

    kaImageViewer moved(nullptr, 400, 300, window->getId());
    moved.resize(200, 150);
    dragTo(moved, QPoint(3, 4));
    EXPECT_TRUE(moved.isRepaintRequested());
    EXPECT_FALSE(moved.isZooming()) << "a move alone does not zoom";
}

TEST(kaImageViewer, RightPressDoesNotZoomButRequestsARepaint) {
    osg::NetWindowPtr window = byteWindow(400, 300);
    Viewer v(window, 400, 300, 200, 150);
    painted(v.widget);
    const QImage scaled = v.widget.getImage().copy();
    QTest::mousePress(&v.widget, Qt::RightButton, Qt::NoModifier, QPoint(100, 75));
    EXPECT_FALSE(v.widget.isZooming());
    EXPECT_TRUE(v.widget.isRepaintRequested());
    EXPECT_EQ(v.widget.getImage(), scaled);
    QTest::mouseRelease(&v.widget, Qt::RightButton, Qt::NoModifier, QPoint(100, 75));
}
