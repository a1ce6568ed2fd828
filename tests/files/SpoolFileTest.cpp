// SpoolFileTest.cpp - what the file object promises: the bytes and positions of a plain file, as few system calls as it
// can, and a note of writes that came up short.
#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "files/SpoolFile.h"
#include "tests/files/MemoryDisk.h"
#include "tests/files/TestSeams.h"

using namespace vorn;

namespace {

using Calls = std::vector<std::string>;
Calls calls;       // what was asked of the file in memory
uint32_t roomLeft; // bytes that it still takes

class SpoolFileTest : public testing::Test {
protected:
    PlatformSeam seam;
    MemoryDisk memoryDisk;
    MemorySeam memory;
    std::mt19937 random{1};

    SpoolFileTest() {
        disk = &memoryDisk;
        roomLeft = UINT32_MAX;
        seam.table = MemoryDiskPlatform();
        seam.table.readFile = [](FileHandle file, void* destination, uint32_t bytes) {
            calls.push_back("read " + std::to_string(bytes));
            return ReadOnDisk(file, destination, bytes);
        };
        seam.table.writeFile = [](FileHandle file, const void* source, uint32_t bytes) {
            calls.push_back("write " + std::to_string(bytes));
            const uint32_t written = std::min(bytes, roomLeft);
            roomLeft -= written;
            return WriteOnDisk(file, source, written);
        };
        seam.table.seekFile = [](FileHandle file, int64_t offset, SeekOrigin origin) {
            calls.push_back("seek " + std::to_string(offset));
            return SeekOnDisk(file, offset, origin);
        };
        seam.table.flushFile = [](FileHandle) {
            calls.push_back("flush");
            return true;
        };
    }
    ~SpoolFileTest() override {
        EXPECT_TRUE(memory.blocks.empty());
        EXPECT_TRUE(memoryDisk.open.empty());
    }
    SpoolFile* Writer(uint32_t buffer, uint32_t bytesWaiting = 0) {
        SpoolFile* file = SpoolCreate(buffer, "name", true);
        SpoolWrite(file, Noise(bytesWaiting).data(), bytesWaiting);
        calls.clear();
        return file;
    }
    SpoolFile* Reader(uint32_t buffer) {
        calls.clear();
        return SpoolOpen(buffer, "name");
    }
    std::string Noise(size_t bytes) {
        std::string noise(bytes, 0);
        for (char& byte : noise) byte = static_cast<char>(random());
        return noise;
    }
    std::string Bytes() const {
        const std::vector<uint8_t>& bytes = memoryDisk.files.at("name");
        return {bytes.begin(), bytes.end()};
    }
    // The calls since the last question.
    static Calls NewCalls() { return std::exchange(calls, {}); }
};

} // namespace

TEST_F(SpoolFileTest, WritesPassTheBufferOnlyWhenTheyAreLarge) {
    const struct {
        uint32_t waiting, bytes;
        Calls calls;
        uint32_t left;
    } CASES[] = {
        {0, 1000, {}, 1000},
        {0, 1001, {"write 1001"}, 0},
        {100, 900, {}, 1000},
        {100, 1500, {"write 1000"}, 600},
        {100, 1900, {"write 1000", "write 1000"}, 0},
        {100, 2500, {"write 1000", "write 1600"}, 0},
        {1000, 1, {"write 1000"}, 1},
    };
    for (const auto& c : CASES) {
        SpoolFile* file = Writer(1000, c.waiting);
        EXPECT_EQ(SpoolWrite(file, Noise(c.bytes).data(), c.bytes), c.bytes);
        EXPECT_EQ(NewCalls(), c.calls) << c.waiting << " " << c.bytes;
        EXPECT_EQ(file->cursor, c.left);
        SpoolClose(file);
    }
}

TEST_F(SpoolFileTest, PatchingTheHeadCostsOneWriteAndOneSeekEachWay) {
    SpoolFile* file = Writer(100, 60);
    EXPECT_EQ(SpoolSeek(file, 60), 60u);
    EXPECT_EQ(SpoolSize(file), 60u);
    EXPECT_EQ(NewCalls(), (Calls{"seek 0", "seek 0", "seek 0"})); // the one time that the system is asked for the size
    EXPECT_EQ(SpoolSeek(file, 4), 60u);
    for (uint32_t i = 0; i < 3; i++) SpoolWriteWord(file, 0x04030201 + i);
    EXPECT_EQ(SpoolSize(file), 60u);
    EXPECT_EQ(SpoolSeek(file, 60), 16u);
    SpoolFlush(file, true); // the seek has emptied the buffer
    EXPECT_EQ(NewCalls(), (Calls{"write 60", "seek 4", "write 12", "seek 60"}));
    EXPECT_EQ(Bytes().substr(4, 12), std::string("\1\2\3\4\2\2\3\4\3\2\3\4", 12));
    SpoolWriteWord(file, 0);
    SpoolFlush(file, true);
    EXPECT_EQ(NewCalls(), (Calls{"write 4", "flush"}));
    SpoolClose(file);
}

TEST_F(SpoolFileTest, OnlyAWriteNotesThatItCameUpShort) {
    SpoolFile* file = Writer(100, 60);
    roomLeft = 50;
    SpoolFlush(file, false);
    EXPECT_EQ(SpoolTell(file), 50u);
    SpoolWriteWord(file, 1);
    SpoolSeek(file, 0);
    SpoolWrite(file, "lost", 4);
    EXPECT_EQ(file->writeError, 0u);
    EXPECT_EQ(SpoolWrite(file, Noise(97).data(), 97), 97u);
    EXPECT_EQ(file->writeError, 1u);
    SpoolClose(file);

    file = Writer(100);
    SpoolWrite(file, Noise(200).data(), 200); // straight to the system
    roomLeft = UINT32_MAX;
    SpoolWrite(file, Noise(200).data(), 200);
    EXPECT_EQ(file->writeError, 1u);
    SpoolClose(file);
}

TEST_F(SpoolFileTest, ReaderSeeksInsideItsBufferForNothing) {
    SpoolClose(Writer(0, 250));
    SpoolFile* file = Reader(100);
    char part[300];
    SpoolRead(file, part, 90);
    EXPECT_EQ(SpoolSeek(file, 10), 90u);
    SpoolRead(file, part, 20);
    EXPECT_EQ(NewCalls(), Calls{"read 100"});
    EXPECT_EQ(SpoolSeek(file, 100), 30u); // just behind the buffer
    EXPECT_EQ(NewCalls(), Calls{"seek 100"});
    SpoolRead(file, part, 100); // as large as the buffer
    EXPECT_EQ(NewCalls(), Calls{"read 100"});
    EXPECT_EQ(SpoolSeek(file, 150), 200u); // the buffer was read to its end and counts as used up
    EXPECT_EQ(NewCalls(), Calls{"seek 150"});
    SpoolClose(file);
}

// Any run of operations leaves and finds what the same operations leave and find in a string, with a buffer of any size.
TEST_F(SpoolFileTest, EqualsAPlainStringUnderRandomOperations) {
    for (uint32_t round = 0; round < 800; round++) {
        const bool writing = round % 2 == 0;
        const std::string before = writing ? "" : Bytes();
        std::string model = before;
        SpoolFile* file = writing ? Writer(round % 40 / 2) : Reader(round % 100 / 2);
        memory.failingRequest = round % 7 == 0 ? memory.requests + 1 : 0; // the buffer is not to be had
        size_t position = 0;
        for (int step = 0; step < 60; step++) {
            const uint32_t choice = static_cast<uint32_t>(random() % 9), bytes = static_cast<uint32_t>(random() % 60);
            if (choice < 2) {
                // Far away or nearby, the end included.
                const size_t nearby = std::max<size_t>(position + random() % 40, 20) - 20;
                const size_t target = choice == 0 ? random() % (model.size() + 1) : std::min(nearby, model.size());
                EXPECT_EQ(SpoolSeek(file, target), position);
                position = target;
            } else if (choice == 2) {
                SpoolFlush(file, random() % 2 != 0);
            } else if (choice == 3) {
                EXPECT_EQ(SpoolSize(file), model.size());
            } else if (!writing) {
                char part[60];
                const std::string expected = model.substr(position, bytes);
                ASSERT_EQ(SpoolRead(file, part, bytes), expected.size()) << "round " << round << " step " << step;
                ASSERT_EQ(std::string(part, expected.size()), expected);
                position += expected.size();
            } else {
                const std::string noise = choice < 6 ? std::string(4, static_cast<char>(bytes)) : Noise(bytes);
                if (choice < 6) SpoolWriteWord(file, bytes * 0x01010101);
                ASSERT_TRUE(choice < 6 || SpoolWrite(file, noise.data(), bytes) == bytes);
                model.resize(std::max(model.size(), position + noise.size()));
                model.replace(position, noise.size(), noise);
                position += noise.size();
            }
            ASSERT_EQ(SpoolTell(file), position) << "round " << round << " step " << step;
        }
        EXPECT_EQ(file->writeError, 0u);
        memory.failingRequest = 0;
        SpoolClose(file);
        ASSERT_EQ(Bytes(), model) << "round " << round;
    }
}

TEST_F(SpoolFileTest, FailedOpeningsLeaveNothing) {
    const std::string longest(127, 'x'), tooLong(128, 'x');
    memoryDisk.files = {{longest, {}}, {tooLong, {}}};
    EXPECT_EQ(SpoolOpen(100, "name"), nullptr);
    EXPECT_EQ(SpoolOpen(100, tooLong.c_str()), nullptr);
    SpoolFile* file = SpoolOpen(100, longest.c_str());
    EXPECT_EQ(file->name, longest);
    SpoolClose(file);
    seam.table.createFile = [](const char*, bool) { return NO_FILE; };
    EXPECT_EQ(SpoolCreate(100, "name", false), nullptr);
    seam.table.createFile = nullptr; // not called without memory
    memory.failingRequest = memory.requests + 1;
    EXPECT_EQ(SpoolCreate(100, "name", true), nullptr);
    SpoolClose(nullptr);
}
