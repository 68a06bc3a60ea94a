#pragma once

// What the viewer's tests share: waiting for the GUI, answering the boxes a person would, and
// comparing the view's picture with a written file.

#include <QImage>
#include <QString>

#include <functional>
#include <memory>
#include <string>

class QTimer;
class QWidget;

namespace kaviewer {
class ExportDialog;
}

namespace kaviewertest {

// Runs the event loop until 'done' holds or 'timeoutMs' pass; whether it held.
bool waitUntil(const std::function<bool()>& done, int timeoutMs = 20000);

// Clicks the button 'button' ("Yes", "No") of the next message box that appears, as a person
// would; remembers the box's text.
class BoxAnswerer {
public:
    explicit BoxAnswerer(const QString& button);
    ~BoxAnswerer();
    bool answered() const { return !_text.isEmpty(); }
    const QString& text() const { return _text; }

private:
    std::unique_ptr<QTimer> _poll;
    QString _text;
};

// The largest difference, in 8-bit codes, between the picture's colours and the file's (read
// with OpenImageIO); -1 when the file can't be read or the sizes differ.
int largestDifference(const QImage& picture, const QString& file);

// Calls 'act' once with the export dialog when it is the visible modal window.
class ExportDialogWatcher {
public:
    explicit ExportDialogWatcher(std::function<void(kaviewer::ExportDialog&)> act);
    ~ExportDialogWatcher();
    bool seen() const { return _seen; }

private:
    std::unique_ptr<QTimer> _poll;
    bool _seen = false;
};

// Clicks the Abort button of the library's render dialog once it shows, after 'seen' had the
// dialog (for a screenshot, say).
class RenderAborter {
public:
    explicit RenderAborter(std::function<void(QWidget&)> seen = {});
    ~RenderAborter();
    bool clicked() const { return _clicked; }

private:
    std::unique_ptr<QTimer> _poll;
    bool _clicked = false;
};

// Activates 'window' and presses Ctrl+Shift+'key' there, as a person opens an export's
// dialog from the Export menu; when the dialog shows, 'fill' sets it up (it may take a
// screenshot) and its Export button is clicked. Whether the dialog showed.
bool exportThroughDialog(QWidget* window, int key,
                         const std::function<void(kaviewer::ExportDialog&)>& fill);
// Replaces the text of the line edit 'name' inside 'parent' by typing 'text'.
void typeInto(QWidget* parent, const char* name, const QString& text);

// How two pictures differ, in words ("the same" when they don't).
std::string pictureDifference(const QImage& a, const QImage& b);

// How many different colours the picture has, counting every 'step'-th pixel.
int colourCount(const QImage& picture, int step = 4);

} // namespace kaviewertest
