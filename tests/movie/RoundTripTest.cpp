// RoundTripTest.cpp - what the encoder believes that a decoder shows is what the reader gets out of the file.
#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>

#include "tests/movie/MovieMaking.h"

using namespace vorn;

namespace {

// A frame as the encoder left it behind.
struct MadeFrame {
    FramePlanes planes;
    uint32_t error; // sum of absolute differences that it reports
};
std::vector<MadeFrame> madeFrames; // of the movie in hand

// Keeps the frame finished last, if it isn't kept yet.
void NoteFrame(const VornMakeState* state) {
    if (madeFrames.size() == state->framesDone) return;
    ASSERT_EQ(madeFrames.size() + 1, state->framesDone);
    const uint32_t shown = state->referenceSelect;
    const uint8_t* planes[] = {state->referenceY[shown], state->referenceCr[shown], state->referenceCb[shown],
                               state->referenceAlpha[shown]};
    MadeFrame& frame = madeFrames.emplace_back();
    for (size_t plane = 0; plane < frame.planes.size(); plane++) {
        const bool chroma = plane == reader::PLANE_CR || plane == reader::PLANE_CB;
        if (chroma && (state->flags & FLAG_GREY) != 0) continue;
        if (plane == reader::PLANE_ALPHA && (state->flags & FLAG_ALPHA) == 0) continue;
        const size_t samples = chroma ? state->chromaWidth * state->chromaHeight : state->lumaWidth * state->lumaHeight;
        frame.planes[plane].assign(planes[plane], planes[plane] + samples);
    }
    frame.error = state->frameErrors[state->framesDone - 1];
}

// Each frame is announced when the one before it is complete.
uint32_t VORN_CALL NoteProgress(uint32_t code, void* record, const char* text) {
    EXPECT_EQ(code, uint32_t{VORN_PROGRESS}) << text;
    NoteFrame(static_cast<VornMakeState*>(record));
    return 0;
}

VornMakeState* stateInHand;

class RoundTrip : public testing::Test {
protected:
    TestFolder folder;
    PlatformSeam seam;
    Workers workers{1};
    uint32_t surplus = 0; // frames handed in when the movie is full

    RoundTrip() {
        // The last frame may come into being in VornMakeClose; the record is still whole when the file is closed.
        seam.table.closeFile = [](FileHandle file) {
            NoteFrame(stateInHand);
            SYSTEM_PLATFORM.closeFile(file);
        };
    }

    // Makes the movie, reads it back and compares.
    ReadMovie Check(MoviePlan plan) {
        SCOPED_TRACE(Describe(plan));
        const std::string name = folder / "movie";
        madeFrames.clear();
        stateInHand = OpenMovie(&plan, name, NoteProgress);
        EXPECT_NE(stateInHand, nullptr);
        if (stateInHand == nullptr) return {};
        for (uint32_t frame = 0; frame < plan.frames + surplus; frame++) PutFrame(stateInHand, plan, frame);
        const uint64_t size = VornMakeClose(stateInHand, 0);
        const std::string bytes = ReadWholeFile(name);
        EXPECT_EQ(bytes.size(), size);
        ReadMovie read = ReadBack(bytes);
        EXPECT_EQ(read.complaint, "");
        EXPECT_EQ(read.movie.header.frames, plan.frames);
        EXPECT_EQ(read.frames.size(), madeFrames.size());
        for (size_t frame = 0; frame < std::min(read.frames.size(), madeFrames.size()); frame++) {
            EXPECT_TRUE(read.frames[frame] == madeFrames[frame].planes) << "frame " << frame;
        }
        return read;
    }
};

// Luma and alpha of every pixel by the plain formula.
void ExpectExactPicture(const MoviePlan& plan, const ReadMovie& read) {
    for (uint32_t frame = 0; frame < plan.frames; frame++) {
        EXPECT_EQ(madeFrames[frame].error, 0u);
        for (uint32_t y = 0; y < plan.height; y++) {
            for (uint32_t x = 0; x < plan.width; x++) {
                const uint32_t pixel = DrawPixel(plan.content, x, y, frame);
                const uint32_t blue = pixel & 255, green = pixel >> 8 & 255, red = pixel >> 16 & 255;
                const size_t at = size_t{y} * read.movie.lumaWidth + x;
                ASSERT_EQ(read.frames[frame][reader::PLANE_Y][at], (263 * red + 516 * green + 100 * blue) / 1024 + 16);
                if (plan.options < ALPHA) continue;
                ASSERT_EQ(read.frames[frame][reader::PLANE_ALPHA][at], pixel >> 24);
            }
        }
    }
}

} // namespace

TEST_F(RoundTrip, EveryContentWithEverySetOfPlanes) {
    for (const Content content : CONTENTS) {
        for (const uint32_t options : {0u, GREY, ALPHA, GREY + ALPHA}) {
            MoviePlan plan;
            plan.content = content;
            plan.options = options;
            plan.keyInterval = 3;
            plan.padding = 12;
            for (const uint32_t rate : {80u, 700u}) {
                plan.rate = rate;
                Check(plan);
            }
        }
    }
}

// With bytes without end nothing is lost, however small or noisy the picture is.
TEST_F(RoundTrip, UnlimitedRateIsExact) {
    const uint32_t sizes[][2] = {{1, 1}, {8, 8}, {17, 9}, {9, 17}, {16, 16}, {33, 3}};
    for (const auto& size : sizes) {
        for (const uint32_t options : {0u, GREY + ALPHA, ALPHA}) {
            MoviePlan plan;
            plan.content = Content::NOISE;
            plan.width = size[0];
            plan.height = size[1];
            plan.options = options;
            plan.rate = 0x7fffffff / 64;
            const ReadMovie read = Check(plan);
            if (HasFailure()) return;
            ExpectExactPicture(plan, read);
        }
    }
    for (const Content content : CONTENTS) {
        MoviePlan plan;
        plan.content = content;
        plan.rate = 1000000;
        plan.options = ALPHA;
        const ReadMovie read = Check(plan);
        if (HasFailure()) return;
        ExpectExactPicture(plan, read);
    }
}

TEST_F(RoundTrip, OddSizes) {
    const uint32_t sizes[][2] = {{1, 40}, {7, 5}, {15, 31}, {41, 8}, {120, 1}, {57, 33}};
    for (const auto& size : sizes) {
        MoviePlan plan;
        plan.width = size[0];
        plan.height = size[1];
        plan.options = ALPHA;
        for (const uint32_t rate : {30u, 400u}) {
            plan.rate = rate;
            Check(plan);
        }
    }
}

// As wide as can be, where counts of elements have the most bits and come nearest to their ends; and very high.
TEST_F(RoundTrip, WidestAndHighest) {
    const uint32_t sizes[][2] = {{4032, 1}, {4025, 20}, {1, 3000}};
    for (const auto& size : sizes) {
        for (const uint32_t rate : {0u, 20000u, 0x7fffffffu / 64}) {
            MoviePlan plan;
            plan.content = Content::NOISE;
            plan.width = size[0];
            plan.height = size[1];
            plan.frames = 2;
            plan.rate = rate;
            const ReadMovie read = Check(plan);
            if (HasFailure()) return;
            if (rate > 20000) ExpectExactPicture(plan, read);
        }
    }
}

TEST_F(RoundTrip, KeyFramesComeWhenTheyAreDue) {
    for (const uint32_t interval : {0u, 1u, 3u, 7u, 100u}) {
        MoviePlan plan;
        plan.frames = 8;
        plan.keyInterval = interval;
        const ReadMovie read = Check(plan);
        if (HasFailure()) return;
        for (uint32_t frame = 0; frame < plan.frames; frame++) {
            const bool due = interval != 0 ? frame % interval == 0 : frame == 0;
            EXPECT_EQ(read.movie.index[frame] & KEY_FRAME_BIT, due ? KEY_FRAME_BIT : 0) << interval << ' ' << frame;
        }
    }
}

// Full queues that slide along, queues that the last promised frame drains, and those that only the close drains.
TEST_F(RoundTrip, LookAheads) {
    for (int32_t lookAhead = 1; lookAhead <= 64; lookAhead++) {
        MoviePlan plan;
        plan.content = Content::STATIC;
        plan.width = plan.height = 16;
        plan.rate = 60;
        plan.lookAhead = lookAhead;
        plan.frames = static_cast<uint32_t>(lookAhead % 7 == 0 ? 3 : lookAhead + 5);
        plan.capacity = lookAhead % 2 == 0 ? 200 : 0;
        Check(plan);
    }
}

// Frames that find the movie full are ignored, also when it has room for none.
TEST_F(RoundTrip, Capacities) {
    surplus = 3;
    for (const uint32_t capacity : {0u, 1u, 2u}) {
        for (const int32_t lookAhead : {2, 64}) {
            MoviePlan plan;
            plan.frames = capacity;
            plan.lookAhead = lookAhead;
            plan.sounds = {{8000, 1, 10}};
            Check(plan);
        }
    }
    surplus = 0;
    MoviePlan roomy;
    roomy.capacity = 1000000;
    roomy.frames = 2;
    Check(roomy);
}

TEST_F(RoundTrip, FrameRates) {
    const uint32_t rates[][3] = {{1, UINT32_MAX, 0},           {UINT32_MAX, 1, 1}, {UINT32_MAX, UINT32_MAX - 1, 1},
                                 {0x80000000u, 0x7fffffff, 1}, {30000, 1001, 1},   {65521, 65519, 1}};
    for (const auto& rate : rates) {
        MoviePlan plan;
        plan.frames = 3;
        plan.rateNumerator = rate[0];
        plan.rateDenominator = rate[1];
        if (rate[2] != 0) plan.sounds = {{8000, 1, 10}}; // a frame that lasts 136 years would take some
        const ReadMovie read = Check(plan);
        EXPECT_EQ(read.movie.header.rateNumerator, rate[0]);
        EXPECT_EQ(read.movie.header.rateDenominator, rate[1]);
    }
}

TEST_F(RoundTrip, RatesAndCapsAtTheirEnds) {
    for (const Content content : {Content::NOISE, Content::FILM, Content::STATIC}) {
        for (const uint32_t rate : {0u, 1u, 150u, 0x7fffffffu, 0xffffffffu}) {
            for (const uint32_t cap : {0u, 200u, UINT32_MAX}) {
                MoviePlan plan;
                plan.content = content;
                plan.rate = rate;
                plan.cap = cap;
                plan.lookAhead = 3;
                plan.frames = 5;
                Check(plan);
            }
        }
    }
}

TEST_F(RoundTrip, WithSoundInBothVariants) {
    MoviePlan plan;
    plan.frames = 30;
    plan.sounds = {{44100, 2, 10}, {22050, 1, 110}, {8000, 1, 0}};
    plan.width = plan.height = 16;
    Check(plan);
    plan.capacity = 90; // closed early
    Check(plan);
}
