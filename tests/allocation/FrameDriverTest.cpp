// FrameDriverTest.cpp - the stages of a frame: their order and texts, what stops it, what a failed frame leaves alone.
#include "allocation/FrameDriver.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "allocation/CostModels.h"

using namespace vorn;

namespace {

// What the callback heard, and when it is to interfere.
std::vector<std::string> stages;
int stopAt;   // stage number at which it returns 1, or -1
int giveUpAt; // stage number at which it sets cancel to 2, or -1

uint32_t VORN_CALL Listen(uint32_t code, void* record, const char* text) {
    VornMakeState* state = static_cast<VornMakeState*>(record);
    EXPECT_EQ(code, static_cast<uint32_t>(VORN_PROGRESS));
    EXPECT_EQ(state->progressFrame, -1);
    const int stage = static_cast<int>(stages.size());
    stages.push_back(text);
    if (stage == giveUpAt) state->cancel = 2;
    return stage == stopAt ? 1 : 0;
}

// A movie of 40x24 pixels with one noisy frame queued.
struct Movie {
    VornMakeState state = {};
    std::vector<std::vector<uint8_t>> buffers;

    explicit Movie(uint32_t flags) {
        stages.clear();
        stopAt = giveUpAt = -1;
        state.flags = flags;
        state.lumaWidth = 40;
        state.lumaHeight = 24;
        state.chromaWidth = 24;
        state.chromaHeight = 16;
        state.queueKey[0] = 1;
        state.progressCallback = Listen;
        buffers.reserve(16);
        Add(40, 24, &state.queueY[0], state.referenceY, &state.packetY);
        Add(24, 16, &state.queueCr[0], state.referenceCr, &state.packetCr);
        Add(24, 16, &state.queueCb[0], state.referenceCb, &state.packetCb);
        Add(40, 24, &state.queueAlpha[0], state.referenceAlpha, &state.packetAlpha);
        CostModel* models[] = {&state.costY, &state.costCr, &state.costCb, &state.costAlpha};
        const PlaneKind kinds[] = {PlaneKind::LUMA, PlaneKind::CHROMA, PlaneKind::CHROMA, PlaneKind::ALPHA};
        for (int i = 0; i < 4; i++) {
            SetCostModelDefaults(models[i], kinds[i]);
            RefreshCostModel(models[i]);
        }
    }
    void Add(uint32_t width, uint32_t height, uint8_t** source, uint8_t** reference, uint8_t** packet) {
        const size_t samples = size_t{width} * height;
        for (uint8_t** buffer : {source, &reference[0], &reference[1]}) *buffer = NewBuffer(samples);
        *packet = NewBuffer(PacketBytes(width, height));
        std::mt19937 random(5);
        for (size_t i = 0; i < samples; i++) (*source)[i] = static_cast<uint8_t>(random());
    }
    uint8_t* NewBuffer(size_t bytes) { return buffers.emplace_back(bytes, uint8_t{0}).data(); }
};

const std::vector<std::string> ALL_STAGES = {"Compressing Y plane",
                                             "Compressing Cr plane",
                                             "Compressing Cb plane",
                                             "Compressing alpha plane",
                                             "Compressing Y high-plane",
                                             "Compressing Cr high-plane",
                                             "Compressing alpha high-plane",
                                             "Allocating bandwidth",
                                             "Merging multi-resolution planes",
                                             "Encoding Y plane",
                                             "Encoding Cr plane",
                                             "Encoding Cb plane",
                                             "Encoding alpha plane"};

// The stages of a movie that lacks planes.
std::vector<std::string> StagesWithout(std::vector<std::string> words) {
    std::vector<std::string> left;
    for (const std::string& stage : ALL_STAGES) {
        bool keep = true;
        for (const std::string& word : words) keep = keep && stage.find(word) == std::string::npos;
        if (keep) left.push_back(stage);
    }
    return left;
}

void* VORN_CALL NoMemory(uint32_t) {
    return reinterpret_cast<void*>(~uintptr_t{0});
}
void VORN_CALL NoRelease(void*) {}

} // namespace

TEST(FrameDriver, StagesFollowThePlanes) {
    const std::vector<std::string> expected[] = {StagesWithout({"alpha"}), StagesWithout({" Cr ", " Cb ", "alpha"}),
                                                 ALL_STAGES, StagesWithout({" Cr ", " Cb "})};
    const uint32_t flags[] = {0, FLAG_GREY, FLAG_ALPHA, FLAG_GREY | FLAG_ALPHA};
    for (int i = 0; i < 4; i++) {
        Movie movie(flags[i]);
        FrameResult result;
        ASSERT_TRUE(CompressFrame(&movie.state, 0, 300, &result));
        EXPECT_EQ(stages, expected[i]);
        EXPECT_EQ(movie.state.referenceSelect, 1u);
        const bool present[] = {true, (flags[i] & FLAG_GREY) == 0, (flags[i] & FLAG_GREY) == 0,
                                (flags[i] & FLAG_ALPHA) != 0};
        for (int plane = 0; plane < 4; plane++) {
            EXPECT_EQ(result.sizes[plane] != 0, present[plane]);
            EXPECT_EQ(result.errors[plane] != 0, present[plane]); // noise at this budget is never exact
        }
    }
}

// With room for everything nothing is lost, whatever the noise; the error is 0 because the planes are equal.
TEST(FrameDriver, UnlimitedBudgetIsExact) {
    Movie movie(FLAG_ALPHA);
    FrameResult result;
    ASSERT_TRUE(CompressFrame(&movie.state, 0, 0xffffffff, &result));
    for (const uint32_t error : result.errors) EXPECT_EQ(error, 0u);
    EXPECT_EQ(std::vector<uint8_t>(movie.state.referenceCb[1], movie.state.referenceCb[1] + 24 * 16),
              std::vector<uint8_t>(movie.state.queueCb[0], movie.state.queueCb[0] + 24 * 16));
    movie.state.queueKey[0] = 0; // the same frame once more costs next to nothing and stays exact
    FrameResult second;
    ASSERT_TRUE(CompressFrame(&movie.state, 0, 0, &second));
    EXPECT_EQ(movie.state.referenceSelect, 0u);
    for (int plane = 0; plane < 4; plane++) {
        EXPECT_EQ(second.errors[plane], 0u);
        EXPECT_LT(second.sizes[plane], result.sizes[plane] / 4);
    }
}

TEST(FrameDriver, CallbackStopsOrGivesUp) {
    for (int stage = 0; stage < static_cast<int>(ALL_STAGES.size()); stage++) {
        Movie stopped(FLAG_ALPHA);
        stopAt = stage;
        FrameResult result;
        EXPECT_TRUE(CompressFrame(&stopped.state, 0, 300, &result));
        EXPECT_EQ(stopped.state.cancel, 1u);
        EXPECT_EQ(stages.size(), ALL_STAGES.size());

        Movie given(FLAG_ALPHA);
        giveUpAt = stage;
        EXPECT_FALSE(CompressFrame(&given.state, 0, 300, &result));
        EXPECT_EQ(given.state.referenceSelect, 0u);
        EXPECT_EQ(stages.size(), static_cast<size_t>(stage + 1));
    }
}

TEST(FrameDriver, FailsWithoutMemory) {
    Movie movie(0);
    FrameResult result;
    MOKSetMemory(NoMemory, NoRelease);
    EXPECT_FALSE(CompressFrame(&movie.state, 0, 300, &result));
    MOKSetMemory(nullptr, nullptr);
    EXPECT_TRUE(stages.empty());
    EXPECT_EQ(movie.state.referenceSelect, 0u);
    EXPECT_TRUE(CompressFrame(&movie.state, 0, 300, &result));
}

TEST(FrameDriver, SizesAreWiderThanWords) {
    EXPECT_GE(PacketBytes(640, 480), 640u * 480 * 11 / 10);
    EXPECT_GT(FrameScratchBytes(4032, 65528, 2016, 32768), uint64_t{1} << 32);
    EXPECT_LT(FrameScratchBytes(640, 480, 320, 240), 20u << 20);
}
