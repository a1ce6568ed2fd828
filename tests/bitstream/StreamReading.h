// StreamReading.h - rooms for what the bitstream folder writes, and a plain way to read it: bit by bit, or with the reader.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "bitstream/BitWriter.h"
#include "bitstream/BlockData.h"
#include "reader/BitSource.h"

namespace vorn {

// A stream in the tests' hands: room, a writer on it, and the bits once written.
struct TestStream {
    std::vector<uint8_t> room;
    BitWriter writer;
    uint32_t at = 0; // next bit to be read

    explicit TestStream(size_t bytes = 1 << 16) : room(bytes) {
        StartWriter(&writer, room.data(), static_cast<uint32_t>(bytes));
    }
    uint32_t Take(uint32_t bits) {
        uint32_t value = 0;
        for (uint32_t i = 0; i < bits; i++, at++) value |= static_cast<uint32_t>(room.at(at / 8) >> at % 8 & 1) << i;
        return value;
    }
    // All of it for the reader.
    reader::BitSource Bits() const { return reader::BitSource({room.data(), room.size()}); }
};

// A list of bit strings and its room.
struct TestStrings {
    std::vector<uint64_t> room = std::vector<uint64_t>(1 << 13);
    Arena arena = MakeArena(reinterpret_cast<uint8_t*>(room.data()), room.size() * 8);
    BlockDataList list;

    TestStrings() { StartBlockDataList(&list, &arena); }
    // The first `count` strings, one behind the other.
    TestStream Copy(int count = 1) {
        TestStream stream;
        BlockDataList left = list;
        for (int i = 0; i < count; i++) CopyNextBitString(&stream.writer, &left);
        PadToWord(&stream.writer);
        return stream;
    }
};

inline int RandomInt(std::mt19937* random, int low, int high) {
    return low + static_cast<int>((*random)() % static_cast<uint32_t>(high - low + 1));
}

} // namespace vorn
