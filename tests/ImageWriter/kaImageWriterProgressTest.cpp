#include "kaImageWriter.h"

#include "kaController.h"

#include <gtest/gtest.h>

#include <cmath>

class kaImageWriterProgress : public testing::Test {
protected:
    void SetUp() override {
        _listener = kaController::addProgressListener([this](double p) { pushed.push_back(p); });
    }
    void TearDown() override { kaController::removeProgressListener(_listener); }
    std::vector<double> pushed;

private:
    int _listener = 0;
};

TEST_F(kaImageWriterProgress, StartPushesZero) {
    kaImageWriter::startProgress(4);
    EXPECT_EQ(pushed, std::vector<double>{0.0});
}

TEST_F(kaImageWriterProgress, HalfOfTheFirstOfFourFramesIsAnEighth) {
    kaImageWriter::startProgress(4);
    kaImageWriter::startFrameProgress();
    kaImageWriter::setFrameProgress(0.5);
    EXPECT_EQ(pushed, (std::vector<double>{0.0, 0.0, 0.125}));
}

TEST_F(kaImageWriterProgress, FrameProgressBeforeAnyFrameIsZero) {
    kaImageWriter::startProgress(4);
    kaImageWriter::setFrameProgress(0.5);
    EXPECT_EQ(pushed.back(), 0.0);
}

TEST_F(kaImageWriterProgress, FrameKClimbsFromItsStartToItsEnd) {
    kaImageWriter::startProgress(3);
    std::vector<double> starts;
    for (int k = 1; k <= 3; ++k) {
        kaImageWriter::startFrameProgress();
        starts.push_back(pushed.back());
        kaImageWriter::setFrameProgress(1.0);
        EXPECT_DOUBLE_EQ(pushed.back(), double(k) / 3.0);
    }
    EXPECT_DOUBLE_EQ(starts[0], 0.0);
    EXPECT_DOUBLE_EQ(starts[1], 1.0 / 3.0);
    EXPECT_DOUBLE_EQ(starts[2], 2.0 / 3.0);
}

TEST_F(kaImageWriterProgress, MoreFramesThanAnnouncedAreClampedToOne) {
    kaImageWriter::startProgress(2);
    for (int i = 0; i < 5; ++i)
        kaImageWriter::startFrameProgress();
    EXPECT_EQ(pushed.back(), 1.0);
    kaImageWriter::setFrameProgress(0.5);
    EXPECT_EQ(pushed.back(), 1.0);
}

TEST_F(kaImageWriterProgress, ZeroFramesNeverPushesNaN) {
    kaImageWriter::startProgress(0);
    kaImageWriter::startFrameProgress();
    kaImageWriter::startFrameProgress();
    kaImageWriter::setFrameProgress(0.5);
    for (double p : pushed) {
        EXPECT_FALSE(std::isnan(p));
        EXPECT_GE(p, 0.0);
        EXPECT_LE(p, 1.0);
    }
}

TEST_F(kaImageWriterProgress, NegativeFractionsClampToZero) {
    kaImageWriter::startProgress(1);
    kaImageWriter::startFrameProgress();
    kaImageWriter::setFrameProgress(-3.0);
    EXPECT_EQ(pushed.back(), 0.0);
}
