// StartSlots.h - hands a function and its argument to a thread that is just starting, without memory for each thread. For
// the platform files only.
#pragma once

#include <atomic>
#include <cstdint>

namespace vorn {

// What a new thread is to do. A slot is taken from the start of the thread until the thread has read it.
struct StartSlot {
    std::atomic<bool> taken;
    void (*run)(void*);
    void* argument;
};
constexpr uint32_t START_SLOTS = 256;
inline constinit StartSlot startSlots[START_SLOTS] = {};

// Null while more threads are starting than there are slots.
inline StartSlot* TakeStartSlot(void (*run)(void*), void* argument) {
    for (StartSlot& slot : startSlots) {
        if (slot.taken.exchange(true, std::memory_order_acquire)) continue;
        slot.run = run;
        slot.argument = argument;
        return &slot;
    }
    return nullptr;
}

inline void FreeStartSlot(StartSlot* slot) {
    slot->taken.store(false, std::memory_order_release);
}

// In the new thread.
inline void RunStartSlot(StartSlot* slot) {
    void (*run)(void*) = slot->run;
    void* argument = slot->argument;
    FreeStartSlot(slot);
    run(argument);
}

} // namespace vorn
