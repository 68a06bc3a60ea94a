#include "OSGFieldContainer.h"
#include "OSGImage.h"

#include <gtest/gtest.h>

#include <thread>

TEST(FieldContainer, HandlesCountReferencesAndTheLastOneDeletes) {
    osg::ImagePtr a = osg::Image::create();
    const uint32_t id = a->getId();
    EXPECT_EQ(a->getRefCount(), 1);
    {
        osg::ImagePtr b = a;
        EXPECT_EQ(a->getRefCount(), 2);
    }
    EXPECT_EQ(a->getRefCount(), 1);
    EXPECT_TRUE(osg::FieldContainerFactory::the().getContainer(id));
    a = nullptr;
    EXPECT_FALSE(osg::FieldContainerFactory::the().getContainer(id));
}

TEST(FieldContainer, FactoryFindsByIdAndIdsAreUnique) {
    osg::ImagePtr a = osg::Image::create(), b = osg::Image::create();
    EXPECT_NE(a->getId(), b->getId());
    EXPECT_NE(a->getId(), 0u);
    osg::FieldContainerPtr found = osg::FieldContainerFactory::the().getContainer(b->getId());
    EXPECT_EQ(found.get(), b.get());
    EXPECT_EQ(osg::dynamic_pointer_cast<osg::Image>(found), b);
    EXPECT_FALSE(osg::FieldContainerFactory::the().getContainer(0));
}

TEST(FieldContainer, HandlesAreSafeAcrossThreads) {
    osg::ImagePtr shared = osg::Image::create();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([shared] {
            for (int i = 0; i < 10000; ++i) {
                osg::ImagePtr copy = shared;
                osg::FieldContainerFactory::the().getContainer(copy->getId());
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(shared->getRefCount(), 1);
}
