// BlockListsTest.cpp - the stored lists of both block sizes: lengths, early ends, the first entries of easy blocks by hand; and
// how many threads make them.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "analysis/Analysis.h"
#include "analysis/Evaluators.h"
#include "blocks/PixelOps.h"
#include "platform/Platform.h"
#include "platform/Workers.h"
#include "tests/blocks/TestBlocks.h"

namespace vorn {
namespace {

CostModel MakeCosts() {
    CostModel costs = {};
    costs.typeBits = 700;
    costs.subTypeBits = 450;
    costs.colourBits = 1500;
    costs.patternBits = 9000;
    costs.motionBits = 2100;
    costs.intraDcBits = 1900;
    costs.interDcBits = 1300;
    costs.runBits = 800;
    return costs;
}

// A picture and its reference, all 0 at first, and the records of both sizes.
struct Plane {
    uint32_t width, height;
    std::vector<uint8_t> source, reference;
    std::vector<BlockRecord> records, highRecords;

    Plane(uint32_t w, uint32_t h)
        : width(w), height(h), source(w * h), reference(w * h), records(w * h / 64), highRecords(w / 16 * (h / 16)) {}
    void Analyse(bool keyFrame, const CostModel& costs) {
        // A key frame has no reference to look at.
        const uint8_t* const before = keyFrame ? nullptr : reference.data();
        std::vector<uint16_t> scratch(MotionScratchWords(width, height));
        AnalysePlane(records.data(), source.data(), before, width, height, keyFrame, &costs, scratch.data());
        AnalyseHighPlane(highRecords.data(), source.data(), before, width, height, keyFrame, &costs);
    }
};

// Along scan order 7 the half-scale samples rise by ever larger steps, so that nearly every threshold merges a few more:
// with cheap run lengths these are more ways than a record has room for. The first and the last of them stay.
TEST(BlockLists, LongListsAreCutToTheirRoom) {
    CostModel costs = MakeCosts();
    costs.runBits = 100;
    Plane plane(16, 16);
    uint8_t half[64];
    for (int i = 0; i < 64; i++) half[SCAN_ORDER[7][i]] = static_cast<uint8_t>(i * i / 5);
    DoubleBlock(plane.source.data(), half, 16);
    BlockCandidate list[SCRATCH_CANDIDATES];
    const int count = EvaluateHighBlock(list, plane.source.data(), half, nullptr, true, &costs);
    ASSERT_GT(count, 31);
    plane.Analyse(true, costs);
    const BlockRecord& record = plane.highRecords[0];
    ASSERT_EQ(record.count, 31);
    EXPECT_EQ(record.modes[0], MODE_FILL);
    EXPECT_EQ(record.errors[30], 0u);
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
        Plane plane(16, 16);
        for (int i = 0; i < 256; i++)
            plane.source[static_cast<size_t>(i)] = static_cast<uint8_t>(one.samples[i / 16 % 2 * 2 + i % 2]);
        std::fill(plane.reference.begin(), plane.reference.end(), static_cast<uint8_t>(one.reference));
        plane.Analyse(one.reference < 0, costs);
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
    Plane plane(72, 56);
    Noise noise = {40};
    FillSamples(plane.source.data(), 72, 56, CONTENT_SOFT, &noise);
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
        plane.Analyse(false, costs);
        EXPECT_EQ(started + refused, 3 * (workers - 1));
        EXPECT_EQ(joined, started);
    }
    ExchangeWorkerCount(before);
    platform = &SYSTEM_PLATFORM;
}

} // namespace
} // namespace vorn
