#include "kaexportBackgroundSender.h"

namespace kaexport {

BackgroundSender::BackgroundSender(kaImageOutStream::ImageWriteFunction send)
    : _send(std::move(send))
    , _thread([this] { run(); }) {}

BackgroundSender::~BackgroundSender() {
    finish();
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _stopping = true;
    }
    _changed.notify_all();
    _thread.join();
}

bool BackgroundSender::submit(const osg::ImagePtr& image, std::string name) {
    osg::ImagePtr copy = image ? image->clone() : osg::ImagePtr();
    std::unique_lock<std::mutex> lock(_mutex);
    _changed.wait(lock, [this] { return !_pending || _failed; });
    if (_failed)
        return false;
    _pending = std::move(copy);
    _pendingName = std::move(name);
    lock.unlock();
    _changed.notify_all();
    return true;
}

bool BackgroundSender::finish() {
    std::unique_lock<std::mutex> lock(_mutex);
    _changed.wait(lock, [this] { return (!_pending && !_busy) || _failed; });
    return !_failed;
}

int BackgroundSender::sent() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _sent;
}

void BackgroundSender::run() {
    std::unique_lock<std::mutex> lock(_mutex);
    for (;;) {
        _changed.wait(lock, [this] { return _pending || _stopping; });
        if (!_pending)
            return;
        if (_failed) {
            // Nothing more goes out after a failed send.
            _pending = nullptr;
            _changed.notify_all();
            continue;
        }
        osg::ImagePtr image = std::move(_pending);
        _pending = nullptr;
        const std::string name = std::move(_pendingName);
        _busy = true;
        lock.unlock();
        _changed.notify_all();
        const bool ok = _send(image, name);
        lock.lock();
        _busy = false;
        if (ok)
            ++_sent;
        else
            _failed = true;
        _changed.notify_all();
    }
}

} // namespace kaexport
