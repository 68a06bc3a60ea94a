#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

// A fixed set of worker threads that run queued jobs in the order given.
// run(), count() and wait() may be called from any thread but wait() never from a job.
// The destructor lets every queued job finish, then joins the threads.
class kaThreadPool {
public:
    // threads < 1 means one thread per hardware thread of the machine. 'callback', when given,
    // is called by wait() on the waiting thread about every 20 ms while jobs remain (to keep a
    // GUI alive); once it returns false it is not called again during that wait.
    explicit kaThreadPool(int threads = -1, bool (*callback)() = nullptr);
    ~kaThreadPool();
    kaThreadPool(const kaThreadPool&) = delete;
    kaThreadPool& operator=(const kaThreadPool&) = delete;

    // Queues a job. A job that throws is logged and counts as finished.
    void run(const std::function<void()>& job);
    // Jobs queued or running.
    unsigned int count() const;
    // Blocks until no job is queued or running.
    void wait();
    int getThreadCount() const { return int(_threads.size()); }

    // Pauses the calling thread for 'milliseconds'.
    static void sleep(unsigned int milliseconds);

private:
    void work();

    mutable std::mutex _mutex;
    std::condition_variable _jobAvailable;
    std::condition_variable _allDone;
    std::deque<std::function<void()>> _queue;
    unsigned int _pending = 0;
    bool _stopping = false;
    bool (*_callback)();
    std::vector<std::thread> _threads;
};
