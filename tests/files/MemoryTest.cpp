// MemoryTest.cpp - what the memory service promises: alignment, the way of a block back to where it came from, and where
// the allocation plan puts its buffers.
#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "files/Memory.h"
#include "tests/files/TestSeams.h"

using namespace vorn;

namespace {

// A hook that hands out one place at a chosen distance from an address that is a multiple of 32.
alignas(32) uint8_t room[512];
uint32_t rawDistance;
uint32_t bytesAsked;
void* releasedByFirst;
void* releasedBySecond;

void* VORN_CALL GiveRoom(uint32_t bytes) {
    bytesAsked = bytes;
    return room + rawDistance;
}
void* VORN_CALL GiveNothing(uint32_t) {
    return nullptr;
}
void VORN_CALL ReleaseFirst(void* block) {
    releasedByFirst = block;
}
void VORN_CALL ReleaseSecond(void* block) {
    releasedBySecond = block;
}

uintptr_t AddressOf(const void* pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}

} // namespace

TEST(Memory, HookBlocksAreAlignedInsideTheRawBlockAndGoBackToTheirOwnReleaser) {
    for (rawDistance = 0; rawDistance < 32; rawDistance++) {
        std::memset(room, 0xEE, sizeof room);
        releasedByFirst = releasedBySecond = nullptr;
        MOKSetMemory(GiveRoom, ReleaseFirst);
        uint8_t* block = static_cast<uint8_t*>(mokmalloc(100));
        EXPECT_EQ(bytesAsked, 164u);
        EXPECT_EQ(AddressOf(block) % 32, 0u);
        EXPECT_EQ(block - (room + rawDistance), 64 - int(rawDistance));
        EXPECT_EQ(block[-1], 64 - int(rawDistance));
        EXPECT_EQ(block[-2], 3);
        for (uint32_t i = 0; i < rawDistance; i++) EXPECT_EQ(room[i], 0xEE);
        std::memset(block, 0xFF, 100);
        MOKSetMemory(GiveNothing, ReleaseSecond);
        uint8_t* heapBlock = static_cast<uint8_t*>(mokmalloc(100)); // as the hook has nothing
        EXPECT_EQ(AddressOf(heapBlock) % 32, 0u);
        EXPECT_EQ(heapBlock[-2], 0);
        mokfree(heapBlock);
        mokfree(block);
        EXPECT_EQ(releasedByFirst, room + rawDistance);
        EXPECT_EQ(releasedBySecond, nullptr);
    }
    MOKSetMemory(nullptr, nullptr);
    mokfree(nullptr);
}

TEST(Memory, RefusedSizesNeverReachTheHookAndARefusalOfTheHookIsFinal) {
    MemorySeam memory;
    for (uint32_t size : {0u, UINT32_MAX, UINT32_MAX - 1, UINT32_MAX - 63}) EXPECT_EQ(mokmalloc(size), nullptr) << size;
    EXPECT_EQ(memory.requests, 0u);
    memory.failingRequest = 1;
    EXPECT_EQ(mokmalloc(10), nullptr);
    EXPECT_EQ(memory.requests, 1u);
}

// Eight buffers as plans begin, and so many that the table of a plan grows several times.
TEST(Plan, StaggersTheBuffersBehindTheHead) {
    const uint32_t starts[] = {0, 32, 96, 224, 480, 992}; // modulo 1024, from the first buffer; the last for all others
    for (const uint32_t count : {8u, 200u}) {
        for (const uint32_t sizeStep : {0u, 1u, 31u, 32u, 33u, 1000u}) {
            std::vector<uint8_t*> fields(count, nullptr);
            for (uint32_t i = 0; i < count; i++) PlanBuffer(&fields[i], sizeStep * i);
            const uint64_t planned = PlannedBytes(3000);
            uint8_t* block = static_cast<uint8_t*>(AllocatePlan(3000));
            ASSERT_NE(block, nullptr);
            EXPECT_EQ(PlannedBytes(0), 0u);
            EXPECT_EQ(fields[0], block + 3008);
            for (uint32_t i = 0; i < count; i++) {
                EXPECT_EQ(AddressOf(fields[i]) % 32, 0u);
                EXPECT_EQ((fields[i] - fields[0]) % 1024, starts[std::min(i, 5u)]) << sizeStep << " " << i;
                const uint8_t* end = i + 1 < count ? fields[i + 1] : block + planned;
                EXPECT_GE(end - fields[i], int64_t{sizeStep} * i);
                EXPECT_LT(end - fields[i], int64_t{sizeStep} * i + 1024 + 32);
            }
            std::memset(fields.back(), 1, sizeStep * (count - 1)); // inside the block, as the address sanitizer sees it
            mokfree(block);
        }
    }
}

TEST(Plan, TooLargeOrFailedPlansLeaveTheFieldsAlone) {
    MemorySeam memory;
    uint8_t* fields[40] = {};
    PlanBuffer(&fields[0], 0x80000000u);
    PlanBuffer(&fields[1], 0x80000000u);
    EXPECT_GT(PlannedBytes(0), UINT32_MAX);
    EXPECT_EQ(AllocatePlan(0), nullptr);
    EXPECT_EQ(memory.requests, 0u);
    for (const size_t planned : {size_t{1}, size_t{40}}) { // the block isn't to be had, or the table can't grow
        memory.requests = 0;
        memory.failingRequest = 1;
        for (size_t i = 0; i < planned; i++) PlanBuffer(&fields[i], 100);
        EXPECT_EQ(AllocatePlan(0), nullptr);
        EXPECT_EQ(memory.requests, 1u);
        EXPECT_EQ(PlannedBytes(0), 0u);
        for (const uint8_t* field : fields) EXPECT_EQ(field, nullptr);
    }
}

TEST(Plan, EachThreadPlansForItselfAndLeavesNothingBehind) {
    MemorySeam memory;
    uint8_t* mine = nullptr;
    PlanBuffer(&mine, 64);
    std::thread([] {
        uint8_t* fields[40] = {};
        for (auto& field : fields) PlanBuffer(&field, 8);
        EmptyPlan();
        EXPECT_EQ(AllocatePlan(0), nullptr);
    }).join();
    EXPECT_TRUE(memory.blocks.empty());
    void* block = AllocatePlan(0);
    EXPECT_EQ(mine, block);
    EXPECT_EQ(memory.blocks.size(), 1u);
    mokfree(block);
}
