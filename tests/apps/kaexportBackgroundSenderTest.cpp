// Captures handed to the background sender arrive in order and as they were when handed over,
// and a failed send stops the rest.
#include "kaexportBackgroundSender.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace {

osg::ImagePtr capture(uint8_t value) {
    osg::ImagePtr image = osg::Image::create();
    image->set(osg::Image::OSG_RGB_PF, 4, 2);
    std::fill(image->getData(), image->getData() + image->getSize(), value);
    return image;
}

} // namespace

TEST(kaexportBackgroundSender, SendsEveryCaptureInOrderAsItWasHandedOver) {
    std::vector<uint8_t> received;
    std::vector<std::string> names;
    kaexport::BackgroundSender sender([&](osg::ImagePtr image, std::string name) {
        // Slow, so that the exporter draws the next capture while this one is sent.
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        received.push_back(image->getData()[0]);
        names.push_back(name);
        return true;
    });
    osg::ImagePtr reused = capture(0);
    for (uint8_t i = 1; i <= 20; ++i) {
        std::fill(reused->getData(), reused->getData() + reused->getSize(), i);
        ASSERT_TRUE(sender.submit(reused, "c" + std::to_string(i) + ".png"));
    }
    EXPECT_TRUE(sender.finish());
    EXPECT_EQ(sender.sent(), 20);
    ASSERT_EQ(received.size(), 20u);
    for (uint8_t i = 1; i <= 20; ++i) {
        EXPECT_EQ(received[i - 1u], i) << "a capture changed after it was handed over";
        EXPECT_EQ(names[i - 1u], "c" + std::to_string(i) + ".png");
    }
}

TEST(kaexportBackgroundSender, AFailedSendStopsTheRest) {
    std::atomic<int> calls{0};
    kaexport::BackgroundSender sender([&](osg::ImagePtr, std::string) { return ++calls < 3; });
    int taken = 0;
    for (int i = 0; i < 50; ++i) {
        if (!sender.submit(capture(1), "x.png"))
            break;
        ++taken;
    }
    EXPECT_FALSE(sender.finish());
    EXPECT_EQ(sender.sent(), 2);
    EXPECT_EQ(calls.load(), 3) << "nothing is sent after a failure";
    EXPECT_LT(taken, 50);
}
