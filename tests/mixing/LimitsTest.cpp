// LimitsTest.cpp - mixes as large as can be: a million frames, and files that end at 4 GiB.
#include <gtest/gtest.h>

#include "tests/files/MemoryDisk.h"
#include "tests/movie/MovieMaking.h"

using namespace vorn;

namespace {

std::string messages;

uint32_t VORN_CALL Note(uint32_t code, void*, const char* text) {
    if (code == VORN_MESSAGE) messages += text;
    return 0;
}

void PutWord(std::vector<uint8_t>* bytes, uint32_t word) {
    for (int shift = 0; shift < 32; shift += 8) bytes->push_back(static_cast<uint8_t>(word >> shift));
}

// The head of a movie of `frames` key frames of `frameBytes` each, one pixel in grey, at `rate` frames a second.
std::vector<uint8_t> MakeHead(uint32_t frames, uint32_t frameBytes, uint32_t rate) {
    std::vector<uint8_t> bytes;
    const uint32_t start = HEADER_BYTES + 4 * (frames + 1);
    const uint32_t size = start + frames * frameBytes;
    for (const uint32_t word : {MovieMagic('i'), size - 8, frames, frameBytes, frames, 1u, 1u, rate, 1u, FLAG_GREY, 0u})
        PutWord(&bytes, word);
    for (uint32_t i = 0; i <= frames; i++) PutWord(&bytes, start + i * frameBytes + (i < frames));
    return bytes;
}

uint32_t VORN_CALL ReadRamp(void*, uintptr_t, void* buffer, uint32_t bytes) {
    for (uint32_t i = 0; i < bytes; i++) static_cast<uint8_t*>(buffer)[i] = static_cast<uint8_t>(i / 3);
    return bytes;
}

} // namespace

TEST(MixLimits, AMillionFrames) {
    constexpr uint32_t FRAMES = 1000000;
    MemoryDisk memory;
    UseMemoryDisk(&memory);
    MoviePlan plan;
    plan.width = plan.height = plan.frames = 1;
    plan.options = GREY;
    VornMakeState* state = OpenMovie(&plan, "one", nullptr);
    PutFrame(state, plan, 0);
    VornMakeClose(state, 0);
    const std::vector<uint8_t> one = memory.files["one"];
    const std::vector<uint8_t> packet(one.begin() + HEADER_BYTES + 8, one.end());
    std::vector<uint8_t>& movie = memory.files["in"] = MakeHead(FRAMES, static_cast<uint32_t>(packet.size()), FRAMES);
    movie.reserve(movie.size() + packet.size() * FRAMES);
    for (uint32_t i = 0; i < FRAMES; i++) movie.insert(movie.end(), packet.begin(), packet.end());

    TrackDescriptor track = {9, 8000, 16, 1, 20, 0, ReadRamp};
    messages.clear();
    const uint32_t size = VornMix("in", "out", 0, 0, 0, 0, 1, &track, Note);
    platform = &SYSTEM_PLATFORM;
    EXPECT_EQ(messages, "");
    reader::Movie before, after;
    reader::Violations violations;
    ASSERT_TRUE(reader::ParseMovie(movie, {}, &before, &violations));
    ASSERT_TRUE(reader::ParseMovie(memory.files["out"], {}, &after, &violations));
    EXPECT_EQ(size, after.bytes.size());
    EXPECT_EQ(after.header.frames, FRAMES);
    uint32_t other = 0;
    for (uint32_t i = 0; i < FRAMES; i++) {
        reader::Frame frame;
        if (!reader::ReadFrame(after, i, &frame, &violations)) break;
        other += !std::equal(packet.begin(), packet.end(), frame.video.data, frame.video.data + frame.video.size);
    }
    EXPECT_EQ(other, 0u);
    for (const uint32_t i : {0u, 1u, FRAMES - 1}) {
        reader::Frame frame;
        reader::MovieDecoder decoder;
        EXPECT_TRUE(reader::ReadFrame(before, i, &frame, &violations));
        EXPECT_TRUE(reader::DecodeFrame(before, frame, &decoder, &violations));
    }
    reader::TrackSound sound;
    EXPECT_TRUE(reader::DecodeTrack(after, 0, &sound, &violations));
    EXPECT_EQ(sound.samples.size(), 8000u); // a second
    for (const reader::Violation& violation : violations.list) ADD_FAILURE() << reader::DescribeViolation(violation);
}

namespace {

// Two files of which only the heads are there: one to read, of which the rest is anything, and one that is written.
std::vector<uint8_t> inputHead;
uint64_t inputSize, positions[2], outputSize;

Platform HollowFiles() {
    Platform table = SYSTEM_PLATFORM;
    table.createFile = [](const char*, bool) { return FileHandle{1}; };
    table.openFile = [](const char*) { return FileHandle{0}; };
    table.readFile = [](FileHandle, void* destination, uint32_t bytes) {
        const uint64_t at = positions[0];
        bytes = static_cast<uint32_t>(std::min<uint64_t>(bytes, inputSize - std::min(inputSize, at)));
        if (at < inputHead.size())
            std::copy_n(inputHead.begin() + static_cast<std::ptrdiff_t>(at),
                        std::min<size_t>(bytes, inputHead.size() - at), static_cast<uint8_t*>(destination));
        positions[0] += bytes;
        return bytes;
    };
    table.writeFile = [](FileHandle, const void*, uint32_t bytes) {
        positions[1] += bytes;
        outputSize = std::max(outputSize, positions[1]);
        return bytes;
    };
    table.seekFile = [](FileHandle file, int64_t offset, SeekOrigin origin) {
        const uint64_t size = file == 0 ? inputSize : outputSize;
        const uint64_t base = origin == SeekOrigin::START ? 0 : origin == SeekOrigin::END ? size : positions[file];
        return positions[file] = base + static_cast<uint64_t>(offset);
    };
    table.flushFile = [](FileHandle) { return true; };
    table.closeFile = [](FileHandle) {};
    table.deleteFile = [](const char*) { return NameResult::MISSING; };
    table.renameFile = [](const char*, const char*) { return NameResult::DONE; };
    table.syncFolder = [](const char*) {};
    return table;
}

} // namespace

// The last offset that an index word can name is 0xfffffffe. A track without sound adds 12 bytes to the head and 4 to each
// frame, and the last of 64 frames ends there or two bytes later.
TEST(MixLimits, AMixEndsBelow4GiB) {
    constexpr uint32_t FRAMES = 64, ADDED = 12 + 4 * FRAMES;
    const Platform table = HollowFiles();
    platform = &table;
    for (const bool over : {false, true}) {
        const uint32_t frameBytes = (0xfffffffe - ADDED) / FRAMES / 2 * 2;
        inputHead = MakeHead(FRAMES, frameBytes, 25);
        // The first frame is shorter by the head and longer by what the others leave.
        const uint32_t end = 0xfffffffe - ADDED + (over ? 2 : 0);
        for (uint32_t i = 1; i <= FRAMES; i++) {
            const uint32_t word = end - (FRAMES - i) * frameBytes + (i < FRAMES);
            for (size_t k = 0; k < 4; k++) inputHead[HEADER_BYTES + 4 * i + k] = static_cast<uint8_t>(word >> 8 * k);
        }
        inputSize = end;
        positions[0] = positions[1] = outputSize = 0;
        messages.clear();
        TrackDescriptor track = {9, 1, 16, 1, 0, 0, ReadRamp};
        const uint32_t size = VornMix("in", "out", 0, 1000, 1, 0, 1, &track, Note); // 64 ms of a sample a second: none
        EXPECT_EQ(size, over ? 0 : 0xfffffffe);
        if (over) {
            EXPECT_NE(messages.find("with frame 63 it passes"), std::string::npos) << messages;
        } else {
            EXPECT_EQ(messages, "");
            EXPECT_EQ(outputSize, 0xfffffffe);
        }
    }
    platform = &SYSTEM_PLATFORM;
}
