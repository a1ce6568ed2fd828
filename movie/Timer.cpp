// Timer.cpp - what time is it, when the fine counter may jump?
#include "movie/Timer.h"

#include "platform/Platform.h"
#include "public/vornmake.h"

namespace vorn {

namespace {

constexpr int32_t LARGEST_DRIFT = 200;     // milliseconds; a larger one means that the counter has jumped
constexpr uint32_t BACKWARDS = 0xC0000000; // a step above this is a step back

constinit TimerState processTimer;

uint32_t StartTimer(TimerState* timer) {
    timer->fresh = false;
    timer->frequency = platform->counterFrequency();
    if (timer->frequency == 0) return platform->tickMilliseconds();
    timer->start = platform->counterRead();
    timer->lastResult = 0;
    timer->lastTick = platform->tickMilliseconds();
    return 0;
}

uint32_t AdvanceTimer(TimerState* timer) {
    const uint64_t counter = platform->counterRead();
    const uint32_t tick = platform->tickMilliseconds();
    uint32_t result = static_cast<uint32_t>((counter - timer->start) * 1000 / timer->frequency) + timer->shift;
    // How much more time the coarse clock saw pass since the last result than the counter did.
    const uint32_t drift = (tick - timer->lastTick) - (result - timer->lastResult);
    const int32_t signedDrift = static_cast<int32_t>(drift);
    if (signedDrift > LARGEST_DRIFT || signedDrift < -LARGEST_DRIFT) {
        timer->shift += drift;
        result += drift;
    }
    if (result - timer->lastResult > BACKWARDS) return timer->lastResult;
    timer->lastTick = tick;
    timer->lastResult = result;
    return result;
}

} // namespace

uint32_t ReadTimer(TimerState* timer) {
    while (timer->busy.test_and_set(std::memory_order_acquire)) platform->sleepMilliseconds(0);
    uint32_t result;
    if (timer->fresh) {
        result = StartTimer(timer);
    } else if (timer->frequency == 0) {
        result = platform->tickMilliseconds();
    } else {
        result = AdvanceTimer(timer);
    }
    timer->busy.clear(std::memory_order_release);
    return result;
}

} // namespace vorn

uint32_t VORN_CALL MOKTimerRead() {
    return vorn::ReadTimer(&vorn::processTimer);
}
