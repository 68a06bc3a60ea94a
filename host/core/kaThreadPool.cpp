#include "kaThreadPool.h"

#include "kaLog.h"

#include <algorithm>
#include <chrono>
#include <exception>

kaThreadPool::kaThreadPool(int threads, bool (*callback)())
    : _callback(callback) {
    if (threads < 1)
        threads = int(std::max(1u, std::thread::hardware_concurrency()));
    _threads.reserve(size_t(threads));
    for (int i = 0; i < threads; ++i)
        _threads.emplace_back([this] { work(); });
}

kaThreadPool::~kaThreadPool() {
    wait();
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _stopping = true;
    }
    _jobAvailable.notify_all();
    for (std::thread& thread : _threads)
        thread.join();
}

void kaThreadPool::run(const std::function<void()>& job) {
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _queue.push_back(job);
        ++_pending;
    }
    _jobAvailable.notify_one();
}

unsigned int kaThreadPool::count() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _pending;
}

void kaThreadPool::wait() {
    std::unique_lock<std::mutex> lock(_mutex);
    bool callBack = _callback != nullptr;
    while (_pending != 0) {
        if (!callBack) {
            _allDone.wait(lock, [this] { return _pending == 0; });
            break;
        }
        _allDone.wait_for(lock, std::chrono::milliseconds(20), [this] { return _pending == 0; });
        if (_pending == 0)
            break;
        lock.unlock();
        callBack = _callback();
        lock.lock();
    }
}

void kaThreadPool::sleep(unsigned int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void kaThreadPool::work() {
    for (;;) {
        std::function<void()> job;
        {
            std::unique_lock<std::mutex> lock(_mutex);
            _jobAvailable.wait(lock, [this] { return _stopping || !_queue.empty(); });
            if (_queue.empty())
                return; // stopping, and nothing left to do
            job = std::move(_queue.front());
            _queue.pop_front();
        }
        try {
            job();
        } catch (const std::exception& e) {
            kaLog::error("kaThreadPool: A job failed: %s", e.what());
        } catch (...) {
            kaLog::error("kaThreadPool: A job failed with an unknown exception.");
        }
        // The job's captures go before it counts as finished, so that wait() returning means
        // every job has released what it held.
        job = nullptr;
        std::lock_guard<std::mutex> lock(_mutex);
        if (--_pending == 0)
            _allDone.notify_all();
    }
}
