#include "kaThreadPool.h"

#include "kaTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <set>

TEST(kaThreadPool, MinusOneMeansOneThreadPerHardwareThread) {
    kaThreadPool pool(-1);
    EXPECT_EQ(pool.getThreadCount(), int(std::max(1u, std::thread::hardware_concurrency())));
    kaThreadPool three(3);
    EXPECT_EQ(three.getThreadCount(), 3);
}

TEST(kaThreadPool, RunsEveryJobAndWaitBlocksUntilAllAreDone) {
    kaThreadPool pool(4);
    std::atomic<int> done{0};
    for (int i = 0; i < 100; ++i)
        pool.run([&] {
            kaThreadPool::sleep(1);
            ++done;
        });
    pool.wait();
    EXPECT_EQ(done.load(), 100);
    EXPECT_EQ(pool.count(), 0u);
}

TEST(kaThreadPool, JobsRunInParallel) {
    kaThreadPool pool(2);
    std::mutex mutex;
    std::set<std::thread::id> threads;
    std::atomic<int> running{0}, most{0};
    for (int i = 0; i < 4; ++i)
        pool.run([&] {
            int now = ++running;
            int seen = most.load();
            while (now > seen && !most.compare_exchange_weak(seen, now)) {
            }
            kaThreadPool::sleep(50);
            --running;
            std::lock_guard<std::mutex> lock(mutex);
            threads.insert(std::this_thread::get_id());
        });
    pool.wait();
    EXPECT_EQ(threads.size(), 2u);
    EXPECT_EQ(most.load(), 2);
}

TEST(kaThreadPool, CountSeesQueuedAndRunningJobs) {
    kaThreadPool pool(1);
    std::atomic<bool> release{false};
    pool.run([&] {
        while (!release)
            kaThreadPool::sleep(1);
    });
    pool.run([] {});
    EXPECT_EQ(pool.count(), 2u);
    release = true;
    pool.wait();
    EXPECT_EQ(pool.count(), 0u);
}

TEST(kaThreadPool, DestructionFinishesQueuedJobs) {
    std::atomic<int> done{0};
    {
        kaThreadPool pool(1);
        for (int i = 0; i < 10; ++i)
            pool.run([&] {
                kaThreadPool::sleep(2);
                ++done;
            });
    }
    EXPECT_EQ(done.load(), 10);
}

TEST(kaThreadPool, AThrowingJobIsLoggedAndTheOthersGoOn) {
    katest::LogCapture log;
    kaThreadPool pool(2);
    std::atomic<int> done{0};
    pool.run([] { throw std::runtime_error("disk full"); });
    pool.run([] { throw 42; });
    pool.run([&] { ++done; });
    pool.wait();
    EXPECT_EQ(done.load(), 1);
    EXPECT_TRUE(log.contains(kaLog::Error, "kaThreadPool: A job failed: disk full"));
    EXPECT_TRUE(
        log.contains(kaLog::Error, "kaThreadPool: A job failed with an unknown exception."));
}

namespace {
std::atomic<int> g_callbacks{0};
bool countingCallback() {
    ++g_callbacks;
    return true;
}
bool stopAfterOne() {
    ++g_callbacks;
    return false;
}
} // namespace

TEST(kaThreadPool, WaitCallsTheCallbackWhileJobsRemain) {
    g_callbacks = 0;
    kaThreadPool pool(1, countingCallback);
    pool.run([] { kaThreadPool::sleep(150); });
    pool.wait();
    EXPECT_GE(g_callbacks.load(), 3);

    g_callbacks = 0;
    kaThreadPool once(1, stopAfterOne);
    once.run([] { kaThreadPool::sleep(150); });
    once.wait();
    EXPECT_EQ(g_callbacks.load(), 1);
}

TEST(kaThreadPool, SleepPauses) {
    auto start = std::chrono::steady_clock::now();
    kaThreadPool::sleep(30);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}
