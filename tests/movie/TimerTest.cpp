// TimerTest.cpp - the millisecond clock against counters that jump, stand still, run backwards or don't exist.
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

TEST_F(Timer, FollowsTheCounterUntilItJumpsAndNeverGoesBack) {
    EXPECT_EQ(ReadTimer(&timer), 0u);
    fakeCounter += 1999; // microseconds, truncated
    EXPECT_EQ(ReadTimer(&timer), 1u);
    fakeCounter += 1;
    const struct {
        int32_t counter, tick;
        uint32_t result;
    } STEPS[] = {
        {0, 0, 2},           {100, 300, 102},  {300, 100, 402},  {5000, 5000, 5402}, // 200 apart is no jump yet
        {10000, 1000, 6402}, {500, 500, 6902},                                       // the coarse clock has it for good
        {-9000, 700, 7602},  {100, 301, 7903}, {302, 101, 8004}, {1, 1, 8005},       // 201 is one
        {-150, 0, 8005},     {-20, 10, 8005},  {170, 170, 8005}, {30, 30, 8035},
    };
    for (const auto& step : STEPS) EXPECT_EQ(After(step.counter, step.tick), step.result);
}

TEST_F(Timer, WrapsAt32BitsAndOutlivesTheCounters64) {
    fakeFrequency = 1000000000;
    ReadTimer(&timer);
    uint32_t expected = 0;
    for (int day = 0; day < 300; day++) {
        expected += 86400000; // passes 32 bits on day 49, the product of counter and 1000 passes 64 bits on day 213
        ASSERT_EQ(After(86400000, 86400000), expected) << day;
    }
}

TEST_F(Timer, WithoutACounterIsTheCoarseClock) {
    fakeFrequency = 0;
    EXPECT_EQ(ReadTimer(&timer), 0xFFFFF000u);
    fakeTick += 0x2000;
    EXPECT_EQ(ReadTimer(&timer), 0x1000u);
}
