// BlockListsTest.cpp - the stored lists of both block sizes: each entry is shown and priced anew from its mode and payload
// alone; order, hull, lengths, early ends; and the same records for any number of workers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "analysis/Analysis.h"
#include "analysis/Evaluators.h"
#include "bitstream/CoefficientCoder.h"
#include "bitstream/Transforms.h"
#include "blocks/PixelOps.h"
#include "blocks/Runs.h"
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

// What one entry shows and costs, without the block's overhead.
struct Shown {
    uint8_t block[64];
    uint32_t bits;
};

uint32_t DctBits(const int16_t* quantised) {
    uint8_t room[PAYLOAD_ROOM_BYTES];
    BitWriter writer;
    StartWriter(&writer, room, sizeof(room));
    WriteCoefficients(&writer, quantised);
    return (BitsWritten(&writer) + 4) * 256;
}

void ShowRuns(Shown* shown, const uint8_t* src, int payload, const CostModel& costs) {
    uint8_t sequence[64];
    ScanBlock(sequence, src, payload >> 8);
    SmoothRuns(sequence, sequence, payload & 255, nullptr, nullptr, nullptr);
    UnscanBlock(shown->block, sequence, payload >> 8);
    shown->bits = 1024;
    int at = 0;
    while (at < 63) {
        const RunSegment segment = NextRunSegment(sequence, at);
        const int colours = segment.flat ? 1 : segment.length;
        shown->bits += costs.runBits + 256 + static_cast<uint32_t>(colours) * costs.colourBits;
        at += segment.length;
    }
    if (at == 63) shown->bits += costs.colourBits;
}

void ShowResidue(Shown* shown, const int8_t* residual, const uint8_t* moved, int payload, const CostModel& costs) {
    uint8_t room[PAYLOAD_ROOM_BYTES];
    int8_t values[64];
    BitWriter writer;
    BitReader reader;
    StartWriter(&writer, room, sizeof(room));
    WriteResidue(&writer, residual);
    PadToWord(&writer);
    StartReader(&reader, room, static_cast<uint32_t>(writer.position - room));
    ReadResidue(values, &reader, static_cast<uint32_t>(payload));
    for (int i = 0; i < 64; i++) shown->block[i] = static_cast<uint8_t>(moved[i] + values[i]);
    shown->bits = (reader.consumed + 7) * 256 + costs.motionBits;
}

// `src` is the block, or the half-scale block; `same` and `moved` are null where the mode can't be.
Shown Show(int mode, int payload, const uint8_t* src, const uint8_t* same, const uint8_t* moved,
           const CostModel& costs) {
    Shown shown = {};
    int16_t quantised[64];
    int32_t coefficients[64];
    int8_t residual[64] = {};
    for (int i = 0; i < 64 && moved != nullptr; i++) residual[i] = static_cast<int8_t>(src[i] - moved[i]);
    switch (mode) {
    case MODE_SKIP:
        std::memcpy(shown.block, same, 64);
        break;
    case MODE_MOTION:
        std::memcpy(shown.block, moved, 64);
        shown.bits = costs.motionBits;
        break;
    case MODE_RUN:
        ShowRuns(&shown, src, payload, costs);
        break;
    case MODE_RESIDUE:
        ShowResidue(&shown, residual, moved, payload, costs);
        break;
    case MODE_INTRA:
        ForwardTransform(coefficients, src);
        QuantiseIntra(quantised, coefficients, payload);
        InverseIntra(shown.block, 8, quantised, payload);
        shown.bits = DctBits(quantised) + costs.intraDcBits;
        break;
    case MODE_FILL:
        std::memset(shown.block, payload, 64);
        shown.bits = costs.colourBits;
        break;
    case MODE_INTER:
        ForwardTransformSigned(coefficients, residual);
        QuantiseInter(quantised, coefficients, payload);
        InverseInter(shown.block, 8, quantised, payload);
        for (int i = 0; i < 64; i++) shown.block[i] = static_cast<uint8_t>(shown.block[i] + moved[i]);
        shown.bits = DctBits(quantised) + costs.interDcBits + costs.motionBits;
        break;
    case MODE_PATTERN:
        for (int i = 0; i < 64; i++) {
            const int low = payload & 255;
            const int high = payload >> 8;
            const bool isLow = std::abs(low - src[i]) < std::abs(high - src[i]);
            shown.block[i] = static_cast<uint8_t>(isLow ? low : high);
        }
        shown.bits = costs.patternBits + 2 * costs.colourBits;
        break;
    case MODE_RAW:
        std::memcpy(shown.block, src, 64);
        shown.bits = 64 * costs.colourBits;
        break;
    default:
        ADD_FAILURE() << "mode " << mode;
    }
    return shown;
}

bool UsesReference(int mode) {
    return mode == MODE_SKIP || mode == MODE_MOTION || mode == MODE_RESIDUE || mode == MODE_INTER;
}

void ExpectRising(const BlockRecord& record) {
    for (int i = 1; i < record.count; i++) {
        EXPECT_GT(record.bits[i], record.bits[i - 1]);
        EXPECT_LT(record.errors[i], record.errors[i - 1]);
    }
}

// Slopes do not rise: what a step saves for its bits is never more than the step before saved for its own.
void ExpectHull(const BlockRecord& record) {
    for (int i = 2; i < record.count; i++) {
        const int64_t saved = int64_t(record.errors[i - 1]) - record.errors[i];
        const int64_t spent = int64_t(record.bits[i]) - record.bits[i - 1];
        const int64_t savedBefore = int64_t(record.errors[i - 2]) - record.errors[i - 1];
        const int64_t spentBefore = int64_t(record.bits[i - 1]) - record.bits[i - 2];
        EXPECT_LE(saved * spentBefore, savedBefore * spent);
    }
}

void CheckRecord(const Plane& plane, size_t index, bool keyFrame, const CostModel& costs, int* modesSeen) {
    const BlockRecord& record = plane.records[index];
    const int columns = plane.width / 8;
    const int at = static_cast<int>(index) / columns * 8 * plane.width + static_cast<int>(index) % columns * 8;
    uint8_t src[64];
    uint8_t same[64];
    uint8_t moved[64];
    LoadBlock(src, plane.source.data() + at, plane.width);
    if (!keyFrame) {
        LoadBlock(same, plane.reference.data() + at, plane.width);
        LoadBlock(moved, plane.reference.data() + at + record.offsetY * plane.width + record.offsetX, plane.width);
    }
    ASSERT_GE(record.count, 1);
    ASSERT_LE(record.count, 32);
    EXPECT_EQ(record.errors[record.count - 1], 0u);
    ExpectRising(record);
    ExpectHull(record);
    for (int i = 0; i < record.count; i++) {
        const int mode = record.modes[i];
        if (keyFrame) {
            ASSERT_FALSE(UsesReference(mode));
        }
        const Shown shown =
            Show(mode, record.payloads[i], src, keyFrame ? nullptr : same, keyFrame ? nullptr : moved, costs);
        EXPECT_EQ(record.errors[i], SadBlock(shown.block, src)) << mode;
        EXPECT_EQ(record.bits[i], shown.bits + costs.typeBits) << mode;
        modesSeen[mode]++;
    }
}

void CheckHighRecord(const Plane& plane, size_t index, const CostModel& costs, int* modesSeen) {
    const BlockRecord& record = plane.highRecords[index];
    const int columns = plane.width / 16;
    const int at = static_cast<int>(index) / columns * 16 * plane.width + static_cast<int>(index) % columns * 16;
    uint8_t half[64];
    HalveBlock(half, plane.source.data() + at, 16, 16, plane.width);
    ASSERT_LE(record.count, 31);
    ExpectRising(record);
    for (int i = 0; i < record.count; i++) {
        const int mode = record.modes[i];
        ASSERT_FALSE(UsesReference(mode));
        const Shown shown = Show(mode, record.payloads[i], half, nullptr, nullptr, costs);
        int error = 0;
        for (int k = 0; k < 256; k++)
            error += std::abs(shown.block[k / 32 * 8 + k % 16 / 2] -
                              plane.source[static_cast<size_t>(at + k / 16 * plane.width + k % 16)]);
        EXPECT_EQ(record.errors[i], static_cast<uint32_t>(error)) << mode;
        EXPECT_EQ(record.bits[i], shown.bits + 2 * costs.typeBits + costs.subTypeBits) << mode;
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
                CheckRecord(plane, i, keyFrame, costs, modesSeen);
                longest = std::max<int>(longest, plane.records[i].count);
            }
            for (size_t i = 0; i < plane.highRecords.size(); i++) CheckHighRecord(plane, i, costs, highSeen);
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
    CheckHighRecord(plane, 0, costs, modesSeen);
}

TEST(BlockLists, EasyBlocksEndEarly) {
    const CostModel costs = MakeCosts();
    Plane plane = MakePlane(16, 16, CONTENT_FLAT, 30);
    plane.reference = plane.source;
    Analyse(&plane, false, &costs);
    EXPECT_EQ(plane.records[3].count, 1);
    EXPECT_EQ(plane.records[3].modes[0], MODE_SKIP);
    EXPECT_EQ(plane.records[3].bits[0], costs.typeBits);
    EXPECT_EQ(plane.highRecords[0].count, 0);

    for (uint8_t& sample : plane.reference) sample++;
    Analyse(&plane, false, &costs);
    EXPECT_EQ(plane.records[3].count, 2);
    EXPECT_EQ(plane.records[3].modes[0], MODE_SKIP);
    EXPECT_EQ(plane.records[3].errors[0], 64u);
    EXPECT_EQ(plane.records[3].modes[1], MODE_FILL);
    EXPECT_EQ(plane.highRecords[0].count, 1);

    Analyse(&plane, true, &costs);
    EXPECT_EQ(plane.records[3].count, 1);
    EXPECT_EQ(plane.records[3].modes[0], MODE_FILL);
    EXPECT_EQ(plane.records[3].payloads[0], plane.source[0]);
    EXPECT_EQ(plane.records[3].bits[0], costs.typeBits + costs.colourBits);
    EXPECT_EQ(plane.highRecords[0].count, 1);
    EXPECT_EQ(plane.highRecords[0].bits[0], costs.colourBits + 2 * costs.typeBits + costs.subTypeBits);
}

// The fill colour is the mean of the two middle samples, rounded down.
TEST(BlockLists, FillColourIsTheMedian) {
    const CostModel costs = MakeCosts();
    Plane plane = MakePlane(16, 16, CONTENT_FLAT, 31);
    for (int i = 0; i < 256; i++) plane.source[static_cast<size_t>(i)] = i % 2 == 0 ? 0 : 255;
    Analyse(&plane, true, &costs);
    EXPECT_EQ(plane.records[0].modes[0], MODE_FILL);
    EXPECT_EQ(plane.records[0].payloads[0], 127);
    EXPECT_EQ(plane.records[0].errors[0], 32u * 127 + 32 * 128);
    EXPECT_EQ(plane.highRecords[0].modes[0], MODE_FILL);
    EXPECT_EQ(plane.highRecords[0].payloads[0], 127);
}

// One sample of each 2x2 group is 255: half scale sees black, and the fill candidate can't be improved on.
TEST(BlockLists, HalfScaleMayBeFlatWhereTheBlockIsNot) {
    const CostModel costs = MakeCosts();
    Plane plane = MakePlane(16, 16, CONTENT_FLAT, 32);
    for (int i = 0; i < 256; i++) plane.source[static_cast<size_t>(i)] = i % 2 == 1 && i / 16 % 2 == 1 ? 255 : 0;
    Analyse(&plane, true, &costs);
    ASSERT_EQ(plane.highRecords[0].count, 1);
    EXPECT_EQ(plane.highRecords[0].modes[0], MODE_FILL);
    EXPECT_EQ(plane.highRecords[0].errors[0], 16320u);
    // The reference shows what half scale would: nothing to offer, though the block itself differs from it.
    std::fill(plane.reference.begin(), plane.reference.end(), uint8_t(0));
    Analyse(&plane, false, &costs);
    EXPECT_EQ(plane.highRecords[0].count, 0);
}

// Puts a table in force whose threads can be counted and refused.
uint32_t startCalls;
uint32_t refuseEvery; // 0: none; 1: all; n: every n-th
uint32_t started;
uint32_t joined;
bool CountingStart(ThreadHandle* thread, void (*run)(void*), void* argument) {
    startCalls++;
    if (refuseEvery != 0 && startCalls % refuseEvery == 0) return false;
    started++;
    return SYSTEM_PLATFORM.startThread(thread, run, argument);
}
void CountingJoin(ThreadHandle thread) {
    joined++;
    SYSTEM_PLATFORM.joinThread(thread);
}

class Workers : public ::testing::Test {
protected:
    Platform table = SYSTEM_PLATFORM;
    uint32_t countBefore = 0;

    void SetUp() override {
        countBefore = ExchangeWorkerCount(1);
        table.startThread = CountingStart;
        table.joinThread = CountingJoin;
        platform = &table;
        startCalls = refuseEvery = started = joined = 0;
    }
    void TearDown() override {
        platform = &SYSTEM_PLATFORM;
        ExchangeWorkerCount(countBefore);
    }
    // All records, as bytes: those that the passes do not write are zero.
    std::string RecordsWith(uint32_t workers, uint32_t refused) {
        ExchangeWorkerCount(workers);
        startCalls = started = joined = 0;
        refuseEvery = refused;
        const CostModel costs = MakeCosts();
        Plane plane = MakePlane(72, 56, CONTENT_SOFT, 40);
        std::memset(plane.records.data(), 0, plane.records.size() * sizeof(BlockRecord));
        Analyse(&plane, false, &costs);
        std::string bytes(reinterpret_cast<const char*>(plane.records.data()),
                          plane.records.size() * sizeof(BlockRecord));
        bytes.append(reinterpret_cast<const char*>(plane.highRecords.data()),
                     plane.highRecords.size() * sizeof(BlockRecord));
        return bytes;
    }
};

TEST_F(Workers, RecordsDoNotDependOnTheirNumber) {
    const std::string alone = RecordsWith(1, 0);
    EXPECT_EQ(startCalls, 0u);
    for (uint32_t workers : {2u, 7u, 32u}) {
        EXPECT_TRUE(RecordsWith(workers, 0) == alone) << workers;
        EXPECT_EQ(started, 3 * (workers - 1)); // three passes
        EXPECT_EQ(joined, started);
    }
}

TEST_F(Workers, BlocksAreDoneThoughThreadsCannotBeStarted) {
    const std::string alone = RecordsWith(1, 0);
    for (uint32_t refused : {1u, 2u, 3u}) {
        EXPECT_TRUE(RecordsWith(7, refused) == alone) << refused;
        EXPECT_EQ(joined, started);
        EXPECT_EQ(startCalls, 18u);
    }
    EXPECT_TRUE(RecordsWith(7, 1) == alone);
    EXPECT_EQ(started, 0u);
}

} // namespace
} // namespace vorn
