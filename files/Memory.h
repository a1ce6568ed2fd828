// Memory.h - the allocation plan: many buffers from one block of mokmalloc, their addresses staggered.
// mokmalloc, mokfree and MOKSetMemory themselves are exported (vornmake.h).
// Threads: each thread plans for itself; nothing here is shared but the two hooks.
#pragma once

#include <cstdint>

#include "public/vornmake.h"

namespace vorn {

// Largest block that mokmalloc can make: what it adds must still fit 32 bits.
constexpr uint32_t LARGEST_BLOCK = UINT32_MAX - 64;

// Notes a buffer of `size` bytes for the next AllocatePlan of this thread. `field`, the address of a pointer of any type,
// is set there, unless the allocation fails. A slot is the size rounded up to 32 bytes plus a pad of 0 to 992. Sizes may
// be wider than a block can be, so that products of 32-bit numbers need no check before; they must stay below 2^48.
void PlanBufferAt(void** field, uint64_t size);

template <class T> void PlanBuffer(T** field, uint64_t size) {
    PlanBufferAt(reinterpret_cast<void**>(field), size);
}

// Allocates all planned buffers as one block with `head` bytes of room at its start, sets their fields and empties the
// plan. Returns the block, to be released by one mokfree, or null: out of memory, or more than LARGEST_BLOCK bytes.
void* AllocatePlan(uint32_t head);

// Bytes that AllocatePlan(head) would ask for as things stand, wider than 32 bits so that a plan too large shows.
uint64_t PlannedBytes(uint32_t head);

// Drops what was planned so far.
void EmptyPlan();

} // namespace vorn
