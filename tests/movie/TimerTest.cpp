// TimerTest.cpp - the millisecond clock against counters that jump, stand still, run backwards or don't exist.
#include <thread>

#include <gtest/gtest.h>

#include "movie/Timer.h"
#include "tests/files/TestSeams.h"

using namespace vorn;

namespace {

uint64_t fakeFrequency;
uint64_t fakeCounter;
uint32_t fakeTick;

class Timer : public testing::Test {
protected:
    PlatformSeam seam;
    TimerState timer;
    Timer() {
        fakeFrequency = 1000000;
        fakeCounter = 123456789;
        fakeTick = 0xFFFFF000; // wraps after four seconds
        seam.table.counterFrequency = [] { return fakeFrequency; };
        seam.table.counterRead = [] { return fakeCounter; };
        seam.table.tickMilliseconds = [] { return fakeTick; };
    }
    // Lets both clocks go on by so many milliseconds, and reads.
    uint32_t After(int64_t counterMilliseconds, int32_t tickMilliseconds) {
        fakeCounter += static_cast<uint64_t>(counterMilliseconds) * (fakeFrequency / 1000);
        fakeTick += static_cast<uint32_t>(tickMilliseconds);
        return ReadTimer(&timer);
    }
};

} // namespace

TEST_F(Timer, StartsAtZeroAndFollowsTheCounterWithinSmallDrifts) {
    EXPECT_EQ(ReadTimer(&timer), 0u);
    fakeCounter += 1999; // microseconds, truncated
    EXPECT_EQ(ReadTimer(&timer), 1u);
    fakeCounter += 1;
    EXPECT_EQ(ReadTimer(&timer), 2u);
    EXPECT_EQ(After(100, 300), 102u); // 200 is no jump yet
    EXPECT_EQ(After(300, 100), 402u);
    EXPECT_EQ(After(5000, 5000), 5402u);
}

TEST_F(Timer, ACounterThatJumpsLosesToTheCoarseClockForGood) {
    ReadTimer(&timer);
    EXPECT_EQ(After(10000, 1000), 1000u);
    EXPECT_EQ(After(500, 500), 1500u);
    EXPECT_EQ(After(-9000, 700), 2200u);
    EXPECT_EQ(After(100, 301), 2501u); // 201 is one
    EXPECT_EQ(After(1, 1), 2502u);
}

TEST_F(Timer, NeverGoesBack) {
    ReadTimer(&timer);
    EXPECT_EQ(After(1000, 1000), 1000u);
    EXPECT_EQ(After(-150, 0), 1000u);
    EXPECT_EQ(After(-20, 10), 1000u);
    EXPECT_EQ(After(170, 170), 1000u);
    EXPECT_EQ(After(30, 30), 1030u);
}

TEST_F(Timer, WrapsAt32BitsAndOutlivesTheCounters64) {
    fakeFrequency = 1000000000;
    ReadTimer(&timer);
    uint32_t expected = 0;
    for (int day = 0; day < 300;
         day++) { // the product with 1000 passes 64 bits on day 213, the result 32 bits on day 49
        expected += 86400000;
        ASSERT_EQ(After(86400000, 86400000), expected) << day;
    }
}

TEST_F(Timer, WithoutACounterIsTheCoarseClock) {
    fakeFrequency = 0;
    EXPECT_EQ(ReadTimer(&timer), 0xFFFFF000u);
    fakeTick += 0x2000;
    EXPECT_EQ(ReadTimer(&timer), 0x1000u);
}

TEST(ProcessTimer, IsMonotonousForEveryThread) {
    const auto readOften = [] {
        uint32_t last = MOKTimerRead();
        for (int i = 0; i < 20000; i++) {
            const uint32_t now = MOKTimerRead();
            ASSERT_GE(now, last);
            last = now;
        }
    };
    std::thread other(readOften);
    readOften();
    other.join();
}
