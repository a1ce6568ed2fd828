// MergingTest.cpp - the contest between the block sizes: split candidates, leftovers, second budget, marks.
#include "allocation/Allocation.h"

#include <gtest/gtest.h>

#include <vector>

using namespace vorn;

namespace {

// A movie of planes of this size; every 8x8 block was decided as a fill of `bits` and `error`, all 16x16 lists are empty.
struct Scene {
    VornMakeState state = {};
    std::vector<BlockRecord> low, high;
    std::vector<QueuedUpgrade> queue;

    Scene(uint32_t width, uint32_t height, uint32_t flags, uint32_t bits = 2048, uint32_t error = 50) {
        state.lumaWidth = width;
        state.lumaHeight = height;
        state.chromaWidth = (width / 2 + 7) / 8 * 8;
        state.chromaHeight = (height / 2 + 7) / 8 * 8;
        state.flags = flags;
        low.resize(2 * (width / 8 * (height / 8) + state.chromaWidth / 8 * (state.chromaHeight / 8)));
        high.resize(low.size() / 4);
        queue.resize(low.size());
        for (BlockRecord& record : low) {
            record.chosenMode = MODE_FILL;
            record.chosenPayload = 77;
            record.chosenBits = bits;
            record.chosenError = error;
        }
    }
    void Offer(size_t block, uint32_t bits, uint32_t error) {
        BlockRecord& record = high[block];
        const int k = record.count++;
        record.bits[k] = bits;
        record.errors[k] = error;
        record.modes[k] = MODE_INTRA;
        record.payloads[k] = 5;
    }
    void Merge(uint32_t budget) { MergePlanes(&state, low.data(), high.data(), budget, queue.data()); }
    // Modes of the first `count` 8x8 records.
    std::vector<uint32_t> Modes(size_t count) const {
        std::vector<uint32_t> modes;
        for (size_t i = 0; i < count; i++) modes.push_back(low[i].chosenMode);
        return modes;
    }
};

constexpr uint32_t F = MODE_FILL, S = MODE_SCALED, I = MODE_INTRA;

} // namespace

// A 16x16 block is offered for 2 bytes. What the leftovers leave of the budget decides whether the four blocks below, which are
// dearer and better, are bought back.
TEST(Merging, LeftoversLeaveTheRestOfTheBudget) {
    const struct {
        uint32_t width, height, flags, leftoverBytes; // a byte a block; chroma is 16x8, two blocks that nothing covers
    } rows[] = {{16, 16, FLAG_GREY, 0},
                {24, 16, FLAG_GREY, 2},
                {16, 24, FLAG_GREY, 2},
                {24, 16, 0, 2 + 2 + 2},
                {24, 16, FLAG_ALPHA, 2 + 2 + 2 + 2}};
    for (const auto& row : rows) {
        for (const uint32_t budget : {0u, row.leftoverBytes + 2, row.leftoverBytes + 3}) {
            Scene scene(row.width, row.height, row.flags);
            scene.Offer(0, 4096, 1000);
            scene.Merge(budget);
            EXPECT_EQ(scene.low[0].chosenMode, budget == row.leftoverBytes + 3 ? F : S) << row.leftoverBytes;
        }
    }
    // 3 by 3 blocks of 1, 2, 4 and so on bytes: which five are left over.
    const uint32_t leftoverBytes = (1 << 2) + (1 << 5) + (1 << 6) + (1 << 7) + (1 << 8);
    for (const uint32_t more : {2u, 3u}) {
        Scene scene(24, 24, FLAG_GREY);
        for (size_t i = 0; i < 9; i++) scene.low[i].chosenBits = 2048u << i;
        scene.Offer(0, 4096, 1000);
        scene.Merge(leftoverBytes + more);
        EXPECT_EQ(scene.high[0].bits[1], (1u + 2 + 8 + 16) * 2048); // the split candidate
        EXPECT_EQ(scene.low[0].chosenMode, more == 3 ? F : S);
    }
    for (const uint32_t width : {8u, 40u}) { // no 16x16 block at all
        Scene scene(width, 48 - width, FLAG_ALPHA);
        scene.Merge(0);
        EXPECT_EQ(scene.Modes(5), std::vector<uint32_t>(5, F));
    }
}

// Cheaper and better than the split: it wins with no budget at all, and the four records carry its marks.
TEST(Merging, WinnersAreMarked) {
    Scene scene(40, 16, FLAG_GREY);
    scene.Offer(1, 4000, 120);
    scene.Merge(0);
    EXPECT_EQ(scene.Modes(10), (std::vector<uint32_t>{F, F, S, I, F, F, F, S, S, F}));
    EXPECT_EQ(scene.low[2].chosenPayload, 5u);
    EXPECT_EQ(scene.low[2].chosenBits, 4000u);
    EXPECT_EQ(scene.low[2].chosenError, 120u);
    EXPECT_EQ(scene.low[7].chosenBits, 0u);
}

// Dearer and worse: the hull has dropped it.
TEST(Merging, SplitIsTheWholeListIfNothingIsBetter) {
    Scene scene(16, 16, FLAG_GREY);
    scene.Offer(0, 9000, 201);
    scene.Merge(0);
    EXPECT_EQ(scene.high[0].count, 1);
    EXPECT_EQ(scene.low[0].chosenMode, F);
}

// Alpha's 8x8 decisions stand, with chroma before it or not; a full list has room for the split.
TEST(Merging, AlphaStaysOut) {
    for (const uint32_t flags : {FLAG_ALPHA, FLAG_ALPHA | FLAG_GREY}) {
        Scene scene(32, 32, flags);
        const size_t competing = flags == FLAG_ALPHA ? 4 + 2 * 1 : 4; // 16x16 blocks of Y, Cr, Cb
        for (size_t i = 0; i < competing + 4; i++) {
            for (uint32_t k = 0; k < MAX_HIGH_CANDIDATES; k++) scene.Offer(i, 100 + k * (k + 1), 190 - k);
        }
        scene.Merge(0);
        const size_t alpha = 4 * competing;
        // A scaled block begins at every second column; right of it stands the sub-block type.
        for (size_t i = 0; i < alpha; i += 2) EXPECT_EQ(scene.low[i].chosenMode, S) << i;
        for (size_t i = alpha; i < alpha + 16; i++) EXPECT_EQ(scene.low[i].chosenMode, F) << i;
    }
}
