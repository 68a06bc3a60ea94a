#include "kaviewerTestSupport.h"

#include "kaviewerExportDialog.h"

#include <OpenImageIO/imageio.h>

#include <QAbstractButton>
#include <QApplication>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QSet>
#include <QTimer>
#include <QtTest/QTest>

#include <algorithm>
#include <cmath>
#include <vector>

namespace kaviewertest {

bool waitUntil(const std::function<bool()>& done, int timeoutMs) {
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        if (clock.elapsed() > timeoutMs)
            return false;
        QApplication::processEvents(QEventLoop::AllEvents, 20);
        QTest::qWait(10);
    }
    return true;
}

BoxAnswerer::BoxAnswerer(const QString& button)
    : _poll(std::make_unique<QTimer>()) {
    _poll->setInterval(50);
    QObject::connect(_poll.get(), &QTimer::timeout, [this, button] {
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            auto* box = qobject_cast<QMessageBox*>(widget);
            if (!box || !box->isVisible())
                continue;
            for (QAbstractButton* b : box->buttons()) {
                if (b->text().remove('&') == button) {
                    _text = box->text();
                    _poll->stop();
                    QTest::mouseClick(b, Qt::LeftButton);
                    return;
                }
            }
        }
    });
    _poll->start();
}

BoxAnswerer::~BoxAnswerer() = default;

ExportDialogWatcher::ExportDialogWatcher(std::function<void(kaviewer::ExportDialog&)> act)
    : _poll(std::make_unique<QTimer>()) {
    _poll->setInterval(50);
    QObject::connect(_poll.get(), &QTimer::timeout, [this, act] {
        auto* dialog = qobject_cast<kaviewer::ExportDialog*>(QApplication::activeModalWidget());
        if (!dialog || !dialog->isVisible())
            return;
        _poll->stop();
        _seen = true;
        act(*dialog);
    });
    _poll->start();
}

ExportDialogWatcher::~ExportDialogWatcher() = default;

RenderAborter::RenderAborter(std::function<void(QWidget&)> seen)
    : _poll(std::make_unique<QTimer>()) {
    _poll->setInterval(50);
    QObject::connect(_poll.get(), &QTimer::timeout, [this, seen] {
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            if (widget->objectName() != "ImageRenderWidget" || !widget->isVisible())
                continue;
            _poll->stop();
            if (seen)
                seen(*widget);
            for (QPushButton* button : widget->findChildren<QPushButton*>())
                if (button->text() == "Abort") {
                    _clicked = true;
                    QTest::mouseClick(button, Qt::LeftButton);
                }
            return;
        }
    });
    _poll->start();
}

RenderAborter::~RenderAborter() = default;

bool exportThroughDialog(QWidget* window, int key,
                         const std::function<void(kaviewer::ExportDialog&)>& fill) {
    window->activateWindow();
    if (!QTest::qWaitForWindowActive(window))
        return false;
    ExportDialogWatcher watcher([&](kaviewer::ExportDialog& dialog) {
        fill(dialog);
        QTest::mouseClick(dialog.findChild<QPushButton*>("export"), Qt::LeftButton);
    });
    QTest::keyClick(window, Qt::Key(key), Qt::ControlModifier | Qt::ShiftModifier);
    return watcher.seen();
}

void typeInto(QWidget* parent, const char* name, const QString& text) {
    auto* line = parent->findChild<QLineEdit*>(name);
    line->selectAll();
    QTest::keyClicks(line, text);
}

int largestDifference(const QImage& picture, const QString& file) {
    auto in = OIIO::ImageInput::open(file.toStdString());
    if (!in)
        return -1;
    const OIIO::ImageSpec spec = in->spec();
    if (spec.width != picture.width() || spec.height != picture.height() || spec.nchannels < 3)
        return -1;
    std::vector<uint8_t> pixels(size_t(spec.width) * size_t(spec.height) * size_t(spec.nchannels));
    if (!in->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::UINT8, pixels.data()))
        return -1;
    int largest = 0;
    for (int y = 0; y < spec.height; ++y)
        for (int x = 0; x < spec.width; ++x) {
            const uint8_t* p =
                pixels.data() + (size_t(y) * size_t(spec.width) + size_t(x)) * spec.nchannels;
            const QRgb q = picture.pixel(x, y);
            largest = std::max({largest, std::abs(int(p[0]) - qRed(q)),
                                std::abs(int(p[1]) - qGreen(q)), std::abs(int(p[2]) - qBlue(q))});
        }
    return largest;
}

std::string pictureDifference(const QImage& a, const QImage& b) {
    if (a.size() != b.size())
        return "sizes " + std::to_string(a.width()) + "x" + std::to_string(a.height()) + " and " +
               std::to_string(b.width()) + "x" + std::to_string(b.height());
    int count = 0, largest = 0;
    QRect where;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x) {
            const QRgb p = a.pixel(x, y), q = b.pixel(x, y);
            const int d = std::max({std::abs(qRed(p) - qRed(q)), std::abs(qGreen(p) - qGreen(q)),
                                    std::abs(qBlue(p) - qBlue(q))});
            if (d == 0)
                continue;
            ++count;
            largest = std::max(largest, d);
            where |= QRect(x, y, 1, 1);
        }
    if (count == 0)
        return "the same";
    return std::to_string(count) + " pixels differ by up to " + std::to_string(largest) +
           " codes, within x " + std::to_string(where.left()) + ".." +
           std::to_string(where.right()) + ", y " + std::to_string(where.top()) + ".." +
           std::to_string(where.bottom());
}

int colourCount(const QImage& picture, int step) {
    QSet<QRgb> colours;
    for (int y = 0; y < picture.height(); y += step)
        for (int x = 0; x < picture.width(); x += step)
            colours.insert(picture.pixel(x, y) & 0xFFFFFF);
    return colours.size();
}

} // namespace kaviewertest
