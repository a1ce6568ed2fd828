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
        const FrameBlocks blocks = CountBlocks(&state);
        low.resize(2 * (blocks.luma8 + blocks.chroma8));
        high.resize(2 * (blocks.luma16 + blocks.chroma16));
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
    MergeFigures Merge(uint32_t budget) { return MergePlanes(&state, low.data(), high.data(), budget, queue.data()); }
    // Modes of the first `count` 8x8 records.
    std::vector<uint32_t> Modes(size_t count) const {
        std::vector<uint32_t> modes;
        for (size_t i = 0; i < count; i++) modes.push_back(low[i].chosenMode);
        return modes;
    }
};

constexpr uint32_t F = MODE_FILL, S = MODE_SCALED, I = MODE_INTRA;

} // namespace

// 3 by 3 blocks: one 16x16 block over four of them, five left over.
TEST(Merging, OddPlaneHasLeftovers) {
    Scene scene(24, 24, FLAG_GREY);
    for (size_t i = 0; i < 9; i++) scene.low[i].chosenBits = 2048u << i;
    const MergeFigures figures = scene.Merge(1000);
    const uint32_t leftoverBytes = (1 << 2) + (1 << 5) + (1 << 6) + (1 << 7) + (1 << 8);
    EXPECT_EQ(figures.leftoverBits, leftoverBytes * 2048);
    EXPECT_EQ(figures.secondBudget, 1000 - leftoverBytes);
    EXPECT_EQ(figures.secondRecords, 1u);
    EXPECT_EQ(scene.high[0].count, 1); // an empty list got the split candidate
    EXPECT_EQ(scene.high[0].chosenBits, (1u + 2 + 8 + 16) * 2048);
    EXPECT_EQ(scene.Modes(9), std::vector<uint32_t>(9, F));
    EXPECT_EQ(Scene(24, 24, FLAG_GREY).Merge(4).secondBudget, 0u); // leftovers take 5 bytes
    EXPECT_EQ(Scene(24, 24, FLAG_GREY).Merge(6).secondBudget, 1u);
}

TEST(Merging, NarrowPlanesAreAllLeftovers) {
    EXPECT_EQ(Scene(8, 40, FLAG_GREY).Merge(0).leftoverBits, 5u * 2048);
    EXPECT_EQ(Scene(40, 8, FLAG_GREY).Merge(0).leftoverBits, 5u * 2048);
    EXPECT_EQ(Scene(8, 8, 0).Merge(0).leftoverBits, 3u * 2048); // Y, Cr, Cb
    EXPECT_EQ(Scene(8, 8, FLAG_ALPHA).Merge(0).leftoverBits, 4u * 2048);
    EXPECT_EQ(Scene(16, 32, FLAG_GREY).Merge(0).leftoverBits, 0u);
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

// Cheaper but worse: the budget decides. Dearer and worse: the hull has dropped it.
TEST(Merging, SplitIsBoughtBack) {
    for (const uint32_t budget : {0u, 2u, 8u}) {
        Scene scene(16, 16, FLAG_GREY);
        scene.Offer(0, 4096, 1000);
        scene.Merge(budget); // 2 bytes are just the cheapest candidate
        EXPECT_EQ(scene.low[0].chosenMode, budget == 8 ? F : S) << budget;
    }
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
        const FrameBlocks blocks = CountBlocks(&scene.state);
        const size_t competing = blocks.luma16 + (blocks.hasChroma ? 2 * blocks.chroma16 : 0);
        for (size_t i = 0; i < competing + blocks.luma16; i++) {
            for (uint32_t k = 0; k < MAX_HIGH_CANDIDATES; k++) scene.Offer(i, 100 + k * (k + 1), 190 - k);
        }
        EXPECT_EQ(scene.Merge(0).secondRecords, competing);
        const size_t alpha = blocks.luma8 + (blocks.hasChroma ? 2 * blocks.chroma8 : 0);
        // A scaled block begins at every second column; right of it stands the sub-block type.
        for (size_t i = 0; i < alpha; i += 2) EXPECT_EQ(scene.low[i].chosenMode, S) << i;
        for (size_t i = alpha; i < alpha + blocks.luma8; i++) EXPECT_EQ(scene.low[i].chosenMode, F) << i;
    }
}
