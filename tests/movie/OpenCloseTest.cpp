// OpenCloseTest.cpp - a movie's life around its frames: what VornMake refuses and sets up, the head of the file byte by
// byte, who may use the file when, and what becomes of the two names.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "audio/AudioTrack.h"
#include "movie/Movie.h"
#include "tests/files/TestSeams.h"

using namespace vorn;

namespace {

struct Report {
    std::string text;
    bool hadRecord;
};
std::vector<Report> reports; // messages of the test in hand

uint32_t VORN_CALL NoteReport(uint32_t code, void* record, const char* text) {
    if (code == VORN_MESSAGE) reports.push_back({text, record != nullptr});
    return 0;
}

uint32_t VORN_CALL Silence(void*, uintptr_t, void*, uint32_t) {
    return 0;
}

// The arguments of VornMake with values that are in order.
struct Arguments {
    std::string name;
    const char* rawName = nullptr; // given instead of `name` if `useRawName`
    bool useRawName = false;
    uint32_t pitch = 64, width = 16, height = 8, frames = 3, keyInterval = 0, options = 0, numerator = 25,
             denominator = 1;
    std::vector<TrackDescriptor> tracks = {};
    int32_t lookAhead = 2;
    ProgressCallback callback = NoteReport;

    VornMakeState* Open() const {
        return VornMake(useRawName ? rawName : name.c_str(), pitch, width, height, frames, keyInterval, options,
                        numerator, denominator, static_cast<uint32_t>(tracks.size()), tracks.data(), lookAhead,
                        callback);
    }
};

class OpenClose : public testing::Test {
protected:
    TestFolder folder;
    Arguments arguments;
    OpenClose() {
        reports.clear();
        arguments.name = folder / "movie";
    }
    std::string FinalName() const { return arguments.name; }
    std::string TempName() const { return arguments.name + ".tmp"; }
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

TEST_F(OpenClose, HeadIsRightByteByByteAtOpenAndClose) {
    arguments.options = 1117; // alpha, grey, header mode 17 of which 1 is left
    arguments.numerator = 60;
    arguments.denominator = 2;
    arguments.tracks = {{77, 44100, 16, 2, 4, 0, Silence}, {5, 22050, 8, 1, 104, 0, Silence}};
    VornMakeState* state = arguments.Open();
    ASSERT_NE(state, nullptr);
    const uint32_t flags = 1u << 17 | 1u << 20 | 1u << 28;
    const uint32_t formats[] = {44100 + (1u << 28) + (1u << 29) + (1u << 30), 22050 + (1u << 31)};
    SpoolFlush(state->file, false);
    EXPECT_EQ(ReadWholeFile(TempName()),
              Words({MAGIC, 0, 0, 0, 3, 16, 8, 30, 1, flags, 2, 0, 0, formats[0], formats[1], 77, 5, 0, 0, 0, 0}));
    EXPECT_EQ(VornMakeClose(state, 0), 84u);
    EXPECT_EQ(ReadWholeFile(FinalName()),
              Words({MAGIC, 76, 0, 0, 3, 16, 8, 30, 1, flags, 2, 0, 0, formats[0], formats[1], 77, 5, 0, 0, 0, 0}));
    EXPECT_EQ(folder.FileCount(), 1u);
    EXPECT_TRUE(reports.empty());
}

TEST_F(OpenClose, FlushPatchesTheHeadAndLeavesThePositionAlone) {
    VornMakeState* state = arguments.Open();
    EXPECT_EQ(VornMakeFlush(state), 1u);
    EXPECT_EQ(ReadWholeFile(TempName()).substr(0, 16), Words({MAGIC, 52, 0, 0}));
    SpoolWrite(state->file, "abcdefgh", 8);
    StoreIndexWord(state, 0, 60 | KEY_FRAME_BIT);
    StoreIndexWord(state, 1, 68);
    state->largestFrame = 8;
    RaiseFramesDone(state);
    EXPECT_EQ(VornMakeFlush(state), 1u);
    const std::string head = Words({MAGIC, 60, 1, 8, 3, 16, 8, 25, 1, 0, 0, 61, 68, 0, 0});
    EXPECT_EQ(ReadWholeFile(TempName()), head + "abcdefgh");
    SpoolWrite(state->file, "ijkl", 4);
    EXPECT_EQ(VornMakeClose(state, 0), 72u);
    EXPECT_EQ(ReadWholeFile(FinalName()), Words({MAGIC, 64}) + head.substr(8) + "abcdefghijkl");
    EXPECT_EQ(VornMakeFlush(nullptr), 0u);
    EXPECT_EQ(VornMakeClose(nullptr, 0), 0u);
}

TEST_F(OpenClose, ArgumentsAreUnpackedAndReduced) {
    struct Case {
        uint32_t options, flags, mode;
        int32_t lookAhead;
        uint32_t frames, numerator, denominator, lowNumerator, lowDenominator;
    };
    const Case cases[] = {
        {0, 0, 0, -5, 2, 60, 2, 30, 1},         {1012, FLAG_ALPHA, 12, 0, 2, 30000, 1001, 30000, 1001},
        {117, FLAG_GREY, 17, 2, 2, 7, 0, 1, 0}, {2900, FLAG_ALPHA | FLAG_GREY, 0, 3, 3, 4000000000, 2000000000, 2, 1},
        {99, 0, 99, 64, 64, 1, 3, 1, 3},        {4294967295, FLAG_ALPHA | FLAG_GREY, 95, INT32_MAX, 64, 25, 25, 1, 1},
        {0, 0, 0, INT32_MIN, 2, 25, 1, 25, 1},
    };
    for (const Case& c : cases) {
        arguments.options = c.options;
        arguments.lookAhead = c.lookAhead;
        arguments.numerator = c.numerator;
        arguments.denominator = c.denominator;
        arguments.keyInterval = 9;
        VornMakeState* state = arguments.Open();
        ASSERT_NE(state, nullptr);
        EXPECT_EQ(state->flags, c.flags);
        EXPECT_EQ(state->headerMode, c.mode);
        EXPECT_EQ(state->lookAhead, c.frames);
        EXPECT_EQ(state->rateNumerator, c.lowNumerator);
        EXPECT_EQ(state->rateDenominator, c.lowDenominator);
        EXPECT_EQ(state->keyCountdown, 9);
        EXPECT_EQ(state->finalName, FinalName());
        EXPECT_EQ(state->tempName, TempName());
        EXPECT_TRUE(state->nextRate == state->queueRate && state->nextCap == state->queueCap &&
                    state->nextKey == state->queueKey);
        EXPECT_GT(state->costY.type.upper, state->costY.type.lower);
        EXPECT_GT(state->costAlpha.type.upper, state->costAlpha.type.lower);
        VornMakeClose(state, 1);
    }
}

// Every buffer lies in the block, at a multiple of 32, apart from the others, and cleared where a frame may be read from it
// that was never written.
TEST_F(OpenClose, BuffersLieApartInOneBlock) {
    MemorySeam memory;
    arguments.width = 321;
    arguments.height = 33;
    arguments.lookAhead = 5;
    VornMakeState* state = arguments.Open();
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state->lumaWidth, 328u);
    EXPECT_EQ(state->lumaHeight, 40u);
    EXPECT_EQ(state->chromaWidth, 168u);
    EXPECT_EQ(state->chromaHeight, 24u);
    const size_t luma = 328 * 40, chroma = 168 * 24;
    struct Buffer {
        const uint8_t* start;
        size_t bytes;
    };
    std::vector<Buffer> cleared = {{reinterpret_cast<uint8_t*>(state->frameIndex), 16},
                                   {reinterpret_cast<uint8_t*>(state->frameErrors), 16}};
    for (int i = 0; i < 5; i++) {
        cleared.insert(cleared.end(), {{state->queueY[i], luma},
                                       {state->queueCr[i], chroma},
                                       {state->queueCb[i], chroma},
                                       {state->queueAlpha[i], luma}});
    }
    cleared.insert(cleared.end(), {{state->previousY, luma},
                                   {state->previousCr, chroma},
                                   {state->previousCb, chroma},
                                   {state->previousAlpha, luma}});
    for (int i = 0; i < 2; i++) {
        cleared.insert(cleared.end(), {{state->referenceY[i], luma},
                                       {state->referenceCr[i], chroma},
                                       {state->referenceCb[i], chroma},
                                       {state->referenceAlpha[i], luma}});
    }
    for (const Buffer& buffer : cleared) {
        EXPECT_EQ(std::count(buffer.start, buffer.start + buffer.bytes, 0), int64_t(buffer.bytes));
    }
    std::vector<Buffer> all = cleared;
    all.insert(all.end(), {{state->packetY, luma * 11 / 10},
                           {state->packetCr, chroma * 11 / 10},
                           {state->packetCb, chroma * 11 / 10},
                           {state->packetAlpha, luma * 11 / 10}});
    const uint8_t* next = reinterpret_cast<uint8_t*>(state) + sizeof *state;
    for (const Buffer& buffer : all) { // in the order in which they lie
        EXPECT_EQ(reinterpret_cast<uintptr_t>(buffer.start) % 32, 0u);
        EXPECT_GE(buffer.start, next);
        next = buffer.start + buffer.bytes;
    }
    EXPECT_EQ(state->queueY[5], nullptr);
    size_t holding = 0;
    for (const auto& [block, bytes] : memory.blocks) {
        const uint8_t* start = static_cast<uint8_t*>(block);
        holding += start <= reinterpret_cast<uint8_t*>(state) && next <= start + bytes;
    }
    EXPECT_EQ(holding, 1u);
    VornMakeClose(state, 1);
    EXPECT_TRUE(memory.blocks.empty());
}

TEST_F(OpenClose, RefusesImpossibleArgumentsWithAReasonAndWithoutAFile) {
    const TrackDescriptor good = {1, 44100, 16, 2, 0, 0, Silence};
    TrackDescriptor mute = good;
    mute.read = nullptr;
    struct Case {
        std::vector<std::string> words;
        Arguments arguments;
    };
    std::vector<Case> cases(9, Case{{}, arguments});
    cases[0].words = {"fileName", "null", "123"};
    cases[0].arguments.useRawName = true;
    cases[1].words = {"fileName", " 0 ", "123"};
    cases[1].arguments.name = "";
    cases[2].words = {"fileName", "124", "123"};
    cases[2].arguments.name = std::string(124, 'x');
    cases[3].words = {"width", " 0,", "4032"};
    cases[3].arguments.width = 0;
    cases[4].words = {"width", "4033", "4032"};
    cases[4].arguments.width = 4033;
    cases[5].words = {"height", " 0,"};
    cases[5].arguments.height = 0;
    cases[6].words = {"rateNumerator", " 0,", "4294967295"};
    cases[6].arguments.numerator = 0;
    cases[7].words = {"channels", "3"};
    cases[7].arguments.tracks = {good, good};
    cases[7].arguments.tracks[1].channels = 3;
    cases[8].words = {"read", "1"};
    cases[8].arguments.tracks = {good, mute};
    for (Case& c : cases) {
        reports.clear();
        EXPECT_EQ(c.arguments.Open(), nullptr);
        ASSERT_EQ(reports.size(), 1u);
        EXPECT_FALSE(reports[0].hadRecord);
        for (const std::string& word : c.words)
            EXPECT_NE(reports[0].text.find(word), std::string::npos) << reports[0].text;
        c.arguments.callback = nullptr;
        EXPECT_EQ(c.arguments.Open(), nullptr);
    }
    reports.clear();
    EXPECT_EQ(VornMake(FinalName().c_str(), 64, 16, 8, 3, 0, 0, 25, 1, 2, nullptr, 2, NoteReport), nullptr);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_NE(reports[0].text.find("tracks is null"), std::string::npos);
    EXPECT_EQ(folder.FileCount(), 0u);
}

// The limit that a report names is the true one: that value only wants for memory, the next is refused.
TEST_F(OpenClose, NamesTheLargestHeightAndFrameCountThatFit) {
    MemorySeam memory;
    memory.largestBlock = 1 << 20;
    const auto namedLimit = [] { return std::stoul(reports.back().text.substr(reports.back().text.rfind("to ") + 3)); };
    const auto check = [&](uint32_t Arguments::*field, const char* name, uint32_t tooLarge) {
        Arguments tried = arguments;
        tried.*field = tooLarge;
        EXPECT_EQ(tried.Open(), nullptr);
        EXPECT_NE(reports.back().text.find(std::string(name) + " is " + std::to_string(tooLarge)), std::string::npos);
        const uint32_t limit = static_cast<uint32_t>(namedLimit());
        EXPECT_GT(limit, 1000u);
        tried.*field = limit;
        EXPECT_EQ(tried.Open(), nullptr);
        EXPECT_EQ(reports.back().text, "Out of memory!");
        tried.*field = limit + 1;
        EXPECT_EQ(tried.Open(), nullptr);
        EXPECT_EQ(namedLimit(), limit);
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
    EXPECT_EQ(state->headLock, 0u);
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
    EXPECT_TRUE(held);
    EXPECT_EQ(state->fileHold, 0u);
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
