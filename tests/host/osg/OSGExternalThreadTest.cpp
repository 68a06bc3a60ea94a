#include "OSGExternalThread.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <thread>

TEST(ExternalThread, OneRecordPerNameWhileHandlesLive) {
    osg::ExternalThreadRefPtr a = osg::ExternalThread::get("imagewriter7");
    osg::ExternalThreadRefPtr b = osg::ExternalThread::get("imagewriter7");
    EXPECT_EQ(a.get(), b.get());
    EXPECT_EQ(a->getName(), "imagewriter7");
    EXPECT_NE(osg::ExternalThread::get("imagewriter8").get(), a.get());
    a = nullptr;
    EXPECT_TRUE(osg::ExternalThread::find("imagewriter7"));
    b = nullptr;
    EXPECT_FALSE(osg::ExternalThread::find("imagewriter7"));
}

TEST(ExternalThread, InitializeBindsAndNamesTheCallingThread) {
    std::thread worker([] {
        osg::ExternalThreadRefPtr record = osg::ExternalThread::get("imagewriter3");
        EXPECT_FALSE(record->isInitialized());
        EXPECT_FALSE(osg::ExternalThread::getCurrent());
        EXPECT_TRUE(record->initialize(0));
        EXPECT_TRUE(record->isInitialized());
        EXPECT_EQ(record->getAspect(), 0u);
        EXPECT_EQ(osg::ExternalThread::getCurrent().get(), record.get());
        char name[16] = {0};
        pthread_getname_np(pthread_self(), name, sizeof name);
        EXPECT_STREQ(name, "imagewriter3");
        record = nullptr;
        EXPECT_FALSE(osg::ExternalThread::getCurrent()) << "released with its last handle";
    });
    worker.join();
}

TEST(ExternalThread, ARecordBelongsToOneThread) {
    osg::ExternalThreadRefPtr record = osg::ExternalThread::get("imagewriter-shared");
    ASSERT_TRUE(record->initialize(0));
    bool second = true;
    std::thread other([&] { second = record->initialize(0); });
    other.join();
    EXPECT_FALSE(second);
    EXPECT_TRUE(record->initialize(0)) << "the owner may initialise again";
}
