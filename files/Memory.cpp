// Memory.cpp - the memory service with its hooks, and the allocation plan.
//
// A block of n bytes lies in a raw block of n + 64, at the offset of 33 to 64 that aligns it to 32. Below it:
//   -1                          offset from the start of the raw block
//   -2                          tag: TAG_HOOK or TAG_HEAP
//   -2 * sizeof(void*)          with TAG_HOOK, the releaser that was in force when the block was made
#include "files/Memory.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "platform/Platform.h"

namespace {

constexpr uint8_t TAG_HEAP = 0;
constexpr uint8_t TAG_HOOK = 3;
constexpr uint32_t BLOCK_OVERHEAD = 64;                         // bytes
constexpr uint32_t RELEASER_DISTANCE = 2 * sizeof(MokReleaser); // bytes below the block; clear of tag and offset

struct Hooks {
    MokAllocator allocator;
    MokReleaser releaser;
};
constinit Hooks hooks = {nullptr, nullptr};
constinit std::atomic_flag hooksBusy; // held while the pair is read or set, so that no one sees half of it

Hooks ExchangeHooks(const Hooks* newHooks) {
    while (hooksBusy.test_and_set(std::memory_order_acquire)) vorn::platform->sleepMilliseconds(0);
    const Hooks before = hooks;
    if (newHooks != nullptr) hooks = *newHooks;
    hooksBusy.clear(std::memory_order_release);
    return before;
}

// A raw block and where it came from; null if there is none.
struct RawBlock {
    uint8_t* address;
    uint8_t tag;
    MokReleaser releaser; // with TAG_HOOK
};

RawBlock TakeRawBlock(uint32_t bytes) {
    const Hooks inForce = ExchangeHooks(nullptr);
    if (inForce.allocator != nullptr) {
        void* block = inForce.allocator(bytes);
        if (reinterpret_cast<uintptr_t>(block) == UINTPTR_MAX) return {nullptr, TAG_HOOK, nullptr};
        if (block != nullptr) return {static_cast<uint8_t*>(block), TAG_HOOK, inForce.releaser};
    }
    return {static_cast<uint8_t*>(std::malloc(bytes)), TAG_HEAP, nullptr};
}

} // namespace

void VORN_CALL MOKSetMemory(MokAllocator allocator, MokReleaser releaser) {
    const Hooks newHooks = {allocator, releaser};
    ExchangeHooks(&newHooks);
}

void* VORN_CALL mokmalloc(uint32_t size) {
    if (size == 0 || size > vorn::LARGEST_BLOCK) return nullptr;
    const RawBlock raw = TakeRawBlock(size + BLOCK_OVERHEAD);
    if (raw.address == nullptr) return nullptr;
    const uint8_t offset = static_cast<uint8_t>(64 - reinterpret_cast<uintptr_t>(raw.address) % 32);
    uint8_t* block = raw.address + offset;
    block[-1] = offset;
    block[-2] = raw.tag;
    if (raw.tag == TAG_HOOK) std::memcpy(block - RELEASER_DISTANCE, &raw.releaser, sizeof raw.releaser);
    return block;
}

void VORN_CALL mokfree(void* pointer) {
    if (pointer == nullptr) return;
    uint8_t* block = static_cast<uint8_t*>(pointer);
    uint8_t* raw = block - block[-1];
    if (block[-2] == TAG_HOOK) {
        MokReleaser releaser;
        std::memcpy(&releaser, block - RELEASER_DISTANCE, sizeof releaser);
        if (releaser != nullptr) releaser(raw);
    } else {
        std::free(raw);
    }
}

namespace vorn {

namespace {

constexpr uint32_t FIRST_ENTRIES = 32;

struct PlanEntry {
    void** field;
    uint64_t slot; // bytes, pad included
};

// What one thread has planned. The entries start in the record itself and move to a block of their own, twice as large,
// whenever they are full. That block goes when the plan is emptied, so that nothing of a caller's allocator outlives the
// call.
struct AllocationPlan {
    uint64_t total;        // bytes of all slots, those that found no room in the table included
    uint32_t count;        // entries in use
    uint32_t room;         // entries in the table
    bool incomplete;       // the table couldn't grow: entries are missing
    PlanEntry* grownTable; // null: `firstTable` is in use
    PlanEntry firstTable[FIRST_ENTRIES];
};

constinit thread_local AllocationPlan plan = {0, 0, FIRST_ENTRIES, false, nullptr, {}};

PlanEntry* Table() {
    return plan.grownTable != nullptr ? plan.grownTable : plan.firstTable;
}

bool GrowTable() {
    const uint64_t bytes = uint64_t(plan.room) * 2 * sizeof(PlanEntry);
    if (bytes > LARGEST_BLOCK) return false;
    PlanEntry* table = static_cast<PlanEntry*>(mokmalloc(static_cast<uint32_t>(bytes)));
    if (table == nullptr) return false;
    std::memcpy(table, Table(), plan.count * sizeof(PlanEntry));
    mokfree(plan.grownTable);
    plan.grownTable = table;
    plan.room *= 2;
    return true;
}

uint64_t RoundUpTo32(uint64_t bytes) {
    return (bytes + 31) / 32 * 32;
}

} // namespace

// In units of 32 bytes each new total is congruent to twice the one before plus 1, modulo 32, so that the first slots start
// at different addresses modulo 1024: 0, 32, 96, 224, 480, 992.
void PlanBufferAt(void** field, uint64_t size) {
    const uint64_t rounded = RoundUpTo32(size);
    const uint64_t slot = rounded + (plan.total / 32 - rounded / 32 + 1) % 32 * 32;
    plan.total += slot;
    if (plan.incomplete || (plan.count == plan.room && !GrowTable())) {
        plan.incomplete = true;
        return;
    }
    Table()[plan.count++] = {field, slot};
}

void* AllocatePlan(uint32_t head) {
    const uint64_t bytes = PlannedBytes(head);
    uint8_t* block = nullptr;
    if (!plan.incomplete && bytes <= LARGEST_BLOCK) {
        block = static_cast<uint8_t*>(mokmalloc(static_cast<uint32_t>(bytes)));
    }
    if (block != nullptr) {
        uint8_t* next = block + RoundUpTo32(head);
        for (uint32_t i = 0; i < plan.count; i++) {
            const PlanEntry& entry = Table()[i];
            // Copied, not assigned: the field is really a pointer of some other type.
            std::memcpy(static_cast<void*>(entry.field), &next, sizeof next);
            next += entry.slot;
        }
    }
    EmptyPlan();
    return block;
}

uint64_t PlannedBytes(uint32_t head) {
    return plan.total + RoundUpTo32(head);
}

void EmptyPlan() {
    mokfree(plan.grownTable);
    plan.grownTable = nullptr;
    plan.room = FIRST_ENTRIES;
    plan.total = 0;
    plan.count = 0;
    plan.incomplete = false;
}

} // namespace vorn
