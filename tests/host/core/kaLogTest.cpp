#include "kaLog.h"

#include "kaTestSupport.h"

#include <gtest/gtest.h>

#include <thread>

TEST(kaLog, FormatsPrintfStyleAndReachesSinksWithTheLevel) {
    katest::LogCapture log;
    kaLog::info("a %d %s", 1, "b");
    kaLog::warning("w");
    kaLog::error("kaImageWriter: Couldn't save image '%s'!", "x.png");
    auto entries = log.entries();
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].level, kaLog::Info);
    EXPECT_EQ(entries[0].text, "a 1 b");
    EXPECT_EQ(entries[1].level, kaLog::Warning);
    EXPECT_EQ(entries[2].level, kaLog::Error);
    EXPECT_EQ(entries[2].text, "kaImageWriter: Couldn't save image 'x.png'!");
}

TEST(kaLog, WritesToStandardErrorWithTheLevel) {
    testing::internal::CaptureStderr();
    kaLog::warning("careful %d", 3);
    kaLog::error("ends in a line break\n");
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "WARNING: careful 3\nERROR: ends in a line break\n");
}

TEST(kaLog, RemovedSinkHearsNothing) {
    int calls = 0;
    int id = kaLog::addSink([&](kaLog::Level, const std::string&) { ++calls; });
    kaLog::info("one");
    kaLog::removeSink(id);
    kaLog::info("two");
    EXPECT_EQ(calls, 1);
}

TEST(kaLog, LongMessagesAreNotCut) {
    katest::LogCapture log;
    std::string longText(5000, 'x');
    kaLog::info("%s", longText.c_str());
    EXPECT_EQ(log.texts(kaLog::Info).at(0), longText);
}

TEST(kaLog, ManyThreadsLogWithoutLosingEntries) {
    katest::LogCapture log;
    kaLog::setStandardErrorEnabled(false);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 100; ++i)
                kaLog::info("thread %d line %d", t, i);
        });
    for (auto& thread : threads)
        thread.join();
    kaLog::setStandardErrorEnabled(true);
    EXPECT_EQ(log.entries().size(), 400u);
}
