// SpoolFileTest.cpp - what the file object promises: the bytes and positions of a plain file, as few system calls as it
// can, and a note of writes that came up short.
#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "files/Container.h"
#include "tests/files/TestSeams.h"

using namespace vorn;

namespace {

// One file in memory that keeps a list of what was asked of it.
struct FakeFile {
    std::string bytes;
    uint64_t position;
    std::vector<std::string> calls;
    uint64_t roomLeft; // bytes that it still takes
    bool missing;
} fake;

FileHandle FakeCreate(const char*, bool shared) {
    fake.calls.push_back(shared ? "create shared" : "create");
    return fake.missing ? NO_FILE : 1;
}
FileHandle FakeOpen(const char*) {
    fake.calls.push_back("open");
    return fake.missing ? NO_FILE : 1;
}
uint32_t FakeRead(FileHandle, void* destination, uint32_t bytes) {
    fake.calls.push_back("read " + std::to_string(bytes));
    const uint64_t start = std::min<uint64_t>(fake.position, fake.bytes.size());
    const size_t count = std::min<size_t>(bytes, fake.bytes.size() - start);
    fake.bytes.copy(static_cast<char*>(destination), count, start);
    fake.position += count;
    return static_cast<uint32_t>(count);
}
uint32_t FakeWrite(FileHandle, const void* source, uint32_t bytes) {
    fake.calls.push_back("write " + std::to_string(bytes));
    const uint32_t count = static_cast<uint32_t>(std::min<uint64_t>(bytes, fake.roomLeft));
    fake.roomLeft -= count;
    if (fake.bytes.size() < fake.position + count) fake.bytes.resize(fake.position + count, '\0');
    fake.bytes.replace(fake.position, count, static_cast<const char*>(source), count);
    fake.position += count;
    return count;
}
uint64_t FakeSeek(FileHandle, int64_t offset, SeekOrigin origin) {
    fake.calls.push_back("seek " + std::to_string(offset));
    const uint64_t base = origin == SeekOrigin::START     ? 0
                          : origin == SeekOrigin::CURRENT ? fake.position
                                                          : fake.bytes.size();
    return fake.position = base + static_cast<uint64_t>(offset);
}
bool FakeFlush(FileHandle) {
    fake.calls.push_back("flush");
    return true;
}
void FakeClose(FileHandle) {
    fake.calls.push_back("close");
}

using Calls = std::vector<std::string>;

class SpoolFileTest : public testing::Test {
protected:
    PlatformSeam seam;
    MemorySeam memory;
    SpoolFileTest() {
        fake = {};
        fake.roomLeft = UINT64_MAX;
        seam.table.createFile = FakeCreate;
        seam.table.openFile = FakeOpen;
        seam.table.readFile = FakeRead;
        seam.table.writeFile = FakeWrite;
        seam.table.seekFile = FakeSeek;
        seam.table.flushFile = FakeFlush;
        seam.table.closeFile = FakeClose;
    }
    ~SpoolFileTest() override { EXPECT_TRUE(memory.blocks.empty()); }

    SpoolFile* Writer(uint32_t buffer, uint32_t bytesWaiting = 0) {
        SpoolFile* file = SpoolCreate(buffer, "name", true);
        SpoolWrite(file, Noise(bytesWaiting).data(), bytesWaiting);
        fake.calls.clear();
        return file;
    }
    SpoolFile* Reader(uint32_t buffer, const std::string& bytes) {
        fake.bytes = bytes;
        SpoolFile* file = SpoolOpen(buffer, "name");
        fake.calls.clear();
        return file;
    }
    static std::string Noise(size_t bytes) {
        static std::mt19937 random(1);
        std::string noise(bytes, 0);
        for (char& byte : noise) byte = static_cast<char>(random());
        return noise;
    }
    // The calls since the last question.
    static Calls NewCalls() { return std::exchange(fake.calls, {}); }
};

} // namespace

TEST_F(SpoolFileTest, WritesPassTheBufferOnlyWhenTheyAreLarge) {
    struct Case {
        uint32_t waiting, bytes;
        Calls calls;
        uint32_t left;
    };
    const Case cases[] = {
        {0, 1000, {}, 1000},
        {0, 1001, {"write 1001"}, 0},
        {100, 900, {}, 1000},
        {100, 1500, {"write 1000"}, 600},
        {100, 1900, {"write 1000", "write 1000"}, 0},
        {100, 2500, {"write 1000", "write 1600"}, 0},
        {1000, 1, {"write 1000"}, 1},
    };
    for (const Case& c : cases) {
        fake.bytes.clear();
        fake.position = 0;
        SpoolFile* file = Writer(1000, c.waiting);
        const std::string noise = Noise(c.bytes);
        EXPECT_EQ(SpoolWrite(file, noise.data(), c.bytes), c.bytes);
        EXPECT_EQ(NewCalls(), c.calls) << c.waiting << " " << c.bytes;
        EXPECT_EQ(file->cursor, c.left);
        EXPECT_EQ(SpoolTell(file), c.waiting + c.bytes);
        SpoolClose(file);
        EXPECT_EQ(fake.bytes.substr(c.waiting), noise);
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
    EXPECT_EQ(SpoolTell(file), 16u);
    EXPECT_EQ(SpoolSeek(file, 60), 16u);
    SpoolFlush(file, true); // the seek has emptied the buffer
    EXPECT_EQ(NewCalls(), (Calls{"write 60", "seek 4", "write 12", "seek 60"}));
    EXPECT_EQ(fake.bytes.substr(4, 12), std::string("\1\2\3\4\2\2\3\4\3\2\3\4", 12));
    EXPECT_EQ(fake.bytes.size(), 60u);
    SpoolWriteWord(file, 0);
    EXPECT_EQ(SpoolSize(file), 64u);
    SpoolFlush(file, true);
    EXPECT_EQ(NewCalls(), (Calls{"write 4", "flush"}));
    SpoolClose(file);
    EXPECT_EQ(NewCalls(), Calls{"close"});
}

TEST_F(SpoolFileTest, OnlyAWriteNotesThatItCameUpShort) {
    SpoolFile* file = Writer(100, 60);
    fake.roomLeft = 50;
    SpoolFlush(file, false);
    EXPECT_EQ(SpoolTell(file), 50u);
    SpoolWriteWord(file, 1);
    SpoolSeek(file, 0);
    EXPECT_EQ(file->writeError, 0u);
    SpoolWrite(file, Noise(60).data(), 60);
    EXPECT_EQ(file->writeError, 0u);
    EXPECT_EQ(SpoolWrite(file, Noise(60).data(), 60), 60u);
    EXPECT_EQ(file->writeError, 1u);
    SpoolClose(file);

    file = Writer(100);
    SpoolWrite(file, Noise(200).data(), 200); // straight to the system
    EXPECT_EQ(file->writeError, 1u);
    fake.roomLeft = UINT64_MAX;
    SpoolWrite(file, Noise(200).data(), 200);
    EXPECT_EQ(file->writeError, 1u);
    SpoolClose(file);
}

TEST_F(SpoolFileTest, ReaderSeeksInsideItsBufferForNothing) {
    const std::string bytes = Noise(250);
    SpoolFile* file = Reader(100, bytes);
    char part[300];
    EXPECT_EQ(SpoolTell(file), 0u);
    EXPECT_EQ(SpoolRead(file, part, 0), 0u);
    EXPECT_EQ(SpoolRead(file, part, 90), 90u);
    EXPECT_EQ(SpoolSeek(file, 10), 90u);
    EXPECT_EQ(SpoolRead(file, part, 20), 20u);
    EXPECT_EQ(std::string(part, 20), bytes.substr(10, 20));
    EXPECT_EQ(NewCalls(), Calls{"read 100"});
    EXPECT_EQ(SpoolSeek(file, 100), 30u); // just behind the buffer
    EXPECT_EQ(NewCalls(), Calls{"seek 100"});
    EXPECT_EQ(SpoolRead(file, part, 100), 100u); // as large as the buffer
    EXPECT_EQ(NewCalls(), Calls{"read 100"});
    EXPECT_EQ(std::string(part, 100), bytes.substr(100, 100));
    EXPECT_EQ(SpoolSeek(file, 150), 200u); // the buffer was read to its end and counts as used up
    EXPECT_EQ(NewCalls(), Calls{"seek 150"});
    EXPECT_EQ(SpoolRead(file, part, 300), 100u);
    EXPECT_EQ(std::string(part, 100), bytes.substr(150, 100));
    EXPECT_EQ(SpoolRead(file, part, 10), 0u);
    EXPECT_EQ(SpoolTell(file), 250u);
    EXPECT_EQ(SpoolSize(file), 250u);
    SpoolClose(file);
}

// Any run of operations leaves what the same operations leave in a string.
TEST_F(SpoolFileTest, WriterEqualsAPlainStringUnderRandomOperations) {
    std::mt19937 random(2);
    for (uint32_t round = 0; round < 400; round++) {
        const uint32_t capacity = round % 20;
        fake.bytes.clear();
        fake.position = 0;
        SpoolFile* file = Writer(capacity);
        memory.failingRequest = round % 7 == 0 ? memory.requests + 1 : 0; // the buffer is not to be had
        std::string model;
        size_t position = 0;
        for (int step = 0; step < 60; step++) {
            const uint32_t choice = static_cast<uint32_t>(random() % 8);
            if (choice < 5) {
                const bool word = choice < 2;
                const std::string noise = Noise(word ? 4 : random() % 45);
                if (word) {
                    uint32_t value = 0;
                    for (int i = 3; i >= 0; i--) value = value << 8 | static_cast<uint8_t>(noise[size_t(i)]);
                    SpoolWriteWord(file, value);
                } else {
                    EXPECT_EQ(SpoolWrite(file, noise.data(), static_cast<uint32_t>(noise.size())), noise.size());
                }
                model.resize(std::max(model.size(), position + noise.size()));
                model.replace(position, noise.size(), noise);
                position += noise.size();
            } else if (choice == 5) {
                const size_t target = random() % (model.size() + 1);
                EXPECT_EQ(SpoolSeek(file, target), position);
                position = target;
            } else if (choice == 6) {
                SpoolFlush(file, random() % 2 != 0);
            } else {
                EXPECT_EQ(SpoolSize(file), model.size());
            }
            ASSERT_EQ(SpoolTell(file), position) << "round " << round << " step " << step;
        }
        EXPECT_EQ(file->writeError, 0u);
        memory.failingRequest = 0;
        SpoolClose(file);
        ASSERT_EQ(fake.bytes, model) << "round " << round;
    }
}

TEST_F(SpoolFileTest, ReaderEqualsAPlainStringUnderRandomOperations) {
    std::mt19937 random(3);
    const std::string bytes = Noise(300);
    for (uint32_t round = 0; round < 400; round++) {
        fake.position = 0;
        SpoolFile* file = Reader(round % 50, bytes);
        memory.failingRequest = round % 7 == 0 ? memory.requests + 1 : 0;
        size_t position = 0;
        char part[80];
        for (int step = 0; step < 60; step++) {
            if (random() % 3 == 0) {
                // Far away or nearby, the end included.
                const size_t nearby = std::max<size_t>(position + random() % 40, 20) - 20;
                const size_t target = random() % 2 ? random() % 301 : std::min(nearby, bytes.size());
                EXPECT_EQ(SpoolSeek(file, target), position);
                position = target;
            } else {
                const uint32_t wanted = static_cast<uint32_t>(random() % 80);
                const std::string expected = bytes.substr(position, wanted);
                ASSERT_EQ(SpoolRead(file, part, wanted), expected.size()) << "round " << round << " step " << step;
                ASSERT_EQ(std::string(part, expected.size()), expected);
                position += expected.size();
            }
            ASSERT_EQ(SpoolTell(file), position);
            if (step % 20 == 19) {
                EXPECT_EQ(SpoolSize(file), bytes.size());
            }
        }
        memory.failingRequest = 0;
        SpoolClose(file);
    }
}

TEST_F(SpoolFileTest, FailedOpeningsLeaveNothing) {
    fake.missing = true;
    EXPECT_EQ(SpoolCreate(100, "name", false), nullptr);
    EXPECT_EQ(SpoolOpen(100, "name"), nullptr);
    EXPECT_EQ(NewCalls(), (Calls{"create", "open"}));
    fake.missing = false;
    EXPECT_EQ(SpoolOpen(100, std::string(128, 'x').c_str()), nullptr);
    memory.failingRequest = memory.requests + 1;
    EXPECT_EQ(SpoolCreate(100, "name", true), nullptr);
    EXPECT_EQ(NewCalls(), Calls{});
    SpoolFile* file = SpoolOpen(100, std::string(127, 'x').c_str());
    EXPECT_EQ(file->name, std::string(127, 'x'));
    SpoolClose(file);
    SpoolClose(nullptr);
}

TEST_F(SpoolFileTest, HeaderIsElevenWordsAndReadsBack) {
    SpoolFile* file = Writer(64);
    VornFileHeader header = {MovieMagic('g'), 2, 3, 4, 5, 6, 7, 8, 9, 10, 0xA1B2C3D4};
    WriteFileHeader(file, header);
    WriteZeroWords(file, 2);
    SpoolClose(file);
    std::string expected = "VRNg";
    for (char word = 2; word <= 10; word++) expected += {word, 0, 0, 0};
    expected += "\xD4\xC3\xB2\xA1" + std::string(8, '\0');
    EXPECT_EQ(fake.bytes, expected);

    fake.position = 0;
    file = Reader(64, expected);
    VornFileHeader read = {};
    EXPECT_TRUE(ReadFileHeader(file, &read));
    EXPECT_EQ(std::memcmp(&read, &header, sizeof header), 0);
    EXPECT_TRUE(IsMovieMagic(read.magic));
    EXPECT_FALSE(IsMovieMagic(MovieMagic('e')) || IsMovieMagic(MovieMagic('j')));
    EXPECT_FALSE(ReadFileHeader(file, &read)); // 8 bytes are left
    SpoolClose(file);
}
