// CostModelsTest.cpp - the estimates: four-frame means, bounds, entropy, the cost of a colour and its feedback.
#include "allocation/CostModels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "allocation/SampleTables.h"

using namespace vorn;

namespace {

CostModel Fresh(PlaneKind kind) {
    CostModel model;
    SetCostModelDefaults(&model, kind);
    RefreshCostModel(&model);
    return model;
}

// 8x8 samples of two values by turns.
std::vector<uint8_t> ByTurns() {
    std::vector<uint8_t> turns(64);
    for (size_t i = 1; i < 64; i += 2) turns[i] = 200;
    return turns;
}

} // namespace

TEST(CostModels, EstimatesAreMeansOverFourFrames) {
    static_assert(sizeof(CostModel) == 83 * 4);
    CostModel model = Fresh(PlaneKind::LUMA);
    model.type.numerator[0] = 300; // 300 bits for 100 elements
    model.type.denominator[0] = 101;
    RefreshCostModel(&model);
    EXPECT_EQ(model.typeBits, (300u + 3 * 17) * 256 / (101 + 3 * 10));
    RefreshCostModel(&model); // a frame that left entry 0 alone counts as a copy
    EXPECT_EQ(model.typeBits, (600u + 2 * 17) * 256 / (202 + 2 * 10));
    for (int i = 0; i < 2; i++) RefreshCostModel(&model);
    EXPECT_EQ(model.typeBits, 300u * 256 / 101);
    EXPECT_EQ(model.subTypeBits, 332u);
    model.interDc.numerator[0] = 1000000;
    model.run.denominator[0] = 1000000;
    RefreshCostModel(&model);
    EXPECT_EQ(model.interDcBits, 2816u);
    EXPECT_EQ(model.runBits, 384u);
}

TEST(CostModels, EntropyOfKnownTables) {
    SampleTable table = {};
    EXPECT_EQ(EstimateEntropyBits(table), 0u);
    table.counts[9] = table.total = 1000;
    EXPECT_EQ(EstimateEntropyBits(table), 0u);
    for (uint32_t& count : table.counts) count = 3;
    table.total = 768;
    EXPECT_EQ(EstimateEntropyBits(table), 768u);
    table = {};
    table.counts[0] = 4; // halves go to even: 4 and 12 bits
    table.total = 8;
    EXPECT_EQ(EstimateEntropyBits(table), 0u);
    table.counts[0] = 12;
    table.total = 24;
    EXPECT_EQ(EstimateEntropyBits(table), 2u);
    // By the formula, on uneven counts.
    std::mt19937 random(3);
    table = {};
    for (uint32_t& count : table.counts) table.total += count = static_cast<uint32_t>(random() % (1 + random() % 5000));
    long double bits = 0;
    for (const uint32_t count : table.counts) {
        if (count != 0) bits += count * std::log2(static_cast<long double>(table.total) / count);
    }
    EXPECT_NEAR(EstimateEntropyBits(table), static_cast<double>(bits / 8), 0.51);
}

TEST(SampleTables, GreatDifferencesCount) {
    const std::vector<uint8_t> black(64, 0), white(64, 255);
    SampleTable table;
    CountChanged(&table, white.data(), black.data(), 64);
    EXPECT_EQ(table.total, 64u);
    EXPECT_EQ(table.counts[255], 64u);
    CountColours(&table, black.data(), white.data(), 64);
    EXPECT_EQ(table.counts[0], 1u);
}

TEST(CostModels, ColourCostOfFlatAndNoisyPlanes) {
    CostModel model = Fresh(PlaneKind::LUMA);
    const std::vector<uint8_t> flat(64 * 64, 80);
    std::vector<uint8_t> stepped(flat);
    for (size_t i = 0; i < stepped.size(); i += 3) stepped[i]++;
    // Nothing counts but the first sample, which carries no information; with a reference not even that.
    PrepareCostModel(&model, flat.data(), nullptr, 64, 64);
    EXPECT_EQ(model.colourBits, 640u);
    EXPECT_EQ(model.colourCorrection, 640); // over a raw estimate of 0 for one sample counted
    EXPECT_EQ(model.colourFeedback, 2);
    EXPECT_EQ(model.colourCount, 1u);
    model.colourFeedback = 0;
    PrepareCostModel(&model, stepped.data(), flat.data(), 64, 64);
    EXPECT_EQ(model.colourBits, 640u);
    EXPECT_EQ(model.colourCorrection, 0); // none counted: the raw estimate is the lower bound

    std::vector<uint8_t> noise(256 * 256);
    std::mt19937 random(4);
    for (uint8_t& sample : noise) sample = static_cast<uint8_t>(random());
    model.colourFeedback = 100;
    PrepareCostModel(&model, noise.data(), nullptr, 256, 256);
    EXPECT_EQ(model.colourBits, 2048u);
    EXPECT_EQ(model.colourFeedback, 8);
}

// One bit each for two values by turns; none with a reference that serves one of them, and bits of 3 values in 2 : 1 : 1 over
// 4 samples are 6, 0.75 bytes, rounded to 1: 2048 / 4.
TEST(CostModels, ColourCostOfKnownValues) {
    CostModel model = Fresh(PlaneKind::LUMA);
    model.colourLower = 0;
    const std::vector<uint8_t> reference(64, 1);
    std::vector<uint8_t> steps(64);
    for (size_t i = 0; i < 64; i++) steps[i] = i < 20 ? 0 : i < 40 ? 9 : i < 60 ? 0 : 7;
    PrepareCostModel(&model, ByTurns().data(), nullptr, 8, 8);
    EXPECT_EQ(model.colourBits, 256u);
    model.colourFeedback = 5;
    PrepareCostModel(&model, ByTurns().data(), reference.data(), 8, 8);
    EXPECT_EQ(model.colourBits, 5u);
    model.colourFeedback = 0;
    PrepareCostModel(&model, steps.data(), nullptr, 8, 8);
    EXPECT_EQ(model.colourBits, 512u);
}

TEST(CostModels, FeedbackIsMeasuredLessRaw) {
    CostModel model = Fresh(PlaneKind::LUMA);
    model.colourBits = 700;
    model.colourCorrection = -60; // the raw estimate was 760
    model.colourFeedback = 3000;  // bits of the colours
    model.colourCount = 1001;
    ApplyColourFeedback(&model);
    EXPECT_EQ(model.colourFeedback, 3000 * 256 / 1001 - 760);
    model.colourBits = 700;
    model.colourFeedback = 700 >> 8; // as preparing leaves it
    model.colourCount = 1;
    ApplyColourFeedback(&model);
    EXPECT_EQ(model.colourFeedback, 512 - 760);
    // A correction below the raw estimate holds at the lower bound.
    PrepareCostModel(&model, ByTurns().data(), nullptr, 8, 8);
    EXPECT_EQ(model.colourBits, 640u);
    EXPECT_EQ(model.colourCorrection, 640 - 256);
}
