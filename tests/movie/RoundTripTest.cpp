// RoundTripTest.cpp - what the encoder believes that a decoder shows is what the reader gets out of the file.
#include <gtest/gtest.h>

#include "tests/movie/MovieMaking.h"

using namespace vorn;

namespace {

struct Size {
    uint32_t width, height;
};

const VornMakeState* movie;           // in hand
std::vector<FramePlanes> shownFrames; // as the encoder left them behind
std::vector<uint32_t> errors;         // sums of absolute differences that it reports

// Keeps the frame finished last, if it isn't kept yet.
void NoteFrame(const VornMakeState* state) {
    if (shownFrames.size() == state->framesDone) return;
    ASSERT_EQ(shownFrames.size() + 1, state->framesDone);
    const uint32_t shown = state->referenceSelect;
    const size_t luma = state->lumaWidth * state->lumaHeight;
    const size_t chroma = state->flags & FLAG_GREY ? 0 : state->chromaWidth * state->chromaHeight;
    const auto keep = [](std::vector<uint8_t>* plane, const uint8_t* samples, size_t count) {
        plane->assign(samples, samples + count);
    };
    FramePlanes& planes = shownFrames.emplace_back();
    keep(&planes[reader::PLANE_Y], state->referenceY[shown], luma);
    keep(&planes[reader::PLANE_CR], state->referenceCr[shown], chroma);
    keep(&planes[reader::PLANE_CB], state->referenceCb[shown], chroma);
    keep(&planes[reader::PLANE_ALPHA], state->referenceAlpha[shown], state->flags & FLAG_ALPHA ? luma : 0);
    errors.push_back(state->frameErrors[state->framesDone - 1]);
}

// Each frame is announced when the one before it is complete.
uint32_t VORN_CALL NoteProgress(uint32_t code, void* record, const char* text) {
    EXPECT_EQ(code, uint32_t{VORN_PROGRESS}) << text;
    NoteFrame(static_cast<VornMakeState*>(record));
    return 0;
}

class RoundTrip : public testing::Test {
protected:
    TestFolder folder;
    PlatformSeam seam;
    Workers workers{1};

    RoundTrip() {
        // The last frame may come into being in VornMakeClose; the record is still whole when the file is closed.
        seam.table.closeFile = [](FileHandle file) {
            NoteFrame(movie);
            SYSTEM_PLATFORM.closeFile(file);
        };
    }

    // Makes the movie, hands in `surplus` frames when it is full, reads it back and compares.
    ReadMovie Check(MoviePlan plan, uint32_t surplus = 0) {
        SCOPED_TRACE(Describe(plan));
        const std::string name = folder / "movie";
        shownFrames.clear();
        errors.clear();
        VornMakeState* state = OpenMovie(&plan, name, NoteProgress);
        movie = state;
        EXPECT_NE(movie, nullptr);
        if (movie == nullptr) return {};
        for (uint32_t frame = 0; frame < plan.frames + surplus; frame++) PutFrame(state, plan, frame);
        const uint64_t size = VornMakeClose(state, 0);
        const std::string bytes = ReadWholeFile(name);
        EXPECT_EQ(bytes.size(), size);
        ReadMovie read = ReadBack(bytes);
        EXPECT_EQ(read.complaint, "");
        EXPECT_EQ(read.movie.header.frames, plan.frames);
        EXPECT_TRUE(read.frames == shownFrames);
        return read;
    }

    // With bytes enough for everything: luma and alpha of every pixel by the plain formula.
    void CheckExactly(const MoviePlan& plan) {
        const ReadMovie read = Check(plan);
        if (HasFailure()) return;
        for (uint32_t frame = 0; frame < plan.frames; frame++) {
            EXPECT_EQ(errors[frame], 0u);
            for (uint32_t i = 0; i < plan.width * plan.height; i++) {
                const uint32_t x = i % plan.width, y = i / plan.width;
                const uint32_t pixel = DrawPixel(plan.content, x, y, frame);
                const uint32_t blue = pixel & 255, green = pixel >> 8 & 255, red = pixel >> 16 & 255;
                const size_t at = size_t{y} * read.movie.lumaWidth + x;
                ASSERT_EQ(read.frames[frame][reader::PLANE_Y][at], (263 * red + 516 * green + 100 * blue) / 1024 + 16);
                if (plan.options < ALPHA) continue;
                ASSERT_EQ(read.frames[frame][reader::PLANE_ALPHA][at], pixel >> 24);
            }
        }
    }
};

constexpr uint32_t BOUNDLESS = 0x7fffffff / 64; // as a rate

} // namespace

TEST_F(RoundTrip, EveryContentWithEverySetOfPlanes) {
    for (const Content content : CONTENTS) {
        for (const uint32_t options : {0u, GREY, ALPHA, GREY + ALPHA}) {
            for (const uint32_t rate : {80u, 700u}) {
                Check({.content = content, .keyInterval = 3, .options = options, .rate = rate, .padding = 12});
            }
        }
        CheckExactly({.content = content, .options = ALPHA, .rate = 1000000});
    }
}

// With bytes without end nothing is lost, however small or noisy the picture is.
TEST_F(RoundTrip, UnlimitedRateIsExact) {
    for (const auto& [width, height] : {Size{1, 1}, {8, 8}, {17, 9}, {9, 17}, {16, 16}, {33, 3}}) {
        for (const uint32_t options : {0u, GREY + ALPHA, ALPHA}) {
            MoviePlan plan = {.content = Content::NOISE, .width = width, .height = height};
            plan.options = options;
            plan.rate = BOUNDLESS;
            CheckExactly(plan);
        }
    }
}

TEST_F(RoundTrip, OddSizes) {
    for (const auto& [width, height] : {Size{1, 40}, {7, 5}, {15, 31}, {41, 8}, {120, 1}, {57, 33}}) {
        for (const uint32_t rate : {30u, 400u})
            Check({.width = width, .height = height, .options = ALPHA, .rate = rate});
    }
}

// As wide as can be, where counts of elements have the most bits and come nearest to their ends; and very high.
TEST_F(RoundTrip, WidestAndHighest) {
    for (const auto& [width, height] : {Size{4032, 1}, {4025, 20}, {1, 3000}}) {
        MoviePlan plan = {.content = Content::NOISE, .width = width, .height = height, .frames = 2};
        for (const uint32_t rate : {0u, 20000u}) {
            plan.rate = rate;
            Check(plan);
        }
        plan.rate = BOUNDLESS;
        CheckExactly(plan);
    }
}

TEST_F(RoundTrip, KeyFramesComeWhenTheyAreDue) {
    for (const uint32_t interval : {0u, 1u, 3u, 7u, 100u}) {
        const ReadMovie read = Check({.frames = 8, .keyInterval = interval});
        ASSERT_FALSE(HasFailure());
        for (uint32_t frame = 0; frame < 8; frame++) {
            const bool due = interval != 0 ? frame % interval == 0 : frame == 0;
            EXPECT_EQ(read.movie.index[frame] & KEY_FRAME_BIT, due ? KEY_FRAME_BIT : 0) << interval << ' ' << frame;
        }
    }
}

// Full queues that slide along, queues that the last promised frame drains, and those that only the close drains.
TEST_F(RoundTrip, LookAheads) {
    for (int32_t lookAhead = 1; lookAhead <= 64; lookAhead++) {
        MoviePlan plan = {.content = Content::STATIC, .width = 16, .height = 16};
        plan.rate = 60;
        plan.lookAhead = lookAhead;
        plan.frames = static_cast<uint32_t>(lookAhead % 7 == 0 ? 3 : lookAhead + 5);
        plan.capacity = lookAhead % 2 == 0 ? 200 : 0;
        Check(plan);
    }
}

// Frames that find the movie full are ignored, also when it has room for none.
TEST_F(RoundTrip, Capacities) {
    for (const uint32_t frames : {0u, 1u, 2u}) {
        for (const int32_t lookAhead : {2, 64}) {
            Check({.frames = frames, .lookAhead = lookAhead, .sounds = {{8000, 1, 10}}}, 3);
        }
    }
    Check({.frames = 2, .capacity = 1000000});
}

TEST_F(RoundTrip, FrameRates) {
    const uint32_t rates[][2] = {{1, UINT32_MAX},           {UINT32_MAX, 1}, {UINT32_MAX, UINT32_MAX - 1},
                                 {0x80000000u, 0x7fffffff}, {30000, 1001},   {65521, 65519}};
    for (const auto& [numerator, denominator] : rates) {
        MoviePlan plan = {.frames = 3, .rateNumerator = numerator, .rateDenominator = denominator};
        if (numerator > 1) plan.sounds = {{8000, 1, 10}}; // a frame that lasts 136 years would take some
        const ReadMovie read = Check(plan);
        EXPECT_EQ(read.movie.header.rateNumerator, numerator);
        EXPECT_EQ(read.movie.header.rateDenominator, denominator);
    }
}

TEST_F(RoundTrip, RatesAndCapsAtTheirEnds) {
    for (const Content content : {Content::NOISE, Content::FILM, Content::STATIC}) {
        for (const uint32_t rate : {0u, 1u, 150u, 0x7fffffffu, 0xffffffffu}) {
            for (const uint32_t cap : {0u, 200u, UINT32_MAX}) {
                Check({.content = content, .frames = 5, .lookAhead = 3, .rate = rate, .cap = cap});
            }
        }
    }
}

TEST_F(RoundTrip, WithSoundInBothVariants) {
    MoviePlan plan = {.width = 16, .height = 16, .frames = 30};
    plan.sounds = {{44100, 2, 10}, {22050, 1, 110}, {8000, 1, 0}};
    Check(plan);
    plan.capacity = 90; // closed early
    Check(plan);
}
