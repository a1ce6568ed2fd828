// StopTest.cpp - movies that end before their time: stopped or given up by a callback, failed, or grown to 4 GiB.
#include <chrono>
#include <cstring>
#include <thread>

#include "tests/movie/Faults.h"

using namespace vorn;

namespace {

constexpr uint32_t NEVER = UINT32_MAX;

// What the callback does, and what it saw.
struct Script {
    uint32_t stopAt = NEVER;   // report, from 0, that is answered by 1
    uint32_t giveUpAt = NEVER; // report at which `cancel` is set to 2
    bool flush = false;        // at each report
    uint32_t reports = 0;
    std::vector<uint32_t> frames = {}; // framesDone at each report
    std::string stages = {};           // texts of the reports
    std::string messages = {};
};
Script script;

uint32_t VORN_CALL Act(uint32_t code, void* record, const char* text) {
    VornMakeState* state = static_cast<VornMakeState*>(record);
    if (code == VORN_MESSAGE) {
        script.messages += text;
        return 0;
    }
    const uint32_t report = script.reports++;
    script.frames.push_back(state->framesDone);
    script.stages += std::string(text) + ";";
    if (script.flush) {
        EXPECT_EQ(VornMakeFlush(state), 1u);
        const ReadMovie read = ReadBack(ReadWholeFile(state->tempName), true);
        EXPECT_EQ(read.complaint, "");
        EXPECT_EQ(read.frames.size(), state->framesDone);
    }
    if (report == script.giveUpAt) state->cancel = 2;
    return report == script.stopAt;
}

class Stop : public testing::Test {
protected:
    TestFolder folder;
    std::string name = folder / "movie";
    Workers workers{1};
    MoviePlan plan = {.width = 24, .height = 16, .frames = 5, .options = ALPHA, .lookAhead = 3};
    Stop() { plan.sounds = {{8000, 1, 20}}; }
    // Hands in all frames by a fresh script.
    VornMakeState* Run(const Script& act) {
        script = act;
        VornMakeState* state = OpenMovie(&plan, name, Act);
        for (uint32_t frame = 0; frame < plan.frames; frame++) PutFrame(state, plan, frame);
        return state;
    }
};

// What a frame with all planes reports.
const std::string STAGES =
    "Compressing;Compressing Y plane;Compressing Cr plane;Compressing Cb plane;Compressing alpha plane;"
    "Compressing Y high-plane;Compressing Cr high-plane;Compressing alpha high-plane;Allocating bandwidth;"
    "Merging multi-resolution planes;Encoding Y plane;Encoding Cr plane;Encoding Cb plane;Encoding alpha plane;";

size_t HeadBytes(const MoviePlan& plan) {
    return HEADER_BYTES + 12 * plan.sounds.size() + 4 * (size_t{plan.frames} + 1);
}

} // namespace

// The frame in hand is finished, then the movie ends in order. What it has is what the whole movie begins with.
TEST_F(Stop, AnsweredAtAnyReport) {
    VornMakeClose(Run({}), 0);
    const std::string whole = ReadWholeFile(name);
    const Script seen = script;
    ASSERT_EQ(seen.reports, 5u * 14);
    EXPECT_EQ(seen.stages, STAGES + STAGES + STAGES + STAGES + STAGES);
    for (uint32_t report = 0; report < seen.reports; report++) {
        SCOPED_TRACE("report " + std::to_string(report));
        const uint32_t frames = seen.frames[report] + 1;
        VornMakeState* state = Run({.stopAt = report});
        EXPECT_EQ(state->framesDone, frames);
        EXPECT_EQ(state->cancel, 1u);
        EXPECT_EQ(state->failed, 0u);
        EXPECT_EQ(script.reports, frames * 14);
        const uint64_t size = VornMakeClose(state, 0);
        EXPECT_EQ(script.reports, frames * 14) << "frames still queued are dropped";
        EXPECT_EQ(script.messages, "");
        const std::string bytes = ReadWholeFile(name);
        ASSERT_EQ(bytes.size(), size);
        EXPECT_TRUE(bytes.substr(HeadBytes(plan)) == whole.substr(HeadBytes(plan), bytes.size() - HeadBytes(plan)));
        const ReadMovie read = ReadBack(bytes);
        EXPECT_EQ(read.complaint, "");
        EXPECT_EQ(read.frames.size(), frames);
        EXPECT_EQ(folder.FileCount(), 1u);
    }
}

// The frame in hand and the movie are given up; what stood under the final name stays.
TEST_F(Stop, GivenUpAtAnyReport) {
    WriteWholeFile(name, "older");
    VornMakeClose(Run({}), 1);
    const Script seen = script;
    for (uint32_t report = 0; report < seen.reports; report++) {
        SCOPED_TRACE("report " + std::to_string(report));
        VornMakeState* state = Run({.giveUpAt = report});
        EXPECT_EQ(state->framesDone, seen.frames[report]);
        EXPECT_EQ(state->failed, 1u);
        // A frame that was only announced still reports its first stage.
        EXPECT_EQ(script.reports, report % 14 == 0 ? report + 2 : report + 1);
        EXPECT_GE(VornMakeClose(state, 0), HeadBytes(plan));
        EXPECT_EQ(script.messages, "");
        EXPECT_EQ(ReadWholeFile(name), "older");
        EXPECT_EQ(folder.FileCount(), 1u);
    }
}

// What a flush leaves at any report is a movie of the frames so far, and in the end all is the same.
TEST_F(Stop, FlushedAtEveryReport) {
    VornMakeClose(Run({}), 0);
    const std::string whole = ReadWholeFile(name);
    VornMakeClose(Run({.flush = true}), 0);
    EXPECT_EQ(script.reports, 5u * 14);
    EXPECT_TRUE(ReadWholeFile(name) == whole);
    NoteCases("stopped, given up and flushed at a report", 3 * script.reports);
}

namespace {

// A source that fills so many eighths of what it is asked for and claims another number of them.
struct Source {
    uint32_t filled, claimed;
    uint32_t sleep = 0; // milliseconds
    bool flush = false; // while the file is in use, so that it must be refused
    Sound sound = {22050, 2, 4};

    static uint32_t VORN_CALL Read(void* record, uintptr_t user, void* buffer, uint32_t bytes) {
        Source* source = reinterpret_cast<Source*>(user);
        std::this_thread::sleep_for(std::chrono::milliseconds(source->sleep));
        EXPECT_TRUE(!source->flush || VornMakeFlush(static_cast<VornMakeState*>(record)) == 0);
        source->flush = false;
        std::memset(buffer, 0, bytes);
        Sound::Read(record, reinterpret_cast<uintptr_t>(&source->sound), buffer, bytes / 32 * source->filled * 4);
        return source->claimed > 8 ? source->claimed : bytes / 32 * source->claimed * 4;
    }
};

} // namespace

// What a source delivers is cut to what was asked for, what it lacks is silence, and its time is its own. The track goes on
// where the movie ends, for how it ends depends on what the source had.
TEST_F(Stop, SourcesOfEveryKind) {
    const auto make = [&](Source source) {
        const TrackDescriptor track = {1, 22050, 16, 2, 4, reinterpret_cast<uintptr_t>(&source), Source::Read};
        VornMakeState* state = VornMake(name.c_str(), 64, 16, 16, 50, 0, 0, 25, 1, 1, &track, 2, nullptr);
        for (uint32_t frame = 0; frame < 5; frame++) {
            VornMakePutVideo(state, 5000, UINT32_MAX, 0, DrawFrame(Content::FILM, 16, 16, 64, frame).data());
        }
        VornMakeClose(state, 0);
        return ReadWholeFile(name);
    };
    const std::string expected = make({8, 8}), silent = make({0, 8});
    EXPECT_TRUE(expected != silent);
    EXPECT_TRUE(make({8, UINT32_MAX}) == expected) << "boasting";
    EXPECT_TRUE(make({8, 8, 10}) == expected) << "slow";
    EXPECT_TRUE(make({8, 8, 0, true}) == expected) << "flushing";
    EXPECT_TRUE(make({0, 0}) == silent) << "nothing";
    for (uint32_t part = 1; part < 8; part++) EXPECT_TRUE(make({part, part}) == make({part, 8})) << part;
    NoteCases("sources that are slow, short, silent or boasting", 11);
}

namespace {

// A file whose frames seem to lie `leap` bytes further on once its position has been set anew, as the first flush does behind
// frame 0.
struct LeapingFile : PlatformSeam {
    inline static uint64_t leap, headBytes;

    LeapingFile() {
        table.seekFile = [](FileHandle file, int64_t offset, SeekOrigin origin) {
            const int64_t back = origin == SeekOrigin::START && offset >= int64_t(headBytes + leap) ? int64_t(leap) : 0;
            const uint64_t position = SYSTEM_PLATFORM.seekFile(file, offset - back, origin);
            return position >= headBytes ? position + leap : position;
        };
    }
};

uint32_t WordAt(const std::string& bytes, size_t at) {
    uint32_t word = 0;
    for (size_t i = 0; i < 4; i++) word |= uint32_t{static_cast<uint8_t>(bytes[at + i])} << 8 * i;
    return word;
}

} // namespace

// The last frame that ends at an offset that the index can name is kept, one that would end a word later isn't.
TEST_F(Stop, At4GiB) {
    plan.sounds.clear(); // so that a packet's size is known before it is written
    VornMakeClose(Run({}), 0);
    const std::string whole = ReadWholeFile(name);
    const auto frameStart = [&](uint32_t frame) { return WordAt(whole, HEADER_BYTES + 4 * size_t{frame}) & ~3u; };
    LeapingFile seam;
    for (uint32_t boundary = 1; boundary <= plan.frames; boundary++) {
        for (const uint32_t over : {0u, 4u}) {
            SCOPED_TRACE(std::to_string(boundary) + " over by " + std::to_string(over));
            const uint32_t kept = over == 0 || boundary == 1 ? boundary : boundary - 1;
            LeapingFile::headBytes = HeadBytes(plan);
            LeapingFile::leap = 0xfffffffc - frameStart(boundary) + over;
            VornMakeState* state = Run({});
            EXPECT_EQ(state->framesDone, kept);
            EXPECT_EQ(state->failed, 0u);
            EXPECT_EQ(state->cancel, kept < plan.frames ? 1u : 0u);
            EXPECT_EQ(script.messages.find("4 GiB") != std::string::npos, kept < plan.frames);
            EXPECT_EQ(VornMakeClose(state, 0), frameStart(kept) + LeapingFile::leap);
            const std::string bytes = ReadWholeFile(name);
            EXPECT_EQ(WordAt(bytes, 4) + 8, static_cast<uint32_t>(frameStart(kept) + LeapingFile::leap));
            EXPECT_EQ(WordAt(bytes, 8), kept);
            for (size_t at = HEADER_BYTES; at <= HEADER_BYTES + 4 * kept; at += 4) {
                const uint32_t word = WordAt(bytes, at);
                EXPECT_EQ(word < LeapingFile::leap ? word : word - LeapingFile::leap, WordAt(whole, at));
            }
            EXPECT_TRUE(bytes.substr(HeadBytes(plan)) ==
                        whole.substr(HeadBytes(plan), frameStart(kept) - HeadBytes(plan)));
        }
    }
}
