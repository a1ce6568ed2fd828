// BudgetTest.cpp - weights, shares, floors and caps, and what is carried from frame to frame.
#include "movie/Budget.h"

#include <gtest/gtest.h>

#include <deque>
#include <vector>

#include "audio/AudioTrack.h"

using namespace vorn;

namespace {

// A queue of 16x16 pictures with chroma planes of 8x8; all samples are 0 until a test changes them.
struct Queue {
    VornMakeState state = {};
    QueueWeights weights = {};
    std::deque<std::vector<uint8_t>> planes;

    explicit Queue(uint32_t count, uint32_t flags = 0) {
        state.flags = flags;
        state.lumaWidth = state.lumaHeight = 16;
        state.chromaWidth = state.chromaHeight = 8;
        state.queueCount = count;
        state.rateNumerator = 30;
        state.rateDenominator = 1;
        for (uint32_t i = 0; i < count; i++) {
            NewPlanes(&state.queueY[i], &state.queueCr[i], &state.queueCb[i], &state.queueAlpha[i]);
            state.queueRate[i] = 1000;
            state.queueCap[i] = 0xffffffff;
        }
        NewPlanes(&state.previousY, &state.previousCr, &state.previousCb, &state.previousAlpha);
    }
    void NewPlanes(uint8_t** y, uint8_t** cr, uint8_t** cb, uint8_t** alpha) {
        for (uint8_t** plane : {y, cr, cb, alpha}) {
            *plane = planes.emplace_back(plane == y || plane == alpha ? 256 : 64, uint8_t{0}).data();
        }
    }
};

} // namespace

// Two frames of 300 and 100 under targets of 1000 each; the first comes out 100 bytes below its share.
TEST(Budget, SharesFollowWeightsAndSavingsCarryOver) {
    Queue queue(2);
    QueueAccount account = OpenAccount(&queue.state, &queue.weights);
    EXPECT_EQ(account.rateSum, 2000u);
    EXPECT_EQ(account.pool, 2000u);
    EXPECT_EQ(account.weightSum, 0u);
    EXPECT_EQ(FrameShare(account.pool, 300, 400, 2), 1500u);
    ChargeFrame(&account, &queue.state, 0, 1400);
    EXPECT_EQ(account.pool, 600u);
    queue.state.rateCarry = ClampCarry(queue.state.rateCarry, account.rateSum);
    EXPECT_EQ(queue.state.rateCarry, -400);
    EXPECT_EQ(OpenAccount(&queue.state, &queue.weights).pool, 1600u);
}

TEST(Budget, SharesAtTheEdges) {
    EXPECT_EQ(FrameShare(-1, 300, 400, 2), 0u);
    EXPECT_EQ(FrameShare(2001, 0, 0, 2), 1000u);
    EXPECT_EQ(FrameShare(0x7fffffff, 0xfffffffe, 0xffffffff, 2), 0x7ffffffeu);
    EXPECT_EQ(ClampCarry(-3000, 2000), -2000);
    EXPECT_EQ(ClampCarry(3000, 2000), 2000);
    EXPECT_EQ(ClampCarry(INT32_MIN, 0xffffffff), INT32_MIN);
    EXPECT_EQ(ClampCarry(7, 0), 0);
}

// Targets are words that wrap: a huge one leaves the pool a little below 0.
TEST(Budget, TargetsWrap) {
    Queue queue(2);
    queue.state.queueRate[0] = 0xffffff00;
    queue.state.queueRate[1] = 0x80;
    QueueAccount account = OpenAccount(&queue.state, &queue.weights);
    EXPECT_EQ(account.pool, 0xffffff80);
    ChargeFrame(&account, &queue.state, 0, 0x10);
    EXPECT_EQ(account.pool, 0xffffff70);
    EXPECT_EQ(queue.state.rateCarry, -0x110);
}

TEST(Budget, WeightsCountWhatChanged) {
    Queue queue(3, FLAG_GREY);
    // A step of 2 counts for nothing, one of 3 does; half the samples each at two values are a bit a sample.
    for (int i = 0; i < 256; i++) queue.state.queueY[0][i] = 2;
    for (int i = 0; i < 256; i++) queue.state.queueY[1][i] = i % 2 ? 5 : 100;
    for (int i = 0; i < 256; i++) queue.state.queueY[2][i] = i < 128 ? queue.state.queueY[1][i] : i % 2 ? 60 : 90;
    EXPECT_EQ(FrameWeight(&queue.state, 0), 0u);
    EXPECT_EQ(FrameWeight(&queue.state, 1), 256u / 8);
    EXPECT_EQ(FrameWeight(&queue.state, 2), 128u / 8);
    queue.state.queueKey[2] = 1; // four values in equal parts, all samples, times 3/2
    EXPECT_EQ(FrameWeight(&queue.state, 2), 256u * 2 / 8 * 3 / 2);
    EXPECT_EQ(OpenAccount(&queue.state, &queue.weights).weightSum, 32u + 96);
}

// Each plane against its own predecessor.
TEST(Budget, WeightsTakeThePlanesOfTheMovie) {
    for (const uint32_t flags : {0u, FLAG_GREY, FLAG_ALPHA, FLAG_GREY | FLAG_ALPHA}) {
        Queue queue(1, flags);
        VornMakeState& state = queue.state;
        for (int i = 0; i < 64; i++) state.queueCr[0][i] = i % 2 ? 50 : 100;                     // 8 bytes
        for (int i = 0; i < 64; i++) state.queueCb[0][i] = static_cast<uint8_t>(3 + i / 16 * 3); // 16 bytes
        for (int i = 0; i < 256; i++) state.queueAlpha[0][i] = i % 2 ? 50 : 100;                 // 32 bytes
        for (int i = 0; i < 256; i++) state.queueY[0][i] = state.previousY[i] = i % 2 ? 50 : 100;
        const uint32_t chroma = flags & FLAG_GREY ? 0 : 24;
        EXPECT_EQ(FrameWeight(&state, 0), chroma + (flags & FLAG_ALPHA ? 32 : 0)) << flags;
    }
}

TEST(Budget, SoundIsReckonedByItsTallies) {
    Queue queue(2);
    AudioTrackState tracks[2] = {};
    for (AudioTrackState& track : tracks) {
        track.bytesPerSecond = 176400;
        track.pcmLeft = 1000000;
        track.codedTally = 10;
        track.pcmTally = 45;
    }
    queue.state.tracks = tracks;
    EXPECT_EQ(EstimateAudio(&queue.state, 2), 0u); // no tracks counted yet
    queue.state.trackCount = 2;
    EXPECT_EQ(EstimateAudio(&queue.state, 2), 2u * 2613); // 11760 bytes each, 10/45 of them
    tracks[1].pcmLeft = 90;
    EXPECT_EQ(EstimateAudio(&queue.state, 2), 2613u + 20);
    tracks[0].pcmTally = 0xfffffff0; // products are wider than 32 bits
    tracks[0].codedTally = 0x7ffffff8;
    EXPECT_EQ(EstimateAudio(&queue.state, 2), 5880u + 20);
    queue.state.rateDenominator = 0;
    EXPECT_EQ(EstimateAudio(&queue.state, 2), 0u);
}

TEST(Budget, FloorsAndCap) {
    Queue queue(1);
    VornMakeState& state = queue.state;
    state.costY.typeBits = 435; // a 16x16 plane has 4 + 1 blocks, an 8x8 plane 1
    state.costCr.typeBits = state.costCb.typeBits = 307;
    state.costAlpha.typeBits = 332;
    state.queueRate[0] = 0;
    EXPECT_EQ(HoldBudget(&state, 0, 0), (435u * 5 + 614) * 2 / 2048);
    state.flags = FLAG_GREY | FLAG_ALPHA;
    EXPECT_EQ(HoldBudget(&state, 0, 0), (435u + 332) * 5 * 2 / 2048);
    state.queueRate[0] = 1009;
    EXPECT_EQ(HoldBudget(&state, 0, 0), 100u);
    EXPECT_EQ(HoldBudget(&state, 0, 5000), 5000u);
    state.queueCap[0] = 60;
    EXPECT_EQ(HoldBudget(&state, 0, 5000), 60u);
    state.queueCap[0] = 0;
    EXPECT_EQ(HoldBudget(&state, 0, 5000), 0u);
    state.queueCap[0] = 0xffffffff;
    state.costY.typeBits = 0x80000000u / 5 + 1; // the doubled floor drops what overflows
    state.costAlpha.typeBits = 0;
    state.queueRate[0] = 0;
    EXPECT_EQ(HoldBudget(&state, 0, 0), 0u);
}
