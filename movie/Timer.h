// Timer.h - the millisecond clock behind MOKTimerRead: a high-resolution counter that a coarse clock watches over.
#pragma once

#include <atomic>
#include <cstdint>

namespace vorn {

// One clock. Starts as initialised here; ReadTimer may be called from any thread.
struct TimerState {
    std::atomic_flag busy;   // held while a thread reads the clock
    bool fresh = true;       // until the first reading
    uint64_t frequency = 0;  // counts per second; 0: no counter, the coarse clock is the result
    uint64_t start = 0;      // counter at the first reading
    uint32_t lastResult = 0; // milliseconds
    uint32_t lastTick = 0;   // coarse clock at the last result, milliseconds
    uint32_t shift = 0;      // milliseconds by which the counter's jumps are made good, wraps
};

// Milliseconds since the first reading, wrapping at 32 bits; the coarse clock as it is where there is no counter.
uint32_t ReadTimer(TimerState* timer);

} // namespace vorn
