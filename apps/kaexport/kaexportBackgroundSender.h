#pragma once

#include "kaImageOutStream.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace kaexport {

// Sends captures through a stream writer on a thread of its own, at most one behind, so that
// encoding and writing a capture overlap rendering the next. The image is copied when it is
// handed over: the exporter draws the next capture into the same one.
class BackgroundSender {
public:
    explicit BackgroundSender(kaImageOutStream::ImageWriteFunction send);
    ~BackgroundSender();
    BackgroundSender(const BackgroundSender&) = delete;
    BackgroundSender& operator=(const BackgroundSender&) = delete;

    // Waits for the capture before the last to be sent, then takes this one. False once a
    // send has failed (nothing more is sent).
    bool submit(const osg::ImagePtr& image, std::string name);
    // Waits until everything taken is sent; true when every send succeeded.
    bool finish();
    int sent() const;

private:
    void run();

    kaImageOutStream::ImageWriteFunction _send;
    mutable std::mutex _mutex;
    std::condition_variable _changed;
    osg::ImagePtr _pending;
    std::string _pendingName;
    bool _busy = false, _failed = false, _stopping = false;
    int _sent = 0;
    std::thread _thread;
};

} // namespace kaexport
