// BlockListsTest.cpp - the stored lists of both block sizes: each entry is priced anew from its mode and payload alone; order,
// hull, lengths, early ends; and how many threads do it.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "analysis/Analysis.h"
#include "analysis/Evaluators.h"
#include "blocks/PixelOps.h"
#include "platform/Platform.h"
#include "platform/Workers.h"
#include "tests/analysis/EntryCosts.h"
#include "tests/blocks/TestBlocks.h"

namespace vorn {
namespace {

// A picture and its reference, and the records of both sizes.
struct Plane {
    int width;
    int height;
    std::vector<uint8_t> source;
    std::vector<uint8_t> reference;
    std::vector<BlockRecord> records;
    std::vector<BlockRecord> highRecords;
};

// The reference is the source moved by (2, -1) with some noise, so that all modes have their chance.
Plane MakePlane(int width, int height, Content content, uint32_t seed) {
    Noise noise = {seed};
    const size_t samples = static_cast<size_t>(width * height);
    Plane plane = {width, height, {}, {}, {}, {}};
    plane.source.resize(samples);
    plane.reference.resize(samples);
    plane.records.resize(samples / 64);
    plane.highRecords.resize(static_cast<size_t>((width / 16) * (height / 16)));
    FillSamples(plane.source.data(), width, height, content, &noise);
    for (int y = 0; y < height; y++) {
        for (int x = 0; x < width; x++) {
            const int from = std::max(y - 1, 0) * width + std::min(x + 2, width - 1);
            const uint32_t shake = content == CONTENT_FLAT ? 0 : NextNoise(&noise) % 3;
            plane.reference[static_cast<size_t>(y * width + x)] =
                static_cast<uint8_t>(plane.source[static_cast<size_t>(from)] + shake);
        }
    }
    return plane;
}

void Analyse(Plane* plane, bool keyFrame, const CostModel* costs) {
    // A key frame has no reference to look at.
    const uint8_t* reference = keyFrame ? nullptr : plane->reference.data();
    const uint32_t width = static_cast<uint32_t>(plane->width);
    const uint32_t height = static_cast<uint32_t>(plane->height);
    std::vector<uint16_t> scratch(MotionScratchWords(width, height));
    AnalysePlane(plane->records.data(), plane->source.data(), reference, width, height, keyFrame, costs,
                 scratch.data());
    AnalyseHighPlane(plane->highRecords.data(), plane->source.data(), reference, width, height, keyFrame, costs);
}

bool UsesReference(int mode) {
    return mode == MODE_SKIP || mode == MODE_MOTION || mode == MODE_RESIDUE || mode == MODE_INTER;
}

// Bits rise and errors fall; in a hull what a step saves for its bits is never more than the step before saved for its own.
void ExpectOrder(const BlockRecord& record, bool hull) {
    for (int i = 1; i < record.count; i++) {
        EXPECT_GT(record.bits[i], record.bits[i - 1]);
        EXPECT_LT(record.errors[i], record.errors[i - 1]);
        if (i == 1 || !hull) continue;
        const int64_t saved = int64_t(record.errors[i - 1]) - record.errors[i];
        const int64_t spent = int64_t(record.bits[i]) - record.bits[i - 1];
        const int64_t savedBefore = int64_t(record.errors[i - 2]) - record.errors[i - 1];
        const int64_t spentBefore = int64_t(record.bits[i - 1]) - record.bits[i - 2];
        EXPECT_LE(saved * spentBefore, savedBefore * spent);
    }
}

// A record of the 8x8 blocks, or of those of `side` 16, which use no reference.
void CheckRecord(const Plane& plane, int side, size_t index, bool keyFrame, const CostModel& costs, int* modesSeen) {
    const bool high = side == 16;
    const BlockRecord& record = high ? plane.highRecords[index] : plane.records[index];
    const int columns = plane.width / side;
    const int at = static_cast<int>(index) / columns * side * plane.width + static_cast<int>(index) % columns * side;
    uint8_t src[64];
    uint8_t moved[64] = {};
    const uint8_t* const source = plane.source.data() + at;
    const uint8_t* const reference = plane.reference.data() + at;
    if (high) {
        HalveBlock(src, source, 16, 16, plane.width);
    } else {
        LoadBlock(src, source, plane.width);
        if (!keyFrame) LoadBlock(moved, reference + record.offsetY * plane.width + record.offsetX, plane.width);
        ASSERT_GE(record.count, 1);
        EXPECT_EQ(record.errors[record.count - 1], 0u);
    }
    ASSERT_LE(record.count, high ? 31 : 32);
    ExpectOrder(record, !high);
    const uint32_t overhead = high ? 2 * costs.typeBits + costs.subTypeBits : costs.typeBits;
    for (int i = 0; i < record.count; i++) {
        const int mode = record.modes[i];
        ASSERT_FALSE((keyFrame || high) && UsesReference(mode));
        EXPECT_EQ(record.bits[i], CostOf(mode, record.payloads[i], src, moved, costs) + overhead) << mode;
        modesSeen[mode]++;
    }
}

TEST(BlockLists, EveryEntryIsWhatItSays) {
    const CostModel costs = MakeCosts();
    int modesSeen[16] = {};
    int highSeen[16] = {};
    int longest = 0;
    for (int content = 0; content < CONTENTS; content++) {
        for (bool keyFrame : {true, false}) {
            Plane plane = MakePlane(56, 40, static_cast<Content>(content), 20 + static_cast<uint32_t>(content));
            Analyse(&plane, keyFrame, &costs);
            for (size_t i = 0; i < plane.records.size(); i++) {
                CheckRecord(plane, 8, i, keyFrame, costs, modesSeen);
                longest = std::max<int>(longest, plane.records[i].count);
            }
            for (size_t i = 0; i < plane.highRecords.size(); i++) CheckRecord(plane, 16, i, keyFrame, costs, highSeen);
        }
    }
    for (int mode : {0, 2, 3, 4, 5, 6, 7, 8, 9}) EXPECT_GT(modesSeen[mode], 0) << mode;
    for (int mode : {3, 5, 6, 8, 9}) EXPECT_GT(highSeen[mode], 0) << mode;
    EXPECT_GT(longest, 8);
}

// Along scan order 7 the half-scale samples rise by ever larger steps, so that nearly every threshold merges a few more:
// with cheap run lengths these are more ways than a record has room for. The first and the last of them stay.
TEST(BlockLists, LongListsAreCutToTheirRoom) {
    CostModel costs = MakeCosts();
    costs.runBits = 100;
    Plane plane = MakePlane(16, 16, CONTENT_FLAT, 33);
    uint8_t half[64];
    for (int i = 0; i < 64; i++) half[SCAN_ORDER[7][i]] = static_cast<uint8_t>(i * i / 5);
    DoubleBlock(plane.source.data(), half, 16);
    BlockCandidate list[SCRATCH_CANDIDATES];
    const int count = EvaluateHighBlock(list, plane.source.data(), half, nullptr, true, &costs);
    ASSERT_GT(count, 31);
    Analyse(&plane, true, &costs);
    const BlockRecord& record = plane.highRecords[0];
    ASSERT_EQ(record.count, 31);
    EXPECT_EQ(record.modes[0], MODE_FILL);
    EXPECT_EQ(record.errors[30], 0u);
    int modesSeen[16] = {};
    CheckRecord(plane, 16, 0, true, costs, modesSeen);
}

// Patterns of one block repeated, whose lists are short or begin with a known fill colour.
TEST(BlockLists, EasyBlocks) {
    constexpr int ANY = -1;
    const CostModel costs = MakeCosts();
    const uint32_t overhead = costs.typeBits;
    const uint32_t highOverhead = 2 * costs.typeBits + costs.subTypeBits;
    const struct {
        int samples[4]; // of each 2x2 group
        int reference;  // one colour; a key frame if negative
        int count;
        int highCount;
        BlockCandidate first;
        BlockCandidate highFirst;
    } cases[] = {
        {{90, 90, 90, 90}, 90, 1, 0, {overhead, 0, 0, MODE_SKIP}, {}},
        {{90, 90, 90, 90}, 91, 2, 1, {overhead, 64, 0, MODE_SKIP}, {highOverhead + 1500, 0, 90, MODE_FILL}},
        {{90, 90, 90, 90}, -1, 1, 1, {overhead + 1500, 0, 90, MODE_FILL}, {highOverhead + 1500, 0, 90, MODE_FILL}},
        // The fill colour is the mean of the two middle samples, rounded down.
        {{0, 255, 0, 255},
         -1,
         ANY,
         ANY,
         {overhead + 1500, 32 * 127 + 32 * 128, 127, MODE_FILL},
         {highOverhead + 1500, 128 * 127 + 128 * 128, 127, MODE_FILL}},
        // Half scale sees black, and filling with it can't be improved on; nor has it anything to offer where the
        // reference shows that already, though the block itself differs from it.
        {{0, 0, 0, 255}, -1, ANY, 1, {overhead + 1500, 4080, 0, MODE_FILL}, {highOverhead + 1500, 16320, 0, MODE_FILL}},
        {{0, 0, 0, 255}, 0, ANY, 0, {overhead, 4080, 0, MODE_SKIP}, {}},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(&one - cases);
        Plane plane = MakePlane(16, 16, CONTENT_FLAT, 30);
        for (int i = 0; i < 256; i++)
            plane.source[static_cast<size_t>(i)] = static_cast<uint8_t>(one.samples[i / 16 % 2 * 2 + i % 2]);
        std::fill(plane.reference.begin(), plane.reference.end(), static_cast<uint8_t>(one.reference));
        Analyse(&plane, one.reference < 0, &costs);
        const auto check = [&](const BlockRecord& record, int count, const BlockCandidate& first) {
            EXPECT_TRUE(count == ANY || record.count == count) << int{record.count};
            if (count == 0) return;
            EXPECT_EQ(record.modes[0], first.mode);
            EXPECT_EQ(record.payloads[0], first.payload);
            EXPECT_EQ(record.bits[0], first.bits);
            EXPECT_EQ(record.errors[0], first.error);
        };
        check(plane.records[3], one.count, one.first);
        check(plane.highRecords[0], one.highCount, one.highFirst);
    }
}

uint32_t started;
uint32_t refused; // every other call
uint32_t joined;

// Each of the three passes wants a thread for every worker but itself, and joins those that it got.
TEST(BlockLists, EachPassHasItsThreads) {
    const CostModel costs = MakeCosts();
    Plane plane = MakePlane(72, 56, CONTENT_SOFT, 40);
    Platform table = SYSTEM_PLATFORM;
    table.startThread = [](ThreadHandle* thread, void (*run)(void*), void* argument) {
        if (started > refused) return ++refused, false;
        started++;
        return SYSTEM_PLATFORM.startThread(thread, run, argument);
    };
    table.joinThread = [](ThreadHandle thread) {
        joined++;
        SYSTEM_PLATFORM.joinThread(thread);
    };
    platform = &table;
    const uint32_t before = ExchangeWorkerCount(1);
    for (uint32_t workers : {1u, 2u, 7u, 32u}) {
        started = refused = joined = 0;
        ExchangeWorkerCount(workers);
        Analyse(&plane, false, &costs);
        EXPECT_EQ(started + refused, 3 * (workers - 1));
        EXPECT_EQ(joined, started);
    }
    ExchangeWorkerCount(before);
    platform = &SYSTEM_PLATFORM;
}

} // namespace
} // namespace vorn
