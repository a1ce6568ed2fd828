// FrameDriverTest.cpp - the stages of a frame: their order and texts, and the memory they take.
#include "allocation/FrameDriver.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "allocation/CostModels.h"

using namespace vorn;

namespace {

// What the callback heard.
std::vector<std::string> stages;

uint32_t VORN_CALL Listen(uint32_t code, void* record, const char* text) {
    EXPECT_EQ(code, static_cast<uint32_t>(VORN_PROGRESS));
    EXPECT_EQ(static_cast<VornMakeState*>(record)->progressFrame, -1);
    stages.push_back(text);
    return 0;
}

// A movie of 40x24 pixels with one noisy frame queued.
struct Movie {
    VornMakeState state = {};
    std::vector<std::vector<uint8_t>> buffers;

    explicit Movie(uint32_t flags) {
        stages.clear();
        state.flags = flags;
        state.lumaWidth = 40;
        state.lumaHeight = 24;
        state.chromaWidth = 24;
        state.chromaHeight = 16;
        state.queueKey[0] = 1;
        state.progressCallback = Listen;
        Add(PlaneKind::LUMA, &state.queueY[0], state.referenceY, &state.packetY, &state.costY);
        Add(PlaneKind::CHROMA, &state.queueCr[0], state.referenceCr, &state.packetCr, &state.costCr);
        Add(PlaneKind::CHROMA, &state.queueCb[0], state.referenceCb, &state.packetCb, &state.costCb);
        Add(PlaneKind::ALPHA, &state.queueAlpha[0], state.referenceAlpha, &state.packetAlpha, &state.costAlpha);
    }
    void Add(PlaneKind kind, uint8_t** source, uint8_t** reference, uint8_t** packet, CostModel* model) {
        const uint32_t width = kind == PlaneKind::CHROMA ? 24 : 40;
        const uint32_t height = kind == PlaneKind::CHROMA ? 16 : 24;
        const size_t samples = size_t{width} * height;
        for (uint8_t** buffer : {source, &reference[0], &reference[1]}) *buffer = NewBuffer(samples);
        *packet = NewBuffer(PacketBytes(width, height));
        std::mt19937 random(5);
        for (size_t i = 0; i < samples; i++) (*source)[i] = static_cast<uint8_t>(random());
        SetCostModelDefaults(model, kind);
        RefreshCostModel(model);
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

} // namespace

TEST(FrameDriver, StagesFollowThePlanes) {
    for (const uint32_t flags : {0u, FLAG_GREY, FLAG_ALPHA, FLAG_GREY | FLAG_ALPHA}) {
        Movie movie(flags);
        FrameResult result;
        ASSERT_TRUE(CompressFrame(&movie.state, 0, 300, &result));
        const bool chroma = (flags & FLAG_GREY) == 0;
        const bool alpha = (flags & FLAG_ALPHA) != 0;
        std::vector<std::string> expected = ALL_STAGES;
        std::erase_if(expected, [&](const std::string& stage) {
            const bool ofChroma = stage.find(" Cr ") != stage.npos || stage.find(" Cb ") != stage.npos;
            return (ofChroma && !chroma) || (stage.find("alpha") != stage.npos && !alpha);
        });
        EXPECT_EQ(stages, expected);
        EXPECT_EQ(movie.state.referenceSelect, 1u);
        const bool present[] = {true, chroma, chroma, alpha};
        for (int plane = 0; plane < 4; plane++) {
            EXPECT_EQ(result.sizes[plane] != 0, present[plane]);
            EXPECT_EQ(result.errors[plane] != 0, present[plane]); // noise at this budget is never exact
        }
    }
}

TEST(FrameDriver, SizesAreWiderThanWords) {
    EXPECT_GE(PacketBytes(640, 480), 640u * 480 * 11 / 10);
    EXPECT_GT(FrameScratchBytes(4032, 65528, 2016, 32768), uint64_t{1} << 32);
    EXPECT_LT(FrameScratchBytes(640, 480, 320, 240), 20u << 20);
}
