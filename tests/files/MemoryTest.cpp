// MemoryTest.cpp - what the memory service promises: alignment, the way of a block back to where it came from, and where
// the allocation plan puts its buffers.
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
        EXPECT_EQ(block - (room + rawDistance), rawDistance == 0 ? 64 : 64 - int(rawDistance));
        EXPECT_EQ(block[-1], block - (room + rawDistance));
        EXPECT_EQ(block[-2], 3);
        for (uint32_t i = 0; i < rawDistance; i++) EXPECT_EQ(room[i], 0xEE);
        std::memset(block, 0xFF, 100);
        MOKSetMemory(GiveNothing, ReleaseSecond);
        mokfree(block);
        EXPECT_EQ(releasedByFirst, room + rawDistance);
        EXPECT_EQ(releasedBySecond, nullptr);
    }
    MOKSetMemory(nullptr, nullptr);
}

TEST(Memory, AHookThatHasNothingLeavesTheBlockToTheHeap) {
    releasedByFirst = nullptr;
    MOKSetMemory(GiveNothing, ReleaseFirst);
    uint8_t* block = static_cast<uint8_t*>(mokmalloc(100));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(AddressOf(block) % 32, 0u);
    EXPECT_EQ(block[-2], 0);
    std::memset(block, 1, 100);
    mokfree(block);
    EXPECT_EQ(releasedByFirst, nullptr);
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

TEST(Plan, StaggersTheBuffersBehindTheHead) {
    const uint32_t starts[] = {0, 32, 96, 224, 480, 992, 992, 992}; // modulo 1024, from the first buffer
    for (uint32_t sizeStep : {0u, 1u, 31u, 32u, 33u, 1000u, 77777u}) {
        uint8_t* fields[8] = {};
        for (uint32_t i = 0; i < 8; i++) PlanBuffer(&fields[i], sizeStep * i);
        uint8_t* block = static_cast<uint8_t*>(AllocatePlan(3000));
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(fields[0], block + 3008);
        for (uint32_t i = 0; i < 8; i++) {
            EXPECT_EQ(AddressOf(fields[i]) % 32, 0u);
            EXPECT_EQ((fields[i] - fields[0]) % 1024, starts[i]) << sizeStep << " " << i;
            if (i == 0) continue;
            const uint64_t distance = uint64_t(fields[i] - fields[i - 1]);
            const uint64_t previous = uint64_t(sizeStep) * (i - 1);
            EXPECT_GE(distance, previous);
            EXPECT_LT(distance, previous + 1024 + 32);
        }
        std::memset(fields[7], 1, sizeStep * 7); // inside the block, as the address sanitizer sees it
        mokfree(block);
    }
}

TEST(Plan, GrowsItsTableInOrderAndStartsEmptyEachTime) {
    for (int round = 0; round < 2; round++) {
        constexpr uint32_t COUNT = 200;
        std::vector<uint8_t*> fields(COUNT, nullptr);
        for (uint32_t i = 0; i < COUNT; i++) PlanBuffer(&fields[i], i * 40);
        const uint64_t planned = PlannedBytes(1);
        uint8_t* block = static_cast<uint8_t*>(AllocatePlan(1));
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(fields[0], block + 32);
        for (uint32_t i = 0; i < COUNT; i++) {
            uint8_t* end = i + 1 < COUNT ? fields[i + 1] : block + planned;
            ASSERT_GE(end - fields[i], i * 40);
            std::memset(fields[i], int(i), i * 40);
        }
        mokfree(block);
        EXPECT_EQ(PlannedBytes(0), 0u);
    }
}

TEST(Plan, ATableThatCannotGrowShowsWhenThePlanIsAllocated) {
    MemorySeam memory;
    memory.failingRequest = 1;
    uint8_t* fields[40] = {};
    for (auto& field : fields) PlanBuffer(&field, 100);
    EXPECT_EQ(AllocatePlan(0), nullptr);
    EXPECT_EQ(memory.requests, 1u);
    for (const uint8_t* field : fields) EXPECT_EQ(field, nullptr);
    // The table that grows goes again with the plan: only the block is left.
    for (auto& field : fields) PlanBuffer(&field, 100);
    void* block = AllocatePlan(0);
    EXPECT_EQ(fields[0], block);
    EXPECT_EQ(memory.blocks.size(), 1u);
    mokfree(block);
    EXPECT_TRUE(memory.blocks.empty());
}

TEST(Plan, TooLargeOrFailedPlansLeaveTheFieldsAlone) {
    MemorySeam memory;
    uint8_t* fields[2] = {room, room};
    PlanBuffer(&fields[0], 0x80000000u);
    PlanBuffer(&fields[1], 0x80000000u);
    EXPECT_GT(PlannedBytes(0), UINT32_MAX);
    EXPECT_EQ(AllocatePlan(0), nullptr);
    EXPECT_EQ(memory.requests, 0u);
    memory.failingRequest = 1;
    PlanBuffer(&fields[0], 10);
    EXPECT_EQ(AllocatePlan(0), nullptr);
    EXPECT_EQ(fields[0], room);
    EXPECT_EQ(fields[1], room);
    EXPECT_EQ(PlannedBytes(0), 0u);
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
    mokfree(block);
}
