// MovieFileTest.cpp - the file around the coded data: rules of the head, frames, movies inside files and half-written ones.
#include <gtest/gtest.h>

#include "tests/reader/Examples.h"

namespace vorn::reader {
namespace {

struct Checked {
    bool readable;
    Movie movie;
    Violations violations;
};
Checked Check(const std::vector<uint8_t>& bytes, const MovieOptions& options = {}) {
    Checked result;
    result.readable = ParseMovie(bytes, options, &result.movie, &result.violations) &&
                      VerifyMovie(result.movie, {}, &result.violations);
    return result;
}

// Movies with other things ahead of them and behind, without frames, and with what a mix may leave: a rate as the caller
// gave it, and the key bit of a frame that never came on the end word.
TEST(MovieFile, PlanesByFlags) {
    MovieOptions options;
    options.offset = 4096;
    for (const uint32_t flags : {0u, MOVIE_FLAG_GREY, MOVIE_FLAG_ALPHA, MOVIE_FLAG_GREY | MOVIE_FLAG_ALPHA}) {
        std::vector<uint8_t> bytes = ExampleMovie(3, 5, flags);
        bytes.insert(bytes.begin(), 4096, 0xee);
        bytes.insert(bytes.end(), 100, 0xee);
        const Checked checked = Check(bytes, options);
        EXPECT_TRUE(checked.readable);
        EXPECT_EQ(AllLines(checked.violations), "");
        MovieDecoder decoder;
        for (uint32_t i = 0; i < 3; i++) {
            Frame frame;
            Violations none;
            ASSERT_TRUE(ReadFrame(checked.movie, i, &frame, &none));
            EXPECT_TRUE(frame.key);
            ASSERT_TRUE(DecodeFrame(checked.movie, frame, &decoder, &none));
            for (int plane = 0; plane < PLANES; plane++) {
                const std::vector<uint8_t> expected(MovieHasPlane(checked.movie, plane) ? 64 : 0, uint8_t(16 + i));
                EXPECT_EQ(decoder.planes[plane].samples, expected) << PlaneName(plane);
            }
        }
    }
    EXPECT_EQ(AllLines(Check(ExampleMovie(0, 4, 0)).violations), "");
    for (const uint32_t denominator : {2u, 0u}) {
        std::vector<uint8_t> mixed = ExampleMovie(3, 5, 0);
        SetWord(&mixed, 28, 50);
        SetWord(&mixed, 32, denominator);
        mixed[56] |= 1;
        EXPECT_EQ(AllLines(Check(mixed).violations), "");
    }
    EXPECT_FALSE(Check(std::vector<uint8_t>(4095), options).readable);
}

// Each rule of the head, broken alone. Offsets of words: frame 0 at 48 + 4 * 5 = 68, index from 44.
TEST(MovieFile, RulesOfTheHead) {
    struct Case {
        size_t offset;
        uint32_t word;
        bool readable;
        Severity severity;
        std::string words;
    };
    const std::vector<uint8_t> good = ExampleMovie(3, 5, MOVIE_FLAG_GREY);
    const uint32_t frameBytes = uint32_t(good.size() - 68) / 3;
    const Case cases[] = {
        {0, 0x654e5256, false, SEVERITY_ERROR, "isn't a Vorn movie"},
        {0, 0x664e5256, true, SEVERITY_HABIT, "older version"},
        {4, 1, true, SEVERITY_ERROR, "The header tells of 9 bytes"},
        {8, 2, true, SEVERITY_ERROR, "bytes follow the last frame"},
        {8, 6, false, SEVERITY_ERROR, "more frames than its index holds"},
        {12, 1, true, SEVERITY_ERROR, "largest frame"},
        {16, 0xffffffff, false, SEVERITY_ERROR, "too short for 0 tracks"},
        {20, 0, false, SEVERITY_ERROR, "A picture of 0 x 8"},
        {24, 1u << 25, false, SEVERITY_ERROR, "too short for a plane of 8 x 33554432"},
        {24, (1u << 25) + 1, false, SEVERITY_ERROR, "can't be read"},
        {28, 0, true, SEVERITY_ERROR, "frame rate is 0"},
        {36, MOVIE_FLAG_GREY | 1, true, SEVERITY_ERROR, "no meaning"},
        {40, 0xffffffff, false, SEVERITY_ERROR, "too short for 4294967295 tracks"},
        {44, 72 | 1, false, SEVERITY_ERROR, ""}, // the first frame's difference is 4 short, and the offset wrong
        {48, 68 | 1, false, SEVERITY_ERROR, "doesn't rise at frame 0"},
        {56, 68 + 3 * frameBytes + 4, false, SEVERITY_ERROR, "Frame 2 reaches beyond"},
        {64, 2, true, SEVERITY_ERROR, "Word 5 of the index"},
    };
    for (const Case& example : cases) {
        std::vector<uint8_t> bytes = good;
        SetWord(&bytes, example.offset, example.word);
        const Checked checked = Check(bytes);
        EXPECT_EQ(checked.readable, example.readable) << example.words;
        EXPECT_TRUE(Tells(checked.violations, example.severity, example.words)) << example.words << "\n"
                                                                                << AllLines(checked.violations);
    }
}

TEST(MovieFile, SizesOfPlanes) {
    std::vector<uint8_t> bytes = ExampleMovie(1, 1, MOVIE_FLAG_GREY);
    const uint32_t size = uint32_t(bytes.size()) - 52;
    for (const uint32_t wrong : {0u, 3u, size + 4, 0xffffffffu}) {
        SetWord(&bytes, 52, wrong);
        EXPECT_TRUE(Tells(Check(bytes).violations, SEVERITY_ERROR, "plane Y: A plane size of")) << wrong;
    }
    SetWord(&bytes, 52, size - 4);
    EXPECT_TRUE(Tells(Check(bytes).violations, SEVERITY_ERROR, "4 bytes follow the last plane"));
}

// A flushed movie: more packets follow than are counted, and the next frame's key bit stands on the end word.
TEST(MovieFile, GrowingMovie) {
    std::vector<uint8_t> bytes = ExampleMovie(3, 5, 0);
    SetWord(&bytes, 8, 2);
    SetWord(&bytes, 56, 0);
    bytes[52] |= 1;
    MovieOptions options;
    EXPECT_EQ(Check(bytes, options).violations.errors, 2u);
    options.growing = true;
    const Checked checked = Check(bytes, options);
    EXPECT_TRUE(checked.readable);
    EXPECT_EQ(AllLines(checked.violations), "");
}

TEST(MovieFile, LongListsOfViolationsAreCut) {
    Violations violations;
    violations.room = 3;
    for (int i = 0; i < 10; i++) AddViolation(&violations, {SEVERITY_HABIT});
    AddViolation(&violations, {SEVERITY_ERROR});
    EXPECT_EQ(violations.habits, 10u);
    EXPECT_EQ(violations.list.size(), 4u); // the error finds a place
    EXPECT_EQ(violations.list.back().severity, SEVERITY_ERROR);
}

} // namespace
} // namespace vorn::reader
