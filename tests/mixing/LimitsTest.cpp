// LimitsTest.cpp - files that end at 4 GiB.
#include <gtest/gtest.h>

#include <string>

#include "public/vornmake.h"
#include "tests/files/MemoryDisk.h"
#include "tests/mixing/BuiltMovie.h"

using namespace vorn;

namespace {

std::string messages;

uint32_t VORN_CALL Note(uint32_t code, void*, const char* text) {
    if (code == VORN_MESSAGE) messages += text;
    return 0;
}

uint32_t VORN_CALL ReadRamp(void*, uintptr_t, void* buffer, uint32_t bytes) {
    for (uint32_t i = 0; i < bytes; i++) static_cast<uint8_t*>(buffer)[i] = static_cast<uint8_t>(i / 3);
    return bytes;
}

// Two files of which only the heads are there: one to read, of which the rest is anything, and one that is written.
Bytes inputHead;
uint64_t inputSize, positions[2], outputSize;

Platform HollowFiles() {
    Platform table = MemoryDiskPlatform();
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
    return table;
}

} // namespace

// The last offset that an index word can name is 0xfffffffe. A track without sound adds 12 bytes to the head and 4 to each
// frame, and the last of 64 frames ends there or two bytes later. The first takes what the others leave.
TEST(MixLimits, AMixEndsBelow4GiB) {
    constexpr uint32_t FRAMES = 64, ADDED = 12 + 4 * FRAMES, FRAME_BYTES = (0xfffffffe - ADDED) / FRAMES / 2 * 2;
    const Platform table = HollowFiles();
    platform = &table;
    for (const bool over : {false, true}) {
        BuiltMovie movie;
        movie.capacity = FRAMES;
        const uint32_t end = 0xfffffffe - ADDED + (over ? 2 : 0);
        std::vector<uint32_t> index = {48 + 4 * FRAMES + KEY_FRAME_BIT};
        for (uint32_t i = 1; i <= FRAMES; i++) index.push_back(end - (FRAMES - i) * FRAME_BYTES + (i < FRAMES));
        inputHead = BuildHead(movie, FRAMES, FRAME_BYTES, end, index);
        inputSize = end;
        positions[0] = positions[1] = outputSize = 0;
        messages.clear();
        TrackDescriptor track = {9, 1, 16, 1, 0, 0, ReadRamp};
        const uint32_t size = VornMix("in", "out", 0, 1000, 1, 0, 1, &track, Note); // 64 ms of a sample a second: none
        EXPECT_EQ(size, over ? 0 : 0xfffffffe);
        EXPECT_EQ(messages.find("with frame 63 it passes") != std::string::npos, over) << messages;
        if (!over) {
            EXPECT_EQ(messages, "");
            EXPECT_EQ(outputSize, 0xfffffffe);
        }
    }
    platform = &SYSTEM_PLATFORM;
}
