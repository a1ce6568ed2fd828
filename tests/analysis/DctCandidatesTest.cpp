// DctCandidatesTest.cpp - which quantisers are offered, what they cost by the bits really written, how far they are off.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "analysis/Evaluators.h"
#include "bitstream/CoefficientCoder.h"
#include "bitstream/Transforms.h"
#include "tests/blocks/TestBlocks.h"

namespace vorn {
namespace {

CostModel MakeCosts() {
    CostModel costs = {};
    costs.intraDcBits = 1111;
    costs.interDcBits = 2222;
    costs.motionBits = 3333;
    return costs;
}

uint32_t WrittenBits(const int16_t* quantised) {
    uint8_t room[PAYLOAD_ROOM_BYTES];
    BitWriter writer;
    StartWriter(&writer, room, sizeof(room));
    WriteCoefficients(&writer, quantised);
    return BitsWritten(&writer) + 4;
}

void SplitResidual(int8_t* residual, const uint8_t* src, const uint8_t* moved) {
    for (int i = 0; i < 64; i++) residual[i] = static_cast<int8_t>(src[i] - moved[i]);
}

TEST(IntraCandidates, FlatBlockHasNone) {
    const CostModel costs = MakeCosts();
    BlockCandidate list[32];
    uint8_t src[64];
    for (int colour : {0, 1, 128, 255}) {
        std::memset(src, colour, 64);
        EXPECT_EQ(IntraCandidates(list, src, &costs), 0) << colour;
    }
}

// A vertical edge of 100 keeps AC at every quantiser: its first coefficient is far above half the coarsest step.
TEST(IntraCandidates, StrongEdgeHasAllQuantisers) {
    const CostModel costs = MakeCosts();
    BlockCandidate list[32];
    uint8_t src[64];
    for (int i = 0; i < 64; i++) src[i] = i % 8 < 4 ? 60 : 160;
    ASSERT_EQ(IntraCandidates(list, src, &costs), 16);
    int32_t coefficients[64];
    ForwardTransform(coefficients, src);
    for (int q = 0; q < 16; q++) {
        int16_t quantised[64];
        QuantiseIntra(quantised, coefficients, q);
        EXPECT_EQ(list[q].payload, q);
        EXPECT_EQ(list[q].mode, MODE_INTRA);
        EXPECT_EQ(list[q].bits, WrittenBits(quantised) * 256 + 1111);
    }
}

// Steps of the finest quantiser are at most 83 / 16, so samples of the middle range are off by about one on average;
// at every quantiser the error is that of the block that comes out.
TEST(IntraCandidates, ErrorsAreThoseOfTheShownBlock) {
    const CostModel costs = MakeCosts();
    Noise noise = {9};
    for (int round = 0; round < 60; round++) {
        uint8_t src[64];
        uint8_t high[256];
        FillSamples(src, 8, 8, CONTENT_NOISE, &noise);
        FillSamples(high, 16, 16, CONTENT_NOISE, &noise);
        for (uint8_t& sample : src) sample = static_cast<uint8_t>(64 + sample / 2);
        BlockCandidate list[32];
        BlockCandidate highList[32];
        const int count = IntraCandidates(list, src, &costs);
        ASSERT_EQ(count, HighIntraCandidates(highList, high, src, &costs));
        ASSERT_GT(count, 0);
        EXPECT_LT(list[0].error, 64u * 2);
        int32_t coefficients[64];
        ForwardTransform(coefficients, src);
        for (int k = 0; k < count; k++) {
            int16_t quantised[64];
            uint8_t shown[64];
            QuantiseIntra(quantised, coefficients, k);
            InverseIntra(shown, 8, quantised, k);
            int error = 0;
            int highError = 0;
            for (int i = 0; i < 64; i++) error += std::abs(shown[i] - src[i]);
            for (int i = 0; i < 256; i++) highError += std::abs(shown[i / 32 * 8 + i % 16 / 2] - high[i]);
            ASSERT_EQ(list[k].error, static_cast<uint32_t>(error));
            ASSERT_EQ(highList[k].error, static_cast<uint32_t>(highError));
            ASSERT_EQ(highList[k].bits, list[k].bits);
        }
    }
}

// Nothing left by motion: one candidate, 4 bits of coefficients and 4 of the quantiser, with the error of motion, 0.
TEST(InterCandidates, ZeroResidualHasOne) {
    const CostModel costs = MakeCosts();
    BlockCandidate list[32];
    uint8_t src[64];
    const int8_t residual[64] = {};
    std::memset(src, 31, 64);
    ASSERT_EQ(InterCandidates(list, src, residual, src, &costs), 1);
    EXPECT_EQ(list[0].bits, 8u * 256 + 2222 + 3333);
    EXPECT_EQ(list[0].error, 0u);
    EXPECT_EQ(list[0].payload, 0);
    EXPECT_EQ(list[0].mode, MODE_INTER);
}

// 250 + 10 shows 4: an even residual of 10 is exact at the finest quantiser, however the sum wraps.
TEST(InterCandidates, SumWithTheReferenceWraps) {
    const CostModel costs = MakeCosts();
    BlockCandidate list[32];
    uint8_t src[64];
    uint8_t moved[64];
    int8_t residual[64];
    std::memset(src, 4, 64);
    std::memset(moved, 250, 64);
    SplitResidual(residual, src, moved);
    ASSERT_EQ(residual[0], 10);
    ASSERT_EQ(InterCandidates(list, src, residual, moved, &costs), 1);
    EXPECT_EQ(list[0].error, 0u);
}

// The list ends with the first quantiser that leaves no AC, that one included.
TEST(InterCandidates, LastOneMayHaveNoAc) {
    const CostModel costs = MakeCosts();
    Noise noise = {10};
    int shortLists = 0;
    for (int round = 0; round < 100; round++) {
        uint8_t src[64];
        uint8_t moved[64];
        int8_t residual[64];
        FillSamples(moved, 8, 8, CONTENT_SOFT, &noise);
        for (int i = 0; i < 64; i++)
            src[i] = static_cast<uint8_t>(moved[i] + NextNoise(&noise) % static_cast<uint32_t>(2 + round));
        SplitResidual(residual, src, moved);
        BlockCandidate list[32];
        const int count = InterCandidates(list, src, residual, moved, &costs);
        ASSERT_GE(count, 1);
        int32_t coefficients[64];
        ForwardTransformSigned(coefficients, residual);
        for (int k = 0; k < count; k++) {
            int16_t quantised[64];
            uint8_t shown[64];
            QuantiseInter(quantised, coefficients, k);
            InverseInter(shown, 8, quantised, k);
            int error = 0;
            for (int i = 0; i < 64; i++) error += std::abs(static_cast<uint8_t>(shown[i] + moved[i]) - src[i]);
            EXPECT_EQ(list[k].payload, k);
            EXPECT_EQ(list[k].error, static_cast<uint32_t>(error));
            EXPECT_EQ(list[k].bits, WrittenBits(quantised) * 256 + 2222 + 3333);
            const bool hasAc = WrittenBits(quantised) > 8;
            if (k < 15) {
                EXPECT_EQ(hasAc, k < count - 1) << round << " " << k;
            }
        }
        if (count < 16) shortLists++;
    }
    EXPECT_GT(shortLists, 10);
}

} // namespace
} // namespace vorn
