// OpenCloseTest.cpp - a movie's life around its frames: what VornMake refuses and sets up, the head of the file byte by
// byte, who may use the file when, and what becomes of the two names.
#include <algorithm>
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "audio/AudioTrack.h"
#include "movie/Movie.h"
#include "tests/files/TestSeams.h"

using namespace vorn;

namespace {

std::vector<std::string> messages; // of the test in hand; those about a movie that exists end in '*'

uint32_t VORN_CALL NoteMessage(uint32_t code, void* record, const char* text) {
    if (code == VORN_MESSAGE) messages.push_back(text + std::string(record != nullptr ? "*" : ""));
    return 0;
}

uint32_t VORN_CALL Silence(void*, uintptr_t, void*, uint32_t) {
    return 0;
}

// The arguments of VornMake with values that are in order.
struct Arguments {
    const char* name;
    uint32_t width = 16, height = 8, frames = 3, options = 0, numerator = 25, denominator = 1;
    uint32_t trackCount = 0;
    const TrackDescriptor* tracks = nullptr;
    int32_t lookAhead = 2;
    ProgressCallback callback = NoteMessage;

    VornMakeState* Open() const {
        return VornMake(name, 64, width, height, frames, 9, options, numerator, denominator, trackCount, tracks,
                        lookAhead, callback);
    }
};

class OpenClose : public testing::Test {
protected:
    TestFolder folder;
    const std::string name = folder / "movie", temp = name + ".tmp";
    Arguments arguments = {name.c_str()};
    OpenClose() { messages.clear(); }
};

std::string Words(const std::vector<uint32_t>& words) {
    std::string bytes;
    for (const uint32_t word : words) {
        for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(word >> shift);
    }
    return bytes;
}

constexpr uint32_t MAGIC = 0x694E5256; // "VRNi"

} // namespace

TEST_F(OpenClose, HeadIsRightByteByByteAtOpenFlushAndClose) {
    arguments.options = 1117; // alpha, grey, header mode 17 of which 1 is left
    arguments.numerator = 60;
    arguments.denominator = 2;
    const TrackDescriptor tracks[] = {{77, 44100, 16, 2, 4, 0, Silence}, {5, 22050, 8, 1, 104, 0, Silence}};
    arguments.tracks = tracks;
    arguments.trackCount = 2;
    VornMakeState* state = arguments.Open();
    const uint32_t flags = 1u << 17 | 1u << 20 | 1u << 28;
    const uint32_t formats[] = {44100 + (1u << 28) + (1u << 29) + (1u << 30), 22050 + (1u << 31)};
    const std::string rest = Words({0, 0, 3, 16, 8, 30, 1, flags, 2, 0, 0, formats[0], formats[1], 77, 5, 0, 0, 0, 0});
    SpoolFlush(state->file, false);
    EXPECT_EQ(ReadWholeFile(temp), Words({MAGIC, 0}) + rest);
    EXPECT_EQ(VornMakeFlush(state), 1u);
    EXPECT_EQ(ReadWholeFile(temp), Words({MAGIC, 76}) + rest);
    EXPECT_EQ(VornMakeClose(state, 0), 84u);
    EXPECT_EQ(ReadWholeFile(name), Words({MAGIC, 76}) + rest);
    EXPECT_EQ(folder.FileCount(), 1u);
    EXPECT_TRUE(messages.empty());
    EXPECT_EQ(VornMakeFlush(nullptr), 0u);
    EXPECT_EQ(VornMakeClose(nullptr, 0), 0u);
}

TEST_F(OpenClose, ArgumentsAreUnpackedAndReduced) {
    const struct {
        uint32_t options, flags, mode;
        int32_t lookAhead;
        uint32_t frames, numerator, denominator, lowNumerator, lowDenominator;
    } CASES[] = {
        {0, 0, 0, -5, 2, 60, 2, 30, 1},         {1012, FLAG_ALPHA, 12, 0, 2, 30000, 1001, 30000, 1001},
        {117, FLAG_GREY, 17, 2, 2, 7, 0, 1, 0}, {2900, FLAG_ALPHA | FLAG_GREY, 0, 3, 3, 4000000000, 2000000000, 2, 1},
        {99, 0, 99, 64, 64, 1, 3, 1, 3},        {4294967295, FLAG_ALPHA | FLAG_GREY, 95, INT32_MAX, 64, 25, 25, 1, 1},
        {0, 0, 0, INT32_MIN, 2, 25, 1, 25, 1},
    };
    for (const auto& c : CASES) {
        arguments.options = c.options;
        arguments.lookAhead = c.lookAhead;
        arguments.numerator = c.numerator;
        arguments.denominator = c.denominator;
        VornMakeState* state = arguments.Open();
        EXPECT_EQ(state->flags, c.flags);
        EXPECT_EQ(state->headerMode, c.mode);
        EXPECT_EQ(state->lookAhead, c.frames);
        EXPECT_EQ(state->rateNumerator, c.lowNumerator);
        EXPECT_EQ(state->rateDenominator, c.lowDenominator);
        VornMakeClose(state, 1);
    }
}

TEST_F(OpenClose, RefusesImpossibleArgumentsWithAReasonAndWithoutAFile) {
    const TrackDescriptor good = {1, 44100, 16, 2, 0, 0, Silence};
    TrackDescriptor unheard[] = {good, good}, mute[] = {good, good};
    unheard[1].channels = 3;
    mute[1].read = nullptr;
    const std::string longName(124, 'x');
    const struct {
        std::vector<std::string> words;
        std::function<void(Arguments*)> spoil;
    } CASES[] = {
        {{"fileName", "null", "123"}, [](Arguments* a) { a->name = nullptr; }},
        {{"fileName", " 0 ", "123"}, [](Arguments* a) { a->name = ""; }},
        {{"fileName", "124", "123"}, [&](Arguments* a) { a->name = longName.c_str(); }},
        {{"width", " 0,", "4032"}, [](Arguments* a) { a->width = 0; }},
        {{"width", "4033", "4032"}, [](Arguments* a) { a->width = 4033; }},
        {{"height", " 0,"}, [](Arguments* a) { a->height = 0; }},
        {{"rateNumerator", " 0,", "4294967295"}, [](Arguments* a) { a->numerator = 0; }},
        {{"channels", "3"}, [&](Arguments* a) { a->trackCount = 2, a->tracks = unheard; }},
        {{"read", "1"}, [&](Arguments* a) { a->trackCount = 2, a->tracks = mute; }},
        {{"tracks is null"}, [](Arguments* a) { a->trackCount = 2; }},
    };
    for (const auto& c : CASES) {
        messages.clear();
        Arguments spoilt = arguments;
        c.spoil(&spoilt);
        EXPECT_EQ(spoilt.Open(), nullptr);
        ASSERT_EQ(messages.size(), 1u);
        EXPECT_NE(messages[0].back(), '*');
        for (const std::string& word : c.words) EXPECT_NE(messages[0].find(word), std::string::npos) << messages[0];
        spoilt.callback = nullptr;
        EXPECT_EQ(spoilt.Open(), nullptr);
    }
    EXPECT_EQ(folder.FileCount(), 0u);
}

// The limit that a report names is the true one: that value only wants for memory, the next is refused.
TEST_F(OpenClose, NamesTheLargestHeightAndFrameCountThatFit) {
    MemorySeam memory;
    memory.largestBlock = 1 << 20;
    const auto refuse = [&](uint32_t Arguments::*field, uint32_t value) {
        Arguments tried = arguments;
        tried.*field = value;
        EXPECT_EQ(tried.Open(), nullptr);
        return messages.back();
    };
    const auto check = [&](uint32_t Arguments::*field, const std::string& argument, uint32_t tooLarge) {
        const std::string text = refuse(field, tooLarge), end = text.substr(text.rfind(" to "));
        EXPECT_NE(text.find(argument + " is " + std::to_string(tooLarge)), std::string::npos);
        const uint32_t limit = static_cast<uint32_t>(std::stoul(end.substr(4)));
        EXPECT_GT(limit, 1000u);
        EXPECT_EQ(refuse(field, limit), "Out of memory!");
        EXPECT_NE(refuse(field, limit + 1).find(end), std::string::npos);
    };
    check(&Arguments::height, "height", UINT32_MAX);
    check(&Arguments::frames, "frames", UINT32_MAX);
    arguments.width = 4032;
    check(&Arguments::height, "height", 4000000);
    EXPECT_EQ(folder.FileCount(), 0u);
    EXPECT_TRUE(memory.blocks.empty());
}

TEST_F(OpenClose, AHeadIsRefusedWhileAFrameIsWrittenAndGrantedAfterIt) {
    VornMakeState* state = arguments.Open();
    TakeFileHold(state);
    const uint32_t begin = MOKTimerRead();
    EXPECT_EQ(VornMakeFlush(state), 0u);
    EXPECT_GT(MOKTimerRead() - begin, 250u);
    std::thread writer([state] {
        platform->sleepMilliseconds(30);
        ReleaseFileHold(state);
    });
    EXPECT_EQ(VornMakeFlush(state), 1u);
    writer.join();

    ASSERT_TRUE(TakeHeadLock(state)); // a second one who wants the head gives up, a file user waits
    EXPECT_FALSE(TakeHeadLock(state));
    std::atomic<bool> held = false;
    std::thread user([state, &held] {
        TakeFileHold(state);
        held = true;
        ReleaseFileHold(state);
    });
    platform->sleepMilliseconds(30);
    EXPECT_FALSE(held);
    ReleaseHeadLock(state);
    user.join();
    EXPECT_EQ(state->fileHold + state->headLock, 0u);
    VornMakeClose(state, 1);
}

// In a process of its own, for the question is asked once in a process.
TEST(MaxCPUsDeathTest, BeginsWithTheProcessorCountCutTo32) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto firstAnswers = [] {
        PlatformSeam seam;
        seam.table.processorCount = [] { return 100u; };
        bool right = VornMakeSetMaxCPUs(0) == 32;
        seam.table.processorCount = [] { return 3u; };
        right = right && VornMakeSetMaxCPUs(5) == 32 && VornMakeSetMaxCPUs(33) == 5 && VornMakeSetMaxCPUs(32) == 5 &&
                VornMakeSetMaxCPUs(0) == 32;
        std::exit(right ? 0 : 1);
    };
    EXPECT_EXIT(firstAnswers(), testing::ExitedWithCode(0), "");
}
